// Water thresholds on backscatter in dB: Otsu's threshold of a histogram, a bimodality test of the split, and
// the split-based choice over tiles (after Chini et al. 2017: Otsu on the tiles whose histograms are bimodal),
// flat or over a quadtree of tiles.
#pragma once

#include <vector>

namespace sar
{

// Fixed bins over [low, high); values outside fall in the end bins, NaN is passed over.
class Histogram
{
public:
    Histogram(double low = -40.0, double high = 10.0, int bins = 500);
    void add(double value);
    void merge(const Histogram& other);
    double total() const { return m_total; }
    int bins() const { return int(m_counts.size()); }
    double count(int bin) const { return m_counts[bin]; }
    double centre(int bin) const { return m_low + (bin + 0.5) * m_width; }
    // The upper edge of a bin: the threshold that puts bins 0..bin below it.
    double edge(int bin) const { return m_low + (bin + 1) * m_width; }

private:
    double m_low;
    double m_width;
    std::vector<double> m_counts;
    double m_total = 0.0;
};

struct Split
{
    double threshold = 0.0; // values below are the dark class
    // Of two Gaussians fitted to the histogram: separation sqrt(2) |m1 - m2| / sqrt(s1^2 + s2^2) (Ashman's D)
    // and the weight of the smaller one.
    double ashmanD = 0.0;
    double smallerShare = 0.0;
    bool bimodal = false; // ashmanD > 2 and the smaller component holds at least 10 % of the samples
};

// Otsu's split of a histogram (maximum between-class variance) with its bimodality measures.
Split otsuSplit(const Histogram& histogram);

// The threshold from tile histograms: Otsu on the pooled histogram of the bimodal tiles, or on all of them
// when none is bimodal. tilesUsed receives the number of bimodal tiles.
double splitBasedThreshold(const std::vector<Histogram>& tiles, int* tilesUsed = nullptr);

// The hierarchical split-based choice (Chini et al. 2017): the image, then each quarter of a part that is not
// bimodal, recursively down to single leaf tiles; the parts found bimodal are pooled and split by Otsu (all
// leaves pooled when no part is bimodal). leaves: a grid of `columns` x `rows` leaf tiles, row after row.
// tilesUsed receives the number of bimodal parts, leavesUsed the number of leaf tiles they cover.
double hierarchicalSplitThreshold(const std::vector<Histogram>& leaves, int columns, int rows, int* tilesUsed = nullptr,
                                  int* leavesUsed = nullptr);

} // namespace sar
