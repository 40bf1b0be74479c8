// Haze removal: a synthetic haze layer over the real Landsat 8 scene (TOA reflectance of blue, green, red, NIR),
// removed by each method; the clear scene is recovered within the errors stated below. Kernels on small arrays.
#include "haze_removal.h"
#include "test_support.h"

#include <QFile>

#include <cmath>

using namespace testsupport;

namespace
{

constexpr int kWidth = 627, kHeight = 603;
const char* const kBands[] = {"landsat8/l8_B2.tif", "landsat8/l8_B3.tif", "landsat8/l8_B4.tif", "landsat8/l8_B5.tif"};
// Additive haze of each band at the centre of the layer: stronger toward the blue.
const double kHaze[] = {0.08, 0.06, 0.045, 0.015};

// A smooth haze bump over the left part of the scene, 0 far from it.
double hazeLayer(int x, int y)
{
    const double dx = x - 200.0, dy = y - 300.0;
    return std::exp(-(dx * dx + dy * dy) / (2.0 * 140.0 * 140.0));
}

struct Scene
{
    std::vector<std::vector<double>> clear; // reflectance per band
    std::vector<bool> cloud;                // high- and medium-confidence cloud of the quality band
};

Scene clearScene()
{
    Scene scene;
    const double sinElevation = std::sin(64.74360932 * M_PI / 180.0);
    for (const char* band : kBands)
    {
        std::vector<double> dn = readBand(sharedDataPath(band), 1);
        for (double& v : dn)
            v = (2e-5 * v - 0.1) / sinElevation;
        scene.clear.push_back(dn);
    }
    const std::vector<double> quality = readBand(sharedDataPath("landsat8/l8_BQA.tif"), 1);
    for (double q : quality)
        scene.cloud.push_back(((int(q) >> 14) & 3) >= 2);
    return scene;
}

bool removeHaze(const QString& input, const QString& output, int method, std::string* message)
{
    RecordingResult result;
    StdoutCapture capture;
    const bool ok = ExcuteAlgo_ThinCloudRemove(input.toUtf8(), output.toUtf8(), method, &result.record);
    capture.text();
    *message = result.record.message;
    return ok;
}

} // namespace

TEST(ThinCloudRemove, RemovesASyntheticHazeLayer)
{
    // The sample scene is itself hazy (thin cirrus over much of it), so each method runs on the scene and on the
    // scene under the added layer: what the layer leaves in the output is the difference of the two, compared
    // with the layer itself over cloud-free pixels.
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_BQA.tif");
    const Scene scene = clearScene();
    QTemporaryDir dir;
    const QString original = dir.filePath("scene.tif"), additive = dir.filePath("hazy_add.tif"),
                  scattering = dir.filePath("hazy_scatter.tif");
    ASSERT_TRUE(makeRaster(original, kWidth, kHeight, 4, GDT_Float32,
                           [&](int b, int x, int y) { return scene.clear[size_t(b)][size_t(y * kWidth + x)]; }));
    // Additive haze for the haze-optimised transform and homomorphic filtering; the scattering model
    // I = J t + A (1 - t) of the dark-channel prior for that method.
    ASSERT_TRUE(makeRaster(additive, kWidth, kHeight, 4, GDT_Float32, [&](int b, int x, int y) {
        return scene.clear[size_t(b)][size_t(y * kWidth + x)] + kHaze[b] * hazeLayer(x, y);
    }));
    ASSERT_TRUE(makeRaster(scattering, kWidth, kHeight, 4, GDT_Float32, [&](int b, int x, int y) {
        const double t = 1.0 - 0.4 * hazeLayer(x, y);
        return scene.clear[size_t(b)][size_t(y * kWidth + x)] * t + 0.35 * (1.0 - t);
    }));

    // Largest share of the layer's RMS left in blue, green and red (measured: HOT 0.46, 0.50, 0.47; dark channel
    // 0.34, 0.41, 0.38; homomorphic 0.75, 0.74, 0.73).
    const struct
    {
        int method;
        QString hazy;
        double share;
    } rows[] = {{0, additive, 0.6}, {1, scattering, 0.5}, {2, additive, 0.8}};
    for (const auto& row : rows)
    {
        const QString fromHazy = dir.filePath(QStringLiteral("h%1.tif").arg(row.method));
        const QString fromScene = dir.filePath(QStringLiteral("s%1.tif").arg(row.method));
        std::string message;
        ASSERT_TRUE(removeHaze(row.hazy, fromHazy, row.method, &message)) << message;
        ASSERT_TRUE(removeHaze(original, fromScene, row.method, &message)) << message;
        for (int b = 0; b < 3; ++b)
        {
            const std::vector<double> hazy = readBand(row.hazy, b + 1), outHazy = readBand(fromHazy, b + 1),
                                      outScene = readBand(fromScene, b + 1);
            double layer = 0, left = 0;
            size_t n = 0;
            for (size_t i = 0; i < hazy.size(); ++i)
            {
                if (scene.cloud[i])
                    continue;
                const double added = hazy[i] - scene.clear[size_t(b)][i];
                layer += added * added;
                left += (outHazy[i] - outScene[i]) * (outHazy[i] - outScene[i]);
                ++n;
            }
            layer = std::sqrt(layer / double(n));
            left = std::sqrt(left / double(n));
            EXPECT_LT(left, row.share * layer) << "method " << row.method << " band " << b << ": " << layer << " -> " << left;
        }
    }
}

