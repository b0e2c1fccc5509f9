#!/usr/bin/env bash
# Builds the libFuzzer targets of tests/fuzz (clang, AddressSanitizer +
# UndefinedBehaviorSanitizer) and runs each over its seed corpus for a bounded time.
#   scripts/fuzz.sh [seconds per target] [build dir] [target...]
# RUX_FUZZ_RUNS=N also stops each target after N inputs. New inputs go to
# <build dir>/fuzz-corpus/<target>, findings to <build dir>/fuzz-findings. The exit
# status is that of the first target that fails.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
seconds="${1:-20}"
build="${2:-$root/build-fuzz}"
shift $(($# < 2 ? $# : 2))
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  targets=(ReplyDispatchFuzz FrameReceiverFuzz HandshakeFuzz SendBlobFuzz LogFileFuzz LogConfigFuzz)
fi

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DRUX_WERROR=ON \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DRUX_SANITIZE=address,undefined \
  -DRUX_BUILD_FUZZ=ON -DRUX_BUILD_TESTS=OFF -DRUX_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target fuzz

export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
mkdir -p "$build/fuzz-findings"
status=0
for target in "${targets[@]}"; do
  mkdir -p "$build/fuzz-corpus/$target"
  log="$build/fuzz-findings/$target.log"
  if "$build/tests/fuzz/$target" -max_total_time="$seconds" -runs="${RUX_FUZZ_RUNS:--1}" \
      -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
      -artifact_prefix="$build/fuzz-findings/$target-" \
      "$build/fuzz-corpus/$target" "$root/tests/fuzz/corpus/$target" >"$log" 2>&1; then
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    echo "fuzz: $target: ${runs:-?} inputs in ${seconds} s at most, no finding"
  else
    echo "fuzz: $target FAILED; the end of $log:"
    tail -n 40 "$log"
    [ $status -ne 0 ] || status=1
  fi
done
exit $status
