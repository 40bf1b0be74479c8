// Multi-resolution segmentation by region merging.
#include "region_merging.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace obia
{

namespace
{

constexpr double kForbidden = std::numeric_limits<double>::infinity();

double boxPerimeter(const SegmentStats& s)
{
    return 2.0 * ((s.x1 - s.x0) + (s.y1 - s.y0));
}

double spread(double count, double sum, double squares)
{
    const double mean = sum / count;
    return std::sqrt(std::max(squares / count - mean * mean, 0.0));
}

} // namespace

SegmentStats mergedStats(const SegmentStats& a, const SegmentStats& b, double shared)
{
    SegmentStats m;
    m.count = a.count + b.count;
    m.sum.resize(a.sum.size());
    m.squares.resize(a.sum.size());
    for (size_t k = 0; k < a.sum.size(); ++k)
    {
        m.sum[k] = a.sum[k] + b.sum[k];
        m.squares[k] = a.squares[k] + b.squares[k];
    }
    m.perimeter = a.perimeter + b.perimeter - 2.0 * shared;
    m.x0 = std::min(a.x0, b.x0);
    m.y0 = std::min(a.y0, b.y0);
    m.x1 = std::max(a.x1, b.x1);
    m.y1 = std::max(a.y1, b.y1);
    return m;
}

void computeTerms(const MergeCriterion& criterion, SegmentStats& s)
{
    double colour = 0.0;
    for (size_t k = 0; k < s.sum.size(); ++k)
    {
        const double weight = k < criterion.bandWeights.size() ? criterion.bandWeights[k] : 1.0;
        colour += weight * s.count * spread(s.count, s.sum[k], s.squares[k]);
    }
    s.colourTerm = colour;
    // Compactness: perimeter over the square root of the size; smoothness: perimeter over that of the bounding
    // box; both weighted by the size, as the colour term is.
    s.compactTerm = s.perimeter * std::sqrt(s.count);
    s.smoothTerm = s.count * s.perimeter / boxPerimeter(s);
}

double mergeCost(const MergeCriterion& criterion, const SegmentStats& a, const SegmentStats& b, double shared)
{
    if (a.colourTerm < 0.0 || b.colourTerm < 0.0)
    {
        SegmentStats ca = a, cb = b;
        computeTerms(criterion, ca);
        computeTerms(criterion, cb);
        return mergeCost(criterion, ca, cb, shared);
    }
    const double n = a.count + b.count;
    double colour = 0.0, distance = 0.0;
    for (size_t k = 0; k < a.sum.size(); ++k)
    {
        const double weight = k < criterion.bandWeights.size() ? criterion.bandWeights[k] : 1.0;
        colour += weight * n * spread(n, a.sum[k] + b.sum[k], a.squares[k] + b.squares[k]);
        if (criterion.maxMeanDistance > 0.0)
        {
            const double d = a.sum[k] / a.count - b.sum[k] / b.count;
            distance += d * d;
        }
    }
    colour -= a.colourTerm + b.colourTerm;
    if (criterion.maxMeanDistance > 0.0 && std::sqrt(distance) > criterion.maxMeanDistance)
        return kForbidden;
    const double colourWeight = criterion.colourWeight;
    if (colourWeight >= 1.0)
        return colour;
    const double perimeter = a.perimeter + b.perimeter - 2.0 * shared;
    const double box = 2.0 * ((std::max(a.x1, b.x1) - std::min(a.x0, b.x0)) + (std::max(a.y1, b.y1) - std::min(a.y0, b.y0)));
    const double compact = perimeter * std::sqrt(n) - (a.compactTerm + b.compactTerm);
    const double smooth = n * perimeter / box - (a.smoothTerm + b.smoothTerm);
    const double shape = criterion.compactWeight * compact + (1.0 - criterion.compactWeight) * smooth;
    return colourWeight * colour + (1.0 - colourWeight) * shape;
}

int RegionGraph::addSegment(SegmentStats stats)
{
    computeTerms(m_criterion, stats);
    m_stats.push_back(std::move(stats));
    m_dirty.push_back(1);
    m_edges.emplace_back();
    m_parent.push_back(int(m_parent.size()));
    m_alive.push_back(1);
    return int(m_stats.size()) - 1;
}

void RegionGraph::addBoundary(int a, int b, double length)
{
    auto add = [&](int from, int to) {
        for (Edge& edge : m_edges[size_t(from)])
            if (edge.other == to)
            {
                edge.length += length;
                edge.cost = std::nan("");
                return;
            }
        m_edges[size_t(from)].push_back({to, length, std::nan("")});
    };
    add(a, b);
    add(b, a);
}

int RegionGraph::root(int node)
{
    int r = node;
    while (m_parent[size_t(r)] != r)
        r = m_parent[size_t(r)];
    while (m_parent[size_t(node)] != r)
    {
        const int next = m_parent[size_t(node)];
        m_parent[size_t(node)] = r;
        node = next;
    }
    return r;
}

int RegionGraph::bestNeighbour(int node, double* cost)
{
    int best = -1;
    *cost = kForbidden;
    for (Edge& edge : m_edges[size_t(node)])
    {
        if (std::isnan(edge.cost))
        {
            edge.cost = mergeCost(m_criterion, m_stats[size_t(node)], m_stats[size_t(edge.other)], edge.length);
            for (Edge& back : m_edges[size_t(edge.other)])
                if (back.other == node)
                {
                    back.cost = edge.cost;
                    break;
                }
        }
        const double c = edge.cost;
        // Ties go to the lower index so that two segments agree on each other.
        if (c < *cost || (c == *cost && best >= 0 && edge.other < best))
        {
            *cost = c;
            best = edge.other;
        }
    }
    return best;
}

void RegionGraph::merge(int keep, int gone)
{
    double shared = 0.0;
    std::vector<Edge>& kept = m_edges[size_t(keep)];
    for (size_t i = 0; i < kept.size(); ++i)
        if (kept[i].other == gone)
        {
            shared = kept[i].length;
            kept.erase(kept.begin() + long(i));
            break;
        }
    // In place: no allocation per merge.
    SegmentStats& k = m_stats[size_t(keep)];
    const SegmentStats& g = m_stats[size_t(gone)];
    k.count += g.count;
    for (size_t b = 0; b < k.sum.size(); ++b)
    {
        k.sum[b] += g.sum[b];
        k.squares[b] += g.squares[b];
    }
    k.perimeter += g.perimeter - 2.0 * shared;
    k.x0 = std::min(k.x0, g.x0);
    k.y0 = std::min(k.y0, g.y0);
    k.x1 = std::max(k.x1, g.x1);
    k.y1 = std::max(k.y1, g.y1);
    computeTerms(m_criterion, k);
    for (const Edge& edge : m_edges[size_t(gone)])
    {
        if (edge.other == keep)
            continue;
        std::vector<Edge>& theirs = m_edges[size_t(edge.other)];
        theirs.erase(std::remove_if(theirs.begin(), theirs.end(), [&](const Edge& e) { return e.other == gone; }), theirs.end());
        addBoundary(keep, edge.other, edge.length);
    }
    m_edges[size_t(gone)].clear();
    m_edges[size_t(gone)].shrink_to_fit();
    // The kept segment changed: every cost it takes part in is stale, and it and its neighbours look again.
    m_dirty[size_t(keep)] = 1;
    for (Edge& edge : m_edges[size_t(keep)])
    {
        edge.cost = std::nan("");
        m_dirty[size_t(edge.other)] = 1;
        for (Edge& back : m_edges[size_t(edge.other)])
            if (back.other == keep)
            {
                back.cost = std::nan("");
                break;
            }
    }
    m_stats[size_t(gone)].sum.clear();
    m_stats[size_t(gone)].squares.clear();
    m_alive[size_t(gone)] = 0;
    m_parent[size_t(gone)] = keep;
}

long RegionGraph::mergePasses(int passes, const std::function<void(int, long)>& report)
{
    const double limit = m_criterion.scale * m_criterion.scale;
    std::vector<int> best(m_stats.size(), -1);
    std::vector<double> cost(m_stats.size(), kForbidden);
    long total = 0;
    for (int pass = 1; passes <= 0 || pass <= passes; ++pass)
    {
        for (size_t s = 0; s < m_stats.size(); ++s)
            if (m_dirty[s])
            {
                best[s] = m_alive[s] ? bestNeighbour(int(s), &cost[s]) : -1;
                m_dirty[s] = 0;
            }
        long merges = 0;
        for (size_t s = 0; s < m_stats.size(); ++s)
        {
            const int t = best[s];
            if (t > int(s) && best[size_t(t)] == int(s) && cost[s] < limit)
            {
                merge(int(s), t);
                ++merges;
            }
        }
        total += merges;
        if (report)
            report(pass, merges);
        if (merges == 0)
            break;
    }
    return total;
}

long RegionGraph::absorbSmall(double minSize)
{
    long merges = 0;
    for (bool changed = true; changed;)
    {
        changed = false;
        for (size_t s = 0; s < m_stats.size(); ++s)
        {
            if (!m_alive[s] || m_stats[s].count >= minSize || m_edges[s].empty())
                continue;
            // The cheapest neighbour by heterogeneity alone: a small segment goes somewhere even across the scale.
            MergeCriterion any = m_criterion;
            any.maxMeanDistance = 0.0;
            int target = -1;
            double lowest = kForbidden;
            for (const Edge& edge : m_edges[s])
            {
                const double c = mergeCost(any, m_stats[s], m_stats[size_t(edge.other)], edge.length);
                if (target < 0 || c < lowest)
                    target = edge.other, lowest = c;
            }
            merge(target, int(s));
            ++merges;
            changed = true;
        }
    }
    return merges;
}

std::vector<SegmentStats> segmentWindow(const MergeCriterion& criterion, const float* pixels, const unsigned char* valid,
                                        int width, int height, int bands, int passes, double minSize,
                                        std::vector<uint32_t>& labels)
{
    RegionGraph graph(criterion);
    std::vector<int> node(size_t(width) * height, -1);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
        {
            const size_t p = size_t(y) * width + x;
            if (!valid[p])
                continue;
            SegmentStats s;
            s.count = 1.0;
            s.sum.resize(size_t(bands));
            s.squares.resize(size_t(bands));
            for (int k = 0; k < bands; ++k)
            {
                const double v = pixels[p * bands + k];
                s.sum[size_t(k)] = v;
                s.squares[size_t(k)] = v * v;
            }
            s.perimeter = 4.0;
            s.x0 = x, s.y0 = y, s.x1 = x + 1, s.y1 = y + 1;
            node[p] = graph.addSegment(std::move(s));
            if (x > 0 && node[p - 1] >= 0)
                graph.addBoundary(node[p - 1], node[p], 1.0);
            if (y > 0 && node[p - size_t(width)] >= 0)
                graph.addBoundary(node[p - size_t(width)], node[p], 1.0);
        }
    graph.mergePasses(passes);
    if (minSize > 1.0)
        graph.absorbSmall(minSize);
    // Labels 1..k in the order segments first appear.
    std::vector<uint32_t> label(size_t(graph.size()), 0);
    std::vector<SegmentStats> stats;
    labels.assign(node.size(), 0);
    for (size_t p = 0; p < node.size(); ++p)
    {
        if (node[p] < 0)
            continue;
        const int r = graph.root(node[p]);
        if (!label[size_t(r)])
        {
            stats.push_back(graph.stats(r));
            label[size_t(r)] = uint32_t(stats.size());
        }
        labels[p] = label[size_t(r)];
    }
    return stats;
}

} // namespace obia
