// Per-segment features.
#include "segment_features.h"

#include <algorithm>
#include <cmath>

namespace obia
{

SegmentFeatures::SegmentFeatures(int bands, double pixelWidth, double pixelHeight)
    : m_bands(bands), m_edgeX(std::fabs(pixelHeight)), m_edgeY(std::fabs(pixelWidth)),
      m_pixelArea(std::fabs(pixelWidth * pixelHeight)), m_count(1, 0.0), m_perimeter(1, 0.0),
      m_sum(size_t(bands), 0.0), m_squares(size_t(bands), 0.0), m_min(size_t(bands), 0.0), m_max(size_t(bands), 0.0)
{
}

void SegmentFeatures::grow(uint32_t label)
{
    if (label < m_count.size())
        return;
    const size_t size = std::max<size_t>(size_t(label) + 1, m_count.size() * 3 / 2);
    m_count.resize(size, 0.0);
    m_perimeter.resize(size, 0.0);
    m_sum.resize(size * size_t(m_bands), 0.0);
    m_squares.resize(size * size_t(m_bands), 0.0);
    m_min.resize(size * size_t(m_bands), std::numeric_limits<double>::infinity());
    m_max.resize(size * size_t(m_bands), -std::numeric_limits<double>::infinity());
}

void SegmentFeatures::addRows(const uint32_t* labels, const float* pixels, int width, int rows,
                              const std::vector<uint32_t>& previousRow)
{
    for (int r = 0; r < rows; ++r)
    {
        const uint32_t* row = labels + size_t(r) * width;
        const uint32_t* above = r > 0 ? row - width : previousRow.empty() ? nullptr : previousRow.data();
        for (int x = 0; x < width; ++x)
        {
            const uint32_t s = row[x];
            // Every edge between two different labels belongs to the outline of both (of the one that is not 0).
            const uint32_t left = x > 0 ? row[x - 1] : 0;
            const uint32_t up = above ? above[x] : 0;
            if (s)
                grow(s);
            if (left != s)
            {
                if (s)
                    m_perimeter[s] += m_edgeX;
                if (left)
                    m_perimeter[left] += m_edgeX;
            }
            if (up != s)
            {
                if (s)
                    m_perimeter[s] += m_edgeY;
                if (up)
                    m_perimeter[up] += m_edgeY;
            }
            if (!s)
                continue;
            if (x == width - 1)
                m_perimeter[s] += m_edgeX;
            m_count[s] += 1.0;
            const float* value = pixels + (size_t(r) * width + x) * size_t(m_bands);
            for (int b = 0; b < m_bands; ++b)
            {
                const double v = value[b];
                const size_t i = index(s, b);
                m_sum[i] += v;
                m_squares[i] += v * v;
                m_min[i] = std::min(m_min[i], v);
                m_max[i] = std::max(m_max[i], v);
            }
        }
    }
}

void SegmentFeatures::finish(const uint32_t* lastRow, int width)
{
    for (int x = 0; x < width; ++x)
        if (lastRow[x])
            m_perimeter[lastRow[x]] += m_edgeY;
}

double SegmentFeatures::compactness(uint32_t s) const
{
    const double p = m_perimeter[s];
    return p > 0.0 ? 4.0 * M_PI * area(s) / (p * p) : 0.0;
}

double SegmentFeatures::shapeIndex(uint32_t s) const
{
    const double a = area(s);
    return a > 0.0 ? m_perimeter[s] / (4.0 * std::sqrt(a)) : 0.0;
}

double SegmentFeatures::standardDeviation(uint32_t s, int band) const
{
    const double n = m_count[s];
    const double mean = m_sum[index(s, band)] / n;
    return std::sqrt(std::max(m_squares[index(s, band)] / n - mean * mean, 0.0));
}

double SegmentFeatures::brightness(uint32_t s) const
{
    double sum = 0.0;
    for (int b = 0; b < m_bands; ++b)
        sum += mean(s, b);
    return sum / m_bands;
}

} // namespace obia
