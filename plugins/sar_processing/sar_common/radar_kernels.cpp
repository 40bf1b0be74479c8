// Vectorisable radar kernels: a branch-free natural logarithm (exponent from the bits, a minimax polynomial
// of the mantissa on [sqrt(1/2), sqrt(2)), the Cephes form) and multilook sums with finite-value masks.
#include "radar_kernels.h"

#include <cstdint>
#include <cstring>
#include <limits>

namespace sar
{

namespace
{

inline std::int32_t bitsOf(float v)
{
    std::int32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    return bits;
}

inline float floatOf(std::int32_t bits)
{
    float v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
}

// ln(v) for finite v > 0 (subnormals scaled into the normal range first).
inline float naturalLog(float v)
{
    const bool tiny = v < std::numeric_limits<float>::min();
    v = tiny ? v * 8388608.0f : v; // 2^23
    const std::int32_t bits = bitsOf(v);
    // Mantissa in [0.5, 1), then moved to [sqrt(1/2), sqrt(2)) so the polynomial works around 1.
    float exponent = float(((bits >> 23) & 0xff) - 126) - (tiny ? 23.0f : 0.0f);
    float m = floatOf((bits & 0x007fffff) | 0x3f000000);
    const bool low = m < 0.70710678f;
    exponent -= low ? 1.0f : 0.0f;
    m = low ? m + m : m;
    const float x = m - 1.0f;
    const float z = x * x;
    float p = 7.0376836292e-2f;
    p = p * x - 1.1514610310e-1f;
    p = p * x + 1.1676998740e-1f;
    p = p * x - 1.2420140846e-1f;
    p = p * x + 1.4249322787e-1f;
    p = p * x - 1.6668057665e-1f;
    p = p * x + 2.0000714765e-1f;
    p = p * x - 2.4999993993e-1f;
    p = p * x + 3.3333331174e-1f;
    float y = x * z * p;
    y += exponent * -2.12194440e-4f; // ln 2 split in two parts for accuracy
    y -= 0.5f * z;
    return x + y + exponent * 0.693359375f;
}

} // namespace

void decibels(const float* in, float* out, size_t count, float factor)
{
    const float scale = factor * 0.43429448190325182f; // log10(e)
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    for (size_t i = 0; i < count; ++i)
    {
        const float v = in[i];
        const float db = scale * naturalLog(v);
        out[i] = v > 0.0f ? (v < infinity ? db : infinity) : nan;
    }
}

void accumulateCellLines(const float* in, size_t width, int lines, double* sums, int* counts)
{
    const float limit = std::numeric_limits<float>::max();
    for (int y = 0; y < lines; ++y)
    {
        const float* line = in + size_t(y) * width;
        for (size_t x = 0; x < width; ++x)
        {
            const float v = line[x];
            const bool finite = v >= -limit && v <= limit; // false for NaN and infinities
            sums[x] += finite ? double(v) : 0.0;
            counts[x] += finite ? 1 : 0;
        }
    }
}

void cellMeans(const double* sums, const int* counts, int looks, size_t outWidth, float* out)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (size_t c = 0; c < outWidth; ++c)
    {
        double sum = 0.0;
        int count = 0;
        for (int dx = 0; dx < looks; ++dx)
        {
            sum += sums[c * size_t(looks) + size_t(dx)];
            count += counts[c * size_t(looks) + size_t(dx)];
        }
        out[c] = count ? float(sum / count) : nan;
    }
}

} // namespace sar
