// Block-wise raster I/O for plug-ins: RAII datasets, row-block iteration, typed reads and writes,
// output files that remove themselves unless committed.
#pragma once

#include "plugin_base.h"
#include "raster_limits.h"

#include <gdal_priv.h>

#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <vector>

namespace algokit
{

struct DatasetCloser
{
    void operator()(GDALDataset* dataset) const
    {
        if (dataset)
            GDALClose(GDALDataset::ToHandle(dataset));
    }
};
using DatasetPtr = std::unique_ptr<GDALDataset, DatasetCloser>;

// Opens a raster for reading (or update); throws AlgoError naming the path when it cannot, or when
// checkRasterSize refuses it.
DatasetPtr openRaster(const QString& path, bool update = false);

// Throws AlgoError (tooLargeMessage) when one row of every band, as doubles, would exceed kMaxRowBytes: the
// sizes come from the file's header and are not believed beyond that.
void checkRasterSize(GDALDataset* dataset, const QString& path);

// Throws AlgoError when holding the whole image at bytesPerPixel bytes per pixel would exceed kMaxImageBytes;
// for computations that keep whole bands in memory.
void checkWholeImageSize(GDALDataset* dataset, const QString& path, size_t bytesPerPixel);

// GDAL driver short name for an output path: ".tif"/".tiff" GTiff, ".img" HFA, ".png" PNG,
// ".jpg"/".jpeg" JPEG, ".vrt" VRT, anything else ENVI.
QString driverForPath(const QString& path);

// Rows per block for streaming a dataset: whole natural blocks, about blockBytes per band read; a natural block
// of more than kMaxRowBytes is not kept whole.
int rowsPerBlock(GDALDataset* dataset, size_t bytesPerPixel = 8, size_t blockBytes = 8u << 20);

// Calls fn(row0, rowCount) over [0, height) in steps of `step` rows.
void forEachRowBlock(int height, int step, const std::function<void(int row0, int rows)>& fn);

// Splits [0, count) over the machine's cores and waits; fn(begin, end) must be thread-safe.
void parallelFor(int count, const std::function<void(int begin, int end)>& fn);

// Reads rows [row0, row0+rows) of a band into buffer (resized) as T; throws AlgoError on failure.
template <typename T> void readRows(GDALRasterBand* band, int row0, int rows, std::vector<T>& buffer);
template <typename T> void writeRows(GDALRasterBand* band, int row0, int rows, const std::vector<T>& buffer);

template <typename T> constexpr GDALDataType gdalTypeOf();
template <> constexpr GDALDataType gdalTypeOf<unsigned char>() { return GDT_Byte; }
template <> constexpr GDALDataType gdalTypeOf<unsigned short>() { return GDT_UInt16; }
template <> constexpr GDALDataType gdalTypeOf<short>() { return GDT_Int16; }
template <> constexpr GDALDataType gdalTypeOf<unsigned int>() { return GDT_UInt32; }
template <> constexpr GDALDataType gdalTypeOf<int>() { return GDT_Int32; }
template <> constexpr GDALDataType gdalTypeOf<float>() { return GDT_Float32; }
template <> constexpr GDALDataType gdalTypeOf<double>() { return GDT_Float64; }

// An output raster being written. Unless commit() is called, the destructor closes and deletes it,
// so a failed or cancelled run leaves no half-written file behind.
class OutputRaster
{
public:
    OutputRaster() = default;
    OutputRaster(const QString& path, const QString& driver, int width, int height, int bands,
                 GDALDataType type, const QStringList& options = QStringList());
    OutputRaster(OutputRaster&& other) noexcept;
    OutputRaster& operator=(OutputRaster&& other) noexcept;
    ~OutputRaster();

    GDALDataset* get() const { return m_dataset.get(); }
    GDALRasterBand* band(int index0) const { return m_dataset->GetRasterBand(index0 + 1); }
    const QString& path() const { return m_path; }

    // Copies projection and geotransform (and GCPs) from a source dataset.
    void copyGeoreferencing(GDALDataset* source);
    // Flushes and closes; the file stays.
    void commit();
    // Closes and deletes the file now.
    void discard();

private:
    DatasetPtr m_dataset;
    QString m_path;
    QString m_driver;
};

// Deletes a raster file set (with its side-car files) through its driver, or the plain file.
void deleteRasterFiles(const QString& path);

} // namespace algokit
