// Transform entries: messages in order, and each plug-in against an independent computation or its inverse.
#include "test_support.h"

#include <QFile>
#include <cmath>
#include <cstring>

using namespace testsupport;

namespace
{

double pixel(int b, int x, int y)
{
    return double((x * 37 + y * 91 + b * 53 + x * y * (b + 3)) % 200) + 10 * b;
}

void expectSame(const QString& a, const QString& b, int bands, double tolerance)
{
    for (int band = 1; band <= bands; ++band)
    {
        const std::vector<double> x = readBand(a, band), y = readBand(b, band);
        ASSERT_EQ(x.size(), y.size());
        for (size_t i = 0; i < x.size(); ++i)
            ASSERT_NEAR(x[i], y[i], tolerance) << "band " << band << " pixel " << i;
    }
}

} // namespace

TEST(TransformEntries, MessagesAreLinesInCheckOrder)
{
    QTemporaryDir dir;
    const QByteArray four = dir.filePath("four.tif").toLocal8Bit(), out = dir.filePath("out.tif").toLocal8Bit();
    const QByteArray upper = dir.filePath("FOUR.tif").toLocal8Bit();
    ASSERT_TRUE(makeRaster(four, 6, 5, 4, GDT_Byte, pixel));
    const struct
    {
        const char* label;
        std::function<bool()> call;
        const char* printed;
    } rows[] = {
        {"inverse PCA no input", [&] { return ExcuteAlgo_InvPCATransformFunc("", out, "s.txt", 0, nullptr); }, "Please correctly select input file! \n"},
        {"inverse PCA no statistics", [&] { return ExcuteAlgo_InvPCATransformFunc(four, out, "", 0, nullptr); }, "Select Input statistics file! \n"},
        {"inverse PCA no output", [&] { return ExcuteAlgo_InvPCATransformFunc(four, "", "s.txt", 0, nullptr); }, "Select correct output file! \n"},
        {"inverse PCA same file", [&] { return ExcuteAlgo_InvPCATransformFunc(four, four, "s.txt", 0, nullptr); }, "Input file is matching to output file! \n"},
        {"PCA no statistics", [&] { return ExcuteAlgo_PCATransformFunc(four, out, "", 0, nullptr); }, "Select output statistics file! \n"},
        {"inverse MNF no statistics", [&] { return ExcuteAlgo_InvMNTransformFunc(four, out, "", 0, nullptr); }, "Select output statistics file! \n"},
        {"FFT unreadable", [&] { return ExcuteAlgo_FFTransformFunc("/no/such.tif", out, nullptr); }, "Open RasterDataset faild, Please correctly select input file! \n"},
        {"inverse FFT type 7", [&] { return ExcuteAlgo_InvFFTransformFunc(four, out, 7, nullptr); }, "Please Input correct datatype! \n"},
        {"KT sensor 3", [&] { return ExcuteAlgo_KTTransformFunc(four, out, 3, nullptr); }, "Please Input correct datatype!\n"},
        {"KT sensor 0 on 4 bands", [&] { return ExcuteAlgo_KTTransformFunc(four, out, 0, nullptr); }, "Input file is inconsistent with the sensor type! \n"},
        {"RGB2IHS order 0", [&] { return ExcuteAlgo_RGB2IHSTransformFunc(four, out, 0, nullptr); }, "Band order must greater than 1 \n"},
        {"IHS2RGB no output", [&] { return ExcuteAlgo_IHS2RGBTransformFunc(four, "", 123, nullptr); }, "Select correct output file! \n"},
    };
    for (const auto& row : rows)
    {
        StdoutCapture capture;
        EXPECT_FALSE(row.call()) << row.label;
        EXPECT_EQ(capture.text(), row.printed) << row.label;
    }
    // Paths differing only in letter case pass the identity check (the plug-in then fails on the missing file).
    StdoutCapture capture;
    ExcuteAlgo_InvPCATransformFunc(four, upper, dir.filePath("none.txt").toLocal8Bit(), 0, nullptr);
    EXPECT_EQ(capture.text().find("Input file is matching"), std::string::npos);
}

