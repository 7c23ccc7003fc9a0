#!/usr/bin/env bash
# Installs what is missing, builds, and starts the card manager on the
# simulated cards (the simulated vendor module comes first on the loader path).
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT=$PWD
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
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
  echo "No display found: run it as  xvfb-run -a bash scripts/run.sh" >&2
  exit 1
fi
exec "$PROGRAM"
