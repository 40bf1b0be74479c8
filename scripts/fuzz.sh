#!/bin/bash
# Builds the libFuzzer targets with clang (build-fuzz) and runs each for SECONDS seconds (default 30) from its seed
# corpus in fuzz/corpus/<target>/. Usage: scripts/fuzz.sh [SECONDS] [target...]. Crashes are kept in
# build-fuzz/crashes/<target>/ and make the script fail. Ends with a table of each target's executions and executions
# per second, from libFuzzer's final statistics.
set -euo pipefail
cd "$(dirname "$0")/.."
root="$PWD"
seconds="${1:-30}"
shift || true
build_dir="${FUZZ_BUILD_DIR:-build-fuzz}"
jobs="${JOBS:-$(nproc)}"
export CCACHE_BASEDIR="$root"
export CCACHE_DIR="${CCACHE_DIR:-$HOME/.cache/ccache}"
# Builds in other folders of the same tree share cached objects.
export CCACHE_NOHASHDIR=1
export QT_QPA_PLATFORM=offscreen

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
    # Every seed corpus names its target.
    for corpus in "$root"/fuzz/corpus/*/; do
        targets+=("fuzz_$(basename "$corpus")")
    done
fi

CC=clang CXX=clang++ cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g" -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O1 -g" \
    -DALGO_FUZZ=ON -DALGO_BUILD_TESTS=OFF > /dev/null
cmake --build "$build_dir" -j "$jobs" --target "${targets[@]}"

# Leaks of the long-lived Qt application and of GDAL's drivers are not the parsers' faults.
export ASAN_OPTIONS="detect_leaks=0:allocator_may_return_null=1:detect_odr_violation=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
failed=0
summary=()
for target in "${targets[@]}"; do
    name="${target#fuzz_}"
    corpus="$root/fuzz/corpus/$name"
    crashes="$root/$build_dir/crashes/$name"
    work="$(mktemp -d)"
    mkdir -p "$crashes"
    # A copy of the corpus: new inputs found during the run stay out of the repository.
    cp -r "$corpus" "$work/corpus"
    set +e
    (cd "$work" && TMPDIR="$work" "$root/$build_dir/bin/$target" -max_total_time="$seconds" -timeout=10 \
        -rss_limit_mb=2048 -max_len=8192 -artifact_prefix="$crashes/" -print_final_stats=1 "$work/corpus") \
        > "$work/log" 2>&1
    status=$?
    set -e
    # libFuzzer's final statistics (-print_final_stats=1): executed inputs and the average rate over the run.
    runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$work/log" | grep -o '[0-9]*$' || echo 0)
    rate=$(grep -o 'stat::average_exec_per_sec: *[0-9]*' "$work/log" | grep -o '[0-9]*$' || echo 0)
    if [ $status -ne 0 ]; then
        failed=1
        echo "$target: FAILED after ${runs:-0} runs; artefacts in $crashes"
        grep -E "ERROR:|SUMMARY:|#[0-9]+ 0x" "$work/log" | head -30
        summary+=("$(printf '%-26s %10s %12s  %s' "$target" "${runs:-0}" "${rate:-0}" FAILED)")
    else
        echo "$target: ${runs:-0} runs in ${seconds}s (${rate:-0}/s), no crash"
        summary+=("$(printf '%-26s %10s %12s  %s' "$target" "${runs:-0}" "${rate:-0}" "no crash")")
    fi
    rm -rf "$work"
done
printf '\n%-26s %10s %12s  %s\n' target runs "exec/s" outcome
printf '%s\n' "${summary[@]}"
exit $failed
