#!/usr/bin/env python3
"""Data utilities against the GDAL and Orfeo ToolBox command-line tools, on the same inputs, in one run.

Usage: data_utilities_bench.py [BUILD_DIR] [SIZE]   (defaults "build" and 4096; the issue's figure is 8192)
Prints one line per case: <case>: ours X.XXs, <peer> Y.YYs, ratio Y/X = R.RR
"""
import glob
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time

SHARED = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "shared", "data", "gdal")


def run(args, **kw):
    subprocess.run(args, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **kw)


def timed(fn, prepare=None, repeat=1):
    """Best of `repeat` runs; prepare() runs untimed before each."""
    best = None
    for _ in range(repeat):
        if prepare:
            prepare()
        start = time.perf_counter()
        fn()
        elapsed = time.perf_counter() - start
        best = elapsed if best is None else min(best, elapsed)
    return best


def report(case, ours, peer_name, peer):
    print("%s: ours %.2fs, %s %.2fs, ratio Y/X = %.2f" % (case, ours, peer_name, peer, peer / ours), flush=True)


def header(path, width, height, bands, data_type):
    with open(os.path.splitext(path)[0] + ".hdr", "w") as hdr:
        hdr.write("ENVI\nsamples = %d\nlines = %d\nbands = %d\nheader offset = 0\nfile type = ENVI Standard\n"
                  "data type = %d\ninterleave = bsq\nbyte order = 0\n"
                  "map info = {UTM, 1, 1, 500000, 4000000, 10, 10, 50, North, WGS-84}\n"
                  % (width, height, bands, data_type))


