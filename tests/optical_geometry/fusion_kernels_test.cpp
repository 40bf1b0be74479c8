// Resampling, fusion-model and quality kernels against brute-force and hand computations.
#include "fusion_model.h"
#include "fusion_quality.h"
#include "grid_resample.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace optgeo;

namespace
{

double keysWeight(double t)
{
    t = std::fabs(t);
    const double a = -0.5;
    if (t <= 1)
        return (a + 2) * t * t * t - (a + 3) * t * t + 1;
    if (t < 2)
        return a * t * t * t - 5 * a * t * t + 8 * a * t - 4 * a;
    return 0;
}

std::vector<float> randomImage(int w, int h, unsigned seed)
{
    std::mt19937 gen(seed);
    std::uniform_real_distribution<float> dist(0.0f, 100.0f);
    std::vector<float> img(size_t(w) * h);
    for (float& v : img)
        v = dist(gen);
    return img;
}

} // namespace

TEST(GridResample, InterpolationMatchesDirectKernelSumsAndMarksOutside)
{
    const int w = 9, h = 7;
    const std::vector<float> img = randomImage(w, h, 3);
    const SourceRows src{img.data(), w, 0, h, h};
    // Destination at twice the resolution, shifted by a quarter source pixel, reaching past the source.
    const AxisMap xmap{-0.25, 0.5}, ymap{0.25, 0.5};
    const int cols = 20, rows = 16;
    std::vector<float> cubic(cols * rows), linear(cols * rows), nearest(cols * rows);
    interpolate(src, xmap, ymap, 0, cols, 0, rows, Interpolation::Cubic, -1.0f, cubic.data());
    interpolate(src, xmap, ymap, 0, cols, 0, rows, Interpolation::Bilinear, -1.0f, linear.data());
    interpolate(src, xmap, ymap, 0, cols, 0, rows, Interpolation::Nearest, -1.0f, nearest.data());
    auto at = [&](int x, int y) { return double(img[std::min(h - 1, std::max(0, y)) * w + std::min(w - 1, std::max(0, x))]); };
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
        {
            const double sx = xmap.centre(c), sy = ymap.centre(r);
            const size_t i = size_t(r) * cols + c;
            if (sx < 0 || sy < 0 || sx > w || sy > h)
            {
                EXPECT_EQ(cubic[i], -1.0f);
                EXPECT_EQ(nearest[i], -1.0f);
                continue;
            }
            const double u = sx - 0.5, v = sy - 0.5;
            double expectCubic = 0, expectLinear = 0;
            for (int j = int(std::floor(v)) - 1; j <= int(std::floor(v)) + 2; ++j)
                for (int k = int(std::floor(u)) - 1; k <= int(std::floor(u)) + 2; ++k)
                {
                    expectCubic += keysWeight(u - k) * keysWeight(v - j) * at(k, j);
                    expectLinear += std::max(0.0, 1 - std::fabs(u - k)) * std::max(0.0, 1 - std::fabs(v - j)) * at(k, j);
                }
            EXPECT_NEAR(cubic[i], expectCubic, 1e-3) << c << "," << r;
            EXPECT_NEAR(linear[i], expectLinear, 1e-3) << c << "," << r;
            EXPECT_EQ(nearest[i], float(at(int(std::floor(sx)), int(std::floor(sy)))));
        }
    // A block of source rows gives the same destination rows as the whole source.
    int first = 0, last = 0;
    sourceRowsNeeded(ymap, 6, 5, h, Interpolation::Cubic, &first, &last);
    const SourceRows part{img.data() + size_t(first) * w, w, first, last - first + 1, h};
    std::vector<float> partial(cols * 5);
    interpolate(part, xmap, ymap, 0, cols, 6, 5, Interpolation::Cubic, -1.0f, partial.data());
    for (int i = 0; i < cols * 5; ++i)
        EXPECT_EQ(partial[i], cubic[6 * cols + i]);
}

TEST(GridResample, AreaAverageWeighsPartlyCoveredPixels)
{
    const int w = 8, h = 6;
    const std::vector<float> img = randomImage(w, h, 5);
    // Coarse pixels two source pixels wide, starting half a pixel in (the Landsat pan/MS layout).
    const AxisMap map{0.5, 2.0};
    const int cols = 4, rows = 3;
    std::vector<float> out(cols * rows);
    areaAverage({img.data(), w, 0, h, h}, map, map, cols, rows, -1.0f, out.data());
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
        {
            // Supersampled brute force: 100 x 100 points per coarse pixel.
            double sum = 0;
            int n = 0;
            for (int j = 0; j < 100; ++j)
                for (int i = 0; i < 100; ++i)
                {
                    const double x = 0.5 + 2 * c + 2 * (i + 0.5) / 100, y = 0.5 + 2 * r + 2 * (j + 0.5) / 100;
                    if (x >= w || y >= h)
                        continue;
                    sum += img[int(y) * w + int(x)];
                    ++n;
                }
            EXPECT_NEAR(out[r * cols + c], sum / n, 1e-3);
        }
}

