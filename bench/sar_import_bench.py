#!/usr/bin/python3
"""Radar imports through the algofactory host against the block-wise GDAL/numpy script a user would write.

Usage: sar_import_bench.py [BUILD_DIR]   (default "build"; the host is BUILD_DIR/bin/algofactory)
Prints one line per case: "<case>: ours X.XXs, <peer> Y.YYs, ratio Y/X = R.RR".
The peer converts the same samples to the same complex type but writes no SAR parameter file.
"""
import os
import subprocess
import sys
import tempfile
import time

import numpy as np
from osgeo import gdal

gdal.UseExceptions()

GF3_SIZE = (6000, 4000)   # samples x lines per channel, two channels (HH, HV)
CSK_SIZE = (6000, 6000)
ROWS = 512
PRODUCT = "GF3_KAS_FSI_014480_E103.4_N31.0_20190511_L1A_%s_L10003992720"

META = """<?xml version="1.0" encoding="UTF-8"?>
<product><segmentID>1</segmentID><sceneID>2</sceneID><satellite>GF3</satellite><Direction>DEC</Direction>
<sensor><imagingMode>FSI</imagingMode><lamda>0.055517</lamda><RadarCenterFrequency>5.4</RadarCenterFrequency>
<lookDirection>R</lookDirection></sensor>
<platform><CenterTime>2019-05-11 22:33:44.500000</CenterTime><satVelocity>7545.5</satVelocity></platform>
<GPS>{gps}</GPS>
<productinfo><productType>SLC</productType><productPolarization>HHHV</productPolarization></productinfo>
<imageinfo><imagingTime><start>2019-05-11 22:33:40.000000</start><end>2019-05-11 22:33:49.000000</end></imagingTime>
<nearRange>950000</nearRange><eqvFs>66.6</eqvFs><eqvPRF>2000</eqvPRF>
<center><latitude>31</latitude><longitude>103.4</longitude></center><corner>
<topLeft><latitude>31.2</latitude><longitude>103.2</longitude></topLeft>
<topRight><latitude>31.2</latitude><longitude>103.6</longitude></topRight>
<bottomLeft><latitude>30.8</latitude><longitude>103.2</longitude></bottomLeft>
<bottomRight><latitude>30.8</latitude><longitude>103.6</longitude></bottomRight></corner></imageinfo>
<processinfo><incidenceAngleNearRange>20</incidenceAngleNearRange><incidenceAngleFarRange>22</incidenceAngleFarRange>
</processinfo></product>
"""


def timed(command):
    start = time.perf_counter()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    return time.perf_counter() - start


def samples(width, y0, rows, part):
    x = np.arange(width, dtype=np.int32)[None, :]
    y = np.arange(y0, y0 + rows, dtype=np.int32)[:, None]
    return (((x * 7 + y * 13) % 4001) - 2000 + part * 17).astype(np.int16)


def make_gf3(folder):
    gps = "".join(
        "<GPSParam><TimeStamp>2019-05-11 22:33:%02d.000000</TimeStamp><xPosition>%f</xPosition>"
        "<yPosition>4740000</yPosition><zPosition>3260000</zPosition><xVelocity>-1500</xVelocity>"
        "<yVelocity>3000</yVelocity><zVelocity>-6700</zVelocity></GPSParam>" % (i * 10, -2790000 + 1000 * i)
        for i in range(6))
    meta = os.path.join(folder, PRODUCT % "HHHV" + ".meta.xml")
    with open(meta, "w") as f:
        f.write(META.format(gps=gps))
    width, height = GF3_SIZE
    for channel in ("HH", "HV"):
        ds = gdal.GetDriverByName("GTiff").Create(os.path.join(folder, PRODUCT % channel + ".tiff"), width, height,
                                                   2, gdal.GDT_Int16, ["TILED=YES"])
        for y0 in range(0, height, ROWS):
            n = min(ROWS, height - y0)
            for part in range(2):
                ds.GetRasterBand(part + 1).WriteArray(samples(width, y0, n, part), 0, y0)
        ds = None
    return meta


