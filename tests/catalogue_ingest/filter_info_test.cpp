// GetIndexInfo and FilterImg over an index written by CreateImgIndex and over plain raster lists: counts,
// extents, date ranges, satellite matching, and the refusals of both.
#include "catalogue_test_support.h"

#include <gdal_priv.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <memory>

using namespace testsupport;
using namespace cataloguetest;

namespace
{

// A fully valid Byte GeoTIFF in WGS 84 covering [lon0, lon0 + 1] x [lat0 - 1, lat0].
void makeTile(const QString& path, double lon0, double lat0)
{
    GDALAllRegister();
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GTiff");
    std::unique_ptr<GDALDataset> ds(driver->Create(path.toUtf8().constData(), 20, 20, 1, GDT_Byte, nullptr));
    ASSERT_TRUE(ds);
    double gt[6] = {lon0, 0.05, 0.0, lat0, 0.0, -0.05};
    ds->SetGeoTransform(gt);
    OGRSpatialReference srs;
    srs.importFromEPSG(4326);
    ds->SetSpatialRef(&srs);
    ds->GetRasterBand(1)->Fill(5);
}

// Three tiles named after their missions: GF-1 on 2015-06-07 at (100, 30), GF-2 on 2016-04-12 at (102, 30),
// a Landsat 8 scene ID of 2015-08-04 (day 216) at (100, 40).
struct Tiles
{
    QTemporaryDir dir;
    QString gf1, gf2, landsat;
    Tiles()
    {
        gf1 = dir.filePath("GF1_PMS1_E100.5_N29.5_20150607_L1A0000832093-MSS1.tiff");
        gf2 = dir.filePath("GF2_PMS2_E102.5_N29.5_20160412_L1A0001515617-MSS2.tiff");
        landsat = dir.filePath("LC81290322015216LGN00.tif");
        makeTile(gf1, 100.0, 30.0);
        makeTile(gf2, 102.0, 30.0);
        makeTile(landsat, 100.0, 40.0);
    }
    QString list() const { return gf1 + "|" + gf2 + "|" + landsat; }
};

} // namespace

TEST(CatalogueFilter, IndexInfoSummarisesTheIndex)
{
    Tiles tiles;
    const QString index = tiles.dir.filePath("index.gpkg");
    ASSERT_TRUE(
        runJson(ExcuteAlgo_CreateImgIndex, QJsonObject{{"InputFiles", tiles.list()}, {"OutputFile", index}}).ok);
    const QString json = tiles.dir.filePath("info/summary.json");
    const EntryRun run = runJson(ExcuteAlgo_GetIndexInfo, QJsonObject{{"IndexFile", index}, {"JsonFile", json}});
    ASSERT_TRUE(run.ok) << run.text;
    EXPECT_EQ(run.outputs.value("ImageCount"), "3");
    EXPECT_EQ(run.outputs.value("Extent"), "100|29|103|40");
    EXPECT_EQ(run.outputs.value("DateRange"), "2015-06-07|2016-04-12");
    EXPECT_EQ(run.outputs.value("Satellites"), "GF1:1,GF2:1,LANDSAT_8:1");
    EXPECT_EQ(run.outputs.value("Sensors"), "OLI_TIRS:1,PMS1:1,PMS2:1");
    EXPECT_TRUE(run.outputs.value("Fields").startsWith("path:String,file_name:String,satellite:String"));
    EXPECT_EQ(run.outputs.value("JsonFile"), json);
    QFile file(json);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QJsonObject object = QJsonDocument::fromJson(file.readAll()).object();
    EXPECT_EQ(object.value("imageCount").toInt(), 3);
    EXPECT_EQ(object.value("satellites").toObject().value("GF2").toInt(), 1);
    EXPECT_EQ(QJsonDocument::fromJson(run.outputs.value("IndexInfo_JSON").toUtf8()).object(), object);

    const EntryRun bad = runJson(ExcuteAlgo_GetIndexInfo, QJsonObject{{"IndexFile", tiles.gf1}});
    EXPECT_FALSE(bad.ok);
    EXPECT_NE(
        bad.text.find(
            ("[ERROR] GetIndexInfo: the parameter IndexFile (" + tiles.gf1 + ") is not a vector file!").toStdString()),
        std::string::npos)
        << bad.text;
}

