#!/usr/bin/env bash
# Extracts the translatable window texts (German, the catalogue keys) into
# po/VessaClient.pot. Run after changing a text; the test suite fails while
# the template or po/en.po lags behind the code.
set -euo pipefail
cd "$(dirname "$0")/.."
out=${1:-po/VessaClient.pot}
find app gui program -name '*.cpp' -o -name '*.h' | LC_ALL=C sort |
  xgettext --from-code=UTF-8 --language=C++ -k -kTr -k_ -kwxTRANSLATE \
    --package-name=VessaCards --msgid-bugs-address=https://example.invalid/vessacards \
    --sort-by-file --add-location=file -f - -o "$out"
