// Named kernels of the spatial filters.
#include "spatial_ops.h"

namespace filtcommon
{

Kernel squareKernel(int n, const std::vector<float>& weights)
{
    Kernel kernel;
    kernel.rx = kernel.ry = n / 2;
    kernel.weights = weights;
    return kernel;
}

Kernel boxKernel(int n)
{
    return squareKernel(n, std::vector<float>(size_t(n * n), 1.f / float(n * n)));
}

Kernel binomialKernel(int n)
{
    std::vector<double> row(1, 1.0);
    for (int k = 1; k < n; ++k)
    {
        std::vector<double> next(row.size() + 1, 0.0);
        for (size_t i = 0; i < row.size(); ++i)
        {
            next[i] += row[i];
            next[i + 1] += row[i];
        }
        row.swap(next);
    }
    double total = 0.0;
    for (double a : row)
        for (double b : row)
            total += a * b;
    std::vector<float> weights;
    for (double a : row)
        for (double b : row)
            weights.push_back(float(a * b / total));
    return squareKernel(n, weights);
}

Kernel compassKernel(int direction)
{
    // The eight ring positions clockwise from the top-left; the north kernel has +1 on the top row.
    static const int ring[8] = {0, 1, 2, 5, 8, 7, 6, 3};
    static const float north[8] = {1, 1, 1, 1, -1, -1, -1, 1};
    std::vector<float> weights(9, 0.f);
    weights[4] = -2.f;
    for (int i = 0; i < 8; ++i)
        weights[size_t(ring[(i + direction) % 8])] = north[i];
    return squareKernel(3, weights);
}

} // namespace filtcommon

namespace filtcommon
{

Kernel sobelX() { return squareKernel(3, {-1, 0, 1, -2, 0, 2, -1, 0, 1}); }
Kernel sobelY() { return squareKernel(3, {-1, -2, -1, 0, 0, 0, 1, 2, 1}); }
Kernel prewittX() { return squareKernel(3, {-1, 0, 1, -1, 0, 1, -1, 0, 1}); }
Kernel prewittY() { return squareKernel(3, {-1, -1, -1, 0, 0, 0, 1, 1, 1}); }
Kernel robertsMain() { return squareKernel(3, {0, 0, 0, 0, 1, 0, 0, 0, -1}); }
Kernel robertsAnti() { return squareKernel(3, {0, 0, 0, 0, 0, 1, 0, -1, 0}); }
Kernel laplacian4() { return squareKernel(3, {0, -1, 0, -1, 4, -1, 0, -1, 0}); }
Kernel laplacian8() { return squareKernel(3, {-1, -1, -1, -1, 8, -1, -1, -1, -1}); }

Kernel identityPlus(const Kernel& kernel)
{
    Kernel sum = kernel;
    sum.weights[size_t(kernel.ry * (2 * kernel.rx + 1) + kernel.rx)] += 1.f;
    return sum;
}

} // namespace filtcommon
