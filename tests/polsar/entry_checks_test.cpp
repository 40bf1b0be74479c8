// Every refusal of the two polarimetric entries, in check order, and the classification's output naming.
#include "polsar_fixtures.h"
#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

using namespace polsartest;

namespace
{

std::array<double, 4> plain(int, int)
{
    return {0.3, 0.4, 30.0, 1.0};
}

} // namespace

TEST(HAAlphaClassificationEntry, RefusesInCheckOrder)
{
    QTemporaryDir dir;
    const QString d = dir.path();
    const FourImages good = writeFourImages(d, "good", 6, 5, plain);
    const FourImages small = writeFourImages(d, "small", 4, 5, plain);
    ASSERT_TRUE(testsupport::makeRaster(d + "/two.tif", 4, 4, 2, GDT_Float32, [](int, int, int) { return 1.0; }));
    ASSERT_TRUE(testsupport::makeRaster(d + "/complex.tif", 6, 5, 1, GDT_CFloat32, [](int, int, int) { return 1.0; }));
    ASSERT_TRUE(testsupport::makeRaster(d + "/byte.tif", 6, 5, 1, GDT_Byte, [](int, int, int) { return 1.0; }));
    const QString missing = d + "/missing.tif";

    struct Row
    {
        const char* name;
        FourImages images;
        const char* method;
        const char* expected;
    } rows[] = {
        {"all empty", {"", "", "", ""}, "HAlpha", "[ERROR] Eentropy File is empty!\n"},
        {"anisotropy empty", {good.entropy, "", "", ""}, "HAlpha", "[ERROR] Anisotropy File is empty!\n"},
        {"alpha empty", {good.entropy, good.anisotropy, "", ""}, "HAlpha", "[ERROR] Alpha File is empty!\n"},
        {"lambda empty", {good.entropy, good.anisotropy, good.alpha, ""}, "HAlpha", "[ERROR] Lambda File is empty!\n"},
        // Alpha is opened first, then anisotropy, entropy, lambda.
        {"alpha missing", {missing, missing, missing, missing}, "HAlpha",
         "[ERROR] Please select alpha image correctly!\n"},
        {"anisotropy missing", {missing, missing, good.alpha, missing}, "HAlpha",
         "[ERROR] Please select anisotropy image correctly!\n"},
        {"entropy missing", {missing, good.anisotropy, good.alpha, missing}, "HAlpha",
         "[ERROR] Please select entropy image correctly!\n"},
        {"lambda missing", {good.entropy, good.anisotropy, good.alpha, missing}, "HAlpha",
         "[ERROR] Please select lambda image correctly!\n"},
        // The type check comes before the size check.
        {"two-band alpha of another size", {good.entropy, good.anisotropy, d + "/two.tif", good.lambda}, "HAlpha",
         "[ERROR] Please select H/A/Alpha/Lambda Decomposition File Path correctly!\n"},
        {"complex entropy", {d + "/complex.tif", good.anisotropy, good.alpha, good.lambda}, "HAlpha",
         "[ERROR] Please select H/A/Alpha/Lambda Decomposition File Path correctly!\n"},
        {"byte lambda", {good.entropy, good.anisotropy, good.alpha, d + "/byte.tif"}, "HAlpha",
         "[ERROR] Please select H/A/Alpha/Lambda Decomposition File Path correctly!\n"},
        {"sizes differ", {good.entropy, small.anisotropy, good.alpha, good.lambda}, "HAlpha",
         "[ERROR] Please select the same scene image !\n"},
        {"lower-case method", good, "halpha", "[ERROR] please input classify method correctly!\n"},
        {"empty method", good, "", "[ERROR] please input classify method correctly!\n"},
    };
    for (const Row& row : rows)
    {
        const EntryRun run = runClassification(row.images, row.method, d + "/out");
        EXPECT_FALSE(run.ok) << row.name;
        EXPECT_EQ(run.printed, row.expected) << row.name;
    }
    EXPECT_FALSE(QDir(d + "/out").exists());
}

TEST(HAAlphaClassificationEntry, NamesTheOutputAfterTheAlphaImage)
{
    QTemporaryDir dir;
    const FourImages made = writeFourImages(dir.path(), "x", 6, 5, plain);
    FourImages images = made;
    images.alpha = dir.path() + "/scene.alpha.img";
    ASSERT_TRUE(QFile::rename(made.alpha, images.alpha));
    for (const char* method : {"HAlpha", "HAAlpha", "HAlphaLambda"})
    {
        const QString out = dir.path() + "/D:/out";
        const QString expectedFile = out + "/HAAlphaClass/scene_HAAClass.img";
        const EntryRun run = runClassification(images, method, out);
        EXPECT_TRUE(run.ok) << method;
        EXPECT_EQ(run.printed, "Judge the rationality of input paramenters sucessfully\n"
                               "start call algorithm plugin: PolSAR_HAAlphaClassification\n"
                               "[OUTPUT] PolSAR_HAAlphaClassification_images=\"" +
                                   expectedFile.toStdString() + "\"\n")
            << method;
        EXPECT_EQ(testsupport::readBand(expectedFile, 1).size(), 30u) << method;
    }
}

