// H/A/Alpha/Lambda of one 3x3 coherency matrix: closed-form eigenvalues with a Jacobi fallback for close ones.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

namespace polsarkernel
{

// The upper triangle of a Hermitian coherency matrix T3 (T12 = <k1 k2*>, Pauli basis).
struct Coherency
{
    double t11 = 0, t22 = 0, t33 = 0;
    double t12re = 0, t12im = 0, t13re = 0, t13im = 0, t23re = 0, t23im = 0;
};

// Eigenvalues in descending order and, for each unit eigenvector, the squared modulus of its first component.
struct EigenSummary
{
    double lambda[3];
    double first2[3];
};

struct HAAlphaLambda
{
    float entropy, anisotropy, alphaDegrees, lambda;
};

namespace detail
{

struct Cplx
{
    double re, im;
};
inline Cplx mul(Cplx a, Cplx b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }
inline Cplx add(Cplx a, Cplx b) { return {a.re + b.re, a.im + b.im}; }
inline Cplx conj(Cplx a) { return {a.re, -a.im}; }
inline double norm2(Cplx a) { return a.re * a.re + a.im * a.im; }

inline void sortDescending(EigenSummary& e)
{
    for (int i = 0; i < 2; ++i)
        for (int j = 0; j < 2 - i; ++j)
            if (e.lambda[j] < e.lambda[j + 1])
            {
                std::swap(e.lambda[j], e.lambda[j + 1]);
                std::swap(e.first2[j], e.first2[j + 1]);
            }
}

// det(T - x I) of the Hermitian matrix.
inline double shiftedDeterminant(const Coherency& t, double x)
{
    const double b11 = t.t11 - x, b22 = t.t22 - x, b33 = t.t33 - x;
    const Cplx t12{t.t12re, t.t12im}, t13{t.t13re, t.t13im}, t23{t.t23re, t.t23im};
    return b11 * b22 * b33 + 2.0 * mul(mul(t12, t23), conj(t13)).re - b11 * norm2(t23) - b22 * norm2(t13) -
           b33 * norm2(t12);
}

} // namespace detail

// Cyclic complex Jacobi rotations: slower, exact for repeated eigenvalues (a diagonal matrix keeps its basis).
inline EigenSummary eigenJacobi(const Coherency& t)
{
    using namespace detail;
    Cplx a[3][3] = {{{t.t11, 0}, {t.t12re, t.t12im}, {t.t13re, t.t13im}},
                    {{t.t12re, -t.t12im}, {t.t22, 0}, {t.t23re, t.t23im}},
                    {{t.t13re, -t.t13im}, {t.t23re, -t.t23im}, {t.t33, 0}}};
    Cplx v[3][3] = {{{1, 0}, {0, 0}, {0, 0}}, {{0, 0}, {1, 0}, {0, 0}}, {{0, 0}, {0, 0}, {1, 0}}};
    static const int kPairs[3][2] = {{0, 1}, {0, 2}, {1, 2}};
    for (int sweep = 0; sweep < 50; ++sweep)
    {
        const double off = norm2(a[0][1]) + norm2(a[0][2]) + norm2(a[1][2]);
        const double diag = a[0][0].re * a[0][0].re + a[1][1].re * a[1][1].re + a[2][2].re * a[2][2].re;
        if (off <= 1e-30 * diag || off < std::numeric_limits<double>::min())
            break;
        for (const auto& pair : kPairs)
        {
            const int p = pair[0], q = pair[1];
            const double size = std::sqrt(norm2(a[p][q]));
            if (size < std::numeric_limits<double>::min())
                continue;
            // G = diag(1, conj(e)) * [[c, s], [-s, c]] on (p, q) makes a[p][q] real, then zeroes it.
            const Cplx e{a[p][q].re / size, a[p][q].im / size};
            const double theta = (a[q][q].re - a[p][p].re) / (2.0 * size);
            const double tangent = (theta >= 0 ? 1.0 : -1.0) / (std::fabs(theta) + std::sqrt(theta * theta + 1.0));
            const double c = 1.0 / std::sqrt(tangent * tangent + 1.0), s = tangent * c;
            const Cplx gqp = mul({-s, 0}, conj(e)), gqq = mul({c, 0}, conj(e));
            for (int k = 0; k < 3; ++k) // columns: A G and V G
            {
                const Cplx akp = a[k][p], akq = a[k][q];
                a[k][p] = add(mul(akp, {c, 0}), mul(akq, gqp));
                a[k][q] = add(mul(akp, {s, 0}), mul(akq, gqq));
                const Cplx vkp = v[k][p], vkq = v[k][q];
                v[k][p] = add(mul(vkp, {c, 0}), mul(vkq, gqp));
                v[k][q] = add(mul(vkp, {s, 0}), mul(vkq, gqq));
            }
            for (int k = 0; k < 3; ++k) // rows: G^H (A G)
            {
                const Cplx apk = a[p][k], aqk = a[q][k];
                a[p][k] = add(mul({c, 0}, apk), mul(conj(gqp), aqk));
                a[q][k] = add(mul({s, 0}, apk), mul(conj(gqq), aqk));
            }
            a[p][q] = a[q][p] = {0, 0};
            a[p][p].im = a[q][q].im = 0;
        }
    }
    EigenSummary result;
    for (int i = 0; i < 3; ++i)
    {
        result.lambda[i] = a[i][i].re;
        result.first2[i] = norm2(v[0][i]);
    }
    detail::sortDescending(result);
    return result;
}

// Trigonometric roots of the characteristic polynomial, one Newton step each, and the first eigenvector
// components from the eigenvector-eigenvalue identity |u_i1|^2 = det(lambda_i - M) / prod_{j!=i}(lambda_i -
// lambda_j), M the lower-right 2x2 block. Falls back to Jacobi when two eigenvalues are within 0.1% of the largest.
inline EigenSummary eigenHermitian3(const Coherency& t)
{
    using namespace detail;
    const double q = (t.t11 + t.t22 + t.t33) / 3.0;
    const double b11 = t.t11 - q, b22 = t.t22 - q, b33 = t.t33 - q;
    const double n12 = t.t12re * t.t12re + t.t12im * t.t12im, n13 = t.t13re * t.t13re + t.t13im * t.t13im,
                 n23 = t.t23re * t.t23re + t.t23im * t.t23im;
    const double p2 = (b11 * b11 + b22 * b22 + b33 * b33 + 2.0 * (n12 + n13 + n23)) / 6.0;
    const double scale = std::fabs(q) + std::sqrt(p2);
    if (!(p2 > 1e-12 * scale * scale))
        return eigenJacobi(t);
    const double p = std::sqrt(p2);
    const double r = std::max(-1.0, std::min(1.0, shiftedDeterminant(t, q) / (2.0 * p2 * p)));
    const double phi = std::acos(r) / 3.0;
    EigenSummary e;
    e.lambda[0] = q + 2.0 * p * std::cos(phi);
    e.lambda[2] = q + 2.0 * p * std::cos(phi + 2.0943951023931954923);
    e.lambda[1] = 3.0 * q - e.lambda[0] - e.lambda[2];
    const double gap = std::min(e.lambda[0] - e.lambda[1], e.lambda[1] - e.lambda[2]);
    if (!(gap > 1e-3 * scale))
        return eigenJacobi(t);
    double product[3];
    for (int i = 0; i < 3; ++i)
    {
        const double li = e.lambda[i];
        product[i] = (li - e.lambda[(i + 1) % 3]) * (li - e.lambda[(i + 2) % 3]);
        e.lambda[i] = li + shiftedDeterminant(t, li) / product[i];
    }
    for (int i = 0; i < 3; ++i)
    {
        const double li = e.lambda[i];
        const double denominator = (li - e.lambda[(i + 1) % 3]) * (li - e.lambda[(i + 2) % 3]);
        const double first2 = ((li - t.t22) * (li - t.t33) - n23) / denominator;
        e.first2[i] = std::max(0.0, std::min(1.0, first2));
    }
    return e;
}

// Entropy (base 3), anisotropy, mean alpha in degrees and mean eigenvalue sum(p_i lambda_i). Negative eigenvalues
// (estimation noise) count as zero; a matrix without power or with a non-finite element gives NaN for all four.
inline HAAlphaLambda haAlphaLambda(const EigenSummary& e)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    double l[3];
    for (int i = 0; i < 3; ++i)
        l[i] = std::max(0.0, e.lambda[i]);
    const double sum = l[0] + l[1] + l[2];
    if (!(sum > 0.0) || !std::isfinite(sum))
        return {nan, nan, nan, nan};
    double entropy = 0.0, alpha = 0.0, lambda = 0.0;
    for (int i = 0; i < 3; ++i)
    {
        const double pi = l[i] / sum;
        if (pi > 0.0)
            entropy -= pi * std::log(pi);
        alpha += pi * std::acos(std::sqrt(std::max(0.0, std::min(1.0, e.first2[i]))));
        lambda += pi * l[i];
    }
    const double minor = l[1] + l[2];
    const double anisotropy = minor > 0.0 ? (l[1] - l[2]) / minor : 0.0;
    return {float(entropy / std::log(3.0)), float(anisotropy), float(alpha * 57.295779513082320877), float(lambda)};
}

inline HAAlphaLambda haAlphaLambda(const Coherency& t)
{
    const double all = t.t11 + t.t22 + t.t33 + t.t12re + t.t12im + t.t13re + t.t13im + t.t23re + t.t23im;
    if (!std::isfinite(all))
    {
        const float nan = std::numeric_limits<float>::quiet_NaN();
        return {nan, nan, nan, nan};
    }
    return haAlphaLambda(eigenHermitian3(t));
}

} // namespace polsarkernel
