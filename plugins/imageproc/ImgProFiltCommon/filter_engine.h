// Streaming engine of the neighbourhood filters: row blocks with the kernel's overlap, edge modes, pixel-type
// dispatch, both cores, and the output-type rule.
//
// Output-type rule: filters whose result stays inside the input's range (mean, median, minimum, maximum,
// Gaussian, custom kernels with non-negative weights summing to 1) write the input's type, rounded and
// clamped; every other filter (signed or unbounded results: edges, Laplacians, high-pass, emboss, sharpening,
// frequency-domain filters) writes Float32, or Float64 when the input is Float64.
#pragma once

#include "plugin_base.h"
#include "raster_io.h"
#include "records/filter_records.h"

#include <QString>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <type_traits>
#include <vector>

namespace filtcommon
{

// Where the pixel at index i of a line of n lies for an edge mode; -1 means "zero" (outside, zero mode).
int mapIndex(int i, int n, int mode);

// Rounds and clamps a value into T (plain conversion for floating types).
template <typename T> inline T toPixel(double value)
{
    if constexpr (std::is_floating_point_v<T>)
        return T(value);
    else
    {
        if (!(value == value))
            return T(0);
        const double rounded = std::floor(value + 0.5);
        if (rounded <= double(std::numeric_limits<T>::lowest()))
            return std::numeric_limits<T>::lowest();
        if (rounded >= double(std::numeric_limits<T>::max()))
            return std::numeric_limits<T>::max();
        return T(rounded);
    }
}

// The common fields of a filter run.
struct FilterJob
{
    QString inputFile;
    QString outputFile;
    QString format;              // driver; empty: from the output suffix
    std::vector<int> bands;      // zero-based
    int mode = 0;
};

// The common fields of a filter record as a job.
template <typename Record> FilterJob jobOf(const Record& record)
{
    FilterJob job;
    job.inputFile = record.inputFile;
    job.outputFile = record.outputFile;
    job.format = record.format;
    job.bands = record.bands;
    job.mode = record.mode;
    return job;
}

// A padded block: image pixel (x, y) of the block is at data[(y + ry) * stride + x + rx].
template <typename T> struct Padded
{
    const T* data;
    size_t stride;
    int width;
    int rx;
    int ry;
    const T* at(int x, int y) const { return data + size_t(y + ry) * stride + size_t(x + rx); }
};

// Checks the job (paths, mode) and throws AlgoError with a readable message when it cannot run.
void validateJob(const FilterJob& job);

// GDAL output type for an input type under the rule above.
GDALDataType realTypeFor(GDALDataType input);

namespace detail
{

template <typename T>
void fillPadded(GDALRasterBand* band, int row0, int rows, int rx, int ry, int mode, std::vector<T>& buffer,
                size_t& stride)
{
    const int width = band->GetXSize(), height = band->GetYSize();
    stride = size_t(width) + 2 * size_t(rx);
    const int paddedRows = rows + 2 * ry;
    buffer.assign(stride * size_t(paddedRows), T(0));
    const int first = std::max(0, row0 - ry), last = std::min(height, row0 + rows + ry); // [first, last) real
    if (last > first)
    {
        T* target = buffer.data() + size_t(first - (row0 - ry)) * stride + size_t(rx);
        if (band->RasterIO(GF_Read, 0, first, width, last - first, target, width, last - first,
                           algokit::gdalTypeOf<T>(), 0, GSpacing(stride * sizeof(T))) != CE_None)
            throw algokit::AlgoError(QStringLiteral("Read failed at row %1").arg(first));
    }
    std::vector<T> line;
    for (int r = 0; r < paddedRows; ++r)
    {
        const int y = row0 - ry + r;
        T* row = buffer.data() + size_t(r) * stride;
        if (y < 0 || y >= height)
        {
            const int source = mapIndex(y, height, mode);
            if (source < 0)
                continue; // zeros
            if (source >= first && source < last)
                std::copy_n(buffer.data() + size_t(source - (row0 - ry)) * stride + rx, width, row + rx);
            else
            {
                line.resize(size_t(width));
                if (band->RasterIO(GF_Read, 0, source, width, 1, line.data(), width, 1, algokit::gdalTypeOf<T>(), 0,
                                   0) != CE_None)
                    throw algokit::AlgoError(QStringLiteral("Read failed at row %1").arg(source));
                std::copy(line.begin(), line.end(), row + rx);
            }
        }
    }
    for (int r = 0; r < paddedRows; ++r)
    {
        T* row = buffer.data() + size_t(r) * stride;
        for (int k = 1; k <= rx; ++k)
        {
            const int left = mapIndex(-k, width, mode), right = mapIndex(width - 1 + k, width, mode);
            row[rx - k] = left < 0 ? T(0) : row[rx + left];
            row[rx + width - 1 + k] = right < 0 ? T(0) : row[rx + right];
        }
    }
}

} // namespace detail

// Runs `filter` (an object with members rx, ry and `template <typename T> void apply(const Padded<T>&, int row0,
// int row1, T* out) const`, out being the block's output rows) on every band of the job, streaming row blocks.
// Native: the filter works in the input's own type. Otherwise it works in float (double for Float64 inputs).
template <typename Filter>
void runFilter(const FilterJob& job, const Filter& filter, bool native, const std::function<void(double)>& progress)
{
    validateJob(job);
    algokit::DatasetPtr source = algokit::openRaster(job.inputFile);
    const int width = source->GetRasterXSize(), height = source->GetRasterYSize();
    for (int band : job.bands)
        if (band < 0 || band >= source->GetRasterCount())
            throw algokit::AlgoError(QStringLiteral("Band %1 is not in the input").arg(band + 1));
    const GDALDataType inputType = source->GetRasterBand(job.bands.front() + 1)->GetRasterDataType();
    if (GDALDataTypeIsComplex(inputType))
        throw algokit::AlgoError(QStringLiteral("Complex pixels are not supported by this filter"));
    const GDALDataType outputType = native ? inputType : realTypeFor(inputType);
    const QString driver = job.format.isEmpty() ? algokit::driverForPath(job.outputFile) : job.format;
    algokit::OutputRaster output(job.outputFile, driver, width, height, int(job.bands.size()), outputType);
    output.copyGeoreferencing(source.get());

    auto runTyped = [&](auto tag) {
        using T = decltype(tag);
        const int step = std::max(1, algokit::rowsPerBlock(source.get(), sizeof(T) * 2, 16u << 20));
        const int blocks = (height + step - 1) / step;
        std::vector<T> padded, result;
        int done = 0;
        for (size_t b = 0; b < job.bands.size(); ++b)
        {
            GDALRasterBand* in = source->GetRasterBand(job.bands[b] + 1);
            algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
                size_t stride = 0;
                detail::fillPadded<T>(in, row0, rows, filter.rx, filter.ry, job.mode, padded, stride);
                const Padded<T> view{padded.data(), stride, width, filter.rx, filter.ry};
                result.resize(size_t(width) * size_t(rows));
                algokit::parallelFor(rows, [&](int r0, int r1) { filter.template apply<T>(view, r0, r1, result.data()); });
                if (job.mode == kEdgeKeepBorder || job.mode == kEdgeZeroBorder)
                    for (int r = 0; r < rows; ++r)
                    {
                        const int y = row0 + r;
                        for (int x = 0; x < width; ++x)
                            if (y < filter.ry || y >= height - filter.ry || x < filter.rx || x >= width - filter.rx)
                                result[size_t(r) * width + x] = job.mode == kEdgeKeepBorder ? *view.at(x, r) : T(0);
                    }
                algokit::writeRows<T>(output.band(int(b)), row0, rows, result);
                // Written and read blocks leave GDAL's cache at once, so memory stays flat on large rasters.
                output.get()->FlushCache(false);
                source->FlushCache(false);
                progress(100.0 * (++done) / double(blocks * job.bands.size()));
            });
        }
    };
    const GDALDataType workType = native ? inputType : (inputType == GDT_Float64 ? GDT_Float64 : GDT_Float32);
    switch (workType)
    {
    case GDT_Byte: runTyped(uint8_t()); break;
    case GDT_UInt16: runTyped(uint16_t()); break;
    case GDT_Int16: runTyped(int16_t()); break;
    case GDT_UInt32: runTyped(uint32_t()); break;
    case GDT_Int32: runTyped(int32_t()); break;
    case GDT_Float32: runTyped(float()); break;
    case GDT_Float64: runTyped(double()); break;
    default: throw algokit::AlgoError(QStringLiteral("Unsupported pixel type %1").arg(GDALGetDataTypeName(inputType)));
    }
    output.commit();
}

} // namespace filtcommon
