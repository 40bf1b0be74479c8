// Kernels of the data utilities on small arrays: the band-selection text and the clip stretch.
#include "band_groups.h"
#include "clip_stretch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace datautil;

TEST(BandGroups, GroupsPerInputAndAllBandsWhenEmpty)
{
    struct Row
    {
        const char* text;
        std::vector<std::vector<int>> groups;
    };
    const Row rows[] = {
        {"", {}},
        {"   ", {}},
        {"3", {{3}}},
        {"1,2|3", {{1, 2}, {3}}},
        {" 4 , 1 |  | 2", {{4, 1}, {}, {2}}},
        {"|", {{}, {}}},
        {"2,2", {{2, 2}}}, // a band may be taken twice
    };
    for (const Row& row : rows)
    {
        const BandGroups parsed = parseBandGroups(row.text);
        EXPECT_EQ(parsed.error, "") << row.text;
        EXPECT_EQ(parsed.groups, row.groups) << row.text;
    }
}

TEST(BandGroups, RefusalsQuoteTheItem)
{
    const std::pair<const char*, const char*> rows[] = {
        {"1,a|2", "\"a\" is not a band number"},
        {"0", "\"0\" is not a band number"},
        {"-1", "\"-1\" is not a band number"},
        {"1,,2", "\"\" is not a band number"},
        {"1.5", "\"1.5\" is not a band number"},
        {"99999999999999999999", "\"99999999999999999999\" is not a band number"},
    };
    for (const auto& row : rows)
    {
        const BandGroups parsed = parseBandGroups(row.first);
        EXPECT_EQ(parsed.error, row.second) << row.first;
        EXPECT_TRUE(parsed.groups.empty());
    }
}

TEST(BandGroups, BandsOfAnInput)
{
    const BandGroups parsed = parseBandGroups("3,1||");
    int bad = 0;
    EXPECT_EQ(bandsOfInput(parsed, 0, 3, &bad), (std::vector<int>{3, 1}));
    EXPECT_EQ(bandsOfInput(parsed, 1, 2, &bad), (std::vector<int>{1, 2})) << "empty group: all";
    EXPECT_EQ(bandsOfInput(parsed, 5, 1, &bad), (std::vector<int>{1})) << "no group: all";
    EXPECT_TRUE(bandsOfInput(parsed, 0, 2, &bad).empty());
    EXPECT_EQ(bad, 3);
}

// The percentiles of the clip stretch against a sort of the values themselves.
TEST(ClipStretch, PercentilesAgreeWithASortedSample)
{
    std::mt19937 random(7);
    std::normal_distribution<double> normal(100.0, 20.0);
    std::vector<double> values(20000);
    for (double& v : values)
        v = normal(random);
    const double lo = *std::min_element(values.begin(), values.end());
    const double hi = *std::max_element(values.begin(), values.end());
    const int buckets = 1024;
    std::vector<std::uint64_t> counts(buckets, 0);
    for (double v : values)
        ++counts[std::min(buckets - 1, int((v - lo) / (hi - lo) * buckets))];
    const StretchRange range = clipRange(counts, lo, hi, 0.02);
    std::sort(values.begin(), values.end());
    const double bucket = (hi - lo) / buckets;
    EXPECT_NEAR(range.low, values[size_t(0.02 * values.size())], bucket);
    EXPECT_NEAR(range.high, values[size_t(0.98 * values.size())], bucket);
}

TEST(ClipStretch, FlatAndEmptyHistograms)
{
    // All pixels in one bucket: both ends fall inside it, interpolated.
    const StretchRange one = clipRange({0, 10, 0, 0}, 0.0, 4.0, 0.02);
    EXPECT_NEAR(one.low, 1.02, 1e-12);
    EXPECT_NEAR(one.high, 1.98, 1e-12);
    // A clip of one half meets in the middle: the range stays one bucket wide.
    const StretchRange met = clipRange({0, 10, 0, 0}, 0.0, 4.0, 0.5);
    EXPECT_DOUBLE_EQ(met.high - met.low, 1.0);
    const StretchRange none = clipRange({0, 0}, 5.0, 7.0, 0.02);
    EXPECT_DOUBLE_EQ(none.low, 5.0);
    EXPECT_DOUBLE_EQ(none.high, 7.0);
    // 100 values 0..99 one per bucket: 2 % lie below 2, 2 % above 98.
    const StretchRange even = clipRange(std::vector<std::uint64_t>(100, 1), -0.5, 99.5, 0.02);
    EXPECT_NEAR(even.low, 1.5, 1e-9);
    EXPECT_NEAR(even.high, 97.5, 1e-9);
}
