// Dense linear algebra for the band transforms (on Eigen): symmetric eigen decomposition, band statistics streamed
// over row blocks, and a linear band transform applied block by block.
#pragma once

#include "raster_io.h"

#include <functional>
#include <vector>

namespace transform
{

using Matrix = std::vector<std::vector<double>>;

Matrix zeros(int rows, int cols);
Matrix multiply(const Matrix& a, const Matrix& b);
Matrix transpose(const Matrix& a);

// Eigenvalues in descending order and the matching unit eigenvectors as the columns of `vectors`.
void symmetricEigen(const Matrix& symmetric, std::vector<double>& values, Matrix& vectors);

// Mean vector and covariance of all bands over all pixels; with `shiftNoise`, the covariance of horizontal
// neighbour differences halved (the noise estimate of the MNF) in `noise`.
void bandStatistics(GDALDataset* dataset, std::vector<double>& mean, Matrix& covariance, Matrix* noise,
                    const std::function<void(double)>& progress);

// GDAL type of an output type code 0-6 (Float32, Byte, UInt16, Int16, UInt32, Int32, Float64); throws otherwise.
GDALDataType typeOfCode(int code);

// Writes out = matrix * (in - offset) (+ addAfter) for every pixel, block by block; matrix rows = output bands.
void applyLinear(GDALDataset* input, algokit::OutputRaster& output, const Matrix& matrix,
                 const std::vector<double>& offset, const std::vector<double>& addAfter,
                 const std::function<void(double)>& progress);

} // namespace transform
