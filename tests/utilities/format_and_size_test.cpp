// Raster utilities: the format rule, the resampling size rule and the bit-depth limits rule.
#include "test_support.h"
#include "utilities/format_from_path.h"

#include <QDir>
#include <gdal_utils.h>

#include <cmath>

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

// The stripes computed on both cores give GDAL's own translation: every kernel, down and up, with no-data
// (the bundled RGB scene) and without, pixel for pixel and with the same georeferencing and band properties.
TEST(ImageResample, EqualsGdalTranslateForEveryKernel)
{
    QTemporaryDir dir;
    const QString floats = dir.filePath("floats.tif");
    ASSERT_TRUE(makeGeoTiff(floats, 157, 131, 3, GDT_Float32,
                            [](int b, int x, int y) { return std::sin(x * 0.21 + b) * 100 + y * 0.37 + x * y % 7; },
                            {"TILED=YES", "BLOCKXSIZE=16", "BLOCKYSIZE=16"}));
    const struct
    {
        QString input;
        long width;
    } inputs[] = {{sourceDir() + "/data/samples/RGB.byte.tif", 301}, {floats, 401}, {floats, 61}};
    const char* const kernels[] = {"near", "bilinear", "cubic", "average", "cubicspline", "lanczos", "mode"};
    for (const auto& input : inputs)
        for (int method = 0; method < 7; ++method)
        {
            const QString ours = dir.filePath(QString("ours_%1_%2.tif").arg(input.width).arg(method));
            const QString theirs = dir.filePath(QString("gdal_%1_%2.tif").arg(input.width).arg(method));
            StdoutCapture capture;
            ASSERT_TRUE(ExcuteAlgo_ImageResample(input.input.toUtf8(), ours.toUtf8(), method, 0, input.width, nullptr));
            capture.text();
            GDALDataset* made = GDALDataset::Open(ours.toUtf8().constData());
            ASSERT_TRUE(made);
            const QByteArray width = QByteArray::number(made->GetRasterXSize());
            const QByteArray height = QByteArray::number(made->GetRasterYSize());
            const char* argv[] = {"-outsize", width.constData(), height.constData(), "-r", kernels[method],
                                  "-co", "TILED=YES", nullptr};
            GDALTranslateOptions* options = GDALTranslateOptionsNew(const_cast<char**>(argv), nullptr);
            GDALDatasetH source = GDALOpen(input.input.toUtf8().constData(), GA_ReadOnly);
            GDALDatasetH reference = GDALTranslate(theirs.toUtf8().constData(), source, options, nullptr);
            GDALTranslateOptionsFree(options);
            GDALClose(source);
            ASSERT_TRUE(reference);
            double ourTransform[6], theirTransform[6];
            made->GetGeoTransform(ourTransform);
            GDALGetGeoTransform(reference, theirTransform);
            for (int i = 0; i < 6; ++i)
                EXPECT_DOUBLE_EQ(ourTransform[i], theirTransform[i]);
            for (int b = 1; b <= made->GetRasterCount(); ++b)
            {
                GDALRasterBandH theirBand = GDALGetRasterBand(reference, b);
                int ourHasNoData = 0, theirHasNoData = 0;
                EXPECT_EQ(made->GetRasterBand(b)->GetNoDataValue(&ourHasNoData),
                          GDALGetRasterNoDataValue(theirBand, &theirHasNoData));
                EXPECT_EQ(ourHasNoData, theirHasNoData);
                EXPECT_EQ(made->GetRasterBand(b)->GetColorInterpretation(), GDALGetRasterColorInterpretation(theirBand));
            }
            GDALClose(made);
            GDALClose(reference);
            for (int b = 1; b <= 3; ++b)
                ASSERT_EQ(readBand(ours, b), readBand(theirs, b)) << kernels[method] << " to " << input.width;
        }
}
