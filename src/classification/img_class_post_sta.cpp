// ExcuteAlgo_ImgClassPostSta: pixel count, percentage and ground area of every class of a classification,
// written as the class statistics report.
#include "class_statistics_report.h"
#include "classification_text.h"
#include "entry_guard.h"
#include "raster_limits.h"
#include "sys_data_source.h"
#include "sys_geometry.h"

#include <gdal.h>

#include <QFile>

#include <algorithm>
#include <cmath>

using namespace algofactory;

namespace
{

constexpr double kMetresPerDegree = 111000.0;
constexpr int kRowsPerRead = 256;

// Counts of values 0 .. classCount - 1 of band 1; other values are not counted.
std::vector<std::int64_t> countClasses(SysDataSource::RasterBand& band, int width, int height, int classCount)
{
    // The width comes from the file's header: a row too long to hold is refused, not allocated.
    if (!algokit::fitsInBytes(1, std::max(width, 0), sizeof(std::int32_t), algokit::kMaxRowBytes))
        throw std::runtime_error(algokit::tooLargeMessage(width, height, 1).toStdString());
    std::vector<std::int64_t> counts(size_t(std::max(classCount, 0)), 0);
    std::vector<std::int32_t> values;
    const std::uint32_t limit = std::uint32_t(std::max(classCount, 0));
    const int rowsPerRead = algokit::rowsWithin(size_t(std::max(width, 0)) * sizeof(std::int32_t), kRowsPerRead);
    for (int row0 = 0; row0 < height; row0 += rowsPerRead)
    {
        const int rows = std::min(rowsPerRead, height - row0);
        values.resize(size_t(width) * rows);
        if (!band.Read(0, row0, width, rows, values.data(), GDT_Int32))
            throw std::runtime_error("reading the classification failed");
        for (const std::int32_t value : values)
            if (std::uint32_t(value) < limit) // negative values wrap to large ones
                ++counts[size_t(value)];
    }
    return counts;
}

} // namespace

ALGO_API bool ExcuteAlgo_ImgClassPostSta(const char* inputFile, const char* reportFile, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImgClassPostSta", [&] {
        SysUtility::_ptr_t<SysDataSource::RasterDataset> dataset =
            SysDataSource::DatasetFactory::Instance()->OpenRaster(QString::fromUtf8(inputFile ? inputFile : ""));
        if (!dataset || dataset->GetBandCount() < 1)
            return printPlain("Unsupported Raster format!"), false;
        SysUtility::_ptr_t<SysDataSource::RasterBand> band = dataset->GetBand(0);
        SysUtility::_ptr_t<SysDataSource::ColorTable> colours = band->GetColorTable();
        if (!colours)
            return printPlain("The file is not a classification file, please reselect!"), false;
        const QStringList names = band->GetCategoryNames();
        const int classCount = classCountOf(names, colours->GetCount());

        const int width = dataset->GetWidth();
        const int height = dataset->GetHeight();
        const std::vector<std::int64_t> counts = countClasses(*band, width, height, classCount);

        const SysGeometry::Envelope extent = SysGeometry::RasterExtent(*dataset);
        double pixelHeight = std::fabs((extent.GetYMin() - extent.GetYMax()) / height);
        double pixelWidth = std::fabs((extent.GetXMax() - extent.GetXMin()) / width);
        if (pixelWidth < 0.001) // an extent in degrees
        {
            pixelHeight *= kMetresPerDegree;
            pixelWidth *= kMetresPerDegree;
        }
        const double pixels = double(width) * double(height);
        const double totalArea = pixelHeight * pixelWidth * pixels;
        std::vector<double> fractions(counts.size()), areas(counts.size());
        for (size_t i = 0; i < counts.size(); ++i)
        {
            fractions[i] = double(counts[i]) / pixels;
            areas[i] = fractions[i] * totalArea;
        }
        std::string report;
        WriteClassStatisticsReport(report, counts, classCount, fractions, areas, names);

        QString path = QString::fromUtf8(reportFile ? reportFile : "");
        if (path.isEmpty())
            return printPlain("Input file is empty!"), false;
        if (path.right(4).toLower() != QLatin1String(".txt"))
            path += QLatin1String(".txt");
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return false;
        const bool written = file.write(report.data(), qint64(report.size())) == qint64(report.size());
        file.close();
        if (!written)
            return false;
        printPlain("Save Finish!");
        return true;
    });
}
