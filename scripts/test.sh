#!/usr/bin/env bash
# The whole test suite: installs what is missing, then builds and tests twice
# (a normal build and an AddressSanitizer + UndefinedBehaviorSanitizer build,
# where any sanitizer report fails the test), then runs every fuzz target
# for a short time. Exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT=$PWD
JOBS=${JOBS:-2}
FUZZ_SECONDS=${FUZZ_SECONDS:-20}

bash scripts/install-deps.sh

run_suite() {   # build-dir, extra cmake args...
  local dir=$1; shift
  echo "=== configure and build: $dir"
  cmake -S "$ROOT" -B "$dir" "$@" >/dev/null
  cmake --build "$dir" -j"$JOBS"
  echo "=== test: $dir"
  (cd "$dir" && xvfb-run -a -s "-screen 0 1280x1024x24" \
      ctest --output-on-failure -j"$JOBS" --timeout 600)
}

run_suite "$ROOT/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo

export ASAN_OPTIONS="halt_on_error=1:abort_on_error=0:detect_leaks=1:strict_string_checks=1"
run_suite "$ROOT/build-asan" -DCMAKE_BUILD_TYPE=Debug -DKORVEX_SANITIZE=ON -DKORVEX_BUILD_BENCH=OFF
unset ASAN_OPTIONS

if [ -f fuzz/CMakeLists.txt ]; then
  echo "=== fuzz targets, ${FUZZ_SECONDS}s each"
  bash scripts/fuzz.sh "$FUZZ_SECONDS"
fi
echo "=== all tests passed"
