// Quality measures of one band gathered block by block: nodata and saturated shares, Shannon entropy of the grey
// levels, average gradient, and noise by the local-standard-deviation method (Gao, 1993).
#pragma once

#include <cstdint>
#include <vector>

namespace datautil
{

struct BandQuality
{
    double pixels = 0;
    double nodataShare = 0;    // of all pixels
    double saturatedShare = 0; // of the valid pixels
    double entropy = 0;        // bits, over 256 grey levels
    double averageGradient = 0;
    double noise = 0; // NaN when no complete 4 x 4 block is valid
};

class QualityAccumulator
{
public:
    // [low, high]: the band's value range, cut into 256 grey levels (an 8-bit band gives one level per value).
    QualityAccumulator(int width, bool hasNoData, double noData, bool hasSaturation, double saturation, double low,
                       double high);
    // Rows of `width` values, top to bottom, in blocks of any size.
    void add(const double* rows, int rowCount);
    BandQuality result(double noiseShare = 0.1);

private:
    bool valid(double v) const { return !(v != v) && !(m_hasNoData && v == m_noData); }
    void addRow(const double* row);
    void addNoiseBlocks();

    int m_width;
    bool m_hasNoData;
    double m_noData;
    bool m_hasSaturation;
    double m_saturation;
    double m_low;
    double m_scale;
    std::vector<std::uint64_t> m_histogram = std::vector<std::uint64_t>(256, 0);
    double m_pixels = 0, m_valid = 0, m_saturated = 0, m_gradientSum = 0, m_gradientCount = 0;
    std::vector<double> m_previous;
    bool m_havePrevious = false;
    std::vector<double> m_group; // up to 4 rows for the noise blocks
    int m_groupRows = 0;
    std::vector<float> m_deviations;
};

} // namespace datautil
