#!/usr/bin/env bash
# Line and branch coverage per layer: builds the project with gcc's coverage
# instrumentation in its own folder (build-coverage), runs the whole test
# suite there and prints one row per layer from gcovr. A developer's tool, not
# part of the test command: the instrumented run takes several minutes.
#
#   bash scripts/coverage.sh [build-dir]
# The line counts go to <build-dir>/coverage-lines.json; keep a copy before a
# change of the tests and compare with scripts/coverage-diff.py afterwards.
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT=$PWD
BUILD=${1:-$ROOT/build-coverage}
JOBS=${JOBS:-2}
LAYERS=(base crypto formats token app gui program sim tools)

# No compiler cache: a cached object carries the note file of the build it
# was first made in, and gcov then cannot find the sources of this one.
export CCACHE_DISABLE=1
cmake -S "$ROOT" -B "$BUILD" -DCMAKE_BUILD_TYPE=Debug -DKORVEX_BUILD_BENCH=OFF \
  -DCMAKE_C_FLAGS=--coverage -DCMAKE_CXX_FLAGS=--coverage \
  -DCMAKE_EXE_LINKER_FLAGS=--coverage -DCMAKE_SHARED_LINKER_FLAGS=--coverage >/dev/null
cmake --build "$BUILD" -j"$JOBS" >/dev/null
find "$BUILD" -name '*.gcda' -delete
# The simulator keeps the keys it generated in the build's scratch folder;
# every run starts without them, so the key making counts the same each time.
rm -rf "$BUILD/test-scratch/sim-keys" "$BUILD/test-scratch/gui-sim-keys"
(cd "$BUILD" && xvfb-run -a -s "-screen 0 1280x1024x24" \
    ctest -j"$JOBS" --timeout 600 >"$BUILD/coverage-ctest.log" 2>&1) ||
  echo "coverage: some tests failed (see $BUILD/coverage-ctest.log); figures are still printed"

# One JSON summary of every product file, split by folder below.
# Also every line's count, for scripts/coverage-diff.py.
gcovr --root "$ROOT" --object-directory "$BUILD" --json-summary "$BUILD/coverage.json" \
  --json "$BUILD/coverage-lines.json" \
  --exclude "$ROOT/tests/" --exclude "$ROOT/bench/" --exclude "$ROOT/fuzz/" \
  --exclude "$BUILD/" --gcov-ignore-parse-errors -j "$JOBS" >/dev/null

python3 - "$BUILD/coverage.json" "${LAYERS[@]}" <<'EOF'
import json, sys
data = json.load(open(sys.argv[1]))
layers = sys.argv[2:]
totals = {layer: [0, 0, 0, 0] for layer in layers}
for f in data["files"]:
    layer = f["filename"].split("/", 1)[0]
    if layer in totals:
        t = totals[layer]
        t[0] += f["line_covered"]; t[1] += f["line_total"]
        t[2] += f["branch_covered"]; t[3] += f["branch_total"]
pct = lambda a, b: f"{100.0 * a / b:5.1f} %" if b else "    - "
print(f"{'layer':8} {'lines':>16} {'line cov':>9} {'branches':>16} {'branch cov':>10}")
for layer, (lc, lt, bc, bt) in totals.items():
    print(f"{layer:8} {lc:7d} / {lt:6d} {pct(lc, lt):>9} {bc:7d} / {bt:6d} {pct(bc, bt):>10}")
lc, lt, bc, bt = (sum(t[i] for t in totals.values()) for i in range(4))
print(f"{'all':8} {lc:7d} / {lt:6d} {pct(lc, lt):>9} {bc:7d} / {bt:6d} {pct(bc, bt):>10}")
EOF
