#!/usr/bin/python3
"""H/A/Alpha decomposition of a 2048 x 2048 quad-pol scene with a 5 x 5 window: ours against numpy/scipy.

Usage: bench/polsar_bench.py [build-folder]   (default "build")
The peer is the same mathematics in numpy: T3 by scipy.ndimage.uniform_filter, numpy.linalg.eigh on the stacked
matrices; both sides read the four complex images and write four Float32 images.
"""
import os
import subprocess
import sys
import tempfile
import time

import numpy as np
from osgeo import gdal
from scipy.ndimage import uniform_filter

SIZE = 2048
WINDOW = 5


def make_scene(folder):
    """Four CFloat32 channels: a smooth mix of surface, dihedral and volume scattering with speckle."""
    rng = np.random.default_rng(1)
    y, x = np.mgrid[0:SIZE, 0:SIZE].astype(np.float32) / SIZE
    surface = 1.0 + np.sin(6 * x) ** 2
    dihedral = 0.5 + np.cos(5 * y) ** 2
    volume = 0.3 + x * y

    def speckle():
        return (rng.standard_normal((SIZE, SIZE), np.float32) + 1j * rng.standard_normal((SIZE, SIZE), np.float32)) / np.sqrt(2)

    k1 = np.sqrt(surface) * speckle()
    k2 = np.sqrt(dihedral) * speckle()
    k3 = np.sqrt(volume) * speckle()
    s = np.float32(np.sqrt(0.5))
    channels = {"HH": (k1 + k2) * s, "VV": (k1 - k2) * s, "HV": k3 * s, "VH": k3 * s}
    paths = []
    for name in ("HH", "HV", "VH", "VV"):
        path = os.path.join(folder, "scene_%s.tif" % name)
        ds = gdal.GetDriverByName("GTiff").Create(path, SIZE, SIZE, 1, gdal.GDT_CFloat32, ["TILED=YES"])
        ds.GetRasterBand(1).WriteArray(channels[name].astype(np.complex64))
        ds = None
        paths.append(path)
    return paths


def run_ours(build, paths, out):
    exe = os.path.join(build, "bin", "algofactory")
    args = [exe, "call", "ExcuteAlgo_PolSAR_Decomposition", "|".join(paths), out, "HAAlpha", str(WINDOW)]
    # Linux carries the peak resident size across exec, so a child forked from this (large) Python process would
    # report ours; /usr/bin/time forks from a small process.
    peak_file = os.path.join(out + "_peak.txt")
    if os.path.exists("/usr/bin/time"):
        args = ["/usr/bin/time", "-f", "%M", "-o", peak_file] + args
    start = time.perf_counter()
    completed = subprocess.run(args, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    elapsed = time.perf_counter() - start
    if completed.returncode != 0 or b"[OUTPUT]" not in completed.stdout:
        sys.exit("our run failed:\n" + completed.stdout.decode(errors="replace"))
    peak = float(open(peak_file).read().split()[-1]) / 1024.0 if os.path.exists(peak_file) else float("nan")
    return elapsed, peak


def run_numpy(paths, out):
    start = time.perf_counter()
    hh, hv, vh, vv = (gdal.Open(p).ReadAsArray() for p in paths)
    s = np.float32(np.sqrt(0.5))
    k = np.stack([(hh + vv) * s, (hh - vv) * s, (hv + vh) * s])
    del hh, hv, vh, vv
    t = np.empty((SIZE, SIZE, 3, 3), np.complex64)
    for i in range(3):
        for j in range(i, 3):
            product = k[i] * np.conj(k[j])
            mean = uniform_filter(product.real, WINDOW, mode="nearest") + 1j * uniform_filter(product.imag, WINDOW, mode="nearest")
            t[..., i, j] = mean
            t[..., j, i] = np.conj(mean)
    del k
    values, vectors = np.linalg.eigh(t)
    del t
    values = np.clip(values[..., ::-1], 0, None)
    first = np.abs(vectors[..., 0, ::-1])
    p = values / values.sum(axis=-1, keepdims=True)
    with np.errstate(divide="ignore", invalid="ignore"):
        entropy = -np.sum(np.where(p > 0, p * np.log(p), 0), axis=-1) / np.log(3)
        anisotropy = np.nan_to_num((values[..., 1] - values[..., 2]) / (values[..., 1] + values[..., 2]))
    alpha = np.degrees(np.sum(p * np.arccos(np.clip(first, 0, 1)), axis=-1))
    lam = np.sum(p * values, axis=-1)
    results = {}
    for name, image in (("entropy", entropy), ("anisotropy", anisotropy), ("alpha", alpha), ("lambda", lam)):
        path = os.path.join(out, "numpy_%s.img" % name)
        ds = gdal.GetDriverByName("ENVI").Create(path, SIZE, SIZE, 1, gdal.GDT_Float32)
        ds.GetRasterBand(1).WriteArray(image.astype(np.float32))
        ds = None
        results[name] = image
    return time.perf_counter() - start, results


def main():
    build = sys.argv[1] if len(sys.argv) > 1 else "build"
    with tempfile.TemporaryDirectory(prefix="polsar_bench_") as folder:
        paths = make_scene(folder)
        ours_out = os.path.join(folder, "ours")
        ours, peak = run_ours(build, paths, ours_out)
        peer, reference = run_numpy(paths, folder)
        # Interior pixels only: the two sides treat the image border differently.
        inner = (slice(WINDOW, -WINDOW), slice(WINDOW, -WINDOW))
        differences = []
        for name in ("entropy", "alpha"):
            mine = gdal.Open(os.path.join(ours_out, "scene_HH_%s.img" % name)).ReadAsArray()
            differences.append("%s %.2g" % (name, np.nanmax(np.abs(mine[inner] - reference[name][inner]))))
        print("decomposition %dx%d window %d: ours %.2fs, numpy %.2fs, ratio Y/X = %.2f (our peak memory %.0f MB; "
              "max difference %s)" % (SIZE, SIZE, WINDOW, ours, peer, peer / ours, peak, ", ".join(differences)))


if __name__ == "__main__":
    main()
