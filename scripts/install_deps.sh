#!/bin/bash
# Installs the Debian 12 packages AlgoFactory needs to build, test, run its demo and benchmarks. Run as root.
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive
packages=(
    build-essential cmake ccache pkg-config git
    qtbase5-dev libqt5svg5-dev libqcustomplot-dev
    libgdal-dev gdal-bin python3-gdal libcurl4-gnutls-dev
    libboost-dev libhdf5-dev
    libeigen3-dev libfftw3-dev libopencv-dev libsvm-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    tar gzip bzip2 xz-utils unzip zip time clang libclang-rt-14-dev
    python3 python3-numpy python3-scipy python3-sklearn python3-opencv libopenblas0-pthread
    python3-spectral python3-skimage python3-pytest python3-matplotlib python3-distributed otb-bin grass-core
    python3-tqdm qgis python3-qgis
)
missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
