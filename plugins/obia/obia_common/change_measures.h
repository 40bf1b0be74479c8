// Per-pixel change measures between two dates over pixel-interleaved band values, and the iteratively
// reweighted multivariate alteration detection (IR-MAD, Nielsen 2007).
#pragma once

#include <Eigen/Dense>

#include <cstddef>
#include <vector>

namespace obia
{

enum class ChangeMethod
{
    Difference = 0, // root mean square of the band differences
    Ratio = 1,      // mean over bands of 1 - min(a/b, b/a)
    LogRatio = 2,   // mean over bands of |ln(a/b)|
    Cva = 3,        // length of the change vector, with its direction
    IrMad = 4       // chi-square sum of the standardised MAD variates
};

// Magnitude (and, for the change vector, the direction in degrees from the first band difference towards the
// second, 0..360) of `count` pixels with `bands` values each. A pixel whose `valid` byte is 0 gets NaN.
// direction may be null.
void changeMagnitude(ChangeMethod method, const float* before, const float* after, const unsigned char* valid,
                     size_t count, int bands, float* magnitude, float* direction);

// The linear map of IR-MAD: MAD_i = a_i . (x - meanX) - b_i . (y - meanY), ordered by increasing canonical
// correlation (MAD 1 carries the largest variance), each standardised by sigma_i, its robust scale over the
// fitted pixels (1.4826 times the median absolute deviation).
struct MadTransform
{
    Eigen::MatrixXd a; // bands x bands, column i is a_i
    Eigen::MatrixXd b;
    Eigen::VectorXd meanX;
    Eigen::VectorXd meanY;
    Eigen::VectorXd rho;
    Eigen::VectorXd sigma;
    int iterations = 0;
    bool converged = false;

    int bands() const { return int(rho.size()); }
    // The MAD variates of one pixel into mad (bands values); returns the chi-square statistic sum (MAD_i/sigma_i)^2.
    double apply(const float* x, const float* y, double* mad) const;
};

// Fits IR-MAD to `count` pixels (pixel-interleaved, `bands` values each, no invalid pixel among them): canonical
// correlation analysis of the weighted pair, weights renewed as the chi-square probability of no change, until the
// canonical correlations move less than `tolerance` or after maxIterations. Throws std::runtime_error when the
// covariance of either date is singular (a constant band).
MadTransform fitIrMad(const float* x, const float* y, size_t count, int bands, int maxIterations = 30,
                      double tolerance = 1e-6, std::vector<double>* finalWeights = nullptr);

// Probability that a chi-square variable with `dof` degrees of freedom exceeds z (the no-change weight of IR-MAD).
double chiSquareSurvival(double z, int dof);
// The chi-square quantile: z with P(chi2_dof <= z) = probability.
double chiSquareQuantile(double probability, int dof);

} // namespace obia
