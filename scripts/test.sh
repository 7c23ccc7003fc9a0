#!/usr/bin/env bash
# The whole test suite: installs what is missing, then builds and tests a
# normal build, the Debian packages (built, installed into a scratch root,
# started and removed), an AddressSanitizer + UndefinedBehaviorSanitizer build and a
# ThreadSanitizer build of the window and token tests (any sanitizer report
# fails the test), then runs every fuzz target for a short time. Exits
# non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT=$PWD
JOBS=${JOBS:-2}
FUZZ_SECONDS=${FUZZ_SECONDS:-20}

bash scripts/install-deps.sh

# Three builds of the same sources: a compiler cache, where there is one,
# keeps the repeated runs short.
if command -v ccache >/dev/null; then
  export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi

run_suite() {   # build-dir, extra cmake args...
  local dir=$1; shift
  echo "=== configure and build: $dir"
  cmake -S "$ROOT" -B "$dir" "$@" >/dev/null
  cmake --build "$dir" -j"$JOBS"
  echo "=== test: $dir"
  (cd "$dir" && xvfb-run -a -s "-screen 0 1280x1024x24 -noreset" \
      ctest --output-on-failure -j"$JOBS" --timeout 600)
}

run_suite "$ROOT/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo

echo "=== Debian packages: build, lintian, install into a scratch root, start, remove"
bash scripts/package.sh "$ROOT/build/packages"
xvfb-run -a -s "-screen 0 1280x1024x24 -noreset" bash tests/packaging/check-packages.sh "$ROOT/build/packages"

export ASAN_OPTIONS="halt_on_error=1:abort_on_error=0:detect_leaks=1:strict_string_checks=1"
# The sanitizer build uses Ninja, the others Make, so both generators keep
# working. A folder configured earlier with the other generator starts afresh.
if grep -qs '^CMAKE_GENERATOR:INTERNAL=Unix Makefiles' "$ROOT/build-asan/CMakeCache.txt"; then
  rm -rf "$ROOT/build-asan"
fi
run_suite "$ROOT/build-asan" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKORVEX_SANITIZE=ON -DKORVEX_BUILD_BENCH=OFF
unset ASAN_OPTIONS

# GLib's own locks are futexes TSan cannot see, and the desktop libraries are
# not instrumented: only races and lock misuse in our own code count.
export TSAN_OPTIONS="halt_on_error=1:report_mutex_bugs=0:ignore_noninstrumented_modules=1"
run_suite "$ROOT/build-tsan" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKORVEX_TSAN=ON -DKORVEX_BUILD_BENCH=OFF
unset TSAN_OPTIONS

if [ -f fuzz/CMakeLists.txt ]; then
  echo "=== fuzz targets, ${FUZZ_SECONDS}s each"
  bash scripts/fuzz.sh "$FUZZ_SECONDS"
fi
echo "=== all tests passed"
