#!/usr/bin/env bash
# Runs the mutation sampler (scripts/mutants.py) under a private X server, as
# the window tests need one. Arguments go to the sampler, e.g.
#   bash scripts/mutants.sh --seed 20261124 --out mutants.txt
# A developer's tool: every mutant runs up to the whole suite, so the 120-site
# sample takes about an hour and a half (see docs/TESTING.md).
set -euo pipefail
cd "$(dirname "$0")/.."
if command -v ccache >/dev/null; then
  export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi
exec xvfb-run -a -s "-screen 0 1280x1024x24" python3 scripts/mutants.py "$@"
