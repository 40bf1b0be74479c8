// Filter plug-ins against independent computations: brute-force mean and median, Gaussian weights, identity
// passes of the frequency-domain filters, a Gaussian low-pass against a direct discrete Fourier transform, a 1 x 1
// image.
#include "test_support.h"

#include <algorithm>
#include <cmath>
#include <complex>

using namespace testsupport;

namespace
{

double pixel(int x, int y)
{
    return double((x * 7919 + y * 104729 + x * y * 31) % 1000);
}

int clampIndex(int i, int n)
{
    return std::min(std::max(i, 0), n - 1);
}

// Window values with the nearest-edge rule.
std::vector<double> window(int x, int y, int r, int w, int h)
{
    std::vector<double> values;
    for (int dy = -r; dy <= r; ++dy)
        for (int dx = -r; dx <= r; ++dx)
            values.push_back(pixel(clampIndex(x + dx, w), clampIndex(y + dy, h)));
    return values;
}

} // namespace

TEST(FilterResults, MeanAndMedianMatchBruteForce)
{
    QTemporaryDir dir;
    const int w = 23, h = 17;
    const QByteArray input = dir.filePath("in.tif").toLocal8Bit();
    ASSERT_TRUE(makeRaster(input, w, h, 1, GDT_UInt16, [](int, int x, int y) { return pixel(x, y); }));
    for (int n : {3, 5, 7})
    {
        const QByteArray mean = dir.filePath(QString("mean%1.tif").arg(n)).toLocal8Bit();
        const QByteArray median = dir.filePath(QString("median%1.tif").arg(n)).toLocal8Bit();
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_ImgProFiltSpaMean(input, mean, n, "1", 0, nullptr));
        ASSERT_TRUE(ExcuteAlgo_ImgProFiltSpaMid(input, median, n, "1", 0, 0, nullptr));
        const std::vector<double> meanOut = readBand(mean, 1), medianOut = readBand(median, 1);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
            {
                std::vector<double> v = window(x, y, n / 2, w, h);
                double sum = 0;
                for (double a : v)
                    sum += a;
                std::nth_element(v.begin(), v.begin() + v.size() / 2, v.end());
                ASSERT_EQ(meanOut[size_t(y * w + x)], std::floor(sum / v.size() + 0.5)) << n << " " << x << "," << y;
                ASSERT_EQ(medianOut[size_t(y * w + x)], v[v.size() / 2]) << n << " " << x << "," << y;
            }
    }
}

TEST(FilterResults, GaussianWeightsAreBinomialAndSumToOne)
{
    QTemporaryDir dir;
    const QByteArray input = dir.filePath("impulse.tif").toLocal8Bit();
    const QByteArray output = dir.filePath("gauss.tif").toLocal8Bit();
    ASSERT_TRUE(makeRaster(input, 9, 9, 1, GDT_Float32, [](int, int x, int y) { return x == 4 && y == 4 ? 256.0 : 0.0; }));
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_ImgProFiltSpaCom(input, output, 3, "1", 4, nullptr));
    const std::vector<double> out = readBand(output, 1);
    const double row[5] = {1, 4, 6, 4, 1};
    double total = 0;
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 9; ++x)
        {
            const bool inside = std::abs(x - 4) <= 2 && std::abs(y - 4) <= 2;
            const double expected = inside ? row[x - 2] * row[y - 2] : 0.0;
            EXPECT_NEAR(out[size_t(y * 9 + x)], expected, 1e-4) << x << "," << y;
            total += out[size_t(y * 9 + x)];
        }
    EXPECT_NEAR(total, 256.0, 1e-3);
}

