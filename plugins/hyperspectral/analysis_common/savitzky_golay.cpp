// Savitzky-Golay weights and their application over blocks of spectra.
#include "savitzky_golay.h"

#include "raster_io.h"

#include <cmath>
#include <vector>

namespace hysa
{

Eigen::MatrixXd savitzkyGolayWeights(int window, int order, int derivative)
{
    const int half = window / 2;
    // Positions scaled to [-1, 1] keep the Vandermonde matrix well conditioned for long windows.
    const double scale = half > 0 ? double(half) : 1.0;
    Eigen::MatrixXd vandermonde(window, order + 1);
    for (int j = 0; j < window; ++j)
    {
        const double u = (j - half) / scale;
        double power = 1.0;
        for (int k = 0; k <= order; ++k, power *= u)
            vandermonde(j, k) = power;
    }
    const Eigen::MatrixXd fit = vandermonde.completeOrthogonalDecomposition().pseudoInverse(); // (order+1) x window
    Eigen::MatrixXd weights(window, window);
    for (int t = 0; t < window; ++t)
    {
        const double u = (t - half) / scale;
        Eigen::RowVectorXd basis = Eigen::RowVectorXd::Zero(order + 1);
        for (int k = derivative; k <= order; ++k)
        {
            double factor = 1.0;
            for (int m = k - derivative + 1; m <= k; ++m)
                factor *= m;
            basis(k) = factor * std::pow(u, k - derivative);
        }
        weights.row(t) = basis * fit / std::pow(scale, derivative);
    }
    return weights;
}

void savitzkyGolayFilter(const Eigen::MatrixXd& weights, const double* in, float* out, int bands, size_t pixels,
                         size_t pitch)
{
    const int window = int(weights.rows()), half = window / 2;
    algokit::parallelFor(int(pixels), [&](int first, int last) {
        const size_t begin = size_t(first), end = size_t(last);
        std::vector<double> sum(end - begin);
        for (int k = 0; k < bands; ++k)
        {
            const int start = k < half ? 0 : (k >= bands - half ? bands - window : k - half);
            const int row = k - start;
            std::fill(sum.begin(), sum.end(), 0.0);
            for (int j = 0; j < window; ++j)
            {
                const double w = weights(row, j);
                const double* source = in + size_t(start + j) * pitch + begin;
                for (size_t i = 0; i < sum.size(); ++i)
                    sum[i] += w * source[i];
            }
            float* target = out + size_t(k) * pitch + begin;
            for (size_t i = 0; i < sum.size(); ++i)
                target[i] = float(sum[i]);
        }
    });
}

} // namespace hysa
