// Entry behaviour of the hyperspectral entries: refusals, [OUTPUT] lines and their order, file naming,
// band-list conventions and wavelength units as seen in the files the entries write.
#include "hys_fixtures.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

using namespace testsupport;
using namespace hysfixture;

namespace
{

struct Refusal
{
    const char* name;
    std::function<bool()> call;
    std::string expected;  // exact output, or a message followed by a pointer value when pointerTail
    bool pointerTail;
};

TEST(HyperspectralEntries, RefusalsPrintOneExactMessage)
{
    QTemporaryDir dir;
    const QString notRaster = dir.path() + "/notes.txt";
    writeText(notRaster, "not a raster");
    const QByteArray bad = notRaster.toLocal8Bit();
    const QByteArray missing = (dir.path() + "/missing.tif").toLocal8Bit();
    const QByteArray out = dir.path().toLocal8Bit();
    const std::string stem = (dir.path() + "/notes").toStdString();
    const std::string outputs = "[OUTPUT] OutTextFile=\"" + stem + "-StatisticalText.txt\"\n" +
                                "[OUTPUT] OutStatFile=\"" + stem + "-StatisticalPicture.png\"\n" +
                                "[OUTPUT] OutCovImgFile=\"" + stem + "-CovImageFile.tif\"\n" +
                                "[OUTPUT] OutCorCoeFile=\"" + stem + "-CorCoeFile.tif\"\n";
    const std::vector<Refusal> rows = {
        {"statistics, missing input", [&] { return ExcuteAlgo_StatisticalAnalysis(missing, "", "", nullptr); },
         "The input file is not exists!", true},
        {"statistics, unreadable input", [&] { return ExcuteAlgo_StatisticalAnalysis(bad, "", "", nullptr); },
         outputs + "The input file can not be open!", true},
        {"entropy, unreadable input",
         [&] { return ExcuteAlgo_InformationEntropy(bad, "", "", out, nullptr); }, "The input file can not be open!",
         true},
        {"sharpness, missing input", [&] { return ExcuteAlgo_HysSharpness(missing, "", "", out, 0, nullptr); },
         "The input file can not be open!", true},
        {"noise, empty input", [&] { return ExcuteAlgo_NoiseEstimation("", out, 0.5, nullptr); },
         "Please correctly select image file!\n", false},
        {"noise, empty output", [&] { return ExcuteAlgo_NoiseEstimation(bad, "", 0.5, nullptr); },
         "Please correctly select output file!", false},
        {"noise, ratio below 0", [&] { return ExcuteAlgo_NoiseEstimation(bad, out, -0.1, nullptr); },
         "Please enter a value greater than 0 and less than or equal to 1!", false},
        {"noise, ratio above 1", [&] { return ExcuteAlgo_NoiseEstimation(bad, out, 1.0001, nullptr); },
         "Please enter a value greater than 0 and less than or equal to 1!", false},
        {"preprocessing, other suffix", [&] { return ExcuteAlgo_HyspecPrePro(bad, out, "x.tif", nullptr); }, "",
         false},
    };
    for (const Refusal& row : rows)
    {
        StdoutCapture capture;
        const bool ok = row.call();
        const std::string text = capture.text();
        EXPECT_FALSE(ok) << row.name;
        if (row.pointerTail)
        {
            ASSERT_GE(text.size(), row.expected.size()) << row.name;
            EXPECT_EQ(text.substr(0, row.expected.size()), row.expected) << row.name;
            EXPECT_TRUE(std::regex_match(text.substr(row.expected.size()), std::regex("0x[0-9a-f]+"))) << row.name;
        }
        else
        {
            EXPECT_EQ(text, row.expected) << row.name;
        }
    }
}

// Ratio 0 and 1 pass the check (0 although the message says otherwise): the text line is printed.
TEST(HyperspectralEntries, NoiseRatioBoundsAreAccepted)
{
    QTemporaryDir dir;
    const QString input = dir.path() + "/cube.tif";
    ASSERT_TRUE(makeCube(input, 8, 8, 2, GDT_Int16, [](int b, int x, int y) { return (x * 7 + y * 3 + b) % 5; }));
    for (double ratio : {0.0, 1.0})
    {
        StdoutCapture capture;
        EXPECT_TRUE(ExcuteAlgo_NoiseEstimation(input.toLocal8Bit(), dir.path().toLocal8Bit(), ratio, nullptr));
        const std::vector<std::string> out = lines(capture.text());
        ASSERT_FALSE(out.empty());
        EXPECT_EQ(out.front(), "[OUTPUT] noiseEstimationTXT=\"" + dir.path().toStdString() + "/cube_NoiseEstimation.txt\"");
    }
}

// a.b.tif: the text keeps "a.b", the picture is named after the text's base name up to its first dot.
TEST(HyperspectralEntries, EntropyNamingAndOutputOrder)
{
    QTemporaryDir dir;
    const QString input = dir.path() + "/a.b.tif";
    ASSERT_TRUE(makeCube(input, 6, 4, 2, GDT_Byte, [](int b, int x, int) { return (x + b) % 4; }));
    StdoutCapture capture;
    EXPECT_TRUE(ExcuteAlgo_InformationEntropy(input.toLocal8Bit(), "", "", dir.path().toLocal8Bit(), nullptr));
    const std::string text = capture.text();
    const std::string txt = dir.path().toStdString() + "/a.b_inforentropy.txt";
    const std::string png = dir.path().toStdString() + "/a.png";
    EXPECT_EQ(text, "[OUTPUT] informationTxt=\"" + txt + "\"\nstart call algorithm plugin: InformationEntropy\n"
                    "[OUTPUT] informationPNG=\"" + png + "\"\nInformation Entropy: Export image successfully!\n");
    expectReadableChart(QString::fromStdString(png));
}

// The unit word decides the entropy text header and first column: "nm" above 100, "um" in (0, 10),
// otherwise band counters.
TEST(HyperspectralEntries, WavelengthUnitThresholdsInEntropyText)
{
    struct Row
    {
        double first;
        const char* header;
        const char* firstColumn;
    };
    const Row rows[] = {{550, "Wavelength", "550"}, {0.55, "Wavelength", "0.55"}, {10, "Band", "1"},
                        {50, "Band", "1"},         {100, "Band", "1"},          {0, "Band", "1"},
                        {100.5, "Wavelength", "100.5"}};
    for (const Row& row : rows)
    {
        QTemporaryDir dir;
        const QString input = dir.path() + "/w.tif";
        ASSERT_TRUE(makeCube(input, 4, 4, 2, GDT_Byte, [](int, int x, int) { return x; },
                             {row.first, row.first + 1}));
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_InformationEntropy(input.toLocal8Bit(), "", "", dir.path().toLocal8Bit(), nullptr));
        capture.text();
        const QStringList text = readText(dir.path() + "/w_inforentropy.txt").split('\n');
        ASSERT_GE(text.size(), 3);
        EXPECT_EQ(text[0], QString(row.header) + "          Information Entropy") << row.first;
        EXPECT_EQ(text[1], QString(row.firstColumn) + "          2") << row.first; // four equal values: 2 bits
    }
}

