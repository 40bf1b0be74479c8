// Kernels of the change plug-ins on small arrays: thresholds, IR-MAD, band finding, the class-merge rule.
#include "change_measures.h"
#include "spectral_bands.h"
#include "thresholds.h"
#include "union_rule.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace obia;

namespace
{

double normalDensity(double x, double mean, double sigma)
{
    const double z = (x - mean) / sigma;
    return std::exp(-0.5 * z * z) / (sigma * std::sqrt(2 * M_PI));
}

} // namespace

TEST(Thresholds, OtsuMatchesABruteForceSearchOverTheSamples)
{
    std::mt19937 random(7);
    std::normal_distribution<double> dark(40, 6), bright(150, 20);
    std::vector<double> samples;
    for (int i = 0; i < 3000; ++i)
        samples.push_back(dark(random));
    for (int i = 0; i < 1000; ++i)
        samples.push_back(bright(random));
    Histogram histogram(0, 256, 256);
    for (double v : samples)
        histogram.add(v);
    // Between-class variance of every integer split, straight from the samples as binned.
    double best = -1, bestSplit = 0;
    for (int t = 1; t < 256; ++t)
    {
        double n0 = 0, s0 = 0, n1 = 0, s1 = 0;
        for (double v : samples)
        {
            const double bin = std::floor(std::clamp(v, 0.0, 255.0));
            (bin < t ? n0 : n1) += 1;
            (bin < t ? s0 : s1) += bin;
        }
        if (n0 == 0 || n1 == 0)
            continue;
        const double between = n0 * n1 * std::pow(s0 / n0 - s1 / n1, 2);
        if (between > best)
            best = between, bestSplit = t;
    }
    EXPECT_DOUBLE_EQ(otsuThreshold(histogram), bestSplit);
}

TEST(Thresholds, ExpectationMaximisationFindsTheBayesBoundaryOfTwoGaussians)
{
    // 80 % no change N(10, 4), 20 % change N(40, 8): the boundary where 0.8 N0 = 0.2 N1, found by bisection.
    std::mt19937 random(11);
    std::normal_distribution<double> unchanged(10, 4), changed(40, 8);
    Histogram histogram(-10, 80, 900);
    for (int i = 0; i < 80000; ++i)
        histogram.add(unchanged(random));
    for (int i = 0; i < 20000; ++i)
        histogram.add(changed(random));
    double low = 10, high = 40;
    for (int i = 0; i < 60; ++i)
    {
        const double mid = 0.5 * (low + high);
        (0.8 * normalDensity(mid, 10, 4) > 0.2 * normalDensity(mid, 40, 8) ? low : high) = mid;
    }
    const GaussianSplit split = emThreshold(histogram);
    EXPECT_TRUE(split.converged);
    EXPECT_NEAR(split.threshold, low, 0.5);
    EXPECT_NEAR(split.weight[1], 0.2, 0.01);
    EXPECT_NEAR(split.mean[0], 10, 0.2);
    EXPECT_NEAR(split.sigma[1], 8, 0.3);
}

TEST(Thresholds, SplitBasedSelectionKeepsTheTilesThatStraddleTheEdge)
{
    // Left half dark water, right half bright land, a little texture: only the tiles cut by the shore vary much.
    const int width = 64, height = 32, tile = 8;
    TileStatistics tiles(width, height, tile);
    std::vector<float> row(width);
    for (int y = 0; y < height; ++y)
    {
        for (int x = 0; x < width; ++x)
            row[size_t(x)] = (x < 36 ? -22.0f : -8.0f) + float((x * 7 + y * 3) % 5) * 0.2f;
        tiles.addRow(y, row.data());
    }
    const std::vector<char> selected = tiles.selectBimodal(0.1, 4);
    for (int t = 0; t < tiles.tileCount(); ++t)
        EXPECT_EQ(bool(selected[size_t(t)]), t % (width / tile) == 4) << "tile " << t;
}

