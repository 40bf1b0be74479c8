// The clip entries: messages and lines in order, the buffer rule, the temporary range folder, and the clipped
// rasters' extents and pixels against values computed here.
#include "clip_fixtures.h"
#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <cstdlib>

using namespace testsupport;
using namespace cliptest;

namespace
{

// Geographic test grid: 40 x 30 pixels of 0.01 degree from (100.0, 40.0); values are never 0.
const Grid kGeo{100.0, 40.0, 0.01, 4326};
double geoValue(int, int x, int y)
{
    return 1 + x + 40 * y;
}

const char* const kTriangleWkt = "POLYGON((100.05 39.95,100.25 39.95,100.05 39.75,100.05 39.95))";
const char* const kTriangleJson =
    "{\"coordinates\":[[[100.05,39.95],[100.25,39.95],[100.05,39.75],[100.05,39.95]]],\"type\":\"Polygon\"}";

struct ClipRun
{
    bool ok;
    std::vector<std::string> lines;
};

class ClipTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        m_tmp = m_dir.path() + "/tmp";
        QDir().mkpath(m_tmp);
        m_savedTmp = qgetenv("TMPDIR");
        qputenv("TMPDIR", m_tmp.toUtf8());
        m_geo = path("geo.tif");
        ASSERT_TRUE(makeGridRaster(m_geo, 40, 30, 1, GDT_Int16, kGeo, geoValue));
        m_utm = path("utm.tif");
        ASSERT_TRUE(makeRaster(m_utm, 20, 15, 2, GDT_UInt16, [](int b, int x, int y) { return b * 1000 + y * 20 + x; }));
    }
    void TearDown() override
    {
        if (m_savedTmp.isEmpty())
            qunsetenv("TMPDIR");
        else
            qputenv("TMPDIR", m_savedTmp);
    }

    QString path(const QString& name) const { return m_dir.path() + "/" + name; }

    static std::string projectionOf(const QString& file)
    {
        GDALDataset* dataset = GDALDataset::FromHandle(GDALOpen(file.toUtf8().constData(), GA_ReadOnly));
        std::string wkt = dataset->GetProjectionRef();
        GDALClose(GDALDataset::ToHandle(dataset));
        return wkt;
    }

    ClipRun enhance(const QString& input, const std::string& range, const QString& shp, const char* field,
                const char* value, int buffer, int type, const QString& output, int enabled = 1,
                AlgoResult* result = nullptr)
    {
        StdoutCapture capture;
        const bool ok = ExcuteAlgo_ImageClip_Enhance(input.toUtf8().constData(), range.c_str(), shp.toUtf8().constData(),
                                                     field, value, buffer, type, output.toUtf8().constData(), enabled,
                                                     result);
        return {ok, lines(capture.text())};
    }

    QTemporaryDir m_dir;
    QString m_tmp, m_geo, m_utm;
    QByteArray m_savedTmp;
};

struct MessageRow
{
    const char* label;
    int type;
    std::string range;
    bool withShapefile;
    const char* field;
    const char* value;
    std::vector<std::string> messages;
};

} // namespace

