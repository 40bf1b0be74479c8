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

MatrixConverter::MatrixConverter(PolMatrix from, PolMatrix to) : m_from(from), m_to(to)
{
    // Every conversion is a congruence M C M^H: M = (to the target's basis) (symmetrise or reduce) (to the
    // lexicographic basis).
    const int n = matrixSide(from), m = matrixSide(to);
    m_map = Eigen::MatrixXcd::Zero(m, n);
    if (to == PolMatrix::S2)
        return;
    // Input side: the lexicographic covariance L C_from L^H; L for T kinds is the Pauli matrix's adjoint.
    Eigen::MatrixXcd fromLex = Eigen::MatrixXcd::Identity(n, n);
    if (from == PolMatrix::T4)
        fromLex = pauli4().adjoint();
    else if (from == PolMatrix::T3)
        fromLex = pauli3().adjoint();
    Eigen::MatrixXcd reduce = Eigen::MatrixXcd::Identity(n, n);
    if (n == 4 && m < 4)
        reduce = symmetrise();
    if (m == 2 && n > 2)
    {
        Eigen::MatrixXcd toC2 = Eigen::MatrixXcd::Zero(2, 3);
        toC2(0, 0) = 1.0;
        toC2(1, 1) = 1.0 / kRoot2;
        reduce = toC2 * (n == 4 ? Eigen::MatrixXcd(symmetrise()) : Eigen::MatrixXcd::Identity(3, 3));
    }
    Eigen::MatrixXcd toTarget = Eigen::MatrixXcd::Identity(m, m);
    if (to == PolMatrix::T4)
        toTarget = pauli4();
    else if (to == PolMatrix::T3)
        toTarget = pauli3();
    m_map = toTarget * reduce * fromLex;
}

void MatrixConverter::convert(const float* in, float* out) const
{
    if (m_to == PolMatrix::S2)
    {
        std::copy(in, in + 8, out);
        return;
    }
    const int n = int(m_map.cols()), m = int(m_map.rows());
    PolCov result = PolCov::Zero();
    if (m_from == PolMatrix::S2)
    {
        Complex k[4];
        for (int i = 0; i < m; ++i)
        {
            k[i] = 0.0;
            for (int j = 0; j < 4; ++j)
                k[i] += m_map(i, j) * Complex(in[2 * j], in[2 * j + 1]);
        }
        for (int i = 0; i < m; ++i)
            for (int j = i; j < m; ++j)
                result(i, j) = k[i] * std::conj(k[j]);
    }
    else
    {
        PolCov source;
        matrixFromFloats(m_from, in, source);
        PolCov half = PolCov::Zero(); // M C
        for (int i = 0; i < m; ++i)
            for (int j = 0; j < n; ++j)
            {
                Complex sum = 0.0;
                for (int k = 0; k < n; ++k)
                    sum += m_map(i, k) * source(k, j);
                half(i, j) = sum;
            }
        for (int i = 0; i < m; ++i)
            for (int j = i; j < m; ++j)
            {
                Complex sum = 0.0;
                for (int k = 0; k < n; ++k)
                    sum += half(i, k) * std::conj(m_map(j, k));
                result(i, j) = sum;
            }
    }
    floatsFromMatrix(m_to, result, out);
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

namespace sar
{

Eigen::Matrix2cd polarisationBasis(double psiDegrees, double chiDegrees)
{
    const double psi = psiDegrees * M_PI / 180.0, chi = chiDegrees * M_PI / 180.0;
    const std::complex<double> u1(std::cos(psi) * std::cos(chi), -std::sin(psi) * std::sin(chi));
    const std::complex<double> u2(std::sin(psi) * std::cos(chi), std::cos(psi) * std::sin(chi));
    Eigen::Matrix2cd basis;
    basis << u1, -std::conj(u2), u2, std::conj(u1);
    return basis;
}

void changeScatteringBasis(const Eigen::Matrix2cd& basis, float* s)
{
    Eigen::Matrix2cd matrix;
    matrix << std::complex<double>(s[0], s[1]), std::complex<double>(s[2], s[3]), std::complex<double>(s[4], s[5]),
        std::complex<double>(s[6], s[7]);
    const Eigen::Matrix2cd changed = basis.transpose() * matrix * basis;
    for (int k = 0; k < 4; ++k)
    {
        s[2 * k] = float(changed(k / 2, k % 2).real());
        s[2 * k + 1] = float(changed(k / 2, k % 2).imag());
    }
}

PolCov changeMatrixBasis(PolMatrix kind, const PolCov& matrix, const Eigen::Matrix2cd& basis)
{
    const bool four = matrixSide(kind) == 4;
    const PolMatrix lexicographic = four ? PolMatrix::C4 : PolMatrix::C3;
    const PolCov c = convertMatrix(kind, lexicographic, matrix);
    // The linear map of the scattering vector: column j is the vector of U^T E_j U, E_j the scattering matrix of
    // the j-th unit vector.
    const int n = four ? 4 : 3;
    const double r = std::sqrt(2.0);
    PolCov a = PolCov::Zero();
    for (int j = 0; j < n; ++j)
    {
        Eigen::Matrix2cd unit = Eigen::Matrix2cd::Zero();
        if (four)
            unit(j / 2, j % 2) = 1.0;
        else if (j == 0)
            unit(0, 0) = 1.0;
        else if (j == 1)
            unit(0, 1) = unit(1, 0) = 1.0 / r;
        else
            unit(1, 1) = 1.0;
        const Eigen::Matrix2cd s = basis.transpose() * unit * basis;
        if (four)
            for (int i = 0; i < 4; ++i)
                a(i, j) = s(i / 2, i % 2);
        else
        {
            a(0, j) = s(0, 0);
            a(1, j) = r * 0.5 * (s(0, 1) + s(1, 0));
            a(2, j) = s(1, 1);
        }
    }
    PolCov changed = PolCov::Zero();
    if (four)
        changed = a * c * a.adjoint();
    else
        changed.topLeftCorner<3, 3>() = a.topLeftCorner<3, 3>() * c.topLeftCorner<3, 3>() * a.topLeftCorner<3, 3>().adjoint();
    return convertMatrix(lexicographic, kind, changed);
}

} // namespace sar
