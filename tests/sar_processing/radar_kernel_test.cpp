// The vectorised dB and multilook kernels against the C library in double precision and a brute-force cell mean.
#include "radar_kernels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

using namespace sar;

TEST(RadarKernels, DecibelsMatchDoublePrecisionLog10)
{
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
    std::vector<float> in = {1.0f, 10.0f, 100.0f, 0.5f, 2.0f, 0.70710677f, 0.70710683f, 1.4142135f,
                             std::numeric_limits<float>::min(), std::numeric_limits<float>::denorm_min(), 1e-40f,
                             std::numeric_limits<float>::max(), 0.0f, -0.0f, -3.0f, nan, inf, -inf};
    std::mt19937 random(3);
    std::uniform_real_distribution<double> exponent(-38.0, 38.0);
    for (int i = 0; i < 20000; ++i)
        in.push_back(float(std::pow(10.0, exponent(random))));
    for (float factor : {10.0f, 20.0f})
    {
        std::vector<float> out(in.size());
        decibels(in.data(), out.data(), in.size(), factor);
        for (size_t i = 0; i < in.size(); ++i)
        {
            const float v = in[i];
            if (!(v > 0.0f))
                EXPECT_TRUE(std::isnan(out[i])) << v;
            else if (std::isinf(v))
                EXPECT_EQ(out[i], inf);
            else
            {
                const double exact = factor * std::log10(double(v));
                // A few float roundings of the result: far below what a dB image resolves.
                EXPECT_NEAR(out[i], exact, 4e-7 * std::max(1.0, std::abs(exact))) << v;
            }
        }
    }
    // In place, as the plug-in calls it, and exact on powers of ten that matter to users.
    std::vector<float> same = {1.0f, 10.0f, 1000.0f, 1e-3f};
    decibels(same.data(), same.data(), same.size(), 10.0f);
    EXPECT_FLOAT_EQ(same[0], 0.0f);
    EXPECT_FLOAT_EQ(same[1], 10.0f);
    EXPECT_FLOAT_EQ(same[2], 30.0f);
    EXPECT_FLOAT_EQ(same[3], -30.0f);
}

TEST(RadarKernels, CellMeansSkipNonFiniteSamplesLikeABruteForceMean)
{
    const int width = 23, lines = 3, looks = 4, outWidth = width / looks; // the last 3 columns are left over
    std::mt19937 random(5);
    std::exponential_distribution<float> speckle(1.0f);
    std::vector<float> in(size_t(width) * lines);
    for (float& v : in)
        v = speckle(random);
    in[1] = std::numeric_limits<float>::quiet_NaN();
    in[size_t(width) + 2] = std::numeric_limits<float>::infinity();
    for (int y = 0; y < lines; ++y) // cell 2 holds nothing finite
        for (int x = 8; x < 12; ++x)
            in[size_t(y) * width + x] = std::numeric_limits<float>::quiet_NaN();

    std::vector<double> sums(width, 0.0);
    std::vector<int> counts(width, 0);
    accumulateCellLines(in.data(), width, lines, sums.data(), counts.data());
    std::vector<float> out(outWidth);
    cellMeans(sums.data(), counts.data(), looks, outWidth, out.data());
    for (int c = 0; c < outWidth; ++c)
    {
        double sum = 0.0;
        int count = 0;
        for (int y = 0; y < lines; ++y)
            for (int x = c * looks; x < (c + 1) * looks; ++x)
                if (std::isfinite(in[size_t(y) * width + x]))
                {
                    sum += in[size_t(y) * width + x];
                    ++count;
                }
        if (count == 0)
            EXPECT_TRUE(std::isnan(out[size_t(c)])) << c;
        else
            EXPECT_FLOAT_EQ(out[size_t(c)], float(sum / count)) << c;
    }
    EXPECT_EQ(counts[0], 3);
    EXPECT_EQ(counts[1], 2);
    EXPECT_EQ(counts[2], 2);
}
