// Index entries and the footprint index file, through OGR.
#include "image_index.h"

#include "raster_io.h"
#include "thread_config_option.h"

#include <ogrsf_frmts.h>

#include <QFileInfo>

#include <atomic>
#include <exception>
#include <thread>

namespace catalogue
{

namespace
{

struct OgrDatasetCloser
{
    void operator()(GDALDataset* d) const { GDALClose(GDALDataset::ToHandle(d)); }
};
using VectorPtr = std::unique_ptr<GDALDataset, OgrDatasetCloser>;

enum Field
{
    kPath,
    kFileName,
    kSatellite,
    kSensor,
    kAcquired,
    kLevel,
    kResolution,
    kBands,
    kSrs,
    kCloud
};

} // namespace

QStringList indexFieldNames()
{
    return {"path", "file_name", "satellite", "sensor", "acq_time", "level", "res_m", "bands", "srs", "cloud_pct"};
}

IndexEntry describeItem(const CatalogueItem& item, const FootprintOptions& options)
{
    IndexEntry entry;
    entry.path = item.path;
    entry.fileName = QFileInfo(item.path).fileName();
    entry.info = item.info;
    if (item.info.pixelSpacingMetres > 0.0)
        entry.resolutionMetres = item.info.pixelSpacingMetres;
    if (!item.declaredFootprint.empty())
    {
        // A SAFE product declares the footprint of all its swaths; one measurement covers only a part.
        entry.footprint = polygonFromRing(item.declaredFootprint);
        entry.bandCount = item.memberCount;
        entry.srs = QStringLiteral("EPSG:4326");
        if (entry.footprint)
            return entry;
    }
    if (item.imagePath.isEmpty())
    {
        entry.error = QStringLiteral("holds no image");
        return entry;
    }
    // Drivers then probe for their side-car files instead of listing the folder at every open: an index of a
    // folder of thousands of files would otherwise list it thousands of times.
    const algokit::ThreadConfigOption noListing("GDAL_DISABLE_READDIR_ON_OPEN", "YES");
    GDALDataset* opened = nullptr;
    rasterPathFor(item.imagePath, &opened);
    algokit::DatasetPtr dataset(opened);
    if (!dataset)
    {
        entry.error = QStringLiteral("is not a raster GDAL can open");
        return entry;
    }
    FootprintOptions own = options;
    own.zeroIsFill = options.zeroIsFill || item.zeroIsFill();
    Footprint footprint = computeFootprint(dataset.get(), own, &entry.error);
    entry.footprint = std::move(footprint.wgs84);
    entry.native = std::move(footprint.native);
    entry.srs = footprint.nativeSrs;
    if (entry.resolutionMetres <= 0.0)
        entry.resolutionMetres = footprint.resolutionMetres;
    entry.bandCount = item.memberCount > 1 ? item.memberCount : dataset->GetRasterCount();
    if (!entry.footprint && entry.error.isEmpty())
        entry.error = QStringLiteral("has no valid pixel");
    if (!entry.info.recognised())
    {
        // Metadata GDAL found itself (the IMAGERY domain of many drivers).
        if (const char* satellite = dataset->GetMetadataItem("SATELLITEID", "IMAGERY"))
            entry.info.satellite = QString::fromUtf8(satellite).toUpper();
    }
    if (entry.info.cloudPercent < 0.0)
        if (const char* cloud = dataset->GetMetadataItem("CLOUDCOVER", "IMAGERY"))
        {
            bool ok = false;
            const double value = QString::fromUtf8(cloud).toDouble(&ok);
            if (ok && value >= 0.0 && value <= 100.0)
                entry.info.cloudPercent = value;
        }
    return entry;
}

std::vector<IndexEntry> describeItems(const std::vector<CatalogueItem>& items, const FootprintOptions& options,
                                      const std::function<void(int done, int total)>& progress)
{
    std::vector<IndexEntry> entries(items.size());
    std::atomic<int> next{0}, done{0};
    std::atomic<bool> stop{false};
    const int total = int(items.size());
    auto worker = [&] {
        for (int i = next++; i < total && !stop; i = next++)
        {
            entries[i] = describeItem(items[i], options);
            ++done;
        }
    };
    // Each file is small work: hand them out one at a time so that a large image does not hold up a
    // core's share. The calling thread works too and reports progress (which may throw to stop).
    const unsigned cores = std::max(1u, std::min(std::thread::hardware_concurrency(), 8u));
    std::vector<std::thread> helpers;
    for (unsigned c = 1; c < cores && int(c) < total; ++c)
        helpers.emplace_back(worker);
    std::exception_ptr failure;
    try
    {
        for (int i = next++; i < total; i = next++)
        {
            entries[i] = describeItem(items[i], options);
            ++done;
            if (progress)
                progress(done, total);
        }
    }
    catch (...)
    {
        failure = std::current_exception();
        stop = true;
    }
    for (std::thread& t : helpers)
        t.join();
    if (failure)
        std::rethrow_exception(failure);
    if (progress)
        progress(total, total);
    return entries;
}

QString indexDriverForPath(const QString& path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix == QLatin1String("gpkg"))
        return QStringLiteral("GPKG");
    if (suffix == QLatin1String("shp"))
        return QStringLiteral("ESRI Shapefile");
    if (suffix == QLatin1String("geojson") || suffix == QLatin1String("json"))
        return QStringLiteral("GeoJSON");
    return QString();
}

