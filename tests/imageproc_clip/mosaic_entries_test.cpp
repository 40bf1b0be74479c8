// The mosaic entries: the quick check's messages in order, the full entry's messages, and mosaics read back
// against pixels computed here (union extent, finest resolution, later over earlier, no-data respected).
#include "clip_fixtures.h"
#include "sys_ui_environment.h"
#include "test_support.h"

#include <ogrsf_frmts.h>

#include <QDir>
#include <algorithm>
#include <QFileInfo>

using namespace testsupport;
using namespace cliptest;

namespace
{

// UTM 50N, 30 m pixels.
const Grid kA{500000.0, 4000000.0, 30.0, 32650};
const Grid kB{500150.0, 3999850.0, 30.0, 32650}; // 5 columns right, 5 rows down of kA

class MosaicTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(m_dir.isValid()); }
    QString path(const QString& name) const { return m_dir.path() + "/" + name; }

    static std::pair<bool, std::vector<std::string>> fast(const QString& inputs, const QString& output,
                                                           AlgoResult* result = nullptr)
    {
        StdoutCapture capture;
        const bool ok = ExcuteAlgo_ImageMosaicFast(inputs.toUtf8().constData(), output.toUtf8().constData(), result);
        return {ok, lines(capture.text())};
    }
    static std::pair<bool, std::vector<std::string>> full(const QString& inputs, const QString& output,
                                                           const QString& mask = QString())
    {
        StdoutCapture capture;
        const bool ok = ExcuteAlgo_ImageMosaic(inputs.toUtf8().constData(), output.toUtf8().constData(),
                                               mask.toUtf8().constData(), nullptr);
        return {ok, lines(capture.text())};
    }

    QTemporaryDir m_dir;
};

double aValue(int b, int x, int y)
{
    return 1 + b * 100 + x + 10 * y;
}
// B is 0 (its no-data value) in its top-left 3 x 3 corner, 200 + ... elsewhere.
double bValue(int b, int x, int y)
{
    return x < 3 && y < 3 ? 0.0 : 200 + b * 100 + x + 10 * y;
}

} // namespace

TEST_F(MosaicTest, QuickCheckMessagesInOrderWithReferenceFromFirstInput)
{
    const QString four = path("four.tif"), four2 = path("four2.tif"), three = path("three.tif");
    const QString wide = path("int16.tif"), bare = path("bare.tif"), rpc = path("rpc.tif");
    ASSERT_TRUE(makeGridRaster(four, 4, 4, 4, GDT_Byte, kA, aValue));
    ASSERT_TRUE(makeGridRaster(four2, 4, 4, 4, GDT_Byte, kB, aValue));
    ASSERT_TRUE(makeGridRaster(three, 4, 4, 3, GDT_Byte, kA, aValue));
    ASSERT_TRUE(makeGridRaster(wide, 4, 4, 4, GDT_Int16, kA, aValue));
    ASSERT_TRUE(makeGridRaster(bare, 4, 4, 4, GDT_Byte, Grid{0, 0, 1, 0}, aValue));
    ASSERT_TRUE(makeGridRaster(rpc, 4, 4, 4, GDT_Byte, kA, aValue));
    {
        GDALDataset* dataset = GDALDataset::FromHandle(GDALOpen(rpc.toUtf8().constData(), GA_Update));
        const char* coefficients = "0 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0";
        for (const char* key : {"LINE_OFF", "SAMP_OFF", "LAT_OFF", "LONG_OFF", "HEIGHT_OFF"})
            dataset->SetMetadataItem(key, "0", "RPC");
        for (const char* key : {"LINE_SCALE", "SAMP_SCALE", "LAT_SCALE", "LONG_SCALE", "HEIGHT_SCALE"})
            dataset->SetMetadataItem(key, "1", "RPC");
        for (const char* key : {"LINE_NUM_COEFF", "LINE_DEN_COEFF", "SAMP_NUM_COEFF", "SAMP_DEN_COEFF"})
            dataset->SetMetadataItem(key, coefficients, "RPC");
        GDALClose(GDALDataset::ToHandle(dataset));
    }
    // The paths are inserted exactly as given, relative ones included.
    const QString cwd = QDir::currentPath();
    QDir::setCurrent(m_dir.path());
    struct Row
    {
        QString inputs;
        std::string line;
    };
    const std::vector<Row> rows = {
        {"", "The input file is null!"},
        {"|", "The input file is null!"},
        {four + "|" + path("missing.tif"), "Can not open dataset!"},
        {four + "|" + rpc, "Image <" + rpc.toStdString() + ">Not support with RPC data"},
        {four + "|" + bare, "no spatial reference!"},
        {four + "|three.tif", "Image <three.tif>band count differ with other images"},
        {four + "|" + four2 + "|" + wide, "Image <" + wide.toStdString() + ">band type differ with other images"},
        {three + "|" + four, "Image <" + four.toStdString() + ">band count differ with other images"},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.line);
        RecordingResult result;
        result.record.code = 7;
        const auto [ok, printed] = fast(row.inputs, path("never.tif"), &result.record);
        EXPECT_FALSE(ok);
        EXPECT_EQ(printed, std::vector<std::string>{row.line});
        EXPECT_EQ(result.record.code, 7) << "a refused check never reaches the runner";
        EXPECT_FALSE(QFileInfo::exists(path("never.tif")));
    }
    QDir::setCurrent(cwd);
    EXPECT_EQ(SysUI::Environment::Instance()->Value(SysUI::kWorkDirectoryKey).toString(), m_dir.path());
}

