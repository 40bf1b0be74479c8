// Decomposition and classification end to end: crafted complex scenes, crafted T3 folders, crafted H/A/Alpha/Lambda
// images at the zone boundaries, and the real T3 scene.
#include "polsar_fixtures.h"
#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <iostream>
#include <map>

using namespace polsartest;

namespace
{

const double kHalf = std::sqrt(0.5);

// Three vertical bands of 5 columns: surface (HH = VV), a balanced mix of the three Pauli mechanisms (every 3 x 3
// window holds each one three times), dihedral (HH = -VV); rows 9-11 of the surface band carry no power, and one
// HH sample is NaN.
std::array<Cf, 4> threeBands(int x, int y)
{
    if (x == 7 && y == 4)
        return {Cf(NAN, 0), 0.0, 0.0, Cf(kHalf)};
    if (x < 5)
        return y >= 9 ? std::array<Cf, 4>{0.0, 0.0, 0.0, 0.0} : std::array<Cf, 4>{1.0, 0.0, 0.0, 1.0};
    if (x >= 10)
        return {1.0, 0.0, 0.0, -1.0};
    switch ((x + y) % 3)
    {
    case 0: return {kHalf, 0.0, 0.0, kHalf};
    case 1: return {kHalf, 0.0, 0.0, -kHalf};
    default: return {0.0, kHalf, kHalf, 0.0};
    }
}

// Box mean of T over the valid samples of a window clipped to the image, computed directly.
polsarkernel::HAAlphaLambda expectedAt(const std::function<std::array<Cf, 4>(int, int)>& s, int width, int height,
                                       int x, int y, int half)
{
    const auto finite = [](const std::array<Cf, 4>& v) {
        return std::all_of(v.begin(), v.end(), [](Cf c) { return std::isfinite(c.real()) && std::isfinite(c.imag()); });
    };
    if (!finite(s(x, y)))
        return {NAN, NAN, NAN, NAN};
    Cf t[3][3] = {};
    int n = 0;
    for (int v = std::max(0, y - half); v <= std::min(height - 1, y + half); ++v)
        for (int u = std::max(0, x - half); u <= std::min(width - 1, x + half); ++u)
        {
            const std::array<Cf, 4> c = s(u, v);
            if (!finite(c))
                continue;
            const Cf k[3] = {(c[0] + c[3]) * kHalf, (c[0] - c[3]) * kHalf, (c[1] + c[2]) * kHalf};
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j)
                    t[i][j] += k[i] * std::conj(k[j]);
            ++n;
        }
    polsarkernel::Coherency m{t[0][0].real() / n, t[1][1].real() / n, t[2][2].real() / n,
                              t[0][1].real() / n, t[0][1].imag() / n, t[0][2].real() / n,
                              t[0][2].imag() / n, t[1][2].real() / n, t[1][2].imag() / n};
    if (m.t11 + m.t22 + m.t33 <= 0)
        return {NAN, NAN, NAN, NAN};
    return polsarkernel::haAlphaLambda(polsarkernel::eigenJacobi(m));
}

void expectSameValue(double actual, double expected, double tolerance, const std::string& where)
{
    if (std::isnan(expected))
        EXPECT_TRUE(std::isnan(actual)) << where;
    else
        EXPECT_NEAR(actual, expected, tolerance) << where;
}

struct ClassImage
{
    std::vector<double> values;
    std::vector<std::string> names;
    std::vector<std::array<short, 3>> colors;
    std::string lambdaMedian;
};

ClassImage readClassImage(const QString& path)
{
    ClassImage image;
    image.values = testsupport::readBand(path, 1);
    GDALDataset* dataset = GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_RASTER);
    if (!dataset)
        return image;
    GDALRasterBand* band = dataset->GetRasterBand(1);
    EXPECT_EQ(band->GetRasterDataType(), GDT_Byte);
    EXPECT_STREQ(dataset->GetDriver()->GetDescription(), "ENVI");
    for (char** name = band->GetCategoryNames(); name && *name; ++name)
        image.names.push_back(*name);
    if (const GDALColorTable* table = band->GetColorTable())
        for (int i = 0; i < table->GetColorEntryCount(); ++i)
            image.colors.push_back(
                {table->GetColorEntry(i)->c1, table->GetColorEntry(i)->c2, table->GetColorEntry(i)->c3});
    if (const char* median = band->GetMetadataItem("LAMBDA_MEDIAN"))
        image.lambdaMedian = median;
    GDALClose(GDALDataset::ToHandle(dataset));
    return image;
}

