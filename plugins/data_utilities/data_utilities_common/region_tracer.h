// Polygons of equal value of a raster, traced in one pass over its rows: 8-connected regions labelled with
// union-find, their boundary edges kept per region and closed into rings once the last row is in.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace datautil
{

// A pixel corner: column and row of the grid lines (0..width, 0..height).
struct Corner
{
    int32_t x = 0, y = 0;
    bool operator==(const Corner& other) const { return x == other.x && y == other.y; }
};

// One region: its value and rings of pixel corners, the outer ring first, then the holes. Rings are closed
// (last corner equals the first) and carry only corners where the boundary turns. A region whose pixels touch
// only diagonally keeps one outer ring that passes twice through the touching corner.
struct TracedRegion
{
    double value = 0;
    std::vector<std::vector<Corner>> rings;
};

class RegionTracer
{
public:
    explicit RegionTracer(int width);

    // The next row of values; `valid` (may be null: every pixel valid) marks the pixels that take part.
    // Equal values, and NaN with NaN, belong together.
    void addRow(const double* values, const uint8_t* valid);

    // Closes the bottom boundary, then hands every region to `emit` in batches; `assemble` runs the ring
    // assembly of a batch of regions [begin, end) and may split it over threads (default: in this thread).
    using Emit = std::function<void(TracedRegion& region)>;
    using Splitter = std::function<void(int count, const std::function<void(int begin, int end)>& work)>;
    void finish(const Emit& emit, const Splitter& split = Splitter());

    // Rows seen so far, bytes held for the regions' edges and labels, and regions found (valid after finish()).
    int rows() const { return m_row; }
    size_t heldBytes() const { return m_edges.capacity() * sizeof(Edge) + m_parent.capacity() * 20; }
    size_t regionCount() const { return m_regions; }

private:
    struct Edge
    {
        Corner from, to;
        uint32_t next;
    };
    int32_t find(int32_t label);
    void unite(int32_t a, int32_t b);
    void addEdge(int32_t label, Corner from, Corner to);
    void horizontalBoundary(const int32_t* above, const double* aboveValues, const int32_t* below,
                            const double* belowValues);
    void traceRegion(int32_t root, TracedRegion& region) const;

    int m_width;
    int m_row = 0;
    size_t m_regions = 0;
    std::vector<double> m_prevValues, m_values;
    std::vector<int32_t> m_prevLabels, m_labels; // -1: not taking part
    std::vector<int32_t> m_parent;
    std::vector<double> m_labelValue;
    std::vector<uint32_t> m_head, m_tail; // each root's edge list
    std::vector<Edge> m_edges;
};

} // namespace datautil
