// Otsu's threshold.
#include "otsu.h"

#include <cmath>
#include <limits>

namespace hysa
{

double otsuThreshold(const std::vector<double>& counts, double low, double width)
{
    double total = 0.0, totalMoment = 0.0;
    int occupied = 0;
    for (size_t i = 0; i < counts.size(); ++i)
    {
        total += counts[i];
        totalMoment += counts[i] * double(i);
        occupied += counts[i] > 0.0;
    }
    if (occupied < 2)
        return std::numeric_limits<double>::quiet_NaN();
    // Split after bin k: class 0 is bins 0..k. Between-class variance w0 w1 (m0 - m1)^2.
    std::vector<double> variance(counts.size(), -1.0);
    double weight0 = 0.0, moment0 = 0.0, best = -1.0;
    for (size_t k = 0; k + 1 < counts.size(); ++k)
    {
        weight0 += counts[k];
        moment0 += counts[k] * double(k);
        const double weight1 = total - weight0;
        if (weight0 <= 0.0 || weight1 <= 0.0)
            continue;
        const double difference = moment0 / weight0 - (totalMoment - moment0) / weight1;
        variance[k] = weight0 * weight1 * difference * difference;
        best = std::max(best, variance[k]);
    }
    const double tolerance = best * 1e-12;
    size_t first = 0;
    while (variance[first] < best - tolerance)
        ++first;
    size_t last = first;
    while (last + 1 < counts.size() && variance[last + 1] >= best - tolerance)
        ++last;
    return low + width * ((double(first) + double(last)) / 2.0 + 1.0);
}

} // namespace hysa
