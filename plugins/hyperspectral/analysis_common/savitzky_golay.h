// Savitzky-Golay filtering along the spectral axis: least-squares polynomial fits over a moving window.
#pragma once

#include <Eigen/Dense>

#include <cstddef>

namespace hysa
{

// Weights of the polynomial of degree `order` fitted by least squares to `window` equally spaced samples: row t
// gives the fitted value (derivative > 0: its derivative per sample step) at position t of the window.
Eigen::MatrixXd savitzkyGolayWeights(int window, int order, int derivative);

// Filters spectra stored band-sequentially (in[k * pitch + i], k < bands, i < pixels) into out (same layout).
// Interior bands use the centre row of the weights; the first and last window/2 bands are evaluated on the
// polynomial fitted to the first and last window. bands >= window.
void savitzkyGolayFilter(const Eigen::MatrixXd& weights, const double* in, float* out, int bands, size_t pixels,
                         size_t pitch);

} // namespace hysa
