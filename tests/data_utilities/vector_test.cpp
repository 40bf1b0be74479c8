// Raster/vector conversion, buffers and overlay union: polygons against 8-connected components counted by flood
// fill, burnt pixels against point-in-rectangle by hand, areas against the geometry's formula.
#include "data_utilities_fixtures.h"

#include <ogrsf_frmts.h>

#include <QFile>
#include <algorithm>
#include <cmath>
#include <map>

using namespace testsupport;
using namespace datafixtures;

namespace
{

struct PolygonSummary
{
    std::map<int, int> count;   // features per value
    std::map<int, double> area; // total area per value
    std::map<int, std::string> name;
};

PolygonSummary summarise(const QString& path)
{
    PolygonSummary summary;
    GDALDataset* ds = GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_VECTOR);
    if (!ds)
        return summary;
    OGRLayer* layer = ds->GetLayer(0);
    const int nameField = layer->GetLayerDefn()->GetFieldIndex("class");
    for (auto& feature : *layer)
    {
        const int value = feature->GetFieldAsInteger("value");
        ++summary.count[value];
        summary.area[value] += feature->GetGeometryRef()->toPolygon()->get_Area();
        if (nameField >= 0)
            summary.name[value] = feature->GetFieldAsString(nameField);
    }
    GDALClose(ds);
    return summary;
}

// Components of equal value, 8-connected, by flood fill; `skip` is left out.
PolygonSummary components(const std::vector<double>& pixels, int width, int height, double pixelArea, int skip)
{
    PolygonSummary summary;
    std::vector<char> seen(pixels.size(), 0);
    for (int start = 0; start < int(pixels.size()); ++start)
    {
        const int value = int(pixels[size_t(start)]);
        if (seen[size_t(start)] || value == skip)
            continue;
        ++summary.count[value];
        std::vector<int> stack{start};
        seen[size_t(start)] = 1;
        while (!stack.empty())
        {
            const int at = stack.back();
            stack.pop_back();
            summary.area[value] += pixelArea;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx)
                {
                    const int x = at % width + dx, y = at / width + dy;
                    if (x < 0 || y < 0 || x >= width || y >= height)
                        continue;
                    const int next = y * width + x;
                    if (!seen[size_t(next)] && int(pixels[size_t(next)]) == value)
                    {
                        seen[size_t(next)] = 1;
                        stack.push_back(next);
                    }
                }
        }
    }
    return summary;
}

} // namespace

TEST(RasterToVector, PolygonsPerValueMatchTheConnectedComponentsWithClassNames)
{
    QTemporaryDir dir;
    const QString in = dir.filePath("classes.tif");
    // Blobs, diagonal touches (joined under 8-connectivity) and a nodata strip.
    auto value = [](int, int x, int y) {
        if (y == 3)
            return 255.0;
        if ((x / 3 + y / 4) % 3 == 0)
            return 1.0;
        return double((x * x + 3 * y) % 4 == 0 ? 2 : 0);
    };
    ASSERT_TRUE(makeGeoTiff(in, 20, 16, 1, GDT_Byte, value, {}, 255.0));
    makeClassImage(in, 3);
    const Outcome run = call([&](AlgoResult* r) { return ExcuteAlgo_RasterToVector(in.toUtf8(), 1, r); });
    ASSERT_TRUE(run.ok) << run.message << run.printed;
    const QString shp = dir.filePath("classes.shp");
    EXPECT_EQ(outputLine(run.printed, "OutputFile"), shp.toStdString());

    const PolygonSummary got = summarise(shp);
    const PolygonSummary expected = components(readBand(in, 1), 20, 16, 900.0, 255);
    EXPECT_EQ(got.count, expected.count);
    ASSERT_EQ(got.area.size(), expected.area.size());
    for (const auto& item : expected.area)
        EXPECT_NEAR(got.area.at(item.first), item.second, 1e-6) << item.first;
    EXPECT_EQ(got.name.at(1), "c1");
    EXPECT_EQ(got.count.count(255), 0u) << "nodata is skipped";
}

