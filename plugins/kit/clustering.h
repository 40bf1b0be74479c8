// Clustering kernels over pixel-interleaved float buffers: nearest-centre assignment with per-class
// accumulation, and k-means++ seeding on a sample.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace algokit
{

// Per-class sums over the pixels assigned to each class.
struct ClusterSums
{
    ClusterSums() = default;
    ClusterSums(int classes, int bands, bool withSquares);
    void merge(const ClusterSums& other);

    int classes = 0;
    int bands = 0;
    std::vector<double> sums;     // classes x bands
    std::vector<double> squares;  // classes x bands, when asked for
    std::vector<std::int64_t> counts;
    std::int64_t changed = 0;     // pixels whose label differs from the previous one
};

// Labels each of n pixels with its nearest centre (squared Euclidean; ties to the lower index) and adds
// it to `sums`. previous (may be null) gives the labels of the last pass for the change count.
void assignNearest(const float* pixels, size_t n, int bands, const std::vector<double>& centres,
                   unsigned char* labels, const unsigned char* previous, ClusterSums& sums);

// k centres chosen by k-means++ from a sample (deterministic for a given seed). When the sample has fewer
// distinct pixels than k, the remaining centres repeat chosen ones.
std::vector<double> seedCentres(const std::vector<float>& sample, int bands, int k, unsigned seed = 12345u);

} // namespace algokit
