#!/usr/bin/env bash
# Builds the Debian packages vessacards and vessacards-sim from a copy of the
# source tree (so the tree itself stays clean) and puts the .deb files into
# the folder given (default: packages/ at the top of the tree).
#   bash scripts/package.sh [output-folder]
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT=$PWD
OUT=$(realpath -m "${1:-$ROOT/packages}")

# Build dependencies come from debian/control itself.
if ! dpkg-checkbuilddeps debian/control >/dev/null 2>&1; then
  apt_install="apt-get install -y --no-install-recommends"
  [ "$(id -u)" -eq 0 ] || apt_install="sudo $apt_install"
  $apt_install devscripts equivs
  mk-build-deps --install --remove --tool "$apt_install" debian/control
fi

WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
mkdir "$WORK/vessacards"
# Only what git knows (committed or new), never build folders.
git ls-files -z --cached --others --exclude-standard | tar -C "$ROOT" --null -T - -cf - | tar -C "$WORK/vessacards" -xf -
if command -v ccache >/dev/null; then
  export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi
(cd "$WORK/vessacards" && DEB_BUILD_OPTIONS="parallel=${JOBS:-2}" dpkg-buildpackage -us -uc -b)
mkdir -p "$OUT"
cp "$WORK"/*.deb "$OUT"/
ls -1 "$OUT"/*.deb
