// Change detection between two dates with planted changes: every method finds every plant, with the false-alarm
// rate stated; magnitudes against their formulas; resampling, masks, sieving, refusals; vegetation and water maps.
#include "obia_fixtures.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gdal_utils.h>

#include <cmath>

using namespace obiatest;
using namespace testsupport;

namespace
{

struct ChangeRun
{
    bool ok = false;
    std::string text;
};

ChangeRun changeDetection(const QString& before, const QString& after, const QString& out, double threshold, int method,
                          int minSize = 0, const char* bands = "", const char* mask = "")
{
    StdoutCapture capture;
    ChangeRun run;
    run.ok = ExcuteAlgo_ChangeDetectionRaster(before.toUtf8().constData(), after.toUtf8().constData(), out.toUtf8().constData(),
                                              threshold, method, minSize, bands, mask, nullptr);
    run.text = capture.text();
    return run;
}

class Change : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        before = dir.filePath("t1.tif");
        after = dir.filePath("t2.tif");
        ASSERT_TRUE(makeDates(before, after, 3));
    }
    QTemporaryDir dir;
    QString before, after;
};

// Detected planted pixels and false alarms of a change map (class > 0 is change).
struct Rates
{
    int missed = 0;
    int plantedPixels = 0;
    int falseAlarms = 0;
    int unchangedPixels = 0;
    double falseAlarmRate() const { return double(falseAlarms) / unchangedPixels; }
};

Rates rates(const std::vector<double>& map)
{
    Rates r;
    for (int y = 0; y < kSize; ++y)
        for (int x = 0; x < kSize; ++x)
        {
            const bool change = map[size_t(y * kSize + x)] > 0;
            if (planted(x, y))
                r.plantedPixels++, r.missed += !change;
            else
                r.unchangedPixels++, r.falseAlarms += change;
        }
    return r;
}

} // namespace

TEST_F(Change, EveryMethodWithAnAutomaticThresholdFindsEveryPlantWithFewFalseAlarms)
{
    // Measured false-alarm rates on this pair: 0 for every method (the plants shift all bands by 60, the noise of
    // the band differences has a standard deviation of about 3.4); the bound below leaves room for 0.5 %.
    const char* names[] = {"difference", "ratio", "log-ratio", "cva", "irmad"};
    for (int method = 0; method <= 4; ++method)
    {
        const QString out = dir.filePath(QString("change_%1.tif").arg(names[method]));
        const ChangeRun run = changeDetection(before, after, out, 0.0, method);
        ASSERT_TRUE(run.ok) << names[method] << ": " << run.text;
        const Rates r = rates(readBand(out, 1));
        EXPECT_EQ(r.missed, 0) << names[method];
        EXPECT_LE(r.falseAlarmRate(), 0.005) << names[method];
        RecordProperty(std::string("false_alarm_rate_") + names[method], std::to_string(r.falseAlarmRate()));
        EXPECT_EQ(outputValue(run.text, "OutputFile"), out.toStdString());
        EXPECT_EQ(outputValue(run.text, "MagnitudeFile"), dir.filePath(QString("change_%1_magnitude.tif").arg(names[method])).toStdString());
        EXPECT_EQ(outputValue(run.text, "AreaUnit"), "m2");
        EXPECT_DOUBLE_EQ(std::stod(outputValue(run.text, "ChangedArea")), (r.plantedPixels - r.missed + r.falseAlarms) * 900.0);
    }
}

TEST_F(Change, MagnitudesAndDirectionsFollowTheirFormulas)
{
    const QString cva = dir.filePath("cva.tif");
    ASSERT_TRUE(changeDetection(before, after, cva, 25.0, 3, 0, "1|3").ok);
    const std::vector<double> magnitude = readBand(dir.filePath("cva_magnitude.tif"), 1);
    const std::vector<double> direction = readBand(dir.filePath("cva_magnitude.tif"), 2);
    const std::vector<double> map = readBand(cva, 1);
    for (int y = 0; y < kSize; y += 7)
        for (int x = 0; x < kSize; x += 3)
        {
            // Values pass through Float32 files: compare with the stored inputs.
            const double d1 = float(afterValue(0, x, y)) - float(beforeValue(0, x, y));
            const double d3 = float(afterValue(2, x, y)) - float(beforeValue(2, x, y));
            const size_t i = size_t(y * kSize + x);
            EXPECT_NEAR(magnitude[i], std::hypot(d1, d3), 1e-3);
            double angle = std::atan2(d3, d1) * 180 / M_PI;
            angle += angle < 0 ? 360 : 0;
            EXPECT_NEAR(direction[i], angle, 1e-2);
            EXPECT_EQ(map[i], std::hypot(d1, d3) > 25.0 ? 1 + int(angle / 90) : 0) << x << "," << y;
        }
    // Plants raise both bands: direction 45 degrees, the first direction class.
    EXPECT_EQ(map[size_t(12 * kSize + 12)], 1);
}

