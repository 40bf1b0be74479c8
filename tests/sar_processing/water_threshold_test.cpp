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
