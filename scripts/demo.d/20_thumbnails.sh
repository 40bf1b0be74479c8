#!/bin/bash
# Thumbnails (PNG and JPEG) of both sample scenes
set -euo pipefail
host="$1"; samples="$2"; out="$3"
cp "$samples/RGB.byte.tif" "$samples/L7_ETMs.tif" "$out/"
"$host" run CreateThumb "{\"imagePaths\":[\"$out/RGB.byte.tif\",\"$out/L7_ETMs.tif\"],\"maxHeight\":256,\"keepRatio\":true}"
