#!/usr/bin/python3
"""Pan-sharpening and RPC orthorectification through the algofactory host against GDAL and Orfeo ToolBox.

Usage: optical_geometry_bench.py [BUILD_DIR] [--size N]   (default "build" and N = 4096; the issue's full size is 8192)
Pan-sharpening: an N x N UInt16 pan and an (N/2)^2 x 4 UInt16 multispectral image (the pan a mix of the bands plus
detail), fused by ours (weighted Brovey, cubic), gdal_pansharpen.py (weighted Brovey with our weights, cubic) and
otbcli_Superimpose + otbcli_Pansharpening (RCS). Each tool is also run on the pair degraded by 2 (Wald's protocol) and
its ERGAS and SAM against the original multispectral image are printed beside its time.
Orthorectification: an N x N UInt16 scene with an RPC and a DEM, by ours (VYROrtho, bilinear), gdalwarp -rpc
(single-threaded, and -multi with two warp threads) and otbcli_OrthoRectification (default elevation: OTB wants a
DEM folder of SRTM tiles), onto the same UTM grid at the same pixel size.
Median of RUNS runs; peak resident memory of each process. The machine may be shared: ratios are indicative.
"""
import argparse
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
RUNS = 3


def measure(command, output, env=None):
    """Median wall time (s) and largest peak resident memory (MB) over RUNS runs."""
    times, peaks = [], []
    report = output + ".time"
    for _ in range(RUNS):
        if os.path.exists(output):
            os.remove(output)
        start = time.perf_counter()
        done = subprocess.run(["/usr/bin/time", "-o", report, "-f", "%M"] + command, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, env=env)
        elapsed = time.perf_counter() - start
        if done.returncode != 0 or not os.path.exists(output):
            return None, None, done.stdout.decode(errors="replace")[-400:]
        times.append(elapsed)
        peaks.append(int(open(report).read().split()[-1]) / 1024.0)
    return statistics.median(times), max(peaks), ""


def write(path, array, transform, epsg=32650, rpc=None):
    bands = array.shape[0]
    ds = gdal.GetDriverByName("GTiff").Create(path, array.shape[2], array.shape[1], bands, gdal.GDT_UInt16, ["TILED=YES"])
    if transform:
        ds.SetGeoTransform(transform)
        srs = osr.SpatialReference()
        srs.ImportFromEPSG(epsg)
        ds.SetProjection(srs.ExportToWkt())
    if rpc:
        ds.SetMetadata(rpc, "RPC")
    for b in range(bands):
        ds.GetRasterBand(b + 1).WriteArray(array[b])
    ds = None