def make_band(path, size, seed):
    """A raw UInt16 band with smooth, varied content (each row a shifted slice of one long row)."""
    base = b"".join(((x * 7 // 5 + (x // 97) * 13 + seed * 101) % 4000 + 100).to_bytes(2, "little")
                    for x in range(size + 1024))
    with open(path, "wb") as out:
        for y in range(size):
            offset = 2 * ((y * 3 + seed * 61 + (y // 50) * 17) % 1024)
            out.write(base[offset:offset + 2 * size])
    header(path, size, size, 1, 12)


def make_class_map(path, size):
    """The classification of the classification bench: 6 classes in 64-pixel cells of a random coarse grid, with
    1 % salt pixels (a tiled GeoTIFF with a colour table, so ours names the classes)."""
    import numpy as np
    from osgeo import gdal
    count = 6
    rng = np.random.default_rng(5)
    coarse = rng.integers(0, count, (size // 64, size // 64)).astype(np.uint8)
    dataset = gdal.GetDriverByName("GTiff").Create(path, size, size, 1, gdal.GDT_Byte, ["TILED=YES"])
    dataset.SetGeoTransform([500000, 10, 0, 4000000, 0, -10])
    band = dataset.GetRasterBand(1)
    table = gdal.ColorTable()
    for i in range(count):
        table.SetColorEntry(i, (30 * i, 255 - 30 * i, 100, 255))
    band.SetColorTable(table)
    step = 1024
    for row in range(0, size, step):
        block = np.repeat(np.repeat(coarse[row // 64:(row + step) // 64], 64, axis=0), 64, axis=1)
        salt = rng.random(block.shape) < 0.01
        block[salt] = rng.integers(0, count, int(salt.sum()))
        band.WriteArray(block, 0, row)
    dataset = None


def to_tiff(raw, tif):
    run(["gdal_translate", "-q", "-co", "TILED=YES", raw, tif])


def main():
    build = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else "build")
    size = int(sys.argv[2]) if len(sys.argv) > 2 else 4096
    host = os.path.join(build, "bin", "algofactory")
    if not os.path.exists(host):
        sys.exit("no %s: build the algofactory target first" % host)

    def ours(name, params):
        run([host, "run", name, json.dumps(params)])

    def ours_direct(entry, *args):  # entries the dispatch table does not name
        run([host, "call", entry] + [str(a) for a in args])

    with tempfile.TemporaryDirectory() as tmp:
        # Four bands, stacked: the sources share one grid, as both peers need.
        bands = []
        for i in range(4):
            raw = os.path.join(tmp, "band%d.raw" % i)
            make_band(raw, size, i)
            bands.append(os.path.join(tmp, "band%d.tif" % i))
            to_tiff(raw, bands[-1])
            os.remove(raw)
        stack_ours, stack_merge, stack_otb = (os.path.join(tmp, n) for n in ("s_ours.tif", "s_merge.tif", "s_otb.tif"))
        t_ours = timed(lambda: ours_direct("ExcuteAlgo_LayerStack", "|".join(bands), stack_ours))
        t_merge = timed(lambda: run(["gdal_merge.py", "-q", "-separate", "-o", stack_merge] + bands))
        report("stack 4 x %d^2 UInt16" % size, t_ours, "gdal_merge.py -separate", t_merge)
        t_otb = timed(lambda: run(["otbcli_ConcatenateImages", "-il"] + bands + ["-out", stack_otb, "uint16"]))
        report("stack 4 x %d^2 UInt16" % size, t_ours, "otbcli_ConcatenateImages", t_otb)

        # Three bands of the stack rendered to an 8-bit GeoTIFF.
        picture_ours, picture_peer = os.path.join(tmp, "r_ours.tif"), os.path.join(tmp, "r_peer.tif")
        t_ours = timed(lambda: ours_direct("ExcuteAlgo_RenderRaster", stack_ours, picture_ours, "1|2|3"))
        t_peer = timed(lambda: run(["gdal_translate", "-q", "-b", "1", "-b", "2", "-b", "3", "-scale", "-ot", "Byte",
                                    "-co", "TILED=YES", stack_ours, picture_peer]))
        report("render 3 x %d^2 UInt16 to 8 bits" % size, t_ours, "gdal_translate -scale -ot Byte", t_peer)
        for name in os.listdir(tmp):
            if name.startswith(("s_", "r_", "band")):
                os.remove(os.path.join(tmp, name))

        # Polygons of a class map: ours writes <name>.shp beside the raster.
        class_size = size
        classes = os.path.join(tmp, "classes.tif")
        make_class_map(classes, class_size)
        peer_shp = os.path.join(tmp, "peer", "classes.shp")
        os.mkdir(os.path.dirname(peer_shp))
        t_ours = timed(lambda: ours("RasterToVector", {"InputFile": classes, "Band": 1}))
        t_peer = timed(lambda: run(["gdal_polygonize.py", "-q", "-8", classes, "-f", "ESRI Shapefile", peer_shp]))
        report("polygonise %d^2 class map (8-connected)" % class_size, t_ours, "gdal_polygonize.py -8", t_peer)

        # The sample counties burnt by their AREA field (the first numeric one) into a size x size grid.
        counties = os.path.join(SHARED, "nc.shp")
        if os.path.exists(counties):
            burn_ours, burn_peer = os.path.join(tmp, "b_ours.tif"), os.path.join(tmp, "b_peer.tif")
            t_ours = timed(lambda: ours("VectorToRaster", {"InputFile": counties, "Width": size, "Height": size,
                                                           "BurnValue": 0, "OutputFile": burn_ours}))
            t_peer = timed(lambda: run(["gdal_rasterize", "-q", "-a", "AREA", "-ts", str(size), str(size), "-ot",
                                        "Float64", "-a_nodata", "0", "-co", "TILED=YES", "-co", "COMPRESS=LZW",
                                        counties, burn_peer]))
            report("rasterise nc.shp at %d^2 (field AREA)" % size, t_ours, "gdal_rasterize -a", t_peer)
        else:
            print("rasterise: ../shared/data/gdal/nc.shp is absent, skipped")


if __name__ == "__main__":
    main()
