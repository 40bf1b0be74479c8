#!/usr/bin/env python3
"""Thumbnails, half-size resampling and overviews: ours against the GDAL command-line tools, in one run.

Usage: catalogue_utilities_bench.py [BUILD_DIR]   (default "build")
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


def make_raw(path, width, height, bands):
    """A raw band-sequential Byte image with smooth, varied content, plus its ENVI header."""
    base = bytes((x * 7 // 5 + (x // 97) * 13) % 256 for x in range(width + 512))
    with open(path, "wb") as out:
        for b in range(bands):
            for y in range(height):
                offset = (y * 3 + b * 61 + (y // 50) * 17) % 512
                out.write(base[offset:offset + width])
    with open(os.path.splitext(path)[0] + ".hdr", "w") as hdr:
        hdr.write("ENVI\nsamples = %d\nlines = %d\nbands = %d\nheader offset = 0\nfile type = ENVI Standard\n"
                  "data type = 1\ninterleave = bsq\nbyte order = 0\n"
                  "map info = {UTM, 1, 1, 500000, 4000000, 1, 1, 50, North, WGS-84}\n" % (width, height, bands))


def report(case, ours, peer_name, peer):
    print("%s: ours %.2fs, %s %.2fs, ratio Y/X = %.2f" % (case, ours, peer_name, peer, peer / ours))


def main():
    build = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else "build")
    host = os.path.join(build, "bin", "algofactory")
    if not os.path.exists(host):
        sys.exit("no %s: build the algofactory target first" % host)
    with tempfile.TemporaryDirectory() as tmp:
        # Eight 6000 x 4000 RGB GeoTIFFs, each in a folder of its own (thumbnail folders go beside them).
        make_raw(os.path.join(tmp, "rgb.raw"), 6000, 4000, 3)
        scenes = []
        for i in range(8):
            folder = os.path.join(tmp, "scene%d" % i)
            os.mkdir(folder)
            scene = os.path.join(folder, "scene%d.tif" % i)
            if i == 0:
                run(["gdal_translate", "-q", "-of", "GTiff", "-co", "PHOTOMETRIC=RGB",
                     os.path.join(tmp, "rgb.raw"), scene])
            else:
                shutil.copy(scenes[0], scene)
            scenes.append(scene)
        peer_dir = os.path.join(tmp, "peer_thumbs")
        os.mkdir(peer_dir)

        def ours_thumbs():
            run([host, "run", "CreateThumb", json.dumps({"imagePaths": scenes, "maxHeight": 256, "keepRatio": True})])

        def peer_thumbs():
            for scene in scenes:
                name = os.path.join(peer_dir, os.path.basename(scene)[:-4])
                for fmt, suffix in (("PNG", ".png"), ("JPEG", ".jpg")):
                    run(["gdal_translate", "-q", "-of", fmt, "-outsize", "256", "0", "-r", "average", scene,
                         name + suffix])

        report("thumbnails 8 x 6000x4000 RGB (PNG+JPEG)", timed(ours_thumbs), "gdal_translate -outsize -r average",
               timed(peer_thumbs))
        made = glob.glob(os.path.join(tmp, "scene*", "*", "*.png"))
        assert len(made) == 8, made

        # One 8192 x 8192 band, resampled to half size (average) and given overviews.
        make_raw(os.path.join(tmp, "big.raw"), 8192, 8192, 1)
        big = os.path.join(tmp, "big.tif")
        run(["gdal_translate", "-q", "-co", "TILED=YES", os.path.join(tmp, "big.raw"), big])
        half_ours, half_peer = os.path.join(tmp, "half_ours.tif"), os.path.join(tmp, "half_peer.tif")
        # Our size rule gives 4096 x 4097 for a square image; the peers are asked for the same size and kernel.
        for code, kernel in ((3, "average"), (2, "cubic")):
            ours = timed(lambda: run([host, "call", "ExcuteAlgo_ImageResample", big, half_ours, str(code), "0", "4096"]),
                         repeat=3)
            peer = timed(lambda: run(["gdal_translate", "-q", "-r", kernel, "-outsize", "4096", "4097",
                                      "-co", "TILED=YES", "-co", "BIGTIFF=IF_SAFER", big, half_peer]), repeat=3)
            report(f"resample 8192x8192 to half ({kernel})", ours, f"gdal_translate -r {kernel}", peer)
            if kernel == "average":
                ours_average = ours
        peer = timed(lambda: run(["gdalwarp", "-q", "-overwrite", "-r", "average", "-ts", "4096", "4097",
                                  "-co", "TILED=YES", big, half_peer]), repeat=3)
        report("resample 8192x8192 to half (average)", ours_average, "gdalwarp -ts -r average", peer)

        pyr_ours, pyr_peer = os.path.join(tmp, "pyr_ours.tif"), os.path.join(tmp, "pyr_peer.tif")
        # Each run starts from a fresh copy without overviews.
        ours = timed(lambda: run([host, "call", "ExcuteAlgo_ImagePyramidBuild", pyr_ours]),
                     prepare=lambda: shutil.copy(big, pyr_ours), repeat=3)
        peer = timed(lambda: run(["gdaladdo", "-q", "-r", "average", pyr_peer]),
                     prepare=lambda: shutil.copy(big, pyr_peer), repeat=3)
        report("overviews 8192x8192 (average)", ours, "gdaladdo -r average", peer)


if __name__ == "__main__":
    main()