// An explicit list is zero-based everywhere, like the default list: statistics add one to it, entropy and
// sharpness store it as given. "0|2" means the first and third bands. Band b holds (b + 1) * (x + 2y), so
// every measure of the third band is a known multiple of the first's.
TEST(HyperspectralEntries, BandListConventions)
{
    QTemporaryDir dir;
    const QString input = dir.path() + "/c.tif";
    ASSERT_TRUE(makeCube(input, 5, 5, 3, GDT_Int16, [](int b, int x, int y) { return (b + 1) * (x + 2 * y); }));
    const QByteArray in = input.toLocal8Bit(), out = dir.path().toLocal8Bit();
    {
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_StatisticalAnalysis(in, "", "0|2", nullptr));
        capture.text();
        const QString report = readText(dir.path() + "/c-StatisticalText.txt");
        EXPECT_TRUE(report.contains(QRegularExpression("\\n1 +0 +12 +6 ")));  // band 1: 0..12, mean 6
        EXPECT_TRUE(report.contains(QRegularExpression("\\n3 +0 +36 +18 "))); // band 3: 0..36, mean 18
        EXPECT_FALSE(report.contains(QRegularExpression("\\n2 +0 ")));
    }
    {
        // Sharpness rows carry the band number; Brenner gradient and variance grow with the square of the scale.
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_HysSharpness(in, "", "0|2", out, 1, nullptr));
        capture.text();
        const QStringList report = readText(dir.path() + "/c_HysSharpness.txt").split('\n', Qt::SkipEmptyParts);
        ASSERT_EQ(report.size(), 3);
        const QStringList first = report[1].split(' ', Qt::SkipEmptyParts);
        const QStringList third = report[2].split(' ', Qt::SkipEmptyParts);
        ASSERT_EQ(first.size(), 5);
        ASSERT_EQ(third.size(), 5);
        EXPECT_EQ(first[0], "1");
        EXPECT_EQ(third[0], "3");
        EXPECT_NEAR(third[1].toDouble(), 3 * first[1].toDouble(), 1e-6);  // average gradient
        EXPECT_NEAR(third[2].toDouble(), 9 * first[2].toDouble(), 1e-6);  // Brenner gradient
        EXPECT_NEAR(third[4].toDouble(), 9 * first[4].toDouble(), 1e-6);  // variance
    }
    {
        // Entropy rows are counted from 1; both bands take the same 13 distinct values.
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_InformationEntropy(in, "", "0|2", out, nullptr));
        capture.text();
        const QStringList report = readText(dir.path() + "/c_inforentropy.txt").split('\n', Qt::SkipEmptyParts);
        ASSERT_EQ(report.size(), 3);
        EXPECT_TRUE(report[1].startsWith("1          "));
        EXPECT_TRUE(report[2].startsWith("2          "));
        EXPECT_EQ(report[1].mid(11), report[2].mid(11));
    }
    {
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_HysSharpness(in, "", "", out, 4, nullptr));
        capture.text();
        EXPECT_EQ(readText(dir.path() + "/c_HysSharpness.txt").count('\n'), 4); // header + every band
    }
    {
        // "3" names no band of three: the plug-in refuses, the entry prints nothing more.
        RecordingResult result;
        StdoutCapture capture;
        EXPECT_FALSE(ExcuteAlgo_HysSharpness(in, "", "3", out, 1, &result.record));
        EXPECT_EQ(lines(capture.text()).size(), 2u); // the text line and the runner's start line
        EXPECT_NE(std::string(result.record.message).find("Band 4 is outside"), std::string::npos);
    }
}

