// Fixture builders for the clip and mosaic tests.
#include "clip_fixtures.h"

#include <ogr_spatialref.h>
#include <ogrsf_frmts.h>

#include <QDir>
#include <cmath>

namespace cliptest
{

bool makeGridRaster(const QString& path, int width, int height, int bands, GDALDataType type, const Grid& grid,
                    const std::function<double(int, int, int)>& value, double noData)
{
    GDALAllRegister();
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GTiff");
    GDALDataset* dataset = driver->Create(path.toUtf8().constData(), width, height, bands, type, nullptr);
    if (!dataset)
        return false;
    double transform[6] = {grid.originX, grid.pixel, 0.0, grid.originY, 0.0, -grid.pixel};
    dataset->SetGeoTransform(transform);
    if (grid.epsg)
    {
        OGRSpatialReference srs;
        srs.importFromEPSG(grid.epsg);
        dataset->SetSpatialRef(&srs);
    }
    std::vector<double> row(static_cast<size_t>(width));
    bool ok = true;
    for (int b = 0; b < bands && ok; ++b)
    {
        if (!std::isnan(noData))
            dataset->GetRasterBand(b + 1)->SetNoDataValue(noData);
        for (int y = 0; y < height && ok; ++y)
        {
            for (int x = 0; x < width; ++x)
                row[size_t(x)] = value(b, x, y);
            ok = dataset->GetRasterBand(b + 1)->RasterIO(GF_Write, 0, y, width, 1, row.data(), width, 1, GDT_Float64,
                                                         0, 0) == CE_None;
        }
    }
    GDALClose(GDALDataset::ToHandle(dataset));
    return ok;
}

bool makeShapefile(const QString& path, const std::vector<std::pair<std::string, std::string>>& nameAndWkt)
{
    GDALAllRegister();
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("ESRI Shapefile");
    GDALDataset* dataset = driver->Create(path.toUtf8().constData(), 0, 0, 0, GDT_Unknown, nullptr);
    if (!dataset)
        return false;
    OGRSpatialReference srs;
    srs.SetWellKnownGeogCS("WGS84");
    OGRLayer* layer = dataset->CreateLayer("regions", &srs, wkbPolygon, nullptr);
    OGRFieldDefn field("NAME", OFTString);
    bool ok = layer && layer->CreateField(&field) == OGRERR_NONE;
    for (const auto& [name, wkt] : nameAndWkt)
    {
        if (!ok)
            break;
        OGRFeature feature(layer->GetLayerDefn());
        feature.SetField("NAME", name.c_str());
        if (!wkt.empty())
        {
            OGRGeometry* geometry = nullptr;
            OGRGeometryFactory::createFromWkt(wkt.c_str(), nullptr, &geometry);
            feature.SetGeometryDirectly(geometry);
        }
        ok = layer->CreateFeature(&feature) == OGRERR_NONE;
    }
    GDALClose(GDALDataset::ToHandle(dataset));
    return ok;
}

RasterInfo rasterInfo(const QString& path)
{
    RasterInfo info;
    GDALAllRegister();
    GDALDataset* dataset = GDALDataset::FromHandle(GDALOpen(path.toUtf8().constData(), GA_ReadOnly));
    if (!dataset)
        return info;
    info.width = dataset->GetRasterXSize();
    info.height = dataset->GetRasterYSize();
    info.bands = dataset->GetRasterCount();
    dataset->GetGeoTransform(info.transform);
    info.driver = dataset->GetDriver()->GetDescription();
    int has = 0;
    if (info.bands > 0)
        info.noData = dataset->GetRasterBand(1)->GetNoDataValue(&has);
    info.hasNoData = has != 0;
    GDALClose(GDALDataset::ToHandle(dataset));
    return info;
}

QStringList subfolders(const QString& dir)
{
    return QDir(dir).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
}

} // namespace cliptest
