#!/usr/bin/env bash
# Checks the built Debian packages as a user gets them: lintian, then dpkg
# installs them into a scratch root (never the machine's own /etc or /usr),
# the desktop tools check the installed desktop entry, metadata and manual
# pages, the installed demo launcher starts the installed program on the
# simulated cards under the X display in German and in English, and removing
# the packages leaves nothing but the changed settings file, which purging
# removes too. Needs an X display (xvfb-run).
#   bash tests/packaging/check-packages.sh <folder with the .deb files>
set -euo pipefail
DEBS=$(realpath "$1")
ROOT=$(mktemp -d)
trap 'rm -rf "$ROOT"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }
main_deb=$(ls "$DEBS"/vessacards_*.deb)
sim_deb=$(ls "$DEBS"/vessacards-sim_*.deb)

echo "--- lintian"
# Errors and warnings fail; the overrides in debian/ say why any one stays.
lintian --fail-on error,warning "$main_deb" "$sim_deb" 2>&1 | grep -v 'root privileges' || true
lintian --fail-on error,warning "$main_deb" "$sim_deb" >/dev/null 2>&1 || fail "lintian"

echo "--- install into $ROOT"
mkdir -p "$ROOT/var/lib/dpkg/info" "$ROOT/var/lib/dpkg/updates" "$ROOT/home"
touch "$ROOT/var/lib/dpkg/status"
# The scratch root has none of the libraries the packages depend on: the
# machine provides them when the program runs.
DPKG=(dpkg --root="$ROOT" --force-depends --force-script-chrootless)
"${DPKG[@]}" -i "$main_deb" "$sim_deb" >/dev/null 2>&1 || fail "dpkg -i"
files=$("${DPKG[@]}" -L vessacards vessacards-sim)
for path in /usr/bin/VessaCards /usr/bin/certViewerApp /usr/bin/VessaPlus /usr/bin/vessa-sim \
            /usr/bin/vessacards-demo /usr/share/VessaClient/vessaclient/I18N/en/LC_MESSAGES/VessaClient.mo \
            /usr/share/applications/org.korvex.VessaCards.desktop \
            /usr/share/metainfo/org.korvex.VessaCards.metainfo.xml \
            /usr/share/icons/hicolor/scalable/apps/org.korvex.VessaCards.svg \
            /usr/share/icons/hicolor/48x48/apps/org.korvex.VessaCards.png \
            /usr/share/man/man1/VessaCards.1.gz /usr/share/man/man1/vessa-sim.1.gz \
            /etc/korvex/vessaclient/config; do
  grep -qx "$path" <<<"$files" || fail "$path not installed"
done
# The simulated module is off the loader's default path.
module=$(grep '/libVessaP11.so$' <<<"$files")
[[ $module == /usr/lib/*/vessacards/sim/libVessaP11.so ]] || fail "simulator module at $module"
conffiles=$(dpkg-query --admindir="$ROOT/var/lib/dpkg" -W -f='${Conffiles}' vessacards)
grep -q '/etc/korvex/vessaclient/config' <<<"$conffiles" || fail "settings file is no conffile"

echo "--- desktop entry, metadata, manual pages"
desktop-file-validate "$ROOT/usr/share/applications/org.korvex.VessaCards.desktop"
appstreamcli validate --no-net "$ROOT/usr/share/metainfo/org.korvex.VessaCards.metainfo.xml"
for page in "$ROOT"/usr/share/man/man1/*.1.gz; do
  [ "$(man -l "$page" 2>/dev/null | grep -c .)" -gt 5 ] || fail "manual page $page does not render"
done

echo "--- the installed program on the simulated cards"
run_demo() {   # LANG value; prints the program's timing line
  env HOME="$ROOT/home" KORVEX_ALLUSERS_DIR="$ROOT/etc/" VESSA_SIM_STATE_DIR="$ROOT/home/state" \
      LANG="$1" LC_ALL= LC_MESSAGES= VESSACARDS_EXIT_AFTER_REFRESH=1 \
      timeout 120 "$ROOT/usr/bin/vessacards-demo" 2>&1 | grep 'filled_ns' || true
}
german=$(run_demo de_AT.UTF-8)
echo "de_AT: $german"
[[ $german == *"rows=6 title=Kartenverwaltung (x64)"* ]] || fail "German start"
english=$(run_demo en_US.UTF-8)
echo "en_US: $english"
[[ $english == *"rows=6 title=Card Manager (x64)"* ]] || fail "English start"

echo "--- remove, then purge"
echo "<!-- changed by the administrator -->" >>"$ROOT/etc/korvex/vessaclient/config"
"${DPKG[@]}" -r vessacards-sim vessacards >/dev/null 2>&1 || fail "dpkg -r"
left=$(cd "$ROOT" && find . -path ./var -prune -o -path ./home -prune -o \( -type f -o -type l \) -print)
[ "$left" = "./etc/korvex/vessaclient/config" ] || fail "left after removal: $left"
"${DPKG[@]}" -P vessacards vessacards-sim >/dev/null 2>&1 || fail "dpkg -P"
left=$(cd "$ROOT" && find . -path ./var -prune -o -path ./home -prune -o \( -type f -o -type l \) -print)
[ -z "$left" ] || fail "left after purge: $left"
echo "packages: all checks passed"
