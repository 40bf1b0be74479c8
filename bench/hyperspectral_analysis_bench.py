#!/usr/bin/env python3
"""Hyperspectral analysis against its peers, one run, same inputs: RX (global and dual window), VCA, continuum
removal and Savitzky-Golay. The cube is a synthetic linear mixture of five absorption spectra with noise and a few
planted anomalies, Float32 reflectance with band wavelengths, written as a band-interleaved GeoTIFF.

  RX global       ours (Method 0)              vs Spectral Python spectral.rx
  RX dual window  ours (Method 1, WindowSize)  vs otbcli_LocalRxDetection (-ir, -er) and spectral.rx(window=...)
  VCA             ours (endmembers + FCLS)     vs otbcli_VertexComponentAnalysis (endmembers only)
  continuum       ours                         vs spectral.remove_continuum
  Savitzky-Golay  ours (window 9, order 2)     vs scipy.signal.savgol_filter(mode="interp") along the bands

Ours is the whole command-line run (start-up, reading and writing included); Python peers are timed in-process
after their imports, reading the GeoTIFF included, writing excluded; Orfeo ToolBox is its whole command-line run.
Each line gives both times and the ratio peer/ours (above 1: ours is faster), with our peak memory from GNU time.
Dual-window RX costs a covariance per pixel in every tool, so it runs on crops of the cube.

Usage: hyperspectral_analysis_bench.py [BUILD_DIR] [--size N] [--bands B] [--local N] [--large]
  defaults: build, 512 x 512 x 128, dual-window crops 48 x 48 x 128 and 96 x 96 x 32; --large uses the 2048 x 2048 x 200 cube (3.2 GB, slow).
Run it with the system Python (/usr/bin/python3), which has GDAL, scipy and Spectral Python.
"""
import argparse
import os
import subprocess
import sys
import tempfile
import time

import numpy as np
from osgeo import gdal

SPY = "/usr/bin/python3"


