// Accumulation of the cross-product matrix C += X * X^T of a band-sequential block (the heart of the
// covariance): an exact 16-bit integer kernel for integer images and a double kernel for the rest, with
// AVX2 code where the processor has it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace stats
{

// x: `rows` rows of `count` doubles, row r at x + r * stride. c: rows x rows, row-major; only the lower
// triangle (j <= i) is accumulated.
void accumulateCrossProducts(const double* x, size_t stride, int rows, size_t count, double* c);

// The same over 16-bit integers whose magnitudes are at most maxAbs (<= 32767): exact, with 32-bit sums
// over chunks short enough not to overflow, added into 64-bit totals.
void accumulateCrossProducts(const int16_t* x, size_t stride, int rows, size_t count, int maxAbs, int64_t* c);

} // namespace stats
