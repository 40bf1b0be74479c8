#!/usr/bin/python3
"""Radar import and geometry through the algofactory host against Orfeo ToolBox and numpy/scipy versions of the
same formulas, on the shared Sentinel-1 products.

Usage: sar_geometry_bench.py [BUILD_DIR]   (default "build"; the host is BUILD_DIR/bin/algofactory)
Prints one line per case and peer: "<case>: ours X.XXs, <peer> Y.YYs, ratio Y/X = R.RR", or why a peer could not run.
Cases: GF-3 footprint of a 6000 x 4000 CInt16 image with a zero collar and a linear RPC (.RPB) against GDAL's own
polygoniser and RPC transformer driven from Python (made here, needs no shared data); deburst of the IW1 VV swath of the EFA4 SLC (21632 x 12199 CInt16 out, about 1 GB); range-Doppler geocoding
of that swath at 100 m on a flat DEM; sigma0 and map placement of the 5371 IW GRDH (26102 x 16705) at 100 m. The measurements of these samples are dummies: the timings are those of
real sizes, not of real content. Numbers depend on the machine's load.
"""
import glob
import os
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree as ET
from datetime import datetime

import numpy as np
from osgeo import gdal, osr
from scipy.interpolate import RBFInterpolator, RegularGridInterpolator
from scipy.ndimage import map_coordinates

gdal.UseExceptions()

DATA = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "shared", "data", "sentinel1")
SLC = "S1B_IW_SLC__1SDV_20210401T052622_20210401T052650_026269_032297_EFA4.SAFE"
SLC_STEM = "s1b-iw1-slc-vv-20210401t052624-20210401t052649-026269-032297-004"
GRD = "S1B_IW_GRDH_1SDV_20211223T051122_20211223T051147_030148_039993_5371.SAFE"
GRD_STEM = "s1b-iw-grd-vv-20211223t051122-20211223t051147-030148-039993-001"
RESOLUTION = 100.0
ROWS = 512


def timed(function):
    start = time.perf_counter()
    function()
    return time.perf_counter() - start


def run(command):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def report(case, ours, peer_name, peer):
    print("%s: ours %.2fs, %s %.2fs, ratio Y/X = %.2f" % (case, ours, peer_name, peer, peer / ours))


def utc(text):
    return datetime.fromisoformat(text).timestamp()


def numbers(element, tag):
    return np.array(element.find(tag).text.split(), dtype=float)


