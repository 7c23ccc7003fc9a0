#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, address + undefined sanitizers) in
# build-fuzz and runs each of them for the given number of seconds (default
# 20) on a working copy of its committed seed corpus. New inputs, crash
# artifacts and logs stay under build-fuzz; only a campaign run with `keep`
# writes the repository (its minimized corpora).
# Exits non-zero when any target crashes or fails to run.
#   scripts/fuzz.sh              short run (the test suite uses this)
#   scripts/fuzz.sh 600          longer run on demand
#   scripts/fuzz.sh 1800 keep    a campaign: afterwards each target's corpus is
#                                minimized (-merge=1) into fuzz/corpus/<target>,
#                                so later runs start from what it found
set -uo pipefail
cd "$(dirname "$0")/.."
ROOT=$PWD
SECONDS_PER_TARGET=${1:-20}
KEEP=${2:-}
BUILD="$ROOT/build-fuzz"
WORK="$BUILD/corpus-work"
ARTIFACTS="$BUILD/artifacts"
LOGS="$BUILD/logs"

if ! [[ "$SECONDS_PER_TARGET" =~ ^[0-9]+$ ]] || [ "$SECONDS_PER_TARGET" -lt 1 ]; then
  echo "usage: $0 [seconds per target] [keep]" >&2
  exit 2
fi

echo "=== fuzz: configure and build ($BUILD)"
CC=clang CXX=clang++ cmake -S "$ROOT" -B "$BUILD" -DKORVEX_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null || exit 1
cmake --build "$BUILD" -j2 --target fuzz_all || exit 1

mkdir -p "$WORK" "$ARTIFACTS" "$LOGS"
mapfile -t TARGETS < <(grep -v '^$' "$BUILD/fuzz/targets.txt")
export ASAN_OPTIONS="${ASAN_OPTIONS:-halt_on_error=1:detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"

failed=()
summary=()
for target in "${TARGETS[@]}"; do
  corpus="$WORK/$target"
  mkdir -p "$corpus"
  if [ -d "$ROOT/fuzz/corpus/$target" ]; then
    cp -n "$ROOT/fuzz/corpus/$target"/* "$corpus"/ 2>/dev/null || true
  fi
  log="$LOGS/$target.log"
  echo "=== fuzz: $target for ${SECONDS_PER_TARGET}s"
  if "$BUILD/fuzz/$target" "$corpus" \
      -max_total_time="$SECONDS_PER_TARGET" -timeout=25 -rss_limit_mb=2048 \
      -artifact_prefix="$ARTIFACTS/$target-" -print_final_stats=1 >"$log" 2>&1; then
    done_line=$(grep -E '^#[0-9]+.*DONE' "$log" | tail -1)
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$done_line")
    ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$done_line")
    summary+=("$(printf '%-22s %12s %8s %8s' "$target" "${runs:-?}" "${cov:-?}" "${ft:-?}")")
    if [ "$KEEP" = keep ]; then
      kept="$WORK/$target.minimized"
      rm -rf "$kept" && mkdir -p "$kept"
      "$BUILD/fuzz/$target" -merge=1 "$kept" "$ROOT/fuzz/corpus/$target" "$corpus" >>"$log" 2>&1 &&
        rm -rf "$ROOT/fuzz/corpus/$target" && mv "$kept" "$ROOT/fuzz/corpus/$target"
      echo "    kept $(ls "$ROOT/fuzz/corpus/$target" | wc -l) inputs in fuzz/corpus/$target"
    fi
  else
    echo "!!! $target failed, see $log"
    grep -E 'ERROR|SUMMARY|runtime error|Test unit written' "$log" | head -10
    failed+=("$target")
  fi
done

echo "=== fuzz: per target (executions, coverage points, features)"
printf '%-22s %12s %8s %8s\n' target executions cov ft
printf '%s\n' "${summary[@]}"
if [ ${#failed[@]} -gt 0 ]; then
  echo "=== fuzz: FAILED: ${failed[*]}"
  exit 1
fi
echo "=== fuzz: all ${#TARGETS[@]} targets ran ${SECONDS_PER_TARGET}s without a finding"
