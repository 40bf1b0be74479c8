// Clip regions: buffer, range shapefiles, clean-up.
#include "clip_region.h"
#include "shell_quote.h"
#include "sys_data_source.h"

#include <cpl_conv.h>
#include <gdal_priv.h>
#include <ogr_spatialref.h>
#include <ogrsf_frmts.h>

#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <QUuid>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace algofactory
{

namespace
{

struct GdalCloser
{
    void operator()(GDALDataset* dataset) const { GDALClose(GDALDataset::ToHandle(dataset)); }
};
using GdalPtr = std::unique_ptr<GDALDataset, GdalCloser>;
using GeometryPtr = std::unique_ptr<OGRGeometry>;

void printLine(const char* text)
{
    std::printf("%s\n", text);
    std::fflush(stdout);
}

OGRSpatialReference wgs84()
{
    OGRSpatialReference srs;
    srs.SetWellKnownGeogCS("WGS84");
    srs.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    return srs;
}

bool isPolygonal(const OGRGeometry& geometry)
{
    const OGRwkbGeometryType type = wkbFlatten(geometry.getGeometryType());
    return type == wkbPolygon || type == wkbMultiPolygon;
}

// A region the cutline can use: polygonal, not empty, valid (a self-intersecting ring would cut wrongly).
bool usableRegion(const OGRGeometry* geometry)
{
    return geometry && isPolygonal(*geometry) && !geometry->IsEmpty() && geometry->IsValid();
}

// Brings a feature's geometry into WGS 84 (the range file's reference) and applies the buffer.
GeometryPtr rangeFromFeature(const OGRGeometry* source, OGRCoordinateTransformation* toWgs84, double buffer)
{
    if (!source || source->IsEmpty())
        return nullptr;
    GeometryPtr geometry(source->clone());
    if (toWgs84 && geometry->transform(toWgs84) != OGRERR_NONE)
        return nullptr;
    if (std::fabs(buffer) > 1e-08)
    {
        GeometryPtr buffered(geometry->Buffer(buffer));
        geometry = std::move(buffered);
    }
    return usableRegion(geometry.get()) ? std::move(geometry) : nullptr;
}

std::unique_ptr<OGRCoordinateTransformation> transformToWgs84(OGRLayer* layer)
{
    const OGRSpatialReference* source = layer->GetSpatialRef();
    const OGRSpatialReference target = wgs84();
    if (!source || source->IsSame(&target))
        return nullptr;
    OGRSpatialReference from(*source);
    from.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    return std::unique_ptr<OGRCoordinateTransformation>(OGRCreateCoordinateTransformation(&from, &target));
}

// Writes one polygon geometry into a new WGS 84 shapefile, printing the writer's messages.
bool writeRangeFile(GDALDriver* driver, const QString& path, const OGRGeometry& geometry)
{
    GdalPtr dataset(driver->Create(path.toUtf8().constData(), 0, 0, 0, GDT_Unknown, nullptr));
    if (!dataset)
    {
        printLine("Creation of output file failed.");
        return false;
    }
    OGRSpatialReference srs = wgs84();
    const OGRwkbGeometryType type =
        wkbFlatten(geometry.getGeometryType()) == wkbMultiPolygon ? wkbMultiPolygon : wkbPolygon;
    OGRLayer* layer = dataset->CreateLayer("outputshp", &srs, type, nullptr);
    if (!layer)
    {
        printLine("Layer creation failed.");
        return false;
    }
    OGRFeature feature(layer->GetLayerDefn());
    feature.SetGeometry(&geometry);
    if (layer->CreateFeature(&feature) != OGRERR_NONE)
    {
        printLine("Feature creation failed.");
        return false;
    }
    return true;
}

GDALDriver* shapefileDriver()
{
    SysDataSource::RegisterGdalDrivers();
    CPLSetThreadLocalConfigOption("GDAL_FILENAME_IS_UTF8", "YES");
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("ESRI Shapefile");
    if (!driver)
        printLine("ESRI Shapefile driver not available.");
    return driver;
}

GdalPtr openVector(const QString& path)
{
    CPLPushErrorHandler(CPLQuietErrorHandler);
    GdalPtr dataset(GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_VECTOR | GDAL_OF_READONLY));
    CPLPopErrorHandler();
    return dataset;
}

GeometryPtr featureRange(const RangeRequest& request)
{
    GdalPtr source = openVector(request.shapefile);
    if (!source || source->GetLayerCount() < 1)
    {
        printLine("The shpfile can not be open!");
        return nullptr;
    }
    OGRLayer* layer = source->GetLayer(0);
    const int field = layer->GetLayerDefn()->GetFieldIndex(request.fieldName.toUtf8().constData());
    if (field < 0)
        return nullptr;
    auto toWgs84 = transformToWgs84(layer);
    const QByteArray wanted = request.fieldValue.toUtf8();
    layer->ResetReading();
    for (auto& feature : *layer)
    {
        if (feature->IsFieldSetAndNotNull(field) && wanted == feature->GetFieldAsString(field))
            return rangeFromFeature(feature->GetGeometryRef(), toWgs84.get(), request.buffer);
    }
    return nullptr;
}

GeometryPtr textRange(const RangeRequest& request)
{
    const QByteArray text = request.clipRange.toUtf8();
    CPLPushErrorHandler(CPLQuietErrorHandler);
    GeometryPtr geometry;
    if (request.mode == RangeMode::GeoJson)
    {
        geometry.reset(OGRGeometryFactory::createFromGeoJson(text.constData()));
    }
    else
    {
        OGRGeometry* parsed = nullptr;
        OGRGeometryFactory::createFromWkt(text.constData(), nullptr, &parsed);
        geometry.reset(parsed);
    }
    CPLPopErrorHandler();
    if (request.mode == RangeMode::Wkt)
    {
        const bool multi = request.clipRange.startsWith(QLatin1String("MULTIPOLYGON"));
        const OGRwkbGeometryType expected = multi ? wkbMultiPolygon : wkbPolygon;
        if (!geometry || wkbFlatten(geometry->getGeometryType()) != expected || !usableRegion(geometry.get()))
        {
            printLine(multi ? "Build multipolygon failed!" : "Build polygon failed!");
            return nullptr;
        }
    }
    return usableRegion(geometry.get()) ? std::move(geometry) : nullptr;
}

QString safeFileName(QString name)
{
    for (QChar& c : name)
        if (c.unicode() < 32 || QStringLiteral("/\\:*?\"<>|").contains(c))
            c = QLatin1Char('_');
    name = name.trimmed();
    // A leading dot would hide the file (and "." or ".." would name a folder).
    for (int i = 0; i < name.size() && name[i] == QLatin1Char('.'); ++i)
        name[i] = QLatin1Char('_');
    return name;
}

} // namespace

