#!/usr/bin/python3
"""Radar steps through the algofactory host against the tools users would otherwise pick, on the same inputs.

Usage: bench/sar_processing_bench.py [BUILD_DIR] [SIZE]   (defaults "build", 4096; the issue's full size is 8192)
Makes a single-look speckled intensity GeoTIFF of SIZE x SIZE (gamma speckle over a smooth reflectivity with edges)
and a SIZE/2 square quad-pol S2 folder, then times, one run each:
  speckle filters, 7 x 7 window: ours (Batch_AdaptiveFilter) against otbcli_Despeckle (radius 3, 1 look) and,
    for Lee, a numpy/scipy Lee (uniform_filter moments);
  multilook 4 x 4: ours (Batch_MultiLook) against gdal_translate -r average and numpy;
  dB: ours (Batch_TransformToDb) against numpy;
  S2 to T3: ours (PolSAR_MatrixConvert) against otbcli_SARPolarMatrixConvert (msinclairtocoherency).
Command-line peers are timed as whole processes against our whole command-line run (host start-up included);
numpy is timed inside this Python process after its imports, so ours is then timed in-process too, through
bench/entry_timer.cpp (median of three calls, reading and writing the GeoTIFFs included on both sides).
Prints one line per case: "<case>: ours X.XXs, <peer> Y.YYs, ratio Y/X = R.RR" and, where the peer computes the
same quantity, the largest relative difference on interior pixels.
"""
import os
import shutil
import subprocess
import sys
import tempfile
import time

import numpy as np
from osgeo import gdal
from scipy.ndimage import uniform_filter

gdal.UseExceptions()
BUILD = sys.argv[1] if len(sys.argv) > 1 else "build"
SIZE = int(sys.argv[2]) if len(sys.argv) > 2 else 4096
WINDOW = 7


