#!/usr/bin/env python3
"""Footprint index of many small rasters: ours (valid-data footprints, both cores) against gdaltindex (bounding
boxes), in one run, on the same files, both writing a GeoPackage in WGS 84.

Usage: catalogue_ingest_bench.py [BUILD_DIR] [COUNT] [SIZE]   (defaults "build", 2000, 256)
Prints one line per case: <case>: ours X.XXs, <peer> Y.YYs, ratio Y/X = R.RR (wall time, then processor time)
The rasters are ENVI band-sequential Byte images of SIZE x SIZE pixels in UTM 33N, each at its own place, with
a no-data border around a slanted valid area (like the edge of a delivered scene), written by this script.
"""
import json
import os
import subprocess
import sys
import tempfile
import time


def run(args, **kw):
    subprocess.run(args, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **kw)


def timed(fn, repeat=1):
    """Best wall time and best processor time (user + system of the child processes) of `repeat` runs."""
    best, best_cpu = None, None
    for _ in range(repeat):
        before = os.times()
        start = time.perf_counter()
        fn()
        elapsed = time.perf_counter() - start
        after = os.times()
        cpu = (after.children_user - before.children_user) + (after.children_system - before.children_system)
        best = elapsed if best is None else min(best, elapsed)
        best_cpu = cpu if best_cpu is None else min(best_cpu, cpu)
    return best, best_cpu


def pixels(size):
    """0 (no-data) outside a parallelogram leaning by a quarter of the width, varied values inside."""
    rows = []
    for y in range(size):
        shift = size // 4 * y // size
        left, right = shift + size // 16, size - size // 4 + shift - size // 16
        rows.append(bytes(((x * 7 + y * 3) % 250 + 1) if left <= x < right else 0 for x in range(size)))
    return b"".join(rows)


def make_rasters(folder, count, size):
    data = pixels(size)
    paths = []
    for i in range(count):
        path = os.path.join(folder, "scene_%05d.bsq" % i)
        with open(path, "wb") as out:
            out.write(data)
        east, north = 400000 + (i % 50) * size * 10, 4500000 + (i // 50) * size * 10
        with open(path[:-4] + ".hdr", "w") as hdr:
            hdr.write("ENVI\nsamples = %d\nlines = %d\nbands = 1\nheader offset = 0\nfile type = ENVI Standard\n"
                      "data type = 1\ninterleave = bsq\nbyte order = 0\ndata ignore value = 0\n"
                      "map info = {UTM, 1, 1, %d, %d, 10, 10, 33, North, WGS-84}\n" % (size, size, east, north))
        paths.append(path)
    return paths


def report(case, ours, peer_name, peer):
    print("%s: ours %.2fs, %s %.2fs, ratio Y/X = %.2f" % (case, ours, peer_name, peer, peer / ours))


def feature_count(path):
    out = subprocess.run(["ogrinfo", "-so", "-al", path], check=True, capture_output=True, text=True).stdout
    return int(out.split("Feature Count: ")[1].split()[0])


def main():
    build = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else "build")
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 2000
    size = int(sys.argv[3]) if len(sys.argv) > 3 else 256
    host = os.path.join(build, "bin", "algofactory")
    if not os.path.exists(host):
        sys.exit("no %s: build the algofactory target first" % host)
    with tempfile.TemporaryDirectory() as tmp:
        folder = os.path.join(tmp, "rasters")
        os.mkdir(folder)
        paths = make_rasters(folder, count, size)
        ours_index, peer_index = os.path.join(tmp, "ours.gpkg"), os.path.join(tmp, "peer.gpkg")
        file_list = os.path.join(tmp, "files.txt")
        with open(file_list, "w") as f:
            f.write("\n".join(paths) + "\n")

        def ours():
            run([host, "call", "ExcuteAlgo_CreateImgIndex",
                 json.dumps({"InputFiles": folder, "OutputFile": ours_index})])

        def peer():
            if os.path.exists(peer_index):
                os.remove(peer_index)
            run(["gdaltindex", "-f", "GPKG", "-t_srs", "EPSG:4326", peer_index, "--optfile", file_list])

        (ours_time, ours_cpu), (peer_time, peer_cpu) = timed(ours, repeat=2), timed(peer, repeat=2)
        assert feature_count(ours_index) == count and feature_count(peer_index) == count
        case = "index %d rasters %dx%d (true footprints vs boxes)" % (count, size, size)
        report(case, ours_time, "gdaltindex -t_srs EPSG:4326", peer_time)
        # On a shared machine the wall time follows the load; the processor time shows the work done.
        report(case + ", processor time", ours_cpu, "gdaltindex -t_srs EPSG:4326", peer_cpu)


if __name__ == "__main__":
    main()