TEST(CatalogueFilter, ExtentSatelliteAndDatesOnIndexesAndLists)
{
    Tiles tiles;
    const QString index = tiles.dir.filePath("index.shp");
    ASSERT_TRUE(
        runJson(ExcuteAlgo_CreateImgIndex, QJsonObject{{"InputFiles", tiles.list()}, {"OutputFile", index}}).ok);
    struct Row
    {
        const char* extent;
        const char* satellite;
        const char* dates;
        QStringList expected;
    };
    const Row rows[] = {
        {"", "", "", {tiles.gf1, tiles.gf2, tiles.landsat}},
        {"100.2|29.2|100.4|29.4", "", "", {tiles.gf1}},
        {"POLYGON((99 28,104 28,104 31,99 31,99 28))", "", "", {tiles.gf1, tiles.gf2}},
        {R"({"type":"Point","coordinates":[102.5,29.5]})", "", "", {tiles.gf2}},
        {"", "landsat8", "", {tiles.landsat}},
        {"", "gf-1, GF 2", "", {tiles.gf1, tiles.gf2}},
        {"", "", "2015-01-01|2015-12-31", {tiles.gf1, tiles.landsat}},
        {"", "", "2015-08-04|", {tiles.gf2, tiles.landsat}},
        {"99|28|104|31", "gf", "|2015-12-31", {tiles.gf1}},
        {"0|0|1|1", "", "", {}},
    };
    for (const QString& source : {index, tiles.list()})
        for (const Row& row : rows)
        {
            SCOPED_TRACE(QString("%1 / %2 / %3 / %4").arg(source, row.extent, row.satellite, row.dates).toStdString());
            const EntryRun run = runJson(ExcuteAlgo_FilterImg, QJsonObject{{"InputFiles", source},
                                                                           {"Extent", row.extent},
                                                                           {"Satellite", row.satellite},
                                                                           {"DateRange", row.dates}});
            ASSERT_TRUE(run.ok) << run.text;
            QStringList got = run.outputs.value("FilteredFiles").split('|', Qt::SkipEmptyParts);
            got.sort();
            QStringList expected = row.expected;
            expected.sort();
            EXPECT_EQ(got, expected);
            EXPECT_EQ(run.outputs.value("MatchCount").toInt(), expected.size());
        }

    const std::pair<QJsonObject, QString> refusals[] = {
        {QJsonObject{{"InputFiles", index}, {"Extent", "10|20|30"}},
         "[ERROR] FilterImg: the parameter Extent (10|20|30) is not a WKT or GeoJSON geometry nor minx|miny|maxx|maxy "
         "in WGS 84!"},
        {QJsonObject{{"InputFiles", index}, {"DateRange", "2016|2015"}},
         "[ERROR] FilterImg: the parameter DateRange (2016|2015) is not two dates from|to (either may be empty) in "
         "order!"},
        {QJsonObject{{"InputFiles", tiles.dir.filePath("nothing.gpkg")}},
         "[ERROR] FilterImg: the parameter InputFiles (" + tiles.dir.filePath("nothing.gpkg") +
             ") is neither a raster, a product, a folder holding one nor an index!"},
    };
    for (const auto& refusal : refusals)
    {
        const EntryRun run = runJson(ExcuteAlgo_FilterImg, refusal.first);
        EXPECT_FALSE(run.ok);
        EXPECT_NE(run.text.find(refusal.second.toStdString()), std::string::npos) << run.text;
        EXPECT_EQ(run.text.find("[OUTPUT]"), std::string::npos);
    }
}
