// Per-pixel radar kernels over contiguous float rows: decibels and multilook cell means, written so that the
// compiler vectorises them (no calls, no per-pixel branches).
#pragma once

#include <cstddef>
#include <vector>

namespace sar
{

// out[i] = factor * log10(in[i]) for in[i] > 0 (within 2e-7 relative of the exact value, subnormals included),
// NaN otherwise; +inf stays +inf. in and out may be the same buffer.
void decibels(const float* in, float* out, size_t count, float factor);

// Column sums over the lines of one cell row: sums[x] and counts[x] grow by each finite in[y * width + x],
// y < lines. The sums are double so that large looks keep float accuracy.
void accumulateCellLines(const float* in, size_t width, int lines, double* sums, int* counts);

// Means of whole cells of `looks` columns from the column sums of one cell row: out[c] over columns
// [c * looks, (c + 1) * looks), NaN for a cell without a finite value.
void cellMeans(const double* sums, const int* counts, int looks, size_t outWidth, float* out);

} // namespace sar
