// The H/A/Alpha kernel on textbook scatterers and on random matrices (closed form against Jacobi).
#include "PolSAR_Decomposition/ha_alpha_kernel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>

using polsarkernel::Coherency;
using Cf = std::complex<double>;

namespace
{

// Mean of k k^H over Pauli scattering vectors.
Coherency coherencyOf(const std::vector<std::array<Cf, 3>>& vectors)
{
    Cf t[3][3] = {};
    for (const auto& k : vectors)
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                t[i][j] += k[i] * std::conj(k[j]) / double(vectors.size());
    Coherency c;
    c.t11 = t[0][0].real();
    c.t22 = t[1][1].real();
    c.t33 = t[2][2].real();
    c.t12re = t[0][1].real();
    c.t12im = t[0][1].imag();
    c.t13re = t[0][2].real();
    c.t13im = t[0][2].imag();
    c.t23re = t[1][2].real();
    c.t23im = t[1][2].imag();
    return c;
}

Coherency diagonal(double a, double b, double c)
{
    Coherency t;
    t.t11 = a;
    t.t22 = b;
    t.t33 = c;
    return t;
}

} // namespace

TEST(HAAlphaKernel, TextbookScatterers)
{
    const double s = std::sqrt(0.5);
    struct Row
    {
        const char* name;
        Coherency t;
        double entropy, anisotropy, alpha, lambda;
    } rows[] = {
        // Pure surface (HH = VV): one mechanism, alpha 0.
        {"surface", diagonal(2, 0, 0), 0.0, 0.0, 0.0, 2.0},
        // Horizontal dipole (HH only): k = (1, 1, 0)/sqrt2, alpha 45.
        {"dipole", coherencyOf({{Cf(s), Cf(s), Cf(0)}}), 0.0, 0.0, 45.0, 1.0},
        // Dihedral (HH = -VV): alpha 90.
        {"dihedral", diagonal(0, 2, 0), 0.0, 0.0, 90.0, 2.0},
        // Cloud of randomly oriented dipoles: T = diag(2,1,1)/4, H = 0.9464, alpha 45.
        {"random volume", diagonal(0.5, 0.25, 0.25), -(0.5 * std::log(0.5) + 0.5 * std::log(0.25)) / std::log(3.0), 0.0,
         45.0, 0.5 * 0.5 + 2 * 0.25 * 0.25},
        // Fully random: H = 1, alpha 60.
        {"random", diagonal(1, 1, 1), 1.0, 0.0, 60.0, 1.0},
        // Two mechanisms of power 3 and 1 (surface and dihedral): H of (0.75, 0.25), alpha 22.5, A = 1.
        {"surface + dihedral", diagonal(0.75, 0.25, 0.0),
         -(0.75 * std::log(0.75) + 0.25 * std::log(0.25)) / std::log(3.0), 1.0, 22.5, 0.75 * 0.75 + 0.25 * 0.25},
    };
    for (const Row& row : rows)
    {
        const polsarkernel::HAAlphaLambda v = polsarkernel::haAlphaLambda(row.t);
        EXPECT_NEAR(v.entropy, row.entropy, 1e-5) << row.name;
        EXPECT_NEAR(v.anisotropy, row.anisotropy, 1e-5) << row.name;
        EXPECT_NEAR(v.alphaDegrees, row.alpha, 1e-4) << row.name;
        EXPECT_NEAR(v.lambda, row.lambda, 1e-5) << row.name;
    }
}

TEST(HAAlphaKernel, ClosedFormAgreesWithJacobiAndIgnoresOrientation)
{
    std::mt19937 random(7);
    std::normal_distribution<double> normal;
    for (int trial = 0; trial < 2000; ++trial)
    {
        std::vector<std::array<Cf, 3>> vectors(2 + trial % 4);
        for (auto& k : vectors)
            for (Cf& value : k)
                value = Cf(normal(random), normal(random));
        const Coherency t = coherencyOf(vectors);
        const polsarkernel::EigenSummary fast = polsarkernel::eigenHermitian3(t);
        const polsarkernel::EigenSummary exact = polsarkernel::eigenJacobi(t);
        const double scale = exact.lambda[0];
        double firstSum = 0;
        for (int i = 0; i < 3; ++i)
        {
            EXPECT_NEAR(fast.lambda[i], exact.lambda[i], 1e-9 * scale) << trial;
            EXPECT_NEAR(fast.first2[i], exact.first2[i], 1e-6) << trial;
            firstSum += fast.first2[i];
        }
        EXPECT_NEAR(firstSum, 1.0, 1e-6);
        EXPECT_NEAR(fast.lambda[0] + fast.lambda[1] + fast.lambda[2], t.t11 + t.t22 + t.t33, 1e-9 * scale);

        // Rotating the scene about the line of sight mixes k2 and k3 only: H, A, alpha and lambda stay.
        const double angle = 2.0 * 0.37 * (trial % 5);
        std::vector<std::array<Cf, 3>> rotated = vectors;
        for (auto& k : rotated)
            k = {k[0], std::cos(angle) * k[1] + std::sin(angle) * k[2],
                 -std::sin(angle) * k[1] + std::cos(angle) * k[2]};
        const polsarkernel::HAAlphaLambda a = polsarkernel::haAlphaLambda(t),
                                          b = polsarkernel::haAlphaLambda(coherencyOf(rotated));
        EXPECT_NEAR(a.entropy, b.entropy, 1e-4);
        EXPECT_NEAR(a.anisotropy, b.anisotropy, 1e-4);
        EXPECT_NEAR(a.alphaDegrees, b.alphaDegrees, 1e-3);
        EXPECT_NEAR(a.lambda, b.lambda, 1e-4 * scale);
    }
}
