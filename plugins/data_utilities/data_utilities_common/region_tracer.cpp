// Polygons of equal value traced in one pass over the rows (see region_tracer.h).
#include "region_tracer.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace datautil
{
namespace
{

constexpr uint32_t kNone = UINT32_MAX;

bool sameValue(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

uint64_t key(Corner c) { return (uint64_t(uint32_t(c.y)) << 32) | uint32_t(c.x); }

int sign(int32_t v) { return (v > 0) - (v < 0); }

} // namespace

RegionTracer::RegionTracer(int width)
    : m_width(width), m_prevValues(size_t(width)), m_values(size_t(width)), m_prevLabels(size_t(width), -1),
      m_labels(size_t(width), -1)
{
}

int32_t RegionTracer::find(int32_t label)
{
    int32_t root = label;
    while (m_parent[size_t(root)] != root)
        root = m_parent[size_t(root)];
    while (m_parent[size_t(label)] != root)
    {
        const int32_t up = m_parent[size_t(label)];
        m_parent[size_t(label)] = root;
        label = up;
    }
    return root;
}

void RegionTracer::unite(int32_t a, int32_t b)
{
    a = find(a);
    b = find(b);
    if (a == b)
        return;
    if (a > b)
        std::swap(a, b); // the older label stays the root
    m_parent[size_t(b)] = a;
    if (m_head[size_t(b)] == kNone)
        return;
    if (m_head[size_t(a)] == kNone)
        m_head[size_t(a)] = m_head[size_t(b)];
    else
        m_edges[m_tail[size_t(a)]].next = m_head[size_t(b)];
    m_tail[size_t(a)] = m_tail[size_t(b)];
    m_head[size_t(b)] = m_tail[size_t(b)] = kNone;
}

void RegionTracer::addEdge(int32_t label, Corner from, Corner to)
{
    const int32_t root = find(label);
    const uint32_t index = uint32_t(m_edges.size());
    m_edges.push_back({from, to, kNone});
    if (m_head[size_t(root)] == kNone)
        m_head[size_t(root)] = index;
    else
        m_edges[m_tail[size_t(root)]].next = index;
    m_tail[size_t(root)] = index;
}

// Edges along the grid line between two rows (either may be absent: all -1). Pixels of a region run clockwise on
// screen (x right, y down): top edges point east, bottom edges west. A run of pixels of one label bordering the
// line makes one edge.
void RegionTracer::horizontalBoundary(const int32_t* above, const double* aboveValues, const int32_t* below,
                                      const double* belowValues)
{
    const int32_t y = m_row;
    auto boundary = [&](int x) {
        return above[x] < 0 || below[x] < 0 || !sameValue(aboveValues[x], belowValues[x]);
    };
    // Bottom edges of the row above, westward.
    for (int x = 0; x < m_width;)
    {
        if (above[x] < 0 || !boundary(x))
        {
            ++x;
            continue;
        }
        const int32_t label = above[x];
        int end = x + 1;
        while (end < m_width && above[end] == label && boundary(end))
            ++end;
        addEdge(label, {end, y}, {x, y});
        x = end;
    }
    // Top edges of the row below, eastward.
    for (int x = 0; x < m_width;)
    {
        if (below[x] < 0 || !boundary(x))
        {
            ++x;
            continue;
        }
        const int32_t label = below[x];
        int end = x + 1;
        while (end < m_width && below[end] == label && boundary(end))
            ++end;
        addEdge(label, {x, y}, {end, y});
        x = end;
    }
}

void RegionTracer::addRow(const double* values, const uint8_t* valid)
{
    std::copy(values, values + m_width, m_values.begin());
    // Labels: the left neighbour's or the upper neighbours' of equal value, uniting whichever meet.
    for (int x = 0; x < m_width; ++x)
    {
        if (valid && !valid[x])
        {
            m_labels[size_t(x)] = -1;
            continue;
        }
        const double v = values[x];
        int32_t label = -1;
        if (x > 0 && m_labels[size_t(x - 1)] >= 0 && sameValue(m_values[size_t(x - 1)], v))
            label = m_labels[size_t(x - 1)];
        for (int dx = -1; dx <= 1; ++dx)
        {
            const int ax = x + dx;
            if (ax < 0 || ax >= m_width)
                continue;
            const int32_t up = m_prevLabels[size_t(ax)];
            if (up < 0 || !sameValue(m_prevValues[size_t(ax)], v) || up == label)
                continue;
            if (label < 0)
                label = up;
            else
                unite(label, up);
        }
        if (label < 0)
        {
            label = int32_t(m_parent.size());
            m_parent.push_back(label);
            m_labelValue.push_back(v);
            m_head.push_back(kNone);
            m_tail.push_back(kNone);
        }
        m_labels[size_t(x)] = label;
    }

    horizontalBoundary(m_prevLabels.data(), m_prevValues.data(), m_labels.data(), m_values.data());

    // Vertical edges of this row: right edges point south, left edges north.
    const int32_t y = m_row;
    for (int x = 0; x <= m_width; ++x)
    {
        const int32_t left = x > 0 ? m_labels[size_t(x - 1)] : -1;
        const int32_t right = x < m_width ? m_labels[size_t(x)] : -1;
        if (left >= 0 && right >= 0 && sameValue(m_values[size_t(x - 1)], m_values[size_t(x)]))
            continue;
        if (left >= 0)
            addEdge(left, {x, y}, {x, y + 1});
        if (right >= 0)
            addEdge(right, {x, y + 1}, {x, y});
    }

    m_prevLabels.swap(m_labels);
    m_prevValues.swap(m_values);
    ++m_row;
}

// Closes the edges of one region into rings. Each corner has one outgoing edge, or two where the region's pixels
// touch only diagonally; there the ring turns left, which keeps the two pixels on one ring (8-connected) and
// the cells around the corner apart.
void RegionTracer::traceRegion(int32_t root, TracedRegion& region) const
{
    std::vector<Edge> edges;
    for (uint32_t e = m_head[size_t(root)]; e != kNone; e = m_edges[e].next)
        edges.push_back(m_edges[e]);
    std::sort(edges.begin(), edges.end(), [](const Edge& a, const Edge& b) { return key(a.from) < key(b.from); });
    const size_t n = edges.size();
    std::vector<uint32_t> successor(n);
    for (size_t i = 0; i < n; ++i)
    {
        const uint64_t k = key(edges[i].to);
        auto first = std::lower_bound(edges.begin(), edges.end(), k,
                                      [](const Edge& e, uint64_t value) { return key(e.from) < value; });
        size_t pick = size_t(first - edges.begin());
        if (pick + 1 < n && key(edges[pick + 1].from) == k)
        {
            // Left of heading (dx, dy) on a y-down grid is (dy, -dx).
            const int dx = sign(edges[i].to.x - edges[i].from.x), dy = sign(edges[i].to.y - edges[i].from.y);
            const Edge& other = edges[pick + 1];
            if (sign(other.to.x - other.from.x) == dy && sign(other.to.y - other.from.y) == -dx)
                ++pick;
        }
        successor[i] = uint32_t(pick);
    }

    auto direction = [&](size_t e) {
        return std::make_pair(sign(edges[e].to.x - edges[e].from.x), sign(edges[e].to.y - edges[e].from.y));
    };
    std::vector<char> used(n, 0);
    std::vector<size_t> cycle;
    std::vector<std::vector<Corner>> outer, holes;
    for (size_t start = 0; start < n; ++start)
    {
        if (used[start])
            continue;
        cycle.clear();
        for (size_t e = start; !used[e]; e = successor[e])
        {
            used[e] = 1;
            cycle.push_back(e);
        }
        // Start at a turn so that straight runs of unit edges fold into one segment.
        const size_t m = cycle.size();
        size_t first = 0;
        while (first < m && direction(cycle[(first + m - 1) % m]) == direction(cycle[first]))
            ++first;
        std::vector<Corner> ring;
        int64_t twiceArea = 0;
        for (size_t i = 0; i < m; ++i)
        {
            const size_t e = cycle[(first + i) % m];
            if (i == 0 || direction(cycle[(first + i + m - 1) % m]) != direction(e))
                ring.push_back(edges[e].from);
            twiceArea += int64_t(edges[e].from.x) * edges[e].to.y - int64_t(edges[e].to.x) * edges[e].from.y;
        }
        ring.push_back(ring.front());
        (twiceArea > 0 ? outer : holes).push_back(std::move(ring));
    }
    region.value = m_labelValue[size_t(root)];
    region.rings = std::move(outer);
    for (auto& hole : holes)
        region.rings.push_back(std::move(hole));
}

void RegionTracer::finish(const Emit& emit, const Splitter& split)
{
    const std::vector<int32_t> none(size_t(m_width), -1);
    horizontalBoundary(m_prevLabels.data(), m_prevValues.data(), none.data(), m_values.data());
    m_prevLabels.assign(size_t(m_width), -1);

    std::vector<int32_t> roots;
    for (int32_t label = 0; label < int32_t(m_parent.size()); ++label)
        if (m_parent[size_t(label)] == label)
            roots.push_back(label);
    m_regions = roots.size();

    const int batch = 4096;
    std::vector<TracedRegion> traced;
    for (size_t begin = 0; begin < roots.size(); begin += batch)
    {
        const int count = int(std::min(roots.size() - begin, size_t(batch)));
        traced.assign(size_t(count), TracedRegion());
        auto work = [&](int from, int to) {
            for (int i = from; i < to; ++i)
                traceRegion(roots[begin + size_t(i)], traced[size_t(i)]);
        };
        if (split)
            split(count, work);
        else
            work(0, count);
        for (auto& region : traced)
            emit(region);
    }
    m_edges.clear();
    m_edges.shrink_to_fit();
}

} // namespace datautil