TEST_F(ClipTest, EnhanceRefusalsPrintTheirMessagesAfterProjectionAndBufferLines)
{
    const QString shp = path("regions.shp");
    ASSERT_TRUE(makeShapefile(shp, {{"a", "POLYGON((100.05 39.95,100.15 39.95,100.15 39.85,100.05 39.95))"}}));
    const std::string badGeoJson = "Please check your format of cliprange! This is not a stand GeoJson format!";
    const std::string badWkt = "Please check your format of cliprange! This is not a stand wkt format!";
    const std::string badFeature = "Please check your shpfile,fieldname hand fieldvalue!";
    const std::vector<MessageRow> rows = {
        {"three parts", 1, "10|20|30", false, "", "", {"Please input the correct range!"}},
        {"not a number", 1, "10|20|30|4x", false, "", "", {"Please input the correct range!"}},
        {"five parts", 1, "1|2|3|4|5", false, "", "", {"Please input the correct range!"}},
        {"whole file without file", 2, "", false, "", "", {"Please input the shpfile!"}},
        {"feature without file", 3, "", false, "NAME", "a", {"Please input the shpfile!"}},
        {"feature without field", 3, "", true, "", "a", {"Please input the correct Field name and Field value!"}},
        {"feature without value", 3, "", true, "NAME", "", {"Please input the correct Field name and Field value!"}},
        {"field not in file", 3, "", true, "CODE", "a", {badFeature}},
        {"value not in file", 3, "", true, "NAME", "zz", {badFeature}},
        {"geojson with type first", 4, "{\"type\":\"Polygon\",\"coordinates\":[[[100,40],[101,40],[101,39],[100,40]]]}",
         false, "", "",
         {"Please check your cliptype! If you use this type of cliprange,please select \"GeoJson range clip\"!"}},
        {"geojson exactly the type text", 4, "{\"type\":", false, "", "", {badGeoJson}},
        {"geojson malformed", 4, "{\"coordinates\":[[[100,40],[101", false, "", "", {badGeoJson}},
        {"geojson self-intersecting", 4,
         "{\"coordinates\":[[[100,40],[101,39],[101,40],[100,39],[100,40]]],\"type\":\"Polygon\"}", false, "", "",
         {badGeoJson}},
        {"geojson point", 4, "{\"coordinates\":[100,40],\"type\":\"Point\"}", false, "", "", {badGeoJson}},
        {"wkt lower case", 5, "polygon((100 40,101 40,101 39,100 40))", false, "", "",
         {"Please check your cliptype! If you use this type of cliprange,please select \"wkt range clip\"!"}},
        {"wkt malformed", 5, "POLYGON((100 40,101 40", false, "", "", {"Build polygon failed!", badWkt}},
        {"wkt empty", 5, "POLYGON EMPTY", false, "", "", {"Build polygon failed!", badWkt}},
        {"wkt self-intersecting", 5, "POLYGON((100 40,101 39,101 40,100 39,100 40))", false, "", "",
         {"Build polygon failed!", badWkt}},
        {"multipolygon empty", 5, "MULTIPOLYGON EMPTY", false, "", "", {"Build multipolygon failed!", badWkt}},
        {"type 0", 0, "", false, "", "", {"Please input cliptype!"}},
        {"type 6", 6, "", false, "", "", {"Please input cliptype!"}},
    };
    const std::string projection = projectionOf(m_geo);
    for (const MessageRow& row : rows)
    {
        SCOPED_TRACE(row.label);
        const QString output = path("refused.tif");
        const ClipRun run = enhance(m_geo, row.range, row.withShapefile ? shp : QString(), row.field, row.value, 0, row.type,
                                output);
        std::vector<std::string> expected = {projection, "Buffer size:0", "Buffer size:0"};
        expected.insert(expected.end(), row.messages.begin(), row.messages.end());
        EXPECT_FALSE(run.ok);
        EXPECT_EQ(run.lines, expected);
        EXPECT_FALSE(QFileInfo::exists(output));
        EXPECT_TRUE(subfolders(m_tmp).isEmpty()) << "a refused call leaves no range folder";
    }
    const ClipRun unreadable = enhance(m_geo, "", path("missing.shp"), "NAME", "a", 0, 3, path("refused.tif"));
    EXPECT_EQ(unreadable.lines, (std::vector<std::string>{projection, "Buffer size:0", "Buffer size:0",
                                                          "The shpfile can not be open!", badFeature}));
}

TEST_F(ClipTest, BufferIsPixelsTimesPixelWidthAndProjectedMetresBecomeDegrees)
{
    const QString fine = path("fine.tif");
    ASSERT_TRUE(makeGridRaster(fine, 4, 4, 1, GDT_Byte, Grid{100.0, 40.0, 0.0001, 4326}, geoValue));
    EXPECT_EQ(enhance(fine, "", "", "", "", 10, 9, path("x.tif")).lines,
              (std::vector<std::string>{projectionOf(fine), "Buffer size:0.001", "Buffer size:0.001",
                                        "Please input cliptype!"}));
    EXPECT_EQ(enhance(m_utm, "", "", "", "", 10, 9, path("x.tif")).lines,
              (std::vector<std::string>{projectionOf(m_utm), "Buffer size:0.003", "Buffer size:0.003",
                                        "Please input cliptype!"}));
}