TEST_F(Change, SmallPatchesGoWithMinSizeAndMaskedPixelsAreNoData)
{
    const QString out = dir.filePath("sieved.tif");
    ASSERT_TRUE(changeDetection(before, after, out, 20.0, 0, 40).ok);
    const std::vector<double> map = readBand(out, 1);
    // The 6 x 6 plant (36 pixels) is below 40 and merges into its surroundings; the 8 x 8 ones stay.
    EXPECT_EQ(map[size_t(87 * kSize + 87)], 0);
    EXPECT_EQ(map[size_t(12 * kSize + 12)], 1);
    const QString mask = dir.filePath("mask.tif");
    ASSERT_TRUE(makeRaster(mask, kSize, kSize, 1, GDT_Byte, [](int, int x, int) { return x < 50 ? 1 : 0; }));
    const QString masked = dir.filePath("masked.tif");
    const ChangeRun run = changeDetection(before, after, masked, 20.0, 0, 0, "", mask.toUtf8().constData());
    ASSERT_TRUE(run.ok) << run.text;
    const std::vector<double> values = readBand(masked, 1);
    EXPECT_EQ(values[size_t(12 * kSize + 12)], 1);
    EXPECT_EQ(values[size_t(32 * kSize + 62)], 255);
    GDALDatasetUniquePtr dataset(GDALDataset::Open(masked.toUtf8().constData(), GDAL_OF_RASTER));
    int hasNoData = 0;
    EXPECT_EQ(dataset->GetRasterBand(1)->GetNoDataValue(&hasNoData), 255);
    EXPECT_TRUE(hasNoData);
    EXPECT_EQ(categoryNames(masked), (std::vector<std::string>{"No change", "Change"}));
    EXPECT_NE(dataset->GetRasterBand(1)->GetColorTable(), nullptr);
}

TEST_F(Change, AnAfterImageOnAnotherGridIsResampledOntoTheBeforeGrid)
{
    // The later date at 60 m over the same footprint: every plant is still found, map on the 30 m grid.
    const QString coarse = dir.filePath("t2_60m.tif");
    {
        GDALDatasetUniquePtr source(GDALDataset::Open(after.toUtf8().constData(), GDAL_OF_RASTER));
        const char* argv[] = {"-tr", "60", "60", "-r", "average", nullptr};
        GDALWarpAppOptions* options = GDALWarpAppOptionsNew(const_cast<char**>(argv), nullptr);
        GDALDatasetH handle = GDALDataset::ToHandle(source.get());
        GDALDatasetH warped = GDALWarp(coarse.toUtf8().constData(), nullptr, 1, &handle, options, nullptr);
        GDALWarpAppOptionsFree(options);
        ASSERT_NE(warped, nullptr);
        GDALClose(warped);
    }
    const QString out = dir.filePath("resampled.tif");
    const ChangeRun run = changeDetection(before, coarse, out, 30.0, 0);
    ASSERT_TRUE(run.ok) << run.text;
    const std::vector<double> map = readBand(out, 1);
    ASSERT_EQ(map.size(), size_t(kSize * kSize));
    for (const Plant& p : plants())
        EXPECT_EQ(map[size_t((p.y + p.side / 2) * kSize + p.x + p.side / 2)], 1) << p.x << "," << p.y;
}

