// Neighbourhood operations of the spatial filters: box mean (running sums), median (selection networks for
// 3 x 3 and 5 x 5, running histogram for bytes, running sorted window otherwise, cross-shaped windows by
// selection), minimum/maximum, convolution and gradient magnitude. Each works on a padded block (filter_engine.h).
#pragma once

#include "filter_engine.h"
#include "median_networks.h"

#include <array>
#include <cstring>

namespace filtcommon
{

template <typename T> struct SumOf
{
    using type = std::conditional_t<std::is_floating_point_v<T>, double,
                 std::conditional_t<(sizeof(T) <= 2), std::conditional_t<std::is_signed_v<T>, int32_t, uint32_t>,
                                    int64_t>>;
};

// Box mean of (2 rx + 1) x (2 ry + 1): column sums kept running down the rows, row sums running along x.
struct BoxMean
{
    int rx = 1, ry = 1;

    template <typename T> void apply(const Padded<T>& in, int row0, int row1, T* out) const
    {
        using Acc = typename SumOf<T>::type;
        const int span = in.width + 2 * rx;
        const double inverse = 1.0 / double((2 * rx + 1) * (2 * ry + 1));
        std::vector<Acc> column(size_t(span), Acc(0));
        for (int k = -ry; k <= ry; ++k)
        {
            const T* src = in.at(-rx, row0 + k);
            for (int x = 0; x < span; ++x)
                column[x] += Acc(src[x]);
        }
        for (int y = row0; y < row1; ++y)
        {
            if (y > row0)
            {
                const T* add = in.at(-rx, y + ry);
                const T* sub = in.at(-rx, y - ry - 1);
                for (int x = 0; x < span; ++x)
                    column[x] += Acc(add[x]) - Acc(sub[x]);
            }
            T* target = out + size_t(y) * size_t(in.width);
            Acc sum = 0;
            for (int x = 0; x < 2 * rx + 1; ++x)
                sum += column[x];
            target[0] = toPixel<T>(double(sum) * inverse);
            for (int x = 1; x < in.width; ++x)
            {
                sum += column[x + 2 * rx] - column[x - 1];
                target[x] = toPixel<T>(double(sum) * inverse);
            }
        }
    }
};

// Median of a square (shape 0) or cross-shaped (shape 1) window of side 2 r + 1.
struct Median
{
    int rx = 1, ry = 1;
    int shape = 0;

    template <typename T> void apply(const Padded<T>& in, int row0, int row1, T* out) const
    {
        if (shape == 1)
            return cross(in, row0, row1, out);
        if (rx == 1)
            return network<T, 3>(in, row0, row1, out);
        if (rx == 2)
            return network<T, 5>(in, row0, row1, out);
        if constexpr (std::is_same_v<T, uint8_t>)
            return histogram(in, row0, row1, out);
        else
            return sortedWindow(in, row0, row1, out);
    }

private:
    template <typename T, int N> static T scalarMedian(const Padded<T>& in, int x, int y)
    {
        T v[N * N];
        for (int dy = 0; dy < N; ++dy)
            for (int dx = 0; dx < N; ++dx)
                v[dy * N + dx] = *in.at(x + dx - N / 2, y + dy - N / 2);
        if constexpr (N == 3)
            return median9(v);
        else
            return median25(v);
    }

    // SIMD across pixels: each vector lane is one output pixel.
    template <typename T, int N> static void network(const Padded<T>& in, int row0, int row1, T* out)
    {
        typedef T Vec __attribute__((vector_size(16)));
        constexpr int lanes = int(16 / sizeof(T));
        for (int y = row0; y < row1; ++y)
        {
            T* target = out + size_t(y) * size_t(in.width);
            int x = 0;
            if (in.width >= lanes)
            {
                for (;; x += lanes)
                {
                    if (x + lanes > in.width)
                        x = in.width - lanes; // the last vector overlaps the previous one
                    Vec v[N * N];
                    for (int dy = 0; dy < N; ++dy)
                    {
                        const T* src = in.at(x - N / 2, y + dy - N / 2);
                        for (int dx = 0; dx < N; ++dx)
                            std::memcpy(&v[dy * N + dx], src + dx, sizeof(Vec));
                    }
                    Vec m;
                    if constexpr (N == 3)
                        m = median9(v);
                    else
                        m = median25(v);
                    std::memcpy(target + x, &m, sizeof(Vec));
                    if (x + lanes >= in.width)
                        break;
                }
                continue;
            }
            for (; x < in.width; ++x)
                target[x] = scalarMedian<T, N>(in, x, y);
        }
    }

