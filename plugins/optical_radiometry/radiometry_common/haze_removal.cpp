// Haze removal kernels.
#include "haze_removal.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace radiometry
{

PairHistogram::PairHistogram(double lowX, double highX, double lowY, double highY, int bins)
    : m_lowX(lowX), m_highX(highX > lowX ? highX : lowX + 1), m_lowY(lowY), m_highY(highY > lowY ? highY : lowY + 1),
      m_bins(bins), m_counts(size_t(bins) * size_t(bins), 0)
{
}

void PairHistogram::add(double x, double y)
{
    if (std::isnan(x) || std::isnan(y))
        return;
    const int bx = std::clamp(int((x - m_lowX) / (m_highX - m_lowX) * m_bins), 0, m_bins - 1);
    const int by = std::clamp(int((y - m_lowY) / (m_highY - m_lowY) * m_bins), 0, m_bins - 1);
    ++m_counts[size_t(bx) * size_t(m_bins) + size_t(by)];
}

long long PairHistogram::columnCount(int x) const
{
    long long sum = 0;
    for (int y = 0; y < m_bins; ++y)
        sum += at(x, y);
    return sum;
}

ClearLine fitClearLine(const PairHistogram& h, double percent, long long minCount)
{
    std::vector<double> xs, ys;
    for (int x = 0; x < h.bins(); ++x)
    {
        const long long total = h.columnCount(x);
        if (total < minCount)
            continue;
        const double wanted = percent / 100.0 * double(total);
        long long seen = 0;
        for (int y = 0; y < h.bins(); ++y)
        {
            seen += h.at(x, y);
            if (double(seen) >= wanted)
            {
                xs.push_back(h.xAt(x));
                ys.push_back(h.yAt(y));
                break;
            }
        }
    }
    ClearLine line;
    if (xs.size() < 2)
        return line;
    const double n = double(xs.size());
    const double mx = std::accumulate(xs.begin(), xs.end(), 0.0) / n, my = std::accumulate(ys.begin(), ys.end(), 0.0) / n;
    double sxy = 0, sxx = 0;
    for (size_t i = 0; i < xs.size(); ++i)
    {
        sxy += (xs[i] - mx) * (ys[i] - my);
        sxx += (xs[i] - mx) * (xs[i] - mx);
    }
    if (sxx > 0 && sxy > 0)
        line.slope = sxy / sxx;
    line.intercept = my - line.slope * mx;
    return line;
}

std::vector<double> hazeOffsetsByLevel(const std::vector<std::vector<long long>>& counts, double valueLow,
                                       double valueHigh, int referenceLevel, double percent)
{
    const size_t levels = counts.size();
    std::vector<double> dark(levels, std::nan(""));
    for (size_t level = 0; level < levels; ++level)
    {
        const std::vector<long long>& bins = counts[level];
        const long long total = std::accumulate(bins.begin(), bins.end(), 0LL);
        if (total == 0)
            continue;
        const double wanted = percent / 100.0 * double(total);
        long long seen = 0;
        for (size_t b = 0; b < bins.size(); ++b)
        {
            seen += bins[b];
            if (double(seen) >= wanted)
            {
                dark[level] = valueLow + (double(b) + 0.5) * (valueHigh - valueLow) / double(bins.size());
                break;
            }
        }
    }
    std::vector<double> offsets(levels, 0.0);
    if (referenceLevel < 0 || size_t(referenceLevel) >= levels || std::isnan(dark[size_t(referenceLevel)]))
        return offsets;
    const double reference = dark[size_t(referenceLevel)];
    double running = 0;
    for (size_t level = size_t(referenceLevel); level < levels; ++level)
    {
        if (!std::isnan(dark[level]))
            running = std::max(running, dark[level] - reference);
        offsets[level] = running;
    }
    return offsets;
}

cv::Mat guidedFilter(const cv::Mat& guide, const cv::Mat& src, int radius, double eps)
{
    const cv::Size window(2 * radius + 1, 2 * radius + 1);
    const auto mean = [&](const cv::Mat& m) {
        cv::Mat out;
        cv::boxFilter(m, out, CV_32F, window, cv::Point(-1, -1), true, cv::BORDER_REFLECT);
        return out;
    };
    const cv::Mat meanI = mean(guide), meanP = mean(src);
    const cv::Mat covIP = mean(guide.mul(src)) - meanI.mul(meanP);
    const cv::Mat varI = mean(guide.mul(guide)) - meanI.mul(meanI);
    const cv::Mat a = covIP / (varI + eps);
    const cv::Mat b = meanP - a.mul(meanI);
    return mean(a).mul(guide) + mean(b);
}

std::vector<double> darkChannelDehaze(std::vector<cv::Mat>& bands, const cv::Mat& valid, int patch, double omega,
                                      int radius, double eps, double tMin)
{
    const int rows = bands.front().rows, cols = bands.front().cols;
    cv::Mat minimum = bands.front().clone();
    for (size_t b = 1; b < bands.size(); ++b)
        minimum = cv::min(minimum, bands[b]);
    minimum.setTo(1.0f, valid == 0); // no data never darkens a neighbour
    const cv::Mat kernel = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(patch, patch));
    cv::Mat dark;
    cv::erode(minimum, dark, kernel);

    // Atmospheric light: the mean colour of the brightest 0.1 % of the dark channel.
    std::vector<float> values;
    values.reserve(size_t(rows) * size_t(cols));
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x)
            if (valid.at<uint8_t>(y, x))
                values.push_back(dark.at<float>(y, x));
    std::vector<double> light(bands.size(), 1.0);
    if (values.empty())
        return light;
    const size_t top = std::max<size_t>(1, values.size() / 1000);
    std::nth_element(values.begin(), values.end() - std::ptrdiff_t(top), values.end());
    const float threshold = *(values.end() - std::ptrdiff_t(top));
    std::vector<double> sums(bands.size(), 0.0);
    size_t count = 0;
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x)
            if (valid.at<uint8_t>(y, x) && dark.at<float>(y, x) >= threshold)
            {
                ++count;
                for (size_t b = 0; b < bands.size(); ++b)
                    sums[b] += bands[b].at<float>(y, x);
            }
    for (size_t b = 0; b < bands.size(); ++b)
        light[b] = std::max(1e-6, sums[b] / double(std::max<size_t>(1, count)));

    // Transmission from the dark channel of the image normalised by the light, refined by the guided filter.
    cv::Mat normalised = bands.front() / light.front();
    for (size_t b = 1; b < bands.size(); ++b)
        normalised = cv::min(normalised, bands[b] / light[b]);
    normalised.setTo(1.0f, valid == 0);
    cv::Mat darkNormalised;
    cv::erode(normalised, darkNormalised, kernel);
    cv::Mat transmission = 1.0 - omega * darkNormalised;
    cv::Mat guide = cv::Mat::zeros(rows, cols, CV_32F);
    for (const cv::Mat& band : bands)
        guide += band / double(bands.size());
    transmission = guidedFilter(guide, transmission, radius, eps);
    transmission = cv::max(transmission, tMin);
    for (size_t b = 0; b < bands.size(); ++b)
    {
        cv::Mat recovered = (bands[b] - light[b]) / transmission + light[b];
        recovered.copyTo(bands[b], valid);
    }
    return light;
}

} // namespace radiometry