TEST_F(ClipTest, DisabledCallDoesNothingAndUnopenableInputIsRefused)
{
    const ClipRun disabled = enhance(m_geo, "0|1|0|1", "", "", "", 10, 1, path("out.tif"), 0);
    EXPECT_TRUE(disabled.ok);
    EXPECT_TRUE(disabled.lines.empty());
    EXPECT_FALSE(QFileInfo::exists(path("out.tif")));

    const ClipRun missing = enhance(path("nothing.tif"), "0|1|0|1", "", "", "", 0, 1, path("out.tif"));
    EXPECT_FALSE(missing.ok);
    EXPECT_EQ(missing.lines, std::vector<std::string>{"Can not open the input image!"});
}

TEST_F(ClipTest, RectangleClipKeepsInclusiveEndsGeoreferencingAndPixels)
{
    const QString output = path("rect.tif");
    RecordingResult result;
    const ClipRun run = enhance(m_utm, "3|7|2|5", "", "", "", 0, 1, output, 1, &result.record);
    ASSERT_TRUE(run.ok) << result.record.message;
    EXPECT_EQ(run.lines, (std::vector<std::string>{projectionOf(m_utm), "Buffer size:0", "Buffer size:0",
                                                   "start call algorithm plugin: ImageClipAlgo", ""}));
    const RasterInfo info = rasterInfo(output);
    EXPECT_EQ(info.width, 5);
    EXPECT_EQ(info.height, 4);
    EXPECT_EQ(info.bands, 2);
    EXPECT_DOUBLE_EQ(info.transform[0], 500000.0 + 3 * 30.0);
    EXPECT_DOUBLE_EQ(info.transform[3], 4000000.0 - 2 * 30.0);
    for (int b = 0; b < 2; ++b)
    {
        const std::vector<double> pixels = readBand(output, b + 1);
        ASSERT_EQ(pixels.size(), 20u);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 5; ++x)
                ASSERT_EQ(pixels[size_t(y * 5 + x)], b * 1000 + (y + 2) * 20 + (x + 3));
    }
    ASSERT_FALSE(result.progress.empty());
    EXPECT_DOUBLE_EQ(result.progress.back(), 100.0);

    // Partly outside: cut to the image; wholly outside: the plug-in's error, no file.
    ASSERT_TRUE(enhance(m_utm, "15|40|10|40", "", "", "", 0, 1, path("edge.tif")).ok);
    EXPECT_EQ(rasterInfo(path("edge.tif")).width, 5);
    EXPECT_EQ(rasterInfo(path("edge.tif")).height, 5);
    RecordingResult outside;
    EXPECT_FALSE(enhance(m_utm, "30|40|0|3", "", "", "", 0, 1, path("outside.tif"), 1, &outside.record).ok);
    EXPECT_EQ(outside.record.code, -1);
    EXPECT_FALSE(QFileInfo::exists(path("outside.tif")));
}

// The triangle's window is columns 5-24 and rows 5-24; a pixel is kept when its centre lies inside, i.e. when
// i + j < 19 in window coordinates (i + j == 19 puts the centre on the edge and is not checked).
static void expectTriangleClip(const QString& output)
{
    const RasterInfo info = rasterInfo(output);
    ASSERT_EQ(info.width, 20);
    ASSERT_EQ(info.height, 20);
    EXPECT_NEAR(info.transform[0], 100.05, 1e-9);
    EXPECT_NEAR(info.transform[3], 39.95, 1e-9);
    EXPECT_TRUE(info.hasNoData);
    EXPECT_EQ(info.noData, 0.0);
    const std::vector<double> pixels = readBand(output, 1);
    for (int j = 0; j < 20; ++j)
        for (int i = 0; i < 20; ++i)
        {
            if (i + j == 19)
                continue;
            const double expected = i + j < 19 ? geoValue(0, i + 5, j + 5) : 0.0;
            ASSERT_EQ(pixels[size_t(j * 20 + i)], expected) << "pixel " << i << "," << j;
        }
}

