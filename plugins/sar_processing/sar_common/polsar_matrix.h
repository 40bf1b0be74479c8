// Conversions between the polarimetric matrices of the folder layout, one pixel at a time.
#pragma once

#include "polsar_layout.h"

#include <Eigen/Dense>

#include <complex>

namespace sar
{

using PolCov = Eigen::Matrix4cd; // the upper-left side x side block is used

// The matrix of one pixel from its floats in file order (S2: its 4 x 4 covariance k k^H).
void matrixFromFloats(PolMatrix kind, const float* floats, PolCov& matrix);
// The floats of a matrix in file order (not for S2).
void floatsFromMatrix(PolMatrix kind, const PolCov& matrix, float* floats);

// Converts one pixel's matrix (as read by matrixFromFloats) between kinds; `convertible` must hold.
PolCov convertMatrix(PolMatrix from, PolMatrix to, const PolCov& matrix);

// The span (trace) of a pixel's matrix.
double span(PolMatrix kind, const PolCov& matrix);

} // namespace sar
