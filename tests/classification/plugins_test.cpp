// Classification plug-ins on small crafted images whose right answer is known, and on a real scene.
#include "class_fixtures.h"

#include <QFile>
#include <QTemporaryDir>

#include <set>

using namespace classtest;

namespace
{

constexpr int kWidth = 30;
constexpr int kHeight = 20;

// Three regions of 10 columns with well separated two-band values and a little deterministic noise.
double threeRegions(int band, int x, int y)
{
    static const double centres[3][2] = {{10, 200}, {200, 10}, {100, 100}};
    return centres[x / 10][band] + ((x * 7 + y * 3 + band) % 5) - 2;
}

// The labels of each region are one value, and the three values differ.
void expectRegions(const QString& path, int regions = 3)
{
    const std::vector<double> labels = testsupport::readBand(path, 1);
    ASSERT_EQ(labels.size(), size_t(kWidth * kHeight)) << path.toStdString();
    std::set<double> seen;
    for (int r = 0; r < regions; ++r)
    {
        const double label = labels[size_t(r * 10)];
        seen.insert(label);
        for (int y = 0; y < kHeight; ++y)
            for (int x = r * 10; x < r * 10 + 10; ++x)
                ASSERT_EQ(labels[size_t(y * kWidth + x)], label) << "pixel " << x << "," << y;
    }
    EXPECT_EQ(seen.size(), size_t(regions));
}

std::string roiFile(const std::vector<std::pair<const char*, const char*>>& areas)
{
    std::string text = "<ROI>";
    int colour = 0;
    for (const auto& area : areas)
    {
        text += std::string("<AREA><name>") + area.first + "</name><color>" + std::to_string(colour) + ",50,200</color>";
        text += std::string("<item><ID>1</ID><type>type_Rect</type><points>") + area.second + "</points></item></AREA>";
        colour += 100;
    }
    return text + "</ROI>";
}

std::vector<int> readInts(const QString& path)
{
    std::vector<int> values;
    for (double v : testsupport::readBand(path, 1))
        values.push_back(int(v));
    return values;
}

} // namespace

TEST(UnsupervisedPlugins, SeparatedClustersAreFound)
{
    QTemporaryDir dir;
    const QString image = dir.filePath("scene.tif");
    ASSERT_TRUE(testsupport::makeRaster(image, kWidth, kHeight, 2, GDT_UInt16, threeRegions));
    const QByteArray in = image.toUtf8();
    const QByteArray kmeans = dir.filePath("kmeans.img").toUtf8();
    const QByteArray isodata = dir.filePath("isodata.img").toUtf8();
    const QByteArray network = dir.filePath("network.img").toUtf8();
    testsupport::RecordingResult result;
    EXPECT_TRUE(ExcuteAlgo_KmeansClassification(in, kmeans, "0|1", 3, 10, 0.0001, &result.record)) << result.record.message;
    expectRegions(kmeans);
    EXPECT_EQ(colourCount(kmeans), 3);
    EXPECT_EQ(categoryNames(kmeans), (QStringList{"Class_1", "Class_2", "Class_3"}));
    ASSERT_FALSE(result.progress.empty());
    EXPECT_DOUBLE_EQ(result.progress.back(), 100.0);

    // ISODATA starts from two classes and must split to reach the three clusters.
    EXPECT_TRUE(ExcuteAlgo_ISODataClassification(in, isodata, "0|1", 3, 2, 5, 20.0, 30.0, 2, 10, nullptr));
    expectRegions(isodata);
    EXPECT_EQ(colourCount(isodata), 3);
    // Starting from six classes it must merge the near centres down to three.
    const QByteArray merged = dir.filePath("isodata_merged.img").toUtf8();
    EXPECT_TRUE(ExcuteAlgo_ISODataClassification(in, merged, "0|1", 3, 6, 5, 20.0, 50.0, 3, 10, nullptr));
    expectRegions(merged);
    EXPECT_EQ(colourCount(merged), 3);

    EXPECT_TRUE(ExcuteAlgo_NeuralNetworkCluster(in, network, "0|1", 0, 3, 0.5f, 1.0f, 5, nullptr));
    expectRegions(network);
    EXPECT_EQ(colourCount(network), 3);
}

