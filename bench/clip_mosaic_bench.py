#!/usr/bin/python3
"""Clip and mosaic through the algofactory host against the GDAL command-line tools a user would script.

Usage: clip_mosaic_bench.py [BUILD_DIR]   (default "build"; the host is BUILD_DIR/bin/algofactory)
Prints one line per case: "<case>: ours X.XXs, <peer> Y.YYs, ratio Y/X = R.RR".
"""
import json
import os
import subprocess
import sys
import tempfile
import time

import numpy as np
from osgeo import gdal, ogr, osr

gdal.UseExceptions()

SIZE = 6000          # pixels per side of the scene to clip
TILE = 3000          # pixels per side of each mosaic tile (2 x 2 tiles with 10 % overlap)
PIXEL = 10.0
ORIGIN = (500000.0, 4500000.0)


def make_raster(path, width, height, origin, bands=3):
    driver = gdal.GetDriverByName("GTiff")
    ds = driver.Create(path, width, height, bands, gdal.GDT_Byte, ["TILED=YES"])
    ds.SetGeoTransform((origin[0], PIXEL, 0, origin[1], 0, -PIXEL))
    srs = osr.SpatialReference()
    srs.ImportFromEPSG(32650)
    ds.SetProjection(srs.ExportToWkt())
    rows = 500
    x = np.arange(width, dtype=np.uint32)
    for b in range(bands):
        band = ds.GetRasterBand(b + 1)
        for y0 in range(0, height, rows):
            n = min(rows, height - y0)
            y = np.arange(y0, y0 + n, dtype=np.uint32)[:, None]
            band.WriteArray(((x[None, :] * (b + 3) + y * 7 + (x[None, :] ^ y)) % 251).astype(np.uint8), 0, y0)
    ds = None


def wkt_polygon_lonlat():
    """A hexagon well inside the scene, in WGS 84 longitude/latitude (what the WKT clip takes)."""
    utm = osr.SpatialReference()
    utm.ImportFromEPSG(32650)
    wgs = osr.SpatialReference()
    wgs.ImportFromEPSG(4326)
    wgs.SetAxisMappingStrategy(osr.OAMS_TRADITIONAL_GIS_ORDER)
    utm.SetAxisMappingStrategy(osr.OAMS_TRADITIONAL_GIS_ORDER)
    to_wgs = osr.CoordinateTransformation(utm, wgs)
    cx, cy = ORIGIN[0] + SIZE * PIXEL / 2, ORIGIN[1] - SIZE * PIXEL / 2
    r = SIZE * PIXEL * 0.4
    points = []
    for k in range(7):
        a = np.pi / 3 * (k % 6)
        lon, lat, _ = to_wgs.TransformPoint(cx + r * np.cos(a), cy + r * np.sin(a))
        points.append(f"{lon:.9f} {lat:.9f}")
    return "POLYGON((" + ",".join(points) + "))"


def write_cutline(path, wkt):
    ds = ogr.GetDriverByName("ESRI Shapefile").CreateDataSource(path)
    srs = osr.SpatialReference()
    srs.ImportFromEPSG(4326)
    layer = ds.CreateLayer("cut", srs, ogr.wkbPolygon)
    feature = ogr.Feature(layer.GetLayerDefn())
    feature.SetGeometry(ogr.CreateGeometryFromWkt(wkt))
    layer.CreateFeature(feature)
    ds = None


def timed(args):
    start = time.perf_counter()
    done = subprocess.run(args, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    elapsed = time.perf_counter() - start
    if done.returncode != 0:
        raise SystemExit(f"failed ({done.returncode}): {' '.join(args)}\n{done.stderr}")
    return elapsed


def report(case, ours, peer_name, peer):
    print(f"{case}: ours {ours:.2f}s, {peer_name} {peer:.2f}s, ratio Y/X = {peer / ours:.2f}", flush=True)


def main():
    build = sys.argv[1] if len(sys.argv) > 1 else "build"
    host = os.path.abspath(os.path.join(build, "bin", "algofactory"))
    if not os.path.exists(host):
        raise SystemExit(f"no host at {host}")
    with tempfile.TemporaryDirectory() as tmp:
        scene = os.path.join(tmp, "scene.tif")
        make_raster(scene, SIZE, SIZE, ORIGIN)
        wkt = wkt_polygon_lonlat()
        cutline = os.path.join(tmp, "cut.shp")
        write_cutline(cutline, wkt)

        params = {"InputFile": scene, "ClipRange": wkt, "ClipType": 5, "BufferPixels": 0,
                  "OutputFile": os.path.join(tmp, "ours_wkt.tif"), "Enabled": 1}
        ours = timed([host, "run", "ImageClip_Enhance", json.dumps(params)])
        peer = timed(["gdalwarp", "-q", "-cutline", cutline, "-crop_to_cutline", "-co", "TILED=YES",
                      scene, os.path.join(tmp, "peer_wkt.tif")])
        report(f"clip {SIZE}x{SIZE}x3 by WKT polygon", ours, "gdalwarp -cutline -crop_to_cutline", peer)

        x0, y0, w = SIZE // 5, SIZE // 4, SIZE // 2
        params = {"InputFile": scene, "ClipRange": f"{x0}|{x0 + w - 1}|{y0}|{y0 + w - 1}", "ClipType": 1,
                  "OutputFile": os.path.join(tmp, "ours_rect.tif"), "Enabled": 1}
        ours = timed([host, "run", "ImageClip_Enhance", json.dumps(params)])
        peer = timed(["gdal_translate", "-q", "-srcwin", str(x0), str(y0), str(w), str(w), "-co", "TILED=YES",
                      scene, os.path.join(tmp, "peer_rect.tif")])
        report(f"clip {SIZE}x{SIZE}x3 by pixel rectangle", ours, "gdal_translate -srcwin", peer)

        step = int(TILE * 0.9)
        tiles = []
        for j in range(2):
            for i in range(2):
                path = os.path.join(tmp, f"tile{j}{i}.tif")
                make_raster(path, TILE, TILE, (ORIGIN[0] + i * step * PIXEL, ORIGIN[1] - j * step * PIXEL))
                tiles.append(path)
        ours = timed([host, "call", "ExcuteAlgo_ImageMosaicFast", "|".join(tiles), os.path.join(tmp, "ours_mosaic.tif")])
        peer = timed(["gdalwarp", "-q", "-co", "TILED=YES"] + tiles + [os.path.join(tmp, "peer_mosaic.tif")])
        report(f"mosaic of 4 tiles {TILE}x{TILE}x3", ours, "gdalwarp", peer)

        a = gdal.Open(os.path.join(tmp, "ours_mosaic.tif"))
        b = gdal.Open(os.path.join(tmp, "peer_mosaic.tif"))
        same = (a.RasterXSize, a.RasterYSize) == (b.RasterXSize, b.RasterYSize) and all(
            np.array_equal(a.GetRasterBand(k).ReadAsArray(0, 0, 512, 512), b.GetRasterBand(k).ReadAsArray(0, 0, 512, 512))
            for k in (1, 2, 3))
        print(f"mosaic outputs agree with gdalwarp's (size and first block): {same}")


if __name__ == "__main__":
    main()
