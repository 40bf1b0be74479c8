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

void RegionGraph::setBands(int bands)
{
    if (m_bands >= 0)
        return;
    m_bands = bands;
    m_weights.resize(size_t(bands));
    for (size_t k = 0; k < size_t(bands); ++k)
        m_weights[k] = k < m_criterion.bandWeights.size() ? m_criterion.bandWeights[k] : 1.0;
}

int RegionGraph::appendNode(const Node& node)
{
    m_nodes.push_back(node);
    m_dirty.push_back(1);
    m_edges.emplace_back();
    m_parent.push_back(int(m_parent.size()));
    m_alive.push_back(1);
    m_slot.push_back(-1);
    const int index = int(m_nodes.size()) - 1;
    computeTerms(index);
    return index;
}

int RegionGraph::addSegment(const SegmentStats& stats)
{
    setBands(int(stats.sum.size()));
    for (int k = 0; k < m_bands; ++k)
        m_moments.push_back(stats.sum[size_t(k)]);
    for (int k = 0; k < m_bands; ++k)
        m_moments.push_back(stats.squares[size_t(k)]);
    return appendNode({stats.count, stats.perimeter, stats.x0, stats.y0, stats.x1, stats.y1, 0.0, 0.0, 0.0});
}

int RegionGraph::addPixel(const float* values, int bands, int x, int y)
{
    setBands(bands);
    for (int k = 0; k < bands; ++k)
        m_moments.push_back(double(values[k]));
    for (int k = 0; k < bands; ++k)
        m_moments.push_back(double(values[k]) * double(values[k]));
    const int index = appendNode({1.0, 4.0, x, y, x + 1, y + 1, 0.0, 0.0, 0.0});
    m_edges.back().reserve(4);
    return index;
}

SegmentStats RegionGraph::stats(int node) const
{
    const Node& n = m_nodes[size_t(node)];
    SegmentStats s;
    s.count = n.count;
    const double* moments = m_moments.data() + size_t(node) * 2 * size_t(m_bands);
    s.sum.assign(moments, moments + m_bands);
    s.squares.assign(moments + m_bands, moments + 2 * m_bands);
    s.perimeter = n.perimeter;
    s.x0 = n.x0, s.y0 = n.y0, s.x1 = n.x1, s.y1 = n.y1;
    s.colourTerm = n.colourTerm, s.compactTerm = n.compactTerm, s.smoothTerm = n.smoothTerm;
    return s;
}

// The same arithmetic, in the same order, as computeTerms() and mergeCost() on SegmentStats.
void RegionGraph::computeTerms(int index)
{
    Node& s = m_nodes[size_t(index)];
    const double* sum = m_moments.data() + size_t(index) * 2 * size_t(m_bands);
    const double* squares = sum + m_bands;
    double colour = 0.0;
    for (int k = 0; k < m_bands; ++k)
        colour += m_weights[size_t(k)] * s.count * spread(s.count, sum[k], squares[k]);
    s.colourTerm = colour;
    s.compactTerm = s.perimeter * std::sqrt(s.count);
    s.smoothTerm = s.count * s.perimeter / (2.0 * ((s.x1 - s.x0) + (s.y1 - s.y0)));
}

double RegionGraph::cost(int ia, int ib, double shared) const
{
    const Node& a = m_nodes[size_t(ia)];
    const Node& b = m_nodes[size_t(ib)];
    const double* sumA = m_moments.data() + size_t(ia) * 2 * size_t(m_bands);
    const double* sumB = m_moments.data() + size_t(ib) * 2 * size_t(m_bands);
    const double* squaresA = sumA + m_bands;
    const double* squaresB = sumB + m_bands;
    const double n = a.count + b.count;
    const bool limited = m_criterion.maxMeanDistance > 0.0;
    double colour = 0.0, distance = 0.0;
    for (int k = 0; k < m_bands; ++k)
    {
        colour += m_weights[size_t(k)] * n * spread(n, sumA[k] + sumB[k], squaresA[k] + squaresB[k]);
        if (limited)
        {
            const double d = sumA[k] / a.count - sumB[k] / b.count;
            distance += d * d;
        }
    }
    colour -= a.colourTerm + b.colourTerm;
    if (limited && std::sqrt(distance) > m_criterion.maxMeanDistance)
        return kForbidden;
    const double colourWeight = m_criterion.colourWeight;
    if (colourWeight >= 1.0)
        return colour;
    const double perimeter = a.perimeter + b.perimeter - 2.0 * shared;
    const double box = 2.0 * ((std::max(a.x1, b.x1) - std::min(a.x0, b.x0)) + (std::max(a.y1, b.y1) - std::min(a.y0, b.y0)));
    const double compact = perimeter * std::sqrt(n) - (a.compactTerm + b.compactTerm);
    const double smooth = n * perimeter / box - (a.smoothTerm + b.smoothTerm);
    const double shape = m_criterion.compactWeight * compact + (1.0 - m_criterion.compactWeight) * smooth;
    return colourWeight * colour + (1.0 - colourWeight) * shape;
}

RegionGraph::Edge* RegionGraph::backEdge(int from, int to)
{
    for (Edge& edge : m_edges[size_t(from)])
        if (edge.other == to)
            return &edge;
    return nullptr;
}

