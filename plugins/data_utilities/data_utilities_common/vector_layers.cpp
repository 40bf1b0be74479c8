// Vector layers of the data utilities.
#include "vector_layers.h"

#include <QFile>
#include <QFileInfo>

namespace datautil
{

VectorInput openVectorItem(const algokit::GenericParams& args, const QString& key, const QString& path)
{
    if (path.trimmed().isEmpty())
        args.refuse(key, path, QStringLiteral("is empty"));
    if (!algokit::pathExists(path))
        args.refuse(key, path, QStringLiteral("does not exist"));
    VectorInput input;
    CPLPushErrorHandler(CPLQuietErrorHandler);
    input.dataset.reset(GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_VECTOR | GDAL_OF_READONLY));
    CPLPopErrorHandler();
    if (!input.dataset || input.dataset->GetLayerCount() < 1)
        args.refuse(key, path, QStringLiteral("cannot be opened as a vector layer"));
    input.layer = input.dataset->GetLayer(0);
    if (input.layer->GetFeatureCount(TRUE) == 0)
        args.refuse(key, path, QStringLiteral("holds no feature"));
    return input;
}

QString vectorDriverForPath(const QString& path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix == QLatin1String("shp"))
        return QStringLiteral("ESRI Shapefile");
    if (suffix == QLatin1String("geojson") || suffix == QLatin1String("json"))
        return QStringLiteral("GeoJSON");
    if (suffix == QLatin1String("gpkg"))
        return QStringLiteral("GPKG");
    if (suffix == QLatin1String("kml"))
        return QStringLiteral("KML");
    return QString();
}

bool vectorPathFits(const QString& path)
{
    return QFileInfo(path).absoluteFilePath().toUtf8().size() < kMaxVectorPathBytes;
}

void removeVectorFiles(const QString& path)
{
    if (path.isEmpty())
        return;
    CPLPushErrorHandler(CPLQuietErrorHandler);
    if (GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(vectorDriverForPath(path).toUtf8().constData()))
        driver->Delete(path.toUtf8().constData());
    CPLPopErrorHandler();
    QFile::remove(path);
    if (QFileInfo(path).suffix().toLower() == QLatin1String("shp"))
    {
        const QFileInfo info(path);
        for (const char* side : {"shx", "dbf", "prj", "cpg", "qix", "sbn", "sbx"})
            QFile::remove(info.path() + QLatin1Char('/') + info.completeBaseName() + QLatin1Char('.') +
                          QLatin1String(side));
    }
}

GDALDatasetUniquePtr createVectorOutput(const QString& path)
{
    if (!vectorPathFits(path))
        throw algokit::AlgoError(QStringLiteral("The path %1 is too long for a vector file").arg(path));
    const QString driverName = vectorDriverForPath(path);
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(driverName.toUtf8().constData());
    if (!driver)
        throw algokit::AlgoError(QStringLiteral("No vector driver writes %1").arg(path));
    removeVectorFiles(path);
    CPLErrorReset();
    GDALDatasetUniquePtr out(driver->Create(path.toUtf8().constData(), 0, 0, 0, GDT_Unknown, nullptr));
    if (!out)
        throw algokit::AlgoError(
            QStringLiteral("Cannot create %1: %2").arg(path, QString::fromUtf8(CPLGetLastErrorMsg())));
    return out;
}

OGRwkbGeometryType polygonLayerType(const QString& driver)
{
    return driver == QLatin1String("ESRI Shapefile") ? wkbPolygon : wkbMultiPolygon;
}

std::vector<int> copyFields(OGRFeatureDefn* from, OGRLayer* to, const QStringList& only)
{
    std::vector<int> copied;
    for (int i = 0; i < from->GetFieldCount(); ++i)
    {
        OGRFieldDefn* field = from->GetFieldDefn(i);
        if (!only.isEmpty() && !only.contains(QString::fromUtf8(field->GetNameRef()), Qt::CaseInsensitive))
            continue;
        if (to->CreateField(field) != OGRERR_NONE)
            throw algokit::AlgoError(
                QStringLiteral("Cannot create the field %1: %2")
                    .arg(QString::fromUtf8(field->GetNameRef()), QString::fromUtf8(CPLGetLastErrorMsg())));
        copied.push_back(i);
    }
    return copied;
}

} // namespace datautil
