// Band measures: moments, histogram entropy, average gradient.
#include "quality_measures.h"

#include <cmath>
#include <vector>

namespace catalogue
{

BandMeasures measureBand(const double* values, const unsigned char* valid, int w, int h)
{
    BandMeasures m;
    const size_t n = size_t(w) * size_t(h);
    auto ok = [&](size_t i) { return (!valid || valid[i]) && std::isfinite(values[i]); };
    double sum = 0.0;
    bool first = true;
    for (size_t i = 0; i < n; ++i)
    {
        if (!ok(i))
            continue;
        const double v = values[i];
        if (first || v < m.minimum)
            m.minimum = v;
        if (first || v > m.maximum)
            m.maximum = v;
        first = false;
        sum += v;
        ++m.validCount;
    }
    if (m.validCount == 0)
        return m;
    m.validShare = double(m.validCount) / double(n);
    m.mean = sum / double(m.validCount);
    // Second pass about the mean: no cancellation for data with a large offset.
    double squares = 0.0;
    std::vector<size_t> histogram(256, 0);
    const double span = m.maximum - m.minimum;
    for (size_t i = 0; i < n; ++i)
    {
        if (!ok(i))
            continue;
        const double d = values[i] - m.mean;
        squares += d * d;
        const int bin = span > 0.0 ? std::min(255, int((values[i] - m.minimum) / span * 256.0)) : 0;
        ++histogram[bin];
    }
    m.stdDev = std::sqrt(squares / double(m.validCount));
    m.snr = m.stdDev > 0.0 ? m.mean / m.stdDev : 0.0;
    for (size_t count : histogram)
        if (count)
        {
            const double p = double(count) / double(m.validCount);
            m.entropyBits -= p * std::log2(p);
        }
    double gradient = 0.0;
    size_t cells = 0;
    for (int y = 0; y + 1 < h; ++y)
        for (int x = 0; x + 1 < w; ++x)
        {
            const size_t i = size_t(y) * w + x;
            if (!ok(i) || !ok(i + 1) || !ok(i + size_t(w)))
                continue;
            const double dx = values[i + 1] - values[i], dy = values[i + size_t(w)] - values[i];
            gradient += std::sqrt((dx * dx + dy * dy) / 2.0);
            ++cells;
        }
    m.meanGradient = cells ? gradient / double(cells) : 0.0;
    return m;
}

} // namespace catalogue