TEST(UnsupervisedPlugins, BadRequestsFailWithoutOutput)
{
    QTemporaryDir dir;
    const QString image = dir.filePath("two_values.tif");
    ASSERT_TRUE(testsupport::makeRaster(image, 8, 8, 2, GDT_Byte, [](int b, int x, int) { return x < 4 ? 10 : 90 + b; }));
    const QByteArray in = image.toUtf8();
    // More classes than distinct pixels: empty classes, no crash.
    const QByteArray many = dir.filePath("many.img").toUtf8();
    EXPECT_TRUE(ExcuteAlgo_KmeansClassification(in, many, "0|1", 5, 5, 0.5, nullptr));
    const std::vector<int> labels = readInts(many);
    EXPECT_EQ(std::set<int>(labels.begin(), labels.begin() + 4).size(), 1u);
    EXPECT_NE(labels[0], labels[7]);
    // A band that does not exist is the plug-in's error, and nothing is left behind.
    testsupport::RecordingResult result;
    const QByteArray missing = dir.filePath("missing_band.tif").toUtf8();
    capture([&] { return ExcuteAlgo_KmeansClassification(in, missing, "0|99", 2, 5, 0.5, &result.record); });
    EXPECT_NE(result.record.code, 0);
    EXPECT_NE(std::string(result.record.message).find("99"), std::string::npos) << result.record.message;
    EXPECT_FALSE(QFile::exists(QString::fromUtf8(missing)));
}

TEST(SupervisedPlugins, RoiTrainedClassesMatchRegions)
{
    QTemporaryDir dir;
    const QString image = dir.filePath("scene.tif");
    ASSERT_TRUE(testsupport::makeRaster(image, kWidth, kHeight, 2, GDT_UInt16, threeRegions));
    const QString roi = dir.filePath("roi.xml");
    writeText(roi, roiFile({{"left", "1,1,8,1,8,18,1,18"}, {"middle", "11,1,18,1,18,18,11,18"},
                            {"right", "21,1,28,1,28,18,21,18"}}));
    const QByteArray in = image.toUtf8(), roiPath = roi.toUtf8();
    const QByteArray euclid = dir.filePath("euclid.img").toUtf8(), mahal = dir.filePath("mahal.img").toUtf8();
    const QByteArray likely = dir.filePath("ml.img").toUtf8();
    testsupport::RecordingResult result;
    EXPECT_TRUE(ExcuteAlgo_DistanceClassification(in, euclid, roiPath, "0|1", 0, &result.record)) << result.record.message;
    EXPECT_TRUE(ExcuteAlgo_DistanceClassification(in, mahal, roiPath, "0|1", 1, nullptr));
    EXPECT_TRUE(ExcuteAlgo_MLClassification(in, likely, roiPath, "0|1", nullptr));
    const std::vector<int> expected = [] {
        std::vector<int> v;
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x)
                v.push_back(x / 10); // ROI order gives the class values
        return v;
    }();
    EXPECT_EQ(readInts(euclid), expected);
    EXPECT_EQ(readInts(mahal), expected);
    EXPECT_EQ(readInts(likely), expected);
    EXPECT_EQ(categoryNames(likely), (QStringList{"left", "middle", "right"}));

    // One pixel per class (fewer pixels than bands): singular covariances are regularised.
    writeText(roi, roiFile({{"a", "2,2,3,2,3,3,2,3"}, {"b", "12,2,13,2,13,3,12,3"}, {"c", "22,2,23,2,23,3,22,3"}}));
    const QByteArray single = dir.filePath("single.img").toUtf8();
    EXPECT_TRUE(ExcuteAlgo_MLClassification(in, single, roiPath, "0|1", nullptr));
    EXPECT_EQ(readInts(single), expected);

    // Not XML, or a class outside the image: false, the reason in the result record.
    for (const std::string& bad : {std::string("no xml"), roiFile({{"a", "2,2,3,2,3,3"}, {"far", "500,500,501,500,501,501"}})})
    {
        writeText(roi, bad);
        testsupport::RecordingResult refused;
        const Outcome outcome = capture([&] { return ExcuteAlgo_MLClassification(in, single, roiPath, "0|1", &refused.record); });
        EXPECT_FALSE(outcome.ok) << bad;
        EXPECT_EQ(outcome.out, "") << bad;
        EXPECT_NE(refused.record.code, 0) << bad;
    }
}

