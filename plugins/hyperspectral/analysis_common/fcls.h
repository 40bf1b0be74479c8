// Fully constrained least-squares unmixing: abundances that are non-negative and sum to one (Heinz and Chang,
// 2001), solved per pixel by a primal active-set method on the endmembers' Gram matrix.
#pragma once

#include <Eigen/Dense>

namespace hysa
{

class FclsSolver
{
public:
    // endmembers: bands x q, full column rank.
    explicit FclsSolver(const Eigen::MatrixXd& endmembers);

    // Abundances of the pixel whose projections on the endmembers are h = E^T x. The optimum is exact: the
    // active set ends where the Karush-Kuhn-Tucker conditions hold.
    Eigen::VectorXd solve(const Eigen::VectorXd& h) const;

    const Eigen::MatrixXd& endmembers() const { return m_endmembers; }

private:
    Eigen::MatrixXd m_endmembers;
    Eigen::MatrixXd m_gram;
};

} // namespace hysa
