// Outputs of the change and class-map plug-ins.
#include "class_map.h"

#include "gdal_progress.h"

#include <gdal_alg.h>

#include <QFileInfo>
#include <cmath>

namespace obia
{

QString rasterDriverFor(const algokit::GenericParams& args, const QString& key, const QString& path)
{
    const QString driver = algokit::driverForPath(path);
    if (driver == QLatin1String("PNG") || driver == QLatin1String("JPEG") || driver == QLatin1String("VRT"))
        args.refuse(key, path, QStringLiteral("must end in .tif, .tiff, .img or another suffix for ENVI"));
    return driver;
}

void refuseSameFile(const algokit::GenericParams& args, const QString& outputKey, const QString& output,
                    const QString& inputKey, const QString& input)
{
    const QFileInfo out(output), in(input);
    if (out.absoluteFilePath() == in.absoluteFilePath() || (out.exists() && out.canonicalFilePath() == in.canonicalFilePath()))
        args.refuse(outputKey, output, QStringLiteral("names the same file as %1").arg(inputKey));
}

std::vector<double> countClasses(GDALRasterBand* band, int classes, const std::function<void(double)>& report)
{
    std::vector<double> counts(size_t(classes), 0.0);
    std::vector<unsigned char> rows;
    const int height = band->GetYSize();
    const int step = std::max(1, int((16u << 20) / std::max(1, band->GetXSize())));
    algokit::forEachRowBlock(height, step, [&](int row0, int count) {
        algokit::readRows(band, row0, count, rows);
        for (unsigned char v : rows)
            if (v < classes)
                counts[v] += 1.0;
        report(double(row0 + count) / height);
    });
    return counts;
}

Histogram bandHistogram(GDALRasterBand* band, double low, double high, int bins, bool absolute,
                        const std::function<void(double)>& report)
{
    Histogram histogram(low, high, bins);
    std::vector<float> rows;
    const int height = band->GetYSize();
    const int step = std::max(1, int((8u << 20) / std::max(1, band->GetXSize())));
    algokit::forEachRowBlock(height, step, [&](int row0, int count) {
        algokit::readRows(band, row0, count, rows);
        for (float v : rows)
            histogram.add(absolute ? std::fabs(v) : v);
        report(double(row0 + count) / height);
    });
    return histogram;
}

void sievePatches(GDALRasterBand* band, int minSize, const std::function<void(double)>& report)
{
    if (minSize <= 1)
        return;
    algokit::GdalProgress bridge([&](double percent) { report(percent / 100.0); });
    int hasNoData = 0;
    band->GetNoDataValue(&hasNoData);
    GDALRasterBandH mask = hasNoData ? GDALGetMaskBand(band) : nullptr;
    CPLErrorReset();
    const CPLErr error = GDALSieveFilter(band, mask, band, minSize, 8, nullptr, algokit::GdalProgress::callback, &bridge);
    bridge.rethrowIfCancelled();
    if (error != CE_None)
        throw algokit::AlgoError(QStringLiteral("Removing patches below %1 pixels failed: %2")
                                     .arg(minSize)
                                     .arg(QString::fromUtf8(CPLGetLastErrorMsg())));
}

} // namespace obia