TEST_F(Change, RefusalsNameTheParameterAndLeaveNothingBehind)
{
    const QString twoBands = dir.filePath("two.tif");
    ASSERT_TRUE(makeRaster(twoBands, kSize, kSize, 2, GDT_Float32, beforeValue));
    const QString elsewhere = dir.filePath("elsewhere.tif");
    ASSERT_TRUE(makeRaster(elsewhere, kSize, kSize, 3, GDT_Float32, beforeValue));
    {
        GDALDatasetUniquePtr moved(GDALDataset::Open(elsewhere.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
        double transform[6] = {900000.0, 30.0, 0.0, 4000000.0, 0.0, -30.0};
        moved->SetGeoTransform(transform);
    }
    const QString out = dir.filePath("refused.tif");
    const struct
    {
        QString after;
        int method;
        const char* bands;
        std::string message;
    } rows[] = {
        {twoBands, 0, "", "ChangeDetectionRaster: the parameter AfterFile (" + twoBands.toStdString() + ") has 2 bands, BeforeFile has 3!"},
        {elsewhere, 0, "", "ChangeDetectionRaster: the parameter AfterFile (" + elsewhere.toStdString() + ") does not overlap BeforeFile (" + before.toStdString() + ")!"},
        {after, 5, "", "ChangeDetectionRaster: the parameter Method (5) must be between 0 and 4!"},
        {after, 0, "1|4", "ChangeDetectionRaster: the parameter Bands (1|4) names band 4; the images have 3!"},
    };
    for (const auto& row : rows)
    {
        RecordingResult result;
        StdoutCapture capture;
        EXPECT_FALSE(ExcuteAlgo_ChangeDetectionRaster(before.toUtf8().constData(), row.after.toUtf8().constData(),
                                                      out.toUtf8().constData(), 0.0, row.method, 0, row.bands, "", &result.record));
        capture.text();
        EXPECT_EQ(std::string(result.record.message), row.message);
        EXPECT_FALSE(QFile::exists(out));
        EXPECT_FALSE(QFile::exists(dir.filePath("refused_magnitude.tif")));
    }
}

TEST(Vegetation, LossAndGainAtThePlusMinusThresholdWithTheirAreas)
{
    // Four bands in the usual blue, green, red, NIR order; a block loses its vegetation, another gains some.
    QTemporaryDir dir;
    const QString before = dir.filePath("v1.tif"), after = dir.filePath("v2.tif"), out = dir.filePath("veg.tif");
    auto scene = [](bool later) {
        return [later](int band, int x, int y) {
            const bool vegetated = later ? (x >= 50 && y < 20) || (x < 50 && y >= 40) : x < 50;
            const double red = vegetated ? 30 : 80, nir = vegetated ? 200 : 90;
            return band == 2 ? red + noise(x, y, 2, later) * 4 : band == 3 ? nir + noise(x, y, 3, later) * 4 : 60.0;
        };
    };
    ASSERT_TRUE(makeRaster(before, kSize, kSize, 4, GDT_UInt16, scene(false)));
    ASSERT_TRUE(makeRaster(after, kSize, kSize, 4, GDT_UInt16, scene(true)));
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_ChangeDetectVegetation(before.toUtf8().constData(), after.toUtf8().constData(),
                                                  out.toUtf8().constData(), 0.2f, nullptr));
    const std::string text = capture.text();
    const std::vector<double> map = readBand(out, 1);
    const std::vector<double> difference = readBand(dir.filePath("veg_ndvi.tif"), 3);
    int counts[3] = {0, 0, 0};
    for (int y = 0; y < kSize; ++y)
        for (int x = 0; x < kSize; ++x)
        {
            const bool was = x < 50, is = (x >= 50 && y < 20) || (x < 50 && y >= 40);
            const int expected = was == is ? 0 : was ? 1 : 2;
            ASSERT_EQ(map[size_t(y * kSize + x)], expected) << x << "," << y;
            counts[expected]++;
            auto ndvi = [&](bool later) {
                const double red = float(scene(later)(2, x, y)), nir = float(scene(later)(3, x, y));
                return (std::round(nir) - std::round(red)) / (std::round(nir) + std::round(red));
            };
            EXPECT_NEAR(difference[size_t(y * kSize + x)], ndvi(true) - ndvi(false), 1e-6);
        }
    EXPECT_EQ(outputValue(text, "LossArea"), std::to_string(counts[1] * 900) + ".00");
    EXPECT_EQ(outputValue(text, "GainArea"), std::to_string(counts[2] * 900) + ".00");
    EXPECT_EQ(outputValue(text, "NoChangeArea"), std::to_string(counts[0] * 900) + ".00");
    EXPECT_EQ(outputValue(text, "NdviFile"), dir.filePath("veg_ndvi.tif").toStdString());

    // An RGB image has no near-infrared band.
    const QString rgb = dir.filePath("rgb.tif");
    ASSERT_TRUE(makeRaster(rgb, 10, 10, 3, GDT_Byte, [](int, int, int) { return 1.0; }));
    RecordingResult result;
    StdoutCapture quiet;
    EXPECT_FALSE(ExcuteAlgo_ChangeDetectVegetation(rgb.toUtf8().constData(), after.toUtf8().constData(),
                                                   dir.filePath("no.tif").toUtf8().constData(), 0.2f, &result.record));
    EXPECT_EQ(std::string(result.record.message),
              "ChangeDetectVegetation: the parameter BeforeFile (" + rgb.toStdString() +
                  ") has no band known as red and near infrared (no wavelengths, band names or usual band order for 3 bands)!");
    EXPECT_FALSE(QFile::exists(dir.filePath("no.tif")));
}

namespace
{

// Water in the earlier and later scenes: a lake (x < 40) that grows downwards (y >= 60, x < 70 later) and drains at
// the top (y < 20 earlier only).
bool waterAt(bool later, int x, int y)
{
    if (later)
        return (x < 40 && y >= 20) || (x < 70 && y >= 60);
    return x < 40;
}

int expectedTransition(int x, int y)
{
    const bool before = waterAt(false, x, y), after = waterAt(true, x, y);
    return before && after ? 1 : after ? 2 : before ? 3 : 0;
}

} // namespace

TEST(WaterChange, OpticalAndRadarDatesGiveTheTransitionMap)
{
    QTemporaryDir dir;
    // Six bands in Landsat TM order: green is band 2, SWIR band 5 (MNDWI). Radar: one band in dB.
    auto optical = [](bool later) {
        return [later](int band, int x, int y) {
            const bool water = waterAt(later, x, y);
            const double green = water ? 60 : 50, swir = water ? 5 : 90;
            return (band == 1 ? green : band == 4 ? swir : 70.0) + 4 * noise(x, y, band, later);
        };
    };
    auto radar = [](bool later) {
        return [later](int, int x, int y) { return (waterAt(later, x, y) ? -22.0 : -9.0) + 3 * noise(x, y, 0, later + 5); };
    };
    const QString o1 = dir.filePath("o1.tif"), o2 = dir.filePath("o2.tif"), r1 = dir.filePath("r1.tif"), r2 = dir.filePath("r2.tif");
    ASSERT_TRUE(makeRaster(o1, kSize, kSize, 6, GDT_UInt16, optical(false)));
    ASSERT_TRUE(makeRaster(o2, kSize, kSize, 6, GDT_UInt16, optical(true)));
    ASSERT_TRUE(makeRaster(r1, kSize, kSize, 1, GDT_Float32, radar(false)));
    ASSERT_TRUE(makeRaster(r2, kSize, kSize, 1, GDT_Float32, radar(true)));
    // Optical pair, radar pair, and a radar reference with an optical later date.
    const std::pair<QString, QString> pairs[] = {{o2, o1}, {r2, r1}, {o2, r1}};
    for (const auto& [later, earlier] : pairs)
    {
        const QString out = dir.filePath("water_" + QFileInfo(later).baseName() + QFileInfo(earlier).baseName() + ".tif");
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_swbhjc(later.toUtf8().constData(), earlier.toUtf8().constData(), out.toUtf8().constData(), nullptr));
        const std::string text = capture.text();
        const std::vector<double> map = readBand(out, 1);
        int counts[4] = {0, 0, 0, 0}, wrong = 0;
        for (int y = 0; y < kSize; ++y)
            for (int x = 0; x < kSize; ++x)
            {
                counts[expectedTransition(x, y)]++;
                wrong += map[size_t(y * kSize + x)] != expectedTransition(x, y);
            }
        EXPECT_EQ(wrong, 0) << out.toStdString();
        EXPECT_EQ(outputValue(text, "StableWaterArea"), std::to_string(counts[1] * 900) + ".00");
        EXPECT_EQ(outputValue(text, "NewWaterArea"), std::to_string(counts[2] * 900) + ".00");
        EXPECT_EQ(outputValue(text, "LostWaterArea"), std::to_string(counts[3] * 900) + ".00");
        EXPECT_EQ(categoryNames(out), (std::vector<std::string>{"No water", "Stable water", "New water", "Lost water"}));
    }
}

