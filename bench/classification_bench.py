#!/usr/bin/env python3
"""Classification side by side, in one run on the same data:
- K-means (k = 8, 10 iterations) of a 4096 x 4096 4-band UInt16 image: ours (KmeansClassification through the
  command-line host, reading and writing included) against scikit-learn KMeans (n_init=1, lloyd, tol=0,
  max_iter=10) and OpenCV kmeans (10 iterations, k-means++ seeds), both reading the image with GDAL;
- sieve of an 8192 x 8192 classification (threshold 10 pixels, 8-connected): ours against gdal_sieve.py;
- the class statistics report of the same classification: ours against a numpy bincount (reading included);
- majority filter 3 x 3 of the same classification: ours (ImgClassPostMMA) against Orfeo ToolBox's
  otbcli_ClassificationMapRegularization (radius 1, a 3 x 3 ball) and an OpenCV vote (one box filter per class,
  arg max), each reading and writing the file.
Peak memory is reported for the k-means runs.

Usage: classification_bench.py [BUILD_DIR]   (default "build")
"""
import os
import resource
import subprocess
import sys
import tempfile
import time

import numpy as np
from osgeo import gdal

KM_SIZE, KM_BANDS, KM_K, KM_ITER = 4096, 4, 8, 10
CLASS_SIZE, CLASS_COUNT = 8192, 8
ENV = dict(os.environ, QT_QPA_PLATFORM="offscreen")


def make_scene(path):
    rng = np.random.default_rng(11)
    centres = rng.uniform(500, 12000, (KM_K, KM_BANDS))
    dataset = gdal.GetDriverByName("GTiff").Create(path, KM_SIZE, KM_SIZE, KM_BANDS, gdal.GDT_UInt16,
                                                   ["TILED=YES", "INTERLEAVE=PIXEL"])
    step = 512
    for row in range(0, KM_SIZE, step):
        labels = rng.integers(0, KM_K, (step, KM_SIZE))
        for band in range(KM_BANDS):
            values = centres[labels, band] + rng.normal(0, 400, (step, KM_SIZE))
            dataset.GetRasterBand(band + 1).WriteArray(np.clip(values, 0, 65535).astype(np.uint16), 0, row)
    dataset = None


