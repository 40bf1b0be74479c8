#!/bin/bash
# Band math: NDVI of the Landsat 7 scene (bands 3 and 4) as Float32 GeoTIFF
set -euo pipefail
host="$1"; samples="$2"; out="$3"
"$host" run BandCompute "{\"CalculationExp\":\"(b2-b1)/(b2+b1)\",\"Images\":\"$samples/L7_ETMs.tif|$samples/L7_ETMs.tif\",\"Bands\":\"3|4\",\"OutputFile\":\"$out/L7_ndvi.tif\",\"dataType\":6}"
echo "NDVI written to $out/L7_ndvi.tif"
