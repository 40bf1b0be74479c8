#!/usr/bin/env python3
"""Statistics with covariance and correlation of a 512 x 512 x 128 Int16 cube: ours (StatisticalAnalysis
through the command-line host) against numpy (mean/std per band, numpy.cov and numpy.corrcoef on the same
pixels, reading included) in one run. Also reports each side's peak memory.

Usage: hyperspectral_bench.py [BUILD_DIR]   (default "build")
"""
import os
import resource
import subprocess
import sys
import tempfile
import time

import numpy as np
from osgeo import gdal

WIDTH, HEIGHT, BANDS = 512, 512, 128


def make_cube(path):
    rng = np.random.default_rng(7)
    driver = gdal.GetDriverByName("GTiff")
    dataset = driver.Create(path, WIDTH, HEIGHT, BANDS, gdal.GDT_Int16, ["TILED=YES", "INTERLEAVE=BAND"])
    base = rng.normal(0, 800, (HEIGHT, WIDTH))
    for band in range(BANDS):
        noise = rng.normal(0, 50 + band, (HEIGHT, WIDTH))
        dataset.GetRasterBand(band + 1).WriteArray((2000 + base * (1 + band / 64.0) + noise).astype(np.int16))
        dataset.GetRasterBand(band + 1).SetMetadataItem("wavelength", str(400 + 15 * band))
    dataset = None


NUMPY_PEER = r"""
import sys, time, resource
import numpy as np
from osgeo import gdal
start = time.perf_counter()
cube = gdal.Open(sys.argv[1]).ReadAsArray().reshape(%d, -1).astype(np.float64)
mean = cube.mean(axis=1); std = cube.std(axis=1, ddof=1); lo = cube.min(axis=1); hi = cube.max(axis=1)
cov = np.cov(cube); cor = np.corrcoef(cube)
print(time.perf_counter() - start, resource.getrusage(resource.RUSAGE_SELF).ru_maxrss)
""" % BANDS


def run_ours(build, cube):
    host = os.path.join(build, "bin", "algofactory")
    start = time.perf_counter()
    before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
    subprocess.run([host, "call", "ExcuteAlgo_StatisticalAnalysis", cube, "", ""], check=True,
                   stdout=subprocess.DEVNULL, env=dict(os.environ, QT_QPA_PLATFORM="offscreen"))
    elapsed = time.perf_counter() - start
    peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
    return elapsed, peak if peak > before else before


def main():
    build = sys.argv[1] if len(sys.argv) > 1 else "build"
    with tempfile.TemporaryDirectory() as folder:
        cube = os.path.join(folder, "cube.tif")
        make_cube(cube)
        ours, ours_peak = run_ours(build, cube)
        peer = subprocess.run([sys.executable, "-c", NUMPY_PEER, cube], check=True, capture_output=True, text=True)
        numpy_time, numpy_peak = (float(x) for x in peer.stdout.split())
        cube_mb = WIDTH * HEIGHT * BANDS * 2 / 2**20
        print(f"statistics 512x512x128 Int16: ours {ours:.2f}s, numpy {numpy_time:.2f}s, ratio Y/X = {numpy_time / ours:.2f}")
        print(f"peak memory: ours {ours_peak / 1024:.0f} MB (whole process), numpy {numpy_peak / 1024:.0f} MB, "
              f"cube {cube_mb:.0f} MB")


if __name__ == "__main__":
    main()