def smooth_field(rng, shape, scale):
    """A smooth random field: white noise blurred by averaging upsampled coarse noise."""
    coarse = rng.random((shape[0] // scale + 2, shape[1] // scale + 2))
    field = np.kron(coarse, np.ones((scale, scale)))[: shape[0], : shape[1]]
    return field


def make_pair(folder, size, rng):
    half = size // 2
    base = [smooth_field(rng, (half, half), 16) for _ in range(3)]
    ms = np.stack([1000 + 3000 * (0.6 * base[0] + 0.4 * base[(b + 1) % 3]) + 50 * b for b in range(4)])
    detail = 400 * (smooth_field(rng, (size, size), 2) - 0.5)
    up = np.kron(ms, np.ones((1, 2, 2)))
    pan = 0.3 * up[0] + 0.3 * up[1] + 0.4 * up[2] + detail
    pan_path, ms_path = os.path.join(folder, "pan.tif"), os.path.join(folder, "ms.tif")
    write(pan_path, pan[None].clip(0, 65535).astype(np.uint16), (500000.0, 2.0, 0, 4500000.0, 0, -2.0))
    write(ms_path, ms.clip(0, 65535).astype(np.uint16), (500000.0, 4.0, 0, 4500000.0, 0, -4.0))
    # Wald's protocol: both degraded by 2 (area average).
    def down(a):
        return a.reshape(a.shape[0], a.shape[1] // 2, 2, a.shape[2] // 2, 2).mean(axis=(2, 4))
    write(os.path.join(folder, "pan_low.tif"), down(pan[None]).clip(0, 65535).astype(np.uint16),
          (500000.0, 4.0, 0, 4500000.0, 0, -4.0))
    write(os.path.join(folder, "ms_low.tif"), down(ms).clip(0, 65535).astype(np.uint16),
          (500000.0, 8.0, 0, 4500000.0, 0, -8.0))
    return pan_path, ms_path, ms


def quality(path, reference):
    fused = gdal.Open(path).ReadAsArray().astype(np.float64)
    ref = reference.astype(np.float64)
    m = 8  # edges left out
    f, r = fused[:, m:-m, m:-m], ref[:, m:-m, m:-m]
    rmse = np.sqrt(((f - r) ** 2).mean(axis=(1, 2)))
    ergas = 100 / 2 * np.sqrt(((rmse / r.mean(axis=(1, 2))) ** 2).mean())
    dot = (f * r).sum(0)
    cos = dot / np.sqrt((f * f).sum(0) * (r * r).sum(0))
    sam = np.degrees(np.arccos(np.clip(cos, -1, 1))).mean()
    return ergas, sam


def pansharpening(host, folder, size, rng):
    pan, ms, ms_array = make_pair(folder, size, rng)
    pan_low, ms_low = os.path.join(folder, "pan_low.tif"), os.path.join(folder, "ms_low.tif")
    print("pan-sharpening: pan %dx%d, multispectral %dx%d x 4 UInt16" % (size, size, size // 2, size // 2))
    ours = os.path.join(folder, "ours.tif")
    params = json.dumps({"PanFile": pan, "MultiFile": ms, "OutputFile": ours, "Method": 0})
    t_ours, m_ours, err = measure([host, "run", "PansharpFuseAlg", params], ours)
    if t_ours is None:
        sys.exit("ours failed: " + err)
    weights = json.load(open(os.path.join(folder, "ours_quality.json")))["intensity_weights"]
    low = os.path.join(folder, "ours_low.tif")
    subprocess.run([host, "run", "PansharpFuseAlg", json.dumps({"PanFile": pan_low, "MultiFile": ms_low,
                    "OutputFile": low, "Method": 0})], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    q_ours = quality(low, ms_array)
    print("  ours (Brovey): %.2fs, %.0f MB, reduced-scale ERGAS %.3f SAM %.3f" % (t_ours, m_ours, *q_ours))

    def gdal_cmd(p, m, out):
        cmd = ["gdal_pansharpen.py", "-q", "-r", "cubic", "-co", "TILED=YES"]
        for w in weights:
            cmd += ["-w", repr(w)]
        return cmd + [p, m, out]
    peer = os.path.join(folder, "gdal.tif")
    t, mem, err = measure(gdal_cmd(pan, ms, peer), peer)
    subprocess.run(gdal_cmd(pan_low, ms_low, os.path.join(folder, "gdal_low.tif")), stdout=subprocess.DEVNULL)
    q = quality(os.path.join(folder, "gdal_low.tif"), ms_array)
    print("  gdal_pansharpen.py (Brovey, same weights): %.2fs, %.0f MB, ratio %.2f, reduced-scale ERGAS %.3f SAM %.3f"
          % (t, mem, t / t_ours, *q))

    def otb(p, m, out):
        sup = out + ".xs.tif"
        script = ("otbcli_Superimpose -inr %s -inm %s -out %s uint16 -interpolator bco >/dev/null && "
                  "otbcli_Pansharpening -inp %s -inxs %s -out %s uint16 -method rcs >/dev/null && rm -f %s"
                  % (p, m, sup, p, sup, out, sup))
        return ["bash", "-c", script]
    peer = os.path.join(folder, "otb.tif")
    t, mem, err = measure(otb(pan, ms, peer), peer)
    if t is None:
        print("  otbcli_Superimpose + otbcli_Pansharpening: failed (%s)" % err.strip().splitlines()[-1:])
    else:
        subprocess.run(otb(pan_low, ms_low, os.path.join(folder, "otb_low.tif")), stdout=subprocess.DEVNULL)
        q = quality(os.path.join(folder, "otb_low.tif"), ms_array)
        print("  otbcli_Superimpose + otbcli_Pansharpening (RCS): %.2fs, %.0f MB, ratio %.2f, reduced-scale ERGAS %.3f "
              "SAM %.3f" % (t, mem, t / t_ours, *q))


def synthetic_rpc(size):
    """A near-affine camera of size x size pixels at about 10 m around 10 E, 45 N, with height parallax."""
    num = lambda c: " ".join(repr(v) for v in c + [0.0] * (20 - len(c)))
    half = size / 2
    return {
        "LINE_OFF": repr(half), "SAMP_OFF": repr(half), "LINE_SCALE": repr(half), "SAMP_SCALE": repr(half),
        "LAT_OFF": "45", "LONG_OFF": "10", "HEIGHT_OFF": "500", "LAT_SCALE": repr(half * 10 / 111000),
        "LONG_SCALE": repr(half * 10 / 78700), "HEIGHT_SCALE": "1000",
        "SAMP_NUM_COEFF": num([0.0, 1.0, 0.05, 0.02, 0.002]), "SAMP_DEN_COEFF": num([1.0, 0.001]),
        "LINE_NUM_COEFF": num([0.0, 0.03, -1.0, 0.01, 0.0, 0.001]), "LINE_DEN_COEFF": num([1.0, 0.0, 0.002]),
    }


def orthorectification(host, folder, size, rng):
    print("orthorectification: %dx%d UInt16 scene with an RPC and a DEM" % (size, size))
    scene = os.path.join(folder, "scene.tif")
    image = (1000 + 3000 * smooth_field(rng, (size, size), 8)).astype(np.uint16)
    write(scene, image[None], None, rpc=synthetic_rpc(size))
    dem = os.path.join(folder, "dem.tif")
    ds = gdal.GetDriverByName("GTiff").Create(dem, 400, 400, 1, gdal.GDT_Float32)
    ds.SetGeoTransform((9.0, 0.005, 0, 46.0, 0, -0.005))
    srs = osr.SpatialReference()
    srs.ImportFromEPSG(4326)
    ds.SetProjection(srs.ExportToWkt())
    y, x = np.mgrid[0:400, 0:400]
    ds.GetRasterBand(1).WriteArray((500 + 200 * np.sin(x / 23.0) * np.cos(y / 17.0)).astype(np.float32))
    ds = None
    ours = os.path.join(folder, "ortho_ours.tif")
    params = json.dumps({"InputFile": scene, "DEMFile": dem, "OutputFile": ours, "Resolution": 10.0,
                         "ResampleMethod": "bilinear", "DefaultHeight": 500})
    t_ours, m_ours, err = measure([host, "run", "VYROrtho", params], ours)
    if t_ours is None:
        sys.exit("ours failed: " + err)
    print("  ours (VYROrtho): %.2fs, %.0f MB" % (t_ours, m_ours))
    out = gdal.Open(ours)
    g, w, h = out.GetGeoTransform(), out.RasterXSize, out.RasterYSize
    epsg = out.GetSpatialRef().GetAuthorityCode(None)
    out = None
    te = [repr(g[0]), repr(g[3] + g[5] * h), repr(g[0] + g[1] * w), repr(g[3])]
    base = ["gdalwarp", "-q", "-overwrite", "-rpc", "-to", "RPC_DEM=" + dem, "-to", "RPC_DEM_MISSING_VALUE=500",
            "-r", "bilinear", "-t_srs", "EPSG:" + epsg, "-te"] + te + ["-ts", str(w), str(h), "-co", "TILED=YES"]
    for label, extra in (("gdalwarp -rpc", []), ("gdalwarp -rpc -multi -wo NUM_THREADS=2", ["-multi", "-wo", "NUM_THREADS=2"])):
        peer = os.path.join(folder, "ortho_gdal.tif")
        t, mem, err = measure(base + extra + [scene, peer], peer)
        print("  %s: %.2fs, %.0f MB, ratio %.2f" % (label, t, mem, t / t_ours))
    peer = os.path.join(folder, "ortho_otb.tif")
    zone = int(epsg) - 32600
    cmd = ["otbcli_OrthoRectification", "-io.in", scene, "-io.out", peer, "uint16", "-map", "utm", "-map.utm.zone",
           str(zone), "-map.utm.northhem", "true", "-outputs.spacingx", "10", "-outputs.spacingy", "-10",
           "-elev.default", "500", "-interpolator", "linear"]
    t, mem, err = measure(cmd, peer)
    if t is None:
        print("  otbcli_OrthoRectification: did not run (%s)" % " ".join(err.strip().splitlines()[-1:]))
    else:
        print("  otbcli_OrthoRectification (constant height 500 m, no DEM): %.2fs, %.0f MB, ratio %.2f"
              % (t, mem, t / t_ours))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", nargs="?", default="build")
    parser.add_argument("--size", type=int, default=4096)
    args = parser.parse_args()
    host = os.path.abspath(os.path.join(args.build, "bin", "algofactory"))
    rng = np.random.default_rng(7)
    with tempfile.TemporaryDirectory() as folder:
        pansharpening(host, folder, args.size, rng)
    with tempfile.TemporaryDirectory() as folder:
        orthorectification(host, folder, args.size, rng)


if __name__ == "__main__":
    main()
