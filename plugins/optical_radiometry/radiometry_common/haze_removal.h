// Haze and thin-cloud removal kernels: the haze-optimised transform (Zhang, Guindon and Cihlar 2002), the
// dark-channel prior (He, Sun and Tang 2011) with the guided filter (He, Sun and Tang 2013), and the low-pass
// surface of homomorphic filtering.
#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

namespace radiometry
{

// A 2-D histogram of (red, blue) pairs over fixed ranges.
class PairHistogram
{
public:
    PairHistogram(double lowX, double highX, double lowY, double highY, int bins);
    void add(double x, double y);
    int bins() const { return m_bins; }
    double xAt(int bin) const { return m_lowX + (bin + 0.5) * (m_highX - m_lowX) / m_bins; }
    double yAt(int bin) const { return m_lowY + (bin + 0.5) * (m_highY - m_lowY) / m_bins; }
    long long at(int x, int y) const { return m_counts[size_t(x) * size_t(m_bins) + size_t(y)]; }
    long long columnCount(int x) const;

private:
    double m_lowX, m_highX, m_lowY, m_highY;
    int m_bins;
    std::vector<long long> m_counts;
};

// The clear-sky line blue = intercept + slope * red: least squares through the lower envelope of blue (its
// `percent` percentile) in each well-filled red column, where clear pixels lie.
struct ClearLine
{
    double slope = 1.0;
    double intercept = 0.0;
};
ClearLine fitClearLine(const PairHistogram& redBlue, double percent = 10.0, long long minCount = 50);

// HOT = blue * sin(theta) - red * cos(theta), theta the angle of the clear line.
inline double hazeOptimisedTransform(double blue, double red, double sinTheta, double cosTheta)
{
    return blue * sinTheta - red * cosTheta;
}

// Per-band haze offsets by HOT level: counts[level][valueBin] histograms of one band's values per HOT level; each
// level's dark value (its `percent` percentile) minus that of the reference level, never negative and never
// smaller than a clearer level's; levels below the reference get 0.
std::vector<double> hazeOffsetsByLevel(const std::vector<std::vector<long long>>& counts, double valueLow,
                                       double valueHigh, int referenceLevel, double percent = 1.0);

// Guided filter of src by guide (both CV_32F, one channel): edge-keeping smoothing of radius r, regularised by eps.
cv::Mat guidedFilter(const cv::Mat& guide, const cv::Mat& src, int radius, double eps);

// Dark-channel dehazing of bands scaled to [0, 1] (CV_32F each), in place. Returns the atmospheric light of each
// band. patch: minimum filter size; omega: the share of haze removed; radius, eps: guided-filter settings;
// tMin: the lowest transmission kept. Pixels where valid is 0 are left alone and ignored.
std::vector<double> darkChannelDehaze(std::vector<cv::Mat>& bands, const cv::Mat& valid, int patch = 15,
                                      double omega = 0.95, int radius = 30, double eps = 1e-3, double tMin = 0.1);

} // namespace radiometry