void deleteIndex(const QString& path)
{
    const QString driverName = indexDriverForPath(path);
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(driverName.toLatin1().constData());
    CPLPushErrorHandler(CPLQuietErrorHandler);
    if (!driver || driver->Delete(path.toUtf8().constData()) != CE_None)
        VSIUnlink(path.toUtf8().constData());
    CPLPopErrorHandler();
}

bool writeIndex(const QString& path, const std::vector<IndexEntry>& entries, QString* error)
{
    const QString driverName = indexDriverForPath(path);
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(driverName.toLatin1().constData());
    if (!driver)
    {
        *error = QStringLiteral("no vector driver for %1").arg(path);
        return false;
    }
    if (QFileInfo::exists(path))
        deleteIndex(path);
    CPLPushErrorHandler(CPLQuietErrorHandler);
    VectorPtr dataset(driver->Create(path.toUtf8().constData(), 0, 0, 0, GDT_Unknown, nullptr));
    CPLPopErrorHandler();
    if (!dataset)
    {
        *error = QStringLiteral("%1 cannot be created").arg(path);
        return false;
    }
    OGRSpatialReference srs(wgs84());
    const QByteArray layerName = QFileInfo(path).completeBaseName().toUtf8();
    char encoding[] = "ENCODING=UTF-8";
    char* options[] = {driverName == QLatin1String("ESRI Shapefile") ? encoding : nullptr, nullptr};
    OGRLayer* layer = dataset->CreateLayer(layerName.constData(), &srs, wkbMultiPolygon, options);
    if (!layer)
    {
        *error = QStringLiteral("%1: the layer cannot be created").arg(path);
        return false;
    }
    const QStringList names = indexFieldNames();
    const OGRFieldType types[] = {OFTString, OFTString, OFTString,  OFTString, OFTString,
                                  OFTString, OFTReal,   OFTInteger, OFTString, OFTReal};
    for (int i = 0; i < names.size(); ++i)
    {
        OGRFieldDefn field(names[i].toLatin1().constData(), types[i]);
        if (types[i] == OFTString)
            field.SetWidth(i == kPath ? 254 : 80);
        if (layer->CreateField(&field) != OGRERR_NONE)
        {
            *error = QStringLiteral("%1: the field %2 cannot be created").arg(path, names[i]);
            return false;
        }
    }
    dataset->StartTransaction();
    for (const IndexEntry& entry : entries)
    {
        if (!entry.footprint)
            continue;
        OGRFeature feature(layer->GetLayerDefn());
        feature.SetField(kPath, entry.path.toUtf8().constData());
        feature.SetField(kFileName, entry.fileName.toUtf8().constData());
        auto setText = [&](int field, const QString& value) {
            if (!value.isEmpty())
                feature.SetField(field, value.toUtf8().constData());
        };
        setText(kSatellite, entry.info.satellite);
        setText(kSensor, entry.info.sensor);
        setText(kAcquired, entry.info.acquisition);
        setText(kLevel, entry.info.level);
        if (entry.resolutionMetres > 0.0)
            feature.SetField(kResolution, entry.resolutionMetres);
        feature.SetField(kBands, entry.bandCount);
        setText(kSrs, entry.srs);
        if (entry.info.cloudPercent >= 0.0)
            feature.SetField(kCloud, entry.info.cloudPercent);
        GeometryPtr geometry(OGRGeometryFactory::forceToMultiPolygon(entry.footprint->clone()));
        feature.SetGeometryDirectly(geometry.release());
        if (layer->CreateFeature(&feature) != OGRERR_NONE)
        {
            *error = QStringLiteral("%1: a feature cannot be written").arg(path);
            return false;
        }
    }
    if (dataset->CommitTransaction() != OGRERR_NONE && dataset->TestCapability(ODsCTransactions))
    {
        *error = QStringLiteral("%1 cannot be written").arg(path);
        return false;
    }
    dataset.reset();
    return true;
}

