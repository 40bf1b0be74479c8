#!/usr/bin/python3
"""Band math through the algofactory host against gdal_calc.py, numpy and the bare GDAL I/O floor.

Usage: bandmath_bench.py [BUILD_DIR]   (default "build"; the host is BUILD_DIR/bin/algofactory)
Makes two 8192 x 8192 tiled UInt16 GeoTIFFs in a temporary folder, computes the NDVI (b2-b1)/(b2+b1) to Float32
with each tool (median of three runs, peak resident memory of each process), and a 30-operation formula with ours.
Prints one line per case: "<case>: ours X.XXs, <peer> Y.YYs, ratio Y/X = R.RR".
"""
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time

import numpy as np
from osgeo import gdal, osr

gdal.UseExceptions()

SIZE = 8192
RUNS = 3
NDVI = "(b2-b1)/(b2+b1)"
# 30 operations: 7 functions, 23 operators (constants fold away, so none is constant-only).
HEAVY = ("max(min(sqrt(b1*b2+1), b1/(b2+1)*1000), abs(b1-b2)) + (b1 > b2)*2 - (b1 <= 500) "
         "+ min(b1, b2, 300)/max(b1+1, b2+1) + sqrt(abs(b2-b1*0.5)) + (b1 >= b2 AND b2 > 100) - round(b1/b2*10)")

NUMPY_SCRIPT = r"""
import sys
import numpy as np
from osgeo import gdal
gdal.UseExceptions()
src, other = gdal.Open(sys.argv[1]), gdal.Open(sys.argv[2])  # held: a band must not outlive its dataset
a = src.GetRasterBand(1).ReadAsArray().astype(np.float32)
b = other.GetRasterBand(1).ReadAsArray().astype(np.float32)
with np.errstate(divide="ignore", invalid="ignore"):
    ndvi = (b - a) / (b + a)
out = gdal.GetDriverByName("GTiff").Create(sys.argv[3], src.RasterXSize, src.RasterYSize, 1, gdal.GDT_Float32,
                                           ["TILED=YES"])
out.SetGeoTransform(src.GetGeoTransform())
out.SetProjection(src.GetProjection())
out.GetRasterBand(1).WriteArray(ndvi)
out = None
"""


def make_input(path, seed):
    ds = gdal.GetDriverByName("GTiff").Create(path, SIZE, SIZE, 1, gdal.GDT_UInt16, ["TILED=YES"])
    ds.SetGeoTransform((500000.0, 10.0, 0.0, 4500000.0, 0.0, -10.0))
    srs = osr.SpatialReference()
    srs.ImportFromEPSG(32650)
    ds.SetProjection(srs.ExportToWkt())
    rng = np.random.default_rng(seed)
    band = ds.GetRasterBand(1)
    for row in range(0, SIZE, 256):
        band.WriteArray(rng.integers(0, 10000, size=(256, SIZE), dtype=np.uint16), 0, row)
    ds = None


def measure(command, output):
    """Median wall time, median CPU time (user + system) in seconds and the largest peak resident memory in MB
    over RUNS runs; GNU time reports the tool's own memory, not this script's."""
    times, cpus, peaks = [], [], []
    report = output + ".time"
    for _ in range(RUNS):
        if os.path.exists(output):
            os.remove(output)
        start = time.perf_counter()
        done = subprocess.run(["/usr/bin/time", "-o", report, "-f", "%U %S %M"] + command,
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        elapsed = time.perf_counter() - start
        if done.returncode != 0 or not os.path.exists(output):
            sys.exit("failed: %s\n%s" % (" ".join(command), done.stderr.decode(errors="replace")))
        user, system, peak = open(report).read().split()[-3:]
        times.append(elapsed)
        cpus.append(float(user) + float(system))
        peaks.append(int(peak) / 1024.0)
    return statistics.median(times), statistics.median(cpus), max(peaks)


def ours(host, formula, a, b, output):
    params = {"CalculationExp": formula, "Images": a + "|" + b, "Bands": "1|1", "OutputFile": output, "dataType": 6}
    return [host, "run", "BandCompute", json.dumps(params)]


def line(case, ours_time, peer, peer_time):
    print("%s: ours %.2fs, %s %.2fs, ratio Y/X = %.2f" % (case, ours_time, peer, peer_time, peer_time / ours_time))


def main():
    build = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else "build")
    host = os.path.join(build, "bin", "algofactory")
    if not os.access(host, os.X_OK):
        sys.exit("no host at %s: build the algofactory target first" % host)
    here = os.path.dirname(os.path.abspath(__file__))
    with tempfile.TemporaryDirectory(prefix="bandmath_bench_") as tmp:
        a, b = os.path.join(tmp, "red.tif"), os.path.join(tmp, "nir.tif")
        make_input(a, 1)
        make_input(b, 2)
        floor_tool = os.path.join(tmp, "io_floor")
        cflags = subprocess.check_output(["gdal-config", "--cflags"], text=True).split()
        libs = subprocess.check_output(["gdal-config", "--libs"], text=True).split()
        subprocess.check_call(["g++", "-O2", "-std=c++17", os.path.join(here, "bandmath_io_floor.cpp"), "-o",
                               floor_tool] + cflags + libs)
        out = os.path.join(tmp, "out.tif")

        ours_ndvi, ours_cpu, ours_mem = measure(ours(host, NDVI, a, b, out), out)
        ours_heavy, heavy_cpu, heavy_mem = measure(ours(host, HEAVY, a, b, out), out)
        calc, calc_cpu, calc_mem = measure(["gdal_calc.py", "-A", a, "-B", b, "--outfile=" + out, "--type=Float32",
                                            "--co=TILED=YES", "--overwrite", "--quiet",
                                            "--calc=(B.astype(numpy.float32)-A)/(B.astype(numpy.float32)+A)"], out)
        numpy_time, numpy_cpu, numpy_mem = measure(["/usr/bin/python3", "-c", NUMPY_SCRIPT, a, b, out], out)
        floor, floor_cpu, floor_mem = measure([floor_tool, a, b, out], out)

        line("ndvi 8192x8192 UInt16 -> Float32", ours_ndvi, "gdal_calc.py", calc)
        line("ndvi 8192x8192 UInt16 -> Float32", ours_ndvi, "numpy", numpy_time)
        line("ndvi against the GDAL I/O floor", ours_ndvi, "io-floor", floor)
        line("30-operation formula against ndvi", ours_heavy, "ours-ndvi", ours_ndvi)
        print("cpu seconds: ours ndvi %.2f, ours 30-op %.2f, gdal_calc.py %.2f, numpy %.2f, io-floor %.2f"
              % (ours_cpu, heavy_cpu, calc_cpu, numpy_cpu, floor_cpu))
        print("peak memory: ours ndvi %.0f MB, ours 30-op %.0f MB, gdal_calc.py %.0f MB, numpy %.0f MB, io-floor %.0f MB"
              % (ours_mem, heavy_mem, calc_mem, numpy_mem, floor_mem))
        print("targets: ours/gdal_calc.py %.2f (<= 0.5), ours/io-floor %.2f (<= 1.5), 30-op/ndvi %.2f (< 2), "
              "memory < 300 MB" % (ours_ndvi / calc, ours_ndvi / floor, ours_heavy / ours_ndvi))

if __name__ == "__main__":
    main()
