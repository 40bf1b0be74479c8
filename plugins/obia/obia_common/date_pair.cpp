// Two dates on one grid.
#include "date_pair.h"

#include "classification_io.h"
#include "gdal_apps.h"

#include <ogr_spatialref.h>

#include <QFileInfo>
#include <algorithm>
#include <cmath>

namespace obia
{

namespace
{

bool hasGeoTransform(GDALDataset* dataset, double* transform)
{
    if (dataset->GetGeoTransform(transform) != CE_None)
        return false;
    const double identity[6] = {0, 1, 0, 0, 0, 1};
    return !std::equal(transform, transform + 6, identity);
}

bool sameGrid(GDALDataset* a, GDALDataset* b)
{
    if (a->GetRasterXSize() != b->GetRasterXSize() || a->GetRasterYSize() != b->GetRasterYSize())
        return false;
    double ta[6], tb[6];
    const bool ga = hasGeoTransform(a, ta), gb = hasGeoTransform(b, tb);
    if (!ga || !gb)
        return true; // same size, at least one without georeferencing: pixel for pixel
    const double tolerance = 1e-3 * std::max(std::fabs(ta[1]), std::fabs(ta[5]));
    for (int i = 0; i < 6; ++i)
        if (std::fabs(ta[i] - tb[i]) > tolerance)
            return false;
    const OGRSpatialReference* sa = a->GetSpatialRef();
    const OGRSpatialReference* sb = b->GetSpatialRef();
    return !sa || !sb || sa->IsSame(sb);
}

// The footprint of `dataset` (densified edges) in the reference system of `reference`; false when it cannot be
// transformed.
bool footprintIn(GDALDataset* dataset, GDALDataset* reference, double* box)
{
    double t[6];
    hasGeoTransform(dataset, t);
    std::vector<double> xs, ys;
    const int w = dataset->GetRasterXSize(), h = dataset->GetRasterYSize();
    for (int i = 0; i <= 10; ++i)
        for (int edge = 0; edge < 4; ++edge)
        {
            const double f = i / 10.0;
            const double px = edge == 0 ? f * w : edge == 1 ? w : edge == 2 ? f * w : 0.0;
            const double py = edge == 0 ? 0.0 : edge == 1 ? f * h : edge == 2 ? h : f * h;
            xs.push_back(t[0] + px * t[1] + py * t[2]);
            ys.push_back(t[3] + px * t[4] + py * t[5]);
        }
    const OGRSpatialReference* from = dataset->GetSpatialRef();
    const OGRSpatialReference* to = reference->GetSpatialRef();
    if (from && to && !from->IsSame(to))
    {
        OGRSpatialReference source(*from), target(*to);
        source.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        target.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        std::unique_ptr<OGRCoordinateTransformation> transform(OGRCreateCoordinateTransformation(&source, &target));
        if (!transform)
            return false;
        std::vector<int> ok(xs.size(), 0);
        transform->Transform(int(xs.size()), xs.data(), ys.data(), nullptr, ok.data());
        size_t kept = 0;
        for (size_t i = 0; i < xs.size(); ++i)
            if (ok[i] && std::isfinite(xs[i]) && std::isfinite(ys[i]))
            {
                xs[kept] = xs[i];
                ys[kept++] = ys[i];
            }
        if (kept == 0)
            return false;
        xs.resize(kept);
        ys.resize(kept);
    }
    box[0] = *std::min_element(xs.begin(), xs.end());
    box[1] = *std::min_element(ys.begin(), ys.end());
    box[2] = *std::max_element(xs.begin(), xs.end());
    box[3] = *std::max_element(ys.begin(), ys.end());
    return true;
}

} // namespace

DatePair alignDates(const algokit::GenericParams& args, const QString& beforeKey, algokit::DatasetPtr before,
                    const QString& afterKey, algokit::DatasetPtr after)
{
    DatePair pair;
    const QString afterPath = QString::fromUtf8(after->GetDescription());
    const QString beforePath = QString::fromUtf8(before->GetDescription());
    if (!sameGrid(before.get(), after.get()))
    {
        double tb[6], ta[6];
        if (!hasGeoTransform(before.get(), tb) || !hasGeoTransform(after.get(), ta))
            args.refuse(afterKey, afterPath,
                        QStringLiteral("differs in size from %1 (%2 x %3 pixels) and the two are not both georeferenced")
                            .arg(beforeKey)
                            .arg(before->GetRasterXSize())
                            .arg(before->GetRasterYSize()));
        double beforeBox[4], afterBox[4];
        if (!footprintIn(before.get(), before.get(), beforeBox) || !footprintIn(after.get(), before.get(), afterBox))
            args.refuse(afterKey, afterPath, QStringLiteral("cannot be brought into the coordinate system of %1").arg(beforeKey));
        if (afterBox[0] >= beforeBox[2] || afterBox[2] <= beforeBox[0] || afterBox[1] >= beforeBox[3] ||
            afterBox[3] <= beforeBox[1])
            args.refuse(afterKey, afterPath, QStringLiteral("does not overlap %1 (%2)").arg(beforeKey, beforePath));
        CPLStringList argv;
        for (const char* word : {"-of", "VRT", "-ot", "Float32", "-r", "bilinear", "-dstnodata", "nan"})
            argv.AddString(word);
        argv.AddString("-te");
        for (double v : {tb[0], tb[3] + tb[5] * before->GetRasterYSize(), tb[0] + tb[1] * before->GetRasterXSize(), tb[3]})
            argv.AddString(CPLSPrintf("%.17g", v));
        argv.AddString("-ts");
        argv.AddString(CPLSPrintf("%d", before->GetRasterXSize()));
        argv.AddString(CPLSPrintf("%d", before->GetRasterYSize()));
        if (const OGRSpatialReference* srs = before->GetSpatialRef())
        {
            char* wkt = nullptr;
            srs->exportToWkt(&wkt);
            argv.AddString("-t_srs");
            argv.AddString(wkt);
            CPLFree(wkt);
        }
        pair.afterWarped.reset(GDALDataset::FromHandle(algokit::warpRaster(after.get(), QString(), argv, nullptr)));
    }
    pair.before = std::move(before);
    pair.afterSource = std::move(after);
    return pair;
}

void markNoData(GDALDataset* dataset, const std::vector<int>& bands0, const std::vector<float>& pixels,
                std::vector<unsigned char>& valid)
{
    const size_t n = bands0.size();
    std::vector<double> noData(n);
    std::vector<char> hasNoData(n);
    for (size_t b = 0; b < n; ++b)
    {
        int has = 0;
        noData[b] = dataset->GetRasterBand(bands0[b] + 1)->GetNoDataValue(&has);
        hasNoData[b] = char(has && !std::isnan(noData[b]));
    }
    const size_t count = pixels.size() / std::max<size_t>(1, n);
    for (size_t p = 0; p < count; ++p)
        for (size_t b = 0; b < n; ++b)
        {
            const float v = pixels[p * n + b];
            if (std::isnan(v) || (hasNoData[b] && float(noData[b]) == v))
                valid[p] = 0;
        }
}

void readBoth(const DatePair& pair, const std::vector<int>& beforeBands, const std::vector<int>& afterBands,
              int row0, int rows, RowsOfBoth& out)
{
    const std::vector<int>& later = afterBands.empty() ? beforeBands : afterBands;
    algokit::readPixels(pair.before.get(), beforeBands, row0, rows, out.before);
    algokit::readPixels(pair.after(), later, row0, rows, out.after);
    out.valid.assign(size_t(pair.before->GetRasterXSize()) * rows, 1);
    markNoData(pair.before.get(), beforeBands, out.before, out.valid);
    markNoData(pair.after(), later, out.after, out.valid);
}

double pixelArea(GDALDataset* dataset, QString* unit)
{
    double t[6];
    if (!hasGeoTransform(dataset, t))
    {
        *unit = QStringLiteral("pixel");
        return 1.0;
    }
    const double area = std::fabs(t[1] * t[5] - t[2] * t[4]);
    const OGRSpatialReference* srs = dataset->GetSpatialRef();
    if (srs && srs->IsGeographic())
    {
        *unit = QStringLiteral("deg2");
        return area;
    }
    const double toMetre = srs ? srs->GetLinearUnits() : 1.0;
    *unit = QStringLiteral("m2");
    return area * toMetre * toMetre;
}

QString sidePath(const QString& path, const QString& suffix)
{
    const QFileInfo info(path);
    const QString extension = info.suffix();
    const QString stem = extension.isEmpty() ? path : path.left(path.size() - extension.size() - 1);
    return extension.isEmpty() ? stem + suffix : stem + suffix + QLatin1Char('.') + extension;
}

} // namespace obia