QString outputOf(const EntryRun& run, const char* key)
{
    const std::string prefix = std::string("[OUTPUT] ") + key + "=\"";
    for (const std::string& line : testsupport::lines(run.printed))
        if (line.rfind(prefix, 0) == 0)
            return QString::fromStdString(line.substr(prefix.size(), line.size() - prefix.size() - 1));
    return QString();
}

} // namespace

TEST(PolSAREndToEnd, ComplexChannelsToClassification)
{
    QTemporaryDir dir;
    const int width = 15, height = 12;
    const QString channels = writeChannels(dir.path(), width, height, threeBands);
    const EntryRun decomposed = runDecomposition(channels, dir.path() + "/decomposition", "HAAlpha", 3);
    ASSERT_TRUE(decomposed.ok) << decomposed.printed;
    const QString base = dir.path() + "/decomposition/scene_HH";
    const QString files[4] = {base + "_entropy.img", base + "_anisotropy.img", base + "_alpha.img",
                              base + "_lambda.img"};
    EXPECT_EQ(decomposed.printed, "Judge the rationality of input paramenters sucessfully\n"
                                  "start call algorithm plugin: PolSAR_Decomposition\n"
                                  "[OUTPUT] PolSAR_Decomposition_images=\"" +
                                      QStringList(files, files + 4).join('|').toStdString() + "\"\n");

    std::vector<double> images[4];
    for (int i = 0; i < 4; ++i)
        images[i] = testsupport::readBand(files[i], 1);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
        {
            const polsarkernel::HAAlphaLambda e = expectedAt(threeBands, width, height, x, y, 1);
            const size_t i = size_t(y) * width + x;
            const std::string where = std::to_string(x) + "," + std::to_string(y);
            expectSameValue(images[0][i], e.entropy, 1e-4, where);
            expectSameValue(images[1][i], e.anisotropy, 1e-4, where);
            expectSameValue(images[2][i], e.alphaDegrees, 1e-3, where);
            expectSameValue(images[3][i], e.lambda, 1e-4, where);
        }
    const FourImages four{files[0], files[1], files[2], files[3]};
    const EntryRun classified = runClassification(four, "HAlpha", dir.path() + "/class");
    ASSERT_TRUE(classified.ok) << classified.printed;
    const QString classFile = dir.path() + "/class/HAAlphaClass/scene_HH_alpha_HAAClass.img";
    EXPECT_EQ(outputOf(classified, "PolSAR_HAAlphaClassification_images"), classFile);
    const ClassImage image = readClassImage(classFile);
    ASSERT_EQ(image.values.size(), size_t(width * height));
    EXPECT_EQ(image.values[2 * width + 2], 8);  // Z9 surface
    EXPECT_EQ(image.values[5 * width + 7], 1);  // Z1 high entropy multiple
    EXPECT_EQ(image.values[8 * width + 12], 6); // Z7 dihedral
    EXPECT_EQ(image.values[4 * width + 7], 0);  // NaN sample
    EXPECT_EQ(image.values[10 * width + 2], 0); // no power in the whole window
    EXPECT_EQ(image.values[9 * width + 2], 8);  // the window reaches a powered row
    ASSERT_EQ(image.names.size(), 9u);
    EXPECT_EQ(image.names[0], "Invalid");
    EXPECT_EQ(image.names[1], "Z1 high entropy multiple scattering");
    EXPECT_EQ(image.names[8], "Z9 low entropy surface scattering");
    ASSERT_EQ(image.colors.size(), 9u);
    EXPECT_EQ(image.colors[0], (std::array<short, 3>{0, 0, 0}));
    EXPECT_EQ(image.colors[8], (std::array<short, 3>{0, 0, 255}));
}

