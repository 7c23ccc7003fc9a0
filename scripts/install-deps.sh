#!/usr/bin/env bash
# Installs every Debian package the project needs to build, run and test.
# Safe to re-run: packages that are already installed are skipped, and apt is
# only touched when something is missing.
set -euo pipefail

PACKAGES=(
  # build
  cmake g++ make pkg-config
  libwxgtk3.2-dev libssl-dev libboost-dev libp11-kit-dev
  libgtest-dev libgmock-dev googletest
  # fuzzing (libFuzzer runtime and sanitizers for clang)
  clang libclang-rt-14-dev
  # run and test the GUI without a display
  xvfb xauth
  # Xlib for the start-up benchmark, which watches the windows from outside
  libx11-dev
  # standard PKCS#11 tool used to check the simulated module from outside
  opensc
  # command-line openssl for test fixtures and the digest benchmark
  openssl
  # desktop pieces: PIN dialog and certificate viewer
  pinentry-gnome3 gcr
  # coverage report per layer (scripts/coverage.sh) and the mutation sampler
  gcovr python3
  # translations, desktop entry, AppStream metadata, icons, man pages
  gettext desktop-file-utils appstream librsvg2-bin man-db
  # Debian packages: build, check, install in the test
  debhelper dpkg-dev fakeroot lintian devscripts equivs
  # other PKCS#11 modules users have: p11-kit's proxy and trust module, SoftHSM2
  p11-kit p11-kit-modules softhsm2
  # the program's own PIN prompt speaks Assuan to the desktop's pinentry
  libassuan-dev libgpg-error-dev
  # accessibility checks through AT-SPI, keyboard-only runs
  at-spi2-core python3-pyatspi gir1.2-atspi-2.0 python3-gi xdotool
  # faster repeated builds; the second generator the build must work with
  ccache ninja-build
)

missing=()
for pkg in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$pkg")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all ${#PACKAGES[@]} packages present"
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y --no-install-recommends "${missing[@]}"
