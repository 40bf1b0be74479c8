// UtilityOperBand end to end: pixel values of every output type, no-data, two workers, formats, failures.
#include "test_support.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

using namespace testsupport;

namespace
{

struct Run
{
    bool ok = false;
    RecordingResult result;
    std::string text;
};

std::unique_ptr<Run> bandCompute(const char* formula, const QString& images, const char* bands, const QString& output,
                                 int dataType, int callbackAnswer = 0)
{
    auto run = std::make_unique<Run>();
    run->result.answer = callbackAnswer;
    StdoutCapture capture;
    run->ok = ExcuteAlgo_BandCompute(formula, images.toLocal8Bit().constData(), bands, output.toLocal8Bit().constData(),
                                     dataType, &run->result.record);
    run->text = capture.text();
    return run;
}

struct BandInfo
{
    GDALDataType type = GDT_Unknown;
    bool hasNoData = false;
    double noData = 0.0;
    std::string driver;
};

BandInfo bandInfo(const QString& path)
{
    BandInfo info;
    GDALDataset* dataset = GDALDataset::FromHandle(GDALOpen(path.toUtf8().constData(), GA_ReadOnly));
    if (!dataset)
        return info;
    GDALRasterBand* band = dataset->GetRasterBand(1);
    info.type = band->GetRasterDataType();
    int has = 0;
    info.noData = band->GetNoDataValue(&has);
    info.hasNoData = has != 0;
    info.driver = dataset->GetDriver()->GetDescription();
    GDALClose(GDALDataset::ToHandle(dataset));
    return info;
}

QByteArray fileHash(const QString& path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256);
}

// The value a pixel of `type` holds for a computed double: rounded half away from zero, clamped.
double stored(double v, double low, double high)
{
    return std::min(std::max(std::round(v), low), high);
}

} // namespace

TEST(UtilityOperBand, EveryOutputTypeRoundsAndClamps)
{
    QTemporaryDir dir;
    const QString input = dir.path() + "/in.tif";
    // Values from -5e9 to 5e9 and fractions .5 around zero, so each type meets both ends of its range.
    auto value = [](int, int x, int y) {
        const double values[] = {-5e9, -70000.5, -40000, -300.5, -2.5, -0.5, 0.49, 2.5, 254.6, 255.5, 40000.4, 70000, 5e9, 1e300};
        return values[(y * 7 + x) % 14];
    };
    ASSERT_TRUE(makeRaster(input, 7, 4, 1, GDT_Float64, value));
    struct Row
    {
        int code;
        GDALDataType type;
        double low, high;
    } rows[] = {
        {1, GDT_Byte, 0, 255},
        {2, GDT_UInt16, 0, 65535},
        {3, GDT_Int16, -32768, 32767},
        {4, GDT_UInt32, 0, 4294967295.0},
        {5, GDT_Int32, -2147483648.0, 2147483647.0},
    };
    for (const Row& row : rows)
    {
        const QString output = dir.path() + QString("/type%1.tif").arg(row.code);
        auto run = bandCompute("b1 * 1", input, "1", output, row.code);
        ASSERT_TRUE(run->ok) << run->result.record.message;
        const BandInfo info = bandInfo(output);
        EXPECT_EQ(info.type, row.type);
        EXPECT_FALSE(info.hasNoData);
        const std::vector<double> values = readBand(output, 1);
        ASSERT_EQ(values.size(), 28u);
        for (int i = 0; i < 28; ++i)
            EXPECT_EQ(values[size_t(i)], stored(value(0, i % 7, i / 7), row.low, row.high))
                << "type " << row.code << " pixel " << i;
    }
    // Floating outputs keep the value (Float32 to its precision, overflowing to infinity).
    auto run32 = bandCompute("b1 / 3", input, "1", dir.path() + "/f32.tif", 6);
    auto run64 = bandCompute("b1 / 3", input, "1", dir.path() + "/f64.tif", 7);
    ASSERT_TRUE(run32->ok && run64->ok);
    const std::vector<double> f32 = readBand(dir.path() + "/f32.tif", 1), f64 = readBand(dir.path() + "/f64.tif", 1);
    for (int i = 0; i < 28; ++i)
    {
        const double exact = value(0, i % 7, i / 7) / 3;
        EXPECT_EQ(f64[size_t(i)], exact);
        EXPECT_EQ(f32[size_t(i)], double(float(exact)));
    }
    // Codes past Float64 are refused by the plug-in with a message in the result record.
    auto refused = bandCompute("b1", input, "1", dir.path() + "/type8.tif", 8);
    EXPECT_FALSE(refused->ok);
    EXPECT_EQ(refused->result.record.code, -1);
    EXPECT_STREQ(refused->result.record.message, "Unsupported output data type 8: use 1 (Byte) to 7 (Float64).");
    EXPECT_FALSE(QFile::exists(dir.path() + "/type8.tif"));
}

