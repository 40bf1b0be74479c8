// Clustering kernels.
#include "clustering.h"

#include <algorithm>
#include <limits>
#include <random>

namespace algokit
{

ClusterSums::ClusterSums(int classCount, int bandCount, bool withSquares)
    : classes(classCount), bands(bandCount), sums(size_t(classCount) * bandCount, 0.0),
      squares(withSquares ? size_t(classCount) * bandCount : 0, 0.0), counts(size_t(classCount), 0)
{
}

void ClusterSums::merge(const ClusterSums& other)
{
    for (size_t i = 0; i < sums.size(); ++i)
        sums[i] += other.sums[i];
    for (size_t i = 0; i < squares.size(); ++i)
        squares[i] += other.squares[i];
    for (size_t i = 0; i < counts.size(); ++i)
        counts[i] += other.counts[i];
    changed += other.changed;
}

namespace
{

template <int kBands>
void assignFixed(const float* pixels, size_t n, int bandsRuntime, const std::vector<float>& centres, int k,
                 unsigned char* labels, const unsigned char* previous, ClusterSums& sums)
{
    const int bands = kBands > 0 ? kBands : bandsRuntime;
    const bool squares = !sums.squares.empty();
    for (size_t p = 0; p < n; ++p)
    {
        const float* x = pixels + p * bands;
        int best = 0;
        float bestDistance = std::numeric_limits<float>::max();
        for (int c = 0; c < k; ++c)
        {
            const float* centre = &centres[size_t(c) * bands];
            float distance = 0.f;
            for (int b = 0; b < bands; ++b)
            {
                const float d = x[b] - centre[b];
                distance += d * d;
            }
            if (distance < bestDistance)
            {
                bestDistance = distance;
                best = c;
            }
        }
        labels[p] = static_cast<unsigned char>(best);
        if (previous && previous[p] != best)
            ++sums.changed;
        ++sums.counts[size_t(best)];
        double* sum = &sums.sums[size_t(best) * bands];
        for (int b = 0; b < bands; ++b)
            sum[b] += x[b];
        if (squares)
        {
            double* square = &sums.squares[size_t(best) * bands];
            for (int b = 0; b < bands; ++b)
                square[b] += double(x[b]) * x[b];
        }
    }
}

} // namespace

void assignNearest(const float* pixels, size_t n, int bands, const std::vector<double>& centres, unsigned char* labels,
                   const unsigned char* previous, ClusterSums& sums)
{
    const int k = int(centres.size() / size_t(bands));
    const std::vector<float> centresF(centres.begin(), centres.end());
    // Fixed band counts let the compiler unroll the inner loop for the usual multispectral cases.
    switch (bands)
    {
    case 1: return assignFixed<1>(pixels, n, bands, centresF, k, labels, previous, sums);
    case 2: return assignFixed<2>(pixels, n, bands, centresF, k, labels, previous, sums);
    case 3: return assignFixed<3>(pixels, n, bands, centresF, k, labels, previous, sums);
    case 4: return assignFixed<4>(pixels, n, bands, centresF, k, labels, previous, sums);
    case 6: return assignFixed<6>(pixels, n, bands, centresF, k, labels, previous, sums);
    default: return assignFixed<0>(pixels, n, bands, centresF, k, labels, previous, sums);
    }
}

std::vector<double> seedCentres(const std::vector<float>& sample, int bands, int k, unsigned seed)
{
    const size_t n = sample.size() / size_t(bands);
    std::vector<double> centres;
    if (n == 0 || k < 1)
        return std::vector<double>(size_t(std::max(k, 0)) * bands, 0.0);
    std::mt19937_64 random(seed);
    std::vector<double> nearest(n, std::numeric_limits<double>::max());
    size_t chosen = std::uniform_int_distribution<size_t>(0, n - 1)(random);
    for (int c = 0; c < k; ++c)
    {
        centres.insert(centres.end(), sample.begin() + chosen * bands, sample.begin() + (chosen + 1) * bands);
        const double* centre = &centres[size_t(c) * bands];
        double total = 0.0;
        for (size_t p = 0; p < n; ++p)
        {
            double distance = 0.0;
            for (int b = 0; b < bands; ++b)
            {
                const double d = sample[p * bands + b] - centre[b];
                distance += d * d;
            }
            nearest[p] = std::min(nearest[p], distance);
            total += nearest[p];
        }
        if (c + 1 == k)
            break;
        if (total <= 0.0)
        {
            chosen = size_t(c + 1) % n; // every sample pixel is already a centre
            continue;
        }
        double target = std::uniform_real_distribution<double>(0.0, total)(random);
        chosen = n - 1;
        for (size_t p = 0; p < n; ++p)
        {
            target -= nearest[p];
            if (target <= 0.0 && nearest[p] > 0.0)
            {
                chosen = p;
                break;
            }
        }
    }
    return centres;
}

} // namespace algokit