TEST(ThinCloudRemove, KeepsTypeNoDataAndRefuses)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("dn.tif");
    ASSERT_TRUE(makeGeoTiff(input, 64, 48, 3, GDT_UInt16, [](int b, int x, int y) {
        return x == 0 ? 0 : 500 + 40 * b + 3 * x + 2 * y + (x > 30 ? 300 - 50 * b : 0);
    }, {}, 0.0));
    for (int method : {0, 1, 2})
    {
        const QString output = dir.filePath(QStringLiteral("out%1.tif").arg(method));
        std::string message;
        ASSERT_TRUE(removeHaze(input, output, method, &message)) << message;
        GDALDataset* ds = GDALDataset::Open(output.toUtf8().constData());
        ASSERT_TRUE(ds);
        EXPECT_EQ(ds->GetRasterBand(1)->GetRasterDataType(), GDT_UInt16);
        EXPECT_EQ(ds->GetRasterBand(2)->GetNoDataValue(), 0.0);
        GDALClose(ds);
        const std::vector<double> band = readBand(output, 2);
        for (int y = 0; y < 48; ++y)
            EXPECT_EQ(band[size_t(y * 64)], 0.0) << method; // no data stays
    }
    const QString twoBands = dir.filePath("two.tif");
    ASSERT_TRUE(makeRaster(twoBands, 8, 8, 2, GDT_Byte, [](int, int x, int) { return x; }));
    const struct
    {
        QString input;
        int method;
        std::string message;
    } rows[] = {
        {input, 3, "ThinCloudRemove: the parameter Method (3) must be one of 0, 1, 2!"},
        {twoBands, 0, "ThinCloudRemove: the parameter Method (0) needs blue and red bands (band metadata, or at least "
                      "three bands in the order blue, green, red)!"},
    };
    for (const auto& row : rows)
    {
        std::string message;
        EXPECT_FALSE(removeHaze(row.input, dir.filePath("refused.tif"), row.method, &message));
        EXPECT_EQ(message, row.message);
        EXPECT_FALSE(QFile::exists(dir.filePath("refused.tif")));
    }
}

TEST(HazeKernels, ClearLineAndOffsetsByLevel)
{
    // Clear pixels on blue = 0.02 + 0.8 red, hazy ones above the line: the fitted line is the clear one.
    radiometry::PairHistogram h(0, 0.4, 0, 0.4, 200);
    for (int i = 0; i < 4000; ++i)
    {
        const double red = 0.02 + 0.3 * (i % 400) / 400.0;
        h.add(red, 0.02 + 0.8 * red);
        h.add(red, 0.02 + 0.8 * red + 0.05 + 0.1 * (i % 7) / 7.0);
    }
    const radiometry::ClearLine line = radiometry::fitClearLine(h, 10.0, 10);
    EXPECT_NEAR(line.slope, 0.8, 0.02);
    EXPECT_NEAR(line.intercept, 0.02, 0.004);

    // Three levels whose dark values are 10, 30 and 25 (value bins of width 1): offsets 0, 20, 20.
    std::vector<std::vector<long long>> counts(3, std::vector<long long>(100, 0));
    for (int v = 10; v < 60; ++v)
        counts[0][size_t(v)] = 1;
    for (int v = 30; v < 80; ++v)
        counts[1][size_t(v)] = 1;
    for (int v = 25; v < 80; ++v)
        counts[2][size_t(v)] = 1;
    EXPECT_EQ(radiometry::hazeOffsetsByLevel(counts, 0, 100, 0), (std::vector<double>{0, 20, 20}));
    EXPECT_EQ(radiometry::hazeOffsetsByLevel(counts, 0, 100, 1), (std::vector<double>{0, 0, 0}));
}
