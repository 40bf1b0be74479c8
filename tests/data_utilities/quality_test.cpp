// Quality measures against brute-force sums over small arrays, and the quality report of a real scene against a
// shifted, brightened copy of itself (offset by phase correlation, radiometric differences).
#include "data_utilities_fixtures.h"
#include "quality_measures.h"

#include <QFile>
#include <QRegularExpression>
#include <algorithm>
#include <cmath>
#include <map>

using namespace testsupport;
using namespace datafixtures;

TEST(QualityMeasures, AgreeWithBruteForce)
{
    const int width = 9, height = 8;
    const double nodata = -1.0;
    std::vector<double> image(size_t(width * height));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image[size_t(y * width + x)] = (x == 8 && y == 0) ? nodata : (x * 7 + y * y * 3) % 11 + (x == 3 ? 255 : 0);
    datautil::QualityAccumulator accumulator(width, true, nodata, true, 258.0, 0.0, 265.0);
    accumulator.add(image.data(), 3); // blocks of 3 and 5 rows, as a plug-in may stream them
    accumulator.add(image.data() + 3 * width, 5);
    const datautil::BandQuality q = accumulator.result(0.5);

    auto at = [&](int x, int y) { return image[size_t(y * width + x)]; };
    std::map<int, double> levels;
    double valid = 0, saturated = 0, gradient = 0, gradients = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
        {
            if (at(x, y) == nodata)
                continue;
            valid += 1;
            saturated += at(x, y) == 258.0;
            levels[int(at(x, y) * 256.0 / 265.0)] += 1;
            if (x + 1 < width && y + 1 < height && at(x + 1, y) != nodata && at(x, y + 1) != nodata)
            {
                const double dx = at(x + 1, y) - at(x, y), dy = at(x, y + 1) - at(x, y);
                gradient += std::sqrt((dx * dx + dy * dy) / 2.0);
                gradients += 1;
            }
        }
    double entropy = 0;
    for (const auto& level : levels)
        entropy -= level.second / valid * std::log2(level.second / valid);
    // Noise: sample deviations of the complete 4 x 4 blocks (the top-right one holds the nodata pixel and the
    // ninth column has no block), the mean of the lowest half.
    std::vector<double> deviations;
    for (int by = 0; by + 4 <= height; by += 4)
        for (int bx = 0; bx + 4 <= width; bx += 4)
        {
            double sum = 0, squares = 0;
            for (int y = by; y < by + 4; ++y)
                for (int x = bx; x < bx + 4; ++x)
                    sum += at(x, y), squares += at(x, y) * at(x, y);
            deviations.push_back(std::sqrt((squares - sum * sum / 16) / 15));
        }
    std::sort(deviations.begin(), deviations.end());
    EXPECT_EQ(deviations.size(), 4u);
    EXPECT_NEAR(q.nodataShare, 1.0 / 72.0, 1e-12);
    EXPECT_NEAR(q.saturatedShare, saturated / valid, 1e-12);
    EXPECT_GT(saturated, 0.0);
    EXPECT_NEAR(q.entropy, entropy, 1e-12);
    EXPECT_NEAR(q.averageGradient, gradient / gradients, 1e-12);
    EXPECT_NEAR(q.noise, (deviations[0] + deviations[1]) / 2.0, 1e-6);
}

