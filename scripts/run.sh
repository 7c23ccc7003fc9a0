#!/usr/bin/env bash
# Installs what is missing, builds, and starts the card manager on the
# simulated cards (the simulated vendor module comes first on the loader path).
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT=$PWD
# The window needs a display: say so before minutes of installing and building.
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
  echo "No display found. Without a desktop, run it on a virtual display:" >&2
  echo "  xvfb-run -a bash scripts/run.sh" >&2
  echo "(PIN dialogues then need a pinentry that runs there, see README.md)" >&2
  exit 1
fi
bash scripts/install-deps.sh
cmake -S "$ROOT" -B "$ROOT/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$ROOT/build" -j"${JOBS:-2}"

PROGRAM="$ROOT/build/program/VessaCards"
if [ ! -x "$PROGRAM" ]; then
  echo "Built the libraries; the program itself is not part of this build yet."
  exit 0
fi
export LD_LIBRARY_PATH="$ROOT/build/sim${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
export PATH="$ROOT/build/tools:$PATH"
exec "$PROGRAM"
