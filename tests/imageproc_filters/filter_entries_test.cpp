// The filter entries' checks: each message in order, the band selection and the format chosen by input suffix.
#include "test_support.h"

#include <QDir>

using namespace testsupport;

namespace
{

struct Fixture
{
    QTemporaryDir dir;
    QString path(const char* name) const { return dir.filePath(name); }
    QByteArray five;
    QByteArray out;
    Fixture()
    {
        five = path("five.tif").toLocal8Bit();
        out = path("out.tif").toLocal8Bit();
        makeRaster(five, 8, 6, 5, GDT_Byte, [](int b, int x, int y) { return 10 * b + x + y; });
    }
};

struct Row
{
    const char* label;
    std::function<bool(const char* in, const char* out)> call;
    std::string printed;
    bool ok;
};

} // namespace

TEST(FilterEntries, ChecksPrintOneMessageWithoutLineEndAndRefuse)
{
    Fixture f;
    const char* k9 = "0|0|0|0|1|0|0|0|0";
    const std::string kernel24 = [] { std::string s = "1"; for (int i = 1; i < 24; ++i) s += "|1"; return s; }();
    const Row rows[] = {
        {"frequency pair, pass 0, equal", [](auto i, auto o) { return ExcuteAlgo_ImgProFiltFrequency(i, o, "1", 0, 3, 0, 30, 30, nullptr); },
         "Cut-off Frequency must less than Segmentation Point! ", false},
        {"frequency pair, pass 1", [](auto i, auto o) { return ExcuteAlgo_ImgProFiltFrequency(i, o, "1", 0, 3, 1, 30, 40, nullptr); },
         "Segmentation Point must less than Cut-off Frequency! ", false},
        {"frequency mode before pair", [](auto i, auto o) { return ExcuteAlgo_ImgProFiltFrequency(i, o, "1", 7, 3, 0, 30, 30, nullptr); },
         "Incorrect Parameters!", false},
        {"too many bands", [](auto i, auto o) { return ExcuteAlgo_ImgProFiltFrequency(i, o, "1|2|3|4|5|6", 0, 0, 0, 5, 0, nullptr); },
         "Input band number is wrong!", false},
        {"no band number", [](auto i, auto o) { return ExcuteAlgo_ImgProFiltFrequency(i, o, "x", 0, 0, 0, 5, 0, nullptr); },
         "Input band number cannot be NULL!", false},
        {"blank before number", [](auto i, auto o) { return ExcuteAlgo_ImgProFiltSpaCom(i, o, 0, " 1", 0, nullptr); },
         "Input band number cannot be NULL!", false},
        {"custom no band", [&](auto i, auto o) { return ExcuteAlgo_ImgProFiltCustom(i, o, "x", 0, 3, k9, nullptr); },
         "Select Bands is Error!", false},
        {"sharpening no band", [](auto i, auto o) { return ExcuteAlgo_ImgProFiltDiffSharp(i, o, "x", 0, 0, nullptr); },
         "Select Bands is Error!", false},
        {"homomorphic no band", [](auto i, auto o) { return ExcuteAlgo_ImgProFiltHomo(i, o, "x", 0, 1, 1, 1, 1, 0, nullptr); },
         "Select Bands is Error!", false},
        {"homomorphic parameter", [](auto i, auto o) { return ExcuteAlgo_ImgProFiltHomo(i, o, "1", 0, 1000.f, 1, 1, 1, 0, nullptr); },
         "Incorrect Parameters!", false},
        {"homomorphic NaN", [](auto i, auto o) { return ExcuteAlgo_ImgProFiltHomo(i, o, "1", 0, NAN, 1, 1, 1, 0, nullptr); },
         "Incorrect Parameters!", false},
        {"custom 5 with 24 values", [&](auto i, auto o) { return ExcuteAlgo_ImgProFiltCustom(i, o, "1", 0, 5, kernel24.c_str(), nullptr); },
         "Incorrect Parameters!", false},
        {"custom size 35", [&](auto i, auto o) { return ExcuteAlgo_ImgProFiltCustom(i, o, "1", 0, 35, k9, nullptr); },
         "Incorrect Parameters!", false},
        {"custom size 4", [&](auto i, auto o) { return ExcuteAlgo_ImgProFiltCustom(i, o, "1", 0, 4, k9, nullptr); },
         "Incorrect Parameters!", false},
        {"custom non-number", [](auto i, auto o) { return ExcuteAlgo_ImgProFiltCustom(i, o, "1", 0, 3, "0|0|0|0|x|0|0|0|0", nullptr); },
         "Incorrect Parameters!", false},
        {"custom NaN", [](auto i, auto o) { return ExcuteAlgo_ImgProFiltCustom(i, o, "1", 0, 3, "0|0|0|0|nan|0|0|0|0", nullptr); },
         "Incorrect Parameters!", false},
        {"custom checks kernel before input", [](auto, auto o) { return ExcuteAlgo_ImgProFiltCustom("/no/such.tif", o, "1", 0, 4, "1", nullptr); },
         "Incorrect Parameters!", false},
        {"negative mode", [](auto i, auto o) { return ExcuteAlgo_ImgProFiltSpaDirect(i, o, "1", -1, 0, nullptr); },
         "Incorrect Parameters!", false},
        {"spatial type 23", [](auto i, auto o) { return ExcuteAlgo_ImgProFiltSpaCom(i, o, 23, "1", 0, nullptr); },
         "Incorrect Parameters!", false},
        {"mean size after bands", [](auto i, auto o) { return ExcuteAlgo_ImgProFiltSpaMean(i, o, 4, "x", 0, nullptr); },
         "Input band number cannot be NULL!", false},
        {"mean size 35", [](auto i, auto o) { return ExcuteAlgo_ImgProFiltSpaMean(i, o, 35, "1", 0, nullptr); },
         "Incorrect Parameters!", false},
        {"median size 1", [](auto i, auto o) { return ExcuteAlgo_ImgProFiltSpaMid(i, o, 1, "1", 0, 0, nullptr); },
         "Incorrect Parameters!", false},
        {"unreadable input", [](auto, auto o) { return ExcuteAlgo_ImgProFiltSpaMean("/no/such.tif", o, 3, "1", 0, nullptr); },
         "Unsupported Raster format! ", false},
    };
    for (const Row& row : rows)
    {
        StdoutCapture capture;
        const bool ok = row.call(f.five.constData(), f.out.constData());
        EXPECT_EQ(capture.text(), row.printed) << row.label;
        EXPECT_EQ(ok, row.ok) << row.label;
        EXPECT_FALSE(QFileInfo::exists(f.path("out.tif"))) << row.label;
    }
}

