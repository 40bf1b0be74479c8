// Fixtures of the classification tests.
#include "class_fixtures.h"

#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <QFile>

namespace classtest
{

bool makeClassImage(const QString& path, int width, int height, int colours, const std::function<int(int, int)>& value,
                    const QStringList& names, double degrees)
{
    // HFA keeps the colour table as long as it is given (GeoTIFF pads it to 256 entries).
    const QString driver = path.endsWith(QLatin1String(".tif")) ? QStringLiteral("GTiff") : QStringLiteral("HFA");
    if (!testsupport::makeRaster(path, width, height, 1, GDT_Byte, [&](int, int x, int y) { return value(x, y); }, driver))
        return false;
    GDALDataset* dataset = GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_UPDATE);
    if (!dataset)
        return false;
    GDALRasterBand* band = dataset->GetRasterBand(1);
    if (colours >= 0)
    {
        GDALColorTable table;
        for (int i = 0; i < colours; ++i)
        {
            const GDALColorEntry entry{short(40 + 50 * i % 216), short(200 - 30 * i % 200), short(10 + 70 * i % 246), 255};
            table.SetColorEntry(i, &entry);
        }
        band->SetColorTable(&table);
    }
    if (!names.isEmpty())
    {
        CPLStringList list;
        for (const QString& name : names)
            list.AddString(name.toUtf8().constData());
        band->SetCategoryNames(list.List());
    }
    if (degrees > 0)
    {
        double transform[6] = {116.0, degrees, 0.0, 40.0, 0.0, -degrees};
        dataset->SetGeoTransform(transform);
        OGRSpatialReference srs;
        srs.importFromEPSG(4326);
        dataset->SetSpatialRef(&srs);
    }
    GDALClose(GDALDataset::ToHandle(dataset));
    return true;
}

int colourCount(const QString& path)
{
    GDALDataset* dataset = GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_RASTER);
    if (!dataset)
        return -1;
    const GDALColorTable* table = dataset->GetRasterBand(1)->GetColorTable();
    const int count = table ? table->GetColorEntryCount() : -1;
    GDALClose(GDALDataset::ToHandle(dataset));
    return count;
}

QStringList categoryNames(const QString& path)
{
    QStringList names;
    GDALDataset* dataset = GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_RASTER);
    if (!dataset)
        return names;
    for (char** name = dataset->GetRasterBand(1)->GetCategoryNames(); name && *name; ++name)
        names << QString::fromUtf8(*name);
    GDALClose(GDALDataset::ToHandle(dataset));
    return names;
}

void writeText(const QString& path, const std::string& text)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(text.data(), qint64(text.size()));
}

std::string readText(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return "<missing>";
    return file.readAll().toStdString();
}

Outcome capture(const std::function<bool()>& call)
{
    testsupport::StdoutCapture output;
    const bool ok = call();
    return {ok, output.text()};
}

std::string pluginStart(const char* name)
{
    return std::string("start call algorithm plugin: ") + name + "\n";
}

} // namespace classtest
