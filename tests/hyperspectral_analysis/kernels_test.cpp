// The kernels against brute force: hulls by trying every chord, Savitzky-Golay by fitting each window, RX by
// dense covariances and explicit Ledoit-Wolf sums, FCLS by enumerating supports, Otsu by trying every split.
#include "continuum.h"
#include "fcls.h"
#include "otsu.h"
#include "references.h"
#include "rx_statistics.h"
#include "savitzky_golay.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace hysref;

namespace
{

TEST(HyperspectralKernels, ContinuumMatchesTheHighestChord)
{
    std::mt19937 random(3);
    std::uniform_real_distribution<double> uniform(0.05, 1.0);
    for (int trial = 0; trial < 40; ++trial)
    {
        const int n = 3 + trial % 29;
        std::vector<double> x(static_cast<size_t>(n)), y(x), out(x);
        std::vector<int> hull(static_cast<size_t>(n));
        double position = 400.0;
        for (int i = 0; i < n; ++i)
        {
            // Uneven spacing, with a repeated wavelength now and then.
            position += (i % 7 == 3 && trial % 2) ? 0.0 : 3.0 + 10.0 * uniform(random);
            x[size_t(i)] = position;
            y[size_t(i)] = uniform(random);
        }
        if (trial % 3 == 0)
            y[size_t(n / 2)] = NAN;
        hysa::removeContinuum(x.data(), y.data(), n, out.data(), hull.data());
        for (int i = 0; i < n; ++i)
        {
            if (std::isnan(y[size_t(i)]))
            {
                EXPECT_TRUE(std::isnan(out[size_t(i)]));
                continue;
            }
            EXPECT_NEAR(out[size_t(i)], y[size_t(i)] / bruteContinuum(x, y, size_t(i)), 1e-12) << trial << " " << i;
        }
    }
    // A straight line is its own hull; a single dip is measured from the chord over it.
    const std::vector<double> x{1, 2, 3, 4, 5}, line{1, 2, 3, 4, 5}, dip{1, 1, 0.5, 1, 1};
    std::vector<double> out(5);
    std::vector<int> hull(5);
    hysa::removeContinuum(x.data(), line.data(), 5, out.data(), hull.data());
    for (double v : out)
        EXPECT_DOUBLE_EQ(v, 1.0);
    hysa::removeContinuum(x.data(), dip.data(), 5, out.data(), hull.data());
    EXPECT_DOUBLE_EQ(out[2], 0.5);
}

TEST(HyperspectralKernels, SavitzkyGolayEqualsTheLeastSquaresFitOfEachWindow)
{
    struct Case
    {
        int bands, window, order, derivative;
    };
    for (const Case& c :
         {Case{12, 5, 2, 0}, Case{12, 7, 3, 1}, Case{9, 9, 4, 2}, Case{20, 11, 0, 0}, Case{15, 5, 1, 1}})
    {
        const size_t pixels = 3;
        std::vector<std::vector<double>> spectra(pixels);
        std::vector<double> in(pixels * size_t(c.bands));
        for (size_t i = 0; i < pixels; ++i)
            for (int k = 0; k < c.bands; ++k)
            {
                const double v = std::sin(0.7 * k + double(i)) + 0.01 * k * k + ((k * 7 + int(i)) % 5) * 0.1;
                spectra[i].push_back(v);
                in[size_t(k) * pixels + i] = v;
            }
        std::vector<float> out(in.size());
        hysa::savitzkyGolayFilter(hysa::savitzkyGolayWeights(c.window, c.order, c.derivative), in.data(), out.data(),
                                  c.bands, pixels, pixels);
        const int half = c.window / 2;
        for (size_t i = 0; i < pixels; ++i)
            for (int k = 0; k < c.bands; ++k)
            {
                const int start = k < half ? 0 : k >= c.bands - half ? c.bands - c.window : k - half;
                const double expected = fittedDerivative(spectra[i], start, c.window, c.order, c.derivative, k - start);
                EXPECT_NEAR(out[size_t(k) * pixels + i], expected, 2e-5 * (1 + std::abs(expected)))
                    << c.window << "/" << c.order << "/" << c.derivative << " band " << k;
            }
    }
}

Eigen::MatrixXd correlatedSpectra(int bands, int count, unsigned seed, double offset)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> normal;
    Eigen::MatrixXd mixing(bands, 3);
    for (int k = 0; k < bands; ++k)
        for (int f = 0; f < 3; ++f)
            mixing(k, f) = std::cos(0.3 * k * (f + 1)) + 0.2 * f;
    Eigen::MatrixXd data(bands, count);
    for (int j = 0; j < count; ++j)
    {
        Eigen::Vector3d factors(normal(random), normal(random), normal(random));
        for (int k = 0; k < bands; ++k)
            data(k, j) = offset + 10.0 * mixing.row(k).dot(factors) + 0.5 * normal(random);
    }
    return data;
}

