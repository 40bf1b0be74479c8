#!/bin/bash
# Configures and builds AlgoFactory into BUILD_DIR (default: build). Extra arguments go to cmake.
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir="${BUILD_DIR:-build}"
export CCACHE_BASEDIR="$PWD"
export CCACHE_DIR="${CCACHE_DIR:-$HOME/.cache/ccache}"
# Clones in other folders share cached objects (debug info may then name the other folder).
export CCACHE_NOHASHDIR=1
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" > /dev/null
cmake --build "$build_dir" -j "$(nproc)"
