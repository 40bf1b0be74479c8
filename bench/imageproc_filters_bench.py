#!/usr/bin/env python3
"""Filter and PCA speed against OpenCV, scipy and numpy, whole process including I/O.

Usage: imageproc_filters_bench.py [build-folder]   (default "build")
BEFORE_BUILD=<another build folder> also times the frequency filter of that build (e.g. an older commit's).
"""
import os
import subprocess
import sys
import tempfile
import time

import numpy as np
from osgeo import gdal

BUILD = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else "build")

# Runs one exported entry in a fresh process: the command-line host when built, else a ctypes driver.
CTYPES_DRIVER = """
import ctypes, sys
lib = ctypes.CDLL(sys.argv[1])
f = getattr(lib, sys.argv[2]); f.restype = ctypes.c_bool
args = [a[2:].encode() if a.startswith('s:') else int(a) for a in sys.argv[3:]]
sys.exit(0 if f(*args, None) else 1)
"""


def run_entry(entry, *args):
    host = os.path.join(BUILD, "bin", "algofactory")
    if os.path.exists(host):
        command = [host, "call", entry] + [str(a)[2:] if str(a).startswith("s:") else str(a) for a in args]
    else:
        command = [sys.executable, "-c", CTYPES_DRIVER, os.path.join(BUILD, "bin", "libAlgoFactory.so"), entry]
        command += [str(a) for a in args]
    start = time.perf_counter()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    return time.perf_counter() - start


def run_python(code):
    start = time.perf_counter()
    subprocess.run([sys.executable, "-c", code], check=True)
    return time.perf_counter() - start


def peer_script(body, src, dst, gdal_type="Byte"):
    return ("import numpy as np, cv2\nfrom scipy import ndimage\nfrom osgeo import gdal\n"
            f"ds = gdal.Open({src!r}); a = ds.GetRasterBand(1).ReadAsArray(); ds = None\n{body}\n"
            f"o = gdal.GetDriverByName('GTiff').Create({dst!r}, r.shape[1], r.shape[0], 1, gdal.GDT_{gdal_type}, ['TILED=YES'])\n"
            "o.GetRasterBand(1).WriteArray(r); o = None\n")


def report(case, ours, peer, theirs):
    print(f"{case}: ours {ours:.2f}s, {peer} {theirs:.2f}s, ratio Y/X = {theirs / ours:.2f}")


def main():
    with tempfile.TemporaryDirectory() as tmp:
        rng = np.random.default_rng(7)
        band = os.path.join(tmp, "band.tif")
        ds = gdal.GetDriverByName("GTiff").Create(band, 8192, 8192, 1, gdal.GDT_Byte, ["TILED=YES"])
        ds.GetRasterBand(1).WriteArray(rng.integers(0, 256, (8192, 8192), dtype=np.uint8))
        ds = None
        out = os.path.join(tmp, "out.tif")

        ours = run_entry("ExcuteAlgo_ImgProFiltSpaMean", "s:" + band, "s:" + out, 5, "s:1", 0)
        report("mean 5x5", ours, "OpenCV blur", run_python(peer_script("r = cv2.blur(a, (5, 5), borderType=cv2.BORDER_REPLICATE)", band, out)))
        report("mean 5x5", ours, "scipy uniform_filter", run_python(peer_script("r = ndimage.uniform_filter(a, 5, mode='nearest')", band, out)))
        ours = run_entry("ExcuteAlgo_ImgProFiltSpaMid", "s:" + band, "s:" + out, 5, "s:1", 0, 0)
        report("median 5x5", ours, "OpenCV medianBlur", run_python(peer_script("r = cv2.medianBlur(a, 5)", band, out)))
        report("median 5x5", ours, "scipy median_filter", run_python(peer_script("r = ndimage.median_filter(a, 5, mode='nearest')", band, out)))

        # Gaussian low-pass, D0 = 30 samples, whole 8192^2 band to Float32; peers do the same real transform.
        ours = run_entry("ExcuteAlgo_ImgProFiltFrequency", "s:" + band, "s:" + out, "s:1", 0, 2, 0, 30, 0)
        frequency = ("h, w = a.shape\n"
                     "fv = np.fft.fftfreq(h) * h; fu = np.fft.rfftfreq(w) * w\n"
                     "t = np.exp(-(fu[None, :] ** 2 + fv[:, None] ** 2) / (2 * 30.0 ** 2))\n")
        numpy_low = frequency + "r = np.fft.irfft2(np.fft.rfft2(a.astype(np.float64)) * t, s=a.shape).astype(np.float32)"
        opencv_low = (frequency + "fu = np.fft.fftfreq(w) * w\n"
                      "t = np.exp(-(fu[None, :] ** 2 + fv[:, None] ** 2) / (2 * 30.0 ** 2)).astype(np.float32)\n"
                      "f = cv2.dft(a.astype(np.float32), flags=cv2.DFT_COMPLEX_OUTPUT) * t[:, :, None]\n"
                      "r = cv2.idft(f, flags=cv2.DFT_SCALE | cv2.DFT_REAL_OUTPUT)")
        report("Gaussian low-pass 8192^2", ours, "numpy rfft2", run_python(peer_script(numpy_low, band, out, gdal_type="Float32")))
        report("Gaussian low-pass 8192^2", ours, "OpenCV dft", run_python(peer_script(opencv_low, band, out, gdal_type="Float32")))
        before = os.environ.get("BEFORE_BUILD")
        if before:
            global BUILD
            current, BUILD = BUILD, os.path.abspath(before)
            report("Gaussian low-pass 8192^2", ours, "before (" + before + ")",
                   run_entry("ExcuteAlgo_ImgProFiltFrequency", "s:" + band, "s:" + out, "s:1", 0, 2, 0, 30, 0))
            BUILD = current

        image = os.path.join(tmp, "four.tif")
        ds = gdal.GetDriverByName("GTiff").Create(image, 4096, 4096, 4, gdal.GDT_UInt16, ["TILED=YES", "INTERLEAVE=BAND"])
        base = rng.integers(0, 4000, (4096, 4096)).astype(np.uint16)
        for b in range(4):
            ds.GetRasterBand(b + 1).WriteArray((base // (b + 1) + rng.integers(0, 500, (4096, 4096))).astype(np.uint16))
        ds = None
        pca = os.path.join(tmp, "pca.tif")
        ours = run_entry("ExcuteAlgo_PCATransformFunc", "s:" + image, "s:" + pca, "s:" + os.path.join(tmp, "pca.txt"), 0)
        numpy_pca = ("import numpy as np\nfrom osgeo import gdal\n"
                     f"ds = gdal.Open({image!r}); x = ds.ReadAsArray().reshape(4, -1).astype(np.float64); ds = None\n"
                     "m = x.mean(axis=1, keepdims=True); c = np.cov(x); w, v = np.linalg.eigh(c); v = v[:, ::-1]\n"
                     "y = (v.T @ (x - m)).astype(np.float32).reshape(4, 4096, 4096)\n"
                     f"o = gdal.GetDriverByName('GTiff').Create({pca!r}, 4096, 4096, 4, gdal.GDT_Float32, ['TILED=YES'])\n"
                     "[o.GetRasterBand(i + 1).WriteArray(y[i]) for i in range(4)]; o = None\n")
        report("PCA 4096x4096x4", ours, "numpy", run_python(numpy_pca))


if __name__ == "__main__":
    main()
