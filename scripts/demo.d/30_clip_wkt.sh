#!/bin/bash
# Clip of the RGB scene by a WKT polygon in longitude and latitude (WGS 84)
set -euo pipefail
host="$1"; samples="$2"; out="$3"
wkt="POLYGON((-78.2 25.2,-77.4 25.2,-77.4 24.4,-78.2 24.4,-78.2 25.2))"
"$host" run ImageClip_Enhance "{\"InputFile\":\"$samples/RGB.byte.tif\",\"ClipRange\":\"$wkt\",\"ClipType\":5,\"BufferPixels\":0,\"OutputFile\":\"$out/RGB_clip.tif\",\"Enabled\":1}"
gdalinfo "$out/RGB_clip.tif" | grep -E '^Size is'
