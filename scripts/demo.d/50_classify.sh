#!/bin/bash
# Classification: K-means (6 classes) of the Landsat 7 scene, sieve, class statistics report
set -euo pipefail
host="$1"; samples="$2"; out="$3"
"$host" call ExcuteAlgo_KmeansClassification "$samples/L7_ETMs.tif" "$out/L7_kmeans.img" "0|1|2|3|4|5" 6 20 0.01
"$host" call ExcuteAlgo_ImgClassPostSieve "$out/L7_kmeans.img" "$out/L7_kmeans_sieved.img" 10 8
"$host" call ExcuteAlgo_ImgClassPostSta "$out/L7_kmeans_sieved.img" "$out/L7_kmeans_report.txt"
cat "$out/L7_kmeans_report.txt"; echo
