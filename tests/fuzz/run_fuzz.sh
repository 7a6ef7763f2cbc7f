#!/usr/bin/env bash
# Builds the libFuzzer targets with AddressSanitizer + UndefinedBehaviorSanitizer
# (clang) and runs each for the given number of seconds, starting from its
# committed seed corpus. Any crash, sanitizer report, leak, violated invariant,
# input slower than the per-input time bound or heavier than the memory bound
# fails the run; the offending input is kept under build/fuzz/artifacts/.
#
#   tests/fuzz/run_fuzz.sh SECONDS [TARGET...]     (default: every target)
#   FUZZ_SEED=1 FUZZ_RUNS=15000 tests/fuzz/run_fuzz.sh 60   (reproducible, as CI)
#
# Two targets run at a time (the machines have two cores); FUZZ_JOBS changes it.
set -euo pipefail
cd "$(dirname "$0")/../.."

seconds=${1:?usage: run_fuzz.sh SECONDS [TARGET...]}
shift
build=build/fuzz
# Per-input bounds: a hang or a blow-up on one input is a finding.
timeout_s=${FUZZ_TIMEOUT:-10}
rss_mb=${FUZZ_RSS_MB:-2048}
jobs=${FUZZ_JOBS:-2}
# CI pins the seed and the number of runs, so that a submission's fuzz step
# gives the same verdict wherever it runs; by hand, both are left free.
extra=()
[ -n "${FUZZ_SEED:-}" ] && extra+=(-seed="$FUZZ_SEED")
[ -n "${FUZZ_RUNS:-}" ] && extra+=(-runs="$FUZZ_RUNS")

cmake -S . -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DKIVGEO_BUILD_FUZZ=ON -DKIVGEO_SANITIZE=ON -DKIVGEO_WERROR=ON \
    -DKIVGEO_BUILD_TESTS=OFF -DKIVGEO_BUILD_BENCH=OFF >/dev/null

if [ $# -gt 0 ]; then
    targets=("$@")
else
    targets=()
    for src in tests/fuzz/fuzz_*.cpp; do
        targets+=("$(basename "$src" .cpp)")
    done
fi
cmake --build "$build" -j 2 --target "${targets[@]}"

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1:allocator_may_return_null=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

run_one() {
    local t=$1
    local work=$build/corpus/$t
    mkdir -p "$work" "$build/artifacts" "$build/logs"
    local dict=()
    [ -f "tests/fuzz/$t.dict" ] && dict=(-dict="tests/fuzz/$t.dict")
    # The first directory collects new inputs; the committed seeds stay read-only.
    if "$build/tests/fuzz/$t" -max_total_time="$seconds" -timeout="$timeout_s" -rss_limit_mb="$rss_mb" \
        -malloc_limit_mb="$rss_mb" -max_len=4096 -print_final_stats=1 "${dict[@]}" "${extra[@]}" \
        -artifact_prefix="$build/artifacts/$t-" "$work" "tests/fuzz/corpus/$t" >"$build/logs/$t.log" 2>&1; then
        echo "$t: ok ($(grep -m1 -o 'stat::number_of_executed_units: *[0-9]*' "$build/logs/$t.log" |
            grep -o '[0-9]*$') runs in ${seconds} s)"
    else
        echo "$t: FAILED, see $build/logs/$t.log and $build/artifacts/$t-*"
        grep -E 'ERROR|invariant|SUMMARY|Test unit written' "$build/logs/$t.log" | head -n 8
        return 1
    fi
}

status=0
pids=()
names=()
for t in "${targets[@]}"; do
    run_one "$t" &
    pids+=($!)
    names+=("$t")
    if [ ${#pids[@]} -ge "$jobs" ]; then
        wait "${pids[0]}" || status=1
        pids=("${pids[@]:1}")
        names=("${names[@]:1}")
    fi
done
for p in "${pids[@]}"; do
    wait "$p" || status=1
done
exit $status