TEST(TransformResults, InversesReconstructTheirInput)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("in.tif");
    ASSERT_TRUE(makeRaster(input, 13, 11, 4, GDT_Float32, pixel));
    const QByteArray in = input.toLocal8Bit();
    auto file = [&](const char* name) { return dir.filePath(name).toLocal8Bit(); };
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_PCATransformFunc(in, file("pca.tif"), file("pca.txt"), 0, nullptr));
    ASSERT_TRUE(ExcuteAlgo_InvPCATransformFunc(file("pca.tif"), file("pca_back.tif"), file("pca.txt"), 0, nullptr));
    ASSERT_TRUE(ExcuteAlgo_MNFTransformFunc(in, file("mnf.tif"), file("mnf.txt"), 6, nullptr));
    ASSERT_TRUE(ExcuteAlgo_InvMNTransformFunc(file("mnf.tif"), file("mnf_back.tif"), file("mnf.txt"), 6, nullptr));
    ASSERT_TRUE(ExcuteAlgo_FFTransformFunc(in, file("fft.tif"), nullptr));
    ASSERT_TRUE(ExcuteAlgo_InvFFTransformFunc(file("fft.tif"), file("fft_back.tif"), 0, nullptr));
    ASSERT_TRUE(ExcuteAlgo_WaveletTransform(in, file("wav.tif"), nullptr));
    ASSERT_TRUE(ExcuteAlgo_WaveletInverseTransform(file("wav.tif"), file("wav_back.tif"), nullptr));
    ASSERT_TRUE(ExcuteAlgo_RGB2IHSTransformFunc(in, file("ihs.tif"), 123, nullptr));
    ASSERT_TRUE(ExcuteAlgo_IHS2RGBTransformFunc(file("ihs.tif"), file("ihs_back.tif"), 123, nullptr));
    expectSame(input, file("pca_back.tif"), 4, 1e-3);
    expectSame(input, file("mnf_back.tif"), 4, 1e-6);
    expectSame(input, file("fft_back.tif"), 4, 1e-2);
    expectSame(input, file("wav_back.tif"), 4, 1e-4);
    for (int band = 1; band <= 3; ++band)
    {
        const std::vector<double> a = readBand(input, band), b = readBand(file("ihs_back.tif"), band);
        for (size_t i = 0; i < a.size(); ++i)
            ASSERT_NEAR(a[i], b[i], 1e-2) << band << " " << i;
    }
    // PCA components are uncorrelated and ordered by variance; the first holds the largest variance.
    const std::vector<double> c1 = readBand(file("pca.tif"), 1), c2 = readBand(file("pca.tif"), 2);
    double v1 = 0, v2 = 0, cross = 0;
    for (size_t i = 0; i < c1.size(); ++i)
    {
        v1 += c1[i] * c1[i];
        v2 += c2[i] * c2[i];
        cross += c1[i] * c2[i];
    }
    EXPECT_GE(v1, v2);
    EXPECT_NEAR(cross / std::sqrt(v1 * v2), 0.0, 1e-3);
}

TEST(TransformResults, TasselledCapOfAKnownPixelAndBadStatisticsFiles)
{
    QTemporaryDir dir;
    const QByteArray input = dir.filePath("mss.tif").toLocal8Bit(), output = dir.filePath("kt.tif").toLocal8Bit();
    const double bands[4] = {20, 30, 40, 50};
    ASSERT_TRUE(makeRaster(input, 2, 2, 4, GDT_Byte, [&](int b, int, int) { return bands[b]; }));
    {
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_KTTransformFunc(input, output, 1, nullptr));
    }
    // Kauth-Thomas brightness and greenness of the MSS pixel, computed by hand.
    EXPECT_NEAR(readBand(output, 1)[0], 0.433 * 20 + 0.632 * 30 + 0.586 * 40 + 0.264 * 50, 1e-3);
    EXPECT_NEAR(readBand(output, 2)[0], -0.290 * 20 - 0.562 * 30 + 0.600 * 40 + 0.491 * 50, 1e-3);

    QFile corrupt(dir.filePath("corrupt.txt"));
    ASSERT_TRUE(corrupt.open(QIODevice::WriteOnly));
    corrupt.write("AlgoFactory transform statistics 1\nkind PCA\nbands 4\nsourcetype Byte\nmean 1 2 x 4\n");
    corrupt.close();
    for (const char* statistics : {"missing.txt", "corrupt.txt"})
    {
        RecordingResult result;
        StdoutCapture capture;
        EXPECT_FALSE(ExcuteAlgo_InvPCATransformFunc(input, dir.filePath("back.tif").toLocal8Bit(),
                                                    dir.filePath(statistics).toLocal8Bit(), 0, &result.record));
        EXPECT_NE(result.record.code, 0) << statistics;
        EXPECT_NE(std::strstr(result.record.message, "statistics file"), nullptr) << result.record.message;
        EXPECT_FALSE(QFileInfo::exists(dir.filePath("back.tif")));
    }
}
