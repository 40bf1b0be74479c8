// Quality figures of a fused image against a reference: ERGAS, spectral angle, Q2n. Bands are
// float buffers of the same `count` pixels; NaN pixels are left out.
#pragma once

#include <cstddef>
#include <vector>

namespace optgeo
{

using Bands = std::vector<const float*>;

// ERGAS (Wald 2000): 100 / ratio * sqrt(mean over bands of (RMSE / reference mean)^2), where ratio is
// the multispectral pixel size over the pan pixel size.
double ergas(const Bands& reference, const Bands& fused, size_t count, double ratio);

// Mean spectral angle in degrees between reference and fused pixel vectors (pixels where either
// vector is zero are left out).
double spectralAngleDegrees(const Bands& reference, const Bands& fused, size_t count);

// Q2n (Garzelli and Nencini 2009): the universal image quality index of pixels taken as hypercomplex
// numbers of 2^k >= band-count components, on blocks of blockSize x blockSize, averaged over blocks.
// One band gives the modulus of the universal image quality index of Wang and Bovik. NaN for more
// than 8 bands (the figure is defined for 4 and 8 in practice).
double q2n(const Bands& reference, const Bands& fused, int width, int height, int blockSize = 32);

// Product of two hypercomplex numbers of 2^k components (Cayley-Dickson construction).
std::vector<double> hypercomplexProduct(const std::vector<double>& a, const std::vector<double>& b);
std::vector<double> hypercomplexConjugate(std::vector<double> a);

} // namespace optgeo