TEST(RasterToVector, RealLandCoverAreasAgreeWithPixelCountsAndTheAttributeTable)
{
    SKIP_WITHOUT_SHARED_DATA("gdal/lc.tif");
    QTemporaryDir dir;
    for (const char* name : {"lc.tif", "lc.tif.aux.xml"})
        ASSERT_TRUE(QFile::copy(sharedDataPath(QStringLiteral("gdal/") + name), dir.filePath(name)));
    const QString in = dir.filePath("lc.tif");
    const Outcome run = call([&](AlgoResult* r) { return ExcuteAlgo_RasterToVector(in.toUtf8(), 1, r); });
    ASSERT_TRUE(run.ok) << run.message;
    GDALDataset* ds = GDALDataset::Open(in.toUtf8().constData());
    double gt[6];
    ds->GetGeoTransform(gt);
    GDALRasterAttributeTable* table = ds->GetRasterBand(1)->GetDefaultRAT();
    ASSERT_TRUE(table);
    int hasNoData = 0;
    const double noData = ds->GetRasterBand(1)->GetNoDataValue(&hasNoData);
    GDALClose(ds);
    const PolygonSummary got = summarise(dir.filePath("lc.shp"));
    const PolygonSummary expected =
        components(readBand(in, 1), 84, 46, std::fabs(gt[1] * gt[5]), hasNoData ? int(noData) : -1);
    EXPECT_EQ(got.count, expected.count);
    for (const auto& item : expected.area)
        EXPECT_NEAR(got.area.at(item.first), item.second, 1e-3 * item.second) << item.first;
    EXPECT_FALSE(got.name.empty());
    for (const auto& item : got.name)
        EXPECT_FALSE(item.second.empty()) << item.first;
}

TEST(VectorToRaster, BurnValueAndFirstNumericFieldAgainstPixelCentresByHand)
{
    QTemporaryDir dir;
    const QString shp = dir.filePath("fields.shp");
    ASSERT_TRUE(makeVector(shp, 32650, {"v"},
                           {{"POLYGON((0 0,100 0,100 50,0 50,0 0))", {3}, "low"},
                            {"POLYGON((100 0,200 0,200 100,100 100,100 0))", {7.5}, "high"}}));
    // 20 x 10 pixels of 10 m over x 0..200, y 0..100.
    auto expectedValue = [](int x, int y, double a, double b) {
        const double cx = 10.0 * x + 5.0, cy = 95.0 - 10.0 * y;
        if (cx < 100.0 && cy < 50.0)
            return a;
        if (cx > 100.0)
            return b;
        return 0.0;
    };
    for (int burn : {0, 9})
    {
        const QString out = dir.filePath(QStringLiteral("burn%1.tif").arg(burn));
        const Outcome run =
            call([&](AlgoResult* r) { return ExcuteAlgo_VectorToRaster(shp.toUtf8(), 20, 10, burn, out.toUtf8(), r); });
        ASSERT_TRUE(run.ok) << run.message;
        EXPECT_EQ(outputLine(run.printed, "OutputFile"), out.toStdString());
        const std::vector<double> pixels = readBand(out, 1);
        for (int y = 0; y < 10; ++y)
            for (int x = 0; x < 20; ++x)
                ASSERT_EQ(pixels[size_t(y * 20 + x)], burn ? expectedValue(x, y, 9, 9) : expectedValue(x, y, 3, 7.5))
                    << burn << " " << x << "," << y;
        GDALDataset* ds = GDALDataset::Open(out.toUtf8().constData());
        double gt[6];
        ds->GetGeoTransform(gt);
        EXPECT_EQ(gt[0], 0.0);
        EXPECT_EQ(gt[3], 100.0);
        EXPECT_EQ(gt[1], 10.0);
        EXPECT_EQ(ds->GetRasterBand(1)->GetNoDataValue(), 0.0);
        EXPECT_EQ(ds->GetRasterBand(1)->GetRasterDataType(), burn ? GDT_Byte : GDT_Float64);
        EXPECT_TRUE(ds->GetSpatialRef() && ds->GetSpatialRef()->GetEPSGGeogCS() == 4326);
        GDALClose(ds);
    }
}

