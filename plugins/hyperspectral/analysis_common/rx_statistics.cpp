// RX statistics: streamed moments, shrinkage, whitening and local scores.
#include "rx_statistics.h"

#include <cmath>
#include <limits>

namespace hysa
{

MomentAccumulator::MomentAccumulator(int bands)
    : m_bands(bands), m_shift(Eigen::VectorXd::Zero(bands)), m_sum(Eigen::VectorXd::Zero(bands)),
      m_normWeighted(Eigen::VectorXd::Zero(bands)), m_scatter(Eigen::MatrixXd::Zero(bands, bands))
{
}

void MomentAccumulator::add(const Eigen::Ref<const Eigen::MatrixXd>& spectra)
{
    std::vector<Eigen::Index> valid;
    valid.reserve(size_t(spectra.cols()));
    for (Eigen::Index j = 0; j < spectra.cols(); ++j)
        if (!spectra.col(j).hasNaN())
            valid.push_back(j);
    if (valid.empty())
        return;
    Eigen::MatrixXd y(m_bands, Eigen::Index(valid.size()));
    for (size_t j = 0; j < valid.size(); ++j)
        y.col(Eigen::Index(j)) = spectra.col(valid[j]);
    if (!m_shifted)
    {
        m_shift = y.rowwise().mean();
        m_shifted = true;
    }
    y.colwise() -= m_shift;
    const Eigen::VectorXd norms = y.colwise().squaredNorm().transpose();
    m_count += std::int64_t(valid.size());
    m_sum += y.rowwise().sum();
    m_normWeighted += y * norms;
    m_fourth += norms.squaredNorm();
    m_scatter.selfadjointView<Eigen::Lower>().rankUpdate(y);
}

Eigen::VectorXd MomentAccumulator::mean() const
{
    return m_shift + m_sum / double(std::max<std::int64_t>(1, m_count));
}

Eigen::MatrixXd MomentAccumulator::covariance() const
{
    const double n = double(std::max<std::int64_t>(1, m_count));
    const Eigen::VectorXd d = m_sum / n;
    return Eigen::MatrixXd(m_scatter.selfadjointView<Eigen::Lower>()) / n - d * d.transpose();
}

Eigen::MatrixXd MomentAccumulator::shrunkCovariance(double* shrinkage) const
{
    const double n = double(m_count);
    const Eigen::MatrixXd scatter = m_scatter.selfadjointView<Eigen::Lower>();
    const Eigen::VectorXd d = m_sum / n; // mean minus shift
    const Eigen::MatrixXd biased = scatter / n - d * d.transpose();
    // Sum of |y - d|^4 expanded in the sums kept, y being the shifted spectra.
    const double c = d.squaredNorm();
    const double sumProjSq = d.dot(scatter * d);
    const double fourth = m_fourth + 4.0 * sumProjSq + n * c * c - 4.0 * d.dot(m_normWeighted) +
                          2.0 * c * scatter.trace() - 4.0 * c * n * c;
    const double alpha =
        n >= kPlainPixelsPerBand * m_bands ? 0.0 : ledoitWolfShrinkage(biased, n, std::max(0.0, fourth));
    if (shrinkage)
        *shrinkage = alpha;
    const Eigen::MatrixXd unbiased = biased * (n / std::max(1.0, n - 1.0));
    const double mu = unbiased.trace() / m_bands;
    Eigen::MatrixXd shrunk = (1.0 - alpha) * unbiased;
    shrunk.diagonal().array() += alpha * mu;
    return shrunk;
}

double ledoitWolfShrinkage(const Eigen::MatrixXd& covariance, double count, double sumFourth)
{
    const double p = double(covariance.rows());
    const double mu = covariance.trace() / p;
    const double frobenius = covariance.squaredNorm();
    const double delta = frobenius - p * mu * mu; // |S - mu I|^2
    if (!(delta > 0.0) || !(count > 0.0))
        return mu > 0.0 ? 1.0 : 0.0;
    const double beta = std::max(0.0, (sumFourth - count * frobenius) / (count * count));
    return std::min(beta, delta) / delta;
}

Eigen::MatrixXd whitening(const Eigen::MatrixXd& covariance)
{
    if (!covariance.allFinite())
        return {};
    Eigen::LLT<Eigen::MatrixXd> cholesky(covariance);
    if (cholesky.info() != Eigen::Success)
        return {};
    Eigen::MatrixXd w = Eigen::MatrixXd::Identity(covariance.rows(), covariance.cols());
    cholesky.matrixL().solveInPlace(w);
    if (!w.allFinite())
        return {};
    return w;
}

double localRxScore(const Eigen::Ref<const Eigen::MatrixXd>& background, const Eigen::Ref<const Eigen::VectorXd>& pixel)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const Eigen::Index p = background.rows(), n = background.cols();
    if (n < 2)
        return nan;
    const Eigen::VectorXd mean = background.rowwise().mean();
    const Eigen::MatrixXd centred = background.colwise() - mean;
    const Eigen::VectorXd d = pixel - mean;
    const double nn = double(n);
    const bool plain = nn >= kPlainPixelsPerBand * double(p);
    // The scatter in the smaller of its two forms: X_c^T X_c (n x n) with fewer pixels than bands, else X_c X_c^T.
    const bool gramForm = n < p;
    Eigen::MatrixXd scatter = Eigen::MatrixXd::Zero(gramForm ? n : p, gramForm ? n : p);
    if (gramForm)
        scatter.selfadjointView<Eigen::Lower>().rankUpdate(centred.transpose());
    else
        scatter.selfadjointView<Eigen::Lower>().rankUpdate(centred);
    scatter = scatter.selfadjointView<Eigen::Lower>();
    const double trace = scatter.trace();
    if (!(trace > 0.0))
        return nan;
    double alpha = 0.0;
    const double mu = trace / nn / double(p); // of the biased covariance S
    if (!plain)
    {
        // Ledoit-Wolf: |S|_F = |scatter|_F / n in either form; sum |x_c|^4 over the pixels.
        const double frobenius = scatter.squaredNorm() / (nn * nn);
        const double delta = frobenius - double(p) * mu * mu;
        const double fourth = centred.colwise().squaredNorm().squaredNorm();
        alpha = delta > 0.0 ? std::min(std::max(0.0, (fourth - nn * frobenius) / (nn * nn)), delta) / delta : 1.0;
    }
    // Covariance a I + b X_c X_c^T, unbiased like the global one.
    const double a = alpha * mu * nn / (nn - 1.0), b = (1.0 - alpha) / (nn - 1.0);
    if (gramForm)
    {
        // Woodbury: (a I + b X X^T)^-1 = (I - b X (a I + b X^T X)^-1 X^T) / a.
        if (!(a > 0.0))
            return nan;
        Eigen::MatrixXd inner = b * scatter;
        inner.diagonal().array() += a;
        const Eigen::VectorXd v = centred.transpose() * d;
        Eigen::LLT<Eigen::MatrixXd> cholesky(inner);
        if (cholesky.info() != Eigen::Success)
            return nan;
        return (d.squaredNorm() - b * v.dot(cholesky.solve(v))) / a;
    }
    Eigen::MatrixXd covariance = b * scatter;
    covariance.diagonal().array() += a;
    Eigen::LLT<Eigen::MatrixXd> cholesky(covariance);
    if (cholesky.info() != Eigen::Success)
        return nan;
    return cholesky.matrixL().solve(d).squaredNorm();
}

} // namespace hysa
