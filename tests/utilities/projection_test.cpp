// Raster utilities: the datum model lookup, defining and transforming reference systems.
#include "test_support.h"
#include "utilities/transform_model.h"

#include <ogr_spatialref.h>
#include <ogrsf_frmts.h>

using namespace testsupport;

namespace
{

QString shippedModels()
{
    return sourceDir() + "/data/Geograpic transformation model/geotranforms.xml";
}

std::string authorityCode(const QString& path)
{
    GDALDataset* ds = GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_VECTOR);
    if (!ds)
        return "";
    const OGRSpatialReference* srs = ds->GetRasterCount() ? ds->GetSpatialRef() : ds->GetLayer(0)->GetSpatialRef();
    OGRSpatialReference copy;
    if (srs)
        copy = *srs;
    GDALClose(ds);
    if (!srs)
        return "";
    copy.AutoIdentifyEPSG();
    const char* code = copy.GetAuthorityCode(nullptr);
    return code ? code : "";
}

} // namespace

TEST(TransformModel, ShippedFileCoversTheCommonDatums)
{
    const struct
    {
        const char* source;
        const char* target;
        bool found;
        const char* from;
        const char* to;
    } rows[] = {
        {"EPSG:4326", "EPSG:32650", true, "WGS84", "WGS84"},
        {"EPSG:4214", "EPSG:4326", true, "Beijing1954", "WGS84"},
        {"EPSG:4326", "EPSG:4610", true, "WGS84", "Xian1980"},
        {"EPSG:4490", "EPSG:4214", true, "CGCS2000", "Beijing1954"},
        {"EPSG:4490", "EPSG:4326", true, "CGCS2000", "WGS84"},
        {"EPSG:4269", "EPSG:26918", true, "NORTHAMERICANDATUM1983", "NORTHAMERICANDATUM1983"},
        {"EPSG:4269", "EPSG:4326", false, "", ""},
        {"EPSG:4326", "nonsense", false, "", ""},
        {"", "EPSG:4326", false, "", ""},
    };
    for (const auto& row : rows)
    {
        algofactory::TransformModel model;
        EXPECT_EQ(algofactory::findTransformModel(shippedModels(), row.source, row.target, &model), row.found)
            << row.source << " -> " << row.target;
        if (!row.found)
            continue;
        EXPECT_EQ(model.source.toStdString(), row.from);
        EXPECT_EQ(model.target.toStdString(), row.to);
    }
}

