// Resampling between axis-aligned pixel grids: interpolation onto a finer grid, area averages onto a
// coarser one, and separable low-pass filters; all over float buffers, rows contiguous.
#pragma once

#include <vector>

namespace optgeo
{

enum class Interpolation
{
    Nearest = 0,
    Bilinear = 1,
    Cubic = 2
};

// Maps a destination pixel index d along one axis to continuous source coordinates (pixel corners at
// whole numbers, the first pixel's centre at 0.5): the centre of d lies at offset + scale * (d + 0.5).
struct AxisMap
{
    double offset = 0.0;
    double scale = 1.0;
    double centre(int d) const { return offset + scale * (d + 0.5); }
};

// A block of source rows held in memory: rows [row0, row0 + rows) of an image `width` wide and
// `height` high (height: the whole image's, for edge handling).
struct SourceRows
{
    const float* data = nullptr;
    int width = 0;
    int row0 = 0;
    int rows = 0;
    int height = 0;
};

// Interpolates one source band at the destination pixels [x0, x0 + cols) x [y0, y0 + rows) into dst
// (rows x cols). A destination pixel whose centre falls outside the source image gets `outside`;
// kernels reaching past the edge repeat the edge pixel. Cubic is the Keys kernel with a = -0.5.
void interpolate(const SourceRows& src, const AxisMap& xmap, const AxisMap& ymap, int x0, int cols, int y0,
                 int rows, Interpolation method, float outside, float* dst);

// Source rows that interpolate() needs for destination rows [y0, y0 + rows): [first, last] clamped
// to the image; last < first when none.
void sourceRowsNeeded(const AxisMap& ymap, int y0, int rows, int srcHeight, Interpolation method, int* first,
                      int* last);

// Area-weighted average of the source over each destination pixel, whose extent along each axis is
// [offset + scale * d, offset + scale * (d + 1)) in source coordinates (scale >= 1 for a coarser
// grid). Parts outside the source are left out of the weights; a pixel with none gets `outside`.
// The source is whole (src.row0 == 0, src.rows == src.height).
void areaAverage(const SourceRows& src, const AxisMap& xmap, const AxisMap& ymap, int cols, int rows,
                 float outside, float* dst);

// Separable low-pass filters over rows x cols with the edge pixel repeated; dst may not alias src.
void boxFilter(const float* src, int cols, int rows, int size, float* dst);
void gaussianFilter(const float* src, int cols, int rows, double sigma, float* dst);

// Weights of the normalised Gaussian kernel of the given sigma, radius ceil(3 sigma) (at least 1).
std::vector<double> gaussianKernel(double sigma);

} // namespace optgeo