double computeClipBuffer(const QString& inputFile, int bufferPixels, ClipInputInfo* info)
{
    SysDataSource::RegisterGdalDrivers();
    CPLPushErrorHandler(CPLQuietErrorHandler);
    GdalPtr dataset(GDALDataset::Open(inputFile.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    CPLPopErrorHandler();
    info->opened = bool(dataset);
    if (!dataset)
        return 0.0;
    info->driver = QString::fromUtf8(dataset->GetDriver()->GetDescription());
    info->bands.clear();
    for (int b = 0; b < dataset->GetRasterCount(); ++b)
        info->bands.push_back(b);
    const char* projection = dataset->GetProjectionRef();
    printLine(projection ? projection : "");
    double transform[6] = {0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
    dataset->GetGeoTransform(transform);
    double buffer = bufferPixels * transform[1];
    const OGRSpatialReference* srs = dataset->GetSpatialRef();
    if (srs && srs->IsProjected())
        buffer /= 100000.0;
    printBufferLine(buffer);
    return buffer;
}

void printBufferLine(double buffer)
{
    std::printf("Buffer size:%g\n", buffer);
    std::fflush(stdout);
}

bool buildRangeShapefile(const RangeRequest& request, QString* tempFolder, QString* rangeFile)
{
    tempFolder->clear();
    rangeFile->clear();
    const QString folder = QDir::tempPath() + "/" + QUuid::createUuid().toString().remove('{').remove('}').remove('-');
    const QString path = folder + "/" + "range" + ".shp";
    GDALDriver* driver = shapefileDriver();
    if (!driver)
        return false;
    GeometryPtr geometry = request.mode == RangeMode::Feature ? featureRange(request) : textRange(request);
    if (!geometry)
        return false;
    if (!QDir().mkpath(folder))
    {
        printLine("Creation of output file failed.");
        return false;
    }
    if (!writeRangeFile(driver, path, *geometry))
    {
        QDir(folder).removeRecursively();
        return false;
    }
    *tempFolder = folder;
    *rangeFile = path;
    return true;
}

bool splitFeatureRanges(const QString& shapefile, const QString& fieldName, double buffer, const QString& folder,
                        QStringList* names, QStringList* rangeFiles)
{
    names->clear();
    rangeFiles->clear();
    GDALDriver* driver = shapefileDriver();
    if (!driver)
        return false;
    GdalPtr source = openVector(shapefile);
    if (!source || source->GetLayerCount() < 1)
    {
        printLine("The shpfile can not be open!");
        return false;
    }
    OGRLayer* layer = source->GetLayer(0);
    int field = -1;
    if (!fieldName.isEmpty())
    {
        field = layer->GetLayerDefn()->GetFieldIndex(fieldName.toUtf8().constData());
        if (field < 0)
            return false;
    }
    if (!QDir().mkpath(folder))
        return false;
    auto toWgs84 = transformToWgs84(layer);
    QSet<QString> used;
    layer->ResetReading();
    for (auto& feature : *layer)
    {
        const QString fid = QString::number(feature->GetFID());
        QString name = field >= 0 ? safeFileName(QString::fromUtf8(feature->GetFieldAsString(field))) : QString();
        if (name.isEmpty())
            name = "feature_" + fid;
        if (used.contains(name))
            name += "_" + fid;
        used.insert(name);
        names->append(name);
        if (!feature->GetGeometryRef() || feature->GetGeometryRef()->IsEmpty())
            continue; // the name stays without a range: the lists no longer match
        GeometryPtr range = rangeFromFeature(feature->GetGeometryRef(), toWgs84.get(), buffer);
        if (!range)
            return false;
        const QString path = folder + "/range_" + QString::number(rangeFiles->size()) + ".shp";
        if (!writeRangeFile(driver, path, *range))
            return false;
        rangeFiles->append(path);
    }
    return !names->isEmpty();
}

void runShellOnPath(const char* command, const QString& path)
{
    std::fflush(stdout);
    const QByteArray line = QString::fromLatin1(command).arg(shellQuote(path)).toLocal8Bit();
    const int status = std::system(line.constData());
    (void)status; // the clean-up is best effort, as the original commands were
}

void cleanUpClipFolder(const QString& tempFolder)
{
    printLine(tempFolder.toLocal8Bit().constData());
    if (QDir(tempFolder).exists())
    {
        runShellOnPath("chmod 777 -R %1", tempFolder);
        runShellOnPath("rm -R %1", tempFolder);
    }
}

} // namespace algofactory
