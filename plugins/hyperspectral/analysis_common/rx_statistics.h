// Statistics of the RX anomaly detector (Reed and Yu, 1990): streamed moments, Ledoit-Wolf shrinkage of the
// covariance, whitening, and the score of a pixel against a local background.
#pragma once

#include <Eigen/Dense>

#include <cstdint>

namespace hysa
{

// First, second and fourth moments of spectra, summed about a shift (the first block's mean) so that the sums
// stay well conditioned on data far from zero.
class MomentAccumulator
{
public:
    explicit MomentAccumulator(int bands);

    // Adds the columns of `spectra` (bands x n); columns holding a NaN are skipped.
    void add(const Eigen::Ref<const Eigen::MatrixXd>& spectra);

    std::int64_t count() const { return m_count; }
    Eigen::VectorXd mean() const;
    // The maximum-likelihood covariance (divided by n).
    Eigen::MatrixXd covariance() const;
    // The unbiased sample covariance; with fewer than kPlainPixelsPerBand pixels per band, shrunk towards a
    // multiple of the identity by the Ledoit-Wolf (2004) intensity, so that it stays invertible with fewer pixels
    // than bands. `shrinkage` receives the intensity used.
    Eigen::MatrixXd shrunkCovariance(double* shrinkage = nullptr) const;

private:
    int m_bands;
    bool m_shifted = false;
    std::int64_t m_count = 0;
    Eigen::VectorXd m_shift, m_sum, m_normWeighted; // sum of y, sum of |y|^2 y
    Eigen::MatrixXd m_scatter;                      // sum of y y^T (lower triangle)
    double m_fourth = 0.0;                          // sum of |y|^4
};

// Pixels per band from which the sample covariance is used as it is. Even a small Ledoit-Wolf intensity lifts the
// noise eigenvalues of a low-rank scene (mean eigenvalue far above the noise floor) by tens of percent, and RX
// scores live in that subspace; with ten pixels per band the plain estimate loses little (Reed, Mallett and
// Brennan, 1974), so shrinkage is kept for the windows and scenes that need it.
constexpr double kPlainPixelsPerBand = 10.0;

// Ledoit-Wolf intensity in [0, 1] from the biased covariance S (1/n), n and the sum over pixels of |x - mean|^4.
double ledoitWolfShrinkage(const Eigen::MatrixXd& covariance, double count, double sumFourth);

// W with W C W^T = I (the inverse of C's Cholesky factor), so that an RX score is |W (x - mean)|^2. Returns an
// empty matrix when C is not positive definite.
Eigen::MatrixXd whitening(const Eigen::MatrixXd& covariance);

// RX score of `pixel` against the background spectra (bands x n, n >= 2): their mean and shrunk covariance.
// With fewer background pixels than bands the inverse is taken through the n x n Gram matrix (Woodbury), which
// is both cheaper and the better conditioned form. NaN when the background has no variance.
double localRxScore(const Eigen::Ref<const Eigen::MatrixXd>& background,
                    const Eigen::Ref<const Eigen::VectorXd>& pixel);

} // namespace hysa