TEST(DecompositionEntry, RefusesInCheckOrder)
{
    QTemporaryDir dir;
    const QString d = dir.path();
    QDir().mkpath(d + "/a");
    QDir().mkpath(d + "/b");
    const auto surface = [](int, int) { return std::array<Cf, 4>{1.0, 0.0, 0.0, 1.0}; };
    const QString channels = writeChannels(d + "/a", 8, 8, surface);
    const QString others = writeChannels(d + "/b", 8, 7, surface);
    const QStringList c = channels.split('|'), o = others.split('|');
    ASSERT_TRUE(testsupport::makeRaster(d + "/real.tif", 8, 8, 1, GDT_Float32, [](int, int, int) { return 1.0; }));
    ASSERT_TRUE(testsupport::makeRaster(d + "/twoband.tif", 8, 8, 2, GDT_CFloat32, [](int, int, int) { return 1.0; }));
    writeT3(d + "/t3", 8, 8, [](int, int) { return polsarkernel::Coherency{1, 1, 1}; });
    writeT3(d + "/t3short", 8, 8, [](int, int) { return polsarkernel::Coherency{1, 1, 1}; });
    QFile::resize(d + "/t3short/T22.bin", 8 * 8 * 4 - 4);
    QDir().mkpath(d + "/noconfig");

    struct Row
    {
        const char* name;
        QString input;
        const char* method;
        int window;
        const char* expected;
    } rows[] = {
        {"input empty", "", "HAAlpha", 3, "[ERROR] Input Data is empty!\n"},
        {"method", channels, "haalpha", 3, "[ERROR] please input decomposition method correctly!\n"},
        {"window 0", channels, "HAAlpha", 0, "[ERROR] please input window size correctly!\n"},
        {"window even", channels, "HAAlpha", 4, "[ERROR] please input window size correctly!\n"},
        {"window negative", channels, "HAAlpha", -3, "[ERROR] please input window size correctly!\n"},
        {"three channels", c.mid(0, 3).join('|'), "HAAlpha", 3,
         "[ERROR] Please select HH|HV|VH|VV images correctly!\n"},
        {"empty channel", c[0] + "||" + c[2] + "|" + c[3], "HAAlpha", 3,
         "[ERROR] Please select HH|HV|VH|VV images correctly!\n"},
        {"HV missing", c[0] + "|" + d + "/none.tif|" + c[2] + "|" + c[3], "HAAlpha", 3,
         "[ERROR] Please select HV image correctly!\n"},
        {"VV missing", c[0] + "|" + c[1] + "|" + c[2] + "|" + d + "/none.tif", "HAAlpha", 3,
         "[ERROR] Please select VV image correctly!\n"},
        {"real channel", c[0] + "|" + c[1] + "|" + d + "/real.tif|" + c[3], "HAAlpha", 3,
         "[ERROR] Please select single-band complex HH/HV/VH/VV images correctly!\n"},
        {"two-band channel", d + "/twoband.tif|" + c[1] + "|" + c[2] + "|" + c[3], "HAAlpha", 3,
         "[ERROR] Please select single-band complex HH/HV/VH/VV images correctly!\n"},
        {"sizes differ", c[0] + "|" + c[1] + "|" + o[2] + "|" + c[3], "HAAlpha", 3,
         "[ERROR] Please select the same scene image !\n"},
        {"window larger than image", others, "HAAlpha", 9, "[ERROR] Window size is larger than the image!\n"},
        {"folder without config", d + "/noconfig", "HAAlpha", 3,
         "[ERROR] Please select T3 matrix folder correctly!\n"},
        {"a file, not a folder", c[0], "HAAlpha", 3, "[ERROR] Please select T3 matrix folder correctly!\n"},
        {"short T3 element", d + "/t3short", "HAAlpha", 3,
         "[ERROR] T3 matrix file is missing or incomplete: T22.bin\n"},
        {"T3 window too large", d + "/t3", "HAAlpha", 11, "[ERROR] Window size is larger than the image!\n"},
    };
    for (const Row& row : rows)
    {
        const EntryRun run = runDecomposition(row.input, d + "/out", row.method, row.window);
        EXPECT_FALSE(run.ok) << row.name;
        EXPECT_EQ(run.printed, row.expected) << row.name;
    }
    const EntryRun noOutput = runDecomposition(channels, "", "HAAlpha", 3);
    EXPECT_EQ(noOutput.printed, "[ERROR] Output Directory is empty!\n");
    EXPECT_FALSE(QDir(d + "/out").exists());
}
