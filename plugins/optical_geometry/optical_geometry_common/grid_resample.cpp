// Resampling between axis-aligned pixel grids and separable low-pass filters.
#include "grid_resample.h"

#include <algorithm>
#include <cmath>

namespace optgeo
{

namespace
{

// Up to four source indices and weights for one destination index along one axis.
struct Taps
{
    int index[4] = {0, 0, 0, 0};
    float weight[4] = {0, 0, 0, 0};
    int count = 0;
    bool inside = false;
};

double keys(double t)
{
    t = std::fabs(t);
    if (t < 1.0)
        return (1.5 * t - 2.5) * t * t + 1.0;
    if (t < 2.0)
        return ((-0.5 * t + 2.5) * t - 4.0) * t + 2.0;
    return 0.0;
}

Taps tapsAt(double s, int size, Interpolation method)
{
    Taps taps;
    taps.inside = s >= 0.0 && s <= size;
    const auto clampIndex = [size](int i) { return std::min(size - 1, std::max(0, i)); };
    if (method == Interpolation::Nearest)
    {
        taps.count = 1;
        taps.index[0] = clampIndex(int(std::floor(s)));
        taps.weight[0] = 1.0f;
        return taps;
    }
    const double u = s - 0.5;
    const int i0 = int(std::floor(u));
    const double f = u - i0;
    if (method == Interpolation::Bilinear)
    {
        taps.count = 2;
        taps.index[0] = clampIndex(i0);
        taps.index[1] = clampIndex(i0 + 1);
        taps.weight[0] = float(1.0 - f);
        taps.weight[1] = float(f);
        return taps;
    }
    taps.count = 4;
    for (int k = 0; k < 4; ++k)
    {
        taps.index[k] = clampIndex(i0 - 1 + k);
        taps.weight[k] = float(keys(f + 1 - k));
    }
    return taps;
}

// Pixels of [0, size) overlapped by [a, b), with the overlap lengths as weights.
struct AreaTaps
{
    int first = 0;
    std::vector<float> weight;
    double total = 0.0;
};

AreaTaps areaTapsAt(double a, double b, int size)
{
    AreaTaps taps;
    a = std::max(a, 0.0);
    b = std::min(b, double(size));
    if (b <= a)
        return taps;
    taps.first = int(std::floor(a));
    const int last = std::min(size - 1, int(std::ceil(b)) - 1);
    for (int k = taps.first; k <= last; ++k)
    {
        const double w = std::min(b, k + 1.0) - std::max(a, double(k));
        taps.weight.push_back(float(std::max(0.0, w)));
        taps.total += std::max(0.0, w);
    }
    return taps;
}

// Convolves each row with a symmetric kernel (edge repeated), then each column.
void separableFilter(const float* src, int cols, int rows, const std::vector<double>& kernel, float* dst)
{
    const int radius = int(kernel.size() / 2);
    std::vector<float> across(size_t(cols) * rows);
    std::vector<float> padded(size_t(cols) + 2 * radius);
    for (int y = 0; y < rows; ++y)
    {
        const float* in = src + size_t(y) * cols;
        for (int x = -radius; x < cols + radius; ++x)
            padded[x + radius] = in[std::min(cols - 1, std::max(0, x))];
        float* out = across.data() + size_t(y) * cols;
        for (int x = 0; x < cols; ++x)
        {
            double sum = 0.0;
            for (int k = 0; k <= 2 * radius; ++k)
                sum += kernel[k] * padded[x + k];
            out[x] = float(sum);
        }
    }
    std::vector<double> sum(cols);
    for (int y = 0; y < rows; ++y)
    {
        std::fill(sum.begin(), sum.end(), 0.0);
        for (int k = -radius; k <= radius; ++k)
        {
            const float* in = across.data() + size_t(std::min(rows - 1, std::max(0, y + k))) * cols;
            const double w = kernel[k + radius];
            for (int x = 0; x < cols; ++x)
                sum[x] += w * in[x];
        }
        float* out = dst + size_t(y) * cols;
        for (int x = 0; x < cols; ++x)
            out[x] = float(sum[x]);
    }
}

} // namespace

void sourceRowsNeeded(const AxisMap& ymap, int y0, int rows, int srcHeight, Interpolation method, int* first,
                      int* last)
{
    const double a = std::min(ymap.centre(y0), ymap.centre(y0 + rows - 1));
    const double b = std::max(ymap.centre(y0), ymap.centre(y0 + rows - 1));
    const int margin = method == Interpolation::Cubic ? 2 : 1;
    *first = std::max(0, int(std::floor(a - 0.5)) - margin);
    *last = std::min(srcHeight - 1, int(std::floor(b - 0.5)) + margin + 1);
}

void interpolate(const SourceRows& src, const AxisMap& xmap, const AxisMap& ymap, int x0, int cols, int y0,
                 int rows, Interpolation method, float outside, float* dst)
{
    std::vector<Taps> xtaps(cols);
    for (int c = 0; c < cols; ++c)
        xtaps[c] = tapsAt(xmap.centre(x0 + c), src.width, method);
    int first = 0, last = -1;
    sourceRowsNeeded(ymap, y0, rows, src.height, method, &first, &last);
    first = std::max(first, src.row0);
    last = std::min(last, src.row0 + src.rows - 1);

    // Each needed source row interpolated across once, then the rows combined down each column.
    const int needed = std::max(0, last - first + 1);
    std::vector<float> across(size_t(needed) * cols);
    for (int r = 0; r < needed; ++r)
    {
        const float* in = src.data + size_t(first + r - src.row0) * src.width;
        float* out = across.data() + size_t(r) * cols;
        for (int c = 0; c < cols; ++c)
        {
            const Taps& t = xtaps[c];
            float sum = 0.0f;
            for (int k = 0; k < t.count; ++k)
                sum += t.weight[k] * in[t.index[k]];
            out[c] = sum;
        }
    }
    for (int r = 0; r < rows; ++r)
    {
        float* out = dst + size_t(r) * cols;
        const Taps yt = tapsAt(ymap.centre(y0 + r), src.height, method);
        bool usable = yt.inside && needed > 0;
        for (int k = 0; k < yt.count && usable; ++k)
            usable = yt.index[k] >= first && yt.index[k] <= last;
        if (!usable)
        {
            std::fill(out, out + cols, outside);
            continue;
        }
        std::fill(out, out + cols, 0.0f);
        for (int k = 0; k < yt.count; ++k)
        {
            const float w = yt.weight[k];
            const float* in = across.data() + size_t(yt.index[k] - first) * cols;
            for (int c = 0; c < cols; ++c)
                out[c] += w * in[c];
        }
        for (int c = 0; c < cols; ++c)
            if (!xtaps[c].inside)
                out[c] = outside;
    }
}

void areaAverage(const SourceRows& src, const AxisMap& xmap, const AxisMap& ymap, int cols, int rows,
                 float outside, float* dst)
{
    std::vector<AreaTaps> xtaps(cols);
    for (int c = 0; c < cols; ++c)
        xtaps[c] = areaTapsAt(xmap.offset + xmap.scale * c, xmap.offset + xmap.scale * (c + 1), src.width);
    std::vector<double> across(cols);
    for (int r = 0; r < rows; ++r)
    {
        const AreaTaps yt = areaTapsAt(ymap.offset + ymap.scale * r, ymap.offset + ymap.scale * (r + 1), src.height);
        std::fill(across.begin(), across.end(), 0.0);
        for (size_t k = 0; k < yt.weight.size(); ++k)
        {
            const float* in = src.data + size_t(yt.first + int(k)) * src.width;
            for (int c = 0; c < cols; ++c)
            {
                const AreaTaps& t = xtaps[c];
                double sum = 0.0;
                for (size_t j = 0; j < t.weight.size(); ++j)
                    sum += t.weight[j] * in[t.first + int(j)];
                across[c] += yt.weight[k] * sum;
            }
        }
        float* out = dst + size_t(r) * cols;
        for (int c = 0; c < cols; ++c)
        {
            const double total = yt.total * xtaps[c].total;
            out[c] = total > 0.0 ? float(across[c] / total) : outside;
        }
    }
}

std::vector<double> gaussianKernel(double sigma)
{
    const int radius = std::max(1, int(std::ceil(3.0 * sigma)));
    std::vector<double> kernel(2 * radius + 1);
    double total = 0.0;
    for (int k = -radius; k <= radius; ++k)
        total += kernel[k + radius] = std::exp(-0.5 * k * k / (sigma * sigma));
    for (double& w : kernel)
        w /= total;
    return kernel;
}

void boxFilter(const float* src, int cols, int rows, int size, float* dst)
{
    size = std::max(1, size | 1);
    separableFilter(src, cols, rows, std::vector<double>(size, 1.0 / size), dst);
}

void gaussianFilter(const float* src, int cols, int rows, double sigma, float* dst)
{
    separableFilter(src, cols, rows, gaussianKernel(sigma), dst);
}

} // namespace optgeo
