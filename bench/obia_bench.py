#!/usr/bin/env python3
"""Object-based classification and change detection side by side, in one run on the same data:
- segmentation of RGB.byte.tif tiled to SEG_SIZE x SEG_SIZE: ours (MSS_Segment through the command-line host,
  reading and writing included) against otbcli_LargeScaleMeanShift (raster mode) and scikit-image felzenszwalb
  (reading with GDAL and writing a GeoTIFF included), parameters chosen for comparable segment counts;
- segmentation quality on a synthetic parcel image (rectangles of known extent, 3 bands, noise): area-weighted
  over-segmentation (1 - largest share of a parcel in one segment) and under-segmentation (1 - largest share of a
  segment in one parcel) of each tool;
- change detection of two CD_SIZE x CD_SIZE 4-band dates with planted changes: ours (ChangeDetectionRaster,
  IR-MAD, automatic threshold) against otbcli_MultivariateAlterationDetector (MAD variates only);
- training and whole-image classification with random forests (100 trees): ours (MSS_Classify on the parcel
  image's segments, training, 5-fold cross-validation, classification and polygons included) against
  otbcli_TrainImagesClassifier + otbcli_ImageClassifier (pixel-based, same polygons).

Usage: obia_bench.py [BUILD_DIR] [SEG_SIZE]   (defaults "build", 2048; the issue's full size is 8192)
Run it with a Python that has numpy, GDAL and scikit-image (Debian: /usr/bin/python3).
"""
import os
import subprocess
import sys
import tempfile
import time

import numpy as np
from osgeo import gdal, ogr, osr

CD_SIZE, CD_BANDS = 2048, 4
PARCEL_SIZE, PARCEL_STEP = 1024, 64
ENV = dict(os.environ, QT_QPA_PLATFORM="offscreen", OTB_LOGGER_LEVEL="WARNING")
HERE = os.path.dirname(os.path.abspath(__file__))


