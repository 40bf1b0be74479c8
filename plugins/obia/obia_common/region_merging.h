// Multi-resolution segmentation by region merging (Baatz and Schaepe 2000): segments grow from single pixels by
// merging mutual best neighbours while the increase of heterogeneity stays below Scale^2.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace obia
{

struct MergeCriterion
{
    double scale = 30.0;        // merges cost less than scale^2
    double colourWeight = 0.9;  // shape weight is 1 - colourWeight
    double compactWeight = 0.5; // smoothness weight is 1 - compactWeight
    std::vector<double> bandWeights;
    double maxMeanDistance = 0.0; // > 0: the mean colours of two segments must also be closer than this
};

// The statistics region merging needs of a segment: pixel count, per-band sums and sums of squares, perimeter
// (pixel edges) and bounding box (first and one-past-last column and row).
struct SegmentStats
{
    double count = 0.0;
    std::vector<double> sum;
    std::vector<double> squares;
    double perimeter = 0.0;
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    // The segment's own terms of the criterion (size times spread per band, weighted; size times compactness; size
    // times smoothness), kept by RegionGraph so that a merge cost needs only the merged segment's terms.
    double colourTerm = -1.0; // below 0: not computed yet
    double compactTerm = 0.0;
    double smoothTerm = 0.0;
};

// The increase of heterogeneity if a and b (sharing `shared` pixel edges) became one segment; a value above any
// threshold when maxMeanDistance forbids the merge.
double mergeCost(const MergeCriterion& criterion, const SegmentStats& a, const SegmentStats& b, double shared);
// Fills the own terms of a segment.
void computeTerms(const MergeCriterion& criterion, SegmentStats& s);
SegmentStats mergedStats(const SegmentStats& a, const SegmentStats& b, double shared);

// A graph of segments that merges by the criterion: nodes are added with their statistics, edges with the number
// of pixel edges two segments share.
class RegionGraph
{
public:
    explicit RegionGraph(MergeCriterion criterion) : m_criterion(std::move(criterion)) {}
    int addSegment(const SegmentStats& stats);
    // A one-pixel segment at (x, y) with `bands` values; the fast path of a window's first graph.
    int addPixel(const float* values, int bands, int x, int y);
    // Adds `length` to the shared boundary of a and b (a != b).
    void addBoundary(int a, int b, double length);
    // Passes of mutual-best-neighbour merging below scale^2 until a pass merges nothing or `passes` ran (<= 0: no
    // limit); returns the number of merges.
    long mergePasses(int passes, const std::function<void(int pass, long merges)>& report = {});
    // Merges every segment below minSize pixels into its cheapest neighbour, whatever the cost; returns merges.
    long absorbSmall(double minSize);
    // The segment a node ended in.
    int root(int node);
    int size() const { return int(m_nodes.size()); }
    SegmentStats stats(int node) const;

private:
    // An edge knows the cost of merging its two ends until either of them changes (NaN: to be computed); both
    // directions hold the same length and cost.
    struct Edge
    {
        int other;
        double length;
        double cost;
    };
    // A segment's scalars; its band sums and sums of squares live in m_moments (2 * bands values per node) so
    // that a million one-pixel segments cost no allocation each.
    struct Node
    {
        double count, perimeter;
        int x0, y0, x1, y1;
        double colourTerm, compactTerm, smoothTerm;
    };
    void setBands(int bands);
    int appendNode(const Node& node);
    void computeTerms(int node);
    double cost(int a, int b, double shared) const;
    void merge(int keep, int gone);
    int bestNeighbour(int node, double* cost);
    Edge* backEdge(int from, int to);
    MergeCriterion m_criterion;
    int m_bands = -1;
    std::vector<double> m_weights;
    std::vector<Node> m_nodes;
    std::vector<double> m_moments;
    std::vector<char> m_dirty; // its best neighbour must be looked for again
    std::vector<std::vector<Edge>> m_edges;
    std::vector<int> m_parent;
    std::vector<char> m_alive;
    std::vector<int> m_slot; // scratch of merge(): position of a neighbour in the kept segment's list, or -1
};

// Segments one window of pixels (`bands` values each, pixel-interleaved, row after row) where valid is 1; writes
// labels 1..k (0 where invalid) and returns the statistics of segment i at index i - 1, bounding boxes in the
// window's own pixel coordinates.
std::vector<SegmentStats> segmentWindow(const MergeCriterion& criterion, const float* pixels, const unsigned char* valid,
                                        int width, int height, int bands, int passes, double minSize,
                                        std::vector<uint32_t>& labels);

} // namespace obia