// Bad rectangles and band numbers reach the caller as plug-in errors, after the [OUTPUT] lines.
TEST(HyperspectralEntries, BadRegionsAndBandsAreRefusedByThePlugin)
{
    QTemporaryDir dir;
    const QString input = dir.path() + "/r.tif";
    ASSERT_TRUE(makeCube(input, 6, 5, 2, GDT_Float32, [](int b, int x, int y) { return b + x * y; }));
    const struct
    {
        const char* region;
        const char* bands;
        const char* message;
    } rows[] = {{"0|6|0|4", "", "lies outside the 6 x 5 image"},
                {"4|1|0|4", "", "empty or reversed"},
                {"", "5", "Band 6 is outside the image's bands 1..2"}};
    for (const auto& row : rows)
    {
        RecordingResult result;
        StdoutCapture capture;
        EXPECT_FALSE(ExcuteAlgo_StatisticalAnalysis(input.toLocal8Bit(), row.region, row.bands, &result.record));
        const std::vector<std::string> out = lines(capture.text());
        ASSERT_EQ(out.size(), 5u) << row.region;
        EXPECT_EQ(result.record.code, -1);
        EXPECT_NE(std::string(result.record.message).find(row.message), std::string::npos) << result.record.message;
        EXPECT_FALSE(QFileInfo::exists(dir.path() + "/r-CovImageFile.tif"));
        EXPECT_FALSE(QFileInfo::exists(dir.path() + "/r-StatisticalText.txt"));
    }
}

// GF-5 names: product name from the first three dot parts, calibration files from the first 8 characters,
// the ".rpb" copied under the output's name before the run; band lists by flag.
TEST(HyperspectralEntries, GF5NamesRpbCopyAndDropLists)
{
    QTemporaryDir dir;
    const QString product = dir.path() + "/GF5_AHSI_E116.50_N39.78_X.xml";
    writeText(product, "<product/>");
    writeText(dir.path() + "/GF5_AHSI_E116.50_N39.78_X_VN.rpb", "rpc");
    const QString outDir = dir.path() + "/out/deeper";
    RecordingResult result;
    StdoutCapture capture;
    EXPECT_FALSE(ExcuteAlgo_GF5PreProcessing(product.toLocal8Bit(), 1, 1, outDir.toLocal8Bit(), ".dat", &result.record));
    const std::vector<std::string> out = lines(capture.text());
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(out[0], "[OUTPUT] OutputFile=\"" + outDir.toStdString() + "/GF5_AHSI_E116.50_N39.78_X.dat\"");
    EXPECT_EQ(readText(outDir + "/GF5_AHSI_E116.50_N39.78_X.rpb"), "rpc");
    // The images are missing: the plug-in names the VNIR image it could not open.
    EXPECT_NE(std::string(result.record.message).find("GF5_AHSI_E116.50_N39.78_X_VN.geotiff"), std::string::npos)
        << result.record.message;
}

} // namespace
