// Helpers shared by the hyperspectral plug-ins: band-list and rectangle checks, and a reader that streams
// the selected bands of a pixel rectangle in row blocks as band-sequential doubles.
#pragma once

#include "plugin_base.h"
#include "raster_io.h"
#include "records/hyperspectral_records.h"

#include <algorithm>
#include <cmath>
#include <type_traits>
#include <vector>

namespace hys
{

// The band list as 1-based band numbers; throws AlgoError for a number outside the image.
inline std::vector<int> resolveBands(const HysBandList& list, int bandCount)
{
    if (list.bands.empty())
        throw algokit::AlgoError(QStringLiteral("No band is selected."));
    std::vector<int> bands;
    bands.reserve(list.bands.size());
    for (int number : list.bands)
    {
        const int band = list.base == 0 ? number + 1 : number;
        if (band < 1 || band > bandCount)
            throw algokit::AlgoError(QStringLiteral("Band %1 is outside the image's bands 1..%2.")
                                         .arg(band)
                                         .arg(bandCount));
        bands.push_back(band);
    }
    return bands;
}

// Throws AlgoError unless the rectangle is non-empty and lies inside the image.
inline void checkRect(const HysPixelRect& rect, int width, int height)
{
    if (rect.width <= 0 || rect.height <= 0)
        throw algokit::AlgoError(QStringLiteral("The pixel region is empty or reversed (width %1, height %2).")
                                     .arg(rect.width)
                                     .arg(rect.height));
    if (rect.x < 0 || rect.y < 0 || qint64(rect.x) + rect.width > width || qint64(rect.y) + rect.height > height)
        throw algokit::AlgoError(QStringLiteral("The pixel region x %1..%2, y %3..%4 lies outside the %5 x %6 image.")
                                     .arg(rect.x)
                                     .arg(qint64(rect.x) + rect.width - 1)
                                     .arg(rect.y)
                                     .arg(qint64(rect.y) + rect.height - 1)
                                     .arg(width)
                                     .arg(height));
}

// Reads rows of the rectangle for the selected bands: buffer[k * stride + row * width + x], with no-data
// values turned into NaN so that every consumer has one rule for missing pixels.
class BlockReader
{
public:
    // At most 2 GiB of doubles in one block.
    static constexpr size_t kMaxBlockValues = (size_t(2) << 30) / sizeof(double);

    BlockReader(GDALDataset* dataset, const std::vector<int>& bands, const HysPixelRect& rect)
        : m_dataset(dataset), m_bands(bands), m_rect(rect)
    {
        for (int band : bands)
        {
            int hasNoData = 0;
            const double noData = dataset->GetRasterBand(band)->GetNoDataValue(&hasNoData);
            m_noData.push_back(hasNoData ? noData : std::nan(""));
        }
    }

    // Rows per block so that one block of all selected bands holds about `bytes`; a multiple of `multiple`.
    int blockRows(size_t bytes = 24u << 20, int multiple = 1) const
    {
        const size_t rowBytes = size_t(m_rect.width) * m_bands.size() * sizeof(double);
        int rows = int(std::max<size_t>(1, bytes / std::max<size_t>(1, rowBytes)));
        rows = std::max(multiple, rows / multiple * multiple);
        return std::min(rows, std::max(m_rect.height, 1));
    }

    // Reads rectangle rows [row0, row0 + rows) into buffer (resized); `stride` is the band pitch in values.
    void read(int row0, int rows, std::vector<double>& buffer, size_t& stride) const
    {
        stride = size_t(m_rect.width) * size_t(rows);
        readWindow(HysPixelRect{m_rect.x, m_rect.y + row0, m_rect.width, rows}, buffer);
    }

    // Reads a window (in image pixels) of the selected bands: buffer[k * n + row * width + x], n the
    // window's pixel count. Real buffers get NaN for no-data; integer buffers keep the values as stored.
    template <typename T> void readWindow(const HysPixelRect& window, std::vector<T>& buffer) const
    {
        const size_t n = size_t(window.width) * size_t(window.height);
        // The width comes from the file's header: a block that would not fit in memory is refused, not allocated.
        if (n * m_bands.size() > kMaxBlockValues)
            throw algokit::AlgoError(QStringLiteral("The image is too large to read: %1 x %2 pixels in %3 bands.")
                                         .arg(m_rect.width)
                                         .arg(m_rect.height)
                                         .arg(m_bands.size()));
        buffer.resize(n * m_bands.size());
        const CPLErr error = m_dataset->RasterIO(GF_Read, window.x, window.y, window.width, window.height,
                                                 buffer.data(), window.width, window.height,
                                                 algokit::gdalTypeOf<T>(), int(m_bands.size()),
                                                 const_cast<int*>(m_bands.data()), sizeof(T),
                                                 GSpacing(sizeof(T)) * window.width, GSpacing(sizeof(T) * n), nullptr);
        if (error != CE_None)
            throw algokit::AlgoError(QStringLiteral("Reading rows %1..%2 failed: %3")
                                         .arg(window.y)
                                         .arg(window.y + window.height - 1)
                                         .arg(QString::fromUtf8(CPLGetLastErrorMsg())));
        if (std::is_floating_point<T>::value)
            for (size_t k = 0; k < m_bands.size(); ++k)
                if (!std::isnan(m_noData[k]))
                    std::replace(buffer.begin() + k * n, buffer.begin() + (k + 1) * n, T(m_noData[k]), T(NAN));
    }

    // Each selected band's no-data value, NaN when it has none.
    const std::vector<double>& noData() const { return m_noData; }

private:
    GDALDataset* m_dataset;
    std::vector<int> m_bands;
    HysPixelRect m_rect;
    std::vector<double> m_noData;
};

// Opens the input, checks bands and rectangle; the dataset and the 1-based band numbers come back.
struct SelectedCube
{
    algokit::DatasetPtr dataset;
    std::vector<int> bands;
    HysPixelRect rect;
};

inline SelectedCube openSelection(const QString& path, const HysBandList& list, const HysPixelRect& rect)
{
    SelectedCube cube;
    cube.dataset = algokit::openRaster(path);
    cube.bands = resolveBands(list, cube.dataset->GetRasterCount());
    checkRect(rect, cube.dataset->GetRasterXSize(), cube.dataset->GetRasterYSize());
    cube.rect = rect;
    return cube;
}

} // namespace hys