TEST_F(ClipTest, WktAndGeoJsonClipKeepPixelsWhoseCentreIsInsideAndRemoveTheRangeFolder)
{
    for (const auto& [type, range] : {std::pair<int, std::string>{5, kTriangleWkt}, {4, kTriangleJson}})
    {
        SCOPED_TRACE(range);
        const QString output = path(QString("tri%1.tif").arg(type));
        const ClipRun run = enhance(m_geo, range, "", "", "", 0, type, output);
        ASSERT_TRUE(run.ok);
        ASSERT_EQ(run.lines.size(), 5u);
        EXPECT_EQ(run.lines[3], "start call algorithm plugin: ImageClipAlgo");
        EXPECT_TRUE(QRegularExpression("^" + QRegularExpression::escape(m_tmp) + "/[0-9a-f]{32}$")
                        .match(QString::fromStdString(run.lines[4]))
                        .hasMatch())
            << run.lines[4];
        EXPECT_TRUE(subfolders(m_tmp).isEmpty()) << "the range folder is removed after the run";
        expectTriangleClip(output);
    }
}

TEST_F(ClipTest, FeatureClipIsBufferedAndSelectedByFieldValue)
{
    const QString shp = path("squares.shp");
    ASSERT_TRUE(makeShapefile(shp, {{"a", "POLYGON((100.05 39.95,100.15 39.95,100.15 39.85,100.05 39.85,100.05 39.95))"},
                                    {"b", "POLYGON((100.2 39.9,100.3 39.9,100.3 39.8,100.2 39.8,100.2 39.9))"}}));
    const QString output = path("feature.tif");
    const ClipRun run = enhance(m_geo, "", shp, "NAME", "a", 2, 3, output);
    ASSERT_TRUE(run.ok);
    EXPECT_EQ(run.lines[1], "Buffer size:0.02");
    // Square a grown by 0.02 degree: columns and rows 3-16, corners rounded.
    const RasterInfo info = rasterInfo(output);
    ASSERT_EQ(info.width, 14);
    ASSERT_EQ(info.height, 14);
    EXPECT_NEAR(info.transform[0], 100.03, 1e-9);
    EXPECT_NEAR(info.transform[3], 39.97, 1e-9);
    const std::vector<double> pixels = readBand(output, 1);
    EXPECT_EQ(pixels[0], 0.0) << "corner centre lies 0.021 from the square: outside the buffer";
    EXPECT_EQ(pixels[1 * 14 + 1], geoValue(0, 4, 4));
    EXPECT_EQ(pixels[7 * 14 + 7], geoValue(0, 10, 10));
    EXPECT_EQ(pixels[13 * 14 + 13], 0.0);
}

TEST_F(ClipTest, WholeShapefileClipUsesEveryFeature)
{
    const QString shp = path("two.shp");
    ASSERT_TRUE(makeShapefile(shp, {{"a", "POLYGON((100.0 40.0,100.1 40.0,100.1 39.9,100.0 39.9,100.0 40.0))"},
                                    {"b", "POLYGON((100.3 39.8,100.4 39.8,100.4 39.7,100.3 39.7,100.3 39.8))"}}));
    const QString output = path("whole.img");
    const ClipRun run = enhance(m_geo, "", shp, "", "", 0, 2, output);
    ASSERT_TRUE(run.ok);
    EXPECT_EQ(run.lines.back(), "") << "no range folder for a whole shapefile";
    const RasterInfo info = rasterInfo(output);
    EXPECT_EQ(info.driver, "HFA");
    ASSERT_EQ(info.width, 40);
    ASSERT_EQ(info.height, 30);
    const std::vector<double> pixels = readBand(output, 1);
    EXPECT_EQ(pixels[0], geoValue(0, 0, 0));
    EXPECT_EQ(pixels[29 * 40 + 39], geoValue(0, 39, 29));
    EXPECT_EQ(pixels[15 * 40 + 20], 0.0);
}