TEST(HyperspectralKernels, LocalRxScoreEqualsTheDenseComputationWithFewOrManyPixels)
{
    // 40 pixels of 6 bands (covariance form) and 20 pixels of 50 bands (Gram form).
    for (const auto& [bands, count] : {std::pair<int, int>{6, 40}, std::pair<int, int>{50, 20}})
    {
        const Eigen::MatrixXd background = correlatedSpectra(bands, count, 11, 100.0);
        const Eigen::MatrixXd pixels = correlatedSpectra(bands, 3, 12, 103.0);
        for (int j = 0; j < 3; ++j)
        {
            const double expected = denseRx(background, pixels.col(j));
            EXPECT_NEAR(hysa::localRxScore(background, pixels.col(j)), expected, 1e-8 * expected) << bands;
        }
    }
    // A flat background has no covariance to measure against.
    EXPECT_TRUE(std::isnan(hysa::localRxScore(Eigen::MatrixXd::Constant(4, 10, 2.0), Eigen::VectorXd::Ones(4))));
}

TEST(HyperspectralKernels, StreamedMomentsGiveTheDenseCovarianceShrunkOnlyWithFewPixelsPerBand)
{
    // Far from zero, in uneven blocks and with a missing pixel: the shifted sums must not lose precision.
    // 299 pixels: 40 bands are shrunk (under 10 pixels per band), 8 bands are not.
    for (const int bands : {40, 8})
    {
        const Eigen::MatrixXd data = correlatedSpectra(bands, 300, 5, 1.0e4);
        hysa::MomentAccumulator moments(bands);
        Eigen::MatrixXd withGap = data;
        withGap(3, 17) = NAN;
        moments.add(withGap.leftCols(7));
        moments.add(withGap.middleCols(7, 200));
        moments.add(withGap.rightCols(93));
        Eigen::MatrixXd complete(bands, 299);
        complete << data.leftCols(17), data.rightCols(282);
        ASSERT_EQ(moments.count(), 299);
        EXPECT_LT((moments.mean() - complete.rowwise().mean()).norm(), 1e-8);
        double alpha = -1.0;
        const Eigen::MatrixXd shrunk = moments.shrunkCovariance(&alpha);
        if (bands == 40)
        {
            EXPECT_GT(alpha, 0.0);
            EXPECT_LT(alpha, 0.5);
        }
        else
        {
            EXPECT_EQ(alpha, 0.0);
        }
        // Compared through the score of one pixel, directly and through the whitening.
        const Eigen::VectorXd pixel = data.col(0) + Eigen::VectorXd::Constant(bands, 3.0);
        const Eigen::VectorXd d = pixel - moments.mean();
        const double expected = denseRx(complete, pixel);
        EXPECT_NEAR(d.dot(shrunk.ldlt().solve(d)), expected, 1e-6 * expected) << bands;
        const Eigen::MatrixXd w = hysa::whitening(shrunk);
        ASSERT_EQ(w.rows(), bands);
        EXPECT_NEAR((w * d).squaredNorm(), expected, 1e-6 * expected) << bands;
    }
    EXPECT_EQ(hysa::whitening(Eigen::MatrixXd::Zero(3, 3)).size(), 0);
}

