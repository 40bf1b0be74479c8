// Cloud detection: agreement with the cloud bits of the Landsat 8 sample's quality band, the depression filling
// against a brute-force fixed point, shadow matching on a drawn scene, the four-band rules, and refusals.
#include "cloud_tests.h"
#include "optical_fixtures.h"
#include "test_support.h"

#include <QFile>

#include <cmath>
#include <random>

using namespace testsupport;

namespace
{

struct CloudRun
{
    bool ok = false;
    std::vector<std::string> lines;
    std::string message;
};

CloudRun detect(const QString& input)
{
    RecordingResult result;
    CloudRun run;
    StdoutCapture capture;
    run.ok = ExcuteAlgo_Clouddetect(input.toUtf8(), &result.record);
    run.lines = lines(capture.text());
    run.message = result.record.message;
    return run;
}

} // namespace

TEST(CloudDetect, AgreesWithTheQualityBandOfTheLandsatSample)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_BQA.tif");
    QTemporaryDir dir;
    ASSERT_TRUE(opticalfixtures::linkLandsatSample(dir.path()));
    const CloudRun run = detect(dir.filePath("l8_MTL.txt"));
    ASSERT_TRUE(run.ok) << run.message;
    const QString maskPath = dir.filePath("l8_cloudmask.tif");
    ASSERT_GE(run.lines.size(), 2u);
    EXPECT_EQ(run.lines[run.lines.size() - 2], "[OUTPUT] CloudMask=\"" + maskPath.toStdString() + "\"");

    const std::vector<double> mask = readBand(maskPath, 1), quality = readBand(dir.filePath("l8_BQA.tif"), 1);
    ASSERT_EQ(mask.size(), quality.size());
    // Pre-collection quality band: bits 14-15 are the cloud confidence, 3 = high.
    size_t agree = 0, valid = 0, cloud = 0;
    for (size_t i = 0; i < mask.size(); ++i)
    {
        if (mask[i] == 255)
            continue;
        ++valid;
        cloud += mask[i] == 1;
        const bool flagged = ((int(quality[i]) >> 14) & 3) == 3;
        agree += (mask[i] == 1) == flagged;
    }
    EXPECT_EQ(valid, mask.size()); // the crop has no fill
    EXPECT_GE(double(agree) / double(valid), 0.90);
    char percent[32];
    std::snprintf(percent, sizeof percent, "%.2f", 100.0 * double(cloud) / double(valid));
    EXPECT_EQ(run.lines.back(), std::string("[OUTPUT] CloudPercent=\"") + percent + "\"");

    GDALDataset* ds = GDALDataset::Open(maskPath.toUtf8().constData());
    ASSERT_TRUE(ds);
    GDALRasterBand* band = ds->GetRasterBand(1);
    EXPECT_EQ(band->GetRasterDataType(), GDT_Byte);
    ASSERT_TRUE(band->GetColorTable());
    EXPECT_EQ(band->GetColorTable()->GetColorEntry(1)->c1, 255);
    char** names = band->GetCategoryNames();
    ASSERT_TRUE(names);
    EXPECT_STREQ(names[1], "Cloud");
    EXPECT_STREQ(names[2], "Cloud shadow");
    EXPECT_STREQ(names[3], "Snow/ice");
    EXPECT_STREQ(names[255], "No data");
    EXPECT_EQ(band->GetNoDataValue(), 255.0);
    double gt[6];
    ds->GetGeoTransform(gt);
    EXPECT_EQ(gt[0], 452475.0);
    GDALClose(ds);
}

TEST(CloudKernels, FillDepressionsReachesTheFixedPoint)
{
    // Brute force: F = max(I, min of the 8 neighbours' F), from +inf inside, until nothing changes.
    const int w = 13, h = 9;
    std::mt19937 random(7);
    std::uniform_real_distribution<float> value(0.0f, 1.0f);
    std::vector<float> image(size_t(w * h));
    for (float& v : image)
        v = value(random);
    image[size_t(4 * w + 6)] = std::nanf(""); // an inner no-data pixel drains like the border
    std::vector<float> expected(image.size(), 1e30f);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
        {
            const size_t i = size_t(y * w + x);
            if (x == 0 || y == 0 || x == w - 1 || y == h - 1 || std::isnan(image[i]))
                expected[i] = std::isnan(image[i]) ? -1e30f : image[i];
        }
    for (bool changed = true; changed;)
    {
        changed = false;
        for (int y = 1; y < h - 1; ++y)
            for (int x = 1; x < w - 1; ++x)
            {
                const size_t i = size_t(y * w + x);
                if (std::isnan(image[i]))
                    continue;
                float low = 1e30f;
                for (int dy = -1; dy <= 1; ++dy)
                    for (int dx = -1; dx <= 1; ++dx)
                        if (dx || dy)
                            low = std::min(low, expected[size_t((y + dy) * w + x + dx)]);
                const float next = std::max(image[i], low);
                if (next < expected[i])
                {
                    expected[i] = next;
                    changed = true;
                }
            }
    }
    std::vector<float> filled = image;
    radiometry::fillDepressions(filled.data(), w, h);
    for (size_t i = 0; i < image.size(); ++i)
    {
        if (!std::isnan(image[i]))
        {
            EXPECT_NEAR(filled[i], expected[i], 2.0 / 65535) << i; // one level step of the range
        }
    }
}