TEST_F(ClipTest, RangeFolderWithShellCharactersIsRemovedWithoutRunningThem)
{
    const QString hostile = m_dir.path() + "/it's $(touch INJECTED) ; `touch INJECTED2` & x";
    QDir().mkpath(hostile);
    qputenv("TMPDIR", hostile.toUtf8());
    const QString cwd = QDir::currentPath();
    QDir::setCurrent(m_dir.path());
    const ClipRun run = enhance(m_geo, kTriangleWkt, "", "", "", 0, 5, path("tri.tif"));
    QDir::setCurrent(cwd);
    ASSERT_TRUE(run.ok);
    EXPECT_EQ(QString::fromStdString(run.lines.back()).left(hostile.size()), hostile);
    EXPECT_TRUE(subfolders(hostile).isEmpty()) << "the quoted rm removed the folder";
    EXPECT_FALSE(QFileInfo::exists(m_dir.path() + "/INJECTED"));
    EXPECT_FALSE(QFileInfo::exists(m_dir.path() + "/INJECTED2"));
}

TEST_F(ClipTest, OlderClipTakesRectangleRangeTextOrFeature)
{
    StdoutCapture capture;
    const QByteArray input = m_utm.toUtf8(), rect = path("old_rect.tif").toUtf8(), tri = path("old_tri.tif").toUtf8();
    EXPECT_TRUE(ExcuteAlgo_ImageClip(input.constData(), 2, 4, 1, 3, "", "", "", "", rect.constData(), nullptr));
    const QByteArray geo = m_geo.toUtf8();
    EXPECT_TRUE(ExcuteAlgo_ImageClip(geo.constData(), 0, 0, 0, 0, kTriangleJson, "", "", "", tri.constData(), nullptr));
    EXPECT_FALSE(ExcuteAlgo_ImageClip(geo.constData(), 0, 0, 0, 0, "", "NAME", "a", path("none.shp").toUtf8().constData(),
                                      path("old_bad.tif").toUtf8().constData(), nullptr));
    EXPECT_EQ(lines(capture.text()),
              (std::vector<std::string>{"start call algorithm plugin: ImageClipAlgo",
                                        "start call algorithm plugin: ImageClipAlgo", "The shpfile can not be open!",
                                        "Please check your shpfile,fieldname hand fieldvalue!"}));
    EXPECT_EQ(rasterInfo(rect).width, 3);
    EXPECT_EQ(readBand(rect, 1)[0], 1 * 20 + 2);
    expectTriangleClip(tri);
    EXPECT_TRUE(subfolders(m_tmp).isEmpty());
}

TEST_F(ClipTest, PerFeatureClipNamesFilesSafelyInsideTheOutputFolder)
{
    const QString shp = path("features.shp");
    const std::string square = "POLYGON((100.05 39.95,100.15 39.95,100.15 39.85,100.05 39.85,100.05 39.95))";
    ASSERT_TRUE(makeShapefile(shp, {{"a", square}, {"../evil", square}, {"a", square}}));
    const QString out = path("clips");
    StdoutCapture capture;
    EXPECT_TRUE(ExcuteAlgo_ImageClip2(m_geo.toUtf8().constData(), shp.toUtf8().constData(), "NAME", 0,
                                      out.toUtf8().constData(), nullptr));
    const std::vector<std::string> printed = lines(capture.text());
    EXPECT_EQ(printed, (std::vector<std::string>{projectionOf(m_geo), "Buffer size:0", "Buffer size:0",
                                                 "start call algorithm plugin: ImageClipAlgo",
                                                 "start call algorithm plugin: ImageClipAlgo",
                                                 "start call algorithm plugin: ImageClipAlgo"}));
    EXPECT_EQ(QDir(out).entryList(QDir::Files, QDir::Name), (QStringList{"___evil.tif", "a.tif", "a_2.tif"}));
    EXPECT_TRUE(subfolders(out).isEmpty()) << "cliptemp is removed";
    EXPECT_FALSE(QFileInfo::exists(m_dir.path() + "/evil.tif"));
    EXPECT_EQ(rasterInfo(out + "/a.tif").width, 10);
}

