// The I/O floor of a two-band formula: read both inputs and write a Float32 output through GDAL, no arithmetic.
// Usage: bandmath_io_floor A.tif B.tif OUT.tif
// As fast as GDAL goes on one thread: when the inputs are tiled like the output, whole blocks move with ReadBlock
// and WriteBlock (no block cache, no copies); otherwise rows go through RasterIO.
#include <gdal_priv.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace
{

bool sameBlocks(GDALRasterBand* a, GDALRasterBand* b)
{
    int ax = 0, ay = 0, bx = 0, by = 0;
    a->GetBlockSize(&ax, &ay);
    b->GetBlockSize(&bx, &by);
    return ax == bx && ay == by;
}

bool copyByBlocks(GDALRasterBand* a, GDALRasterBand* b, GDALRasterBand* out)
{
    int blockX = 0, blockY = 0;
    out->GetBlockSize(&blockX, &blockY);
    const size_t pixels = size_t(blockX) * size_t(blockY);
    const int typeSize = GDALGetDataTypeSizeBytes(a->GetRasterDataType());
    std::vector<unsigned char> first(pixels * typeSize), second(pixels * typeSize);
    std::vector<float> result(pixels);
    const int columns = (out->GetXSize() + blockX - 1) / blockX, rows = (out->GetYSize() + blockY - 1) / blockY;
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < columns; ++x)
        {
            if (a->ReadBlock(x, y, first.data()) != CE_None || b->ReadBlock(x, y, second.data()) != CE_None)
                return false;
            // The one unavoidable step: the input's pixel type to Float32.
            GDALCopyWords64(first.data(), a->GetRasterDataType(), typeSize, result.data(), GDT_Float32, 4,
                            GPtrDiff_t(pixels));
            if (out->WriteBlock(x, y, result.data()) != CE_None)
                return false;
        }
    return true;
}

bool copyByRows(GDALRasterBand* a, GDALRasterBand* b, GDALRasterBand* out, GDALDataset* outDataset)
{
    const int width = out->GetXSize(), height = out->GetYSize(), step = 256;
    std::vector<float> first(size_t(width) * step), second(size_t(width) * step);
    for (int row0 = 0; row0 < height; row0 += step)
    {
        const int rows = std::min(step, height - row0);
        if (a->RasterIO(GF_Read, 0, row0, width, rows, first.data(), width, rows, GDT_Float32, 0, 0) != CE_None ||
            b->RasterIO(GF_Read, 0, row0, width, rows, second.data(), width, rows, GDT_Float32, 0, 0) != CE_None ||
            out->RasterIO(GF_Write, 0, row0, width, rows, first.data(), width, rows, GDT_Float32, 0, 0) != CE_None)
            return false;
        outDataset->FlushCache(false);
    }
    return true;
}

} // namespace

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
    const char* options[] = {"TILED=YES", nullptr};
    GDALDataset* out = GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
        argv[3], a->GetRasterXSize(), a->GetRasterYSize(), 1, GDT_Float32, const_cast<char**>(options));
    if (!out)
        return 1;
    GDALRasterBand* first = a->GetRasterBand(1);
    GDALRasterBand* second = b->GetRasterBand(1);
    GDALRasterBand* result = out->GetRasterBand(1);
    const bool ok = sameBlocks(first, result) && sameBlocks(second, result)
                        ? copyByBlocks(first, second, result)
                        : copyByRows(first, second, result, out);
    GDALClose(out);
    GDALClose(a);
    GDALClose(b);
    return ok ? 0 : 1;
}