bool readIndex(const QString& path, IndexContent& content, QString* error)
{
    CPLPushErrorHandler(CPLQuietErrorHandler);
    VectorPtr dataset(GDALDataset::FromHandle(
        GDALOpenEx(path.toUtf8().constData(), GDAL_OF_VECTOR | GDAL_OF_READONLY, nullptr, nullptr, nullptr)));
    CPLPopErrorHandler();
    if (!dataset || dataset->GetLayerCount() < 1)
    {
        *error = QStringLiteral("is not a vector file");
        return false;
    }
    OGRLayer* layer = dataset->GetLayer(0);
    content.layerName = QString::fromUtf8(layer->GetName());
    OGRFeatureDefn* definition = layer->GetLayerDefn();
    for (int i = 0; i < definition->GetFieldCount(); ++i)
        content.fields << QStringLiteral("%1:%2").arg(
            QString::fromUtf8(definition->GetFieldDefn(i)->GetNameRef()),
            QString::fromLatin1(OGRFieldDefn::GetFieldTypeName(definition->GetFieldDefn(i)->GetType())));
    auto fieldIndex = [&](const char* name) { return definition->GetFieldIndex(name); };
    const int path_ = fieldIndex("path"), satellite = fieldIndex("satellite"), sensor = fieldIndex("sensor"),
              acquired = fieldIndex("acq_time"), level = fieldIndex("level"), cloud = fieldIndex("cloud_pct");
    // Footprints are compared in WGS 84 whatever the layer's reference system.
    std::unique_ptr<OGRCoordinateTransformation> toWgs84;
    if (const OGRSpatialReference* srs = layer->GetSpatialRef())
        if (!srs->IsSame(&wgs84()))
            toWgs84.reset(OGRCreateCoordinateTransformation(srs, &wgs84()));
    auto text = [](OGRFeature& f, int i) {
        return i >= 0 && f.IsFieldSetAndNotNull(i) ? QString::fromUtf8(f.GetFieldAsString(i)) : QString();
    };
    // Some readers (GeoJSON) turn the acquisition text into a date-time field: back to the index's form.
    auto when = [&](OGRFeature& f, int i) {
        const OGRFieldType type = i >= 0 ? f.GetFieldDefnRef(i)->GetType() : OFTString;
        if ((type != OFTDateTime && type != OFTDate) || !f.IsFieldSetAndNotNull(i))
            return text(f, i);
        int y = 0, mo = 0, d = 0, h = 0, mi = 0, tz = 0;
        float s = 0.0f;
        f.GetFieldAsDateTime(i, &y, &mo, &d, &h, &mi, &s, &tz);
        const QString date = QStringLiteral("%1-%2-%3")
                                 .arg(y, 4, 10, QLatin1Char('0'))
                                 .arg(mo, 2, 10, QLatin1Char('0'))
                                 .arg(d, 2, 10, QLatin1Char('0'));
        if (type == OFTDate)
            return date;
        return date + QStringLiteral("T%1:%2:%3")
                          .arg(h, 2, 10, QLatin1Char('0'))
                          .arg(mi, 2, 10, QLatin1Char('0'))
                          .arg(int(s), 2, 10, QLatin1Char('0'));
    };
    layer->ResetReading();
    while (std::unique_ptr<OGRFeature> feature{layer->GetNextFeature()})
    {
        IndexRow row;
        row.path = text(*feature, path_);
        row.info.satellite = text(*feature, satellite);
        row.info.sensor = text(*feature, sensor);
        row.info.acquisition = when(*feature, acquired);
        row.info.level = text(*feature, level);
        if (cloud >= 0 && feature->IsFieldSetAndNotNull(cloud))
            row.info.cloudPercent = feature->GetFieldAsDouble(cloud);
        if (OGRGeometry* geometry = feature->GetGeometryRef())
        {
            row.footprint.reset(geometry->clone());
            if (toWgs84 && row.footprint->transform(toWgs84.get()) != OGRERR_NONE)
                row.footprint.reset();
        }
        content.rows.push_back(std::move(row));
    }
    return true;
}

} // namespace catalogue