// Band 1 of a real scene against a copy of itself moved 3 pixels right and 2 down (same georeferencing) and 10
// brighter.
TEST(QualityInspection, OffsetAndDifferencesAgainstAShiftedBrighterCopy)
{
    SKIP_WITHOUT_SHARED_DATA("gdal/L7_ETMs.tif");
    QTemporaryDir dir;
    const QString scene = sharedDataPath("gdal/L7_ETMs.tif");
    const std::vector<double> band = readBand(scene, 1);
    const int width = 349, height = 352;
    const QString input = dir.filePath("input.tif"), reference = dir.filePath("reference.tif");
    ASSERT_TRUE(makeRaster(input, width, height, 1, GDT_Float32,
                           [&](int, int x, int y) { return band[size_t(y * width + x)]; }));
    ASSERT_TRUE(makeRaster(reference, width, height, 1, GDT_Float32, [&](int, int x, int y) {
        const int sx = std::clamp(x - 3, 0, width - 1), sy = std::clamp(y - 2, 0, height - 1);
        return band[size_t(sy * width + sx)] + 10.0;
    }));
    const QString report = dir.filePath("report.txt");
    const Outcome run = call([&](AlgoResult* r) {
        return ExcuteAlgo_QualityInspection(input.toUtf8(), reference.toUtf8(), report.toUtf8(), 0, r);
    });
    ASSERT_TRUE(run.ok) << run.message;
    EXPECT_EQ(outputLine(run.printed, "ReportFile"), report.toStdString());
    QFile file(report);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(file.readAll()).split('\n');
    const int at = lines.indexOf(QRegularExpression("^Offset \\(pixels\\): .*"));
    ASSERT_GE(at, 0) << lines.join('\n').toStdString();
    const QStringList offset = lines[at].section(": ", 1).split(' ');
    // The input lies 3 pixels left of and 2 above the reference.
    EXPECT_NEAR(offset[0].toDouble(), -3.0, 0.2) << lines[at].toStdString();
    EXPECT_NEAR(offset[1].toDouble(), -2.0, 0.2) << lines[at].toStdString();
    // The differences by brute force over the same pixels.
    double sum = 0, squares = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
        {
            const int sx = std::clamp(x - 3, 0, width - 1), sy = std::clamp(y - 2, 0, height - 1);
            const double d = band[size_t(y * width + x)] - band[size_t(sy * width + sx)] - 10.0;
            sum += d, squares += d * d;
        }
    const QStringList first =
        lines[lines.indexOf("band\tmean difference\tRMSE\tcorrelation\tpixels compared") + 1].split('\t');
    EXPECT_NEAR(first[1].toDouble(), sum / (width * height), 1e-3);
    EXPECT_NEAR(first[2].toDouble(), std::sqrt(squares / (width * height)), 1e-3);
    EXPECT_EQ(first[4].toInt(), width * height);
}

TEST(QualityInspection, HtmlWithoutReferenceAndRefusals)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("in.tif"), far = dir.filePath("far.tif");
    ASSERT_TRUE(makeRaster(input, 64, 48, 3, GDT_UInt16, [](int b, int x, int y) { return 100 * b + x * y % 37; }));
    ASSERT_TRUE(makeRaster(far, 8, 8, 1, GDT_UInt16, [](int, int, int) { return 1; }));
    setGrid(far, 0.0, 100.0, 10.0);
    const QString report = dir.filePath("report.html");
    const Outcome run =
        call([&](AlgoResult* r) { return ExcuteAlgo_QualityInspection(input.toUtf8(), "", report.toUtf8(), 1, r); });
    ASSERT_TRUE(run.ok) << run.message << run.printed;
    QFile file(report);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray html = file.readAll();
    EXPECT_TRUE(html.startsWith("<!DOCTYPE html>"));
    EXPECT_TRUE(html.contains("<img alt=\"thumbnail\" src=\"data:image/png;base64,iVBOR")) << "a PNG thumbnail";
    EXPECT_EQ(html.count("<svg"), 3) << "entropy, gradient and noise charts";
    EXPECT_FALSE(html.contains("<h2>Against"));
    file.close();

    const QString other = dir.filePath("r.txt");
    const Outcome apart = call([&](AlgoResult* r) {
        return ExcuteAlgo_QualityInspection(input.toUtf8(), far.toUtf8(), other.toUtf8(), 0, r);
    });
    EXPECT_FALSE(apart.ok);
    EXPECT_EQ(
        apart.message,
        ("QualityInspection: the parameter ReferenceFile (" + far + ") does not overlap the input!").toStdString());
    const Outcome option =
        call([&](AlgoResult* r) { return ExcuteAlgo_QualityInspection(input.toUtf8(), "", other.toUtf8(), 2, r); });
    EXPECT_EQ(option.message, "QualityInspection: the parameter Option (2) must be one of 0, 1!");
    EXPECT_FALSE(QFile::exists(other));
}