TEST(TransformModel, EntryOfTheDatumBeatsSameDatumAndParametersAreRead)
{
    QTemporaryDir dir;
    QFile file(dir.filePath("models.xml"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("<GeoTransformsModels>"
               "<GeoTransformsModel><srccs>SameDatum</srccs><destcs>SameDatum</destcs><modelname>Identity</modelname>"
               "</GeoTransformsModel>"
               "<GeoTransformsModel><srccs>Beijing1954</srccs><destcs>Beijing1954</destcs><modelname>Local</modelname>"
               "<dx>1.5</dx><dy>-2</dy><dz>3</dz><rx>0.1</rx><ry>0.2</ry><rz>0.3</rz></GeoTransformsModel>"
               "</GeoTransformsModels>");
    file.close();
    algofactory::TransformModel model;
    ASSERT_TRUE(algofactory::findTransformModel(file.fileName(), "EPSG:4214", "EPSG:2401", &model));
    EXPECT_EQ(model.name, "Local");
    EXPECT_EQ(model.xShift, 1.5);
    EXPECT_EQ(model.yShift, -2.0);
    EXPECT_EQ(model.zShift, 3.0);
    EXPECT_EQ(model.zRotation, 0.3);
    ASSERT_TRUE(algofactory::findTransformModel(file.fileName(), "EPSG:4326", "EPSG:32650", &model));
    EXPECT_EQ(model.name, "Identity");
    EXPECT_FALSE(algofactory::findTransformModel(dir.filePath("none.xml"), "EPSG:4326", "EPSG:4326", &model));
}

TEST(ProjectDef, RasterInPlaceAndShapefilePrj)
{
    QTemporaryDir dir;
    const QString raster = dir.filePath("r.tif");
    ASSERT_TRUE(makeRaster(raster, 4, 4, 1, GDT_Byte, [](int, int x, int) { return x; }));
    RecordingResult result;
    ASSERT_TRUE(ExcuteAlgo_ProjectDef(raster.toUtf8(), "EPSG:4490", &result.record));
    EXPECT_EQ(authorityCode(raster), "4490");
    EXPECT_EQ(readBand(raster, 1), (std::vector<double>{0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3}));

    const QString shp = dir.filePath("v.shp");
    GDALDataset* vector = GetGDALDriverManager()->GetDriverByName("ESRI Shapefile")->Create(
        shp.toUtf8().constData(), 0, 0, 0, GDT_Unknown, nullptr);
    ASSERT_TRUE(vector);
    vector->CreateLayer("v", nullptr, wkbPolygon, nullptr);
    GDALClose(vector);
    ASSERT_TRUE(ExcuteAlgo_ProjectDef(shp.toUtf8(), "EPSG:4326", &result.record));
    EXPECT_TRUE(QFile::exists(dir.filePath("v.prj")));
    EXPECT_EQ(authorityCode(shp), "4326");

    StdoutCapture capture;
    EXPECT_FALSE(ExcuteAlgo_ProjectDef(raster.toUtf8(), "no such projection", &result.record));
    capture.text();
    EXPECT_EQ(std::string(result.record.message), "Unknown reference system: no such projection");
    EXPECT_EQ(authorityCode(raster), "4490") << "left unchanged";
}

TEST(ProjectTrans, ReprojectsWhenTheModelIsFound)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("utm.tif"); // UTM 50N, 30 m pixels from (500000, 4000000)
    ASSERT_TRUE(makeRaster(input, 40, 30, 1, GDT_Byte, [](int, int x, int y) { return 1 + (x + y) % 200; }));
    const QString output = dir.filePath("geo.tif");
    RecordingResult result;
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_ProjectTrans(input.toUtf8(), output.toUtf8(), "EPSG:4326", 0, &result.record));
    capture.text();
    EXPECT_EQ(authorityCode(output), "4326");
    // The upper-left corner, transformed independently, lies within one output pixel of the output's origin.
    OGRSpatialReference utm, wgs;
    utm.importFromEPSG(32650);
    wgs.importFromEPSG(4326);
    utm.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    wgs.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    std::unique_ptr<OGRCoordinateTransformation> ct(OGRCreateCoordinateTransformation(&utm, &wgs));
    double x = 500000, y = 4000000;
    ASSERT_TRUE(ct->Transform(1, &x, &y));
    GDALDataset* ds = GDALDataset::Open(output.toUtf8().constData());
    double gt[6];
    ds->GetGeoTransform(gt);
    GDALClose(ds);
    EXPECT_NEAR(gt[0], x, std::abs(gt[1]));
    EXPECT_NEAR(gt[3], y, std::abs(gt[5]) * 2); // the top edge bulges north of the corner
}

TEST(ProjectTrans, NoModelIsASilentFalse)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("nad.tif");
    ASSERT_TRUE(makeRaster(input, 4, 4, 1, GDT_Byte, [](int, int x, int) { return x; }));
    ASSERT_TRUE(ExcuteAlgo_ProjectDef(input.toUtf8(), "EPSG:26918", nullptr));
    for (const char* target : {"EPSG:4326", "an unknown projection text"})
    {
        const QString output = dir.filePath("out.tif");
        RecordingResult result;
        StdoutCapture capture;
        EXPECT_FALSE(ExcuteAlgo_ProjectTrans(input.toUtf8(), output.toUtf8(), target, 0, &result.record)) << target;
        EXPECT_EQ(capture.text(), "") << target;
        EXPECT_FALSE(QFile::exists(output));
    }
}
