// Fully constrained least-squares unmixing.
#include "fcls.h"

#include <vector>

namespace hysa
{

FclsSolver::FclsSolver(const Eigen::MatrixXd& endmembers) : m_gram(endmembers.transpose() * endmembers) {}

Eigen::VectorXd FclsSolver::solve(const Eigen::VectorXd& h, Workspace& workspace) const
{
    // minimise a^T G a / 2 - h^T a subject to 1^T a = 1, a >= 0, starting from the feasible centre.
    const int q = int(m_gram.rows());
    const double tolerance = 1e-12 * std::max(1.0, m_gram.diagonal().maxCoeff());
    Eigen::VectorXd a = Eigen::VectorXd::Constant(q, 1.0 / q);
    std::vector<char> atBound(size_t(q), 0);
    for (int iteration = 0; iteration < 10 * q + 10; ++iteration)
    {
        std::vector<int> free;
        std::uint64_t mask = 0;
        for (int i = 0; i < q; ++i)
            if (!atBound[size_t(i)])
            {
                free.push_back(i);
                mask |= std::uint64_t(1) << i;
            }
        const int f = int(free.size());
        const Eigen::VectorXd gradient = m_gram * a - h;
        // Step p on the free set keeping the sum: [G_FF 1; 1^T 0] [p; lambda] = [-g_F; 0].
        auto system = workspace.systems.find(mask);
        if (system == workspace.systems.end())
        {
            if (workspace.systems.size() >= 4096)
                workspace.systems.clear();
            Eigen::MatrixXd kkt = Eigen::MatrixXd::Zero(f + 1, f + 1);
            for (int r = 0; r < f; ++r)
            {
                for (int c = 0; c < f; ++c)
                    kkt(r, c) = m_gram(free[size_t(r)], free[size_t(c)]);
                kkt(r, f) = kkt(f, r) = 1.0;
            }
            system = workspace.systems.emplace(mask, kkt.fullPivLu()).first;
        }
        Eigen::VectorXd rhs = Eigen::VectorXd::Zero(f + 1);
        for (int r = 0; r < f; ++r)
            rhs(r) = -gradient(free[size_t(r)]);
        const Eigen::VectorXd solution = system->second.solve(rhs);
        const Eigen::VectorXd step = solution.head(f);
        const double lambda = solution(f);
        if (step.cwiseAbs().maxCoeff() <= 1e-12)
        {
            // Stationary on the free set: release the bound whose multiplier g_i + lambda is most negative.
            int release = -1;
            double worst = -tolerance;
            for (int i = 0; i < q; ++i)
                if (atBound[size_t(i)] && gradient(i) + lambda < worst)
                {
                    worst = gradient(i) + lambda;
                    release = i;
                }
            if (release < 0)
                break;
            atBound[size_t(release)] = 0;
            continue;
        }
        double length = 1.0;
        int blocking = -1;
        for (int r = 0; r < f; ++r)
            if (step(r) < 0.0)
            {
                const double limit = -a(free[size_t(r)]) / step(r);
                if (limit < length)
                {
                    length = limit;
                    blocking = free[size_t(r)];
                }
            }
        for (int r = 0; r < f; ++r)
            a(free[size_t(r)]) += length * step(r);
        if (blocking >= 0)
        {
            a(blocking) = 0.0;
            atBound[size_t(blocking)] = 1;
        }
    }
    return a.cwiseMax(0.0);
}

} // namespace hysa