def timed(args, check_output=None):
    start = time.perf_counter()
    completed = subprocess.run(args, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    elapsed = time.perf_counter() - start
    if completed.returncode != 0 or (check_output and check_output.encode() not in completed.stdout):
        sys.exit("failed: %s\n%s" % (" ".join(args), completed.stdout.decode(errors="replace")[-2000:]))
    return elapsed


def ours(entry, *args):
    return timed([os.path.join(BUILD, "bin", "algofactory"), "call", entry] + [str(a) for a in args], "[OUTPUT]")


def build_timer(folder):
    here = os.path.dirname(os.path.abspath(__file__))
    timer = os.path.join(folder, "entry_timer")
    qt = subprocess.check_output(["pkg-config", "--cflags", "--libs", "Qt5Widgets"], text=True).split()
    bin_dir = os.path.join(os.path.abspath(BUILD), "bin")
    subprocess.check_call(["g++", "-O2", "-std=c++17", "-fPIC", os.path.join(here, "entry_timer.cpp"), "-o", timer,
                           "-I" + os.path.join(here, "..", "include"), "-L" + bin_dir, "-lAlgoFactory",
                           "-Wl,-rpath," + bin_dir] + qt)
    return timer


def in_process(timer, entry, *args):
    """Median seconds of three calls of the entry inside one host process."""
    done = subprocess.run([timer, "3", "ExcuteAlgo_" + entry] + [str(a) for a in args], stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True, env=dict(os.environ, QT_QPA_PLATFORM="offscreen"))
    if done.returncode != 0:
        sys.exit("failed: %s %s\n%s" % (entry, args, done.stderr[-2000:]))
    fields = done.stderr.split()
    return float(fields[fields.index("seconds") + 1])


def median_of_three(work):
    times = []
    for _ in range(3):
        start = time.perf_counter()
        result = work()
        times.append(time.perf_counter() - start)
    return sorted(times)[1], result


def make_intensity(path):
    rng = np.random.default_rng(1)
    ds = gdal.GetDriverByName("GTiff").Create(path, SIZE, SIZE, 1, gdal.GDT_Float32, ["TILED=YES"])
    ds.SetGeoTransform((500000.0, 10.0, 0.0, 4500000.0, 0.0, -10.0))
    band = ds.GetRasterBand(1)
    x = np.arange(SIZE, dtype=np.float32) / SIZE
    for row in range(0, SIZE, 512):
        y = (np.arange(row, row + 512, dtype=np.float32) / SIZE)[:, None]
        reflectivity = 1.0 + 4.0 * (x[None, :] > 0.5) + np.sin(8 * y) ** 2
        band.WriteArray((reflectivity * rng.exponential(1.0, (512, SIZE))).astype(np.float32), 0, row)
    ds = None


def make_s2(folder, size):
    os.makedirs(folder)
    rng = np.random.default_rng(2)
    with open(os.path.join(folder, "config.txt"), "w") as config:
        config.write("Nrow\n%d\n---------\nNcol\n%d\n---------\nPolarCase\nmonostatic\n---------\nPolarType\nfull\n"
                     % (size, size))
    for name in ("s11", "s12", "s21", "s22"):
        values = (rng.standard_normal((size, size)) + 1j * rng.standard_normal((size, size))).astype(np.complex64)
        values.tofile(os.path.join(folder, name + ".bin"))
        with open(os.path.join(folder, name + ".bin.hdr"), "w") as header:
            header.write("ENVI\nsamples = %d\nlines = %d\nbands = 1\nheader offset = 0\nfile type = ENVI Standard\n"
                         "data type = 6\ninterleave = bsq\nbyte order = 0\n" % (size, size))


def numpy_lee(path, out):
    start = time.perf_counter()
    z = gdal.Open(path).ReadAsArray().astype(np.float64)
    mean = uniform_filter(z, WINDOW, mode="nearest")
    square = uniform_filter(z * z, WINDOW, mode="nearest")
    variance = np.maximum(square - mean * mean, 0)
    with np.errstate(divide="ignore", invalid="ignore"):
        weight = np.clip(1.0 - 1.0 / (variance / (mean * mean)), 0, 1)
    result = (mean + np.nan_to_num(weight) * (z - mean)).astype(np.float32)
    ds = gdal.GetDriverByName("GTiff").Create(out, SIZE, SIZE, 1, gdal.GDT_Float32, ["TILED=YES"])
    ds.GetRasterBand(1).WriteArray(result)
    ds = None
    return time.perf_counter() - start, result


def difference(a, b):
    inner = (slice(WINDOW, -WINDOW), slice(WINDOW, -WINDOW))
    return float(np.nanmax(np.abs(a[inner] - b[inner]) / np.maximum(np.abs(b[inner]), 1e-6)))


def report(case, mine, peer_name, peer, extra=""):
    print("%s: ours %.2fs, %s %.2fs, ratio Y/X = %.2f%s" % (case, mine, peer_name, peer, peer / mine, extra), flush=True)


def main():
    with_otb = shutil.which("otbcli_Despeckle") is not None
    with tempfile.TemporaryDirectory(prefix="sar_bench_") as folder:
        scene = os.path.join(folder, "scene.tif")
        make_intensity(scene)
        # The parameter file would give the looks; without it ours estimates them (about 1 here), as OTB is told 1.
        for ours_name, otb_name in (("Lee", "lee"), ("Frost", "frost"), ("GammaMAP", "gammamap"), ("Kuan", "kuan")):
            out = os.path.join(folder, "ours_" + ours_name)
            mine = ours("Batch_AdaptiveFilter", scene, out, ours_name, WINDOW)
            mine_image = gdal.Open(os.path.join(out, "scene_%s.tif" % ours_name)).ReadAsArray()
            if with_otb:
                target = os.path.join(folder, "otb_%s.tif" % otb_name)
                args = ["otbcli_Despeckle", "-in", scene, "-out", target, "float", "-filter", otb_name,
                        "-filter.%s.rad" % otb_name, str(WINDOW // 2)]
                args += ["-filter.frost.deramp", "1"] if otb_name == "frost" else ["-filter.%s.nblooks" % otb_name, "1"]
                peer = timed(args)
                extra = ", largest relative difference %.2g" % difference(mine_image, gdal.Open(target).ReadAsArray())
                report("speckle %s %dx%d window %d" % (ours_name, SIZE, SIZE, WINDOW), mine, "otbcli_Despeckle", peer, extra)
            if ours_name == "Lee":
                peer, reference = numpy_lee(scene, os.path.join(folder, "numpy_lee.tif"))
                report("speckle Lee %dx%d window %d" % (SIZE, SIZE, WINDOW), mine, "numpy/scipy", peer,
                       ", largest relative difference %.2g" % difference(mine_image, reference))
            shutil.rmtree(out)

        timer = build_timer(folder)
        out = os.path.join(folder, "ml")
        mine = ours("Batch_MultiLook", scene, out, 4, 4)
        peer = timed(["gdal_translate", "-q", "-r", "average", "-outsize", str(SIZE // 4), str(SIZE // 4), "-co", "TILED=YES",
                      scene, os.path.join(folder, "gdal_ml.tif")])
        ml = gdal.Open(os.path.join(out, "scene_ML.tif")).ReadAsArray()
        gdal_ml = gdal.Open(os.path.join(folder, "gdal_ml.tif")).ReadAsArray()
        report("multilook 4x4 %dx%d, whole processes" % (SIZE, SIZE), mine, "gdal_translate -r average", peer,
               ", largest relative difference %.2g" % float(np.max(np.abs(ml - gdal_ml) / gdal_ml)))

        def numpy_multilook():
            z = gdal.Open(scene).ReadAsArray()
            averaged = z.reshape(SIZE // 4, 4, SIZE // 4, 4).mean(axis=(1, 3), dtype=np.float64).astype(np.float32)
            ds = gdal.GetDriverByName("GTiff").Create(os.path.join(folder, "numpy_ml.tif"), SIZE // 4, SIZE // 4, 1,
                                                      gdal.GDT_Float32, ["TILED=YES"])
            ds.GetRasterBand(1).WriteArray(averaged)
            ds = None
            return averaged

        peer, averaged = median_of_three(numpy_multilook)
        mine = in_process(timer, "Batch_MultiLook", scene, out, 4, 4)
        report("multilook 4x4 %dx%d, in-process" % (SIZE, SIZE), mine, "numpy", peer,
               ", largest relative difference %.2g" % float(np.max(np.abs(ml - averaged) / averaged)))

        out = os.path.join(folder, "db")
        mine_process = ours("Batch_TransformToDb", scene, out)

        def numpy_decibels():
            z = gdal.Open(scene).ReadAsArray()
            with np.errstate(divide="ignore", invalid="ignore"):
                decibels = np.where(z > 0, 10 * np.log10(z), np.nan).astype(np.float32)
            ds = gdal.GetDriverByName("GTiff").Create(os.path.join(folder, "numpy_db.tif"), SIZE, SIZE, 1,
                                                      gdal.GDT_Float32, ["TILED=YES"])
            ds.GetRasterBand(1).WriteArray(decibels)
            ds = None
            return decibels

        peer, decibels = median_of_three(numpy_decibels)
        mine = in_process(timer, "Batch_TransformToDb", scene, out)
        mine_db = gdal.Open(os.path.join(out, "scene_dB.tif")).ReadAsArray()
        report("dB %dx%d, in-process" % (SIZE, SIZE), mine, "numpy", peer,
               ", largest difference %.2g dB; our whole command-line run %.2fs"
               % (float(np.nanmax(np.abs(mine_db - decibels))), mine_process))

        half = SIZE // 2
        s2 = os.path.join(folder, "S2")
        make_s2(s2, half)
        mine = ours("PolSAR_MatrixConvert", s2, os.path.join(folder, "conv"), "T3")
        if shutil.which("otbcli_SARPolarMatrixConvert"):
            target = os.path.join(folder, "otb_t3.tif")
            peer = timed(["otbcli_SARPolarMatrixConvert", "-inhh", os.path.join(s2, "s11.bin"), "-inhv",
                          os.path.join(s2, "s12.bin"), "-invh", os.path.join(s2, "s21.bin"), "-invv",
                          os.path.join(s2, "s22.bin"), "-conv", "msinclairtocoherency", "-outc", target])
            t11 = np.fromfile(os.path.join(folder, "conv", "T3", "T11.bin"), np.float32).reshape(half, half)
            otb = gdal.Open(target)  # held: a band must not outlive its dataset
            otb_t11 = otb.GetRasterBand(1).ReadAsArray().real
            report("S2 to T3 %dx%d" % (half, half), mine, "otbcli_SARPolarMatrixConvert", peer,
                   ", T11 largest relative difference %.2g" % float(np.max(np.abs(t11 - otb_t11) / np.maximum(otb_t11, 1e-6))))


if __name__ == "__main__":
    main()
