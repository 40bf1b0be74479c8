// Otsu's split and the tile-based choice of a water threshold on simulated dB histograms.
#include "water_threshold.h"

#include <gtest/gtest.h>

#include <random>

using namespace sar;

namespace
{

// n samples of a normal distribution in dB.
void addNormal(Histogram& histogram, double mean, double sd, int n, std::mt19937& random)
{
    std::normal_distribution<double> normal(mean, sd);
    for (int i = 0; i < n; ++i)
        histogram.add(normal(random));
}

} // namespace

TEST(WaterThreshold, OtsuSplitsTwoModesAndRecognisesOne)
{
    std::mt19937 random(5);
    Histogram bimodal;
    addNormal(bimodal, -21.0, 1.5, 4000, random);
    addNormal(bimodal, -9.0, 2.0, 6000, random);
    const Split split = otsuSplit(bimodal);
    // Two well-separated classes: the threshold lies between them; by hand Ashman's D = sqrt2 * 12 / 2.5 = 6.8.
    EXPECT_GT(split.threshold, -18.0);
    EXPECT_LT(split.threshold, -12.0);
    EXPECT_TRUE(split.bimodal);
    EXPECT_NEAR(split.ashmanD, 6.8, 0.7);
    EXPECT_NEAR(split.smallerShare, 0.4, 0.02);

    Histogram land;
    addNormal(land, -9.0, 2.0, 10000, random);
    EXPECT_FALSE(otsuSplit(land).bimodal);

    Histogram empty;
    EXPECT_FALSE(otsuSplit(empty).bimodal);
}

TEST(WaterThreshold, SplitBasedThresholdComesFromTheBimodalTiles)
{
    std::mt19937 random(9);
    // Six land tiles, two shore tiles: pooling only the shore tiles puts the threshold between water and land;
    // Otsu on all of them together would be pulled by the heavy land mode.
    std::vector<Histogram> tiles(8);
    for (int t = 0; t < 6; ++t)
        addNormal(tiles[t], -8.0, 2.5, 4000, random);
    for (int t = 6; t < 8; ++t)
    {
        addNormal(tiles[t], -22.0, 1.5, 2000, random);
        addNormal(tiles[t], -8.0, 2.5, 2000, random);
    }
    int used = 0;
    const double threshold = splitBasedThreshold(tiles, &used);
    EXPECT_EQ(used, 2);
    EXPECT_GT(threshold, -18.5);
    EXPECT_LT(threshold, -13.0);

    // No bimodal tile: Otsu over everything.
    std::vector<Histogram> plain(tiles.begin(), tiles.begin() + 6);
    splitBasedThreshold(plain, &used);
    EXPECT_EQ(used, 0);
}

TEST(WaterThreshold, HierarchicalSearchDescendsToTheShoreQuarter)
{
    std::mt19937 random(11);
    // 4 x 4 leaves of land; a lake fills one leaf of the top-left quarter. The whole image and the other quarters
    // are not bimodal (the lake is under 10 % of the image); the top-left quarter, a quarter lake, is.
    std::vector<Histogram> leaves(16);
    for (int i = 0; i < 16; ++i)
    {
        const bool lake = i == 5;
        if (lake)
            addNormal(leaves[size_t(i)], -22.0, 1.5, 1000, random);
        else
            addNormal(leaves[size_t(i)], -8.0, 2.5, 1000, random);
    }
    Histogram whole, corner;
    for (const Histogram& leaf : leaves)
        whole.merge(leaf);
    for (int i : {0, 1, 4, 5})
        corner.merge(leaves[size_t(i)]);
    ASSERT_FALSE(otsuSplit(whole).bimodal);
    ASSERT_TRUE(otsuSplit(corner).bimodal);
    int parts = 0, covered = 0;
    const double threshold = hierarchicalSplitThreshold(leaves, 4, 4, &parts, &covered);
    EXPECT_EQ(parts, 1);
    EXPECT_EQ(covered, 4);
    EXPECT_DOUBLE_EQ(threshold, otsuSplit(corner).threshold); // Otsu of exactly that quarter
    EXPECT_GT(threshold, -18.5);
    EXPECT_LT(threshold, -12.0);

    // Odd grids split unevenly and still visit every leaf once: a lone bimodal leaf at the far corner of 3 x 3.
    std::vector<Histogram> odd(9);
    for (int i = 0; i < 9; ++i)
        addNormal(odd[size_t(i)], -8.0, 2.5, 1000, random);
    addNormal(odd[8], -22.0, 1.5, 1000, random);
    hierarchicalSplitThreshold(odd, 3, 3, &parts, &covered);
    EXPECT_EQ(parts, 1);
    EXPECT_EQ(covered, 1);

    // Nothing bimodal: Otsu of everything, as the flat search does.
    std::vector<Histogram> land(leaves.begin(), leaves.begin() + 4);
    EXPECT_DOUBLE_EQ(hierarchicalSplitThreshold(land, 2, 2, &parts), splitBasedThreshold(land));
    EXPECT_EQ(parts, 0);
}