TEST(CloudKernels, ShadowFoundAwayFromTheSun)
{
    // Sun in the east (azimuth 90), 45 degrees from the zenith, 100 m pixels: a cloud 3 km up casts its shadow
    // 30 pixels to the west.
    const int w = 90, h = 40;
    std::vector<uint8_t> mask(size_t(w * h), radiometry::kClear), dark(size_t(w * h), 0);
    for (int y = 10; y < 18; ++y)
        for (int x = 60; x < 68; ++x)
        {
            mask[size_t(y * w + x)] = radiometry::kCloud;
            dark[size_t(y * w + x - 30)] = 1;
        }
    dark[size_t(5 * w + 5)] = 1; // a dark pixel belonging to no cloud
    EXPECT_EQ(radiometry::matchCloudShadows(mask.data(), dark.data(), w, h, 90.0, 45.0, 100.0), 1);
    for (int y = 0; y < h; ++y)
    {
        for (int x = 0; x < w; ++x)
        {
            const bool cloud = y >= 10 && y < 18 && x >= 60 && x < 68;
            const bool shadow = y >= 10 && y < 18 && x >= 30 && x < 38;
            EXPECT_EQ(mask[size_t(y * w + x)], cloud ? radiometry::kCloud : shadow ? radiometry::kShadow : radiometry::kClear)
                << x << "," << y;
        }
    }
}

TEST(CloudDetect, FourBandReflectanceAndRefusals)
{
    QTemporaryDir dir;
    // Blue, green, red, NIR reflectance: vegetation with a bright white block in it.
    const QString scene = dir.filePath("gf1_scene.tif");
    const auto cloudy = [](int x, int y) { return x >= 10 && x < 20 && y >= 5 && y < 12; };
    ASSERT_TRUE(makeRaster(scene, 40, 20, 4, GDT_Float32, [&](int b, int x, int y) {
        const double vegetation[] = {0.04, 0.07, 0.05, 0.35}, cloud[] = {0.45, 0.44, 0.43, 0.46};
        return cloudy(x, y) ? cloud[b] : vegetation[b];
    }));
    const CloudRun run = detect(scene);
    ASSERT_TRUE(run.ok) << run.message;
    EXPECT_EQ(run.lines.back(), "[OUTPUT] CloudPercent=\"8.75\""); // 70 of 800 pixels
    const std::vector<double> mask = readBand(dir.filePath("gf1_scene_cloudmask.tif"), 1);
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 40; ++x)
            EXPECT_EQ(mask[size_t(y * 40 + x)], cloudy(x, y) ? 1 : 0);

    const QString threeBands = dir.filePath("rgb.tif");
    ASSERT_TRUE(makeRaster(threeBands, 8, 8, 3, GDT_Byte, [](int, int x, int) { return x; }));
    const struct
    {
        QString input;
        std::string message;
    } rows[] = {
        {threeBands, "CloudDetect: the parameter InputFile (" + threeBands.toStdString() +
                         ") has 3 band(s); cloud detection needs blue, green, red and NIR!"},
        {dir.filePath("none.tif"), "CloudDetect: the parameter InputFile (" + dir.filePath("none.tif").toStdString() +
                                       ") is not an existing file!"},
    };
    for (const auto& row : rows)
    {
        const CloudRun refused = detect(row.input);
        EXPECT_FALSE(refused.ok);
        EXPECT_EQ(refused.message, row.message);
    }
    EXPECT_FALSE(QFile::exists(dir.filePath("rgb_cloudmask.tif")));

    if (sharedDataPath("landsat8/l8_MTL.txt").isEmpty())
        return;
    QTemporaryDir partial;
    ASSERT_TRUE(opticalfixtures::linkLandsatSample(partial.path(), {"l8_MTL.txt", "l8_B2.tif", "l8_B3.tif", "l8_B4.tif", "l8_B5.tif"}));
    const CloudRun lacking = detect(partial.filePath("l8_MTL.txt"));
    EXPECT_FALSE(lacking.ok);
    EXPECT_EQ(lacking.message, "CloudDetect: the parameter InputFile (" + partial.filePath("l8_MTL.txt").toStdString() +
                                   ") lacks the image of band 6 (LC80200392015216LGN00_B6.TIF)!");
    EXPECT_FALSE(QFile::exists(partial.filePath("l8_cloudmask.tif")));
}
