// The sliding-window majority/minority vote against a direct count of every window.
#include "majority_kernel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

namespace
{

// The rule as written: counts of the window (centre counted centreWeight times), the extreme count, ties to
// the centre, else to the lowest class value.
int directVote(const mma::VoteRule& rule, const std::vector<int>& image, int width, int first, int rowCount, int x, int y)
{
    auto votes = [&](int v) { return v >= 0 && v < int(rule.votes.size()) && rule.votes[size_t(v)]; };
    const int centre = image[size_t(y - first) * width + x];
    if (!votes(centre))
        return centre;
    std::map<int, int> counts;
    for (int yy = std::max(first, y - rule.rowRadius); yy <= std::min(first + rowCount - 1, y + rule.rowRadius); ++yy)
        for (int xx = std::max(0, x - rule.columnRadius); xx <= std::min(width - 1, x + rule.columnRadius); ++xx)
        {
            const int v = image[size_t(yy - first) * width + xx];
            if (votes(v))
                counts[v] += (xx == x && yy == y) ? rule.centreWeight : 1;
        }
    int extreme = counts[centre];
    for (const auto& [v, n] : counts)
        extreme = rule.minority ? std::min(extreme, n) : std::max(extreme, n);
    if (counts[centre] == extreme)
        return centre;
    for (const auto& [v, n] : counts) // ascending class values
        if (n == extreme)
            return v;
    return centre;
}

TEST(MajorityKernel, EqualsTheDirectCountOfEveryWindow)
{
    std::mt19937 random(3);
    const int width = 23, rows = 9;
    std::vector<int> image(size_t(width) * rows);
    for (int& v : image)
        v = int(random() % 6) - 1; // -1 and 5 are not voting classes below
    for (int radius : {0, 1, 2, 4})
        for (int weight : {1, 3})
            for (bool minority : {false, true})
            {
                mma::VoteRule rule;
                rule.rowRadius = radius;
                rule.columnRadius = radius + 1; // rectangular windows too
                rule.centreWeight = weight;
                rule.minority = minority;
                rule.votingClasses = {0, 1, 2, 4};
                rule.votes = {1, 1, 1, 0, 1};
                std::vector<int> histogram(rule.votes.size(), 0);
                std::vector<int> out(static_cast<size_t>(width));
                for (int y = 0; y < rows; ++y)
                {
                    mma::voteRow(rule, image.data(), 0, rows, width, y, out.data(), histogram);
                    for (int x = 0; x < width; ++x)
                        ASSERT_EQ(out[size_t(x)], directVote(rule, image, width, 0, rows, x, y))
                            << "radius " << radius << " weight " << weight << " minority " << minority << " at " << x
                            << "," << y;
                    ASSERT_EQ(std::count(histogram.begin(), histogram.end(), 0), long(histogram.size()));
                }
            }
}

} // namespace