TEST(WaterChange, RealRadarSceneAgainstADrainedCopy)
{
    SKIP_WITHOUT_SHARED_DATA("sentinel1");
    QDir folder(sharedDataPath("sentinel1"));
    const QStringList found = folder.entryList({"*_db.tif"});
    if (found.isEmpty())
        GTEST_SKIP() << "no geocoded dB scene";
    const QString scene = folder.filePath(found.first());
    // The earlier date is the scene itself; the later one is the scene with every pixel of its west half raised to
    // land backscatter (-5 dB): no new water, water lost only in the west half, stable water only in the east.
    QTemporaryDir dir;
    const QString drained = dir.filePath("drained.tif");
    GDALAllRegister(); // the copy is made here, before any entry has registered GDAL's drivers
    {
        GDALDatasetUniquePtr source(GDALDataset::Open(scene.toUtf8().constData(), GDAL_OF_RASTER));
        ASSERT_NE(source, nullptr);
        GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GTiff");
        GDALDatasetUniquePtr copy(driver->CreateCopy(drained.toUtf8().constData(), source.get(), FALSE, nullptr, nullptr, nullptr));
        ASSERT_NE(copy, nullptr);
        const int width = copy->GetRasterXSize(), height = copy->GetRasterYSize();
        std::vector<float> rows(size_t(width) * height);
        ASSERT_EQ(copy->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, width, height, rows.data(), width, height, GDT_Float32, 0, 0), CE_None);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width / 2; ++x)
                rows[size_t(y) * width + x] = -5.0f;
        ASSERT_EQ(copy->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, width, height, rows.data(), width, height, GDT_Float32, 0, 0), CE_None);
    }
    const QString out = dir.filePath("s1_water.tif");
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_swbhjc(drained.toUtf8().constData(), scene.toUtf8().constData(), out.toUtf8().constData(), nullptr));
    const std::string text = capture.text();
    const double threshold = std::stod(outputValue(text, "ReferenceThreshold"));
    const double laterThreshold = std::stod(outputValue(text, "InputThreshold"));
    // A dark-water split lies among the values NOTES.md lists for this scene (-26.7 to 1.4 dB, mean -12.1).
    EXPECT_GT(threshold, -22.0);
    EXPECT_LT(threshold, -12.0);
    const std::vector<double> map = readBand(out, 1);
    const std::vector<double> original = readBand(scene, 1);
    GDALDatasetUniquePtr opened(GDALDataset::Open(scene.toUtf8().constData(), GDAL_OF_RASTER));
    const int width = opened->GetRasterXSize();
    int water = 0, wrong = 0;
    for (size_t i = 0; i < map.size(); ++i)
    {
        const bool west = int(i % size_t(width)) < width / 2;
        const bool before = original[i] < threshold, after = !west && original[i] < laterThreshold;
        wrong += map[i] != (before && after ? 1 : after ? 2 : before ? 3 : 0);
        water += before;
    }
    EXPECT_EQ(wrong, 0);
    RecordProperty("reference_threshold_db", std::to_string(threshold));
    RecordProperty("water_fraction", std::to_string(double(water) / map.size()));
}

