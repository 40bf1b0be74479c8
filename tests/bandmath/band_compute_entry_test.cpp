// ExcuteAlgo_BandCompute: every refusal in check order, operand pairing, the data type floor, the JSON route.
#include "test_support.h"

#include <QFile>
#include <QTemporaryDir>

using namespace testsupport;

namespace
{

// Band b of these rasters holds a value that names raster, band and pixel, so pairings can be told apart.
double pixelA(int band, int x, int y)
{
    return 100.0 * (band + 1) + x + 10 * y;
}

double pixelB(int band, int x, int y)
{
    return 1000.0 * (band + 1) + 2 * x + 20 * y;
}

struct EntryFixture : ::testing::Test
{
    void SetUp() override
    {
        d = dir.path();
        ASSERT_TRUE(makeRaster(d + "/a.tif", 4, 3, 2, GDT_Float32, pixelA));
        ASSERT_TRUE(makeRaster(d + "/b.tif", 4, 3, 2, GDT_Int16, pixelB));
        ASSERT_TRUE(makeRaster(d + "/wide.tif", 5, 3, 1, GDT_Byte, [](int, int, int) { return 1.0; }));
        ASSERT_TRUE(makeRaster(d + "/tall.tif", 4, 4, 1, GDT_Byte, [](int, int, int) { return 1.0; }));
        ASSERT_TRUE(makeRaster(d + "/complex.tif", 4, 3, 1, GDT_CInt16, [](int, int, int) { return 1.0; }));
        QFile text(d + "/notes.txt");
        ASSERT_TRUE(text.open(QIODevice::WriteOnly));
        text.write("not a raster\n");
    }

    QByteArray path(const char* name) const { return (d + "/" + name).toLocal8Bit(); }

    QTemporaryDir dir;
    QString d;
};

} // namespace

TEST_F(EntryFixture, RefusalsInCheckOrder)
{
    const QByteArray a = path("a.tif"), b = path("b.tif"), missing = path("missing.tif");
    struct Row
    {
        const char* name;
        QByteArray formula, images, bands;
        std::string expected;
    } rows[] = {
        {"syntax error first, even with missing inputs", "b1 +", missing, "9", "[ERROR] Syntax Error: The expression is not complete!\n"},
        {"no band operand", "2 * 3", a, "1", "[ERROR] Syntax Error: Input band to compute!\n"},
        {"fewer images than operands", "b1 + b2", a, "1|1",
         "[ERROR] No corresponding image file has been selected for some variables!\n"},
        {"fewer bands than operands", "b1 + b2", a + "|" + b, "1",
         "[ERROR] No corresponding band number has been selected for some variables!\n"},
        {"missing file", "b1 + b2", a + "|" + missing, "1|1", "[ERROR] \"" + missing.toStdString() + "\" does not exists!\n"},
        {"empty image item", "b1 + b2", a + "|", "1|1", "[ERROR] \"\" does not exists!\n"},
        {"not a raster", "b1", path("notes.txt"), "1", "[ERROR] Can not open \"" + path("notes.txt").toStdString() + "\"!\n"},
        {"complex pixels", "b1", path("complex.tif"), "1", "[ERROR] Data type not supported!\n"},
        {"band past the last", "b1", a, "3", "[ERROR] The selected band does not exists!\n\"" + a.toStdString() + "\n"},
        {"band 0", "b1", a, "0", "[ERROR] The selected band does not exists!\n\"" + a.toStdString() + "\n"},
        {"band not a number", "b1", a, "x", "[ERROR] The selected band does not exists!\n\"" + a.toStdString() + "\n"},
        {"empty band item", "b1 + b2", a + "|" + b, "1|", "[ERROR] The selected band does not exists!\n\"" + b.toStdString() + "\n"},
        {"width differs on the second image", "b1 + b2", a + "|" + path("wide.tif"), "1|1",
         "[ERROR] \"" + path("wide.tif").toStdString() + "\":Inconsistent size of images!\n"},
        {"height differs", "b1 + b2", a + "|" + path("tall.tif"), "1|1",
         "[ERROR] \"" + path("tall.tif").toStdString() + "\":Inconsistent size of images!\n"},
        {"an image beyond the operands is checked too", "b1", a + "|" + missing, "1",
         "[ERROR] \"" + missing.toStdString() + "\" does not exists!\n"},
    };
    for (const Row& row : rows)
    {
        const QString output = d + "/out.tif";
        RecordingResult result;
        result.record.code = 77;
        bool ok = true;
        StdoutCapture capture;
        ok = ExcuteAlgo_BandCompute(row.formula.constData(), row.images.constData(), row.bands.constData(),
                                    output.toLocal8Bit().constData(), 6, &result.record);
        EXPECT_EQ(capture.text(), row.expected) << row.name;
        EXPECT_FALSE(ok) << row.name;
        EXPECT_EQ(result.record.code, 77) << row.name; // the record is left untouched
        EXPECT_TRUE(result.progress.empty()) << row.name;
        EXPECT_FALSE(QFile::exists(output)) << row.name;
    }
}