TEST(HyperspectralKernels, FclsFindsTheBestAbundancesOfEverySupport)
{
    // Reference: the equality-constrained least squares on every support, keeping the best non-negative one.
    std::mt19937 random(9);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    const int bands = 7, q = 4;
    Eigen::MatrixXd e(bands, q);
    for (int k = 0; k < bands; ++k)
        for (int i = 0; i < q; ++i)
            e(k, i) = 0.1 + uniform(random);
    const hysa::FclsSolver solver(e);
    for (int trial = 0; trial < 50; ++trial)
    {
        Eigen::VectorXd x(bands);
        for (int k = 0; k < bands; ++k)
            x(k) = 2.0 * uniform(random) - 0.3;
        double bestResidual = INFINITY;
        Eigen::VectorXd best;
        for (int mask = 1; mask < (1 << q); ++mask)
        {
            std::vector<int> support;
            for (int i = 0; i < q; ++i)
                if (mask & (1 << i))
                    support.push_back(i);
            const int s = int(support.size());
            // Sum to one enforced exactly by eliminating the last abundance.
            Eigen::MatrixXd reduced(bands, s - 1);
            for (int i = 0; i + 1 < s; ++i)
                reduced.col(i) = e.col(support[size_t(i)]) - e.col(support.back());
            Eigen::VectorXd a = Eigen::VectorXd::Zero(q);
            if (s > 1)
            {
                const Eigen::VectorXd c = reduced.colPivHouseholderQr().solve(x - e.col(support.back()));
                for (int i = 0; i + 1 < s; ++i)
                    a(support[size_t(i)]) = c(i);
                a(support.back()) = 1.0 - c.sum();
            }
            else
                a(support[0]) = 1.0;
            if (a.minCoeff() < -1e-12)
                continue;
            const double residual = (e * a - x).squaredNorm();
            if (residual < bestResidual)
            {
                bestResidual = residual;
                best = a;
            }
        }
        const Eigen::VectorXd a = solver.solve(e.transpose() * x);
        EXPECT_NEAR(a.sum(), 1.0, 1e-9);
        EXPECT_GE(a.minCoeff(), 0.0);
        EXPECT_LT((a - best).cwiseAbs().maxCoeff(), 1e-7) << trial;
    }
}

TEST(HyperspectralKernels, OtsuSplitsWhereTheBetweenClassVarianceIsLargest)
{
    // A bimodal histogram of the values 0..63; brute force over every split of the raw values.
    std::vector<double> counts(64, 0.0);
    std::vector<int> values;
    for (int v = 0; v < 64; ++v)
    {
        counts[size_t(v)] = std::round(100.0 * std::exp(-0.5 * std::pow((v - 15) / 4.0, 2)) +
                                       60.0 * std::exp(-0.5 * std::pow((v - 44) / 6.0, 2)));
        values.insert(values.end(), size_t(counts[size_t(v)]), v);
    }
    double best = -1.0;
    int split = -1;
    for (int t = 1; t < 64; ++t)
    {
        double n0 = 0, n1 = 0, s0 = 0, s1 = 0;
        for (int v : values)
            (v < t ? n0 : n1) += 1, (v < t ? s0 : s1) += v;
        if (n0 == 0 || n1 == 0)
            continue;
        const double between = n0 * n1 * std::pow(s0 / n0 - s1 / n1, 2);
        if (between > best)
            best = between, split = t;
    }
    const double threshold = hysa::otsuThreshold(counts, -0.5, 1.0);
    EXPECT_DOUBLE_EQ(threshold, split - 0.5);
    // Two separated modes: any split in the gap is optimal, and the middle of the gap is chosen.
    std::vector<double> gap(101, 0.0);
    gap[10] = gap[12] = gap[90] = 5;
    EXPECT_DOUBLE_EQ(hysa::otsuThreshold(gap, 0.0, 1.0), 51.5);
    EXPECT_TRUE(std::isnan(hysa::otsuThreshold(std::vector<double>{0, 7, 0}, 0.0, 1.0)));
}

} // namespace