TEST(IrMad, FirstPassCorrelationOfOneBandIsPearsons)
{
    std::mt19937 random(3);
    std::normal_distribution<float> normal(0, 1);
    std::vector<float> x(500), y(500);
    for (size_t i = 0; i < x.size(); ++i)
    {
        x[i] = 100 + 10 * normal(random);
        y[i] = 0.5f * x[i] + 3 * normal(random);
    }
    double mx = 0, my = 0;
    for (size_t i = 0; i < x.size(); ++i)
        mx += x[i], my += y[i];
    mx /= x.size(), my /= y.size();
    double sxy = 0, sxx = 0, syy = 0;
    for (size_t i = 0; i < x.size(); ++i)
        sxy += (x[i] - mx) * (y[i] - my), sxx += (x[i] - mx) * (x[i] - mx), syy += (y[i] - my) * (y[i] - my);
    const MadTransform t = fitIrMad(x.data(), y.data(), x.size(), 1, 1);
    EXPECT_NEAR(t.rho[0], sxy / std::sqrt(sxx * syy), 1e-9);
    // Gaussian pixels: the robust scale of the variate is close to its standard deviation sqrt(2 (1 - rho)).
    EXPECT_NEAR(t.sigma[0], std::sqrt(2 * (1 - t.rho[0])), 0.1 * std::sqrt(2 * (1 - t.rho[0])));
}

TEST(IrMad, GainAndOffsetLeaveTheStatisticUnchangedAndNoChangeWeightsUniform)
{
    // Three correlated bands; the second date is the first with noise, then each band under its own gain and offset.
    // 2 % of the pixels carry a planted change.
    const int bands = 3;
    const size_t count = 20000;
    std::mt19937 random(5);
    std::normal_distribution<float> normal(0, 1);
    std::vector<float> x(count * bands), y(count * bands), scaled(count * bands);
    const float gain[3] = {1.7f, 0.6f, 2.2f}, offset[3] = {-30.f, 12.f, 5.f};
    for (size_t p = 0; p < count; ++p)
    {
        const float common = 50 * normal(random);
        const bool planted = p % 50 == 0;
        for (int b = 0; b < bands; ++b)
        {
            x[p * bands + b] = 300 + common + 20 * b * normal(random);
            y[p * bands + b] = x[p * bands + b] + 5 * normal(random) + (planted ? 120.f * (b + 1) : 0.f);
            scaled[p * bands + b] = gain[b] * y[p * bands + b] + offset[b];
        }
    }
    std::vector<double> weights, scaledWeights;
    const MadTransform plain = fitIrMad(x.data(), y.data(), count, bands, 50, 1e-6, &weights);
    const MadTransform affine = fitIrMad(x.data(), scaled.data(), count, bands, 50, 1e-6, &scaledWeights);
    EXPECT_TRUE(plain.converged);
    std::vector<double> mad(bands);
    // The scaled date is stored as float: agreement to float precision.
    for (size_t p = 0; p < count; p += 97)
    {
        const double z = plain.apply(&x[p * bands], &y[p * bands], mad.data());
        EXPECT_NEAR(z, affine.apply(&x[p * bands], &scaled[p * bands], mad.data()), 1e-4 * (1 + z));
    }
    double unchangedMean = 0, plantedMax = 0, unchanged = 0, below1Percent = 0;
    for (size_t p = 0; p < count; ++p)
    {
        if (p % 50 == 0)
            plantedMax = std::max(plantedMax, weights[p]);
        else
        {
            unchangedMean += weights[p];
            below1Percent += weights[p] < 0.01;
            unchanged += 1;
        }
    }
    // Unchanged pixels: chi-square distributed statistic, so their no-change probability is uniform on [0, 1].
    EXPECT_NEAR(unchangedMean / unchanged, 0.5, 0.03);
    EXPECT_NEAR(below1Percent / unchanged, 0.01, 0.006);
    EXPECT_LT(plantedMax, 1e-6);
}

TEST(IrMad, ChiSquareHelpersAgreeWithKnownValues)
{
    // Tabulated: P(chi2_3 > 7.814728) = 0.05, P(chi2_1 > 6.634897) = 0.01.
    EXPECT_NEAR(chiSquareSurvival(7.814728, 3), 0.05, 1e-6);
    EXPECT_NEAR(chiSquareQuantile(0.99, 1), 6.634897, 1e-5);
    EXPECT_EQ(chiSquareSurvival(0.0, 2), 1.0);
}