void RegionGraph::addBoundary(int a, int b, double length)
{
    auto add = [&](int from, int to) {
        if (Edge* edge = backEdge(from, to))
        {
            edge->length += length;
            edge->cost = std::nan("");
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

int RegionGraph::bestNeighbour(int node, double* best_cost)
{
    int best = -1;
    *best_cost = kForbidden;
    for (Edge& edge : m_edges[size_t(node)])
    {
        if (std::isnan(edge.cost))
        {
            edge.cost = cost(node, edge.other, edge.length);
            backEdge(edge.other, node)->cost = edge.cost;
        }
        const double c = edge.cost;
        // Ties go to the lower index so that two segments agree on each other.
        if (c < *best_cost || (c == *best_cost && best >= 0 && edge.other < best))
        {
            *best_cost = c;
            best = edge.other;
        }
    }
    return best;
}

void RegionGraph::merge(int keep, int gone)
{
    const double nan = std::nan("");
    std::vector<Edge>& kept = m_edges[size_t(keep)];
    double shared = 0.0;
    for (size_t i = 0; i < kept.size(); ++i)
        if (kept[i].other == gone)
        {
            shared = kept[i].length;
            kept.erase(kept.begin() + long(i));
            break;
        }
    Node& k = m_nodes[size_t(keep)];
    const Node& g = m_nodes[size_t(gone)];
    k.count += g.count;
    double* momentsK = m_moments.data() + size_t(keep) * 2 * size_t(m_bands);
    const double* momentsG = m_moments.data() + size_t(gone) * 2 * size_t(m_bands);
    for (int b = 0; b < 2 * m_bands; ++b)
        momentsK[b] += momentsG[b];
    k.perimeter += g.perimeter - 2.0 * shared;
    k.x0 = std::min(k.x0, g.x0);
    k.y0 = std::min(k.y0, g.y0);
    k.x1 = std::max(k.x1, g.x1);
    k.y1 = std::max(k.y1, g.y1);
    computeTerms(keep);
    // The gone segment's neighbours become the kept one's, in the order they were listed (appended after the
    // kept segment's own), each neighbour's list losing its entry for `gone`.
    for (size_t i = 0; i < kept.size(); ++i)
        m_slot[size_t(kept[i].other)] = int(i);
    for (const Edge& edge : m_edges[size_t(gone)])
    {
        if (edge.other == keep)
            continue;
        std::vector<Edge>& theirs = m_edges[size_t(edge.other)];
        for (size_t i = 0; i < theirs.size(); ++i)
            if (theirs[i].other == gone)
            {
                theirs.erase(theirs.begin() + long(i));
                break;
            }
        const int slot = m_slot[size_t(edge.other)];
        if (slot >= 0)
        {
            kept[size_t(slot)].length += edge.length;
            backEdge(edge.other, keep)->length += edge.length;
        }
        else
        {
            m_slot[size_t(edge.other)] = int(kept.size());
            kept.push_back({edge.other, edge.length, nan});
            theirs.push_back({keep, edge.length, nan});
        }
    }
    std::vector<Edge>().swap(m_edges[size_t(gone)]);
    // The kept segment changed: every cost it takes part in is stale, and it and its neighbours look again.
    m_dirty[size_t(keep)] = 1;
    for (Edge& edge : kept)
    {
        m_slot[size_t(edge.other)] = -1;
        edge.cost = nan;
        m_dirty[size_t(edge.other)] = 1;
        backEdge(edge.other, keep)->cost = nan;
    }
    m_alive[size_t(gone)] = 0;
    m_parent[size_t(gone)] = keep;
}

long RegionGraph::mergePasses(int passes, const std::function<void(int, long)>& report)
{
    const double limit = m_criterion.scale * m_criterion.scale;
    std::vector<int> best(m_nodes.size(), -1);
    std::vector<double> cost(m_nodes.size(), kForbidden);
    long total = 0;
    for (int pass = 1; passes <= 0 || pass <= passes; ++pass)
    {
        for (size_t s = 0; s < m_nodes.size(); ++s)
            if (m_dirty[s])
            {
                best[s] = m_alive[s] ? bestNeighbour(int(s), &cost[s]) : -1;
                m_dirty[s] = 0;
            }
        long merges = 0;
        for (size_t s = 0; s < m_nodes.size(); ++s)
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
    // The cheapest neighbour by heterogeneity alone: a small segment goes somewhere even across the scale.
    const double distanceLimit = m_criterion.maxMeanDistance;
    m_criterion.maxMeanDistance = 0.0;
    long merges = 0;
    for (bool changed = true; changed;)
    {
        changed = false;
        for (size_t s = 0; s < m_nodes.size(); ++s)
        {
            if (!m_alive[s] || m_nodes[s].count >= minSize || m_edges[s].empty())
                continue;
            int target = -1;
            double lowest = kForbidden;
            for (const Edge& edge : m_edges[s])
            {
                const double c = cost(int(s), edge.other, edge.length);
                if (target < 0 || c < lowest)
                    target = edge.other, lowest = c;
            }
            merge(target, int(s));
            ++merges;
            changed = true;
        }
    }
    m_criterion.maxMeanDistance = distanceLimit;
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
            node[p] = graph.addPixel(pixels + p * size_t(bands), bands, x, y);
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
