// The I/O floor of a two-band formula: read both inputs and write a Float32 output through GDAL, no arithmetic.
// Usage: bandmath_io_floor A.tif B.tif OUT.tif
#include <gdal_priv.h>

#include <algorithm>
#include <cstdio>
#include <vector>

int main(int argc, char** argv)
{
    if (argc != 4)
    {
        std::fprintf(stderr, "usage: %s A.tif B.tif OUT.tif\n", argv[0]);
        return 2;
    }
    GDALAllRegister();
    GDALDataset* a = GDALDataset::Open(argv[1], GDAL_OF_RASTER | GDAL_OF_READONLY);
    GDALDataset* b = GDALDataset::Open(argv[2], GDAL_OF_RASTER | GDAL_OF_READONLY);
    if (!a || !b)
        return 1;
    const int width = a->GetRasterXSize(), height = a->GetRasterYSize();
    const char* options[] = {"TILED=YES", nullptr};
    GDALDataset* out = GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
        argv[3], width, height, 1, GDT_Float32, const_cast<char**>(options));
    if (!out)
        return 1;
    const int step = 256;
    std::vector<float> first(size_t(width) * step), second(size_t(width) * step);
    bool ok = true;
    for (int row0 = 0; row0 < height && ok; row0 += step)
    {
        const int rows = std::min(step, height - row0);
        ok = a->GetRasterBand(1)->RasterIO(GF_Read, 0, row0, width, rows, first.data(), width, rows, GDT_Float32, 0, 0) == CE_None &&
             b->GetRasterBand(1)->RasterIO(GF_Read, 0, row0, width, rows, second.data(), width, rows, GDT_Float32, 0, 0) == CE_None &&
             out->GetRasterBand(1)->RasterIO(GF_Write, 0, row0, width, rows, first.data(), width, rows, GDT_Float32, 0, 0) == CE_None;
        out->FlushCache(false);
        a->FlushCache(false);
        b->FlushCache(false);
    }
    GDALClose(out);
    GDALClose(a);
    GDALClose(b);
    return ok ? 0 : 1;
}
