// Bands of several rasters gathered onto one pixel grid as a virtual raster.
#include "band_stack.h"

#include "gdal_apps.h"

#include <gdal_rat.h>
#include <gdal_utils.h>
#include <ogr_spatialref.h>
#include <vrtdataset.h>

#include <QFileInfo>
#include <cmath>

namespace datautil
{

RasterGrid gridOf(GDALDataset* dataset)
{
    RasterGrid grid;
    grid.width = dataset->GetRasterXSize();
    grid.height = dataset->GetRasterYSize();
    grid.georeferenced = dataset->GetGeoTransform(grid.geoTransform) == CE_None;
    if (const char* wkt = dataset->GetProjectionRef())
        grid.wkt = wkt;
    return grid;
}

bool sameReferenceSystem(const std::string& a, const std::string& b)
{
    if (a.empty() || b.empty())
        return a.empty() == b.empty();
    if (a == b)
        return true;
    OGRSpatialReference sa, sb;
    if (sa.importFromWkt(a.c_str()) != OGRERR_NONE || sb.importFromWkt(b.c_str()) != OGRERR_NONE)
        return false;
    return sa.IsSame(&sb);
}

bool extentIn(GDALDataset* dataset, const std::string& wkt, double extent[4])
{
    const RasterGrid grid = gridOf(dataset);
    if (!grid.georeferenced)
        return false;
    const double* gt = grid.geoTransform;
    std::vector<double> xs, ys;
    // Edge points, not only corners, so that a curved transformation is bounded fairly.
    const int steps = 20;
    for (int i = 0; i <= steps; ++i)
        for (int j = 0; j <= steps; ++j)
        {
            if (i != 0 && i != steps && j != 0 && j != steps)
                continue;
            const double px = grid.width * double(i) / steps, py = grid.height * double(j) / steps;
            xs.push_back(gt[0] + px * gt[1] + py * gt[2]);
            ys.push_back(gt[3] + px * gt[4] + py * gt[5]);
        }
    if (!sameReferenceSystem(grid.wkt, wkt))
    {
        if (grid.wkt.empty() || wkt.empty())
            return false;
        OGRSpatialReference from, to;
        from.importFromWkt(grid.wkt.c_str());
        to.importFromWkt(wkt.c_str());
        from.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        to.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        std::unique_ptr<OGRCoordinateTransformation> transform(OGRCreateCoordinateTransformation(&from, &to));
        if (!transform || !transform->Transform(int(xs.size()), xs.data(), ys.data()))
            return false;
    }
    extent[0] = *std::min_element(xs.begin(), xs.end());
    extent[1] = *std::min_element(ys.begin(), ys.end());
    extent[2] = *std::max_element(xs.begin(), xs.end());
    extent[3] = *std::max_element(ys.begin(), ys.end());
    return std::isfinite(extent[0]) && std::isfinite(extent[1]) && std::isfinite(extent[2]) && std::isfinite(extent[3]);
}

bool isClassImage(GDALDataset* dataset)
{
    if (dataset->GetRasterCount() != 1)
        return false;
    GDALRasterBand* band = dataset->GetRasterBand(1);
    return band->GetColorTable() != nullptr || band->GetCategoryNames() != nullptr;
}

GDALDataType widestType(const std::vector<BandPick>& picks)
{
    GDALDataType type = GDT_Unknown;
    for (const BandPick& pick : picks)
    {
        const GDALDataType t = pick.source->GetRasterBand(pick.band)->GetRasterDataType();
        type = type == GDT_Unknown ? t : GDALDataTypeUnion(type, t);
    }
    return type == GDT_Unknown ? GDT_Byte : type;
}

BandStack::BandStack(const RasterGrid& grid, GDALDataType type, const QString& vrtPath)
    : m_grid(grid), m_type(type), m_vrtPath(vrtPath)
{
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("VRT");
    m_vrt = driver->Create(vrtPath.toUtf8().constData(), grid.width, grid.height, 0, GDT_Byte, nullptr);
    if (!m_vrt)
        throw algokit::AlgoError(
            QStringLiteral("Cannot create %1: %2").arg(vrtPath, QString::fromUtf8(CPLGetLastErrorMsg())));
    if (grid.georeferenced)
        m_vrt->SetGeoTransform(m_grid.geoTransform);
    if (!grid.wkt.empty())
        m_vrt->SetProjection(grid.wkt.c_str());
}

BandStack::~BandStack()
{
    // The stack reads from the warped inputs: close it first. A saved stack has been closed already.
    if (m_vrt)
    {
        if (!m_vrtPath.isEmpty())
            static_cast<VRTDataset*>(m_vrt)->SetWritable(FALSE);
        GDALClose(GDALDataset::ToHandle(m_vrt));
    }
    for (auto& entry : m_warped)
        GDALClose(GDALDataset::ToHandle(entry.second));
}

bool BandStack::save(QString* error)
{
    CPLErrorReset();
    m_vrt->FlushCache(true);
    GDALClose(GDALDataset::ToHandle(m_vrt));
    m_vrt = nullptr;
    if (CPLGetLastErrorType() >= CE_Failure || !QFileInfo::exists(m_vrtPath))
    {
        *error = QString::fromUtf8(CPLGetLastErrorMsg());
        return false;
    }
    return true;
}

GDALDataset* BandStack::warped(GDALDataset* source, bool nearest)
{
    for (auto& entry : m_warped)
        if (entry.first.first == source && entry.first.second == nearest)
            return entry.second;
    const double* gt = m_grid.geoTransform;
    CPLStringList argv;
    argv.AddString("-of");
    argv.AddString("VRT");
    argv.AddString("-t_srs");
    argv.AddString(m_grid.wkt.c_str());
    argv.AddString("-te");
    for (double v : {gt[0], gt[3] + m_grid.height * gt[5], gt[0] + m_grid.width * gt[1], gt[3]})
        argv.AddString(CPLSPrintf("%.17g", v));
    argv.AddString("-ts");
    argv.AddString(CPLSPrintf("%d", m_grid.width));
    argv.AddString(CPLSPrintf("%d", m_grid.height));
    argv.AddString("-r");
    argv.AddString(nearest ? "near" : "bilinear");
    GDALDatasetH out = algokit::warpRaster(source, QString(), argv, nullptr);
    m_warped.push_back({{source, nearest}, GDALDataset::FromHandle(out)});
    return m_warped.back().second;
}

bool BandStack::add(const BandPick& pick)
{
    const RasterGrid grid = gridOf(pick.source);
    const double* sgt = grid.geoTransform;
    const double* dgt = m_grid.geoTransform;
    const bool northUp = sgt[2] == 0 && sgt[4] == 0 && dgt[2] == 0 && dgt[4] == 0;
    const bool sameSystem = sameReferenceSystem(grid.wkt, m_grid.wkt);

    GDALRasterBand* source = pick.source->GetRasterBand(pick.band);
    double window[4] = {-1, -1, -1, -1};
    if (!m_grid.georeferenced || !grid.georeferenced)
    {
        // Pixel grids only: the sizes must agree (checked by the caller).
    }
    else if (sameSystem && northUp)
    {
        window[0] = (dgt[0] - sgt[0]) / sgt[1];
        window[1] = (dgt[3] - sgt[3]) / sgt[5];
        window[2] = m_grid.width * dgt[1] / sgt[1];
        window[3] = m_grid.height * dgt[5] / sgt[5];
        const bool identical = std::fabs(window[0]) < 1e-6 && std::fabs(window[1]) < 1e-6 &&
                               std::fabs(window[2] - grid.width) < 1e-6 && std::fabs(window[3] - grid.height) < 1e-6;
        if (identical)
            window[0] = window[1] = window[2] = window[3] = -1;
    }
    else
    {
        if (!m_vrtPath.isEmpty())
            return false;
        source = warped(pick.source, pick.nearest)->GetRasterBand(pick.band);
    }

    m_vrt->AddBand(m_type, nullptr);
    auto* band = static_cast<VRTSourcedRasterBand*>(m_vrt->GetRasterBand(m_vrt->GetRasterCount()));
    int hasNoData = 0;
    const double noData = source->GetNoDataValue(&hasNoData);
    const double dstW = window[2] < 0 ? -1 : m_grid.width, dstH = window[2] < 0 ? -1 : m_grid.height;
    const double dst0 = window[2] < 0 ? -1 : 0;
    if (hasNoData)
    {
        band->SetNoDataValue(noData);
        band->AddComplexSource(source, window[0], window[1], window[2], window[3], dst0, dst0, dstW, dstH, 0.0, 1.0,
                               noData);
    }
    else
    {
        band->AddSimpleSource(source, window[0], window[1], window[2], window[3], dst0, dst0, dstW, dstH,
                              pick.nearest ? "near" : "bilinear");
    }
    if (hasNoData && !pick.nearest)
        static_cast<VRTComplexSource*>(band->papoSources[band->nSources - 1])->SetResampling("bilinear");

    GDALRasterBand* original = pick.source->GetRasterBand(pick.band);
    QString description = QString::fromUtf8(original->GetDescription());
    if (description.isEmpty())
        description = QStringLiteral("%1 band %2")
                          .arg(QFileInfo(QString::fromUtf8(pick.source->GetDescription())).completeBaseName())
                          .arg(pick.band);
    band->SetDescription(description.toUtf8().constData());
    band->SetMetadata(original->GetMetadata());
    if (const GDALColorTable* colours = original->GetColorTable())
    {
        band->SetColorTable(const_cast<GDALColorTable*>(colours));
        band->SetColorInterpretation(GCI_PaletteIndex);
    }
    if (char** names = original->GetCategoryNames())
        band->SetCategoryNames(names);
    if (const GDALRasterAttributeTable* table = original->GetDefaultRAT())
        band->SetDefaultRAT(table);
    return true;
}

void writeStack(GDALDataset* stack, const QString& path, algokit::GdalProgress* bridge)
{
    const QString format = algokit::driverForPath(path);
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(format.toUtf8().constData());
    if (!driver || !driver->GetMetadataItem(GDAL_DCAP_CREATE))
    {
        // Formats written only as a copy (PNG, JPEG): GDAL's translator.
        CPLStringList argv;
        argv.AddString("-of");
        argv.AddString(format.toUtf8().constData());
        algokit::translateRaster(stack, path, argv, bridge);
        return;
    }
    const int width = stack->GetRasterXSize(), height = stack->GetRasterYSize(), bands = stack->GetRasterCount();
    const GDALDataType type = stack->GetRasterBand(1)->GetRasterDataType();
    QStringList options;
    if (format == QLatin1String("GTiff"))
    {
        options << QStringLiteral("TILED=YES") << QStringLiteral("BIGTIFF=IF_SAFER");
        if (bands > 1)
            options << QStringLiteral("INTERLEAVE=BAND"); // each band written in one sweep from its own input
    }
    algokit::OutputRaster out(path, format, width, height, bands, type, options);
    out.copyGeoreferencing(stack);
    for (int b = 0; b < bands; ++b)
    {
        GDALRasterBand* from = stack->GetRasterBand(b + 1);
        GDALRasterBand* to = out.band(b);
        to->SetDescription(from->GetDescription());
        to->SetMetadata(from->GetMetadata());
        int hasNoData = 0;
        const double noData = from->GetNoDataValue(&hasNoData);
        if (hasNoData)
            to->SetNoDataValue(noData);
        // A GeoTIFF keeps one colour table, on its first band; elsewhere each band keeps its own.
        CPLPushErrorHandler(CPLQuietErrorHandler);
        if (GDALColorTable* colours = from->GetColorTable(); colours && (b == 0 || format != QLatin1String("GTiff")))
        {
            to->SetColorTable(colours);
            to->SetColorInterpretation(from->GetColorInterpretation());
        }
        if (char** names = from->GetCategoryNames())
            to->SetCategoryNames(names);
        if (const GDALRasterAttributeTable* table = from->GetDefaultRAT())
            to->SetDefaultRAT(table);
        CPLPopErrorHandler();
    }
    // Whole rows of whole tiles at a time: a few large reads through the virtual raster instead of one per tile.
    const int pixelBytes = GDALGetDataTypeSizeBytes(type);
    const int step = algokit::rowsPerBlock(out.get(), size_t(pixelBytes), size_t(16) << 20);
    std::vector<unsigned char> buffer;
    for (int b = 0; b < bands; ++b)
        algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
            buffer.resize(size_t(width) * size_t(rows) * size_t(pixelBytes));
            if (stack->GetRasterBand(b + 1)->RasterIO(GF_Read, 0, row0, width, rows, buffer.data(), width, rows, type,
                                                      0, 0, nullptr) != CE_None ||
                out.band(b)->RasterIO(GF_Write, 0, row0, width, rows, buffer.data(), width, rows, type, 0, 0,
                                      nullptr) != CE_None)
                throw algokit::AlgoError(
                    QStringLiteral("Writing %1 failed: %2").arg(path, QString::fromUtf8(CPLGetLastErrorMsg())));
            algokit::GdalProgress::callback((b + double(row0 + rows) / height) / bands, nullptr, bridge);
            bridge->rethrowIfCancelled();
        });
    out.commit();
}

} // namespace datautil
