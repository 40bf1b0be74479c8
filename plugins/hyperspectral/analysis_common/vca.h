// Vertex component analysis (Nascimento and Bioucas-Dias, 2005): the pixels at the vertices of the simplex
// that the data span, found by repeated projections onto directions orthogonal to the vertices found so far.
#pragma once

#include <Eigen/Dense>

#include <cstdint>
#include <functional>
#include <vector>

namespace hysa
{

// How the data are reduced before the vertex search, chosen from their statistics (mean, correlation
// R R^T / N, bands x bands) and the number of endmembers.
struct VcaProjection
{
    Eigen::MatrixXd basis;   // bands x d: the subspace the pixels are projected onto
    Eigen::VectorXd offset;  // subtracted before projecting (the mean in the low-SNR case, zero otherwise)
    bool projective = false; // high SNR: projected pixels are scaled onto the plane u^T y = 1
    Eigen::VectorXd u;       // the mean of the projected pixels (projective case)
    double snr = 0.0;        // estimated signal-to-noise ratio, dB
};

VcaProjection vcaProjection(const Eigen::VectorXd& mean, const Eigen::MatrixXd& correlation, int endmembers);

// The reduced coordinates of a block of spectra (bands x n) as a endmembers x n matrix; the low-SNR case still
// needs the column-norm bound (appendBound) once every pixel is projected.
Eigen::MatrixXf vcaReduce(const VcaProjection& projection, const Eigen::Ref<const Eigen::MatrixXd>& spectra);
// Low-SNR case: fills the last row with the largest norm of the other rows' columns.
void appendBound(Eigen::MatrixXf& reduced);

// Column indices of the endmember pixels among the reduced pixels (endmembers x N; columns of NaN or zero are
// never chosen). The random directions come from a fixed seed, so runs repeat.
std::vector<std::int64_t> vcaVertices(const Eigen::MatrixXf& reduced, int endmembers, unsigned seed = 20050401u);

} // namespace hysa