TEST(VectorToRaster, Refusals)
{
    QTemporaryDir dir;
    const QString shp = dir.filePath("names.shp"), empty = dir.filePath("empty.shp"), raster = dir.filePath("r.tif");
    ASSERT_TRUE(makeVector(shp, 32650, {}, {{"POLYGON((0 0,1 0,1 1,0 0))", {}, "x"}}));
    ASSERT_TRUE(makeVector(empty, 32650, {"v"}, {}));
    ASSERT_TRUE(makeRaster(raster, 3, 3, 1, GDT_Byte, [](int, int, int) { return 1; }));
    const QString out = dir.filePath("out.tif");
    struct Row
    {
        QString input;
        int width, height, burn;
        std::string message;
    };
    const Row rows[] = {
        {shp, 0, 5, 1, "VectorToRaster: the parameter Width (0) must be at least 1!"},
        {shp, 5, 0, 1, "VectorToRaster: the parameter Height (0) must be at least 1!"},
        {shp, 5, 5, -2, "VectorToRaster: the parameter BurnValue (-2) must be at least 0!"},
        {raster, 5, 5, 1,
         "VectorToRaster: the parameter InputFile (" + raster.toStdString() + ") cannot be opened as a vector layer!"},
        {empty, 5, 5, 1, "VectorToRaster: the parameter InputFile (" + empty.toStdString() + ") holds no feature!"},
        {shp, 5, 5, 0,
         "VectorToRaster: the parameter BurnValue (0) burns each feature's first numeric field, and " +
             shp.toStdString() + " has none!"},
    };
    for (const Row& row : rows)
    {
        const Outcome run = call([&](AlgoResult* r) {
            return ExcuteAlgo_VectorToRaster(row.input.toUtf8(), row.width, row.height, row.burn, out.toUtf8(), r);
        });
        EXPECT_FALSE(run.ok);
        EXPECT_EQ(run.message, row.message);
        EXPECT_FALSE(QFile::exists(out));
    }
}

TEST(BufferAnalyse, GrowAndShrinkASquareByTheDistance)
{
    QTemporaryDir dir;
    const QString shp = dir.filePath("squares.shp");
    ASSERT_TRUE(makeVector(
        shp, 32650, {"id"},
        {{"POLYGON((0 0,10 0,10 10,0 10,0 0))", {1}, "big"}, {"POLYGON((20 0,23 0,23 3,20 3,20 0))", {2}, "small"}}));
    const QString grown = dir.filePath("grown.geojson");
    const Outcome run =
        call([&](AlgoResult* r) { return ExcuteAlgo_BufferAnalyse(shp.toUtf8(), grown.toUtf8(), 1.0, r); });
    ASSERT_TRUE(run.ok) << run.message;
    EXPECT_EQ(outputLine(run.printed, "OutputFile"), grown.toStdString());
    GDALDataset* ds = GDALDataset::Open(grown.toUtf8().constData(), GDAL_OF_VECTOR);
    ASSERT_TRUE(ds);
    OGRLayer* layer = ds->GetLayer(0);
    ASSERT_EQ(layer->GetFeatureCount(), 2);
    std::unique_ptr<OGRFeature> first(layer->GetNextFeature());
    // Square of side 10 grown by 1: 100 + 4 x 10 + a disc of radius 1 (rounded corners as 30-segment quadrants).
    EXPECT_NEAR(first->GetGeometryRef()->toMultiPolygon()->get_Area(), 140.0 + M_PI, 0.01);
    EXPECT_STREQ(first->GetFieldAsString("name"), "big");
    GDALClose(ds);

    const QString shrunk = dir.filePath("shrunk.shp");
    ASSERT_TRUE(
        call([&](AlgoResult* r) { return ExcuteAlgo_BufferAnalyse(shp.toUtf8(), shrunk.toUtf8(), -2.0, r); }).ok);
    ds = GDALDataset::Open(shrunk.toUtf8().constData(), GDAL_OF_VECTOR);
    layer = ds->GetLayer(0);
    ASSERT_EQ(layer->GetFeatureCount(), 1) << "the 3 m square vanishes";
    first.reset(layer->GetNextFeature());
    EXPECT_NEAR(first->GetGeometryRef()->toPolygon()->get_Area(), 36.0, 1e-9);
    EXPECT_EQ(first->GetFieldAsInteger("id"), 1);
    GDALClose(ds);

    const Outcome bad = call(
        [&](AlgoResult* r) { return ExcuteAlgo_BufferAnalyse(shp.toUtf8(), dir.filePath("b.txt").toUtf8(), 1.0, r); });
    EXPECT_FALSE(bad.ok);
    EXPECT_EQ(bad.message, "BufferAnalyse: the parameter OutputFile (" + dir.filePath("b.txt").toStdString() +
                               ") must end in .shp, .geojson, .json, .gpkg or .kml!");
}