TEST(PostClassificationPlugins, SieveClumpMajorityCombination)
{
    QTemporaryDir dir;
    // Sieve: one lone pixel and one diagonal pair of class 1 in class 0.
    const QString speckled = dir.filePath("speckled.img");
    ASSERT_TRUE(makeClassImage(speckled, 6, 6, 2, [](int x, int y) { return (x == 1 && y == 1) || (x >= 3 && x == y) ? 1 : 0; }));
    const QByteArray speckledPath = speckled.toUtf8();
    const QByteArray eight = dir.filePath("sieve8.img").toUtf8(), four = dir.filePath("sieve4.img").toUtf8();
    // (2, 8): regions under 2 pixels go, 8-connected; (2, 4): the diagonal pixels are two lone regions.
    EXPECT_TRUE(ExcuteAlgo_ImgClassPostSieve(speckledPath, eight, 2, 8, nullptr));
    EXPECT_TRUE(ExcuteAlgo_ImgClassPostSieve(speckledPath, four, 2, 4, nullptr));
    std::vector<int> expectedEight(36, 0), expectedFour(36, 0);
    for (int d = 3; d < 6; ++d)
        expectedEight[size_t(d * 6 + d)] = 1;
    EXPECT_EQ(readInts(eight), expectedEight);
    EXPECT_EQ(readInts(four), expectedFour);
    EXPECT_EQ(colourCount(eight), 2);

    // Clump with a 3 x 3 kernel: a one-column gap in class 1 closes, a three-column gap stays.
    const QString gaps = dir.filePath("gaps.img");
    ASSERT_TRUE(makeClassImage(gaps, 12, 7, 2, [](int x, int) { return x == 2 || (x >= 6 && x <= 8) ? 0 : 1; }));
    const QByteArray clumped = dir.filePath("clumped.img").toUtf8();
    EXPECT_TRUE(ExcuteAlgo_ImgClassPostClump(gaps.toUtf8(), clumped, 3, nullptr));
    std::vector<int> expectedClump;
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 12; ++x)
            expectedClump.push_back(x >= 6 && x <= 8 ? 0 : 1);
    EXPECT_EQ(readInts(clumped), expectedClump);

    // Majority/minority of the centre pixel (class 0) of:  1 1 0 / 1 0 0 / 1 1 0  (class 0: 4, class 1: 5).
    const int votes[9] = {1, 1, 0, 1, 0, 0, 1, 1, 0};
    const QString window = dir.filePath("window.img");
    ASSERT_TRUE(makeClassImage(window, 3, 3, 2, [&](int x, int y) { return votes[y * 3 + x]; }));
    const QByteArray windowPath = window.toUtf8();
    auto centreAfter = [&](int weight, int method) {
        const QByteArray out = dir.filePath(QStringLiteral("mma_%1_%2.img").arg(weight).arg(method)).toUtf8();
        EXPECT_TRUE(ExcuteAlgo_ImgClassPostMMA(windowPath, out, 3, weight, method, nullptr));
        return readInts(out).at(4);
    };
    EXPECT_EQ(centreAfter(1, 0), 1); // majority: 5 against 4
    EXPECT_EQ(centreAfter(5, 0), 0); // the centre weighs 5: 8 against 5
    EXPECT_EQ(centreAfter(1, 1), 0); // minority: class 0 is the rarer
    EXPECT_EQ(centreAfter(5, 1), 0); // minority forces weight 1; weighted, class 1 would be rarer

    // Combination: classes 1 and 3 into 2; classes 2 and 4 remain, renumbered, with their names and colours.
    const QString four_classes = dir.filePath("four.img");
    ASSERT_TRUE(makeClassImage(four_classes, 4, 1, 4, [](int x, int) { return x; }, {"a", "b", "c", "d"}));
    const QByteArray combined = dir.filePath("combined.img").toUtf8();
    EXPECT_TRUE(ExcuteAlgo_ImgClassPostComb(four_classes.toUtf8(), combined, "1|2,3|2", nullptr));
    EXPECT_EQ(readInts(combined), (std::vector<int>{0, 0, 0, 1}));
    EXPECT_EQ(categoryNames(combined), (QStringList{"b", "d"}));
    EXPECT_EQ(colourCount(combined), 2);
    testsupport::RecordingResult refused;
    EXPECT_FALSE(ExcuteAlgo_ImgClassPostComb(four_classes.toUtf8(), combined, "1|9", &refused.record));
    EXPECT_NE(std::string(refused.record.message).find("1|9"), std::string::npos);
}

