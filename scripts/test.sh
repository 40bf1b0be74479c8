#!/bin/bash
# Installs the dependencies (as root), builds and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "$(id -u)" = 0 ]; then bash scripts/install_deps.sh; fi
bash scripts/build.sh
cd "${BUILD_DIR:-build}"
QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j "$(nproc)" --timeout 600
