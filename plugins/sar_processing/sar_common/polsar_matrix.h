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

// The same conversion for many pixels: out = M in M^H (S2: k = M k4, out = k k^H) with M composed once.
class MatrixConverter
{
public:
    MatrixConverter(PolMatrix from, PolMatrix to);
    // One pixel, floats in file order (S2 output: copied unchanged).
    void convert(const float* in, float* out) const;

private:
    PolMatrix m_from;
    PolMatrix m_to;
    Eigen::MatrixXcd m_map; // side(to) x side(from)
};

// The span (trace) of a pixel's matrix.
double span(PolMatrix kind, const PolCov& matrix);

} // namespace sar

namespace sar
{

// The unitary change of polarisation basis from (H, V) to (u, u_orth), u the unit Jones vector of orientation psi
// and ellipticity chi (degrees): columns u = (cos psi cos chi - i sin psi sin chi, sin psi cos chi + i cos psi
// sin chi) and u_orth = (-conj u2, conj u1). psi 0, chi 0 is (H, V); chi 45 the circular basis.
Eigen::Matrix2cd polarisationBasis(double psiDegrees, double chiDegrees);

// The scattering matrix in the new basis: S' = U^T S U (monostatic, backscatter alignment). s holds s11, s12, s21,
// s22 as complex pairs, in place.
void changeScatteringBasis(const Eigen::Matrix2cd& basis, float* s);

// A C3/T3/C4/T4 pixel matrix in the new basis (the 3 x 3 kinds assume a symmetric scattering matrix); a unitary
// similarity, so the span and the eigenvalues stay.
PolCov changeMatrixBasis(PolMatrix kind, const PolCov& matrix, const Eigen::Matrix2cd& basis);

} // namespace sar