TEST_F(MosaicTest, QuickMosaicCoversUnionWithLaterInputOverEarlierExceptItsNoData)
{
    const QString a = path("a.tif"), b = path("b.tif"), output = path("m.tif");
    ASSERT_TRUE(makeGridRaster(a, 10, 10, 2, GDT_UInt16, kA, aValue));
    ASSERT_TRUE(makeGridRaster(b, 10, 10, 2, GDT_UInt16, kB, bValue, 0.0));
    RecordingResult result;
    const auto [ok, printed] = fast(a + "|" + b, output, &result.record);
    ASSERT_TRUE(ok) << result.record.message;
    EXPECT_EQ(printed, std::vector<std::string>{"start call algorithm plugin: ImageMosaic"});
    const RasterInfo info = rasterInfo(output);
    ASSERT_EQ(info.width, 15);
    ASSERT_EQ(info.height, 15);
    EXPECT_EQ(info.driver, "GTiff");
    EXPECT_DOUBLE_EQ(info.transform[0], 500000.0);
    EXPECT_DOUBLE_EQ(info.transform[3], 4000000.0);
    EXPECT_DOUBLE_EQ(info.transform[1], 30.0);
    for (int band = 0; band < 2; ++band)
    {
        const std::vector<double> pixels = readBand(output, band + 1);
        for (int y = 0; y < 15; ++y)
            for (int x = 0; x < 15; ++x)
            {
                const bool inA = x < 10 && y < 10, inB = x >= 5 && y >= 5;
                double expected = 0.0;
                if (inB && bValue(band, x - 5, y - 5) != 0.0)
                    expected = bValue(band, x - 5, y - 5);
                else if (inA)
                    expected = aValue(band, x, y);
                ASSERT_EQ(pixels[size_t(y * 15 + x)], expected) << "band " << band << " pixel " << x << "," << y;
            }
    }
    EXPECT_DOUBLE_EQ(result.progress.back(), 100.0);
}

TEST_F(MosaicTest, SingleInputFinestResolutionAndFormatBySuffix)
{
    const QString a = path("a.tif"), fine = path("fine.tif");
    ASSERT_TRUE(makeGridRaster(a, 10, 10, 1, GDT_Byte, kA, aValue));
    ASSERT_TRUE(makeGridRaster(fine, 4, 4, 1, GDT_Byte, Grid{500030.0, 3999970.0, 15.0, 32650},
                               [](int, int x, int y) { return 150 + x + 10 * y; }));
    ASSERT_TRUE(fast(a, path("single.img")).first);
    const RasterInfo single = rasterInfo(path("single.img"));
    EXPECT_EQ(single.driver, "HFA");
    EXPECT_EQ(readBand(path("single.img"), 1), readBand(a, 1));

    ASSERT_TRUE(fast(a + "|" + fine, path("fine_mosaic.dat")).first);
    const RasterInfo info = rasterInfo(path("fine_mosaic.dat"));
    EXPECT_EQ(info.driver, "ENVI");
    EXPECT_DOUBLE_EQ(info.transform[1], 15.0);
    EXPECT_EQ(info.width, 20);
    const std::vector<double> pixels = readBand(path("fine_mosaic.dat"), 1);
    EXPECT_EQ(pixels[0], aValue(0, 0, 0));
    EXPECT_EQ(pixels[1], aValue(0, 0, 0)) << "each 30 m pixel covers four 15 m pixels";
    EXPECT_EQ(pixels[size_t(2 * 20 + 2)], 150.0) << "the fine input lies over the coarse one";
    EXPECT_EQ(pixels[size_t(5 * 20 + 5)], 150.0 + 3 + 30);
    EXPECT_EQ(pixels[size_t(6 * 20 + 6)], aValue(0, 3, 3));
}

