// Per-pixel change measures and IR-MAD.
#include "change_measures.h"

#include <boost/math/special_functions/gamma.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace obia
{

namespace
{

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
// Double precision is plenty for probabilities of no change; long double made the fit three times slower.
using DoublePolicy = boost::math::policies::policy<boost::math::policies::promote_double<false>>;
// Keeps ratios finite over zero-valued pixels without moving values of ordinary magnitude.
constexpr double kRatioFloor = 1e-6;

} // namespace

void changeMagnitude(ChangeMethod method, const float* before, const float* after, const unsigned char* valid,
                     size_t count, int bands, float* magnitude, float* direction)
{
    for (size_t p = 0; p < count; ++p)
    {
        const float* x = before + p * size_t(bands);
        const float* y = after + p * size_t(bands);
        if (!valid[p])
        {
            magnitude[p] = kNan;
            if (direction)
                direction[p] = kNan;
            continue;
        }
        double sum = 0.0;
        switch (method)
        {
        case ChangeMethod::Difference:
        case ChangeMethod::Cva:
            for (int b = 0; b < bands; ++b)
            {
                const double d = double(y[b]) - double(x[b]);
                sum += d * d;
            }
            magnitude[p] = float(method == ChangeMethod::Cva ? std::sqrt(sum) : std::sqrt(sum / bands));
            break;
        case ChangeMethod::Ratio:
            for (int b = 0; b < bands; ++b)
            {
                const double u = std::max(double(x[b]), 0.0) + kRatioFloor, v = std::max(double(y[b]), 0.0) + kRatioFloor;
                sum += 1.0 - std::min(u / v, v / u);
            }
            magnitude[p] = float(sum / bands);
            break;
        case ChangeMethod::LogRatio:
            for (int b = 0; b < bands; ++b)
            {
                const double u = std::max(double(x[b]), 0.0) + kRatioFloor, v = std::max(double(y[b]), 0.0) + kRatioFloor;
                sum += std::fabs(std::log(v / u));
            }
            magnitude[p] = float(sum / bands);
            break;
        case ChangeMethod::IrMad:
            magnitude[p] = kNan; // needs the fitted transform: MadTransform::apply
            break;
        }
        if (direction)
        {
            const double d1 = double(y[0]) - double(x[0]);
            const double d2 = bands > 1 ? double(y[1]) - double(x[1]) : 0.0;
            double angle = std::atan2(d2, d1) * 180.0 / M_PI;
            if (angle < 0.0)
                angle += 360.0;
            direction[p] = float(angle);
        }
    }
}

double MadTransform::apply(const float* x, const float* y, double* mad) const
{
    const int n = bands();
    double z = 0.0;
    for (int i = 0; i < n; ++i)
    {
        double u = 0.0, v = 0.0;
        for (int k = 0; k < n; ++k)
        {
            u += a(k, i) * (double(x[k]) - meanX[k]);
            v += b(k, i) * (double(y[k]) - meanY[k]);
        }
        mad[i] = u - v;
        const double s = mad[i] / sigma[i];
        z += s * s;
    }
    return z;
}

double chiSquareSurvival(double z, int dof)
{
    if (!(z > 0.0))
        return 1.0;
    if (!std::isfinite(z))
        return 0.0;
    return boost::math::gamma_q(0.5 * dof, 0.5 * z, DoublePolicy());
}

double chiSquareQuantile(double probability, int dof)
{
    return 2.0 * boost::math::gamma_p_inv(0.5 * dof, probability, DoublePolicy());
}

MadTransform fitIrMad(const float* x, const float* y, size_t count, int bands, int maxIterations, double tolerance,
                      std::vector<double>* finalWeights)
{
    using Eigen::MatrixXd;
    using Eigen::VectorXd;
    const int n = bands;
    if (count < size_t(2 * n + 2))
        throw std::runtime_error("too few pixels for the canonical correlation analysis");
    std::vector<double> weights(count, 1.0);
    MadTransform t;
    VectorXd previousRho = VectorXd::Constant(n, -1.0);
    for (t.iterations = 1; t.iterations <= maxIterations; ++t.iterations)
    {
        // Weighted means and covariances of the stacked pair [x y].
        double weightSum = 0.0;
        VectorXd mean = VectorXd::Zero(2 * n);
        for (size_t p = 0; p < count; ++p)
        {
            const double w = weights[p];
            weightSum += w;
            for (int k = 0; k < n; ++k)
            {
                mean[k] += w * x[p * n + k];
                mean[n + k] += w * y[p * n + k];
            }
        }
        if (!(weightSum > 0.0))
            throw std::runtime_error("every pixel has zero weight");
        mean /= weightSum;
        MatrixXd covariance = MatrixXd::Zero(2 * n, 2 * n);
        VectorXd d(2 * n);
        for (size_t p = 0; p < count; ++p)
        {
            for (int k = 0; k < n; ++k)
            {
                d[k] = x[p * n + k] - mean[k];
                d[n + k] = y[p * n + k] - mean[n + k];
            }
            covariance.selfadjointView<Eigen::Lower>().rankUpdate(d, weights[p]);
        }
        covariance = covariance.selfadjointView<Eigen::Lower>();
        covariance /= weightSum;
        const MatrixXd sxx = covariance.topLeftCorner(n, n), syy = covariance.bottomRightCorner(n, n);
        const MatrixXd sxy = covariance.topRightCorner(n, n);
        Eigen::LLT<MatrixXd> lx(sxx), ly(syy);
        if (lx.info() != Eigen::Success || ly.info() != Eigen::Success || sxx.diagonal().minCoeff() <= 0.0 ||
            syy.diagonal().minCoeff() <= 0.0)
            throw std::runtime_error("a band is constant over the valid pixels");
        // Canonical correlations: with Lx Lx' = Sxx, C = Lx^-1 Sxy Syy^-1 Syx Lx^-T is symmetric with
        // eigenvalues rho^2; a = Lx^-T u, b = Syy^-1 Syx a / rho.
        const MatrixXd lxInverse = lx.matrixL().solve(MatrixXd::Identity(n, n));
        const MatrixXd syyInvSyx = ly.solve(sxy.transpose());
        const MatrixXd c = lxInverse * sxy * syyInvSyx * lxInverse.transpose();
        Eigen::SelfAdjointEigenSolver<MatrixXd> eigen(0.5 * (c + c.transpose()));
        // Eigen sorts ascending: the smallest correlation first, so MAD 1 has the largest variance.
        t.rho = eigen.eigenvalues().cwiseMax(0.0).cwiseSqrt().cwiseMin(1.0 - 1e-12);
        t.a = lxInverse.transpose() * eigen.eigenvectors();
        t.b.resize(n, n);
        for (int i = 0; i < n; ++i)
        {
            VectorXd bi = syyInvSyx * t.a.col(i);
            const double norm = std::sqrt(std::max(bi.dot(syy * bi), 1e-300));
            bi /= norm;
            // Positive correlation of each a_i with the sum of the first date's bands keeps signs stable.
            const double s = (sxx * t.a.col(i)).sum();
            if (s < 0.0)
            {
                t.a.col(i) = -t.a.col(i);
                bi = -bi;
            }
            t.b.col(i) = bi;
        }
        t.meanX = mean.head(n);
        t.meanY = mean.tail(n);
        // Scale of each MAD variate: the weighted variance 2 (1 - rho) shrinks from pass to pass (weights that
        // favour small variates make them look smaller still), so the scale comes from the median absolute
        // deviation of all pixels, which change up to half the image cannot move.
        std::vector<double> variates(count * size_t(n));
        std::vector<double> deviations(count);
        for (size_t p = 0; p < count; ++p)
            for (int i = 0; i < n; ++i)
            {
                double u = 0.0, v = 0.0;
                for (int k = 0; k < n; ++k)
                {
                    u += t.a(k, i) * (double(x[p * n + k]) - t.meanX[k]);
                    v += t.b(k, i) * (double(y[p * n + k]) - t.meanY[k]);
                }
                variates[p * n + i] = u - v;
            }
        t.sigma.resize(n);
        for (int i = 0; i < n; ++i)
        {
            for (size_t p = 0; p < count; ++p)
                deviations[p] = variates[p * n + i];
            auto middle = deviations.begin() + count / 2;
            std::nth_element(deviations.begin(), middle, deviations.end());
            const double median = *middle;
            for (size_t p = 0; p < count; ++p)
                deviations[p] = std::fabs(variates[p * n + i] - median);
            std::nth_element(deviations.begin(), middle, deviations.end());
            t.sigma[i] = std::max(1.4826 * *middle, 1e-12);
        }
        // New weights: the probability of no change of each pixel.
        for (size_t p = 0; p < count; ++p)
        {
            double z = 0.0;
            for (int i = 0; i < n; ++i)
                z += (variates[p * n + i] / t.sigma[i]) * (variates[p * n + i] / t.sigma[i]);
            weights[p] = chiSquareSurvival(z, n);
        }
        const double moved = (t.rho - previousRho).cwiseAbs().maxCoeff();
        previousRho = t.rho;
        if (moved < tolerance)
        {
            t.converged = true;
            break;
        }
    }
    t.iterations = std::min(t.iterations, maxIterations);
    if (finalWeights)
        *finalWeights = std::move(weights);
    return t;
}

} // namespace obia
