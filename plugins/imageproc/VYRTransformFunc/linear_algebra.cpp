// Small dense linear algebra for the band transforms.
#include "linear_algebra.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <numeric>

namespace transform
{

Matrix zeros(int rows, int cols)
{
    return Matrix(size_t(rows), std::vector<double>(size_t(cols), 0.0));
}

Matrix multiply(const Matrix& a, const Matrix& b)
{
    Matrix c = zeros(int(a.size()), int(b.front().size()));
    for (size_t i = 0; i < a.size(); ++i)
        for (size_t k = 0; k < b.size(); ++k)
            for (size_t j = 0; j < b.front().size(); ++j)
                c[i][j] += a[i][k] * b[k][j];
    return c;
}

Matrix transpose(const Matrix& a)
{
    Matrix t = zeros(int(a.front().size()), int(a.size()));
    for (size_t i = 0; i < a.size(); ++i)
        for (size_t j = 0; j < a[i].size(); ++j)
            t[j][i] = a[i][j];
    return t;
}

void symmetricEigen(const Matrix& symmetric, std::vector<double>& values, Matrix& vectors)
{
    const int n = int(symmetric.size());
    Matrix a = symmetric, v = zeros(n, n);
    for (int i = 0; i < n; ++i)
        v[i][i] = 1.0;
    for (int sweep = 0; sweep < 100; ++sweep)
    {
        double off = 0.0, scale = 0.0;
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j)
                (i == j ? scale : off) += a[i][j] * a[i][j];
        if (off <= 1e-30 * std::max(scale, 1e-300))
            break;
        for (int p = 0; p < n - 1; ++p)
            for (int q = p + 1; q < n; ++q)
            {
                if (a[p][q] == 0.0)
                    continue;
                const double theta = (a[q][q] - a[p][p]) / (2.0 * a[p][q]);
                const double t = (theta >= 0 ? 1.0 : -1.0) / (std::fabs(theta) + std::sqrt(theta * theta + 1.0));
                const double c = 1.0 / std::sqrt(t * t + 1.0), s = t * c;
                for (int k = 0; k < n; ++k)
                {
                    const double akp = a[k][p], akq = a[k][q];
                    a[k][p] = c * akp - s * akq;
                    a[k][q] = s * akp + c * akq;
                }
                for (int k = 0; k < n; ++k)
                {
                    const double apk = a[p][k], aqk = a[q][k];
                    a[p][k] = c * apk - s * aqk;
                    a[q][k] = s * apk + c * aqk;
                }
                for (int k = 0; k < n; ++k)
                {
                    const double vkp = v[k][p], vkq = v[k][q];
                    v[k][p] = c * vkp - s * vkq;
                    v[k][q] = s * vkp + c * vkq;
                }
            }
    }
    std::vector<int> order(static_cast<size_t>(n));
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(), [&](int x, int y) { return a[x][x] > a[y][y]; });
    values.assign(size_t(n), 0.0);
    vectors = zeros(n, n);
    for (int c = 0; c < n; ++c)
    {
        values[size_t(c)] = a[order[c]][order[c]];
        // A fixed sign (largest component positive) makes the output reproducible.
        int largest = 0;
        for (int k = 1; k < n; ++k)
            if (std::fabs(v[k][order[c]]) > std::fabs(v[largest][order[c]]))
                largest = k;
        const double sign = v[largest][order[c]] < 0 ? -1.0 : 1.0;
        for (int k = 0; k < n; ++k)
            vectors[k][c] = sign * v[k][order[c]];
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
        algokit::parallelFor(rows, [&](int r0, int r1) {
            std::vector<double> localSum(size_t(n), 0.0), localNoiseSum(size_t(n), 0.0), x(static_cast<size_t>(n)), d(static_cast<size_t>(n));
            Matrix localProducts = zeros(n, n), localNoise = zeros(n, n);
            for (int r = r0; r < r1; ++r)
                for (int c = 0; c < width; ++c)
                {
                    const size_t at = size_t(r) * plane + size_t(c);
                    for (int b = 0; b < n; ++b)
                        x[size_t(b)] = block[size_t(b) * bandStride + at] - shift[size_t(b)];
                    for (int i = 0; i < n; ++i)
                    {
                        localSum[size_t(i)] += x[size_t(i)];
                        for (int j = i; j < n; ++j)
                            localProducts[i][j] += x[size_t(i)] * x[size_t(j)];
                    }
                    if (noise && c + 1 < width)
                    {
                        for (int b = 0; b < n; ++b)
                            d[size_t(b)] = block[size_t(b) * bandStride + at] - block[size_t(b) * bandStride + at + 1];
                        for (int i = 0; i < n; ++i)
                        {
                            localNoiseSum[size_t(i)] += d[size_t(i)];
                            for (int j = i; j < n; ++j)
                                localNoise[i][j] += d[size_t(i)] * d[size_t(j)];
                        }
                    }
                }
            std::lock_guard<std::mutex> guard(merge);
            for (int i = 0; i < n; ++i)
            {
                sum[size_t(i)] += localSum[size_t(i)];
                noiseSum[size_t(i)] += localNoiseSum[size_t(i)];
                for (int j = i; j < n; ++j)
                {
                    products[i][j] += localProducts[i][j];
                    noiseProducts[i][j] += localNoise[i][j];
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