// Two overlapping squares, the second stored in the next UTM zone: three pieces of 75, 25 and 75 m^2, with the
// attributes of the layer each piece lies in.
TEST(VectorUnion, OverlayOfTwoLayersInDifferentSystems)
{
    QTemporaryDir dir;
    const QString a = dir.filePath("a.shp"), b = dir.filePath("b.shp");
    const double x0 = 500000, y0 = 4000000;
    ASSERT_TRUE(makeVector(a, 32650, {"id"},
                           {{CPLSPrintf("POLYGON((%f %f,%f %f,%f %f,%f %f,%f %f))", x0, y0, x0 + 10, y0, x0 + 10,
                                        y0 + 10, x0, y0 + 10, x0, y0),
                             {1},
                             "a"}}));
    OGRSpatialReference zone50, zone51;
    zone50.importFromEPSG(32650);
    zone51.importFromEPSG(32651);
    zone50.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    zone51.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    std::unique_ptr<OGRCoordinateTransformation> to51(OGRCreateCoordinateTransformation(&zone50, &zone51));
    OGRGeometry* square = nullptr;
    const std::string wkt = CPLSPrintf("POLYGON((%f %f,%f %f,%f %f,%f %f,%f %f))", x0 + 5, y0 + 5, x0 + 15, y0 + 5,
                                       x0 + 15, y0 + 15, x0 + 5, y0 + 15, x0 + 5, y0 + 5);
    OGRGeometryFactory::createFromWkt(wkt.c_str(), nullptr, &square);
    square->transform(to51.get());
    char* moved = nullptr;
    square->exportToWkt(&moved);
    ASSERT_TRUE(makeVector(b, 32651, {"id"}, {{moved, {2}, "b"}}));
    CPLFree(moved);
    delete square;

    const QString out = dir.filePath("union.shp");
    const Outcome run =
        call([&](AlgoResult* r) { return ExcuteAlgo_VectorUnion(a.toUtf8(), b.toUtf8(), out.toUtf8(), "", r); });
    ASSERT_TRUE(run.ok) << run.message;
    GDALDataset* ds = GDALDataset::Open(out.toUtf8().constData(), GDAL_OF_VECTOR);
    ASSERT_TRUE(ds);
    OGRLayer* layer = ds->GetLayer(0);
    OGRFeatureDefn* definition = layer->GetLayerDefn();
    ASSERT_EQ(definition->GetFieldCount(), 4);
    EXPECT_STREQ(definition->GetFieldDefn(2)->GetNameRef(), "id_2");
    EXPECT_STREQ(definition->GetFieldDefn(3)->GetNameRef(), "name_2");
    std::map<std::string, double> areas; // "<name>/<name_2>" -> area
    for (auto& feature : *layer)
        areas[std::string(feature->GetFieldAsString("name")) + "/" + feature->GetFieldAsString("name_2")] +=
            feature->GetGeometryRef()->toSurface()->get_Area();
    GDALClose(ds);
    ASSERT_EQ(areas.size(), 3u);
    EXPECT_NEAR(areas["a/"], 75.0, 0.05);
    EXPECT_NEAR(areas["a/b"], 25.0, 0.05);
    EXPECT_NEAR(areas["/b"], 75.0, 0.05);

    const QString named = dir.filePath("named.gpkg");
    ASSERT_TRUE(call([&](AlgoResult* r) {
                    return ExcuteAlgo_VectorUnion(a.toUtf8(), b.toUtf8(), named.toUtf8(), "name", r);
                }).ok);
    ds = GDALDataset::Open(named.toUtf8().constData(), GDAL_OF_VECTOR);
    ASSERT_EQ(ds->GetLayer(0)->GetLayerDefn()->GetFieldCount(), 2) << "name and name_2 only";
    EXPECT_EQ(ds->GetLayer(0)->GetFeatureCount(), 3);
    GDALClose(ds);

    const Outcome bad =
        call([&](AlgoResult* r) { return ExcuteAlgo_VectorUnion(a.toUtf8(), b.toUtf8(), out.toUtf8(), "id,kind", r); });
    EXPECT_FALSE(bad.ok);
    EXPECT_EQ(bad.message,
              "VectorUnion: the parameter Fields (id,kind) names the field kind, which neither layer has!");
}