    // Running histogram along each row (bytes).
    void histogram(const Padded<uint8_t>& in, int row0, int row1, uint8_t* out) const
    {
        const int side = 2 * ry + 1, half = (side * (2 * rx + 1)) / 2;
        for (int y = row0; y < row1; ++y)
        {
            std::array<int, 256> hist{};
            for (int dy = -ry; dy <= ry; ++dy)
                for (int dx = -rx; dx <= rx; ++dx)
                    ++hist[*in.at(dx, y + dy)];
            int median = 0, below = 0; // below: count of values < median
            auto settle = [&] {
                while (below > half)
                    below -= hist[--median];
                while (below + hist[median] <= half)
                    below += hist[median++];
            };
            settle();
            uint8_t* target = out + size_t(y) * size_t(in.width);
            target[0] = uint8_t(median);
            for (int x = 1; x < in.width; ++x)
            {
                for (int dy = -ry; dy <= ry; ++dy)
                {
                    const uint8_t gone = *in.at(x - rx - 1, y + dy), come = *in.at(x + rx, y + dy);
                    --hist[gone];
                    if (gone < median)
                        --below;
                    ++hist[come];
                    if (come < median)
                        ++below;
                }
                settle();
                target[x] = uint8_t(median);
            }
        }
    }

    // A sorted copy of the window kept up to date along each row.
    template <typename T> void sortedWindow(const Padded<T>& in, int row0, int row1, T* out) const
    {
        std::vector<T> window;
        const size_t middle = size_t((2 * rx + 1) * (2 * ry + 1)) / 2;
        for (int y = row0; y < row1; ++y)
        {
            window.clear();
            for (int dy = -ry; dy <= ry; ++dy)
                for (int dx = -rx; dx <= rx; ++dx)
                    window.push_back(*in.at(dx, y + dy));
            std::sort(window.begin(), window.end());
            T* target = out + size_t(y) * size_t(in.width);
            target[0] = window[middle];
            for (int x = 1; x < in.width; ++x)
            {
                for (int dy = -ry; dy <= ry; ++dy)
                {
                    const T gone = *in.at(x - rx - 1, y + dy), come = *in.at(x + rx, y + dy);
                    window.erase(std::lower_bound(window.begin(), window.end(), gone));
                    window.insert(std::upper_bound(window.begin(), window.end(), come), come);
                }
                target[x] = window[middle];
            }
        }
    }

    template <typename T> void cross(const Padded<T>& in, int row0, int row1, T* out) const
    {
        std::vector<T> values;
        for (int y = row0; y < row1; ++y)
            for (int x = 0; x < in.width; ++x)
            {
                values.clear();
                for (int dx = -rx; dx <= rx; ++dx)
                    values.push_back(*in.at(x + dx, y));
                for (int dy = -ry; dy <= ry; ++dy)
                    if (dy != 0)
                        values.push_back(*in.at(x, y + dy));
                std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
                out[size_t(y) * size_t(in.width) + x] = values[values.size() / 2];
            }
    }
};

// Minimum (maximum = false) or maximum of a (2 r + 1)-square window, separably.
struct RankExtreme
{
    int rx = 1, ry = 1;
    bool maximum = false;