TEST(ChangeMeasures, EachMethodAgainstItsFormula)
{
    const float before[] = {100, 50, 10, 0, 5, 5};
    const float after[] = {130, 10, 10, 0, 9, 2};
    const unsigned char valid[] = {1, 1, 0};
    float magnitude[3], direction[3];
    changeMagnitude(ChangeMethod::Difference, before, after, valid, 3, 2, magnitude, nullptr);
    EXPECT_FLOAT_EQ(magnitude[0], float(std::sqrt((30.0 * 30 + 40.0 * 40) / 2)));
    EXPECT_FLOAT_EQ(magnitude[1], 0.0f);
    EXPECT_TRUE(std::isnan(magnitude[2]));
    changeMagnitude(ChangeMethod::Cva, before, after, valid, 3, 2, magnitude, direction);
    EXPECT_FLOAT_EQ(magnitude[0], 50.0f);
    EXPECT_NEAR(direction[0], 360.0 - std::atan2(40.0, 30.0) * 180 / M_PI, 1e-4);
    changeMagnitude(ChangeMethod::Ratio, before, after, valid, 3, 2, magnitude, nullptr);
    EXPECT_NEAR(magnitude[0], ((1 - 100.0 / 130) + (1 - 10.0 / 50)) / 2, 1e-6);
    changeMagnitude(ChangeMethod::LogRatio, before, after, valid, 3, 2, magnitude, nullptr);
    EXPECT_NEAR(magnitude[0], (std::log(130.0 / 100) + std::log(50.0 / 10)) / 2, 1e-6);
}

TEST(SpectralBands, WavelengthsThenNamesThenBandOrder)
{
    auto labels = [](std::vector<double> nm) {
        std::vector<BandLabel> out;
        for (double w : nm)
            out.push_back(BandLabel{w, {}, {}});
        return out;
    };
    // Sentinel-2 centres (nm), shuffled order: red B4 665, NIR B8 842 (not B8A 865 nor red edge 783), SWIR B11 1610.
    OpticalBands s2 = findOpticalBands(labels({842, 490, 560, 665, 705, 740, 783, 865, 1610, 2190}));
    EXPECT_EQ(s2.red, 3);
    EXPECT_EQ(s2.nir, 0);
    EXPECT_EQ(s2.green, 2);
    EXPECT_EQ(s2.swir, 8);
    EXPECT_EQ(s2.source, "wavelength");
    std::vector<BandLabel> named = {{-1, "Blue", {}}, {-1, "NIR", {}}, {-1, "Red edge", {}}, {-1, "Red", {}}};
    OpticalBands byName = findOpticalBands(named);
    EXPECT_EQ(byName.red, 3);
    EXPECT_EQ(byName.nir, 1);
    const struct
    {
        int count, green, red, nir, swir;
    } orders[] = {{4, 1, 2, 3, -1}, {5, 1, 2, 4, -1}, {6, 1, 2, 3, 4}, {11, 2, 3, 4, 5}, {13, 2, 3, 7, 11}, {3, -1, -1, -1, -1}};
    for (const auto& row : orders)
    {
        const OpticalBands found = findOpticalBands(std::vector<BandLabel>(size_t(row.count)));
        EXPECT_EQ(found.green, row.green) << row.count << " bands";
        EXPECT_EQ(found.red, row.red) << row.count << " bands";
        EXPECT_EQ(found.nir, row.nir) << row.count << " bands";
        EXPECT_EQ(found.swir, row.swir) << row.count << " bands";
    }
}

TEST(UnionRule, ParsesGroupsAndSaysWhatIsWrong)
{
    const UnionRule rule = parseUnionRule(" 1, 2 -> 1 ; 3,4,5->2;");
    EXPECT_TRUE(rule.error.isEmpty());
    const std::map<long long, long long> expected = {{1, 1}, {2, 1}, {3, 2}, {4, 2}, {5, 2}};
    EXPECT_EQ(rule.target, expected);
    const struct
    {
        const char* text;
        const char* error;
    } bad[] = {{"", "names no class"},
               {"1,2", "has a group without one \"->\": 1,2"},
               {"1->2->3", "has a group without one \"->\": 1->2->3"},
               {"a,2->1", "has a class that is not a whole number: a"},
               {"1,2->x", "has a target that is not a whole number: x"},
               {"1->2;1->3", "sends class 1 to both 2 and 3"}};
    for (const auto& row : bad)
        EXPECT_EQ(parseUnionRule(row.text).error.toStdString(), row.error) << row.text;
}
