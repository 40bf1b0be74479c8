// Chart helpers and input parsing of the hyperspectral entries, called directly: the noise chart reader's
// rules, sharpness chart types, rectangle and band-list parsing, unit thresholds.
#include "hys_fixtures.h"
#include "hyperspectral_charts.h"
#include "hyperspectral_input.h"

using namespace testsupport;
using namespace hysfixture;
using namespace algofactory;

namespace
{

TEST(HyperspectralCharts, NoiseReaderRules)
{
    QTemporaryDir dir;
    const struct
    {
        const char* name;
        const char* text;
        bool ok;
        const char* message;
    } rows[] = {
        {"two fields, blank lines skipped", "1 0.5\n\n2 0.7\n3 0.4\n", true, "NoiseEstimation: Export image successfully!\n"},
        {"other lines ignored", "Band Noise\n1 0.5\n2 0.6\n", true, "NoiseEstimation: Export image successfully!\n"},
        {"three fields only", "1 0.5 x\n2 0.7 y\n", false, "Noise View: Read data failed!\n"},
        {"double space splits into three", "1  0.5\n", false, "Noise View: Read data failed!\n"},
        {"empty file", "", false, "Noise View: Read data failed!\n"},
    };
    for (const auto& row : rows)
    {
        const QString text = dir.path() + "/noise.txt";
        const QString png = dir.path() + "/noise.png";
        QFile::remove(png);
        writeText(text, row.text);
        StdoutCapture capture;
        EXPECT_EQ(ExportNoiseChart(text, png), row.ok) << row.name;
        EXPECT_EQ(capture.text(), row.message) << row.name;
        if (row.ok)
            expectReadableChart(png);
    }
    StdoutCapture capture;
    EXPECT_FALSE(ExportNoiseChart(dir.path() + "/absent.txt", dir.path() + "/x.png"));
    EXPECT_EQ(capture.text(), "Noise View: Read file failed!\n");
}

TEST(HyperspectralCharts, SharpnessChartTypes)
{
    QTemporaryDir dir;
    HysSharpnessParam record;
    record.averageGradient = {1, 2, 3};
    record.brennerGradient = {4, 1, 2};
    record.energyGradient = {2, 2, 5};
    record.variance = {-1, 3, 1};
    Wavelengths wavelengths;
    wavelengths.values = {500, 600, 700};
    wavelengths.unit = "nm";
    for (int type = 0; type <= 5; ++type)
    {
        const QString png = dir.path() + QStringLiteral("/s%1.png").arg(type);
        StdoutCapture capture;
        EXPECT_TRUE(ExportSharpnessChart(wavelengths, 3, record, QString(), png, type)) << type;
        EXPECT_EQ(capture.text(), "HysSharpness: Export image successfully!\n");
        EXPECT_GT(QFileInfo(png).size(), 0);
        if (type <= 4)
            expectReadableChart(png);
    }
    StdoutCapture capture;
    EXPECT_FALSE(ExportSharpnessChart(wavelengths, 3, record, QString(), QString(), 0));
    EXPECT_EQ(capture.text(), "HysSharpness: Export image failed!\n");
}

// A run whose plug-in returned no values still saves the chart, then reports the empty data.
TEST(HyperspectralCharts, EntropyWithoutValues)
{
    QTemporaryDir dir;
    InformationEntropyParam record;
    StdoutCapture capture;
    EXPECT_FALSE(ExportEntropyResult(Wavelengths(), 0, record, dir.path() + "/e.txt", dir.path() + "/e.png"));
    EXPECT_EQ(capture.text(), "Information Entropy: Export image successfully!\nInformation Entropy: Output data is null!\n");
    EXPECT_FALSE(QFileInfo::exists(dir.path() + "/e.txt"));
}

TEST(HyperspectralInput, RegionsBandsAndUnits)
{
    const HysPixelRect a = parseRegion("10|19|0|4", 100, 50);
    EXPECT_EQ(std::vector<int>({a.x, a.y, a.width, a.height}), std::vector<int>({10, 0, 10, 5}));
    for (const char* whole : {"10|19|0", "", "1|2|3|4|5"})
    {
        const HysPixelRect r = parseRegion(whole, 100, 50);
        EXPECT_EQ(std::vector<int>({r.x, r.y, r.width, r.height}), std::vector<int>({0, 0, 100, 50})) << whole;
    }
    HysBandList list;
    ASSERT_TRUE(parseBandList("0|2", 5, 1, list));
    EXPECT_EQ(list.bands, std::vector<int>({1, 3}));
    EXPECT_EQ(list.base, 1);
    ASSERT_TRUE(parseBandList("", 3, 1, list));
    EXPECT_EQ(list.bands, std::vector<int>({0, 1, 2}));
    EXPECT_EQ(list.base, 0);
    ASSERT_TRUE(parseBandList("0|2", 5, 0, list));
    EXPECT_EQ(list.bands, std::vector<int>({0, 2}));
    const std::pair<double, const char*> units[] = {{550, "nm"}, {100.01, "nm"}, {100, "None"}, {50, "None"},
                                                    {10, "None"}, {9.99, "um"},  {0.55, "um"},  {0, "None"},
                                                    {-3, "None"}};
    for (const auto& [value, unit] : units)
        EXPECT_EQ(wavelengthUnit(value), unit) << value;
    EXPECT_EQ(picturePathFor("/d/a.b_inforentropy.txt"), "/d/a.png");
}

} // namespace