TEST_F(MosaicTest, FullMosaicMessagesFacesAndMask)
{
    const QString a = path("a.tif"), b = path("b.tif"), complexInput = path("c.tif"), bare = path("bare.tif");
    ASSERT_TRUE(makeGridRaster(a, 10, 10, 1, GDT_Int16, kA, aValue));
    ASSERT_TRUE(makeGridRaster(b, 10, 10, 1, GDT_Int16, kB, bValue));
    ASSERT_TRUE(makeGridRaster(bare, 4, 4, 1, GDT_Int16, Grid{0, 0, 1, 0}, aValue));
    ASSERT_TRUE(makeRaster(complexInput, 4, 4, 1, GDT_CFloat32, [](int, int, int) { return 1.0; }));
    const std::vector<std::pair<QString, std::string>> rows = {
        {"", "Please load multi-faceted images first!"},
        {a + "|" + path("none.tif"), "data set is null!"},
        {a + "|" + bare, "No spatial reference!"},
        {a + "|" + complexInput, "Not support complex data!"},
    };
    for (const auto& [inputs, message] : rows)
    {
        SCOPED_TRACE(message);
        const auto [ok, printed] = full(inputs, path("never.tif"));
        EXPECT_FALSE(ok);
        EXPECT_EQ(printed, std::vector<std::string>{message});
    }
    const std::string faces = "Creating mosaic faces, please wait......";
    EXPECT_EQ(full(a + "|" + b, path("never.tif"), path("no_mask.shp")).second,
              (std::vector<std::string>{faces, "data set is null!"}));
    EXPECT_FALSE(QFileInfo::exists(path("never.tif")));

    // The mask keeps x < 500220 (columns 0-6). A's face is its footprint less B's; with MaskFilter on, B's zero
    // corner is background, and A does not supply it either, so it stays 0.
    const QString mask = path("mask.shp");
    {
        GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("ESRI Shapefile");
        GDALDataset* dataset = driver->Create(mask.toUtf8().constData(), 0, 0, 0, GDT_Unknown, nullptr);
        OGRSpatialReference srs;
        srs.importFromEPSG(32650);
        OGRLayer* layer = dataset->CreateLayer("mask", &srs, wkbPolygon, nullptr);
        OGRFeature feature(layer->GetLayerDefn());
        OGRGeometry* geometry = nullptr;
        OGRGeometryFactory::createFromWkt(
            "POLYGON((499000 4001000,500220 4001000,500220 3999000,499000 3999000,499000 4001000))", nullptr, &geometry);
        feature.SetGeometryDirectly(geometry);
        ASSERT_EQ(layer->CreateFeature(&feature), OGRERR_NONE);
        GDALClose(GDALDataset::ToHandle(dataset));
    }
    SysUI::Environment::Instance()->SetValue(SysUI::kMaskFilterKey, 1);
    const QString output = path("full.tif");
    const auto [ok, printed] = full(a + "|" + b, output, mask);
    SysUI::Environment::Instance()->SetValue(SysUI::kMaskFilterKey, 0);
    ASSERT_TRUE(ok);
    EXPECT_EQ(printed, (std::vector<std::string>{faces, "start call algorithm plugin: ImageMosaic"}));
    const RasterInfo info = rasterInfo(output);
    ASSERT_EQ(info.width, 15);
    ASSERT_EQ(info.height, 15);
    const std::vector<double> pixels = readBand(output, 1);
    for (int y = 0; y < 15; ++y)
        for (int x = 0; x < 15; ++x)
        {
            const bool inA = x < 10 && y < 10, inB = x >= 5 && y >= 5;
            double expected = 0.0;
            if (x <= 6)
            {
                if (inB && bValue(0, x - 5, y - 5) != 0.0)
                    expected = bValue(0, x - 5, y - 5);
                else if (inA && !inB)
                    expected = aValue(0, x, y);
            }
            ASSERT_EQ(pixels[size_t(y * 15 + x)], expected) << "pixel " << x << "," << y;
        }
}

TEST_F(MosaicTest, RealRpcSceneIsRefused)
{
    SKIP_WITHOUT_SHARED_DATA("gdal/RGB.byte.rpc.vrt");
    const QString plain = sharedDataPath("gdal/RGB.byte.tif"), rpc = sharedDataPath("gdal/RGB.byte.rpc.vrt");
    const auto [ok, printed] = fast(plain + "|" + rpc, path("never.tif"));
    EXPECT_FALSE(ok);
    EXPECT_EQ(printed, std::vector<std::string>{"Image <" + rpc.toStdString() + ">Not support with RPC data"});
}

TEST_F(MosaicTest, InputInAnotherReferenceIsWarpedIntoTheFirstInputsReference)
{
    const QString a = path("a.tif"), geo = path("geo.tif"), output = path("mixed.tif");
    ASSERT_TRUE(makeGridRaster(a, 10, 10, 1, GDT_Byte, kA, aValue));
    // About 450 m east of A, 0.0005 degree pixels (about 45 m): A's 30 m stays the finest.
    ASSERT_TRUE(makeGridRaster(geo, 10, 10, 1, GDT_Byte, Grid{117.01, 36.14, 0.0005, 4326},
                               [](int, int, int) { return 77.0; }));
    ASSERT_TRUE(fast(a + "|" + geo, output).first);
    const RasterInfo info = rasterInfo(output);
    EXPECT_DOUBLE_EQ(info.transform[1], 30.0);
    EXPECT_DOUBLE_EQ(info.transform[0], 500000.0);
    EXPECT_DOUBLE_EQ(info.transform[3], 4000000.0);
    EXPECT_GT(info.width, 20);
    const std::vector<double> pixels = readBand(output, 1);
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 10; ++x)
            ASSERT_EQ(pixels[size_t(y * info.width + x)], aValue(0, x, y));
    EXPECT_GT(std::count(pixels.begin(), pixels.end(), 77.0), 50);
}