TEST(PolSAREndToEnd, T3FolderWithoutHeaders)
{
    QTemporaryDir dir;
    // A constant matrix with every element distinct, so a mix-up of the nine files changes the result.
    const polsarkernel::Coherency t{0.9, 0.5, 0.3, 0.2, -0.1, 0.05, 0.12, -0.08, 0.15};
    writeT3(dir.path() + "/T3", 7, 6, [&](int x, int y) {
        polsarkernel::Coherency value = t;
        if (x == 3 && y == 3)
            value.t22 = INFINITY;
        return value;
    });
    const EntryRun run = runDecomposition(dir.path() + "/T3", dir.path() + "/out", "HAAlpha", 3);
    ASSERT_TRUE(run.ok) << run.printed;
    polsarkernel::Coherency rounded = t; // the files hold Float32
    for (double* v : {&rounded.t11, &rounded.t22, &rounded.t33, &rounded.t12re, &rounded.t12im, &rounded.t13re,
                      &rounded.t13im, &rounded.t23re, &rounded.t23im})
        *v = float(*v);
    const polsarkernel::HAAlphaLambda e = polsarkernel::haAlphaLambda(polsarkernel::eigenJacobi(rounded));
    const char* names[4] = {"entropy", "anisotropy", "alpha", "lambda"};
    const double expected[4] = {e.entropy, e.anisotropy, e.alphaDegrees, e.lambda};
    for (int i = 0; i < 4; ++i)
    {
        const std::vector<double> values = testsupport::readBand(dir.path() + "/out/T3_" + names[i] + ".img", 1);
        ASSERT_EQ(values.size(), 42u);
        for (size_t p = 0; p < values.size(); ++p)
            expectSameValue(values[p], p == 3 * 7 + 3 ? NAN : expected[i], 1e-4, names[i] + std::to_string(p));
    }
}

TEST(PolSAREndToEnd, ClassesAtTheZoneBoundaries)
{
    QTemporaryDir dir;
    struct Pixel
    {
        double h, a, alpha, lambda;
        int method0, method1, method2; // lambda split at the median of the valid pixels' lambda: 4
    } pixels[] = {
        {0.0, 0.0, 0.0, 1, 8, 15, 15},      {0.5, 0.5, 40.0, 2, 4, 8, 7},      {0.9, 0.49, 55.0, 3, 1, 1, 1},
        {0.49, 0.9, 42.5, 4, 7, 14, 14},    {0.3, 0.2, 47.5, 5, 6, 11, 12},    {0.89, 0.6, 50.0, 6, 3, 6, 6},
        {0.95, 0.5, 54.99, 7, 2, 4, 4},     {0.7, 0.1, 39.99, 8, 5, 9, 10},    {NAN, 0.1, 10.0, 9, 0, 0, 0},
        {0.2, INFINITY, 10.0, 10, 0, 0, 0}, {0.2, 0.3, 10.0, NAN, 0, 0, 0},    {0.95, 0.2, 20.0, 0.5, 2, 3, 3},
    };
    const int count = int(std::size(pixels));
    const FourImages images = writeFourImages(dir.path(), "zones", count, 1, [&](int x, int) {
        return std::array<double, 4>{pixels[x].h, pixels[x].a, pixels[x].alpha, pixels[x].lambda};
    });
    const char* methods[3] = {"HAlpha", "HAAlpha", "HAlphaLambda"};
    for (int m = 0; m < 3; ++m)
    {
        const QString out = dir.path() + "/m" + QString::number(m);
        ASSERT_TRUE(runClassification(images, methods[m], out).ok) << methods[m];
        const ClassImage image = readClassImage(out + "/HAAlphaClass/zones_alpha_HAAClass.img");
        ASSERT_EQ(image.values.size(), size_t(count));
        for (int x = 0; x < count; ++x)
            EXPECT_EQ(image.values[x], m == 0 ? pixels[x].method0 : m == 1 ? pixels[x].method1 : pixels[x].method2)
                << methods[m] << " pixel " << x;
        ASSERT_EQ(image.names.size(), m == 0 ? 9u : 17u);
        ASSERT_EQ(image.colors.size(), image.names.size());
        if (m == 1)
        {
            EXPECT_EQ(image.names[15], "Z9 low entropy surface scattering (anisotropy < 0.5)");
            EXPECT_EQ(image.names[16], "Z9 low entropy surface scattering (anisotropy >= 0.5)");
        }
        if (m == 2)
        {
            // Valid lambdas 1..8 and 0.5: nine values, lower median 4.
            EXPECT_EQ(image.lambdaMedian, "4");
            EXPECT_EQ(image.names[1], "Z1 high entropy multiple scattering (lambda < median)");
            EXPECT_EQ(image.colors[1], (std::array<short, 3>{64, 0, 0}));
            EXPECT_EQ(image.colors[2], (std::array<short, 3>{128, 0, 0}));
        }
    }
}