TEST(GridResample, LowPassFiltersKeepConstantsAndAverageNeighbours)
{
    const int w = 7, h = 5;
    const std::vector<float> img = randomImage(w, h, 9);
    std::vector<float> box(w * h), gauss(w * h), flat(w * h, 4.0f), flatOut(w * h);
    boxFilter(img.data(), w, h, 3, box.data());
    double sum = 0;
    for (int y = 1; y <= 3; ++y)
        for (int x = 2; x <= 4; ++x)
            sum += img[y * w + x];
    EXPECT_NEAR(box[2 * w + 3], sum / 9, 1e-4);
    // Corner: the edge pixel repeated.
    EXPECT_NEAR(box[0], (4 * img[0] + 2 * img[1] + 2 * img[w] + img[w + 1]) / 9.0, 1e-4);
    gaussianFilter(flat.data(), w, h, 1.3, flatOut.data());
    for (float v : flatOut)
        EXPECT_NEAR(v, 4.0f, 1e-5);
    const std::vector<double> k = gaussianKernel(1.0);
    EXPECT_EQ(k.size(), 7u);
    EXPECT_NEAR(k[3] / k[4], std::exp(0.5), 1e-12);
}

TEST(FusionModel, PanThatIsAMixOfTheBandsLeavesTheBandsUnchangedAndItsWeightsAreFound)
{
    const int n = 3;
    const size_t count = 400;
    std::vector<std::vector<float>> ms(n, std::vector<float>(count));
    std::vector<float> pan(count);
    std::mt19937 gen(11);
    std::uniform_real_distribution<float> dist(10.0f, 200.0f);
    const double w[n] = {0.5, 0.2, 0.3};
    for (size_t p = 0; p < count; ++p)
    {
        double mix = 0;
        for (int b = 0; b < n; ++b)
            mix += w[b] * (ms[b][p] = dist(gen));
        pan[p] = float(mix);
    }
    const Bands bands{ms[0].data(), ms[1].data(), ms[2].data()};
    const FusionModel brovey = fitFusionModel(FusionMethod::Brovey, 4.0, pan.data(), bands, count);
    for (int b = 0; b < n; ++b)
        EXPECT_NEAR(brovey.weights[b], w[b], 1e-4);
    // With the pan equal to the intensity, substitution methods add nothing.
    for (FusionMethod method : {FusionMethod::Brovey, FusionMethod::GIHS, FusionMethod::GramSchmidt})
    {
        const FusionModel model = fitFusionModel(method, 4.0, pan.data(), bands, count);
        std::vector<std::vector<float>> out(n, std::vector<float>(count));
        fusePixels(model, pan.data(), nullptr, bands, count, {out[0].data(), out[1].data(), out[2].data()});
        for (int b = 0; b < n; ++b)
            for (size_t p = 0; p < count; ++p)
                ASSERT_NEAR(out[b][p], ms[b][p], 2e-3 * ms[b][p]) << int(method);
    }
    // PCA: a pan equal to the first component (in its own scale) gives the bands back.
    const FusionModel pca0 = fitFusionModel(FusionMethod::PCA, 4.0, pan.data(), bands, count);
    std::vector<float> pc1(count);
    for (size_t p = 0; p < count; ++p)
    {
        double v = pca0.intensityOffset;
        for (int b = 0; b < n; ++b)
            v += pca0.weights[b] * ms[b][p];
        pc1[p] = float(3.0 * v + 50.0);
    }
    const FusionModel pca = fitFusionModel(FusionMethod::PCA, 4.0, pc1.data(), bands, count);
    double norm2 = 0;
    for (double v : pca.weights)
        norm2 += v * v;
    EXPECT_NEAR(norm2, 1.0, 1e-9);
    std::vector<std::vector<float>> out(n, std::vector<float>(count));
    fusePixels(pca, pc1.data(), nullptr, bands, count, {out[0].data(), out[1].data(), out[2].data()});
    for (int b = 0; b < n; ++b)
        for (size_t p = 0; p < count; ++p)
            ASSERT_NEAR(out[b][p], ms[b][p], 1e-2);
}

