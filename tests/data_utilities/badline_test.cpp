// Bad lines and columns: flaws planted in a noisy synthetic band and in a real Landsat 7 scene, every one found,
// no other line reported, the report and the mask read back.
#include "data_utilities_fixtures.h"
#include "line_inspection.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <random>
#include <set>
#include <tuple>

using namespace testsupport;
using namespace datafixtures;
using datautil::LineFlaw;

namespace
{

using Found = std::set<std::tuple<std::string, int, std::string>>; // (line|column, 1-based index, kind)

// Columns first, then lines over them: where they cross, the line's flaw wins.
Found plantedIn(std::vector<double>& image, int width, int height, double saturation)
{
    auto row = [&](int y) { return image.begin() + long(y) * width; };
    for (int y = 0; y < height; ++y)
    {
        image[size_t(y * width + 7)] = 0.0;    // a dead column
        image[size_t(y * width + 15)] -= 35.0; // a dark column
    }
    for (int x = 0; x < width; ++x)
    {
        image[size_t(10 * width + x)] += 40.0;      // a bright line
        image[size_t(20 * width + x)] = 0.0;        // a dead line
        image[size_t(31 * width + x)] = saturation; // a saturated line
        image[size_t(50 * width + x)] = 77.0;       // a stuck line
    }
    std::copy(row(40), row(41), row(41)); // a repeated line
    return {{"line", 11, "outlier"},  {"line", 21, "zero"},  {"line", 32, "saturated"}, {"line", 42, "duplicate"},
            {"line", 51, "constant"}, {"column", 8, "zero"}, {"column", 16, "outlier"}};
}

} // namespace

TEST(BadLines, PlantedFlawsOfANoisyBandAreFoundAndNothingElse)
{
    const int width = 48, height = 60;
    std::mt19937 random(3);
    std::normal_distribution<double> noise(0.0, 4.0);
    std::vector<double> image(size_t(width * height));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image[size_t(y * width + x)] = 100.0 + 0.8 * x + 0.5 * y + (y > 30 ? 25.0 : 0.0) + noise(random);
    const Found planted = plantedIn(image, width, height, 255.0);
    datautil::LineAccumulator accumulator(width, height, false, 0.0, true, 255.0);
    // Blocks of 7 rows, as the plug-in streams them.
    for (int row0 = 0; row0 < height; row0 += 7)
        accumulator.add(image.data() + size_t(row0 * width), row0, std::min(7, height - row0));
    Found found;
    for (const auto& line : datautil::findFlawedLines(accumulator.rows(), 5.0))
        found.insert({"line", line.index + 1, datautil::flawName(line.flaw)});
    for (const auto& column : datautil::findFlawedLines(accumulator.columns(), 5.0))
        found.insert({"column", column.index + 1, datautil::flawName(column.flaw)});
    EXPECT_EQ(found, planted) << "the step of 25 at line 31 is an edge of the scene, not a bad line";
}

TEST(BadLines, NodataLinesAreNotFlawedAndMeansLeaveNodataOut)
{
    const int width = 4, height = 5;
    const double n = -1.0;
    const std::vector<double> image = {1, 2, 3, 4, n, n, n, n, 1, 2, n, 4, 2, 3, 4, 5, 1, 2, 3, 4};
    datautil::LineAccumulator accumulator(width, height, true, n);
    accumulator.add(image.data(), 0, height);
    EXPECT_EQ(accumulator.rows().count[1], 0.0);
    EXPECT_DOUBLE_EQ(accumulator.rows().mean(2), 7.0 / 3.0);
    EXPECT_DOUBLE_EQ(accumulator.columns().mean(2), 10.0 / 3.0);
    for (const auto& line : datautil::findFlawedLines(accumulator.rows(), 3.0))
        EXPECT_NE(line.index, 1) << datautil::flawName(line.flaw);
}