TEST(Vegetation, RealLandsatSceneWithAHalvedNearInfraredBlock)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_B5.tif");
    // Blue, green, red, NIR of the Landsat 8 crop in the usual four-band order; the later date halves the NIR of a
    // 100 x 100 block (a clearing). Loss is wherever the NDVI of that block drops by more than the threshold.
    std::vector<std::vector<double>> bands;
    for (const char* name : {"landsat8/l8_B2.tif", "landsat8/l8_B3.tif", "landsat8/l8_B4.tif", "landsat8/l8_B5.tif"})
        bands.push_back(readBand(sharedDataPath(name), 1));
    GDALDatasetUniquePtr source(GDALDataset::Open(sharedDataPath("landsat8/l8_B4.tif").toUtf8().constData(), GDAL_OF_RASTER));
    const int width = source->GetRasterXSize(), height = source->GetRasterYSize();
    auto cleared = [&](int x, int y) { return x >= 100 && x < 200 && y >= 100 && y < 200; };
    QTemporaryDir dir;
    const QString before = dir.filePath("l8_t1.tif"), after = dir.filePath("l8_t2.tif"), out = dir.filePath("l8_veg.tif");
    for (const QString& path : {before, after})
    {
        const bool later = path == after;
        ASSERT_TRUE(makeRaster(path, width, height, 4, GDT_UInt16, [&](int b, int x, int y) {
            const double v = bands[size_t(b)][size_t(y) * width + x];
            return later && b == 3 && cleared(x, y) ? std::floor(v / 2) : v;
        }));
    }
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_ChangeDetectVegetation(before.toUtf8().constData(), after.toUtf8().constData(), out.toUtf8().constData(),
                                                  0.1f, nullptr));
    const std::string text = capture.text();
    const std::vector<double> map = readBand(out, 1);
    int loss = 0, wrong = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
        {
            const size_t i = size_t(y) * width + x;
            const double red = bands[2][i], nir = bands[3][i], halved = cleared(x, y) ? std::floor(nir / 2) : nir;
            const double drop = float((halved - red) / (halved + red)) - float((nir - red) / (nir + red));
            const int expected = drop < -0.1f ? 1 : 0;
            loss += expected;
            wrong += map[i] != expected;
        }
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(loss, 5000); // most of the block is vegetated enough to show it
    EXPECT_EQ(outputValue(text, "LossArea"), std::to_string(loss * 900) + ".00");
    EXPECT_EQ(outputValue(text, "GainArea"), "0.00");
}
