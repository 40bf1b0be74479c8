#!/bin/bash
# Builds the tree with AddressSanitizer+UndefinedBehaviorSanitizer and runs every test there, then builds
# with ThreadSanitizer and runs the concurrency test TSAN_RUNS times (3). Usage: scripts/sanitizers.sh [asan|tsan|all]
set -euo pipefail
cd "$(dirname "$0")/.."
root="$PWD"
what="${1:-all}"
jobs="${JOBS:-$(nproc)}"
export CCACHE_BASEDIR="$root"
export CCACHE_DIR="${CCACHE_DIR:-$HOME/.cache/ccache}"
# Builds in other folders of the same tree share cached objects.
export CCACHE_NOHASHDIR=1
export QT_QPA_PLATFORM=offscreen
# -O1 keeps the instrumented build and its tests fast enough for CI; -g for readable reports.
flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g" -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O1 -g")

if [ "$what" = asan ] || [ "$what" = all ]; then
    asan_dir="${ASAN_BUILD_DIR:-build-asan}"
    cmake -S . -B "$asan_dir" "${flags[@]}" -DALGO_SANITIZE=ON > /dev/null
    cmake --build "$asan_dir" -j "$jobs"
    export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:halt_on_error=1:detect_odr_violation=0:allocator_may_return_null=1:max_allocation_size_mb=4096:hard_rss_limit_mb=6144"
    export LSAN_OPTIONS="suppressions=$root/tests/reliability/lsan.supp:print_suppressions=0"
    export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:suppressions=$root/tests/reliability/ubsan.supp"
    (cd "$asan_dir" && ctest --output-on-failure -j "$jobs" --timeout 900)
fi

if [ "$what" = tsan ] || [ "$what" = all ]; then
    tsan_dir="${TSAN_BUILD_DIR:-build-tsan}"
    cmake -S . -B "$tsan_dir" "${flags[@]}" -DALGO_TSAN=ON > /dev/null
    # The plug-ins the test loads (format conversion, band math, the spatial filters) are built with the sanitizer too.
    cmake --build "$tsan_dir" -j "$jobs" --target test_reliability_concurrency UtilityFormTran UtilityOperBand ImgProFiltSpa
    export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$root/tests/reliability/tsan.supp"
    # A race shows in some interleavings only: several runs.
    for run in $(seq 1 "${TSAN_RUNS:-3}"); do
        echo "ThreadSanitizer run $run"
        (cd "$tsan_dir/tests" && ./test_reliability_concurrency)
    done
fi