TEST_F(ClipTest, PerFeatureClipRefusals)
{
    const QString shp = path("holes.shp");
    ASSERT_TRUE(makeShapefile(shp, {{"a", "POLYGON((100.05 39.95,100.15 39.95,100.15 39.85,100.05 39.95))"}, {"b", ""}}));
    const std::string projection = projectionOf(m_geo);
    struct Row
    {
        QString shapefile;
        const char* field;
        QString folder;
        std::string message;
    };
    const std::vector<Row> rows = {
        {"", "NAME", path("o1"), "Please input the shpfile!"},
        {shp, "CODE", path("o2"), "Please check your shpfile,fieldname hand fieldvalue!"},
        {shp, "NAME", path("o3"), "name can not match shp"},
        {shp, "NAME", "", "Please input the output folder!"},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.message);
        StdoutCapture capture;
        EXPECT_FALSE(ExcuteAlgo_ImageClip2(m_geo.toUtf8().constData(), row.shapefile.toUtf8().constData(), row.field, 0,
                                           row.folder.toUtf8().constData(), nullptr));
        EXPECT_EQ(lines(capture.text()),
                  (std::vector<std::string>{projection, "Buffer size:0", "Buffer size:0", row.message}));
        EXPECT_TRUE(row.folder.isEmpty() || QDir(row.folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).isEmpty());
    }
}

TEST_F(ClipTest, RealSceneClippedByLuxembourgCantonKeepsElevations)
{
    SKIP_WITHOUT_SHARED_DATA("gdal/elev.tif");
    SKIP_WITHOUT_SHARED_DATA("gdal/lux.shp");
    const QString elev = sharedDataPath("gdal/elev.tif");
    const QString output = path("esch.tif");
    const ClipRun run = enhance(elev, "", sharedDataPath("gdal/lux.shp"), "NAME_2", "Esch-sur-Alzette", 0, 3, output);
    ASSERT_TRUE(run.ok);
    const RasterInfo source = rasterInfo(elev), clipped = rasterInfo(output);
    ASSERT_GT(clipped.width, 0);
    EXPECT_LT(clipped.width, source.width);
    EXPECT_EQ(clipped.noData, -32768.0);
    // The clip lies on the source grid: every kept pixel equals the source pixel at the same place.
    const int dx = int(std::lround((clipped.transform[0] - source.transform[0]) / source.transform[1]));
    const int dy = int(std::lround((clipped.transform[3] - source.transform[3]) / source.transform[5]));
    const std::vector<double> in = readBand(elev, 1), out = readBand(output, 1);
    int kept = 0;
    for (int y = 0; y < clipped.height; ++y)
        for (int x = 0; x < clipped.width; ++x)
        {
            const double v = out[size_t(y * clipped.width + x)];
            if (v == -32768.0)
                continue;
            ++kept;
            ASSERT_EQ(v, in[size_t((y + dy) * source.width + x + dx)]);
        }
    EXPECT_GT(kept, 100);
}

TEST_F(ClipTest, JsonRouteReadsTheDescribedKeysInIndexOrder)
{
    const QString output = path("json_tri.tif");
    const QString json = QString("{\"InputFile\":\"%1\",\"ClipRange\":\"%2\",\"ShpFile\":\"\",\"FieldName\":\"\","
                                 "\"FieldValue\":\"\",\"BufferPixels\":\"0\",\"ClipType\":\"5\",\"OutputFile\":\"%3\","
                                 "\"Enabled\":1}")
                             .arg(m_geo, kTriangleWkt, output);
    StdoutCapture capture;
    const QString cwd = QDir::currentPath();
    QDir::setCurrent(m_dir.path()); // the run log goes to the working folder
    EXPECT_TRUE(ExcuteAlgo("ImageClip_Enhance", json.toUtf8().constData(), nullptr));
    QDir::setCurrent(cwd);
    capture.text();
    expectTriangleClip(output);
}
