// Sums behind the statistics of a band cube, fed window by window: per band the count, extremes and
// shifted sums of its own valid pixels; over the pixels valid in every band the shifted sums and the
// cross-product matrix. Integer windows are summed exactly in 16/64-bit integers where their shifted
// values fit, everything else in doubles.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace stats
{

struct BandMoments
{
    int64_t count = 0;
    double minimum = 0.0;
    double maximum = 0.0;
    double sum = 0.0;   // of (value - shift)
    double sumSq = 0.0; // of (value - shift)^2
};

class CubeMoments
{
public:
    explicit CubeMoments(int bandCount);

    // A window of integer samples: band k's n values at raw + k * n; noData per band (NaN when none).
    void addIntegerWindow(std::vector<int32_t>& raw, size_t n, const std::vector<double>& noData);
    // A window of real samples, band k's n values at values + k * n; NaN marks a missing pixel.
    void addRealWindow(std::vector<double>& values, size_t n);

    int bandCount() const { return m_bandCount; }
    const BandMoments& band(int k) const { return m_bands[size_t(k)]; }
    double shift(int k) const { return m_shift[size_t(k)]; }
    int64_t completePixels() const { return m_completePixels; }
    // Covariance (divided by pixels - 1) of the pixels valid in every band; row-major, NaN below 2 pixels.
    std::vector<double> covariance() const;

private:
    bool chooseShifts(const std::vector<double>& values, size_t n, bool integer);
    void accumulateCentred(std::vector<double>& values, size_t n, const std::vector<unsigned char>& complete);

    int m_bandCount;
    bool m_shiftChosen = false;
    std::vector<double> m_shift;
    std::vector<BandMoments> m_bands;
    std::vector<double> m_centredSum;  // over complete pixels
    std::vector<double> m_crossReal;   // lower triangle used
    std::vector<int64_t> m_crossExact; // lower triangle used
    int64_t m_completePixels = 0;
    std::vector<int16_t> m_centred16;
    std::vector<double> m_realScratch;
};

} // namespace stats
