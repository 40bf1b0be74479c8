#!/bin/bash
# Image processing: 5x5 median filter of bands 1-3, principal components of all bands
set -euo pipefail
host="$1"; samples="$2"; out="$3"
"$host" call ExcuteAlgo_ImgProFiltSpaMid "$samples/L7_ETMs.tif" "$out/L7_median.tif" 5 "1|2|3" 0 0
"$host" call ExcuteAlgo_PCATransformFunc "$samples/L7_ETMs.tif" "$out/L7_pca.tif" "$out/L7_pca.txt" 0
