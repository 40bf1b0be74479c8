// Otsu and split-based thresholds.
#include "water_threshold.h"

#include <algorithm>
#include <cmath>

namespace sar
{

Histogram::Histogram(double low, double high, int bins)
    : m_low(low), m_width((high - low) / bins), m_counts(size_t(bins), 0.0)
{
}

void Histogram::add(double value)
{
    if (std::isnan(value))
        return;
    const double position = (value - m_low) / m_width;
    const int bin = position <= 0.0 ? 0 : int(std::min(position, double(m_counts.size() - 1)));
    m_counts[size_t(bin)] += 1.0;
    m_total += 1.0;
}

void Histogram::merge(const Histogram& other)
{
    for (size_t i = 0; i < m_counts.size(); ++i)
        m_counts[i] += other.m_counts[i];
    m_total += other.m_total;
}

Split otsuSplit(const Histogram& histogram)
{
    Split split;
    const double total = histogram.total();
    if (total <= 0.0)
        return split;
    double sumAll = 0.0;
    for (int b = 0; b < histogram.bins(); ++b)
        sumAll += histogram.count(b) * histogram.centre(b);
    double below = 0.0, sumBelow = 0.0, best = -1.0;
    int bestBin = 0;
    for (int b = 0; b + 1 < histogram.bins(); ++b)
    {
        below += histogram.count(b);
        sumBelow += histogram.count(b) * histogram.centre(b);
        const double above = total - below;
        if (below <= 0.0 || above <= 0.0)
            continue;
        const double m1 = sumBelow / below, m2 = (sumAll - sumBelow) / above;
        const double between = below * above * (m1 - m2) * (m1 - m2);
        if (between > best)
        {
            best = between;
            bestBin = b;
        }
    }
    split.threshold = histogram.edge(bestBin);
    // Moments of the two classes for the bimodality test.
    double n[2] = {0, 0}, s[2] = {0, 0}, q[2] = {0, 0};
    for (int b = 0; b < histogram.bins(); ++b)
    {
        const int c = b <= bestBin ? 0 : 1;
        const double x = histogram.centre(b), w = histogram.count(b);
        n[c] += w;
        s[c] += w * x;
        q[c] += w * x * x;
    }
    if (!(n[0] > 0 && n[1] > 0))
        return split;
    // Two Gaussians fitted to the histogram by expectation-maximisation from Otsu's classes: the halves of a
    // single mode are themselves well apart, the fitted components of a single mode are not.
    double weight[2], mean[2], variance[2];
    const double floor = 1e-4;
    for (int c = 0; c < 2; ++c)
    {
        weight[c] = n[c] / total;
        mean[c] = s[c] / n[c];
        variance[c] = std::max(floor, q[c] / n[c] - mean[c] * mean[c]);
    }
    for (int iteration = 0; iteration < 100; ++iteration)
    {
        double w[2] = {0, 0}, m[2] = {0, 0}, v[2] = {0, 0};
        for (int b = 0; b < histogram.bins(); ++b)
        {
            const double count = histogram.count(b);
            if (count <= 0.0)
                continue;
            const double x = histogram.centre(b);
            double p[2];
            for (int c = 0; c < 2; ++c)
                p[c] = weight[c] * std::exp(-0.5 * (x - mean[c]) * (x - mean[c]) / variance[c]) / std::sqrt(variance[c]);
            const double sum = p[0] + p[1];
            if (!(sum > 0.0))
                continue;
            for (int c = 0; c < 2; ++c)
            {
                const double r = count * p[c] / sum;
                w[c] += r;
                m[c] += r * x;
                v[c] += r * x * x;
            }
        }
        for (int c = 0; c < 2; ++c)
        {
            if (!(w[c] > 0.0))
                return split;
            weight[c] = w[c] / total;
            mean[c] = m[c] / w[c];
            variance[c] = std::max(floor, v[c] / w[c] - mean[c] * mean[c]);
        }
    }
    split.ashmanD = std::sqrt(2.0) * std::fabs(mean[0] - mean[1]) / std::sqrt(variance[0] + variance[1]);
    split.smallerShare = std::min(weight[0], weight[1]);
    split.bimodal = split.ashmanD > 2.0 && split.smallerShare >= 0.1;
    return split;
}

double splitBasedThreshold(const std::vector<Histogram>& tiles, int* tilesUsed)
{
    Histogram pooled, all;
    int used = 0;
    for (const Histogram& tile : tiles)
    {
        all.merge(tile);
        if (tile.total() >= 100 && otsuSplit(tile).bimodal)
        {
            pooled.merge(tile);
            ++used;
        }
    }
    if (tilesUsed)
        *tilesUsed = used;
    return otsuSplit(used ? pooled : all).threshold;
}

namespace
{

struct QuadSearch
{
    const std::vector<Histogram>& leaves;
    int columns;
    Histogram pooled;
    int parts = 0;
    int covered = 0;

    // Leaves [c0, c1) x [r0, r1): pooled when bimodal, else searched quarter by quarter.
    void visit(int c0, int c1, int r0, int r1)
    {
        if (c0 >= c1 || r0 >= r1)
            return;
        Histogram part;
        for (int r = r0; r < r1; ++r)
            for (int c = c0; c < c1; ++c)
                part.merge(leaves[size_t(r) * size_t(columns) + size_t(c)]);
        if (part.total() >= 100 && otsuSplit(part).bimodal)
        {
            pooled.merge(part);
            ++parts;
            covered += (c1 - c0) * (r1 - r0);
            return;
        }
        if (c1 - c0 == 1 && r1 - r0 == 1)
            return;
        const int cm = (c0 + c1 + 1) / 2, rm = (r0 + r1 + 1) / 2;
        visit(c0, cm, r0, rm);
        visit(cm, c1, r0, rm);
        visit(c0, cm, rm, r1);
        visit(cm, c1, rm, r1);
    }
};

} // namespace

double hierarchicalSplitThreshold(const std::vector<Histogram>& leaves, int columns, int rows, int* tilesUsed,
                                  int* leavesUsed)
{
    QuadSearch search{leaves, columns, Histogram(), 0, 0};
    if (columns > 0 && rows > 0 && leaves.size() == size_t(columns) * size_t(rows))
        search.visit(0, columns, 0, rows);
    if (tilesUsed)
        *tilesUsed = search.parts;
    if (leavesUsed)
        *leavesUsed = search.covered;
    if (search.parts)
        return otsuSplit(search.pooled).threshold;
    Histogram all;
    for (const Histogram& leaf : leaves)
        all.merge(leaf);
    return otsuSplit(all).threshold;
}

} // namespace sar
