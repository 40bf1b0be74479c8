// Automatic thresholds over histograms: Otsu's between-class variance, the two-Gaussian
// expectation-maximisation split of a change magnitude, and the split-based choice of bimodal tiles.
#pragma once

#include <cstddef>
#include <vector>

namespace obia
{

// A fixed-range histogram; values outside [low, high] land in the end bins, NaN is ignored.
struct Histogram
{
    Histogram(double low, double high, int bins);
    void add(double value, double weight = 1.0);
    void merge(const Histogram& other);
    double centre(int bin) const { return low + (bin + 0.5) * width; }
    double total() const;

    double low;
    double high;
    double width;
    std::vector<double> counts;
};

// The value between two bins that maximises the between-class variance (Otsu 1979); the histogram's centre
// when it holds fewer than two distinct bins.
double otsuThreshold(const Histogram& histogram);

// Two Gaussian classes fitted to the histogram by expectation-maximisation, started from Otsu's split;
// the Bayes decision boundary between them (Bruzzone and Prieto 2000). Falls back to Otsu's value when the
// fit degenerates (one class empty, no crossing between the means).
struct GaussianSplit
{
    double threshold = 0.0;
    double weight[2] = {0.0, 0.0}; // prior of the lower (no change) and upper (change) class
    double mean[2] = {0.0, 0.0};
    double sigma[2] = {0.0, 0.0};
    int iterations = 0;
    bool converged = false;
};
GaussianSplit emThreshold(const Histogram& histogram, int maxIterations = 500);

// Per-tile sums for the split-based threshold: the image is cut into square tiles; the tiles whose standard
// deviation is among the highest `fraction` hold both classes and form the histogram that Otsu splits.
class TileStatistics
{
public:
    TileStatistics(int width, int height, int tileSize);
    // One row of values (NaN ignored).
    void addRow(int y, const float* values);
    // Tiles whose standard deviation is at least the (1 - fraction) quantile among tiles with at least half
    // their pixels valid; all tiles when fewer than minTiles qualify.
    std::vector<char> selectBimodal(double fraction = 0.1, size_t minTiles = 4) const;
    int tileIndex(int x, int y) const { return (y / m_tileSize) * m_tilesX + x / m_tileSize; }
    int tileCount() const { return m_tilesX * m_tilesY; }

private:
    int m_width;
    int m_height;
    int m_tileSize;
    int m_tilesX;
    int m_tilesY;
    std::vector<double> m_sum;
    std::vector<double> m_squares;
    std::vector<double> m_count;
};

} // namespace obia