def tiled_rgb(path, size):
    source = os.path.join(HERE, "..", "data", "samples", "RGB.byte.tif")
    data = gdal.Open(source).ReadAsArray()
    reps = (1, size // data.shape[1] + 1, size // data.shape[2] + 1)
    tiled = np.tile(data, reps)[:, :size, :size]
    out = gdal.GetDriverByName("GTiff").Create(path, size, size, 3, gdal.GDT_Byte, ["TILED=YES"])
    out.SetGeoTransform((0, 1, 0, 0, 0, -1))
    for b in range(3):
        out.GetRasterBand(b + 1).WriteArray(tiled[b])
    out = None


def parcels(path, samples_path):
    """Rectangles of uneven sizes on a 64-pixel grid (some merged in pairs), 3 classes of spectra, noise."""
    rng = np.random.default_rng(3)
    cells = PARCEL_SIZE // PARCEL_STEP
    ids = np.arange(cells * cells).reshape(cells, cells)
    ids[:, 1::4] = ids[:, 0::4]  # wider parcels every fourth column
    truth = np.repeat(np.repeat(ids, PARCEL_STEP, 0), PARCEL_STEP, 1)
    classes = rng.integers(0, 3, ids.max() + 1)
    spectra = np.array([[40, 90, 30], [120, 60, 140], [200, 180, 90]], float)
    levels = spectra[classes] + rng.normal(0, 12, (ids.max() + 1, 3))
    image = levels[truth].transpose(2, 0, 1) + rng.normal(0, 6, (3, PARCEL_SIZE, PARCEL_SIZE))
    out = gdal.GetDriverByName("GTiff").Create(path, PARCEL_SIZE, PARCEL_SIZE, 3, gdal.GDT_Byte, ["TILED=YES"])
    out.SetGeoTransform((500000, 10, 0, 4000000, 0, -10))
    srs = osr.SpatialReference()
    srs.ImportFromEPSG(32650)
    out.SetProjection(srs.ExportToWkt())
    for b in range(3):
        out.GetRasterBand(b + 1).WriteArray(np.clip(image[b], 0, 255).astype(np.uint8))
    out = None
    # Training polygons inside a quarter of the parcels.
    vector = ogr.GetDriverByName("GPKG").CreateDataSource(samples_path)
    layer = vector.CreateLayer("samples", srs, ogr.wkbPolygon)
    layer.CreateField(ogr.FieldDefn("cls", ogr.OFTInteger))
    for j in range(cells):
        for i in range(0, cells, 4):
            x0, y0 = 500000 + 10 * (i * PARCEL_STEP + 8), 4000000 - 10 * (j * PARCEL_STEP + 8)
            x1, y1 = x0 + 10 * (PARCEL_STEP - 16), y0 - 10 * (PARCEL_STEP - 16)
            ring = ogr.Geometry(ogr.wkbLinearRing)
            for x, y in ((x0, y0), (x1, y0), (x1, y1), (x0, y1), (x0, y0)):
                ring.AddPoint_2D(x, y)
            polygon = ogr.Geometry(ogr.wkbPolygon)
            polygon.AddGeometry(ring)
            feature = ogr.Feature(layer.GetLayerDefn())
            feature.SetGeometry(polygon)
            feature.SetField("cls", int(classes[ids[j, i]]) + 1)
            layer.CreateFeature(feature)
    vector = None
    return truth


def dates(before, after):
    rng = np.random.default_rng(8)
    base = rng.normal(0, 1, (CD_SIZE // 16, CD_SIZE // 16))
    smooth = np.kron(base, np.ones((16, 16)))
    for path, seed in ((before, 0), (after, 1)):
        noise = np.random.default_rng(seed + 20)
        out = gdal.GetDriverByName("GTiff").Create(path, CD_SIZE, CD_SIZE, CD_BANDS, gdal.GDT_Float32, ["TILED=YES"])
        out.SetGeoTransform((0, 1, 0, 0, 0, -1))
        for b in range(CD_BANDS):
            values = 300 + 80 * smooth * (b + 1) + noise.normal(0, 5, (CD_SIZE, CD_SIZE))
            if seed:
                values = 1.3 * values + 20  # gain and offset between dates
                for k in range(20):
                    y, x = 100 * k % (CD_SIZE - 40), 97 * k * 7 % (CD_SIZE - 40)
                    values[y:y + 32, x:x + 32] += 150
            out.GetRasterBand(b + 1).WriteArray(values.astype(np.float32))
        out = None


def timed(command):
    start = time.perf_counter()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=ENV)
    return time.perf_counter() - start


def felzenszwalb(image, out, scale, min_size):
    from skimage.segmentation import felzenszwalb as segment
    start = time.perf_counter()
    data = gdal.Open(image).ReadAsArray().transpose(1, 2, 0)
    labels = segment(data, scale=scale, sigma=0.5, min_size=min_size) + 1
    target = gdal.GetDriverByName("GTiff").Create(out, labels.shape[1], labels.shape[0], 1, gdal.GDT_UInt32, ["TILED=YES"])
    target.GetRasterBand(1).WriteArray(labels)
    target = None
    return time.perf_counter() - start


def segment_count(path):
    return len(np.unique(gdal.Open(path).ReadAsArray()))


def errors(labels, truth):
    """Area-weighted over- and under-segmentation against the known parcels."""
    pairs = truth.astype(np.int64) * (int(labels.max()) + 1) + labels
    _, pair_index, overlap = np.unique(pairs.ravel(), return_index=True, return_counts=True)
    parcel = truth.ravel()[pair_index]
    segment = labels.ravel()[pair_index]
    best_parcel = np.zeros(truth.max() + 1)
    np.maximum.at(best_parcel, parcel, overlap)
    best_segment = np.zeros(labels.max() + 1)
    np.maximum.at(best_segment, segment, overlap)
    total = truth.size
    return (total - best_parcel.sum()) / total, (total - best_segment.sum()) / total


def line(case, ours, name, theirs):
    print(f"{case}: ours {ours:.2f}s, {name} {theirs:.2f}s, ratio Y/X = {theirs / ours:.2f}")


def main():
    build = sys.argv[1] if len(sys.argv) > 1 else "build"
    size = int(sys.argv[2]) if len(sys.argv) > 2 else 2048
    host = os.path.join(build, "bin", "algofactory")
    with tempfile.TemporaryDirectory() as folder:
        path = lambda name: os.path.join(folder, name)
        tiled_rgb(path("rgb.tif"), size)
        ours = timed([host, "call", "MSS_Segment", path("rgb.tif"), path("ours.tif"), "25", "0.1", "20", "0.5", "0", "1", "0", "0"])
        otb = timed(["otbcli_LargeScaleMeanShift", "-in", path("rgb.tif"), "-spatialr", "5", "-ranger", "15", "-minsize", "20",
                     "-tilesizex", "512", "-tilesizey", "512", "-mode", "raster", "-mode.raster.out", path("otb.tif"), "uint32"])
        sk = felzenszwalb(path("rgb.tif"), path("felz.tif"), 100, 20)
        case = f"segmentation RGB.byte tiled {size}x{size}"
        print(f"{case}: segments ours {segment_count(path('ours.tif'))}, LargeScaleMeanShift {segment_count(path('otb.tif'))}, "
              f"felzenszwalb {segment_count(path('felz.tif'))}")
        line(case, ours, "otbcli_LargeScaleMeanShift", otb)
        line(case, ours, "skimage felzenszwalb", sk)

        truth = parcels(path("parcels.tif"), path("samples.gpkg"))
        timed([host, "call", "MSS_Segment", path("parcels.tif"), path("p_ours.tif"), "60", "0.1", "50", "0.5", "0", "1", "0", "0"])
        timed(["otbcli_LargeScaleMeanShift", "-in", path("parcels.tif"), "-spatialr", "5", "-ranger", "30", "-minsize", "50",
               "-tilesizex", "512", "-tilesizey", "512", "-mode", "raster", "-mode.raster.out", path("p_otb.tif"), "uint32"])
        felzenszwalb(path("parcels.tif"), path("p_felz.tif"), 400, 50)
        for name, file in (("ours", "p_ours.tif"), ("LargeScaleMeanShift", "p_otb.tif"), ("felzenszwalb", "p_felz.tif")):
            labels = gdal.Open(path(file)).ReadAsArray().astype(np.int64)
            over, under = errors(labels, truth)
            print(f"parcels {PARCEL_SIZE}x{PARCEL_SIZE} quality {name}: segments {len(np.unique(labels))} "
                  f"(parcels {len(np.unique(truth))}), over-segmentation {over:.4f}, under-segmentation {under:.4f}")

        dates(path("t1.tif"), path("t2.tif"))
        ours = timed([host, "call", "ChangeDetectionRaster", path("t1.tif"), path("t2.tif"), path("change.tif"), "0", "4", "0", "", ""])
        otb = timed(["otbcli_MultivariateAlterationDetector", "-in1", path("t1.tif"), "-in2", path("t2.tif"), "-out", path("mad.tif")])
        line(f"change detection {CD_SIZE}x{CD_SIZE}x{CD_BANDS} IR-MAD (ours: fit, magnitude, map) vs MAD", ours,
             "otbcli_MultivariateAlterationDetector", otb)

        gdal.Translate(path("p_ours_labels.tif"), path("p_ours.tif"))
        dataset = gdal.Open(path("p_ours_labels.tif"), gdal.GA_Update)
        dataset.SetMetadataItem("SEGMENT_IMAGE", path("parcels.tif"))
        dataset = None
        ours = timed([host, "call", "MSS_Classify", path("parcels.tif"), path("p_ours_labels.tif"), path("samples.gpkg"),
                      path("classes.tif"), "cls", "", "RF", "", "trees=100"])
        start = time.perf_counter()
        subprocess.run(["otbcli_TrainImagesClassifier", "-io.il", path("parcels.tif"), "-io.vd", path("samples.gpkg"),
                        "-io.out", path("rf.txt"), "-sample.vfn", "cls", "-classifier", "rf", "-classifier.rf.nbtrees", "100",
                        "-classifier.rf.max", "12", "-rand", "1"], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=ENV)
        subprocess.run(["otbcli_ImageClassifier", "-in", path("parcels.tif"), "-model", path("rf.txt"), "-out", path("otb_classes.tif")],
                       check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=ENV)
        otb = time.perf_counter() - start
        line(f"random forest training and classification {PARCEL_SIZE}x{PARCEL_SIZE}", ours,
             "otbcli_TrainImagesClassifier + ImageClassifier", otb)


if __name__ == "__main__":
    main()
