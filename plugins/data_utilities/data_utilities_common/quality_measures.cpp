// Quality measures of one band gathered block by block.
#include "quality_measures.h"

#include <algorithm>
#include <cmath>

namespace datautil
{

namespace
{
constexpr int kNoiseBlock = 4;
}

QualityAccumulator::QualityAccumulator(int width, bool hasNoData, double noData, bool hasSaturation, double saturation,
                                       double low, double high)
    : m_width(width), m_hasNoData(hasNoData), m_noData(noData), m_hasSaturation(hasSaturation),
      m_saturation(saturation), m_low(low), m_scale(high > low ? 256.0 / (high - low) : 0.0),
      m_previous(size_t(width), 0.0), m_group(size_t(width) * kNoiseBlock, 0.0)
{
}

void QualityAccumulator::add(const double* rows, int rowCount)
{
    for (int r = 0; r < rowCount; ++r)
        addRow(rows + size_t(r) * size_t(m_width));
}

void QualityAccumulator::addRow(const double* row)
{
    for (int x = 0; x < m_width; ++x)
    {
        const double v = row[x];
        m_pixels += 1;
        if (!valid(v))
            continue;
        m_valid += 1;
        if (m_hasSaturation && v == m_saturation)
            m_saturated += 1;
        const int level = std::clamp(int((v - m_low) * m_scale), 0, 255);
        ++m_histogram[size_t(level)];
    }
    // Gradient of the previous row's pixels: forward differences to the right and downwards.
    if (m_havePrevious)
        for (int x = 0; x + 1 < m_width; ++x)
        {
            const double f = m_previous[size_t(x)], right = m_previous[size_t(x) + 1], down = row[x];
            if (!valid(f) || !valid(right) || !valid(down))
                continue;
            const double dx = right - f, dy = down - f;
            m_gradientSum += std::sqrt((dx * dx + dy * dy) / 2.0);
            m_gradientCount += 1;
        }
    std::copy(row, row + m_width, m_previous.begin());
    m_havePrevious = true;
    std::copy(row, row + m_width, m_group.begin() + long(m_groupRows) * m_width);
    if (++m_groupRows == kNoiseBlock)
    {
        addNoiseBlocks();
        m_groupRows = 0;
    }
}

// Sample standard deviation of every complete, valid 4 x 4 block of the gathered rows.
void QualityAccumulator::addNoiseBlocks()
{
    for (int bx = 0; bx + kNoiseBlock <= m_width; bx += kNoiseBlock)
    {
        double sum = 0, squares = 0;
        const double first = m_group[size_t(bx)];
        bool complete = true;
        for (int y = 0; y < kNoiseBlock && complete; ++y)
            for (int x = bx; x < bx + kNoiseBlock; ++x)
            {
                const double v = m_group[size_t(y) * size_t(m_width) + size_t(x)];
                if (!valid(v))
                {
                    complete = false;
                    break;
                }
                const double d = v - first; // shifted, for precision
                sum += d;
                squares += d * d;
            }
        if (!complete)
            continue;
        const double n = kNoiseBlock * kNoiseBlock;
        m_deviations.push_back(float(std::sqrt(std::max(0.0, (squares - sum * sum / n) / (n - 1.0)))));
    }
}

BandQuality QualityAccumulator::result(double noiseShare)
{
    BandQuality quality;
    quality.pixels = m_pixels;
    quality.nodataShare = m_pixels > 0 ? (m_pixels - m_valid) / m_pixels : 0.0;
    quality.saturatedShare = m_valid > 0 ? m_saturated / m_valid : 0.0;
    for (std::uint64_t count : m_histogram)
        if (count > 0)
        {
            const double p = double(count) / m_valid;
            quality.entropy -= p * std::log2(p);
        }
    quality.averageGradient = m_gradientCount > 0 ? m_gradientSum / m_gradientCount : 0.0;
    if (m_deviations.empty())
        quality.noise = std::nan("");
    else
    {
        const size_t used = std::max<size_t>(1, size_t(std::llround(noiseShare * double(m_deviations.size()))));
        std::nth_element(m_deviations.begin(), m_deviations.begin() + long(used - 1), m_deviations.end());
        double sum = 0;
        for (size_t i = 0; i < used; ++i)
            sum += m_deviations[i];
        quality.noise = sum / double(used);
    }
    return quality;
}

} // namespace datautil