def make_classes(path):
    """Large regions from a coarse random grid, with 1 % salt pixels."""
    rng = np.random.default_rng(5)
    coarse = rng.integers(0, CLASS_COUNT, (CLASS_SIZE // 64, CLASS_SIZE // 64)).astype(np.uint8)
    dataset = gdal.GetDriverByName("GTiff").Create(path, CLASS_SIZE, CLASS_SIZE, 1, gdal.GDT_Byte, ["TILED=YES"])
    band = dataset.GetRasterBand(1)
    table = gdal.ColorTable()
    for i in range(CLASS_COUNT):
        table.SetColorEntry(i, (30 * i, 255 - 30 * i, 100, 255))
    band.SetColorTable(table)
    step = 1024
    for row in range(0, CLASS_SIZE, step):
        block = np.repeat(np.repeat(coarse[row // 64:(row + step) // 64], 64, axis=0), 64, axis=1)
        salt = rng.random(block.shape) < 0.01
        block[salt] = rng.integers(0, CLASS_COUNT, int(salt.sum()))
        band.WriteArray(block, 0, row)
    dataset = None


def timed(command):
    start = time.perf_counter()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=ENV)
    return time.perf_counter() - start


SKLEARN_PEER = r"""
import sys, time, resource
import numpy as np
from osgeo import gdal
from sklearn.cluster import KMeans
start = time.perf_counter()
pixels = gdal.Open(sys.argv[1]).ReadAsArray().reshape(%d, -1).T.astype(np.float32)
model = KMeans(n_clusters=%d, n_init=1, max_iter=%d, tol=0, algorithm="lloyd", random_state=0).fit(pixels)
print(time.perf_counter() - start, resource.getrusage(resource.RUSAGE_SELF).ru_maxrss)
""" % (KM_BANDS, KM_K, KM_ITER)

OPENCV_PEER = r"""
import sys, time, resource
import numpy as np
import cv2
from osgeo import gdal
start = time.perf_counter()
pixels = np.ascontiguousarray(gdal.Open(sys.argv[1]).ReadAsArray().reshape(%d, -1).T.astype(np.float32))
criteria = (cv2.TERM_CRITERIA_MAX_ITER, %d, 0)
cv2.setRNGSeed(0)
cv2.kmeans(pixels, %d, None, criteria, 1, cv2.KMEANS_PP_CENTERS)
print(time.perf_counter() - start, resource.getrusage(resource.RUSAGE_SELF).ru_maxrss)
""" % (KM_BANDS, KM_ITER, KM_K)

NUMPY_PEER = r"""
import sys, time
import numpy as np
from osgeo import gdal
start = time.perf_counter()
dataset = gdal.Open(sys.argv[1])
band = dataset.GetRasterBand(1)
counts = np.bincount(band.ReadAsArray().ravel(), minlength=band.GetColorTable().GetCount())
print(time.perf_counter() - start)
"""


OPENCV_MAJORITY = r"""
import sys
import numpy as np
import cv2
from osgeo import gdal
source = gdal.Open(sys.argv[1])
labels = source.GetRasterBand(1).ReadAsArray()
counts = np.stack([cv2.boxFilter((labels == c).astype(np.uint8), cv2.CV_16U, (3, 3), normalize=False,
                                 borderType=cv2.BORDER_CONSTANT) for c in range(%d)])
result = counts.argmax(axis=0).astype(np.uint8)
out = gdal.GetDriverByName("GTiff").Create(sys.argv[2], labels.shape[1], labels.shape[0], 1, gdal.GDT_Byte, ["TILED=YES"])
out.GetRasterBand(1).WriteArray(result)
out = None
""" % CLASS_COUNT


def peer(script, *args):
    output = subprocess.run([sys.executable, "-c", script, *args], check=True, capture_output=True, text=True)
    return [float(x) for x in output.stdout.split()]


def line(case, ours, name, theirs):
    print(f"{case}: ours {ours:.2f}s, {name} {theirs:.2f}s, ratio Y/X = {theirs / ours:.2f}")


def main():
    build = sys.argv[1] if len(sys.argv) > 1 else "build"
    host = os.path.join(build, "bin", "algofactory")
    with tempfile.TemporaryDirectory() as folder:
        scene = os.path.join(folder, "scene.tif")
        classes = os.path.join(folder, "classes.tif")
        make_scene(scene)
        make_classes(classes)

        # The smallest threshold the entry accepts; the run stops earlier only if under 0.01 % of pixels move.
        ours = timed([host, "call", "ExcuteAlgo_KmeansClassification", scene, os.path.join(folder, "kmeans.img"),
                      "0|1|2|3", str(KM_K), str(KM_ITER), "0.0001"])
        ours_peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
        sk_time, sk_peak = peer(SKLEARN_PEER, scene)
        cv_time, cv_peak = peer(OPENCV_PEER, scene)
        line("k-means 4096x4096x4 k=8 10 iterations", ours, "scikit-learn", sk_time)
        line("k-means 4096x4096x4 k=8 10 iterations", ours, "OpenCV", cv_time)
        print(f"k-means peak memory: ours {ours_peak / 1024:.0f} MB, scikit-learn {sk_peak / 1024:.0f} MB, "
              f"OpenCV {cv_peak / 1024:.0f} MB")

        ours = timed([host, "call", "ExcuteAlgo_ImgClassPostSieve", classes, os.path.join(folder, "sieved.img"), "10", "8"])
        theirs = timed(["gdal_sieve.py", "-q", "-st", "10", "-8", "-of", "HFA", classes, os.path.join(folder, "peer.img")])
        line("sieve 8192x8192 threshold 10, 8-connected", ours, "gdal_sieve.py", theirs)

        ours = timed([host, "call", "ExcuteAlgo_ImgClassPostSta", classes, os.path.join(folder, "report.txt")])
        (numpy_time,) = peer(NUMPY_PEER, classes)
        line("class statistics 8192x8192", ours, "numpy bincount", numpy_time)

        ours = timed([host, "call", "ExcuteAlgo_ImgClassPostMMA", classes, os.path.join(folder, "mma.tif"), "3", "1", "0"])
        otb = timed(["otbcli_ClassificationMapRegularization", "-io.in", classes, "-io.out",
                     os.path.join(folder, "otb_mma.tif"), "uint8", "-ip.radius", "1"])
        opencv = timed([sys.executable, "-c", OPENCV_MAJORITY, classes, os.path.join(folder, "cv_mma.tif")])
        line("majority 3x3 8192x8192", ours, "otbcli_ClassificationMapRegularization", otb)
        line("majority 3x3 8192x8192", ours, "OpenCV box filters", opencv)


if __name__ == "__main__":
    main()
