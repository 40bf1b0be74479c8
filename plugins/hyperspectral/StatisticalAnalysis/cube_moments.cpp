#include "cube_moments.h"

#include "cross_products.h"
#include "raster_io.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <mutex>

namespace stats
{
namespace
{

constexpr size_t kGroup = 16; // pixels per step of the integer kernel

// Adds a worker's lower-triangle partial into the totals.
template <typename T> void mergeLower(const std::vector<T>& local, std::vector<T>& total, int count)
{
    for (int i = 0; i < count; ++i)
        for (int j = 0; j <= i; ++j)
            total[size_t(i) * count + j] += local[size_t(i) * count + j];
}

// Splits pixel groups over the cores; each worker fills its own matrix, merged under a lock.
template <typename T, typename Kernel>
void crossProductsInParallel(size_t n, int count, std::vector<T>& total, const Kernel& kernel)
{
    std::mutex merge;
    algokit::parallelFor(int((n + kGroup - 1) / kGroup), [&](int begin, int end) {
        std::vector<T> local(size_t(count) * count, T(0));
        const size_t p0 = size_t(begin) * kGroup, p1 = std::min(n, size_t(end) * kGroup);
        kernel(p0, p1, local.data());
        std::lock_guard<std::mutex> guard(merge);
        mergeLower(local, total, count);
    });
}

// An integer no-data value only matters when it is a whole number within the samples' range.
bool integerNoData(double noData, int32_t& value)
{
    if (std::isnan(noData) || noData != std::floor(noData) || noData < std::numeric_limits<int32_t>::min() ||
        noData > std::numeric_limits<int32_t>::max())
        return false;
    value = int32_t(noData);
    return true;
}

// One band of an integer window in one pass: its statistics, and its shifted values as 16-bit integers
// (0 where missing) with their sum and largest magnitude (beyond 32767 the 16-bit values are not usable).
// Returns true when the band had missing pixels.
struct CentredBand
{
    int64_t sum = 0;
    int64_t maxAbs = 0;
};

template <bool kHasNoData>
bool integerBand(const int32_t* values, size_t n, int32_t noData, int64_t shift, BandMoments& band,
                 int16_t* centred, CentredBand& out)
{
    int32_t minimum = std::numeric_limits<int32_t>::max(), maximum = std::numeric_limits<int32_t>::min();
    int64_t sum = 0, sumSq = 0, valid = 0;
    for (size_t i = 0; i < n; ++i)
    {
        const int32_t value = values[i];
        if (kHasNoData && value == noData)
        {
            centred[i] = 0;
            continue;
        }
        minimum = std::min(minimum, value);
        maximum = std::max(maximum, value);
        const int64_t d = value - shift;
        sum += d;
        sumSq += d * d;
        centred[i] = int16_t(d);
        ++valid;
    }
    if (valid)
    {
        band.minimum = band.count ? std::min(band.minimum, double(minimum)) : minimum;
        band.maximum = band.count ? std::max(band.maximum, double(maximum)) : maximum;
        out.maxAbs = std::max(std::abs(int64_t(minimum) - shift), std::abs(int64_t(maximum) - shift));
    }
    band.count += valid;
    band.sum += double(sum);
    band.sumSq += double(sumSq);
    out.sum = sum;
    return valid != int64_t(n);
}

bool realBand(const double* values, size_t n, double shift, BandMoments& band)
{
    double minimum = std::numeric_limits<double>::infinity(), maximum = -minimum, sum = 0.0, sumSq = 0.0;
    int64_t valid = 0;
    for (size_t i = 0; i < n; ++i)
    {
        const double value = values[i];
        if (std::isnan(value))
            continue;
        minimum = std::min(minimum, value);
        maximum = std::max(maximum, value);
        const double d = value - shift;
        sum += d;
        sumSq += d * d;
        ++valid;
    }
    if (valid)
    {
        band.minimum = band.count ? std::min(band.minimum, minimum) : minimum;
        band.maximum = band.count ? std::max(band.maximum, maximum) : maximum;
    }
    band.count += valid;
    band.sum += sum;
    band.sumSq += sumSq;
    return valid != int64_t(n);
}

// 1 for pixels valid in every band, given per band whether it had gaps and how to test a value.
template <typename IsMissing>
std::vector<unsigned char> completeMask(size_t n, const std::vector<unsigned char>& gaps, const IsMissing& missing)
{
    std::vector<unsigned char> complete(n, 1);
    for (size_t k = 0; k < gaps.size(); ++k)
        if (gaps[k])
            for (size_t i = 0; i < n; ++i)
                if (missing(k, i))
                    complete[i] = 0;
    return complete;
}

} // namespace

CubeMoments::CubeMoments(int bandCount)
    : m_bandCount(bandCount), m_shift(size_t(bandCount), 0.0), m_bands(size_t(bandCount)),
      m_centredSum(size_t(bandCount), 0.0), m_crossReal(size_t(bandCount) * bandCount, 0.0),
      m_crossExact(size_t(bandCount) * bandCount, 0)
{
}

// Shift of each band: the mean of its valid values in the first window that has any, close to the
// band's mean so that shifted sums do not cancel; a whole number for integer samples.
bool CubeMoments::chooseShifts(const std::vector<double>& values, size_t n, bool integer)
{
    bool any = false;
    for (int k = 0; k < m_bandCount; ++k)
    {
        double sum = 0.0;
        int64_t count = 0;
        for (size_t i = 0; i < n; ++i)
        {
            const double value = values[size_t(k) * n + i];
            if (!std::isnan(value))
            {
                sum += value;
                ++count;
            }
        }
        if (count)
        {
            m_shift[size_t(k)] = integer ? std::round(sum / double(count)) : sum / double(count);
            any = true;
        }
    }
    return any;
}

void CubeMoments::addIntegerWindow(std::vector<int32_t>& raw, size_t n, const std::vector<double>& noData)
{
    const int count = m_bandCount;
    std::vector<int32_t> noDataValue(size_t(count), 0);
    std::vector<unsigned char> hasNoData(size_t(count), 0);
    for (int k = 0; k < count; ++k)
        hasNoData[size_t(k)] = integerNoData(noData[size_t(k)], noDataValue[size_t(k)]);
    const auto missing = [&](size_t k, size_t i) { return hasNoData[k] && raw[k * n + i] == noDataValue[k]; };

    if (!m_shiftChosen)
    {
        std::vector<double> values(raw.size());
        for (size_t k = 0; k < size_t(count); ++k)
            for (size_t i = 0; i < n; ++i)
                values[k * n + i] = missing(k, i) ? std::nan("") : double(raw[k * n + i]);
        m_shiftChosen = chooseShifts(values, n, true);
    }

    // Statistics and shifted 16-bit values in one pass; rows padded with zeros to whole groups.
    const size_t stride = (n + kGroup - 1) / kGroup * kGroup;
    m_centred16.resize(stride * size_t(count));
    std::vector<unsigned char> gaps(size_t(count), 0);
    std::vector<CentredBand> centred(static_cast<size_t>(count));
    algokit::parallelFor(count, [&](int begin, int end) {
        for (int k = begin; k < end; ++k)
        {
            const int32_t* values = raw.data() + size_t(k) * n;
            int16_t* row = m_centred16.data() + size_t(k) * stride;
            const int64_t shift = int64_t(m_shift[size_t(k)]);
            BandMoments& band = m_bands[size_t(k)];
            gaps[size_t(k)] = hasNoData[size_t(k)]
                                  ? integerBand<true>(values, n, noDataValue[size_t(k)], shift, band, row, centred[size_t(k)])
                                  : integerBand<false>(values, n, 0, shift, band, row, centred[size_t(k)]);
            std::fill(row + n, row + stride, int16_t(0));
        }
    });
    // Pixels missing in some band take no part in the cross products: their values leave the sums.
    const std::vector<unsigned char> complete = completeMask(n, gaps, missing);
    int64_t largest = 0;
    for (int k = 0; k < count; ++k)
        largest = std::max(largest, centred[size_t(k)].maxAbs);
    for (size_t i = 0; i < n; ++i)
    {
        m_completePixels += complete[i];
        if (!complete[i])
            for (size_t k = 0; k < size_t(count); ++k)
                if (!missing(k, i))
                {
                    centred[k].sum -= raw[k * n + i] - int64_t(m_shift[k]);
                    m_centred16[k * stride + i] = 0;
                }
    }
    for (size_t k = 0; k < size_t(count); ++k)
        m_centredSum[k] += double(centred[k].sum);

    if (largest > 32767)
    {
        // Shifted values beyond 16 bits: this window's cross products go through doubles.
        m_realScratch.resize(n * size_t(count));
        for (size_t k = 0; k < size_t(count); ++k)
            for (size_t i = 0; i < n; ++i)
                m_realScratch[k * n + i] = complete[i] ? double(raw[k * n + i]) - m_shift[k] : 0.0;
        crossProductsInParallel(n, count, m_crossReal, [&](size_t p0, size_t p1, double* local) {
            accumulateCrossProducts(m_realScratch.data() + p0, n, count, p1 - p0, local);
        });
        return;
    }
    crossProductsInParallel(stride, count, m_crossExact, [&](size_t p0, size_t p1, int64_t* local) {
        accumulateCrossProducts(m_centred16.data() + p0, stride, count, p1 - p0, int(largest), local);
    });
}

void CubeMoments::addRealWindow(std::vector<double>& values, size_t n)
{
    const int count = m_bandCount;
    if (!m_shiftChosen)
        m_shiftChosen = chooseShifts(values, n, false);
    std::vector<unsigned char> gaps(size_t(count), 0);
    algokit::parallelFor(count, [&](int begin, int end) {
        for (int k = begin; k < end; ++k)
            gaps[size_t(k)] = realBand(values.data() + size_t(k) * n, n, m_shift[size_t(k)], m_bands[size_t(k)]);
    });
    const std::vector<unsigned char> complete =
        completeMask(n, gaps, [&](size_t k, size_t i) { return std::isnan(values[k * n + i]); });
    for (unsigned char c : complete)
        m_completePixels += c;
    algokit::parallelFor(count, [&](int begin, int end) {
        for (int k = begin; k < end; ++k)
        {
            double* band = values.data() + size_t(k) * n;
            const double shift = m_shift[size_t(k)];
            double sum = 0.0;
            for (size_t i = 0; i < n; ++i)
            {
                band[i] = complete[i] ? band[i] - shift : 0.0;
                sum += band[i];
            }
            m_centredSum[size_t(k)] += sum;
        }
    });
    crossProductsInParallel(n, count, m_crossReal, [&](size_t p0, size_t p1, double* local) {
        accumulateCrossProducts(values.data() + p0, n, count, p1 - p0, local);
    });
}

std::vector<double> CubeMoments::covariance() const
{
    const int count = m_bandCount;
    std::vector<double> result(size_t(count) * count, std::numeric_limits<double>::quiet_NaN());
    if (m_completePixels < 2)
        return result;
    const double n = double(m_completePixels);
    for (int i = 0; i < count; ++i)
        for (int j = 0; j <= i; ++j)
        {
            const size_t at = size_t(i) * count + j;
            const double cross = double(m_crossExact[at]) + m_crossReal[at];
            const double value = (cross - m_centredSum[size_t(i)] * m_centredSum[size_t(j)] / n) / (n - 1.0);
            result[at] = i == j ? std::max(0.0, value) : value;
            result[size_t(j) * count + i] = result[at];
        }
    return result;
}

} // namespace stats
