// Host algorithm "ROIStatistics": per ROI class, mean vector and covariance matrix of the selected bands
// over the pixels whose centres fall inside the class's polygons (image coordinates), streamed by row blocks.
#include "sys_algo.h"
#include "sys_algo_builtin.h"
#include "sys_algo_classification.h"

#include "raster_limits.h"

#include <gdal_alg.h>
#include <gdal_priv.h>
#include <ogr_geometry.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace SysAlgo
{
namespace
{

constexpr int kRowsPerBlock = 256;

struct GeometryList
{
    std::vector<std::unique_ptr<OGRGeometry>> owned;
    std::vector<OGRGeometryH> handles;
};

class RoiStatistics : public Algorithm
{
public:
    RoiStatistics() : Algorithm(QStringLiteral("ROIStatistics")) {}

protected:
    bool Execute() override
    {
        stROIStatisticsInfo* info = parameter<stROIStatisticsInfo>();
        if (!info)
            return fail(QStringLiteral("ROIStatistics: unexpected parameter record"));
        if (!info->dataset)
            info->dataset = SysDataSource::DatasetFactory::Instance()->OpenRaster(info->inputFile);
        if (!info->dataset)
            return fail(QStringLiteral("ROIStatistics: cannot open %1").arg(info->inputFile));
        if (info->areas.empty())
            return fail(QStringLiteral("ROIStatistics: the ROI file holds no class"));
        const int bandCount = int(info->bands.size());
        if (bandCount < 1)
            return fail(QStringLiteral("ROIStatistics: no band selected"));
        for (int band : info->bands)
            if (band < 1 || band > info->dataset->GetBandCount())
                return fail(QStringLiteral("ROIStatistics: band %1 is not in the image").arg(band));
        // A row of the selected bands as doubles, and its mask byte per pixel.
        const int width = info->dataset->GetWidth();
        if (!algokit::fitsInBytes(1, std::max(0, width), sizeof(double) * size_t(bandCount) + 1, algokit::kMaxRowBytes))
            return fail(QStringLiteral("ROIStatistics: ") + algokit::tooLargeMessage(width, info->dataset->GetHeight(),
                                                                                     info->dataset->GetBandCount(),
                                                                                     info->inputFile));

        info->statistics.clear();
        for (const RoiArea& area : info->areas)
        {
            RoiClassStatistics statistics = computeClass(*info, area);
            if (statistics.pixelCount == 0)
                return fail(QStringLiteral("ROIStatistics: the class \"%1\" covers no pixel of the image").arg(area.name));
            info->statistics.push_back(std::move(statistics));
        }
        m_result = *info;
        return true;
    }

private:
    RoiClassStatistics computeClass(const stROIStatisticsInfo& info, const RoiArea& area)
    {
        const int width = info.dataset->GetWidth();
        const int height = info.dataset->GetHeight();
        const int bandCount = int(info.bands.size());
        RoiClassStatistics statistics;
        statistics.mean.assign(bandCount, 0.0);
        statistics.covariance.assign(size_t(bandCount) * bandCount, 0.0);

        GeometryList geometries;
        SysGeometry::Envelope envelope;
        for (const SysGeometry::Polygon& polygon : area.geometries)
        {
            if (polygon.Ring().size() < 3)
                continue;
            geometries.owned.emplace_back(polygon.ToOgr());
            geometries.handles.push_back(OGRGeometry::ToHandle(geometries.owned.back().get()));
            envelope.Merge(polygon.GetEnvelope());
        }
        if (geometries.handles.empty() || envelope.IsEmpty())
            return statistics;
        const int x0 = std::max(0, int(std::floor(envelope.GetXMin())));
        const int x1 = std::min(width, int(std::ceil(envelope.GetXMax())));
        const int y0 = std::max(0, int(std::floor(envelope.GetYMin())));
        const int y1 = std::min(height, int(std::ceil(envelope.GetYMax())));
        if (x1 <= x0 || y1 <= y0)
            return statistics;
        const int columns = x1 - x0;

        // Sums are taken about the first pixel found, which keeps the covariance exact for large values.
        std::vector<double> shift;
        std::vector<double> sums(bandCount, 0.0);
        std::vector<double> products(size_t(bandCount) * bandCount, 0.0);
        std::vector<unsigned char> mask;
        std::vector<double> pixels;
        std::vector<double> centred(bandCount);
        GDALDriver* memDriver = GetGDALDriverManager()->GetDriverByName("MEM");
        const int rowsPerBlock =
            algokit::rowsWithin(size_t(columns) * (sizeof(double) * size_t(bandCount) + 1), kRowsPerBlock);
        for (int row0 = y0; row0 < y1; row0 += rowsPerBlock)
        {
            const int rows = std::min(rowsPerBlock, y1 - row0);
            std::unique_ptr<GDALDataset> maskDataset(memDriver->Create("", columns, rows, 1, GDT_Byte, nullptr));
            double transform[6] = {double(x0), 1.0, 0.0, double(row0), 0.0, 1.0};
            maskDataset->SetGeoTransform(transform);
            int bandList[1] = {1};
            std::vector<double> burnValues(geometries.handles.size(), 1.0);
            if (GDALRasterizeGeometries(GDALDataset::ToHandle(maskDataset.get()), 1, bandList, int(geometries.handles.size()),
                                        geometries.handles.data(), nullptr, nullptr, burnValues.data(), nullptr, nullptr,
                                        nullptr) != CE_None)
                throw std::runtime_error("rasterising the ROI polygons failed");
            mask.resize(size_t(columns) * rows);
            if (maskDataset->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, columns, rows, mask.data(), columns, rows, GDT_Byte, 0,
                                                        0) != CE_None)
                throw std::runtime_error("reading the ROI mask failed");
            if (std::find(mask.begin(), mask.end(), 1) == mask.end())
                continue;
            pixels.resize(size_t(columns) * rows * bandCount);
            // Pixel-interleaved read: one pixel's band values side by side.
            if (GDALDatasetRasterIO(info.dataset->Handle(), GF_Read, x0, row0, columns, rows, pixels.data(), columns, rows,
                                    GDT_Float64, bandCount, const_cast<int*>(info.bands.data()),
                                    sizeof(double) * bandCount, sizeof(double) * bandCount * columns,
                                    sizeof(double)) != CE_None)
                throw std::runtime_error("reading the image failed");
            for (size_t p = 0; p < mask.size(); ++p)
            {
                if (!mask[p])
                    continue;
                const double* value = &pixels[p * bandCount];
                if (shift.empty())
                    shift.assign(value, value + bandCount);
                for (int b = 0; b < bandCount; ++b)
                {
                    centred[b] = value[b] - shift[b];
                    sums[b] += centred[b];
                }
                for (int i = 0; i < bandCount; ++i)
                    for (int j = i; j < bandCount; ++j)
                        products[size_t(i) * bandCount + j] += centred[i] * centred[j];
                ++statistics.pixelCount;
            }
        }
        const double n = double(statistics.pixelCount);
        if (statistics.pixelCount == 0)
            return statistics;
        const double divisor = statistics.pixelCount > 1 ? n - 1.0 : 1.0;
        for (int b = 0; b < bandCount; ++b)
            statistics.mean[b] = shift[b] + sums[b] / n;
        for (int i = 0; i < bandCount; ++i)
            for (int j = i; j < bandCount; ++j)
            {
                const double value = (products[size_t(i) * bandCount + j] - sums[i] * sums[j] / n) / divisor;
                statistics.covariance[size_t(i) * bandCount + j] = value;
                statistics.covariance[size_t(j) * bandCount + i] = value;
            }
        return statistics;
    }
};

} // namespace

Algorithm* createRoiStatistics()
{
    return new RoiStatistics;
}

} // namespace SysAlgo