TEST(FilterEntries, SelectionGivesAscendingUniqueBandsAndTrailingEmptyItemIsHarmless)
{
    Fixture f;
    {
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_ImgProFiltSpaMean(f.five, f.out, 3, "3|1|3", 0, nullptr));
    }
    GDALDatasetUniquePtr out(GDALDataset::Open(f.out.constData()));
    ASSERT_EQ(out->GetRasterCount(), 2);
    out.reset();
    // A constant-gradient band keeps its interior values under a 3 x 3 mean: band 1 is 0 + x + y, band 3 20 + x + y.
    EXPECT_DOUBLE_EQ(readBand(f.path("out.tif"), 1)[8 + 1], 2.0);
    EXPECT_DOUBLE_EQ(readBand(f.path("out.tif"), 2)[8 + 1], 22.0);

    StdoutCapture capture;
    EXPECT_TRUE(ExcuteAlgo_ImgProFiltSpaMean(f.five, f.path("out2.tif").toLocal8Bit(), 3, "1|", 0, nullptr));
}

TEST(FilterEntries, FormatFollowsTheInputSuffixCaseInsensitively)
{
    QTemporaryDir dir;
    const struct
    {
        const char* input;
        const char* driver;
    } rows[] = {{"scene.TIFF", "GTiff"}, {"scene.img", "HFA"}, {"scene.dat", "ENVI"}};
    for (const auto& row : rows)
    {
        const QString input = dir.filePath(row.input);
        ASSERT_TRUE(makeRaster(input, 5, 4, 1, GDT_Byte, [](int, int x, int) { return x; },
                               QString(row.driver)));
        const QString output = dir.filePath(QString("filtered_%1.out").arg(row.driver));
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_ImgProFiltSpaCom(input.toLocal8Bit(), output.toLocal8Bit(), 20, "1", 0, nullptr)) << row.input;
        GDALDatasetUniquePtr written(GDALDataset::Open(output.toLocal8Bit().constData()));
        ASSERT_TRUE(written) << row.input;
        EXPECT_STREQ(written->GetDriver()->GetDescription(), row.driver) << row.input;
    }
}
