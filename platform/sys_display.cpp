// SysDisplay: raster rendering to RGBA pictures for quick looks.
#include "sys_display.h"

#include "raster_limits.h"

#include <gdal.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace SysDisplay
{

bool PercentileStretch(const float* values, size_t count, const unsigned char* invalid, double* low, double* high)
{
    // A strided sample of at most about a million values estimates the percentiles as well as all of them.
    const size_t step = std::max<size_t>(1, count / (1u << 20));
    std::vector<float> sample;
    sample.reserve(count / step + 1);
    for (size_t i = 0; i < count; i += step)
        if (!invalid[i])
            sample.push_back(values[i]);
    if (sample.empty())
        return false;
    auto at = [&sample](double fraction) {
        const size_t k = std::min(sample.size() - 1, size_t(fraction * double(sample.size() - 1) + 0.5));
        std::nth_element(sample.begin(), sample.begin() + std::ptrdiff_t(k), sample.end());
        return double(sample[k]);
    };
    *low = at(0.02);
    *high = at(0.98);
    return true;
}

QImage RenderRaster(SysDataSource::RasterDataset* dataset, int width, int height)
{
    if (!dataset || width <= 0 || height <= 0 || dataset->GetBandCount() < 1)
        return QImage();
    const int shown = dataset->GetBandCount() >= 3 ? 3 : 1;
    // Floats per shown band and an invalid flag per pixel; a read size that would not fit is not rendered.
    if (!algokit::fitsInBytes(size_t(width), size_t(height), sizeof(float) * size_t(shown) + 1,
                              algokit::kMaxImageBytes))
        return QImage();
    const size_t pixels = size_t(width) * size_t(height);
    std::vector<float> values(pixels * size_t(shown));
    int bandMap[3] = {1, 2, 3};
    GDALRasterIOExtraArg extra;
    INIT_RASTERIO_EXTRA_ARG(extra);
    extra.eResampleAlg = GRIORA_NearestNeighbour;
    CPLPushErrorHandler(CPLQuietErrorHandler);
    const CPLErr error = GDALDatasetRasterIOEx(dataset->Handle(), GF_Read, 0, 0, dataset->GetWidth(),
                                               dataset->GetHeight(), values.data(), width, height, GDT_Float32, shown,
                                               bandMap, 0, 0, 0, &extra);
    CPLPopErrorHandler();
    if (error != CE_None)
        return QImage();

    std::vector<unsigned char> invalid(pixels, 0);
    for (int b = 0; b < shown; ++b)
    {
        bool hasNoData = false;
        const double noData = dataset->GetBand(b)->GetNoDataValue(&hasNoData);
        const float* band = values.data() + size_t(b) * pixels;
        for (size_t i = 0; i < pixels; ++i)
            if (std::isnan(band[i]) || std::isinf(band[i]) || (hasNoData && double(band[i]) == noData))
                invalid[i] = 1;
    }

    double scale[3] = {0, 0, 0}, offset[3] = {0, 0, 0};
    for (int b = 0; b < shown; ++b)
    {
        double low = 0.0, high = 0.0;
        if (!PercentileStretch(values.data() + size_t(b) * pixels, pixels, invalid.data(), &low, &high))
            continue;
        // A constant band shows mid grey rather than black.
        scale[b] = high > low ? 255.0 / (high - low) : 0.0;
        offset[b] = high > low ? -low * scale[b] : 128.0;
    }

    // An alpha channel only where something is transparent: a raster without no-data gives an opaque picture.
    const bool anyInvalid = std::find(invalid.begin(), invalid.end(), 1) != invalid.end();
    QImage image(width, height, anyInvalid ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32);
    for (int y = 0; y < height; ++y)
    {
        QRgb* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < width; ++x)
        {
            const size_t i = size_t(y) * size_t(width) + size_t(x);
            if (invalid[i])
            {
                line[x] = 0;
                continue;
            }
            int channel[3];
            for (int b = 0; b < shown; ++b)
            {
                const double v = double(values[size_t(b) * pixels + i]) * scale[b] + offset[b];
                channel[b] = int(std::lround(std::clamp(v, 0.0, 255.0)));
            }
            line[x] = shown == 3 ? qRgba(channel[0], channel[1], channel[2], 255)
                                 : qRgba(channel[0], channel[0], channel[0], 255);
        }
    }
    return image;
}

} // namespace SysDisplay
