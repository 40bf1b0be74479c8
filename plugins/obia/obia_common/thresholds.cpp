// Automatic thresholds over histograms.
#include "thresholds.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace obia
{

Histogram::Histogram(double low_, double high_, int bins)
    : low(low_), high(high_ > low_ ? high_ : low_ + 1.0), width((high - low) / std::max(1, bins)),
      counts(size_t(std::max(1, bins)), 0.0)
{
}

void Histogram::add(double value, double weight)
{
    if (std::isnan(value))
        return;
    const double position = (value - low) / width;
    const int last = int(counts.size()) - 1;
    const int bin = position <= 0.0 ? 0 : position >= last ? last : int(position);
    counts[size_t(bin)] += weight;
}

void Histogram::merge(const Histogram& other)
{
    for (size_t i = 0; i < counts.size() && i < other.counts.size(); ++i)
        counts[i] += other.counts[i];
}

double Histogram::total() const
{
    return std::accumulate(counts.begin(), counts.end(), 0.0);
}

double otsuThreshold(const Histogram& histogram)
{
    const std::vector<double>& h = histogram.counts;
    const double total = histogram.total();
    double sumAll = 0.0;
    for (size_t i = 0; i < h.size(); ++i)
        sumAll += h[i] * double(i);
    double weightBelow = 0.0, sumBelow = 0.0, best = -1.0;
    size_t bestBin = h.size() / 2;
    for (size_t i = 0; i + 1 < h.size(); ++i)
    {
        weightBelow += h[i];
        sumBelow += h[i] * double(i);
        const double weightAbove = total - weightBelow;
        if (weightBelow <= 0.0 || weightAbove <= 0.0)
            continue;
        const double meanBelow = sumBelow / weightBelow;
        const double meanAbove = (sumAll - sumBelow) / weightAbove;
        const double between = weightBelow * weightAbove * (meanBelow - meanAbove) * (meanBelow - meanAbove);
        if (between > best)
        {
            best = between;
            bestBin = i;
        }
    }
    // The split lies on the upper edge of the last bin of the lower class.
    return histogram.low + double(bestBin + 1) * histogram.width;
}

namespace
{

double gaussian(double x, double mean, double sigma)
{
    const double z = (x - mean) / sigma;
    return std::exp(-0.5 * z * z) / (sigma * std::sqrt(2.0 * M_PI));
}

// Where w0 N(x; m0, s0) = w1 N(x; m1, s1) between the two means; NaN when the curves do not cross there.
double bayesBoundary(const GaussianSplit& split)
{
    const double m0 = split.mean[0], m1 = split.mean[1], s0 = split.sigma[0], s1 = split.sigma[1];
    // ln w0 - ln s0 - (x-m0)^2 / 2s0^2 = ln w1 - ln s1 - (x-m1)^2 / 2s1^2, a quadratic a x^2 + b x + c = 0.
    const double a = 1.0 / (2 * s1 * s1) - 1.0 / (2 * s0 * s0);
    const double b = m0 / (s0 * s0) - m1 / (s1 * s1);
    const double c = m1 * m1 / (2 * s1 * s1) - m0 * m0 / (2 * s0 * s0) + std::log((split.weight[0] * s1) / (split.weight[1] * s0));
    std::vector<double> roots;
    if (std::fabs(a) < 1e-15 * (std::fabs(b) + 1e-300))
        roots.push_back(-c / b);
    else
    {
        const double discriminant = b * b - 4 * a * c;
        if (discriminant < 0)
            return std::nan("");
        const double root = std::sqrt(discriminant);
        roots.push_back((-b - root) / (2 * a));
        roots.push_back((-b + root) / (2 * a));
    }
    for (double x : roots)
        if (x >= std::min(m0, m1) && x <= std::max(m0, m1))
            return x;
    return std::nan("");
}

} // namespace

GaussianSplit emThreshold(const Histogram& histogram, int maxIterations)
{
    GaussianSplit split;
    const double start = otsuThreshold(histogram);
    split.threshold = start;
    const std::vector<double>& h = histogram.counts;
    const double total = histogram.total();
    if (total <= 0.0)
        return split;
    // Start from the two sides of Otsu's split.
    for (int k = 0; k < 2; ++k)
    {
        double n = 0, s = 0, ss = 0;
        for (size_t i = 0; i < h.size(); ++i)
        {
            const double x = histogram.centre(int(i));
            if ((x < start) != (k == 0))
                continue;
            n += h[i];
            s += h[i] * x;
            ss += h[i] * x * x;
        }
        if (n <= 0.0)
            return split;
        split.weight[k] = n / total;
        split.mean[k] = s / n;
        split.sigma[k] = std::sqrt(std::max(ss / n - split.mean[k] * split.mean[k], 0.0));
    }
    const double minSigma = histogram.width * 0.5;
    std::vector<double> posterior(h.size());
    for (split.iterations = 0; split.iterations < maxIterations; ++split.iterations)
    {
        for (int k = 0; k < 2; ++k)
            split.sigma[k] = std::max(split.sigma[k], minSigma);
        for (size_t i = 0; i < h.size(); ++i)
        {
            const double x = histogram.centre(int(i));
            const double p0 = split.weight[0] * gaussian(x, split.mean[0], split.sigma[0]);
            const double p1 = split.weight[1] * gaussian(x, split.mean[1], split.sigma[1]);
            posterior[i] = p0 + p1 > 0.0 ? p0 / (p0 + p1) : (x < split.threshold ? 1.0 : 0.0);
        }
        GaussianSplit next = split;
        for (int k = 0; k < 2; ++k)
        {
            double n = 0, s = 0;
            for (size_t i = 0; i < h.size(); ++i)
            {
                const double p = k == 0 ? posterior[i] : 1.0 - posterior[i];
                n += h[i] * p;
                s += h[i] * p * histogram.centre(int(i));
            }
            if (n <= 0.0)
                return split;
            const double mean = s / n;
            double v = 0;
            for (size_t i = 0; i < h.size(); ++i)
            {
                const double p = k == 0 ? posterior[i] : 1.0 - posterior[i];
                const double d = histogram.centre(int(i)) - mean;
                v += h[i] * p * d * d;
            }
            next.weight[k] = n / total;
            next.mean[k] = mean;
            next.sigma[k] = std::sqrt(v / n);
        }
        const double change = std::fabs(next.mean[0] - split.mean[0]) + std::fabs(next.mean[1] - split.mean[1]) +
                              std::fabs(next.sigma[0] - split.sigma[0]) + std::fabs(next.sigma[1] - split.sigma[1]);
        split.weight[0] = next.weight[0];
        split.weight[1] = next.weight[1];
        for (int k = 0; k < 2; ++k)
        {
            split.mean[k] = next.mean[k];
            split.sigma[k] = std::max(next.sigma[k], minSigma);
        }
        if (change < 1e-6 * histogram.width)
        {
            split.converged = true;
            break;
        }
    }
    const double boundary = bayesBoundary(split);
    split.threshold = std::isnan(boundary) ? start : boundary;
    return split;
}

TileStatistics::TileStatistics(int width, int height, int tileSize)
    : m_width(width), m_height(height), m_tileSize(std::max(1, tileSize)), m_tilesX((width + m_tileSize - 1) / m_tileSize),
      m_tilesY((height + m_tileSize - 1) / m_tileSize), m_sum(size_t(m_tilesX) * m_tilesY, 0.0),
      m_squares(m_sum.size(), 0.0), m_count(m_sum.size(), 0.0)
{
}

void TileStatistics::addRow(int y, const float* values)
{
    const size_t rowBase = size_t(y / m_tileSize) * m_tilesX;
    for (int x = 0; x < m_width; ++x)
    {
        const double v = values[x];
        if (std::isnan(v))
            continue;
        const size_t t = rowBase + size_t(x / m_tileSize);
        m_sum[t] += v;
        m_squares[t] += v * v;
        m_count[t] += 1.0;
    }
}

std::vector<char> TileStatistics::selectBimodal(double fraction, size_t minTiles) const
{
    std::vector<std::pair<double, size_t>> deviations;
    for (size_t t = 0; t < m_sum.size(); ++t)
    {
        // Tiles on the right and bottom edges are cut short; half their own area must be valid.
        const int tx = int(t % size_t(m_tilesX)), ty = int(t / size_t(m_tilesX));
        const double area = double(std::min(m_tileSize, m_width - tx * m_tileSize)) * std::min(m_tileSize, m_height - ty * m_tileSize);
        if (m_count[t] < std::max(2.0, 0.5 * area))
            continue;
        const double mean = m_sum[t] / m_count[t];
        deviations.push_back({std::sqrt(std::max(m_squares[t] / m_count[t] - mean * mean, 0.0)), t});
    }
    std::vector<char> selected(m_sum.size(), 0);
    if (deviations.size() < minTiles)
    {
        std::fill(selected.begin(), selected.end(), 1);
        return selected;
    }
    std::sort(deviations.begin(), deviations.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    const size_t keep = std::max(minTiles, size_t(std::ceil(fraction * double(deviations.size()))));
    for (size_t i = 0; i < keep && i < deviations.size(); ++i)
        selected[deviations[i].second] = 1;
    return selected;
}

} // namespace obia