def make_csk(path):
    width, height = CSK_SIZE
    ds = gdal.GetDriverByName("netCDF").CreateMultiDimensional(path, [], ["FORMAT=NC4"])
    root = ds.GetRootGroup()
    double = gdal.ExtendedDataType.Create(gdal.GDT_Float64)

    def attribute(owner, name, values):
        if isinstance(values, str):
            owner.CreateAttribute(name, [], gdal.ExtendedDataType.CreateString()).Write(values)
        else:
            owner.CreateAttribute(name, [len(values)], double).Write(values)

    attribute(root, "Reference UTC", "2010-01-01 00:00:00.000000000")
    attribute(root, "Radar Wavelength", [0.0312283810416])
    attribute(root, "State Vectors Times", [0.0, 10.0, 20.0])
    attribute(root, "ECEF Satellite Position", [4.1e6, 1.1e6, 5.5e6, 4.2e6, 1.2e6, 5.4e6, 4.3e6, 1.3e6, 5.3e6])
    attribute(root, "ECEF Satellite Velocity", [1.0, 2.0, 3.0] * 3)
    group = root.CreateGroup("S01")
    group.CreateGroup("B001")
    attribute(group, "PRF", [3000.0])
    dims = [group.CreateDimension(name, None, None, size)
            for name, size in (("lines", height), ("samples", width), ("parts", 2))]
    image = group.CreateMDArray("SBI", dims, gdal.ExtendedDataType.Create(gdal.GDT_Int16))
    for y0 in range(0, height, ROWS):
        n = min(ROWS, height - y0)
        block = np.stack([samples(width, y0, n, 0), samples(width, y0, n, 1)], axis=-1)
        image.Write(block, array_start_idx=[y0, 0, 0], count=[n, width, 2])
    attribute(image, "Line Time Interval", [3.3e-4])
    attribute(image, "Zero Doppler Azimuth First Time", [36000.0])
    attribute(image, "Zero Doppler Range First Time", [0.0052])
    attribute(image, "Column Spacing", [1.33])
    ds = None


def peer_gf3(meta, out_folder):
    """Per channel: read I and Q in row blocks, write one CInt16 band."""
    folder = os.path.dirname(meta)
    for channel in ("HH", "HV"):
        src = gdal.Open(os.path.join(folder, PRODUCT % channel + ".tiff"))
        width, height = src.RasterXSize, src.RasterYSize
        dst = gdal.GetDriverByName("GTiff").Create(os.path.join(out_folder, channel + ".tif"), width, height, 1,
                                                   gdal.GDT_CInt16, ["TILED=YES"])
        for y0 in range(0, height, ROWS):
            n = min(ROWS, height - y0)
            i = src.GetRasterBand(1).ReadAsArray(0, y0, width, n).astype(np.float32)
            q = src.GetRasterBand(2).ReadAsArray(0, y0, width, n).astype(np.float32)
            dst.GetRasterBand(1).WriteArray(i + 1j * q, 0, y0)
        dst = None


def peer_csk(path, out):
    """Read SBI in row blocks with GDAL's multidimensional API, write one CFloat32 ENVI band."""
    image = gdal.OpenEx(path, gdal.OF_MULTIDIM_RASTER).GetRootGroup().OpenGroup("S01").OpenMDArray("SBI")
    height, width = image.GetDimensions()[0].GetSize(), image.GetDimensions()[1].GetSize()
    dst = gdal.GetDriverByName("ENVI").Create(out, width, height, 1, gdal.GDT_CFloat32)
    for y0 in range(0, height, ROWS):
        n = min(ROWS, height - y0)
        block = image.ReadAsArray(array_start_idx=[y0, 0, 0], count=[n, width, 2]).astype(np.float32)
        dst.GetRasterBand(1).WriteArray(block[..., 0] + 1j * block[..., 1], 0, y0)
    dst = None


def report(case, ours, peer_name, peer):
    print("%s: ours %.2fs, %s %.2fs, ratio Y/X = %.2f" % (case, ours, peer_name, peer, peer / ours))


def main():
    build = sys.argv[1] if len(sys.argv) > 1 else "build"
    host = os.path.join(build, "bin", "algofactory")
    with tempfile.TemporaryDirectory() as tmp:
        meta = make_gf3(tmp)
        for name in ("ours", "peer"):
            os.mkdir(os.path.join(tmp, name))
        ours = timed([host, "call", "ExcuteAlgo_GF3_Strip_SLCDataImport", meta, "HHHV", "GF3_ImageDate", "",
                      os.path.join(tmp, "ours"), "GTiff"])
        start = time.perf_counter()
        peer_gf3(meta, os.path.join(tmp, "peer"))
        report("GF-3 FSI HH+HV %dx%d to CInt16 GTiff" % GF3_SIZE, ours, "gdal+numpy", time.perf_counter() - start)

        h5 = os.path.join(tmp, "csk.h5")
        make_csk(h5)
        ours = timed([host, "call", "ExcuteAlgo_InSAR_CSK_SLCImport", h5, os.path.join(tmp, "ours", "csk.img")])
        start = time.perf_counter()
        peer_csk(h5, os.path.join(tmp, "peer", "csk.img"))
        report("CSK SLC %dx%d to CFloat32 ENVI" % CSK_SIZE, ours, "gdal-mdim+numpy", time.perf_counter() - start)


if __name__ == "__main__":
    main()