TEST(FusionModel, PixelFormulasByHand)
{
    const float pan[] = {120.0f, 60.0f, NAN}, low[] = {100.0f, 80.0f, 1.0f};
    const float b1[] = {10.0f, 30.0f, 1.0f}, b2[] = {30.0f, 10.0f, 1.0f}, b3[] = {60.0f, 20.0f, 1.0f};
    std::vector<float> o1(3), o2(3), o3(3);
    FusionModel m;
    m.bands = 3;
    m.method = FusionMethod::CNS;
    m.inGroup = {1, 1, 0};
    fusePixels(m, pan, nullptr, {b1, b2, b3}, 3, {o1.data(), o2.data(), o3.data()});
    // Group sum 40: 10 * 120 * 2 / 40 = 60, 30 * 120 * 2 / 40 = 180; band 3 unchanged.
    EXPECT_FLOAT_EQ(o1[0], 60.0f);
    EXPECT_FLOAT_EQ(o2[0], 180.0f);
    EXPECT_FLOAT_EQ(o3[0], 60.0f);
    EXPECT_TRUE(std::isnan(o1[2]) && std::isnan(o3[2]));
    m.method = FusionMethod::SFIM;
    fusePixels(m, pan, low, {b1, b2, b3}, 2, {o1.data(), o2.data(), o3.data()});
    EXPECT_FLOAT_EQ(o3[0], 72.0f); // 60 * 120 / 100
    EXPECT_FLOAT_EQ(o1[1], 22.5f); // 30 * 60 / 80
    m.method = FusionMethod::HPF;
    m.gains = {0.5, 1.0, 2.0};
    fusePixels(m, pan, low, {b1, b2, b3}, 2, {o1.data(), o2.data(), o3.data()});
    EXPECT_FLOAT_EQ(o1[0], 20.0f);   // 10 + 0.5 * 20
    EXPECT_FLOAT_EQ(o3[1], -20.0f);  // 20 + 2 * -20
}

TEST(FusionQuality, ErgasAndSpectralAngleByHand)
{
    const float r1[] = {10, 10, 10, 10}, r2[] = {20, 20, 20, 20};
    const float f1[] = {11, 9, 11, 9}, f2[] = {20, 20, 20, NAN};
    // Band 1 RMSE 1 over mean 10 on the three valid pixels, band 2 RMSE 0: 100/2 * sqrt((0.01 + 0) / 2).
    EXPECT_NEAR(ergas({r1, r2}, {f1, f2}, 4, 2.0), 50.0 * std::sqrt(0.005), 1e-9);
    const float a1[] = {1, 1}, a2[] = {0, 0}, g1[] = {1, 2}, g2[] = {1, 0};
    // 45 degrees for the first pixel, 0 for the second.
    EXPECT_NEAR(spectralAngleDegrees({a1, a2}, {g1, g2}, 2), 22.5, 1e-9);
}

TEST(FusionQuality, HypercomplexProductIsACompositionUpToOctonions)
{
    // Quaternion units: i j = k, j i = -k.
    const std::vector<double> i{0, 1, 0, 0}, j{0, 0, 1, 0};
    EXPECT_EQ(hypercomplexProduct(i, j), (std::vector<double>{0, 0, 0, 1}));
    EXPECT_EQ(hypercomplexProduct(j, i), (std::vector<double>{0, 0, 0, -1}));
    std::mt19937 gen(2);
    std::normal_distribution<double> dist;
    for (size_t dims : {2u, 4u, 8u})
    {
        std::vector<double> a(dims), b(dims);
        for (size_t k = 0; k < dims; ++k)
        {
            a[k] = dist(gen);
            b[k] = dist(gen);
        }
        auto norm = [](const std::vector<double>& v) {
            double s = 0;
            for (double x : v)
                s += x * x;
            return std::sqrt(s);
        };
        EXPECT_NEAR(norm(hypercomplexProduct(a, b)), norm(a) * norm(b), 1e-9) << dims;
    }
}

TEST(FusionQuality, Q2nIsOneForIdenticalImagesAndTheImageQualityIndexForOneBand)
{
    const int w = 64, h = 32;
    const std::vector<float> a = randomImage(w, h, 21), b = randomImage(w, h, 22);
    const std::vector<float> c = randomImage(w, h, 23), d = randomImage(w, h, 24);
    EXPECT_NEAR(q2n({a.data(), c.data(), d.data()}, {a.data(), c.data(), d.data()}, w, h), 1.0, 1e-9);
    EXPECT_LT(q2n({a.data(), c.data(), d.data()}, {b.data(), c.data(), d.data()}, w, h), 1.0);
    // Wang and Bovik's index on each 32 x 32 block, by the formula.
    double expected = 0;
    for (int bx = 0; bx < 2; ++bx)
    {
        double ma = 0, mb = 0, saa = 0, sbb = 0, sab = 0;
        const int n = 32 * 32;
        for (int y = 0; y < 32; ++y)
            for (int x = bx * 32; x < bx * 32 + 32; ++x)
            {
                ma += a[y * w + x];
                mb += b[y * w + x];
            }
        ma /= n;
        mb /= n;
        for (int y = 0; y < 32; ++y)
            for (int x = bx * 32; x < bx * 32 + 32; ++x)
            {
                const double da = a[y * w + x] - ma, db = b[y * w + x] - mb;
                saa += da * da;
                sbb += db * db;
                sab += da * db;
            }
        saa /= n;
        sbb /= n;
        sab /= n;
        expected += std::fabs(4 * sab * ma * mb / ((saa + sbb) * (ma * ma + mb * mb))) / 2;
    }
    EXPECT_NEAR(q2n({a.data()}, {b.data()}, w, h), expected, 1e-6);
}