    template <typename T> void apply(const Padded<T>& in, int row0, int row1, T* out) const
    {
        const int span = in.width + 2 * rx;
        std::vector<T> column(static_cast<size_t>(span));
        for (int y = row0; y < row1; ++y)
        {
            for (int x = 0; x < span; ++x)
            {
                T best = *in.at(x - rx, y - ry);
                for (int dy = -ry + 1; dy <= ry; ++dy)
                    best = maximum ? std::max(best, *in.at(x - rx, y + dy)) : std::min(best, *in.at(x - rx, y + dy));
                column[x] = best;
            }
            T* target = out + size_t(y) * size_t(in.width);
            for (int x = 0; x < in.width; ++x)
            {
                T best = column[x];
                for (int k = 1; k <= 2 * rx; ++k)
                    best = maximum ? std::max(best, column[x + k]) : std::min(best, column[x + k]);
                target[x] = best;
            }
        }
    }
};

// A dense kernel of (2 rx + 1) x (2 ry + 1) weights, row by row.
struct Kernel
{
    int rx = 1, ry = 1;
    std::vector<float> weights;

    // Non-negative weights summing to 1: the result stays within the input's range.
    bool rangePreserving() const
    {
        double sum = 0.0;
        for (float w : weights)
        {
            if (w < 0.f)
                return false;
            sum += w;
        }
        return std::fabs(sum - 1.0) < 1e-5;
    }
};

// A kernel from its weights, row by row (an n x n list).
Kernel squareKernel(int n, const std::vector<float>& weights);
// Named kernels of the spatial filters.
Kernel boxKernel(int n);
Kernel binomialKernel(int n);            // Gaussian approximation: outer product of binomial rows, normalised
Kernel compassKernel(int direction);     // Prewitt compass gradient, 0 N, 1 NE, 2 E, 3 SE, 4 S, 5 SW, 6 W, 7 NW
Kernel sobelX();
Kernel sobelY();
Kernel prewittX();
Kernel prewittY();
Kernel robertsMain();                    // the two 2 x 2 Roberts cross differences, as 3 x 3 kernels
Kernel robertsAnti();
Kernel laplacian4();                     // 4-neighbour Laplacian, centre +4
Kernel laplacian8();                     // 8-neighbour Laplacian, centre +8
Kernel identityPlus(const Kernel& kernel); // kernel + unit impulse: input plus the kernel's response


// Correlation of the block with each kernel (all the same size); one kernel gives its response plus `offset`,
// two or more give the root of the sum of squared responses.
struct Convolution
{
    int rx = 1, ry = 1;
    std::vector<Kernel> kernels;
    double offset = 0.0;

    explicit Convolution(std::vector<Kernel> list, double add = 0.0)
        : rx(list.front().rx), ry(list.front().ry), kernels(std::move(list)), offset(add)
    {
    }

    template <typename T> void apply(const Padded<T>& in, int row0, int row1, T* out) const
    {
        std::vector<double> total(size_t(in.width)), response(size_t(in.width));
        for (int y = row0; y < row1; ++y)
        {
            std::fill(total.begin(), total.end(), 0.0);
            for (const Kernel& kernel : kernels)
            {
                std::fill(response.begin(), response.end(), 0.0);
                for (int dy = -ry; dy <= ry; ++dy)
                    for (int dx = -rx; dx <= rx; ++dx)
                    {
                        const double w = kernel.weights[size_t((dy + ry) * (2 * rx + 1) + dx + rx)];
                        if (w == 0.0)
                            continue;
                        const T* __restrict src = in.at(dx, y + dy);
                        double* __restrict acc = response.data();
                        for (int x = 0; x < in.width; ++x)
                            acc[x] += w * double(src[x]);
                    }
                if (kernels.size() == 1)
                    total.swap(response);
                else
                    for (int x = 0; x < in.width; ++x)
                        total[x] += response[x] * response[x];
            }
            T* target = out + size_t(y) * size_t(in.width);
            for (int x = 0; x < in.width; ++x)
                target[x] = toPixel<T>(kernels.size() == 1 ? total[x] + offset : std::sqrt(total[x]));
        }
    }
};

} // namespace filtcommon