TEST(UtilityOperBand, NoDataOfAnyOperandGivesTheOutputsNoData)
{
    QTemporaryDir dir;
    const QString a = dir.path() + "/a.tif", b = dir.path() + "/b.tif";
    auto va = [](int, int x, int y) { return (x + y) % 4 == 0 ? -9999.0 : 10.0 * x + y; };
    auto vb = [](int, int x, int y) { return (x * y) % 5 == 3 ? 0.0 : 1.0 + x; };
    ASSERT_TRUE(makeRaster(a, 6, 5, 1, GDT_Int16, va));
    ASSERT_TRUE(makeRaster(b, 6, 5, 1, GDT_UInt16, vb));
    for (const QString& path : {a, b})
    {
        GDALDataset* dataset = GDALDataset::FromHandle(GDALOpen(path.toUtf8().constData(), GA_Update));
        ASSERT_NE(dataset, nullptr);
        dataset->GetRasterBand(1)->SetNoDataValue(path == a ? -9999.0 : 0.0);
        GDALClose(GDALDataset::ToHandle(dataset));
    }
    const QString images = a + "|" + b;
    auto floatRun = bandCompute("b1 / b2", images, "1|1", dir.path() + "/ratio.tif", 6);
    auto intRun = bandCompute("b1 - 40000 * (b2 > 3)", images, "1|1", dir.path() + "/diff.tif", 3);
    ASSERT_TRUE(floatRun->ok && intRun->ok) << floatRun->result.record.message << intRun->result.record.message;

    const BandInfo floatInfo = bandInfo(dir.path() + "/ratio.tif"), intInfo = bandInfo(dir.path() + "/diff.tif");
    EXPECT_TRUE(floatInfo.hasNoData && std::isnan(floatInfo.noData));
    EXPECT_TRUE(intInfo.hasNoData);
    EXPECT_EQ(intInfo.noData, -32768.0);
    const std::vector<double> ratio = readBand(dir.path() + "/ratio.tif", 1), diff = readBand(dir.path() + "/diff.tif", 1);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 6; ++x)
        {
            const size_t i = size_t(y * 6 + x);
            const bool missing = (x + y) % 4 == 0 || (x * y) % 5 == 3;
            if (missing)
            {
                EXPECT_TRUE(std::isnan(ratio[i])) << x << "," << y;
                EXPECT_EQ(diff[i], -32768.0) << x << "," << y;
                continue;
            }
            EXPECT_EQ(ratio[i], double(float(va(0, x, y) / vb(0, x, y))));
            // Computed values are kept off the no-data value: -40000 clamps to -32767.
            EXPECT_EQ(diff[i], std::max(-32767.0, va(0, x, y) - (vb(0, x, y) > 3 ? 40000 : 0)));
        }
}

// An NDVI over more than one row block of about two million pixels (two workers), with partial blocks at the
// right and bottom edges and a no-data operand, from striped inputs (read by rows) and from inputs tiled like
// the output (moved as whole tiles): the same pixels as a computation in the test, progress rising to 100.
TEST(UtilityOperBand, LargeRasterInSeveralBlocksOnTwoWorkers)
{
    const int width = 2050, height = 1100;
    auto red = [](int x, int y) { return double((x * 7 + y * 13) % 4000); };
    auto nir = [](int x, int y) { return double((x * 11 + y * 3) % 5000); };
    for (const bool tiled : {false, true})
    {
        SCOPED_TRACE(tiled ? "tiled inputs" : "striped inputs");
        QTemporaryDir dir;
        const QString a = dir.path() + "/a.tif", b = dir.path() + "/b.tif", output = dir.path() + "/ndvi.tif";
        const QStringList layout = tiled ? QStringList{"TILED=YES", "BLOCKXSIZE=256", "BLOCKYSIZE=256"} : QStringList();
        ASSERT_TRUE(makeGeoTiff(a, width, height, 1, GDT_UInt16, [&](int, int x, int y) { return red(x, y); }, layout, 0));
        ASSERT_TRUE(makeGeoTiff(b, width, height, 1, GDT_UInt16, [&](int, int x, int y) { return nir(x, y); }, layout));
        auto run = bandCompute("(b2 - b1) / (b2 + b1)", a + "|" + b, "1|1", output, 6);
        ASSERT_TRUE(run->ok) << run->result.record.message;
        const std::vector<double> values = readBand(output, 1);
        ASSERT_EQ(values.size(), size_t(width) * height);
        size_t wrong = 0;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
            {
                const double r = red(x, y), n = nir(x, y);
                const double expected = r == 0 ? std::nan("") : double(float((n - r) / (n + r)));
                const double got = values[size_t(y) * width + x];
                wrong += !(got == expected || (std::isnan(got) && std::isnan(expected)));
            }
        EXPECT_EQ(wrong, 0u);
        const std::vector<double>& progress = run->result.progress;
        ASSERT_GE(progress.size(), 2u);
        EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
        EXPECT_EQ(progress.back(), 100.0);
    }
}