TEST(FilterResults, TinyImagesAndIdentityFrequencyPasses)
{
    QTemporaryDir dir;
    const QByteArray one = dir.filePath("one.tif").toLocal8Bit();
    ASSERT_TRUE(makeRaster(one, 1, 1, 1, GDT_Byte, [](int, int, int) { return 42; }));
    for (int mode = 0; mode <= 6; ++mode)
    {
        const QByteArray out = dir.filePath(QString("one_%1.tif").arg(mode)).toLocal8Bit();
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_ImgProFiltSpaMid(one, out, 5, "1", mode, 0, nullptr)) << mode;
        // Zeros outside (4) outnumber the pixel in its window; the zero border (6) covers it.
        EXPECT_EQ(readBand(out, 1)[0], mode == 4 || mode == 6 ? 0.0 : 42.0) << mode;
    }

    const int w = 12, h = 10;
    const QByteArray input = dir.filePath("in.tif").toLocal8Bit();
    ASSERT_TRUE(makeRaster(input, w, h, 1, GDT_Byte, [](int, int x, int y) { return pixel(x, y) / 4; }));
    const QByteArray low = dir.filePath("low.tif").toLocal8Bit(), homo = dir.filePath("homo.tif").toLocal8Bit();
    const QByteArray high = dir.filePath("high.tif").toLocal8Bit();
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_ImgProFiltFrequency(input, low, "1", 0, 0, 0, 100, 0, nullptr));
    ASSERT_TRUE(ExcuteAlgo_ImgProFiltHomo(input, homo, "1", 0, 1.f, 1.f, 10.f, 1.f, 0, nullptr));
    ASSERT_TRUE(ExcuteAlgo_ImgProFiltFrequency(input, high, "1", 0, 0, 1, 0, 0, nullptr));
    const std::vector<double> in = readBand(input, 1), a = readBand(low, 1), b = readBand(homo, 1), c = readBand(high, 1);
    double mean = 0;
    for (double v : in)
        mean += v / in.size();
    for (size_t i = 0; i < in.size(); ++i)
    {
        EXPECT_NEAR(a[i], in[i], 1e-3);
        EXPECT_NEAR(b[i], in[i], 1e-2);
        EXPECT_NEAR(c[i], in[i] - mean, 1e-3); // the ideal high-pass at 0 removes only the mean
    }
}

// The Gaussian low-pass against a direct O(n^2) DFT, on an odd and an even size (FFTW takes other code paths for
// lengths that are not powers of two).
TEST(FilterResults, GaussianLowPassEqualsDirectFourierTransform)
{
    QTemporaryDir dir;
    for (const auto& [w, h] : {std::pair<int, int>{9, 7}, std::pair<int, int>{8, 6}})
    {
        const QByteArray input = dir.filePath(QString("g%1.tif").arg(w)).toLocal8Bit();
        const QByteArray output = dir.filePath(QString("g%1_low.tif").arg(w)).toLocal8Bit();
        ASSERT_TRUE(makeRaster(input, w, h, 1, GDT_Float32, [](int, int x, int y) { return pixel(x, y); }));
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_ImgProFiltFrequency(input, output, "1", 0, 2, 0, 2, 0, nullptr));
        const std::vector<double> result = readBand(output, 1);

        const double d0 = 2.0;
        std::vector<std::complex<double>> spectrum(size_t(w * h));
        for (int v = 0; v < h; ++v)
            for (int u = 0; u < w; ++u)
            {
                std::complex<double> sum;
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x)
                        sum += pixel(x, y) * std::polar(1.0, -2 * M_PI * (double(u * x) / w + double(v * y) / h));
                const double fu = u <= w / 2 ? u : u - w, fv = v <= h / 2 ? v : v - h;
                spectrum[size_t(v * w + u)] = sum * std::exp(-(fu * fu + fv * fv) / (2 * d0 * d0));
            }
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
            {
                std::complex<double> sum;
                for (int v = 0; v < h; ++v)
                    for (int u = 0; u < w; ++u)
                        sum += spectrum[size_t(v * w + u)] *
                               std::polar(1.0, 2 * M_PI * (double(u * x) / w + double(v * y) / h));
                EXPECT_NEAR(result[size_t(y * w + x)], sum.real() / (w * h), 1e-2) << w << " " << x << "," << y;
            }
    }
}
