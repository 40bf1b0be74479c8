// Polarimetric matrix conversions.
#include "polsar_matrix.h"

#include <cmath>

namespace sar
{

namespace
{

using Complex = std::complex<double>;
const double kRoot2 = std::sqrt(2.0);

// Lexicographic to Pauli basis, 4 and 3 components: T = U C U^H.
Eigen::Matrix4cd pauli4()
{
    const Complex i(0.0, 1.0);
    Eigen::Matrix4cd u;
    u << 1, 0, 0, 1, 1, 0, 0, -1, 0, 1, 1, 0, 0, i, -i, 0;
    return u / kRoot2;
}

Eigen::Matrix3cd pauli3()
{
    Eigen::Matrix3cd u;
    u << 1, 0, 1, 1, 0, -1, 0, kRoot2, 0;
    return u / kRoot2;
}

// C4 -> C3 by symmetrisation: (HH, HV, VH, VV) -> (HH, (HV + VH)/sqrt2, VV).
Eigen::Matrix<Complex, 3, 4> symmetrise()
{
    Eigen::Matrix<Complex, 3, 4> a = Eigen::Matrix<Complex, 3, 4>::Zero();
    a(0, 0) = 1.0;
    a(1, 1) = a(1, 2) = 1.0 / kRoot2;
    a(2, 3) = 1.0;
    return a;
}

bool fourSided(PolMatrix kind)
{
    return kind == PolMatrix::S2 || kind == PolMatrix::C4 || kind == PolMatrix::T4;
}

// Lexicographic covariance of the source's own side.
PolCov toCovariance(PolMatrix kind, const PolCov& m)
{
    PolCov c = PolCov::Zero();
    if (kind == PolMatrix::T4)
    {
        const Eigen::Matrix4cd u = pauli4();
        c = u.adjoint() * m * u;
    }
    else if (kind == PolMatrix::T3)
    {
        const Eigen::Matrix3cd u = pauli3();
        c.topLeftCorner<3, 3>() = u.adjoint() * m.topLeftCorner<3, 3>() * u;
    }
    else
        c = m;
    return c;
}

} // namespace

void matrixFromFloats(PolMatrix kind, const float* f, PolCov& matrix)
{
    matrix.setZero();
    if (kind == PolMatrix::S2)
    {
        Eigen::Vector4cd k;
        for (int c = 0; c < 4; ++c)
            k(c) = Complex(f[2 * c], f[2 * c + 1]);
        matrix = k * k.adjoint();
        return;
    }
    const int n = matrixSide(kind);
    for (int i = 0; i < n; ++i)
        for (int j = i; j < n; ++j)
        {
            if (i == j)
                matrix(i, i) = *f++;
            else
            {
                matrix(i, j) = Complex(f[0], f[1]);
                matrix(j, i) = std::conj(matrix(i, j));
                f += 2;
            }
        }
}

void floatsFromMatrix(PolMatrix kind, const PolCov& matrix, float* f)
{
    const int n = matrixSide(kind);
    for (int i = 0; i < n; ++i)
        for (int j = i; j < n; ++j)
        {
            if (i == j)
                *f++ = float(matrix(i, i).real());
            else
            {
                *f++ = float(matrix(i, j).real());
                *f++ = float(matrix(i, j).imag());
            }
        }
}

PolCov convertMatrix(PolMatrix from, PolMatrix to, const PolCov& matrix)
{
    if (from == to)
        return matrix;
    PolCov c = toCovariance(from, matrix); // lexicographic, side of the source
    PolCov out = PolCov::Zero();
    if (fourSided(to))
    {
        if (to == PolMatrix::T4)
        {
            const Eigen::Matrix4cd u = pauli4();
            out = u * c * u.adjoint();
        }
        else
            out = c;
        return out;
    }
    Eigen::Matrix3cd c3 = fourSided(from) ? Eigen::Matrix3cd(symmetrise() * c * symmetrise().adjoint())
                                          : Eigen::Matrix3cd(c.topLeftCorner<3, 3>());
    if (to == PolMatrix::T3)
    {
        const Eigen::Matrix3cd u = pauli3();
        out.topLeftCorner<3, 3>() = u * c3 * u.adjoint();
    }
    else if (to == PolMatrix::C3)
        out.topLeftCorner<3, 3>() = c3;
    else // C2 of (HH, HV): the second component of C3 is sqrt2 HV
    {
        out(0, 0) = c3(0, 0);
        out(0, 1) = c3(0, 1) / kRoot2;
        out(1, 0) = c3(1, 0) / kRoot2;
        out(1, 1) = c3(1, 1) / 2.0;
    }
    return out;
}

double span(PolMatrix kind, const PolCov& matrix)
{
    const int n = matrixSide(kind);
    double sum = 0.0;
    for (int i = 0; i < n; ++i)
        sum += matrix(i, i).real();
    return sum;
}

} // namespace sar
