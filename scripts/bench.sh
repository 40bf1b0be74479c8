#!/bin/bash
# Runs every benchmark in bench/ against the build in BUILD_DIR (default: build).
set -uo pipefail
cd "$(dirname "$0")/.."
build_dir="${BUILD_DIR:-build}"
python=/usr/bin/python3
status=0
for bench in bench/*_bench.py; do
    [ -f "$bench" ] || continue
    echo "== $bench"
    "$python" "$bench" "$build_dir" || status=1
done
exit $status
