// Independent reference computations of the hyperspectral analysis tests: brute force and dense linear algebra,
// written from the definitions rather than from the kernels.
#pragma once

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <vector>

namespace hysref
{

// The upper concave envelope at x[i]: the highest chord between valid samples on either side of it.
inline double bruteContinuum(const std::vector<double>& x, const std::vector<double>& y, size_t i)
{
    double best = -INFINITY;
    for (size_t a = 0; a < x.size(); ++a)
        for (size_t b = 0; b < x.size(); ++b)
        {
            if (std::isnan(y[a]) || std::isnan(y[b]) || x[a] > x[i] || x[b] < x[i])
                continue;
            const double value =
                x[b] == x[a] ? std::max(y[a], y[b]) : y[a] + (y[b] - y[a]) * (x[i] - x[a]) / (x[b] - x[a]);
            best = std::max(best, value);
        }
    return best;
}

// The D-th derivative at position t of the degree-P polynomial fitted by least squares to y[start, start + window).
inline double fittedDerivative(const std::vector<double>& y, int start, int window, int order, int derivative, int t)
{
    Eigen::MatrixXd a(window, order + 1);
    Eigen::VectorXd b(window);
    for (int j = 0; j < window; ++j)
    {
        for (int k = 0; k <= order; ++k)
            a(j, k) = std::pow(double(j), k);
        b(j) = y[size_t(start + j)];
    }
    const Eigen::VectorXd c = a.householderQr().solve(b);
    double value = 0.0;
    for (int k = derivative; k <= order; ++k)
    {
        double factor = 1.0;
        for (int m = 0; m < derivative; ++m)
            factor *= k - m;
        value += c(k) * factor * std::pow(double(t), k - derivative);
    }
    return value;
}

// The unbiased covariance of the columns; with fewer than 10 columns per row, shrunk towards (trace / p) I by the
// Ledoit-Wolf intensity, every sum taken literally from its definition.
inline Eigen::MatrixXd shrunkCovariance(const Eigen::MatrixXd& data, Eigen::VectorXd* mean = nullptr)
{
    const Eigen::Index p = data.rows(), n = data.cols();
    const Eigen::VectorXd m = data.rowwise().mean();
    Eigen::MatrixXd s = Eigen::MatrixXd::Zero(p, p);
    for (Eigen::Index j = 0; j < n; ++j)
        s += (data.col(j) - m) * (data.col(j) - m).transpose();
    s /= double(n);
    const double mu = s.trace() / double(p);
    const double delta = (s - mu * Eigen::MatrixXd::Identity(p, p)).squaredNorm();
    double beta = 0.0;
    for (Eigen::Index j = 0; j < n; ++j)
    {
        const Eigen::VectorXd xc = data.col(j) - m;
        beta += (xc * xc.transpose() - s).squaredNorm();
    }
    beta /= double(n) * double(n);
    const double alpha = n >= 10 * p ? 0.0 : delta > 0.0 ? std::min(beta, delta) / delta : 1.0;
    const Eigen::MatrixXd unbiased = s * double(n) / double(n - 1);
    if (mean)
        *mean = m;
    return (1 - alpha) * unbiased + alpha * (unbiased.trace() / double(p)) * Eigen::MatrixXd::Identity(p, p);
}

// RX score of a pixel against background columns: mean and shrunk covariance of the background.
inline double denseRx(const Eigen::MatrixXd& background, const Eigen::VectorXd& pixel)
{
    Eigen::VectorXd mean;
    const Eigen::MatrixXd covariance = shrunkCovariance(background, &mean);
    const Eigen::VectorXd d = pixel - mean;
    return d.dot(covariance.fullPivLu().solve(d));
}

} // namespace hysref
