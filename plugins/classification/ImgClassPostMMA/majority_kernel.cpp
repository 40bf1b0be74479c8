// The majority/minority vote of one row over a sliding window histogram.
#include "majority_kernel.h"

#include <algorithm>

namespace mma
{

void voteRow(const VoteRule& rule, const int* values, int first, int rowCount, int width, int y, int* out,
             std::vector<int>& histogram)
{
    const int classLimit = int(rule.votes.size());
    const int top = std::max(first, y - rule.rowRadius);
    const int bottom = std::min(first + rowCount - 1, y + rule.rowRadius);
    auto isClass = [&](int v) { return v >= 0 && v < classLimit && rule.votes[size_t(v)]; };
    auto addColumn = [&](int x, int delta) {
        for (int yy = top; yy <= bottom; ++yy)
        {
            const int v = values[size_t(yy - first) * size_t(width) + size_t(x)];
            if (isClass(v))
                histogram[size_t(v)] += delta;
        }
    };
    for (int x = 0; x <= std::min(width - 1, rule.columnRadius); ++x)
        addColumn(x, 1);
    const int* row = values + size_t(y - first) * size_t(width);
    for (int x = 0; x < width; ++x)
    {
        const int centre = row[x];
        out[x] = centre;
        if (isClass(centre))
        {
            histogram[size_t(centre)] += rule.centreWeight - 1;
            // The extreme count; ties keep the centre when it is among them, else the lowest class value.
            int best = -1, bestCount = 0;
            for (int v : rule.votingClasses)
            {
                const int count = histogram[size_t(v)];
                if (count == 0)
                    continue;
                if (best < 0 || (rule.minority ? count < bestCount : count > bestCount))
                {
                    best = v;
                    bestCount = count;
                }
            }
            out[x] = histogram[size_t(centre)] == bestCount ? centre : best;
            histogram[size_t(centre)] -= rule.centreWeight - 1;
        }
        if (x - rule.columnRadius >= 0)
            addColumn(x - rule.columnRadius, -1);
        if (x + rule.columnRadius + 1 < width)
            addColumn(x + rule.columnRadius + 1, 1);
    }
    // The columns still counted leave the histogram as it came.
    for (int x = std::max(0, width - rule.columnRadius); x < width; ++x)
        addColumn(x, -1);
}

} // namespace mma
