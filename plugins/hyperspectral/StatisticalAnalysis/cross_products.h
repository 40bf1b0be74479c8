// Accumulation of the cross-product matrix C += X * X^T of a band-sequential block (the heart of the
// covariance), with an AVX2/FMA kernel where the processor has it.
#pragma once

#include <cstddef>

namespace stats
{

// x: `rows` rows of `count` doubles, row r at x + r * stride. c: rows x rows, row-major; only the lower
// triangle (j <= i) is accumulated.
void accumulateCrossProducts(const double* x, size_t stride, int rows, size_t count, double* c);

} // namespace stats
