#!/bin/bash
# Configures and builds AlgoFactory into BUILD_DIR (default: build). Extra arguments go to cmake.
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir="${BUILD_DIR:-build}"
export CCACHE_BASEDIR="$PWD"
export CCACHE_DIR="${CCACHE_DIR:-$HOME/.cache/ccache}"
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" > /dev/null
cmake --build "$build_dir" -j "$(nproc)"
