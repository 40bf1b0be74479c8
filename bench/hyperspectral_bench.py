#!/usr/bin/env python3
"""Statistics with covariance and correlation of a 512 x 512 x 128 Int16 cube: ours (StatisticalAnalysis)
against numpy (mean/std per band, numpy.cov and numpy.corrcoef on the same pixels, reading included) in one
run. Both are timed in-process after start-up, median of three calls: numpy after its imports, ours through
bench/entry_timer.cpp, which calls the entry as a host does. The whole command-line run is reported too.
Memory: ours is the peak resident size above the host's size before the first call, numpy the whole
interpreter's peak.

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
times = []
for _ in range(3):
    start = time.perf_counter()
    cube = gdal.Open(sys.argv[1]).ReadAsArray().reshape(%d, -1).astype(np.float64)
    mean = cube.mean(axis=1); std = cube.std(axis=1, ddof=1); lo = cube.min(axis=1); hi = cube.max(axis=1)
    cov = np.cov(cube); cor = np.corrcoef(cube)
    times.append(time.perf_counter() - start)
    del cube, cov, cor
print(sorted(times)[1], resource.getrusage(resource.RUSAGE_SELF).ru_maxrss)
""" % BANDS


def build_timer(build, folder):
    here = os.path.dirname(os.path.abspath(__file__))
    timer = os.path.join(folder, "entry_timer")
    qt = subprocess.check_output(["pkg-config", "--cflags", "--libs", "Qt5Widgets"], text=True).split()
    bin_dir = os.path.join(os.path.abspath(build), "bin")
    subprocess.check_call(["g++", "-O2", "-std=c++17", "-fPIC", os.path.join(here, "entry_timer.cpp"), "-o", timer,
                           "-I" + os.path.join(here, "..", "include"), "-L" + bin_dir, "-lAlgoFactory",
                           "-Wl,-rpath," + bin_dir] + qt)
    return timer


def run_in_process(timer, cube):
    done = subprocess.run([timer, "3", "ExcuteAlgo_StatisticalAnalysis", cube, "", ""], check=True,
                          stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    fields = done.stderr.split()
    return float(fields[fields.index("seconds") + 1]), float(fields[fields.index("peak_gain_mb") + 1])


def run_ours(build, cube):
    """Whole command-line run; the peak comes from GNU time (a forked child first carries this script's pages)."""
    host = os.path.join(build, "bin", "algofactory")
    start = time.perf_counter()
    done = subprocess.run(["/usr/bin/time", "-f", "peak_kb %M", host, "call", "ExcuteAlgo_StatisticalAnalysis", cube,
                           "", ""], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                          env=dict(os.environ, QT_QPA_PLATFORM="offscreen"))
    elapsed = time.perf_counter() - start
    fields = done.stderr.split()
    return elapsed, float(fields[fields.index("peak_kb") + 1])


def main():
    build = sys.argv[1] if len(sys.argv) > 1 else "build"
    with tempfile.TemporaryDirectory() as folder:
        cube = os.path.join(folder, "cube.tif")
        make_cube(cube)
        process, process_peak = run_ours(build, cube)
        timer = build_timer(build, folder)
        ours, ours_gain = run_in_process(timer, cube)
        peer = subprocess.run([sys.executable, "-c", NUMPY_PEER, cube], check=True, capture_output=True, text=True)
        numpy_time, numpy_peak = (float(x) for x in peer.stdout.split())
        cube_mb = WIDTH * HEIGHT * BANDS * 2 / 2**20
        print(f"statistics 512x512x128 Int16: ours {ours:.3f}s, numpy {numpy_time:.3f}s, ratio Y/X = {numpy_time / ours:.2f}")
        print(f"whole command-line run (start-up included): {process:.2f}s, peak {process_peak / 1024:.0f} MB")
        print(f"peak memory: ours {ours_gain:.0f} MB above the host, numpy {numpy_peak / 1024:.0f} MB, "
              f"cube {cube_mb:.0f} MB")
        print(f"targets: numpy/ours {numpy_time / ours:.2f} (>= 2), ours memory/cube {ours_gain / cube_mb:.2f} (< 1)")


if __name__ == "__main__":
    main()