// A host that answers "stop" at the first progress report gets false, the cancelled code and no file at all.
TEST(DataUtilities, StoppedRunsLeaveNothing)
{
    QTemporaryDir dir;
    const QString raster = dir.filePath("in.tif"), classes = dir.filePath("classes.tif"),
                  shp = dir.filePath("zones.shp");
    const QString xml = dir.filePath("src.xml");
    ASSERT_TRUE(makeRaster(raster, 40, 30, 3, GDT_UInt16, [](int b, int x, int y) { return b * 100 + x * y % 17; }));
    ASSERT_TRUE(makeRaster(classes, 40, 30, 1, GDT_Byte, [](int, int x, int y) { return (x / 7 + y / 5) % 3; }));
    makeClassImage(classes, 3);
    ASSERT_TRUE(makeVector(shp, 32650, {"v"},
                           {{"POLYGON((500000 3999100,500600 3999100,500600 4000000,500000 3999100))", {4}, "a"}}));
    QFile source(xml);
    ASSERT_TRUE(source.open(QIODevice::WriteOnly));
    source.write("<meta><SatelliteID>GF1</SatelliteID></meta>");
    source.close();
    const QStringList before = filesIn(dir.path());
    const QString out = dir.filePath("out");
    const std::vector<std::pair<const char*, std::function<bool(AlgoResult*)>>> calls = {
        {"BandCombination",
         [&](AlgoResult* r) {
             return ExcuteAlgo_BandCombination((raster + "|" + classes).toUtf8(), (out + ".tif").toUtf8(), "", 0, r);
         }},
        {"LayerStack",
         [&](AlgoResult* r) {
             return ExcuteAlgo_LayerStack((raster + "|" + classes).toUtf8(), (out + ".img").toUtf8(), r);
         }},
        {"RenderRaster",
         [&](AlgoResult* r) { return ExcuteAlgo_RenderRaster(raster.toUtf8(), (out + ".png").toUtf8(), "", r); }},
        {"BandTransform",
         [&](AlgoResult* r) { return ExcuteAlgo_BandTransform(raster.toUtf8(), (out + ".bil").toUtf8(), r); }},
        {"RasterToVector", [&](AlgoResult* r) { return ExcuteAlgo_RasterToVector(classes.toUtf8(), 1, r); }},
        {"VectorToRaster",
         [&](AlgoResult* r) { return ExcuteAlgo_VectorToRaster(shp.toUtf8(), 50, 50, 1, (out + ".tif").toUtf8(), r); }},
        {"BufferAnalyse",
         [&](AlgoResult* r) { return ExcuteAlgo_BufferAnalyse(shp.toUtf8(), (out + ".shp").toUtf8(), 5.0, r); }},
        {"VectorSmooth",
         [&](AlgoResult* r) { return ExcuteAlgo_VectorSmooth(shp.toUtf8(), 0.0, 2.0, (out + ".shp").toUtf8(), r); }},
        {"VectorUnion",
         [&](AlgoResult* r) {
             return ExcuteAlgo_VectorUnion(shp.toUtf8(), shp.toUtf8(), (out + ".gpkg").toUtf8(), "", r);
         }},
        {"BadlineInspection",
         [&](AlgoResult* r) { return ExcuteAlgo_BadlineInspection(raster.toUtf8(), (out + ".txt").toUtf8(), 5, r); }},
        {"QualityInspection",
         [&](AlgoResult* r) {
             return ExcuteAlgo_QualityInspection(raster.toUtf8(), classes.toUtf8(), (out + ".html").toUtf8(), 1, r);
         }},
        {"CreateMetaData",
         [&](AlgoResult* r) {
             return ExcuteAlgo_CreateMetaData(raster.toUtf8(), xml.toUtf8(), (out + ".xml").toUtf8(), "", r);
         }},
        {"CreateMetaDataSynthesis",
         [&](AlgoResult* r) {
             return ExcuteAlgo_CreateMetaDataSynthesis(raster.toUtf8(), xml.toUtf8(), (out + ".xml").toUtf8(), "", "",
                                                       "", "", "", "", r);
         }},
    };
    for (const auto& entry : calls)
    {
        RecordingResult result;
        result.answer = -1;
        StdoutCapture capture;
        EXPECT_FALSE(entry.second(&result.record)) << entry.first;
        EXPECT_EQ(result.record.code, -2) << entry.first;
        EXPECT_EQ(capture.text().find("[OUTPUT]"), std::string::npos) << entry.first;
        EXPECT_EQ(filesIn(dir.path()).join(", ").toStdString(), before.join(", ").toStdString()) << entry.first;
    }
}
