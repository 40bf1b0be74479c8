#!/bin/bash
# Installs the dependencies (as root), builds and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "$(id -u)" = 0 ]; then bash scripts/install_deps.sh; fi
bash scripts/build.sh
cd "${BUILD_DIR:-build}"
QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j "$(nproc)" --timeout 600
# The Python package and the QGIS provider, with Debian's interpreter (it has python3-gdal and QGIS's
# bindings; a python3 earlier on PATH may not).
build_dir="$(pwd)"
cd ..
ALGOFACTORY_BUILD_DIR="$build_dir" QT_QPA_PLATFORM=offscreen \
    /usr/bin/python3 -m pytest -q -p no:cacheprovider python/tests qgis/tests