TEST(PolSAREndToEnd, RealT3Scene)
{
    SKIP_WITHOUT_SHARED_DATA("polsar/T3/config.txt");
    const QString t3 = testsupport::sharedDataPath("polsar/T3");
    QTemporaryDir dir;
    const EntryRun run = runDecomposition(t3, dir.path(), "HAAlpha", 5);
    ASSERT_TRUE(run.ok) << run.printed;
    const int width = 1024, height = 900;
    std::vector<double> h = testsupport::readBand(dir.path() + "/T3_entropy.img", 1);
    std::vector<double> alpha = testsupport::readBand(dir.path() + "/T3_alpha.img", 1);
    ASSERT_EQ(h.size(), size_t(width) * height);
    double hSum = 0, alphaSum = 0;
    size_t finite = 0;
    for (size_t i = 0; i < h.size(); ++i)
        if (std::isfinite(h[i]) && std::isfinite(alpha[i]))
        {
            hSum += h[i];
            alphaSum += alpha[i];
            ++finite;
        }
    ASSERT_GT(finite, h.size() * 99 / 100);
    const double meanH = hSum / finite, meanAlpha = alphaSum / finite;
    EXPECT_GT(meanH, 0.2);
    EXPECT_LT(meanH, 0.98);
    EXPECT_GT(meanAlpha, 15.0);
    EXPECT_LT(meanAlpha, 70.0);

    // Rows around the first block boundary against the direct computation from the raw files.
    std::vector<std::vector<float>> elements;
    for (const char* name : {"T11.bin", "T12_real.bin", "T12_imag.bin", "T13_real.bin", "T13_imag.bin", "T22.bin",
                             "T23_real.bin", "T23_imag.bin", "T33.bin"})
    {
        QFile file(t3 + "/" + name);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        elements.emplace_back(size_t(width) * height);
        std::memcpy(elements.back().data(), bytes.constData(), elements.back().size() * sizeof(float));
    }
    for (int y : {0, 600, 605, 606, 607, 608, 609, 610, 611, 612, 613, 899})
        for (int x : {0, 1, 333, 1022, 1023})
        {
            double sum[9] = {};
            int n = 0;
            for (int v = std::max(0, y - 2); v <= std::min(height - 1, y + 2); ++v)
                for (int u = std::max(0, x - 2); u <= std::min(width - 1, x + 2); ++u, ++n)
                    for (int e = 0; e < 9; ++e)
                        sum[e] += elements[e][size_t(v) * width + u];
            const polsarkernel::Coherency t{sum[0] / n, sum[5] / n, sum[8] / n, sum[1] / n, sum[2] / n,
                                            sum[3] / n, sum[4] / n, sum[6] / n, sum[7] / n};
            const polsarkernel::HAAlphaLambda e = polsarkernel::haAlphaLambda(polsarkernel::eigenJacobi(t));
            const std::string where = std::to_string(x) + "," + std::to_string(y);
            EXPECT_NEAR(h[size_t(y) * width + x], e.entropy, 1e-3) << where;
            EXPECT_NEAR(alpha[size_t(y) * width + x], e.alphaDegrees, 0.05) << where;
        }

    const FourImages four{dir.path() + "/T3_entropy.img", dir.path() + "/T3_anisotropy.img",
                          dir.path() + "/T3_alpha.img", dir.path() + "/T3_lambda.img"};
    const EntryRun classified = runClassification(four, "HAlpha", dir.path());
    ASSERT_TRUE(classified.ok) << classified.printed;
    const ClassImage image = readClassImage(dir.path() + "/HAAlphaClass/T3_alpha_HAAClass.img");
    std::map<int, size_t> histogram;
    for (double value : image.values)
        ++histogram[int(value)];
    std::string report = "H/A/Alpha classes of the T3 scene (mean H " + std::to_string(meanH) + ", mean alpha " +
                         std::to_string(meanAlpha) + "):";
    for (const auto& [value, pixels] : histogram)
        report += " " + image.names.at(size_t(value)) + "=" + std::to_string(pixels) + ";";
    RecordProperty("class_histogram", report);
    std::cout << report << std::endl;
    EXPECT_EQ(histogram.size() > 3, true);
}

TEST(PolSAREndToEnd, StoppedRunLeavesNoOutputs)
{
    QTemporaryDir dir;
    const QByteArray in = writeChannels(dir.path(), 8, 8, threeBands).toUtf8(), out = (dir.path() + "/out").toUtf8();
    testsupport::RecordingResult result;
    result.answer = -1;
    testsupport::StdoutCapture capture;
    EXPECT_FALSE(ExcuteAlgo_PolSAR_Decomposition(in.constData(), out.constData(), "HAAlpha", 3, &result.record));
    EXPECT_EQ(capture.text().find("[OUTPUT]"), std::string::npos);
    EXPECT_EQ(result.record.code, -2);
    EXPECT_EQ(QDir(dir.path() + "/out").entryList(QDir::Files), QStringList());
}
