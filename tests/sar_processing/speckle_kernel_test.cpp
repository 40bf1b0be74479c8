// Speckle kernels on simulated gamma speckle over known reflectivity: mean kept, ENL raised, edges kept; Lee,
// Kuan, Frost and Gamma MAP against direct evaluations of their formulas; blocks with halos equal one whole block.
#include "speckle_filters.h"

#include <gtest/gtest.h>

#include <boost/math/special_functions/gamma.hpp>

#include <cmath>
#include <cstdio>
#include <functional>
#include <random>
#include <vector>

using namespace sar;

namespace
{

// L-look intensity speckle (gamma, mean 1) times reflectivity(x, y).
std::vector<float> speckled(int width, int height, double looks, const std::function<double(int, int)>& reflectivity,
                            unsigned seed = 7)
{
    std::mt19937 random(seed);
    std::gamma_distribution<double> gamma(looks, 1.0 / looks);
    std::vector<float> image(size_t(width) * height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image[size_t(y) * width + x] = float(reflectivity(x, y) * gamma(random));
    return image;
}

std::vector<float> filtered(const std::vector<float>& image, int width, int height, const SpeckleSettings& settings)
{
    std::vector<float> out(image.size());
    SpeckleBlockFilter(image.data(), width, height, settings).filterRows(0, height, out.data());
    return out;
}

struct Stats
{
    double mean = 0.0;
    double enl = 0.0;
};

Stats statsOf(const std::vector<float>& image, int width, int x0, int x1, int y0, int y1)
{
    double sum = 0.0, squares = 0.0;
    int n = 0;
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
        {
            const double v = image[size_t(y) * width + x];
            sum += v;
            squares += v * v;
            ++n;
        }
    const double mean = sum / n;
    return {mean, mean * mean / (squares / n - mean * mean)};
}

SpeckleSettings settingsFor(SpeckleFilter filter, int window, double looks)
{
    SpeckleSettings settings;
    settings.filter = filter;
    settings.window = window;
    settings.looks = looks;
    return settings;
}

} // namespace

TEST(SpeckleFilters, KeepTheMeanRaiseTheLooksAndKeepAnEdge)
{
    // Homogeneous scenes of reflectivity 5 (one and four looks) and a vertical step 1 | 10 at x = 60 (four looks).
    const int width = 160, height = 160, edge = 60;
    const std::vector<float> single = speckled(width, height, 1.0, [](int, int) { return 5.0; });
    const std::vector<float> four = speckled(width, height, 4.0, [](int, int) { return 5.0; }, 5);
    const std::vector<float> step = speckled(width, height, 4.0, [&](int x, int) { return x < edge ? 1.0 : 10.0; }, 11);
    struct Row
    {
        SpeckleFilter filter;
        double singleLookMeanTolerance;
        double minimumEnl; // single look in, 7 x 7 window
        bool keepsEdges;
    } rows[] = {
        // The median of single-look speckle sits at ln 2 of the mean; Gamma MAP's estimate is a posterior mode.
        {SpeckleFilter::Boxcar, 0.02, 30.0, false},   {SpeckleFilter::Median, 1.0, 8.0, false},
        {SpeckleFilter::Lee, 0.02, 15.0, true},       {SpeckleFilter::RefinedLee, 0.02, 8.0, true},
        {SpeckleFilter::Frost, 0.02, 8.0, true},    {SpeckleFilter::Kuan, 0.02, 15.0, true},
        {SpeckleFilter::GammaMap, 0.05, 15.0, true},  {SpeckleFilter::LeeSigma, 0.02, 6.0, true},
        {SpeckleFilter::Idan, 0.02, 6.0, true},
    };
    const Stats before = statsOf(single, width, 10, width - 10, 10, height - 10);
    const Stats beforeFour = statsOf(four, width, 10, width - 10, 10, height - 10);
    EXPECT_NEAR(before.enl, 1.0, 0.1);
    const std::vector<float> boxcarStep = filtered(step, width, height, settingsFor(SpeckleFilter::Boxcar, 7, 4.0));
    const double dark = statsOf(boxcarStep, width, 10, edge - 10, 10, height - 10).mean;
    const double boxcarExcess = statsOf(boxcarStep, width, edge - 2, edge - 1, 10, height - 10).mean - dark;
    EXPECT_NEAR(boxcarExcess / dark, 18.0 / 7.0, 0.2); // two bright columns of seven: (5 + 2 x 10) / 7 - 1
    for (const Row& row : rows)
    {
        const char* name = kSpeckleFilterNames[int(row.filter)];
        const Stats after = statsOf(filtered(single, width, height, settingsFor(row.filter, 7, 1.0)), width, 10,
                                    width - 10, 10, height - 10);
        EXPECT_NEAR(after.mean / before.mean, 1.0, row.singleLookMeanTolerance) << name;
        EXPECT_GT(after.enl, row.minimumEnl) << name;
        if (row.filter != SpeckleFilter::Median)
        {
            const Stats afterFour = statsOf(filtered(four, width, height, settingsFor(row.filter, 7, 4.0)), width, 10,
                                            width - 10, 10, height - 10);
            EXPECT_NEAR(afterFour.mean / beforeFour.mean, 1.0, 0.02) << name << " (four looks)";
        }

        // Two columns inside the dark side of the step: an edge-keeping filter lets in less than a third of what
        // the box lets in; every filter lets in less than the box.
        const std::vector<float> out = filtered(step, width, height, settingsFor(row.filter, 7, 4.0));
        const double excess = statsOf(out, width, edge - 2, edge - 1, 10, height - 10).mean - dark;
        if (row.keepsEdges)
        {
            EXPECT_LT(excess, boxcarExcess / 3.0) << name;
        }
        if (row.filter != SpeckleFilter::Boxcar)
        {
            EXPECT_LT(excess, 0.9 * boxcarExcess) << name;
        }
        std::printf("%-10s single look: mean ratio %.3f, ENL %.1f; edge: %.2f of the box's spill\n", name,
                    after.mean / before.mean, after.enl, excess / boxcarExcess);
    }
}

TEST(SpeckleFilters, EqualDirectEvaluationsOfTheirFormulas)
{
    // A small textured scene with a hole of no data and a bright point; 4 looks.
    const int width = 23, height = 19;
    std::vector<float> image = speckled(width, height, 4.0, [](int x, int y) { return 2.0 + (x > 11) * 6.0 + (y % 7 == 0); }, 3);
    image[size_t(5) * width + 6] = NAN;
    image[size_t(12) * width + 15] = 400.0f;
    const double looks = 4.0, cu2 = 1.0 / looks, damping = 0.1;
    const int window = 5, half = 2;
    for (SpeckleFilter filter : {SpeckleFilter::Lee, SpeckleFilter::Kuan, SpeckleFilter::Frost, SpeckleFilter::GammaMap})
    {
        SpeckleSettings settings = settingsFor(filter, window, looks);
        settings.frostDamping = damping;
        const std::vector<float> out = filtered(image, width, height, settings);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
            {
                const double z = image[size_t(y) * width + x];
                const float got = out[size_t(y) * width + x];
                if (std::isnan(z))
                {
                    EXPECT_TRUE(std::isnan(got));
                    continue;
                }
                // Two-pass mean and population variance of the valid pixels of the clipped window.
                std::vector<double> values;
                std::vector<double> distances;
                for (int v = y - half; v <= y + half; ++v)
                    for (int u = x - half; u <= x + half; ++u)
                        if (u >= 0 && v >= 0 && u < width && v < height && !std::isnan(image[size_t(v) * width + u]))
                        {
                            values.push_back(image[size_t(v) * width + u]);
                            distances.push_back(std::hypot(u - x, v - y));
                        }
                double mean = 0.0, variance = 0.0;
                for (double value : values)
                    mean += value / values.size();
                for (double value : values)
                    variance += (value - mean) * (value - mean) / values.size();
                const double ci2 = variance / (mean * mean);
                double expected = 0.0;
                if (filter == SpeckleFilter::Lee)
                    expected = mean + std::clamp(1.0 - cu2 / ci2, 0.0, 1.0) * (z - mean);
                else if (filter == SpeckleFilter::Kuan)
                    expected = mean + std::clamp((1.0 - cu2 / ci2) / (1.0 + cu2), 0.0, 1.0) * (z - mean);
                else if (filter == SpeckleFilter::Frost)
                {
                    double weighted = 0.0, weights = 0.0;
                    for (size_t i = 0; i < values.size(); ++i)
                    {
                        const double w = std::exp(-damping * ci2 * distances[i]);
                        weighted += w * values[i];
                        weights += w;
                    }
                    expected = weighted / weights;
                }
                else if (ci2 <= cu2)
                    expected = mean;
                else if (ci2 >= 2.0 * cu2)
                    expected = z;
                else
                {
                    // Gamma MAP: the positive root of alpha x^2 - b m x - L m z = 0, b = alpha - L - 1.
                    const double alpha = (1.0 + cu2) / (ci2 - cu2), b = alpha - looks - 1.0;
                    expected = (b * mean + std::sqrt(b * b * mean * mean + 4.0 * alpha * looks * mean * z)) / (2.0 * alpha);
                    EXPECT_NEAR(alpha * expected * expected - b * mean * expected - looks * mean * z, 0.0, 1e-6 * mean * z);
                }
                EXPECT_NEAR(got, expected, 2e-5 * std::max(1.0, std::fabs(expected)))
                    << kSpeckleFilterNames[int(filter)] << " at " << x << "," << y;
            }
    }
}

TEST(SpeckleFilters, BlocksWithHalosEqualTheWholeImage)
{
    const int width = 40, height = 50;
    const std::vector<float> image = speckled(width, height, 2.0, [](int x, int y) { return 1.0 + ((x / 9 + y / 7) % 3); });
    for (int f = 0; f < 9; ++f)
    {
        SpeckleSettings settings = settingsFor(SpeckleFilter(f), 7, 2.0);
        settings.brightThreshold = 4.0;
        const std::vector<float> whole = filtered(image, width, height, settings);
        // Output rows 20..29 from a block holding only them and their halo.
        const int halo = speckleHalo(settings), first = 20 - halo, last = 30 + halo;
        const SpeckleBlockFilter block(image.data() + size_t(first) * width, width, last - first, settings);
        std::vector<float> part(size_t(10) * width);
        block.filterRows(20 - first, 30 - first, part.data());
        for (size_t i = 0; i < part.size(); ++i)
            ASSERT_FLOAT_EQ(part[i], whole[size_t(20) * width + i]) << kSpeckleFilterNames[f] << " pixel " << i;
    }
}

TEST(SpeckleStatistics, EstimatesTheLooksOfSimulatedSpeckle)
{
    for (double looks : {1.0, 4.0})
    {
        // Two reflectivities with a bright strip: the median over cells passes over the edge cells.
        const std::vector<float> image =
            speckled(300, 300, looks, [](int x, int y) { return (x < 150 ? 3.0 : 0.5) * (y / 30 == 4 ? 50.0 : 1.0); });
        EXPECT_NEAR(estimateLooks(image.data(), 300, 300) / looks, 1.0, 0.15) << looks;
    }
    const std::vector<float> empty(100, NAN);
    EXPECT_EQ(estimateLooks(empty.data(), 10, 10), 0.0);
}

TEST(SpeckleStatistics, SigmaRangeHoldsNinetyPercentWithUnitMean)
{
    for (double looks : {1.0, 2.0, 4.0})
    {
        const SigmaRange range = sigmaRange(looks, 0.9);
        // Independently: midpoint-rule integrals of the gamma density over the range.
        const double L = looks;
        const auto density = [&](double x) { return std::pow(L, L) * std::pow(x, L - 1) * std::exp(-L * x) / std::tgamma(L); };
        const int steps = 400000;
        const double h = (range.high - range.low) / steps;
        double p = 0.0, m1 = 0.0, m2 = 0.0;
        for (int i = 0; i < steps; ++i)
        {
            const double x = range.low + (i + 0.5) * h, w = density(x) * h;
            p += w;
            m1 += w * x;
            m2 += w * x * x;
        }
        EXPECT_NEAR(p, 0.9, 1e-4) << looks;
        EXPECT_NEAR(m1 / p, 1.0, 1e-4) << looks;
        EXPECT_NEAR(range.truncatedVariance, m2 / p - (m1 / p) * (m1 / p), 1e-4) << looks;
        EXPECT_LT(range.truncatedVariance, 1.0 / looks); // truncation lowers the speckle variance
    }
}
