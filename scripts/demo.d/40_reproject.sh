#!/bin/bash
# Reprojection of the RGB scene from UTM 18N to geographic WGS 84
set -euo pipefail
host="$1"; samples="$2"; out="$3"
"$host" run ProjectTrans "{\"InputFile\":\"$samples/RGB.byte.tif\",\"OutputFile\":\"$out/RGB_wgs84.tif\",\"TargetSRS\":\"EPSG:4326\",\"ResampleMethod\":1}"
gdalinfo "$out/RGB_wgs84.tif" | grep -E '^Size is|ID\["EPSG",4326\]' | head -2
