#!/usr/bin/env bash
# Fails when the code has a window text that the committed template or the
# English catalogue lacks, when the template holds texts the code no longer
# has, or when the English catalogue is not complete.
set -euo pipefail
src=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
bash "$src/scripts/update-pot.sh" "$scratch/fresh.pot" 2>/dev/null
status=0
# Every text of the code is in the template and the template has no stale one.
msgcmp --use-untranslated "$src/po/VessaClient.pot" "$scratch/fresh.pot" || {
  echo "po/VessaClient.pot misses texts of the code: run scripts/update-pot.sh"; status=1; }
msgcmp --use-untranslated "$scratch/fresh.pot" "$src/po/VessaClient.pot" || {
  echo "po/VessaClient.pot has texts the code no longer uses: run scripts/update-pot.sh"; status=1; }
# Every text of the code has an English translation, none fuzzy.
msgcmp "$src/po/en.po" "$scratch/fresh.pot" || { echo "po/en.po lacks translations"; status=1; }
stats=$(LC_ALL=C msgfmt --check --statistics -o /dev/null "$src/po/en.po" 2>&1)
echo "en.po: $stats"
case $stats in
  *fuzzy*|*untranslated*) echo "po/en.po has fuzzy or untranslated texts"; status=1 ;;
esac
# A text the translation macro does not reach stays German on an English
# screen: the window code has no German literal outside Tr().
if grep -nE '(wxT|FromUTF8)\("[^"]*([äöüÄÖÜß]|Karte|Fehler|Bitte|anzeigen|Inhalt)' \
     "$src"/gui/*.cpp "$src"/app/*.cpp | grep -v 'Tr(' ; then
  echo "German text outside the catalogue"; status=1
fi
exit $status