// Flaws planted in band 2 of a real scene: the text report lists exactly them, the mask marks their pixels.
TEST(BadlineInspection, PlantedLinesOfARealSceneInTheReportAndTheMask)
{
    SKIP_WITHOUT_SHARED_DATA("gdal/L7_ETMs.tif");
    QTemporaryDir dir;
    const QString scene = dir.filePath("scene.tif");
    ASSERT_TRUE(QFile::copy(sharedDataPath("gdal/L7_ETMs.tif"), scene));
    ASSERT_TRUE(QFile::setPermissions(scene, QFile::ReadOwner | QFile::WriteOwner));
    GDALAllRegister();
    GDALDataset* ds = GDALDataset::Open(scene.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_UPDATE);
    ASSERT_TRUE(ds);
    const int width = ds->GetRasterXSize(), height = ds->GetRasterYSize();
    std::vector<double> band(size_t(width * height));
    ASSERT_EQ(
        ds->GetRasterBand(2)->RasterIO(GF_Read, 0, 0, width, height, band.data(), width, height, GDT_Float64, 0, 0),
        CE_None);
    const Found planted = plantedIn(band, width, height, 255.0);
    for (double& v : band)
        v = std::clamp(v, 0.0, 255.0);
    ASSERT_EQ(
        ds->GetRasterBand(2)->RasterIO(GF_Write, 0, 0, width, height, band.data(), width, height, GDT_Float64, 0, 0),
        CE_None);
    GDALClose(ds);

    const QString report = dir.filePath("report.json");
    const Outcome run =
        call([&](AlgoResult* r) { return ExcuteAlgo_BadlineInspection(scene.toUtf8(), report.toUtf8(), 5, r); });
    ASSERT_TRUE(run.ok) << run.message;
    EXPECT_EQ(outputLine(run.printed, "ReportFile"), report.toStdString());
    const QString mask = dir.filePath("report_mask.tif");
    EXPECT_EQ(outputLine(run.printed, "MaskFile"), mask.toStdString());

    QFile file(report);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QJsonArray items = QJsonDocument::fromJson(file.readAll()).object().value("badLines").toArray();
    Found found;
    for (const QJsonValue& item : items)
    {
        const QJsonObject o = item.toObject();
        ASSERT_EQ(o.value("band").toInt(), 2) << "no false line in the other bands";
        const bool line = o.contains("line");
        found.insert({line ? "line" : "column", o.value(line ? "line" : "column").toInt(),
                      o.value("kind").toString().toStdString()});
    }
    EXPECT_EQ(found, planted);

    const std::vector<double> marks = readBand(mask, 2), untouched = readBand(mask, 1);
    EXPECT_EQ(std::count(untouched.begin(), untouched.end(), 1.0), 0);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
        {
            const bool bad = y == 10 || y == 20 || y == 31 || y == 41 || y == 50 || x == 7 || x == 15;
            ASSERT_EQ(marks[size_t(y * width + x)], bad ? 1.0 : 0.0) << x << "," << y;
        }
}

TEST(BadlineInspection, TextReportAndRefusals)
{
    QTemporaryDir dir;
    const QString in = dir.filePath("flat.tif");
    ASSERT_TRUE(makeRaster(in, 12, 9, 1, GDT_UInt16, [](int, int x, int y) { return y == 4 ? 65535 : 100 + x + y; }));
    const QString report = dir.filePath("flat.txt");
    ASSERT_TRUE(
        call([&](AlgoResult* r) { return ExcuteAlgo_BadlineInspection(in.toUtf8(), report.toUtf8(), 3, r); }).ok);
    QFile file(report);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = file.readAll().split('\n');
    ASSERT_GE(lines.size(), 5);
    EXPECT_EQ(lines[3], "band\tline/column\tindex\tkind\tvalue");
    EXPECT_EQ(lines[4], "1\tline\t5\tsaturated\t65535");

    const Outcome bad = call(
        [&](AlgoResult* r) { return ExcuteAlgo_BadlineInspection(in.toUtf8(), dir.filePath("r.txt").toUtf8(), 0, r); });
    EXPECT_FALSE(bad.ok);
    EXPECT_EQ(bad.message, "BadlineInspection: the parameter Threshold (0) must be at least 1!");
    EXPECT_FALSE(QFile::exists(dir.filePath("r.txt")));
    EXPECT_FALSE(QFile::exists(dir.filePath("r_mask.tif")));
}
