// Small dense linear algebra for the band transforms.
#include "linear_algebra.h"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <mutex>

namespace transform
{

namespace
{

using Dense = Eigen::MatrixXd;

Dense toDense(const Matrix& a)
{
    Dense dense(Eigen::Index(a.size()), Eigen::Index(a.empty() ? 0 : a.front().size()));
    for (size_t i = 0; i < a.size(); ++i)
        for (size_t j = 0; j < a[i].size(); ++j)
            dense(Eigen::Index(i), Eigen::Index(j)) = a[i][j];
    return dense;
}

Matrix fromDense(const Dense& dense)
{
    Matrix a = zeros(int(dense.rows()), int(dense.cols()));
    for (Eigen::Index i = 0; i < dense.rows(); ++i)
        for (Eigen::Index j = 0; j < dense.cols(); ++j)
            a[size_t(i)][size_t(j)] = dense(i, j);
    return a;
}

} // namespace

Matrix zeros(int rows, int cols)
{
    return Matrix(size_t(rows), std::vector<double>(size_t(cols), 0.0));
}

Matrix multiply(const Matrix& a, const Matrix& b)
{
    return fromDense(toDense(a) * toDense(b));
}

Matrix transpose(const Matrix& a)
{
    return fromDense(toDense(a).transpose());
}

void symmetricEigen(const Matrix& symmetric, std::vector<double>& values, Matrix& vectors)
{
    const Eigen::SelfAdjointEigenSolver<Dense> solver(toDense(symmetric));
    if (solver.info() != Eigen::Success)
        throw algokit::AlgoError(QStringLiteral("The eigen decomposition of the band covariance did not converge"));
    const int n = int(symmetric.size());
    values.assign(size_t(n), 0.0);
    vectors = zeros(n, n);
    // Eigen orders the eigenvalues ascending; the transforms want them descending.
    for (int c = 0; c < n; ++c)
    {
        const Eigen::Index from = n - 1 - c;
        values[size_t(c)] = solver.eigenvalues()(from);
        const Eigen::VectorXd column = solver.eigenvectors().col(from);
        // A fixed sign (largest component positive) makes the output reproducible.
        Eigen::Index largest = 0;
        column.cwiseAbs().maxCoeff(&largest);
        const double sign = column(largest) < 0 ? -1.0 : 1.0;
        for (int k = 0; k < n; ++k)
            vectors[size_t(k)][size_t(c)] = sign * column(k);
    }
}

namespace
{

void readBlock(GDALDataset* dataset, int row0, int rows, std::vector<double>& buffer)
{
    const int width = dataset->GetRasterXSize(), bands = dataset->GetRasterCount();
    buffer.resize(size_t(width) * rows * bands);
    if (dataset->RasterIO(GF_Read, 0, row0, width, rows, buffer.data(), width, rows, GDT_Float64, bands, nullptr, 0, 0, 0,
                          nullptr) != CE_None)
        throw algokit::AlgoError(QStringLiteral("Read failed at row %1").arg(row0));
}

} // namespace

void bandStatistics(GDALDataset* dataset, std::vector<double>& mean, Matrix& covariance, Matrix* noise,
                    const std::function<void(double)>& progress)
{
    const int width = dataset->GetRasterXSize(), height = dataset->GetRasterYSize(), n = dataset->GetRasterCount();
    const size_t plane = size_t(width);
    std::vector<double> shift(size_t(n), 0.0), sum(size_t(n), 0.0), noiseSum(size_t(n), 0.0);
    Matrix products = zeros(n, n), noiseProducts = zeros(n, n);
    double count = 0.0, noiseCount = 0.0;
    bool shifted = false;
    std::vector<double> block;
    std::mutex merge;
    const int step = algokit::rowsPerBlock(dataset, sizeof(double) * size_t(n), 16u << 20);
    algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
        readBlock(dataset, row0, rows, block);
        const size_t bandStride = plane * rows;
        if (!shifted) // values taken relative to the first pixel keep the sums well conditioned
        {
            for (int b = 0; b < n; ++b)
                shift[size_t(b)] = block[size_t(b) * bandStride];
            shifted = true;
        }
        // Band-sequential rows r0..r1 of the block are a pixels x bands matrix with a band stride: cross products
        // are one symmetric rank update each.
        using Strided = Eigen::Map<const Dense, 0, Eigen::OuterStride<>>;
        const Eigen::RowVectorXd origin = Eigen::Map<const Eigen::RowVectorXd>(shift.data(), n);
        algokit::parallelFor(rows, [&](int r0, int r1) {
            const Strided x(block.data() + size_t(r0) * plane, Eigen::Index(plane) * (r1 - r0), n,
                            Eigen::OuterStride<>(Eigen::Index(bandStride)));
            const Dense centred = x.rowwise() - origin;
            Dense localProducts = Dense::Zero(n, n), localNoise = Dense::Zero(n, n);
            localProducts.selfadjointView<Eigen::Upper>().rankUpdate(centred.transpose());
            Eigen::RowVectorXd localSum = centred.colwise().sum(), localNoiseSum = Eigen::RowVectorXd::Zero(n);
            if (noise && width > 1)
                for (int r = r0; r < r1; ++r)
                {
                    const Strided line(block.data() + size_t(r) * plane, width, n,
                                       Eigen::OuterStride<>(Eigen::Index(bandStride)));
                    const Dense d = line.topRows(width - 1) - line.bottomRows(width - 1);
                    localNoise.selfadjointView<Eigen::Upper>().rankUpdate(d.transpose());
                    localNoiseSum += d.colwise().sum();
                }
            std::lock_guard<std::mutex> guard(merge);
            for (int i = 0; i < n; ++i)
            {
                sum[size_t(i)] += localSum(i);
                noiseSum[size_t(i)] += localNoiseSum(i);
                for (int j = i; j < n; ++j)
                {
                    products[i][j] += localProducts(i, j);
                    noiseProducts[i][j] += localNoise(i, j);
                }
            }
        });
        count += double(width) * rows;
        noiseCount += double(width - 1) * rows;
        progress(100.0 * (row0 + rows) / height);
    });
    mean.assign(size_t(n), 0.0);
    covariance = zeros(n, n);
    for (int i = 0; i < n; ++i)
        mean[size_t(i)] = shift[size_t(i)] + sum[size_t(i)] / count;
    for (int i = 0; i < n; ++i)
        for (int j = i; j < n; ++j)
            covariance[i][j] = covariance[j][i] =
                (products[i][j] - sum[size_t(i)] * sum[size_t(j)] / count) / std::max(1.0, count - 1.0);
    if (noise)
    {
        *noise = zeros(n, n);
        if (noiseCount < 2)
            throw algokit::AlgoError(QStringLiteral("The image is too narrow to estimate its noise"));
        for (int i = 0; i < n; ++i)
            for (int j = i; j < n; ++j)
                (*noise)[i][j] = (*noise)[j][i] =
                    0.5 * (noiseProducts[i][j] - noiseSum[size_t(i)] * noiseSum[size_t(j)] / noiseCount) / (noiseCount - 1.0);
    }
}