TEST(UtilityOperBand, FormatsAndGeoreferencingFollowTheFirstInput)
{
    QTemporaryDir dir;
    const QString plain = dir.path() + "/plain.tif", geo = dir.path() + "/geo.tif";
    ASSERT_TRUE(makeRaster(geo, 5, 4, 1, GDT_Byte, [](int, int x, int) { return x; }));
    ASSERT_TRUE(makeRaster(plain, 5, 4, 1, GDT_Byte, [](int, int, int y) { return y; }, "GTiff", false));
    struct Row
    {
        const char* name;
        const char* driver;
    } rows[] = {{"out.tiff", "GTiff"}, {"out.img", "HFA"}, {"out.dat", "ENVI"}, {"no_suffix", "ENVI"}};
    for (const Row& row : rows)
    {
        const QString output = dir.path() + "/" + row.name;
        auto run = bandCompute("b1 + b2 * 10", geo + "|" + plain, "1|1", output, 2);
        ASSERT_TRUE(run->ok) << row.name << ": " << run->result.record.message;
        EXPECT_EQ(bandInfo(output).driver, row.driver);
        GDALDataset* dataset = GDALDataset::FromHandle(GDALOpen(output.toUtf8().constData(), GA_ReadOnly));
        ASSERT_NE(dataset, nullptr);
        double transform[6] = {};
        EXPECT_EQ(dataset->GetGeoTransform(transform), CE_None) << row.name;
        EXPECT_EQ(transform[0], 500000.0);
        EXPECT_EQ(transform[5], -30.0);
        OGRSpatialReference utm50;
        utm50.importFromEPSG(32650);
        ASSERT_NE(dataset->GetSpatialRef(), nullptr) << row.name;
        EXPECT_TRUE(dataset->GetSpatialRef()->IsSame(&utm50)) << row.name;
        GDALClose(GDALDataset::ToHandle(dataset));
        EXPECT_EQ(readBand(output, 1)[size_t(3 * 5 + 2)], 2 + 3 * 10) << row.name;
    }
}

TEST(UtilityOperBand, FailuresLeaveNoOutputAndNeverTouchInputs)
{
    QTemporaryDir dir;
    const QString input = dir.path() + "/in.tif";
    ASSERT_TRUE(makeRaster(input, 300, 200, 1, GDT_Float32, [](int, int x, int y) { return x + y; }));
    const QByteArray before = fileHash(input);

    const QString nowhere = dir.path() + "/no/such/folder/out.tif";
    auto noFolder = bandCompute("b1 * 2", input, "1", nowhere, 6);
    EXPECT_FALSE(noFolder->ok);
    EXPECT_EQ(noFolder->result.record.code, -1);
    EXPECT_EQ(std::string(noFolder->result.record.message),
              "Cannot create the output file \"" + nowhere.toStdString() + "\": its folder does not exist.");
    EXPECT_EQ(noFolder->text, "start call algorithm plugin: UtilityOperBand\n");

    for (const QString& same : {input, dir.path() + "/./in.tif"})
    {
        auto overwrite = bandCompute("b1 * 2", input, "1", same, 6);
        EXPECT_FALSE(overwrite->ok);
        EXPECT_EQ(std::string(overwrite->result.record.message),
                  "The output file \"" + same.toStdString() + "\" is one of the input files.");
    }

    const QString cancelled = dir.path() + "/cancelled.tif";
    auto stop = bandCompute("b1 * 2", input, "1", cancelled, 6, -1);
    EXPECT_FALSE(stop->ok);
    EXPECT_EQ(stop->result.record.code, -2);
    EXPECT_FALSE(QFile::exists(cancelled));

    EXPECT_EQ(fileHash(input), before);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList({"in.tif"}));
}

TEST(UtilityOperBand, NdviOfTheSampleLandsatScene)
{
    SKIP_WITHOUT_SHARED_DATA("gdal/L7_ETMs.tif");
    const QString scene = sharedDataPath("gdal/L7_ETMs.tif");
    QTemporaryDir dir;
    const QString output = dir.path() + "/ndvi.tif";
    auto run = bandCompute("(b2 - b1) / (b2 + b1)", scene + "|" + scene, "3|4", output, 6);
    ASSERT_TRUE(run->ok) << run->result.record.message;
    const std::vector<double> red = readBand(scene, 3), nir = readBand(scene, 4), ndvi = readBand(output, 1);
    ASSERT_EQ(ndvi.size(), size_t(349 * 352));
    ASSERT_EQ(red.size(), ndvi.size());
    for (size_t i = 0; i < ndvi.size(); ++i)
    {
        const double expected = double(float((nir[i] - red[i]) / (nir[i] + red[i])));
        ASSERT_TRUE(ndvi[i] == expected || (std::isnan(expected) && std::isnan(ndvi[i]))) << i;
    }
}
