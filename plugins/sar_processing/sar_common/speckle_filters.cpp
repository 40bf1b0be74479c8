// Speckle filter kernels.
#include "speckle_filters.h"

#include <algorithm>
#include <cmath>

namespace sar
{

const char* const kSpeckleFilterNames[9] = {"Boxcar", "Median",   "Lee",      "RefinedLee", "Frost",
                                            "Kuan",   "GammaMAP", "LeeSigma", "IDAN"};

namespace
{

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// Refined Lee's nine sub-windows: size s the smallest odd number >= (N - 1) / 2, centres `step` apart, so that
// they tile the N x N window exactly (N = 7 gives Lee's 3 x 3 sub-windows two pixels apart).
int subWindow(int window)
{
    const int s = std::max(1, (window - 1) / 2);
    return s % 2 ? s : s + 1;
}

} // namespace

int speckleHalo(const SpeckleSettings& settings)
{
    // The adaptive neighbourhood may wander a whole window away from its seed.
    return settings.filter == SpeckleFilter::Idan ? settings.window : settings.window / 2;
}

SpeckleBlockFilter::SpeckleBlockFilter(const float* block, int width, int rows, const SpeckleSettings& settings)
    : m_data(block), m_width(width), m_rows(rows), m_settings(settings), m_cu2(1.0 / settings.looks)
{
    const size_t stride = size_t(width) + 1;
    m_sum.assign(stride * (size_t(rows) + 1), 0.0);
    m_squares.assign(m_sum.size(), 0.0);
    m_count.assign(m_sum.size(), 0);
    for (int y = 0; y < rows; ++y)
    {
        double rowSum = 0.0, rowSquares = 0.0;
        int rowCount = 0;
        const float* line = block + size_t(y) * width;
        const size_t above = size_t(y) * stride, here = above + stride;
        for (int x = 0; x < width; ++x)
        {
            const double v = line[x];
            if (std::isfinite(v))
            {
                rowSum += v;
                rowSquares += v * v;
                ++rowCount;
            }
            m_sum[here + x + 1] = m_sum[above + x + 1] + rowSum;
            m_squares[here + x + 1] = m_squares[above + x + 1] + rowSquares;
            m_count[here + x + 1] = m_count[above + x + 1] + rowCount;
        }
    }
    const int half = settings.window / 2;
    if (settings.filter == SpeckleFilter::Frost)
        for (int dy = -half; dy <= half; ++dy)
            for (int dx = -half; dx <= half; ++dx)
                m_frostDistance.push_back(float(std::sqrt(double(dx * dx + dy * dy))));
    if (settings.filter == SpeckleFilter::RefinedLee)
    {
        // Half windows, edge pixels included: left, right, top, bottom (dy grows downwards), upper-right and
        // lower-left of the "\" diagonal, upper-left and lower-right of the "/" diagonal.
        for (int dy = -half; dy <= half; ++dy)
            for (int dx = -half; dx <= half; ++dx)
            {
                const bool inside[8] = {dx <= 0, dx >= 0, dy <= 0, dy >= 0, dx >= dy, dx <= dy, dx + dy <= 0, dx + dy >= 0};
                for (int h = 0; h < 8; ++h)
                    if (inside[h])
                    {
                        m_halves[h].push_back(dx);
                        m_halves[h].push_back(dy);
                    }
            }
    }
    if (settings.filter == SpeckleFilter::LeeSigma)
        m_sigma = sigmaRange(settings.looks);
    if (settings.filter == SpeckleFilter::Idan)
        m_sigma = sigmaRange(settings.looks, 0.95);
}

SpeckleBlockFilter::Moments SpeckleBlockFilter::box(int x, int y, int halfX, int halfY) const
{
    const int x0 = std::max(0, x - halfX), x1 = std::min(m_width, x + halfX + 1);
    const int y0 = std::max(0, y - halfY), y1 = std::min(m_rows, y + halfY + 1);
    const size_t stride = size_t(m_width) + 1;
    const size_t a = size_t(y0) * stride + x0, b = size_t(y0) * stride + x1;
    const size_t c = size_t(y1) * stride + x0, d = size_t(y1) * stride + x1;
    Moments moments;
    moments.count = m_count[d] - m_count[b] - m_count[c] + m_count[a];
    if (moments.count == 0)
        return moments;
    const double sum = m_sum[d] - m_sum[b] - m_sum[c] + m_sum[a];
    const double squares = m_squares[d] - m_squares[b] - m_squares[c] + m_squares[a];
    moments.mean = sum / moments.count;
    moments.variance = std::max(0.0, squares / moments.count - moments.mean * moments.mean);
    return moments;
}

void SpeckleBlockFilter::filterRows(int begin, int end, float* out) const
{
    std::vector<float> scratch;
    std::vector<int> marks;
    for (int y = begin; y < end; ++y)
        for (int x = 0; x < m_width; ++x)
            *out++ = filterPixel(x, y, scratch, marks);
}

float SpeckleBlockFilter::mmse(float z, double mean, double variance, double noise2)
{
    if (!(variance > 0.0))
        return float(mean);
    const double weight = std::clamp((variance - mean * mean * noise2) / (variance * (1.0 + noise2)), 0.0, 1.0);
    return float(mean + weight * (z - mean));
}

float SpeckleBlockFilter::filterPixel(int x, int y, std::vector<float>& scratch, std::vector<int>& marks) const
{
    const float z = at(x, y);
    if (!std::isfinite(z))
        return kNaN;
    const int half = m_settings.window / 2;
    switch (m_settings.filter)
    {
    case SpeckleFilter::Boxcar:
        return float(box(x, y, half, half).mean);
    case SpeckleFilter::Median:
        return median(x, y, half, scratch);
    case SpeckleFilter::Lee:
    case SpeckleFilter::Kuan:
    {
        const Moments local = box(x, y, half, half);
        if (!(local.variance > 0.0) || !(local.mean > 0.0))
            return float(local.mean);
        const double ci2 = local.variance / (local.mean * local.mean);
        double weight = 1.0 - m_cu2 / ci2;
        if (m_settings.filter == SpeckleFilter::Kuan)
            weight /= 1.0 + m_cu2;
        weight = std::clamp(weight, 0.0, 1.0);
        return float(local.mean + weight * (z - local.mean));
    }
    case SpeckleFilter::RefinedLee:
    case SpeckleFilter::LeeSigma:
    case SpeckleFilter::Idan:
    {
        Neighbourhood chosen;
        neighbourhood(x, y, chosen, marks);
        double mean = 0.0;
        for (int pixel : chosen.pixels)
            mean += m_data[pixel];
        mean /= double(chosen.pixels.size());
        return float(mean + chosen.weight * (z - mean));
    }
    case SpeckleFilter::Frost:
        return frost(x, y, box(x, y, half, half));
    case SpeckleFilter::GammaMap:
        return gammaMap(z, box(x, y, half, half));
    }
    return z;
}

float SpeckleBlockFilter::median(int x, int y, int half, std::vector<float>& scratch) const
{
    scratch.clear();
    for (int yy = std::max(0, y - half); yy <= std::min(m_rows - 1, y + half); ++yy)
        for (int xx = std::max(0, x - half); xx <= std::min(m_width - 1, x + half); ++xx)
            if (std::isfinite(at(xx, yy)))
                scratch.push_back(at(xx, yy));
    const size_t n = scratch.size();
    auto upper = scratch.begin() + n / 2;
    std::nth_element(scratch.begin(), upper, scratch.end());
    if (n % 2)
        return *upper;
    return 0.5f * (*upper + *std::max_element(scratch.begin(), upper));
}

void SpeckleBlockFilter::neighbourhood(int x, int y, Neighbourhood& chosen, std::vector<int>& marks) const
{
    chosen.pixels.clear();
    chosen.weight = 0.0;
    const int half = m_settings.window / 2;
    // Mean and population variance of the chosen pixels, and the MMSE weight for speckle variance noise2.
    auto weigh = [&](double noise2) {
        double sum = 0.0, squares = 0.0;
        for (int pixel : chosen.pixels)
        {
            sum += m_data[pixel];
            squares += double(m_data[pixel]) * m_data[pixel];
        }
        const double n = double(chosen.pixels.size());
        const double mean = sum / n, variance = std::max(0.0, squares / n - mean * mean);
        chosen.weight = variance > 0.0
                            ? std::clamp((variance - mean * mean * noise2) / (variance * (1.0 + noise2)), 0.0, 1.0)
                            : 0.0;
    };
    auto addBox = [&](int radius) {
        for (int yy = std::max(0, y - radius); yy <= std::min(m_rows - 1, y + radius); ++yy)
            for (int xx = std::max(0, x - radius); xx <= std::min(m_width - 1, x + radius); ++xx)
                if (std::isfinite(at(xx, yy)))
                    chosen.pixels.push_back(yy * m_width + xx);
    };
    switch (m_settings.filter)
    {
    case SpeckleFilter::RefinedLee:
        refinedLeeHalf(x, y, chosen.pixels);
        weigh(m_cu2);
        return;
    case SpeckleFilter::LeeSigma:
        leeSigma(x, y, chosen);
        return;
    case SpeckleFilter::Idan:
        idan(x, y, chosen, marks);
        return;
    default:
        addBox(half); // the box mean
        return;
    }
}

void SpeckleBlockFilter::refinedLeeHalf(int x, int y, std::vector<int>& pixels) const
{
    const int s = subWindow(m_settings.window), step = (m_settings.window - s) / 2;
    double m[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            m[i][j] = box(x + (j - 1) * step, y + (i - 1) * step, s / 2, s / 2).mean;
    const double gradients[4] = {
        std::fabs(m[0][2] + m[1][2] + m[2][2] - m[0][0] - m[1][0] - m[2][0]), // across a vertical edge
        std::fabs(m[2][0] + m[2][1] + m[2][2] - m[0][0] - m[0][1] - m[0][2]), // across a horizontal edge
        std::fabs(m[0][1] + m[0][2] + m[1][2] - m[1][0] - m[2][0] - m[2][1]), // across a "\" edge
        std::fabs(m[0][0] + m[0][1] + m[1][0] - m[1][2] - m[2][1] - m[2][2]), // across a "/" edge
    };
    const int edge = int(std::max_element(gradients, gradients + 4) - gradients);
    // The two sides of the edge, as sub-window means; the half window on the side nearer the centre is used.
    static const int sides[4][2][2] = {{{1, 0}, {1, 2}}, {{0, 1}, {2, 1}}, {{0, 2}, {2, 0}}, {{0, 0}, {2, 2}}};
    const double centre = m[1][1];
    const double first = m[sides[edge][0][0]][sides[edge][0][1]], second = m[sides[edge][1][0]][sides[edge][1][1]];
    const std::vector<int>& offsets = m_halves[2 * edge + (std::fabs(centre - first) <= std::fabs(centre - second) ? 0 : 1)];
    for (size_t k = 0; k < offsets.size(); k += 2)
    {
        const int xx = x + offsets[k], yy = y + offsets[k + 1];
        if (xx >= 0 && yy >= 0 && xx < m_width && yy < m_rows && std::isfinite(at(xx, yy)))
            pixels.push_back(yy * m_width + xx);
    }
}

float SpeckleBlockFilter::frost(int x, int y, const Moments& local) const
{
    const double ci2 = local.mean > 0.0 ? local.variance / (local.mean * local.mean) : 0.0;
    const double rate = m_settings.frostDamping * ci2;
    const int half = m_settings.window / 2, n = m_settings.window;
    double weighted = 0.0, weights = 0.0;
    for (int dy = -half; dy <= half; ++dy)
    {
        const int yy = y + dy;
        if (yy < 0 || yy >= m_rows)
            continue;
        for (int dx = -half; dx <= half; ++dx)
        {
            const int xx = x + dx;
            if (xx < 0 || xx >= m_width)
                continue;
            const double v = at(xx, yy);
            if (!std::isfinite(v))
                continue;
            const double w = std::exp(-rate * m_frostDistance[size_t(dy + half) * n + dx + half]);
            weighted += w * v;
            weights += w;
        }
    }
    return float(weighted / weights);
}

float SpeckleBlockFilter::gammaMap(float z, const Moments& local) const
{
    const double mean = local.mean;
    if (!(mean > 0.0))
        return float(mean);
    const double ci2 = local.variance / (mean * mean);
    if (ci2 <= m_cu2)
        return float(mean); // homogeneous: the mean
    if (ci2 >= 2.0 * m_cu2)
        return z; // Ci >= Cmax = sqrt(2) Cu: a point target or strong edge, kept
    const double L = m_settings.looks;
    const double alpha = (1.0 + m_cu2) / (ci2 - m_cu2);
    const double b = alpha - L - 1.0;
    const double d = mean * mean * b * b + 4.0 * alpha * L * mean * z;
    return float((b * mean + std::sqrt(std::max(0.0, d))) / (2.0 * alpha));
}

void SpeckleBlockFilter::leeSigma(int x, int y, Neighbourhood& chosen) const
{
    const float z = at(x, y);
    // Point targets: the pixel and at least four others of its 3 x 3 neighbourhood above the scene's 98th
    // percentile keep their values.
    if (z >= m_settings.brightThreshold)
    {
        int bright = 0;
        for (int yy = std::max(0, y - 1); yy <= std::min(m_rows - 1, y + 1); ++yy)
            for (int xx = std::max(0, x - 1); xx <= std::min(m_width - 1, x + 1); ++xx)
                bright += at(xx, yy) >= m_settings.brightThreshold;
        if (bright >= 5)
        {
            chosen.pixels.push_back(y * m_width + x);
            chosen.weight = 1.0;
            return;
        }
    }
    // The a priori mean from the 3 x 3 MMSE estimate sets the sigma range.
    const Moments small = box(x, y, 1, 1);
    const double prior = mmse(z, small.mean, small.variance, m_cu2);
    const double low = m_sigma.low * prior, high = m_sigma.high * prior;
    const int half = m_settings.window / 2;
    double sum = 0.0, squares = 0.0;
    for (int yy = std::max(0, y - half); yy <= std::min(m_rows - 1, y + half); ++yy)
        for (int xx = std::max(0, x - half); xx <= std::min(m_width - 1, x + half); ++xx)
        {
            const double v = at(xx, yy);
            if (v >= low && v <= high)
            {
                chosen.pixels.push_back(yy * m_width + xx);
                sum += v;
                squares += v * v;
            }
        }
    if (chosen.pixels.size() < 2)
    {
        // Nothing in range: the 3 x 3 estimate.
        chosen.pixels.clear();
        for (int yy = std::max(0, y - 1); yy <= std::min(m_rows - 1, y + 1); ++yy)
            for (int xx = std::max(0, x - 1); xx <= std::min(m_width - 1, x + 1); ++xx)
                if (std::isfinite(at(xx, yy)))
                    chosen.pixels.push_back(yy * m_width + xx);
        chosen.weight = small.variance > 0.0 ? (prior - small.mean) / (z - small.mean) : 0.0;
        if (!std::isfinite(chosen.weight))
            chosen.weight = 0.0;
        return;
    }
    const double n = double(chosen.pixels.size()), mean = sum / n, variance = std::max(0.0, squares / n - mean * mean);
    const double noise2 = m_sigma.truncatedVariance;
    chosen.weight = variance > 0.0 ? std::clamp((variance - mean * mean * noise2) / (variance * (1.0 + noise2)), 0.0, 1.0) : 0.0;
}

void SpeckleBlockFilter::idan(int x, int y, Neighbourhood& chosen, std::vector<int>& marks) const
{
    const int reach = m_settings.window, side = 2 * reach + 1;
    const size_t limit = size_t(m_settings.window) * m_settings.window;
    marks.assign(size_t(side) * side, 0);
    std::vector<int>& region = chosen.pixels;
    // Grows the 8-connected region (block pixel indices) of pixels within the speckle range of seed around
    // (x, y); pass numbers the marks. Returns the region's mean and variance.
    auto grow = [&](double seed, int pass) {
        region.clear();
        region.push_back(y * m_width + x);
        marks[size_t(reach) * side + reach] = pass;
        for (size_t next = 0; next < region.size() && region.size() < limit; ++next)
        {
            const int cx = region[next] % m_width, cy = region[next] / m_width;
            for (int dy = -1; dy <= 1 && region.size() < limit; ++dy)
                for (int dx = -1; dx <= 1 && region.size() < limit; ++dx)
                {
                    const int ix = cx + dx, iy = cy + dy;
                    const int mx = ix - x + reach, my = iy - y + reach;
                    if (mx < 0 || my < 0 || mx >= side || my >= side || ix < 0 || iy < 0 || ix >= m_width ||
                        iy >= m_rows || marks[size_t(my) * side + mx] == pass)
                        continue;
                    const double v = at(ix, iy);
                    if (v >= m_sigma.low * seed && v <= m_sigma.high * seed)
                    {
                        marks[size_t(my) * side + mx] = pass;
                        region.push_back(iy * m_width + ix);
                    }
                }
        }
        double sum = 0.0, squares = 0.0;
        for (int pixel : region)
        {
            sum += m_data[pixel];
            squares += double(m_data[pixel]) * m_data[pixel];
        }
        const double mean = sum / double(region.size());
        return Moments{int(region.size()), mean, std::max(0.0, squares / double(region.size()) - mean * mean)};
    };
    // The seed: the mean of the 3 x 3 neighbourhood; then again from the mean of the first region, so that
    // pixels passed over by a seed that was off are taken in. A pixel joins when it lies in the speckle range
    // around the seed that holds 95 % of the speckle with unit mean (see sigmaRange): the symmetric test
    // |z - seed| <= 2 Cu seed of the original would cut the long upper tail of few-look intensity and bias the
    // region's mean low.
    const Moments first = grow(box(x, y, 1, 1).mean, 1);
    const Moments second = grow(first.mean, 2);
    chosen.weight = second.variance > 0.0
                        ? std::clamp((second.variance - second.mean * second.mean * m_cu2) / (second.variance * (1.0 + m_cu2)), 0.0, 1.0)
                        : 0.0;
}

} // namespace sar
