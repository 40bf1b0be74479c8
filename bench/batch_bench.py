#!/usr/bin/python3
"""Batch throughput: 64 small jobs through `algofactory batch` (1 and 2 workers) and through Dask (a LocalCluster of
2 worker processes), against 64 runs of the host one after another (what a shell loop does).

Usage: batch_bench.py [BUILD_DIR] [TILES]   (default "build" and 32; the host is BUILD_DIR/bin/algofactory)
Cuts TILES tiles of 256 x 256 (4 bands) out of the 349 x 352 sample scene mirrored to 1024 x 1024, and runs per
tile an NDVI (BandCompute) and a 3 x 3 median filter (ImgProFiltSpaMid): 2 x TILES independent jobs. Prints the
wall time of each way, jobs per second, and the overhead per job against the one-after-another loop
(the batch's time with one worker minus the loop's, over the jobs). The Dask cluster's start is not counted.
"""
import json
import os
import subprocess
import sys
import tempfile
import time

import numpy as np
from osgeo import gdal

gdal.UseExceptions()
HERE = os.path.dirname(os.path.abspath(__file__))
BUILD = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else "build")
TILES = int(sys.argv[2]) if len(sys.argv) > 2 else 32
HOST = os.path.join(BUILD, "bin", "algofactory")
SAMPLE = os.path.join(HERE, "..", "data", "samples", "L7_ETMs.tif")


def make_tiles(folder):
    sample = gdal.Open(SAMPLE)
    cube = np.stack([sample.GetRasterBand(b).ReadAsArray() for b in range(1, 5)])
    big = np.pad(cube, ((0, 0), (0, 1024 - cube.shape[1]), (0, 1024 - cube.shape[2])), mode="reflect")
    tiles = []
    for index in range(TILES):
        row, col = divmod(index % 16, 4)
        path = os.path.join(folder, "tile%02d.tif" % index)
        ds = gdal.GetDriverByName("GTiff").Create(path, 256, 256, 4, gdal.GDT_Byte, ["TILED=YES"])
        ds.SetGeoTransform((500000.0 + col * 256 * 30, 30.0, 0.0, 4500000.0 - row * 256 * 30, 0.0, -30.0))
        for b in range(4):
            ds.GetRasterBand(b + 1).WriteArray(big[b, row * 256:(row + 1) * 256, col * 256:(col + 1) * 256])
        ds = None
        tiles.append(path)
    return tiles


def jobs(tiles, out):
    lines = []
    for index, tile in enumerate(tiles):
        lines.append({"id": "ndvi%02d" % index, "algorithm": "BandCompute",
                      "params": {"CalculationExp": "(b2-b1)/(b2+b1)", "Images": tile + "|" + tile, "Bands": "3|4",
                                 "OutputFile": os.path.join(out, "ndvi%02d.tif" % index), "dataType": 6}})
        lines.append({"id": "median%02d" % index, "algorithm": "ImgProFiltSpaMid",
                      "params": {"InputFile": tile, "OutputFile": os.path.join(out, "median%02d.tif" % index),
                                 "KernelSize": 3, "Bands": "1", "Mode": 1, "Extra": 0}})
    return lines


def timed(action):
    start = time.perf_counter()
    action()
    return time.perf_counter() - start


def main():
    env = dict(os.environ, QT_QPA_PLATFORM="offscreen")
    with tempfile.TemporaryDirectory(prefix="batch-bench-") as folder:
        tiles = make_tiles(folder)
        results = {}

        def loop():
            out = os.path.join(folder, "loop")
            os.mkdir(out)
            for line in jobs(tiles, out):
                subprocess.run([HOST, "run", line["algorithm"], json.dumps(line["params"])], env=env, check=True,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

        def batch(workers):
            out = os.path.join(folder, "batch%d" % workers)
            os.mkdir(out)
            path = os.path.join(out, "jobs.jsonl")
            with open(path, "w") as handle:
                handle.write("".join(json.dumps(line) + "\n" for line in jobs(tiles, out)))
            run = subprocess.run([HOST, "batch", path, "--jobs", str(workers), "--quiet"], env=env)
            assert run.returncode == 0, "batch with %d workers failed" % workers

        count = 2 * len(tiles)
        results["host loop"] = timed(loop)
        results["batch, 1 worker"] = timed(lambda: batch(1))
        results["batch, 2 workers"] = timed(lambda: batch(2))
        try:
            sys.path.insert(0, os.path.join(HERE, "..", "python"))
            os.environ["PYTHONPATH"] = os.path.join(HERE, "..", "python")
            os.environ.update(ALGOFACTORY_HOST=HOST, QT_QPA_PLATFORM="offscreen")
            from distributed import Client, LocalCluster
            from algofactory.dask import run_batch
            out = os.path.join(folder, "dask")
            os.mkdir(out)
            path = os.path.join(out, "jobs.jsonl")
            with open(path, "w") as handle:
                handle.write("".join(json.dumps(line) + "\n" for line in jobs(tiles, out)))
            with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, host="127.0.0.1",
                              dashboard_address=None) as cluster, Client(cluster) as client:
                report = []
                results["dask, 2 workers"] = timed(lambda: report.extend(run_batch(client, path)))
                assert all(entry["success"] for entry in report), "a Dask line failed"
        except ImportError:
            print("dask: skipped (python3-distributed is not installed)")

        loop_time = results["host loop"]
        print("%d jobs (NDVI and 3 x 3 median on %d tiles of 256 x 256)" % (count, len(tiles)))
        for name, seconds in results.items():
            print("%-18s %6.2fs  %5.1f jobs/s  overhead per job vs the loop %+6.0f ms  speed-up %.2f"
                  % (name, seconds, count / seconds, (seconds - loop_time) / count * 1000, loop_time / seconds))


if __name__ == "__main__":
    main()
