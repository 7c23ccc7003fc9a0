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
#   scripts/fuzz.sh 1800 keep 10000000
#                                the same, but a target also stops once it has
#                                run that many inputs
# FUZZ_JOBS (default 1) targets run side by side; a campaign on two cores
# takes half the time with FUZZ_JOBS=2.
set -uo pipefail
cd "$(dirname "$0")/.."
ROOT=$PWD
SECONDS_PER_TARGET=${1:-20}
KEEP=${2:-}
MAX_RUNS=${3:-0}
JOBS=${FUZZ_JOBS:-1}
BUILD="$ROOT/build-fuzz"
WORK="$BUILD/corpus-work"
ARTIFACTS="$BUILD/artifacts"
LOGS="$BUILD/logs"

if ! [[ "$SECONDS_PER_TARGET" =~ ^[0-9]+$ ]] || [ "$SECONDS_PER_TARGET" -lt 1 ] ||
   ! [[ "$MAX_RUNS" =~ ^[0-9]+$ ]] || ! [[ "$JOBS" =~ ^[1-9][0-9]*$ ]]; then
  echo "usage: [FUZZ_JOBS=n] $0 [seconds per target] [keep] [most inputs per target]" >&2
  exit 2
fi

echo "=== fuzz: configure and build ($BUILD)"
CC=clang CXX=clang++ cmake -S "$ROOT" -B "$BUILD" -DKORVEX_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null || exit 1
cmake --build "$BUILD" -j2 --target fuzz_all || exit 1

mkdir -p "$WORK" "$ARTIFACTS" "$LOGS"
mapfile -t TARGETS < <(grep -v '^$' "$BUILD/fuzz/targets.txt")
export ASAN_OPTIONS="${ASAN_OPTIONS:-halt_on_error=1:detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"

# Runs one target; its outcome goes to $LOGS/<target>.result (a summary row)
# or $LOGS/<target>.failed, so targets may run side by side.
fuzz_target() {
  local target=$1 corpus="$WORK/$1" log="$LOGS/$1.log"
  rm -f "$LOGS/$target.result" "$LOGS/$target.failed"
  mkdir -p "$corpus"
  if [ -d "$ROOT/fuzz/corpus/$target" ]; then
    cp -n "$ROOT/fuzz/corpus/$target"/* "$corpus"/ 2>/dev/null || true
  fi
  local limits=(-max_total_time="$SECONDS_PER_TARGET")
  [ "$MAX_RUNS" -gt 0 ] && limits+=(-runs="$MAX_RUNS")
  local bound="${SECONDS_PER_TARGET}s"
  [ "$MAX_RUNS" -gt 0 ] && bound+=" or $MAX_RUNS inputs"
  echo "=== fuzz: $target for $bound"
  if "$BUILD/fuzz/$target" "$corpus" "${limits[@]}" -timeout=25 -rss_limit_mb=2048 \
      -artifact_prefix="$ARTIFACTS/$target-" -print_final_stats=1 >"$log" 2>&1; then
    local done_line runs cov ft seconds
    done_line=$(grep -E '^#[0-9]+.*DONE' "$log" | tail -1)
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    seconds=$(sed -n 's/^Done [0-9]* runs in \([0-9]*\) second.*/\1/p' "$log" | tail -1)
    cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$done_line")
    ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$done_line")
    if [ "$KEEP" = keep ]; then
      local kept="$WORK/$target.minimized"
      rm -rf "$kept" && mkdir -p "$kept"
      "$BUILD/fuzz/$target" -merge=1 "$kept" "$ROOT/fuzz/corpus/$target" "$corpus" >>"$log" 2>&1 &&
        rm -rf "$ROOT/fuzz/corpus/$target" && mv "$kept" "$ROOT/fuzz/corpus/$target"
      echo "    kept $(ls "$ROOT/fuzz/corpus/$target" | wc -l) inputs in fuzz/corpus/$target"
    fi
    printf '%-22s %12s %8s %8s %8s\n' "$target" "${runs:-?}" "${seconds:-?}" "${cov:-?}" "${ft:-?}" >"$LOGS/$target.result"
  else
    echo "!!! $target failed, see $log"
    grep -E 'ERROR|SUMMARY|runtime error|Test unit written' "$log" | head -10
    touch "$LOGS/$target.failed"
  fi
}

for target in "${TARGETS[@]}"; do
  while [ "$(jobs -rp | wc -l)" -ge "$JOBS" ]; do
    wait -n
  done
  fuzz_target "$target" &
done
wait

failed=()
echo "=== fuzz: per target (executions, seconds, coverage points, features)"
printf '%-22s %12s %8s %8s %8s\n' target executions seconds cov ft
for target in "${TARGETS[@]}"; do
  if [ -f "$LOGS/$target.result" ]; then
    cat "$LOGS/$target.result"
  else
    failed+=("$target")
  fi
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "=== fuzz: FAILED: ${failed[*]}"
  exit 1
fi
echo "=== fuzz: all ${#TARGETS[@]} targets ran without a finding"
