#!/bin/bash
# Installs the dependencies (as root), builds, and runs the main jobs on the bundled sample scene.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "$(id -u)" = 0 ]; then bash scripts/install_deps.sh; fi
bash scripts/build.sh
host="$PWD/${BUILD_DIR:-build}/bin/algofactory"
samples="$PWD/data/samples"
out="$PWD/demo-output"
mkdir -p "$out"

echo "== Format conversion: Landsat 7 GeoTIFF to Erdas Imagine"
"$host" run UtilityFormTran "{\"InputFile\":\"$samples/L7_ETMs.tif\",\"OutputFile\":\"$out/L7_ETMs.img\",\"Option\":0}"
gdalinfo "$out/L7_ETMs.img" | sed -n '1,4p'

for job in scripts/demo.d/*.sh; do
    [ -f "$job" ] || continue
    echo "== $(sed -n '2s/^# //p' "$job")"
    bash "$job" "$host" "$samples" "$out"
done
echo "Outputs are in $out"
