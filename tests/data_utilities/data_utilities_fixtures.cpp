// Fixtures of the data-utility tests.
#include "data_utilities_fixtures.h"

#include <ogrsf_frmts.h>

#include <QDir>

namespace datafixtures
{

void setGrid(const QString& path, double originX, double originY, double pixelSize, int epsg)
{
    GDALDataset* ds = GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_UPDATE);
    ASSERT_TRUE(ds);
    double gt[6] = {originX, pixelSize, 0.0, originY, 0.0, -pixelSize};
    ds->SetGeoTransform(gt);
    if (epsg > 0)
    {
        OGRSpatialReference srs;
        srs.importFromEPSG(epsg);
        ds->SetSpatialRef(&srs);
    }
    GDALClose(ds);
}

void makeClassImage(const QString& path, int classes)
{
    GDALDataset* ds = GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_UPDATE);
    ASSERT_TRUE(ds);
    GDALColorTable table;
    CPLStringList names;
    for (int i = 0; i < classes; ++i)
    {
        const GDALColorEntry entry{short(10 * i), short(20 * i), short(30 * i), 255};
        table.SetColorEntry(i, &entry);
        names.AddString(CPLSPrintf("c%d", i));
    }
    ds->GetRasterBand(1)->SetColorTable(&table);
    ds->GetRasterBand(1)->SetCategoryNames(names.List());
    GDALClose(ds);
}

bool makeVector(const QString& path, int epsg, const std::vector<std::string>& fields,
                const std::vector<VectorFeature>& features, const char* driverName)
{
    GDALAllRegister();
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(driverName);
    GDALDataset* ds = driver->Create(path.toUtf8().constData(), 0, 0, 0, GDT_Unknown, nullptr);
    if (!ds)
        return false;
    OGRSpatialReference srs;
    srs.importFromEPSG(epsg);
    OGRLayer* layer = ds->CreateLayer("layer", &srs, wkbUnknown, nullptr);
    for (const std::string& name : fields)
    {
        OGRFieldDefn field(name.c_str(), OFTReal);
        layer->CreateField(&field);
    }
    OGRFieldDefn nameField("name", OFTString);
    layer->CreateField(&nameField);
    for (const VectorFeature& item : features)
    {
        OGRFeature feature(layer->GetLayerDefn());
        for (size_t i = 0; i < item.values.size(); ++i)
            feature.SetField(int(i), item.values[i]);
        feature.SetField(int(fields.size()), item.name.c_str());
        OGRGeometry* geometry = nullptr;
        OGRGeometryFactory::createFromWkt(item.wkt.c_str(), nullptr, &geometry);
        feature.SetGeometryDirectly(geometry);
        if (layer->CreateFeature(&feature) != OGRERR_NONE)
        {
            GDALClose(ds);
            return false;
        }
    }
    GDALClose(ds);
    return true;
}

Outcome call(const std::function<bool(AlgoResult*)>& entry)
{
    Outcome outcome;
    testsupport::RecordingResult result;
    testsupport::StdoutCapture capture;
    outcome.ok = entry(&result.record);
    outcome.printed = capture.text();
    outcome.message = result.record.message;
    return outcome;
}

std::string outputLine(const std::string& printed, const std::string& key)
{
    const std::string head = "[OUTPUT] " + key + "=\"";
    for (const std::string& line : testsupport::lines(printed))
        if (line.rfind(head, 0) == 0 && line.size() > head.size() && line.back() == '"')
            return line.substr(head.size(), line.size() - head.size() - 1);
    return std::string();
}

QStringList filesIn(const QString& folder)
{
    QStringList names = QDir(folder).entryList(QDir::Files);
    names.sort();
    return names;
}

} // namespace datafixtures
