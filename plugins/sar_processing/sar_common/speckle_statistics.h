// Speckle statistics over intensity buffers: the equivalent number of looks of a scene, the sigma range of
// the improved sigma filter, and quantiles of a sample.
#pragma once

#include <cstddef>
#include <vector>

namespace sar
{

// ENL of an intensity image held in `data` (width x rows, NaN = no data): 1 / median of the squared
// coefficient of variation of non-overlapping window x window cells with at least half their pixels valid.
// The median passes over edges and bright targets, which only raise the coefficient. 0 when no cell qualifies.
double estimateLooks(const float* data, int width, int rows, int window = 15);

// The sigma range of the improved sigma filter for `looks`-look intensity speckle of unit mean: the interval
// [low, high] that holds `probability` of the gamma distribution and whose truncated mean is 1, and the
// variance of speckle truncated to it (the filter's modified speckle variance).
struct SigmaRange
{
    double low = 0.0;
    double high = 0.0;
    double truncatedVariance = 0.0;
};
SigmaRange sigmaRange(double looks, double probability = 0.9);

// The q-quantile (0..1) of the finite values; NaN when there are none. Reorders `values`.
double quantile(std::vector<float>& values, double q);

} // namespace sar