TEST(ClassificationOnRealScene, KmeansSieveAndReport)
{
    SKIP_WITHOUT_SHARED_DATA("gdal/L7_ETMs.tif");
    QTemporaryDir dir;
    const QByteArray scene = testsupport::sharedDataPath("gdal/L7_ETMs.tif").toUtf8();
    const QByteArray classes = dir.filePath("l7_kmeans.img").toUtf8();
    const QByteArray sieved = dir.filePath("l7_sieved.img").toUtf8();
    ASSERT_TRUE(ExcuteAlgo_KmeansClassification(scene, classes, "0|1|2|3|4|5", 6, 20, 0.01, nullptr));
    const std::vector<int> labels = readInts(QString::fromUtf8(classes));
    ASSERT_EQ(labels.size(), size_t(349 * 352));
    EXPECT_EQ(std::set<int>(labels.begin(), labels.end()).size(), 6u);
    ASSERT_TRUE(ExcuteAlgo_ImgClassPostSieve(classes, sieved, 10, 8, nullptr));
    const Outcome report = capture([&] {
        return ExcuteAlgo_ImgClassPostSta(sieved, dir.filePath("l7_report.txt").toUtf8().constData(), nullptr);
    });
    EXPECT_TRUE(report.ok);
    const std::string text = readText(dir.filePath("l7_report.txt"));
    EXPECT_NE(text.find(std::to_string(349 * 352) + " "), std::string::npos);
}

// A class image gives the same report whatever its format: a GeoTIFF palette holds 256 entries, but the class
// count travels in the category names that the writer sets.
TEST(ClassificationOnRealScene, ClassImageReportIsTheSameInEveryFormat)
{
    QTemporaryDir dir;
    const QByteArray scene = (testsupport::sourceDir() + "/data/samples/L7_ETMs.tif").toUtf8();
    std::string first;
    for (const char* suffix : {"tif", "img", "dat"})
    {
        const QByteArray classes = dir.filePath(QStringLiteral("k.") + suffix).toUtf8();
        const QByteArray reportPath = dir.filePath(QStringLiteral("report_") + suffix + ".txt").toUtf8();
        ASSERT_TRUE(capture([&] {
                        return ExcuteAlgo_KmeansClassification(scene, classes, "0|1|2|3|4|5", 6, 20, 0.01, nullptr);
                    }).ok)
            << suffix;
        ASSERT_TRUE(capture([&] { return ExcuteAlgo_ImgClassPostSta(classes, reportPath, nullptr); }).ok) << suffix;
        const std::string report = readText(QString::fromUtf8(reportPath));
        // Title, header, six classes and the total.
        EXPECT_EQ(std::count(report.begin(), report.end(), '\n'), 2 + 2 + 6) << suffix;
        EXPECT_NE(report.find("Class_6 "), std::string::npos) << suffix;
        EXPECT_EQ(report.find("class_"), std::string::npos) << suffix;
        if (first.empty())
            first = report;
        EXPECT_EQ(report, first) << suffix;
    }
}