def peer_deburst(safe, out):
    """The same rule in numpy: valid lines per burst, cut at mid-overlap, invalid samples zeroed."""
    root = ET.parse(os.path.join(safe, "annotation", SLC_STEM + ".xml")).getroot()
    dt = float(root.find(".//azimuthTimeInterval").text)
    per_burst = int(root.find(".//linesPerBurst").text)
    samples = int(root.find(".//samplesPerBurst").text)
    bursts = root.findall(".//burst")
    t0 = utc(bursts[0].find("azimuthTime").text)
    spans = []
    for b in bursts:
        start = round((utc(b.find("azimuthTime").text) - t0) / dt)
        first = numbers(b, "firstValidSample").astype(int)
        valid = np.nonzero(first >= 0)[0]
        spans.append((int(start + valid[0]), int(start + valid[-1]), int(start)))
    begin = [spans[0][0]] + [0] * (len(spans) - 1)
    end = [0] * (len(spans) - 1) + [spans[-1][1]]
    for k in range(len(spans) - 1):
        low, high = spans[k + 1][0], spans[k][1]
        cut = max(low + (high - low + 1) // 2, low)
        end[k], begin[k + 1] = min(high, cut - 1), max(low, cut)
    lines = int(end[-1] - begin[0] + 1)
    source = gdal.Open(os.path.join(safe, "measurement", SLC_STEM + ".tiff"))
    src = source.GetRasterBand(1)
    dst = gdal.GetDriverByName("GTiff").Create(out, samples, lines, 1, gdal.GDT_CInt16, ["TILED=YES", "BIGTIFF=IF_SAFER"])
    band = dst.GetRasterBand(1)
    columns = np.arange(samples)[None, :]
    for k, b in enumerate(bursts):
        first = numbers(b, "firstValidSample").astype(int)
        last = numbers(b, "lastValidSample").astype(int)
        for y0 in range(begin[k], end[k] + 1, ROWS):
            n = min(ROWS, end[k] + 1 - y0)
            local = y0 - spans[k][2]
            block = src.ReadAsArray(0, k * per_burst + local, samples, n)
            f, l = first[local:local + n, None], last[local:local + n, None]
            block[(columns < f) | (columns > l) | (f < 0)] = 0
            band.WriteArray(block, 0, y0 - begin[0])
    dst = None


def lut_rows(root, list_tag, item_tag, value_tag):
    rows = []
    for v in root.iter(item_tag):
        rows.append((float(v.find("line").text), numbers(v, "pixel"), numbers(v, value_tag)))
    return rows


def interpolate_rows(rows, line, pixel):
    """Bilinear between vectors: np.interp along each vector's pixels, then linear in line."""
    lines = np.array([r[0] for r in rows])
    i = np.clip(np.searchsorted(lines, line, side="right") - 1, 0, len(rows) - 2)
    out = np.empty_like(line)
    for k in np.unique(i):
        m = i == k
        a = np.interp(pixel[m], rows[k][1], rows[k][2])
        b = np.interp(pixel[m], rows[k + 1][1], rows[k + 1][2])
        f = np.clip((line[m] - lines[k]) / (lines[k + 1] - lines[k]), 0, 1)
        out[m] = (1 - f) * a + f * b
    return out


def peer_grd(safe, out):
    """sigma0 = (DN^2 - noise) / A^2 and thin-plate-spline placement, with numpy and scipy."""
    annotation = ET.parse(os.path.join(safe, "annotation", GRD_STEM + ".xml")).getroot()
    calibration = ET.parse(os.path.join(safe, "annotation", "calibration", "calibration-" + GRD_STEM + ".xml")).getroot()
    noise = ET.parse(os.path.join(safe, "annotation", "calibration", "noise-" + GRD_STEM + ".xml")).getroot()
    points = [(float(p.find("latitude").text), float(p.find("longitude").text), float(p.find("line").text),
               float(p.find("pixel").text), float(p.find("height").text), float(p.find("incidenceAngle").text))
              for p in annotation.iter("geolocationGridPoint")]
    g = np.array(points)
    spacing = float(annotation.find(".//rangePixelSpacing").text)
    zone = int((g[:, 1].mean() + 180) // 6) + 1
    utm = osr.SpatialReference()
    utm.ImportFromEPSG(32600 + zone)
    wgs = osr.SpatialReference()
    wgs.ImportFromEPSG(4326)
    wgs.SetAxisMappingStrategy(osr.OAMS_TRADITIONAL_GIS_ORDER)
    xy = np.array(osr.CoordinateTransformation(wgs, utm).TransformPoints(np.c_[g[:, 1], g[:, 0]]))[:, :2]
    shift = g[:, 4] / np.tan(np.radians(g[:, 5])) / spacing
    spline = RBFInterpolator(xy, np.c_[g[:, 2], g[:, 3] + shift, g[:, 4], g[:, 5]], kernel="thin_plate_spline")
    x0 = np.floor(xy[:, 0].min() / RESOLUTION) * RESOLUTION
    y0 = np.ceil(xy[:, 1].max() / RESOLUTION) * RESOLUTION
    width = int(np.ceil((xy[:, 0].max() - x0) / RESOLUTION))
    height = int(np.ceil((y0 - xy[:, 1].min()) / RESOLUTION))
    step = 32
    ci, ri = np.arange(0, width + step, step), np.arange(0, height + step, step)
    cc, rr = np.meshgrid(ci, ri)
    nodes = spline(np.c_[x0 + (cc.ravel() + 0.5) * RESOLUTION, y0 - (rr.ravel() + 0.5) * RESOLUTION])
    rows_, cols_ = np.mgrid[0:height, 0:width]
    at = [rows_.ravel() / step, cols_.ravel() / step]
    line = map_coordinates(nodes[:, 0].reshape(cc.shape), at, order=1)
    pixel = (map_coordinates(nodes[:, 1].reshape(cc.shape), at, order=1) -
             map_coordinates(nodes[:, 2].reshape(cc.shape), at, order=1) /
             np.tan(np.radians(map_coordinates(nodes[:, 3].reshape(cc.shape), at, order=1))) / spacing)
    dn = gdal.Open(os.path.join(safe, "measurement", GRD_STEM + ".tiff")).ReadAsArray().astype(np.float32)
    lines, samples = dn.shape
    inside = (line >= -0.5) & (pixel >= -0.5) & (line <= lines - 0.5) & (pixel <= samples - 0.5)
    l, p = np.clip(line[inside], 0, lines - 1), np.clip(pixel[inside], 0, samples - 1)
    li, pi = np.minimum(l.astype(int), lines - 2), np.minimum(p.astype(int), samples - 2)
    fl, fp = l - li, p - pi
    sigma_rows = lut_rows(calibration, "calibrationVectorList", "calibrationVector", "sigmaNought")
    noise_rows = lut_rows(noise, "noiseRangeVectorList", "noiseRangeVector", "noiseRangeLut")
    blocks = [(int(b.find("firstAzimuthLine").text), int(b.find("lastAzimuthLine").text),
               int(b.find("firstRangeSample").text), int(b.find("lastRangeSample").text), numbers(b, "line"),
               numbers(b, "noiseAzimuthLut")) for b in noise.iter("noiseAzimuthVector")]
    value = np.zeros(l.shape)
    for dy in (0, 1):
        for dx in (0, 1):
            y, x = (li + dy).astype(float), (pi + dx).astype(float)
            azimuth = np.ones_like(y)
            for first_line, last_line, first_sample, last_sample, bl, lut in blocks:
                m = (y >= first_line) & (y <= last_line) & (x >= first_sample) & (x <= last_sample)
                azimuth[m] = np.interp(y[m], bl, lut)
            n = interpolate_rows(noise_rows, y, x) * azimuth
            a = interpolate_rows(sigma_rows, y, x)
            d = dn[li + dy, pi + dx].astype(float)
            value += (fl if dy else 1 - fl) * (fp if dx else 1 - fp) * np.maximum((d * d - n) / (a * a), 0)
    result = np.full(height * width, np.nan, dtype=np.float32)
    result[inside] = value
    dst = gdal.GetDriverByName("GTiff").Create(out, width, height, 1, gdal.GDT_Float32, ["TILED=YES", "COMPRESS=DEFLATE"])
    dst.SetGeoTransform((x0, RESOLUTION, 0, y0, 0, -RESOLUTION))
    dst.SetProjection(utm.ExportToWkt())
    dst.GetRasterBand(1).WriteArray(result.reshape(height, width))
    dst = None


def parameter_file(path):
    root = ET.parse(path).getroot()
    get = lambda key: float(root.find(key).text)
    vectors = np.array([[float(v.find(k).text) for k in ("xPosition", "yPosition", "zPosition", "xVelocity",
                                                            "yVelocity", "zVelocity")]
                        for v in root.iter("stateVector")])
    width = int(get("productInfo/imageDataInfo/numberOfColumns"))
    return dict(start=get("productInfo/sceneInfo/startTime"), dt=get("productInfo/sceneInfo/azimuthLineTime"),
                near=get("productInfo/sceneInfo/nearSlantRange"),
                spacing=(get("productInfo/sceneInfo/farSlantRange") - get("productInfo/sceneInfo/nearSlantRange")) /
                (width - 1), t0=get("orbitInfo/firstStateTime"), step=get("orbitInfo/stateVectorTimeSpacing"),
                vectors=vectors, lines=int(get("productInfo/imageDataInfo/numberOfRows")), width=width)


def peer_geocode(image, dem_height, grid_like, out):
    """Backward geocoding in numpy: map cell -> ECEF -> zero-Doppler time by Newton on 8-point Lagrange orbit
    interpolation -> (line, column) -> bilinear on the intensity, the whole image held in memory."""
    p = parameter_file(os.path.splitext(image)[0] + ".xml")
    grid = gdal.Open(grid_like)
    gt, width, height = grid.GetGeoTransform(), grid.RasterXSize, grid.RasterYSize
    utm = osr.SpatialReference(wkt=grid.GetProjection())
    wgs = osr.SpatialReference()
    wgs.ImportFromEPSG(4326)
    wgs.SetAxisMappingStrategy(osr.OAMS_TRADITIONAL_GIS_ORDER)
    rows, cols = np.mgrid[0:height, 0:width]
    xy = np.c_[gt[0] + (cols.ravel() + 0.5) * gt[1], gt[3] + (rows.ravel() + 0.5) * gt[5]]
    ll = np.array(osr.CoordinateTransformation(utm, wgs).TransformPoints(xy))
    lat, lon = np.radians(ll[:, 1]), np.radians(ll[:, 0])
    a, f = 6378137.0, 1 / 298.257223563
    e2 = f * (2 - f)
    n = a / np.sqrt(1 - e2 * np.sin(lat) ** 2)
    target = np.c_[(n + dem_height) * np.cos(lat) * np.cos(lon), (n + dem_height) * np.cos(lat) * np.sin(lon),
                   (n * (1 - e2) + dem_height) * np.sin(lat)]
    mid = p["start"] + 0.5 * p["lines"] * p["dt"]
    first = int(np.clip(round((mid - p["t0"]) / p["step"]) - 4, 0, len(p["vectors"]) - 8))
    nodes = p["t0"] + p["step"] * np.arange(first, first + 8)
    pos, vel = p["vectors"][first:first + 8, :3], p["vectors"][first:first + 8, 3:]

    def lagrange(t):
        w = np.ones((len(t), 8))
        dw = np.zeros((len(t), 8))
        for j in range(8):
            for k in range(8):
                if k != j:
                    dw[:, j] = dw[:, j] * (t - nodes[k]) / (nodes[j] - nodes[k]) + w[:, j] / (nodes[j] - nodes[k])
                    w[:, j] *= (t - nodes[k]) / (nodes[j] - nodes[k])
        return w @ pos, w @ vel, dw @ vel

    t = np.full(len(target), mid)
    for _ in range(6):
        s, v, acc = lagrange(t)
        d = target - s
        t -= np.einsum("ij,ij->i", v, d) / (np.einsum("ij,ij->i", acc, d) - np.einsum("ij,ij->i", v, v))
    s, _, _ = lagrange(t)
    line = (t - p["start"]) / p["dt"]
    column = (np.linalg.norm(target - s, axis=1) - p["near"]) / p["spacing"]
    data = gdal.Open(image).ReadAsArray()
    intensity = (data.real.astype(np.float32) ** 2 + data.imag.astype(np.float32) ** 2)
    del data
    inside = (line >= -0.5) & (column >= -0.5) & (line <= p["lines"] - 0.5) & (column <= p["width"] - 0.5)
    values = np.full(len(line), np.nan, dtype=np.float32)
    values[inside] = map_coordinates(intensity, [line[inside], column[inside]], order=1, mode="nearest")
    dst = gdal.GetDriverByName("GTiff").Create(out, width, height, 1, gdal.GDT_Float32, ["TILED=YES", "COMPRESS=DEFLATE"])
    dst.SetGeoTransform(gt)
    dst.SetProjection(grid.GetProjection())
    dst.GetRasterBand(1).WriteArray(values.reshape(height, width))
    dst = None
    return line, column


FOOTPRINT_META = """<product><satellite>GF3</satellite><productID>1</productID><imageinfo><corner>
<topLeft><latitude>31.2</latitude><longitude>103.2</longitude></topLeft><topRight><latitude>31.2</latitude><longitude>103.8</longitude></topRight>
<bottomRight><latitude>30.8</latitude><longitude>103.8</longitude></bottomRight><bottomLeft><latitude>30.8</latitude><longitude>103.2</longitude></bottomLeft>
</corner></imageinfo></product>
"""


def footprint_product(folder, width=6000, height=4000):
    """A GF-3-like image: valid data inside a parallelogram, zeros around it, and a linear RPC beside it."""
    image = os.path.join(folder, "GF3_TEST_L10000000001.tiff")
    ds = gdal.GetDriverByName("GTiff").Create(image, width, height, 1, gdal.GDT_CInt16, ["TILED=YES"])
    corners = np.array([[0.15, 0.07], [0.95, 0.17], [0.85, 0.93], [0.05, 0.83]]) * [width, height]
    band = ds.GetRasterBand(1)
    x = np.arange(width) + 0.5
    for top in range(0, height, 512):
        y = np.arange(top, min(height, top + 512))[:, None] + 0.5
        inside = np.ones((len(y), width), bool)
        for i in range(4):
            (ax, ay), (bx, by) = corners[i], corners[(i + 1) % 4]
            inside &= (bx - ax) * (y - ay) - (by - ay) * (x - ax) >= 0
        band.WriteArray((inside * (100 + 7j)).astype(np.complex64), 0, top)
    ds = None
    coefficients = lambda values: "(\n" + ",\n".join("\t\t\t%r" % v for v in values) + ");"
    one, sample, line = [1.0] + [0.0] * 19, [0.0, 1.0] + [0.0] * 18, [0.0, 0.1, -1.0] + [0.0] * 17
    with open(image[:-5] + ".rpb", "w") as f:
        f.write("satId = \"GF3\";\nbandId = \"P\";\nSpecId = \"RPC00B\";\nBEGIN_GROUP = IMAGE\n"
                "\terrBias = 1.0;\n\terrRand = 0.0;\n\tlineOffset = %d;\n\tsampOffset = %d;\n\tlatOffset = 31;\n"
                "\tlongOffset = 103.5;\n\theightOffset = 500;\n\tlineScale = %d;\n\tsampScale = %d;\n"
                "\tlatScale = 0.2;\n\tlongScale = 0.3;\n\theightScale = 500;\n"
                "\tlineNumCoef = %s\n\tlineDenCoef = %s\n\tsampNumCoef = %s\n\tsampDenCoef = %s\n"
                "END_GROUP = IMAGE\nEND;\n" % (height // 2, width // 2, height // 2, width // 2, coefficients(line),
                                                 coefficients(one), coefficients(sample), coefficients(one)))
    meta = os.path.join(folder, "GF3_TEST_L10000000001.meta.xml")
    with open(meta, "w") as f:
        f.write(FOOTPRINT_META)
    return meta, image


def peer_footprint(image, side=1024):
    """GDAL from Python: decimated mask, gdal.Polygonize, largest ring through the RPC transformer, simplified."""
    from osgeo import ogr
    ds = gdal.Open(image)
    factor = max(1, -(-max(ds.RasterXSize, ds.RasterYSize) // side))
    w, h = -(-ds.RasterXSize // factor), -(-ds.RasterYSize // factor)
    data = ds.GetRasterBand(1).ReadAsArray(buf_xsize=w, buf_ysize=h)
    mask_ds = gdal.GetDriverByName("MEM").Create("", w, h, 1, gdal.GDT_Byte)
    mask_ds.GetRasterBand(1).WriteArray((data != 0).astype(np.uint8))
    source = ogr.GetDriverByName("Memory").CreateDataSource("")
    layer = source.CreateLayer("m", geom_type=ogr.wkbPolygon)
    layer.CreateField(ogr.FieldDefn("v", ogr.OFTInteger))
    gdal.Polygonize(mask_ds.GetRasterBand(1), mask_ds.GetRasterBand(1), layer, 0)
    largest = None
    for feature in layer:
        geometry = feature.GetGeometryRef().Clone()
        if largest is None or geometry.GetArea() > largest.GetArea():
            largest = geometry
    ring = largest.GetGeometryRef(0).Clone()
    ring = ogr.CreateGeometryFromWkt(ring.ExportToWkt().replace("LINEARRING", "LINESTRING")).SimplifyPreserveTopology(0.75)
    sx, sy = ds.RasterXSize / w, ds.RasterYSize / h
    transformer = gdal.Transformer(ds, None, ["METHOD=RPC", "RPC_HEIGHT=500"])
    points, _ = transformer.TransformPoints(0, [(x * sx, y * sy, 500.0) for x, y in ring.GetPoints()])
    polygon = ogr.CreateGeometryFromWkt("POLYGON((%s))" % ",".join("%r %r" % (p[0], p[1]) for p in points))
    return polygon.GetArea()


def otb(case, command):
    """Orfeo ToolBox on the same product; reports its refusal when it cannot read it."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if done.returncode != 0:
        fatal = [line for line in done.stdout.splitlines() if "FATAL" in line]
        print("%s: Orfeo ToolBox could not run (%s)" % (case, fatal[-1].strip() if fatal else "exit %d" % done.returncode))
        return None
    return True


def main():
    build = sys.argv[1] if len(sys.argv) > 1 else "build"
    host = os.path.join(build, "bin", "algofactory")
    with tempfile.TemporaryDirectory() as tmp:
        case = "GF-3 footprint through RPC, 6000x4000 CInt16"
        meta, image = footprint_product(tmp)
        shp = os.path.join(tmp, "footprint.shp")
        ours = timed(lambda: run([host, "call", "GF3_ContourShp", meta, shp]))
        areas = []
        peer = timed(lambda: areas.append(peer_footprint(image)))
        report(case, ours, "GDAL from Python", peer)
        from osgeo import ogr
        written = ogr.Open(shp)
        feature = written.GetLayer(0).GetNextFeature()
        ours_area = feature.GetGeometryRef().GetArea()
        print("%s: area ours %.6f, peer %.6f square degrees (relative difference %.2g)"
              % (case, ours_area, areas[0], abs(ours_area - areas[0]) / areas[0]))
    slc, grd = os.path.join(DATA, SLC), os.path.join(DATA, GRD)
    if not os.path.isdir(slc) or not os.path.isdir(grd):
        print("../shared/data/sentinel1 is not available")
        return
    with tempfile.TemporaryDirectory() as tmp:
        case = "deburst IW1 VV 21632x12199 CInt16"
        ours = timed(lambda: run([host, "call", "S1_TOPS_SLCDataImport", slc, os.path.join(tmp, "ours"), "IW1", "VV"]))
        peer = timed(lambda: peer_deburst(slc, os.path.join(tmp, "numpy_deburst.tif")))
        report(case, ours, "numpy", peer)
        start = time.perf_counter()
        if otb(case, ["otbcli_SARDeburst", "-in", glob.glob(os.path.join(slc, "measurement", SLC_STEM + "*"))[0],
                      "-out", os.path.join(tmp, "otb_deburst.tif")]):
            report(case, ours, "otbcli_SARDeburst", time.perf_counter() - start)
        os.remove(os.path.join(tmp, "numpy_deburst.tif"))

        case = "geocode IW1 VV 21632x12199 at 100 m, flat DEM"
        imported = os.path.join(tmp, "ours", SLC_STEM + ".tif")
        dem = os.path.join(tmp, "dem.tif")
        gdal.Translate(dem, gdal.GetDriverByName("MEM").Create("", 700, 700, 1, gdal.GDT_Int16),
                       outputBounds=[10.5, 47.5, 12.8, 45.3], outputSRS="EPSG:4326")
        ds = gdal.Open(dem, gdal.GA_Update)
        ds.GetRasterBand(1).Fill(1000)
        ds = None
        ours = timed(lambda: run([host, "call", "Batch_SARGeocode", imported, dem, os.path.join(tmp, "geo"),
                                  str(RESOLUTION)]))
        ours_geo = os.path.join(tmp, "geo", SLC_STEM + "_geo.tif")
        peer = timed(lambda: peer_geocode(imported, 1000.0, ours_geo, os.path.join(tmp, "numpy_geo.tif")))
        report(case, ours, "numpy+scipy", peer)
        a = gdal.Open(ours_geo).ReadAsArray()
        b = gdal.Open(os.path.join(tmp, "numpy_geo.tif")).ReadAsArray()
        both = np.isfinite(a) & np.isfinite(b)
        print("%s: cells valid in both %d, largest difference %.3g" % (case, both.sum(), np.abs(a - b)[both].max()))
        for f in glob.glob(os.path.join(tmp, "ours", "*")) + glob.glob(os.path.join(tmp, "*.tif")):
            os.remove(f)

        case = "GRD sigma0 + map at 100 m (26102x16705 in)"
        ours = timed(lambda: run([host, "call", "Batch_S1_GRD_FastOrthoCorrection", grd, "", os.path.join(tmp, "grd"),
                                  str(RESOLUTION)]))
        peer = timed(lambda: peer_grd(grd, os.path.join(tmp, "numpy_grd.tif")))
        report(case, ours, "numpy+scipy", peer)
        start = time.perf_counter()
        if otb(case, ["otbcli_SARCalibration", "-in", glob.glob(os.path.join(grd, "measurement", GRD_STEM + "*"))[0],
                      "-noise", "1", "-out", os.path.join(tmp, "otb_sigma0.tif")]) and \
                otb(case, ["otbcli_OrthoRectification", "-io.in", os.path.join(tmp, "otb_sigma0.tif"), "-io.out",
                           os.path.join(tmp, "otb_ortho.tif"), "-outputs.spacingx", str(RESOLUTION),
                           "-outputs.spacingy", str(-RESOLUTION)]):
            report(case, ours, "otbcli_SARCalibration+OrthoRectification", time.perf_counter() - start)


if __name__ == "__main__":
    main()