GDALDataType typeOfCode(int code)
{
    static const GDALDataType types[] = {GDT_Float32, GDT_Byte, GDT_UInt16, GDT_Int16, GDT_UInt32, GDT_Int32, GDT_Float64};
    if (code < 0 || code > 6)
        throw algokit::AlgoError(QStringLiteral("Data type code %1 is outside 0-6").arg(code));
    return types[code];
}

void applyLinear(GDALDataset* input, algokit::OutputRaster& output, const Matrix& matrix,
                 const std::vector<double>& offset, const std::vector<double>& addAfter,
                 const std::function<void(double)>& progress)
{
    const int width = input->GetRasterXSize(), height = input->GetRasterYSize();
    const int inBands = input->GetRasterCount(), outBands = int(matrix.size());
    const int step = algokit::rowsPerBlock(input, sizeof(double) * size_t(inBands + outBands), 16u << 20);
    std::vector<double> block, result;
    algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
        readBlock(input, row0, rows, block);
        const size_t pixels = size_t(width) * rows;
        result.assign(pixels * size_t(outBands), 0.0);
        algokit::parallelFor(int(pixels / 4096 + 1), [&](int c0, int c1) {
            const size_t begin = size_t(c0) * 4096, end = std::min(pixels, size_t(c1) * 4096);
            for (int o = 0; o < outBands; ++o)
            {
                double* target = result.data() + size_t(o) * pixels;
                const double base = o < int(addAfter.size()) ? addAfter[size_t(o)] : 0.0;
                for (size_t p = begin; p < end; ++p)
                    target[p] = base;
                for (int i = 0; i < inBands && i < int(matrix[size_t(o)].size()); ++i)
                {
                    const double w = matrix[size_t(o)][size_t(i)], shift = i < int(offset.size()) ? offset[size_t(i)] : 0.0;
                    const double* source = block.data() + size_t(i) * pixels;
                    for (size_t p = begin; p < end; ++p)
                        target[p] += w * (source[p] - shift);
                }
            }
        });
        if (output.get()->RasterIO(GF_Write, 0, row0, width, rows, result.data(), width, rows, GDT_Float64, outBands,
                                   nullptr, 0, 0, 0, nullptr) != CE_None)
            throw algokit::AlgoError(QStringLiteral("Write failed at row %1").arg(row0));
        progress(100.0 * (row0 + rows) / height);
    });
}

} // namespace transform
