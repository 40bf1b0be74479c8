// Raster utilities: the format rule, the resampling size rule and the bit-depth limits rule.
#include "test_support.h"
#include "utilities/format_from_path.h"

#include <QDir>

using namespace testsupport;

TEST(FormatFromPath, SuffixRule)
{
    const struct
    {
        const char* path;
        const char* format;
    } rows[] = {
        {"/o/a.tif", "GTiff"}, {"/o/a.tiff", "GTiff"}, {"/o/a.img", "HFA"}, {"/o/a.TIF", "ENVI"},
        {"/o/a.IMG", "ENVI"},  {"/o/a", "ENVI"},       {"/o.d/a", "ENVI"},  {"/o/a.dat", "ENVI"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(algofactory::FormatFromPath(row.path).toStdString(), row.format) << row.path;
}

TEST(ImageResample, HeightFollowsTheTruncatedRatioPlusOne)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("in.tif");
    ASSERT_TRUE(makeRaster(input, 1000, 500, 2, GDT_Int16, [](int b, int x, int) { return x + 1000 * b; }));
    const struct
    {
        long width;
        int outW, outH;
    } rows[] = {{300, 300, 151}, {0, 1000, 500}, {500, 500, 251}};
    for (const auto& row : rows)
    {
        const QString output = dir.filePath(QString("out%1.tif").arg(row.width));
        RecordingResult result;
        ASSERT_TRUE(ExcuteAlgo_ImageResample(input.toUtf8(), output.toUtf8(), 0, 0, row.width, &result.record));
        GDALDataset* ds = GDALDataset::Open(output.toUtf8().constData());
        ASSERT_TRUE(ds);
        EXPECT_EQ(ds->GetRasterXSize(), row.outW);
        EXPECT_EQ(ds->GetRasterYSize(), row.outH);
        EXPECT_EQ(ds->GetRasterCount(), 2);
        GDALClose(ds);
        EXPECT_EQ(result.progress.back(), 100.0);
    }
    // Nearest neighbour at half width: output column i samples input column 2i + 1.
    const std::vector<double> band2 = readBand(dir.filePath("out500.tif"), 2);
    for (int i : {0, 7, 499})
        EXPECT_EQ(band2[size_t(i)], 1000 + 2 * i + 1) << i;
}

TEST(ImageResample, UnreadableInputIsThePluginsFailure)
{
    QTemporaryDir dir;
    RecordingResult result;
    StdoutCapture capture;
    EXPECT_FALSE(ExcuteAlgo_ImageResample(dir.filePath("none.tif").toUtf8(), dir.filePath("o.tif").toUtf8(), 0, 0, 10,
                                          &result.record));
    capture.text();
    EXPECT_EQ(result.record.code, -1);
    EXPECT_NE(std::string(result.record.message).find("none.tif"), std::string::npos) << result.record.message;
    EXPECT_FALSE(QFile::exists(dir.filePath("o.tif")));
}

TEST(UtilityBitDepthTrans, StretchesTheInputRangeOntoTheLimits)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("in.tif");
    // Two bands: the range over both is -50 .. 150.
    ASSERT_TRUE(makeRaster(input, 101, 3, 2, GDT_Float32, [](int b, int x, int) { return b == 0 ? x - 50.0 : x + 50.0; }));
    const QString output = dir.filePath("out.tif");
    RecordingResult result;
    ASSERT_TRUE(ExcuteAlgo_UtilityBitDepthTrans(input.toUtf8(), output.toUtf8(), GDT_Byte, 0.0, 200.0, &result.record));
    GDALDataset* ds = GDALDataset::Open(output.toUtf8().constData());
    ASSERT_TRUE(ds);
    EXPECT_EQ(ds->GetRasterBand(1)->GetRasterDataType(), GDT_Byte);
    GDALClose(ds);
    const std::vector<double> first = readBand(output, 1), second = readBand(output, 2);
    for (int x : {0, 33, 100})
    {
        EXPECT_EQ(first[size_t(x)], std::round((x - 50.0 + 50.0) * 200.0 / 200.0)) << x;
        EXPECT_EQ(second[size_t(x)], std::round((x + 50.0 + 50.0) * 200.0 / 200.0)) << x;
    }
}

TEST(UtilityBitDepthTrans, AllNegativeImageKeepsTheTinyPositiveMaximum)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("neg.tif");
    ASSERT_TRUE(makeRaster(input, 10, 1, 1, GDT_Float32, [](int, int x, int) { return x - 10.0; })); // -10 .. -1
    const QString output = dir.filePath("out.tif");
    RecordingResult result;
    ASSERT_TRUE(ExcuteAlgo_UtilityBitDepthTrans(input.toUtf8(), output.toUtf8(), GDT_UInt16, 0.0, 100.0, &result.record));
    // The stretch runs from -10 to (almost) 0, not to -1: -1 maps to 90, not 100.
    const std::vector<double> values = readBand(output, 1);
    EXPECT_EQ(values.front(), 0.0);
    EXPECT_EQ(values.back(), 90.0);
}

TEST(UtilityPlugins, AStopFromTheHostLeavesNoOutput)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("in.tif");
    ASSERT_TRUE(makeRaster(input, 600, 400, 1, GDT_Byte, [](int, int x, int y) { return (x + y) % 256; }));
    const std::function<bool(const QString&, AlgoResult*)> runs[] = {
        [&](const QString& out, AlgoResult* r) { return ExcuteAlgo_ImageResample(input.toUtf8(), out.toUtf8(), 1, 0, 300, r); },
        [&](const QString& out, AlgoResult* r) { return ExcuteAlgo_UtilityBitDepthTrans(input.toUtf8(), out.toUtf8(), 2, 0, 9, r); },
        [&](const QString& out, AlgoResult* r) { return ExcuteAlgo_ProjectTrans(input.toUtf8(), out.toUtf8(), "EPSG:4326", 1, r); },
    };
    int i = 0;
    for (const auto& run : runs)
    {
        const QString output = dir.filePath(QString("stopped%1.tif").arg(i++));
        RecordingResult result;
        result.answer = -1; // a negative answer asks the plug-in to stop
        StdoutCapture capture;
        EXPECT_FALSE(run(output, &result.record)) << i;
        capture.text();
        EXPECT_EQ(result.record.code, -2) << i;
        EXPECT_FALSE(QFile::exists(output)) << i;
    }
}