TEST_F(EntryFixture, OperandsPairWithImagesAndBandsInAscendingNumber)
{
    // b7 is the second operand: it takes b.tif band 1; b3 takes a.tif band 2.
    const QByteArray images = path("a.tif") + "|" + path("b.tif");
    const QString output = d + "/pairs.tif";
    RecordingResult result;
    StdoutCapture capture;
    const bool ok =
        ExcuteAlgo_BandCompute("B7 - b3 * 2", images.constData(), "2|1", output.toLocal8Bit().constData(), 7, &result.record);
    EXPECT_EQ(capture.text(), "start call algorithm plugin: UtilityOperBand\n");
    ASSERT_TRUE(ok) << result.record.message;
    EXPECT_EQ(result.record.code, 0);
    const std::vector<double> values = readBand(output, 1);
    ASSERT_EQ(values.size(), 12u);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(values[size_t(y * 4 + x)], pixelB(0, x, y) - pixelA(1, x, y) * 2);
}

TEST_F(EntryFixture, DataTypeBelowOneIsByteAndExtraImagesAreAccepted)
{
    for (int dataType : {0, -5})
    {
        const QString output = d + QString("/type%1.tif").arg(dataType);
        const QByteArray images = path("a.tif") + "|" + path("b.tif");
        RecordingResult result;
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_BandCompute("b1 - 100", images.constData(), "1|2", output.toLocal8Bit().constData(),
                                           dataType, &result.record));
        GDALDataset* dataset = GDALDataset::FromHandle(GDALOpen(output.toUtf8().constData(), GA_ReadOnly));
        ASSERT_NE(dataset, nullptr);
        EXPECT_EQ(dataset->GetRasterBand(1)->GetRasterDataType(), GDT_Byte);
        GDALClose(GDALDataset::ToHandle(dataset));
        EXPECT_EQ(readBand(output, 1)[5], pixelA(0, 1, 1) - 100);
    }
}

TEST_F(EntryFixture, ThroughExcuteAlgoWithJsonParameters)
{
    const QString output = d + "/json.img";
    const QByteArray json = "{\"CalculationExp\":\"b1 * 0.5\",\"Images\":\"" + path("b.tif") +
                            "\",\"Bands\":\"2\",\"OutputFile\":\"" + output.toLocal8Bit() + "\",\"dataType\":6}";
    RecordingResult result;
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo("BandCompute", json.constData(), &result.record)) << capture.text();
    const std::vector<double> values = readBand(output, 1);
    ASSERT_EQ(values.size(), 12u);
    EXPECT_EQ(values[7], pixelB(1, 3, 1) * 0.5);
    GDALDataset* dataset = GDALDataset::FromHandle(GDALOpen(output.toUtf8().constData(), GA_ReadOnly));
    ASSERT_NE(dataset, nullptr);
    EXPECT_STREQ(dataset->GetDriver()->GetDescription(), "HFA");
    GDALClose(GDALDataset::ToHandle(dataset));
}
