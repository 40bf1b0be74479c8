// Scene-level speckle statistics.
#include "speckle_statistics.h"

#include <boost/math/special_functions/gamma.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

namespace sar
{

double estimateLooks(const float* data, int width, int rows, int window)
{
    std::vector<double> variations;
    for (int y0 = 0; y0 + window <= rows; y0 += window)
        for (int x0 = 0; x0 + window <= width; x0 += window)
        {
            double sum = 0.0, squares = 0.0;
            int count = 0;
            for (int y = y0; y < y0 + window; ++y)
                for (int x = x0; x < x0 + window; ++x)
                {
                    const double v = data[size_t(y) * width + x];
                    if (std::isfinite(v))
                    {
                        sum += v;
                        squares += v * v;
                        ++count;
                    }
                }
            if (count * 2 < window * window || count < 2)
                continue;
            const double mean = sum / count;
            const double variance = std::max(0.0, squares / count - mean * mean);
            if (mean > 0.0 && variance > 0.0)
                variations.push_back(variance / (mean * mean));
        }
    if (variations.empty())
        return 0.0;
    auto middle = variations.begin() + variations.size() / 2;
    std::nth_element(variations.begin(), middle, variations.end());
    return 1.0 / *middle;
}

SigmaRange sigmaRange(double looks, double probability)
{
    // Gamma(shape L, scale 1/L): x p_L(x) is the density of shape L+1 and x^2 p_L(x) that of shape L+2 (times
    // (L+1)/L), so the truncated moments come from regularised incomplete gamma functions.
    using boost::math::gamma_p;
    using boost::math::gamma_p_inv;
    const double L = looks;
    const double outside = 1.0 - probability;
    auto upperFor = [&](double low) {
        const double below = gamma_p(L, L * low);
        const double target = below + probability;
        return target >= 1.0 ? std::numeric_limits<double>::infinity() : gamma_p_inv(L, target) / L;
    };
    auto truncatedMean = [&](double low, double high) {
        const double upper = std::isfinite(high) ? gamma_p(L + 1.0, L * high) : 1.0;
        return (upper - gamma_p(L + 1.0, L * low)) / probability;
    };
    // The truncated mean grows with the lower end: below 1 at low = 0, above 1 when the upper tail is reached.
    double a = 0.0, b = gamma_p_inv(L, outside) / L * (1.0 - 1e-12);
    for (int i = 0; i < 200 && b - a > 1e-12; ++i)
    {
        const double middle = 0.5 * (a + b);
        if (truncatedMean(middle, upperFor(middle)) < 1.0)
            a = middle;
        else
            b = middle;
    }
    SigmaRange range;
    range.low = 0.5 * (a + b);
    range.high = upperFor(range.low);
    const double upper2 = std::isfinite(range.high) ? gamma_p(L + 2.0, L * range.high) : 1.0;
    const double second = (L + 1.0) / L * (upper2 - gamma_p(L + 2.0, L * range.low)) / probability;
    const double mean = truncatedMean(range.low, range.high);
    range.truncatedVariance = second - mean * mean;
    return range;
}

double quantile(std::vector<float>& values, double q)
{
    values.erase(std::remove_if(values.begin(), values.end(), [](float v) { return !std::isfinite(v); }),
                 values.end());
    if (values.empty())
        return std::numeric_limits<double>::quiet_NaN();
    const size_t index = std::min(values.size() - 1, size_t(std::max(0.0, q) * double(values.size() - 1) + 0.5));
    std::nth_element(values.begin(), values.begin() + index, values.end());
    return values[index];
}

} // namespace sar