def make_cube(path, size, bands, seed=11):
    rng = np.random.default_rng(seed)
    wavelengths = np.linspace(400.0, 2500.0, bands)
    centres = [650, 1000, 1450, 1900, 2200]
    library = np.stack([0.25 + 0.08 * k + 0.00006 * (wavelengths - 400) * (1 if k % 2 else -1)
                        - 0.15 * np.exp(-0.5 * ((wavelengths - c) / (40 + 20 * k)) ** 2)
                        for k, c in enumerate(centres)])
    driver = gdal.GetDriverByName("GTiff")
    dataset = driver.Create(path, size, size, bands, gdal.GDT_Float32,
                            ["TILED=YES", "INTERLEAVE=BAND", "BIGTIFF=IF_SAFER"])
    rows = max(1, (64 << 20) // (size * bands * 8))
    for row0 in range(0, size, rows):
        n = min(rows, size - row0)
        abundances = rng.dirichlet(np.full(5, 0.5), size=(n, size))
        cube = abundances @ library + rng.normal(0, 0.002, (n, size, bands))
        if row0 == 0:
            cube[min(n - 1, 10), 20, :] += 0.05 * np.sin(wavelengths / 100.0)
        for b in range(bands):
            dataset.GetRasterBand(b + 1).WriteArray(cube[:, :, b].astype(np.float32), 0, row0)
    for b in range(bands):
        dataset.GetRasterBand(b + 1).SetMetadataItem("wavelength", "%.3f" % wavelengths[b])
        dataset.GetRasterBand(b + 1).SetMetadataItem("wavelength_units", "Nanometers")
    dataset = None


def crop(source, path, size):
    gdal.Translate(path, source, srcWin=[0, 0, size, size], creationOptions=["TILED=YES", "INTERLEAVE=BAND"])


def ours(build, entry, *args):
    host = os.path.join(build, "bin", "algofactory")
    start = time.perf_counter()
    done = subprocess.run(["/usr/bin/time", "-f", "peak_kb %M", host, "call", entry] + [str(a) for a in args],
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          env=dict(os.environ, QT_QPA_PLATFORM="offscreen"))
    elapsed = time.perf_counter() - start
    if done.returncode != 0:
        raise RuntimeError(f"{entry} failed: {done.stdout} {done.stderr}")
    fields = done.stderr.split()
    return elapsed, float(fields[fields.index("peak_kb") + 1]) / 1024


def otb(app, *args):
    start = time.perf_counter()
    subprocess.run(["otbcli_" + app] + [str(a) for a in args], check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL, env=dict(os.environ, OTB_MAX_RAM_HINT="1024"))
    return time.perf_counter() - start


PYTHON_PEER = r"""
import sys, time, warnings
warnings.filterwarnings("ignore")
import numpy as np
from osgeo import gdal
import spectral, scipy.signal
if not hasattr(np, "bool"):
    np.bool = bool  # Spectral Python 0.22's windowed rx still uses the alias NumPy 1.24 removed
job, path = sys.argv[1], sys.argv[2]
start = time.perf_counter()
dataset = gdal.Open(path)
cube = np.ascontiguousarray(np.transpose(dataset.ReadAsArray(), (1, 2, 0)))   # rows, cols, bands
if job == "rx":
    result = spectral.rx(cube)
elif job == "rxlocal":
    outer, inner = int(sys.argv[3]), int(sys.argv[4])
    result = spectral.rx(cube, window=(inner, outer))
elif job == "continuum":
    wavelengths = [float(dataset.GetRasterBand(b + 1).GetMetadataItem("wavelength")) for b in range(dataset.RasterCount)]
    result = spectral.remove_continuum(cube, np.array(wavelengths))
elif job == "savgol":
    result = scipy.signal.savgol_filter(cube, 9, 2, axis=2, mode="interp")
elapsed = time.perf_counter() - start
np.save(sys.argv[-1], np.asarray(result, dtype=np.float32))
print(elapsed)
"""


def python_peer(job, path, result, *extra):
    done = subprocess.run([SPY, "-c", PYTHON_PEER, job, path] + [str(e) for e in extra] + [result], check=True,
                          capture_output=True, text=True)
    return float(done.stdout.split()[-1])


def read(path):
    return np.transpose(gdal.Open(path).ReadAsArray(), (1, 2, 0)) if gdal.Open(path).RasterCount > 1 \
        else gdal.Open(path).ReadAsArray()


def report(job, size, ours_time, ours_peak, peer_name, peer_time, agreement=""):
    print(f"{job:<16} {size:<14} ours {ours_time:7.2f}s ({ours_peak:5.0f} MB)  {peer_name:<26} {peer_time:8.2f}s  "
          f"ratio {peer_time / ours_time:6.2f}  {agreement}", flush=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", nargs="?", default="build")
    parser.add_argument("--size", type=int, default=512)
    parser.add_argument("--bands", type=int, default=128)
    parser.add_argument("--local", type=int, default=48)
    parser.add_argument("--window", type=int, default=11)
    parser.add_argument("--large", action="store_true")
    options = parser.parse_args()
    if options.large:
        options.size, options.bands = 2048, 200
    build = os.path.abspath(options.build)
    with tempfile.TemporaryDirectory() as folder:
        cube = os.path.join(folder, "cube.tif")
        make_cube(cube, options.size, options.bands)
        small = os.path.join(folder, "crop.tif")
        crop(cube, small, options.local)
        size = f"{options.size}x{options.size}x{options.bands}"
        local_size = f"{options.local}x{options.local}x{options.bands}"
        out = lambda name: os.path.join(folder, name)

        t, peak = ours(build, "ExcuteAlgo_RXAnomalyDetection", cube, out("rx.tif"), 0, 0)
        peer = python_peer("rx", cube, out("rx.npy"))
        a, b = read(out("rx.tif")), np.load(out("rx.npy"))
        report("RX global", size, t, peak, "spectral.rx", peer,
               f"max rel diff {np.max(np.abs(a - b) / b):.1e}")

        # Dual window with fewer background pixels than bands (WindowSize 11: 96 pixels, 128 bands): only ours
        # shrinks the covariance, Orfeo ToolBox inverts a singular one and Spectral Python refuses, so speed only.
        outer, inner = options.window // 2, (options.window // 2 - 1) // 2
        t, peak = ours(build, "ExcuteAlgo_RXAnomalyDetection", small, out("rxl.tif"), 1, options.window)
        peer = otb("LocalRxDetection", "-in", small, "-out", out("rxl_otb.tif"), "-ir", inner, "-er", outer)
        report("RX dual window", local_size, t, peak, "otbcli_LocalRxDetection", peer,
               f"window {options.window}: fewer pixels than bands, speed only")

        # Dual window with more than ten background pixels per band (WindowSize 21 less a 9 x 9 guard: 360 pixels,
        # 32 bands): every tool uses the plain covariance, so the scores compare.
        few = os.path.join(folder, "few.tif")
        gdal.Translate(few, cube, srcWin=[0, 0, 2 * options.local, 2 * options.local], bandList=list(range(1, 33)),
                       creationOptions=["TILED=YES", "INTERLEAVE=BAND"])
        few_size = f"{2 * options.local}x{2 * options.local}x32"
        t, peak = ours(build, "ExcuteAlgo_RXAnomalyDetection", few, out("rxf.tif"), 1, 21)
        peer = otb("LocalRxDetection", "-in", few, "-out", out("rxf_otb.tif"), "-ir", 4, "-er", 10)
        a, b = read(out("rxf.tif")), read(out("rxf_otb.tif"))
        inside = (slice(10, -10), slice(10, -10))
        report("RX dual window", few_size, t, peak, "otbcli_LocalRxDetection", peer,
               f"window 21: median rel diff {np.median(np.abs(a - b)[inside] / b[inside]):.1e} (away from the border)")
        peer = python_peer("rxlocal", few, out("rxf.npy"), 21, 9)
        c = np.load(out("rxf.npy"))
        report("RX dual window", few_size, t, peak, "spectral.rx(window)", peer,
               f"window 21: median rel diff {np.median(np.abs(a - c)[inside] / c[inside]):.1e} (away from the border)")

        t, peak = ours(build, "ExcuteAlgo_VertexComponentAnalysis", cube, out("em.sli"), 5)
        peer = otb("VertexComponentAnalysis", "-in", cube, "-ne", 5, "-outendm", out("em_otb.tif"), "-rand", 1)
        report("VCA 5", size, t, peak, "otbcli_VertexComponent...", peer, "(ours also unmixes every pixel)")

        t, peak = ours(build, "ExcuteAlgo_ContinuumRemoval", cube, out("cr.tif"))
        peer = python_peer("continuum", cube, out("cr.npy"))
        a, b = read(out("cr.tif")), np.load(out("cr.npy"))
        report("continuum", size, t, peak, "spectral.remove_continuum", peer,
               f"max abs diff {np.nanmax(np.abs(a - b)):.1e}")

        t, peak = ours(build, "ExcuteAlgo_SavitzkyGolayFiltering", cube, out("sg.tif"), "", "", 9, 2, 0)
        peer = python_peer("savgol", cube, out("sg.npy"))
        a, b = read(out("sg.tif")), np.load(out("sg.npy"))
        report("Savitzky-Golay", size, t, peak, "scipy savgol_filter", peer,
               f"max abs diff {np.max(np.abs(a - b)):.1e}")


if __name__ == "__main__":
    main()
