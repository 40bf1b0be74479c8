// Fully constrained least-squares unmixing: abundances that are non-negative and sum to one (Heinz and Chang,
// 2001), solved per pixel by a primal active-set method on the endmembers' Gram matrix.
#pragma once

#include <Eigen/Dense>

#include <cstdint>
#include <unordered_map>

namespace hysa
{

class FclsSolver
{
public:
    // endmembers: bands x q (q at most 63), full column rank.
    explicit FclsSolver(const Eigen::MatrixXd& endmembers);

    // The factorised equality-constrained systems of the free sets met so far, one per thread: most pixels meet
    // the same few, so a pixel costs a few small back-substitutions.
    struct Workspace
    {
        std::unordered_map<std::uint64_t, Eigen::FullPivLU<Eigen::MatrixXd>> systems;
    };

    // Abundances of the pixel whose projections on the endmembers are h = E^T x. The optimum is exact: the
    // active set ends where the Karush-Kuhn-Tucker conditions hold.
    Eigen::VectorXd solve(const Eigen::VectorXd& h, Workspace& workspace) const;
    Eigen::VectorXd solve(const Eigen::VectorXd& h) const
    {
        Workspace workspace;
        return solve(h, workspace);
    }

private:
    Eigen::MatrixXd m_gram;
};

} // namespace hysa
