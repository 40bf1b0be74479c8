// Vertex component analysis.
#include "vca.h"

#include "raster_io.h"

#include <cmath>
#include <mutex>
#include <random>

namespace hysa
{

namespace
{

// The eigenvectors of the `count` largest eigenvalues of a symmetric matrix, largest first.
Eigen::MatrixXd leadingEigenvectors(const Eigen::MatrixXd& matrix, int count, double* eigenSum = nullptr)
{
    Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> solver(matrix);
    const Eigen::Index n = matrix.rows();
    Eigen::MatrixXd basis(n, count);
    double sum = 0.0;
    for (int i = 0; i < count; ++i)
    {
        basis.col(i) = solver.eigenvectors().col(n - 1 - i);
        sum += solver.eigenvalues()(n - 1 - i);
    }
    if (eigenSum)
        *eigenSum = sum;
    return basis;
}

} // namespace

VcaProjection vcaProjection(const Eigen::VectorXd& mean, const Eigen::MatrixXd& correlation, int endmembers)
{
    const double bands = double(mean.size());
    const Eigen::MatrixXd covariance = correlation - mean * mean.transpose();
    // Signal power against noise power after keeping `endmembers` principal components.
    double kept = 0.0;
    leadingEigenvectors(covariance, endmembers, &kept);
    const double powerY = correlation.trace();
    const double powerX = kept + mean.squaredNorm();
    VcaProjection projection;
    projection.snr =
        10.0 * std::log10(std::max(1e-300, (powerX - endmembers / bands * powerY)) / std::max(1e-300, powerY - powerX));
    const double threshold = 15.0 + 10.0 * std::log10(double(endmembers));
    if (projection.snr > threshold)
    {
        projection.projective = true;
        projection.basis = leadingEigenvectors(correlation, endmembers);
        projection.offset = Eigen::VectorXd::Zero(mean.size());
        projection.u = projection.basis.transpose() * mean;
    }
    else
    {
        projection.basis = leadingEigenvectors(covariance, endmembers - 1);
        projection.offset = mean;
    }
    return projection;
}

Eigen::MatrixXf vcaReduce(const VcaProjection& projection, const Eigen::Ref<const Eigen::MatrixXd>& spectra)
{
    const int endmembers = int(projection.projective ? projection.basis.cols() : projection.basis.cols() + 1);
    Eigen::MatrixXd x = projection.basis.transpose() * (spectra.colwise() - projection.offset);
    Eigen::MatrixXf reduced = Eigen::MatrixXf::Zero(endmembers, spectra.cols());
    for (Eigen::Index j = 0; j < spectra.cols(); ++j)
    {
        if (x.col(j).hasNaN())
            continue;
        if (projection.projective)
        {
            const double scale = projection.u.dot(x.col(j));
            if (scale > 0.0)
                reduced.col(j) = (x.col(j) / scale).cast<float>();
        }
        else
        {
            reduced.col(j).head(endmembers - 1) = x.col(j).cast<float>();
            reduced(endmembers - 1, j) = -1.0f; // marks a valid pixel until appendBound
        }
    }
    return reduced;
}

void appendBound(Eigen::MatrixXf& reduced)
{
    const Eigen::Index last = reduced.rows() - 1;
    const float bound = reduced.topRows(last).colwise().norm().maxCoeff();
    for (Eigen::Index j = 0; j < reduced.cols(); ++j)
        reduced(last, j) = reduced(last, j) < 0.0f ? bound : 0.0f;
}

std::vector<std::int64_t> vcaVertices(const Eigen::MatrixXf& reduced, int endmembers, unsigned seed)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> normal;
    Eigen::MatrixXd vertices = Eigen::MatrixXd::Zero(endmembers, endmembers);
    vertices(endmembers - 1, 0) = 1.0;
    std::vector<std::int64_t> chosen;
    const Eigen::Index count = reduced.cols();
    for (int i = 0; i < endmembers; ++i)
    {
        Eigen::VectorXd w(endmembers);
        for (int k = 0; k < endmembers; ++k)
            w(k) = normal(random);
        // f: w with its component in the span of the vertices found so far removed.
        const Eigen::MatrixXd span = vertices.leftCols(std::max(1, i));
        Eigen::VectorXd f = w - span * span.completeOrthogonalDecomposition().solve(w);
        f /= std::max(1e-300, f.norm());
        const Eigen::VectorXf direction = f.cast<float>();
        // The pixel with the largest |f^T y| (the first of equals), split over the cores.
        std::pair<float, std::int64_t> winner{-1.0f, -1};
        std::mutex lock;
        algokit::parallelFor(int(count), [&](int begin, int end) {
            std::pair<float, std::int64_t> best{-1.0f, -1};
            for (Eigen::Index j = begin; j < end; ++j)
            {
                const float value = std::abs(direction.dot(reduced.col(j)));
                if (value > best.first)
                    best = {value, j};
            }
            std::lock_guard<std::mutex> guard(lock);
            if (best.first > winner.first || (best.first == winner.first && best.second < winner.second))
                winner = best;
        });
        chosen.push_back(winner.second);
        if (winner.second >= 0)
            vertices.col(i) = reduced.col(winner.second).cast<double>();
    }
    return chosen;
}

} // namespace hysa
