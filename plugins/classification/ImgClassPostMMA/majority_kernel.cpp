// The majority/minority vote of one row: small windows counted directly, larger ones over a sliding histogram.
#include "majority_kernel.h"

#include <algorithm>

namespace mma
{

namespace
{

// Small windows: each window counted directly, only the classes met touched. Cheaper than keeping a histogram
// up to date while the window slides, whose column updates and class scan cost more than nine reads.
void voteRowDirect(const VoteRule& rule, const int* values, int first, int rowCount, int width, int y, int* out,
                   std::vector<int>& histogram)
{
    const int classLimit = int(rule.votes.size());
    const int top = std::max(first, y - rule.rowRadius);
    const int bottom = std::min(first + rowCount - 1, y + rule.rowRadius);
    auto isClass = [&](int v) { return v >= 0 && v < classLimit && rule.votes[size_t(v)]; };
    const int* row = values + size_t(y - first) * size_t(width);
    int touched[64];
    for (int x = 0; x < width; ++x)
    {
        const int centre = row[x];
        out[x] = centre;
        if (!isClass(centre))
            continue;
        int touchedCount = 0;
        const int left = std::max(0, x - rule.columnRadius), right = std::min(width - 1, x + rule.columnRadius);
        for (int yy = top; yy <= bottom; ++yy)
        {
            const int* line = values + size_t(yy - first) * size_t(width);
            for (int xx = left; xx <= right; ++xx)
            {
                const int v = line[xx];
                if (!isClass(v))
                    continue;
                if (histogram[size_t(v)]++ == 0)
                    touched[touchedCount++] = v;
            }
        }
        histogram[size_t(centre)] += rule.centreWeight - 1;
        // The extreme count; ties keep the centre when it is among them, else the lowest class value.
        int best = centre, bestCount = histogram[size_t(centre)];
        for (int i = 0; i < touchedCount; ++i)
        {
            const int v = touched[i], count = histogram[size_t(v)];
            const bool better = rule.minority ? count < bestCount : count > bestCount;
            if (better || (count == bestCount && best != centre && v < best))
            {
                best = v;
                bestCount = count;
            }
        }
        out[x] = best;
        for (int i = 0; i < touchedCount; ++i)
            histogram[size_t(touched[i])] = 0;
    }
}

} // namespace

void voteRow(const VoteRule& rule, const int* values, int first, int rowCount, int width, int y, int* out,
             std::vector<int>& histogram)
{
    if ((2 * rule.rowRadius + 1) * (2 * rule.columnRadius + 1) <= 64)
        return voteRowDirect(rule, values, first, rowCount, width, y, out, histogram);
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
