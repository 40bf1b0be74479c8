#!/usr/bin/env python3
"""Writes the hostile-input corpus into the folder given as the only argument: broken rasters, rasters whose header
claims more than any file could hold, rasters without bands, folders where files belong, and a good raster and
archive under names that break careless shell commands. One line per input goes to <folder>/inputs.txt:
<kind><TAB><path relative to the folder>."""
import os
import struct
import sys
import zipfile

from osgeo import gdal

MARKER = "injected_marker"  # a name that an injected command would create in the working folder


def good_tiff(path, width=16, height=12, bands=2):
    ds = gdal.GetDriverByName("GTiff").Create(path, width, height, bands, gdal.GDT_Byte)
    ds.SetGeoTransform([100.0, 1.0, 0.0, 200.0, 0.0, -1.0])
    ds.SetProjection('GEOGCS["WGS 84",DATUM["WGS_1984",SPHEROID["WGS 84",6378137,298.257223563]],'
                     'PRIMEM["Greenwich",0],UNIT["degree",0.0174532925199433]]')
    for b in range(bands):
        band = ds.GetRasterBand(b + 1)
        band.WriteRaster(0, 0, width, height, bytes((x * 7 + b * 40) % 251 for x in range(width * height)))
    ds = None


def huge_tiff(path, size=10**9):
    """A little-endian TIFF whose tags claim size x size bytes in one strip of 16 bytes."""
    entries = [
        (256, 4, 1, size),        # ImageWidth
        (257, 4, 1, size),        # ImageLength
        (258, 3, 1, 8),           # BitsPerSample
        (259, 3, 1, 1),           # Compression: none
        (262, 3, 1, 1),           # Photometric: black is zero
        (273, 4, 1, 8),           # StripOffsets
        (277, 3, 1, 1),           # SamplesPerPixel
        (278, 4, 1, size),        # RowsPerStrip
        (279, 4, 1, 16),          # StripByteCounts
    ]
    ifd_offset = 8 + 16
    data = b"II*\x00" + struct.pack("<I", ifd_offset) + bytes(16)
    data += struct.pack("<H", len(entries))
    for tag, kind, count, value in entries:
        packed = struct.pack("<HHI", tag, kind, count)
        packed += struct.pack("<HH", value, 0) if kind == 3 else struct.pack("<I", value)
        data += packed
    data += struct.pack("<I", 0)
    with open(path, "wb") as f:
        f.write(data)


def netcdf_name(text):
    raw = text.encode()
    return struct.pack(">i", len(raw)) + raw + b"\0" * ((4 - len(raw) % 4) % 4)


def zero_band_netcdf(path, width=16, height=12):
    """A classic netCDF file with two 2-D variables: GDAL opens it with no band and two subdatasets."""
    dims = [("y", height), ("x", width)]
    names = ["first", "second"]
    size = width * height
    head = b"CDF\x01" + struct.pack(">i", 0)
    head += struct.pack(">ii", 10, len(dims)) + b"".join(netcdf_name(n) + struct.pack(">i", l) for n, l in dims)
    head += struct.pack(">ii", 0, 0)  # no global attributes
    begin = len(head) + 8 + sum(len(netcdf_name(n)) + 32 for n in names)
    variables = b""
    for i, n in enumerate(names):
        # two dimensions (0, 1), no attributes, NC_BYTE, size, offset of the data
        variables += netcdf_name(n) + struct.pack(">iii", 2, 0, 1) + struct.pack(">ii", 0, 0)
        variables += struct.pack(">iii", 1, size, begin + i * size)
    head += struct.pack(">ii", 11, len(names)) + variables
    with open(path, "wb") as f:
        f.write(head + bytes(size * len(names)))


def main(folder):
    os.makedirs(folder, exist_ok=True)
    inputs = []

    def add(kind, name):
        inputs.append((kind, name))
        return os.path.join(folder, name)

    reference = os.path.join(folder, "reference.tif")
    good_tiff(reference)
    with open(reference, "rb") as f:
        whole = f.read()

    with open(add("zero-byte", "zero_byte.tif"), "wb"):
        pass
    with open(add("truncated-header", "truncated_header.tif"), "wb") as f:
        f.write(whole[:100])
    with open(add("truncated-data", "truncated_data.tif"), "wb") as f:
        f.write(whole[: len(whole) * 2 // 3])
    with open(add("wrong-extension", "text_named.tif"), "w") as f:
        f.write("this is a text file, not a raster\n")
    gdal.GetDriverByName("PNG").CreateCopy(add("wrong-extension", "png_named.img"), gdal.Open(reference))
    huge_tiff(add("huge-dimension", "huge_tiff.tif"))
    with open(add("huge-dimension", "huge_envi.img"), "wb") as f:
        f.write(bytes(64))
    with open(os.path.join(folder, "huge_envi.hdr"), "w") as f:
        f.write("ENVI\nsamples = 1000000000\nlines = 1000000000\nbands = 1\nheader offset = 0\n"
                "file type = ENVI Standard\ndata type = 1\ninterleave = bsq\nbyte order = 0\n")
    zero_band_netcdf(add("zero-bands", "zero_bands.nc"))
    os.makedirs(add("directory", "directory.tif"), exist_ok=True)

    # A good raster and a good archive under hostile names.
    hostile = ["with blanks  in it.tif", "it's a \"quoted\" name.tif", "a;touch %s;b.tif" % MARKER,
               "$(touch %s).tif" % MARKER, "`touch %s`.tif" % MARKER, "non-ascii \u00e9\u00fc\u4e2d\u6587.tif"]
    for name in hostile:
        with open(add("hostile-name", name), "wb") as f:
            f.write(whole)
    # 4 000 characters: twenty folders of 190 characters, then the file.
    deep = ""
    for i in range(20):
        deep = os.path.join(deep, ("d%02d_" % i) + "x" * 186)
    os.makedirs(os.path.join(folder, deep), exist_ok=True)
    with open(add("long-path", os.path.join(deep, "long_name.tif")), "wb") as f:
        f.write(whole)
    for name in ["a;touch %s;b.zip" % MARKER, "$(touch %s).zip" % MARKER, "it's.zip"]:
        with zipfile.ZipFile(add("hostile-archive", name), "w") as archive:
            archive.writestr("inside.txt", "content\n")

    with open(os.path.join(folder, "inputs.txt"), "w", encoding="utf-8") as f:
        for kind, name in inputs:
            f.write("%s\t%s\n" % (kind, name))


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: make_hostile_corpus.py FOLDER")
    main(sys.argv[1])
