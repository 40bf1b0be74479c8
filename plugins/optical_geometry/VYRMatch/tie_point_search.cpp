// Tie point search with OpenCV.
#include "tie_point_search.h"

#include "raster_io.h"

#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <mutex>

namespace optgeo
{

namespace
{

constexpr int kHalfWindow = 15;

// Centres of a regular grid of about `count` points, `margin` pixels from the edges.
std::vector<cv::Point> gridPoints(int width, int height, int count, int margin)
{
    std::vector<cv::Point> points;
    const int usableW = width - 2 * margin, usableH = height - 2 * margin;
    if (usableW < 1 || usableH < 1 || count < 1)
        return points;
    const double aspect = double(usableW) / usableH;
    const int nx = std::max(1, int(std::round(std::sqrt(count * aspect))));
    const int ny = std::max(1, (count + nx - 1) / nx);
    for (int j = 0; j < ny; ++j)
        for (int i = 0; i < nx; ++i)
            points.emplace_back(margin + int((i + 0.5) * usableW / nx), margin + int((j + 0.5) * usableH / ny));
    return points;
}

bool allFinite(const cv::Mat& m)
{
    return cv::checkRange(m, true, nullptr, -1e30, 1e30);
}

// Offset of the parabola's vertex through three samples.
double vertex(double left, double centre, double right)
{
    const double d = left - 2 * centre + right;
    return d < 0 ? 0.5 * (left - right) / d : 0.0;
}

// 8-bit image stretched between the 2nd and 98th percentiles of its valid pixels; no data becomes 0.
cv::Mat toByte(const cv::Mat& image)
{
    std::vector<float> values;
    for (int y = 0; y < image.rows; y += 2)
        for (int x = 0; x < image.cols; x += 2)
        {
            const float v = image.at<float>(y, x);
            if (std::isfinite(v))
                values.push_back(v);
        }
    cv::Mat out(image.size(), CV_8U, cv::Scalar(0));
    if (values.empty())
        return out;
    std::sort(values.begin(), values.end());
    const double lo = values[values.size() * 2 / 100], hi = values[values.size() * 98 / 100];
    const double scale = hi > lo ? 254.0 / (hi - lo) : 1.0;
    for (int y = 0; y < image.rows; ++y)
        for (int x = 0; x < image.cols; ++x)
        {
            const float v = image.at<float>(y, x);
            out.at<uchar>(y, x) = std::isfinite(v) ? cv::saturate_cast<uchar>(1 + (v - lo) * scale) : 0;
        }
    return out;
}

} // namespace

std::vector<GridMatch> matchByCorrelation(const cv::Mat& reference, const cv::Mat& image, int count, double radius,
                                          double threshold)
{
    const int r = std::max(1, int(std::ceil(radius)));
    const std::vector<cv::Point> centres = gridPoints(reference.cols, reference.rows, count, kHalfWindow + r + 1);
    std::vector<GridMatch> matches;
    std::mutex lock;
    algokit::parallelFor(int(centres.size()), [&](int begin, int end) {
        for (int k = begin; k < end; ++k)
        {
            const cv::Point c = centres[k];
            const cv::Mat templ = reference(cv::Rect(c.x - kHalfWindow, c.y - kHalfWindow, 2 * kHalfWindow + 1, 2 * kHalfWindow + 1));
            const cv::Mat search = image(cv::Rect(c.x - kHalfWindow - r, c.y - kHalfWindow - r, 2 * (kHalfWindow + r) + 1,
                                                  2 * (kHalfWindow + r) + 1));
            if (!allFinite(templ) || !allFinite(search))
                continue;
            cv::Scalar mean, deviation;
            cv::meanStdDev(templ, mean, deviation);
            if (deviation[0] < 1e-6)
                continue;
            cv::Mat score;
            cv::matchTemplate(search, templ, score, cv::TM_CCOEFF_NORMED);
            double best = 0;
            cv::Point at;
            cv::minMaxLoc(score, nullptr, &best, nullptr, &at);
            if (best < threshold || at.x == 0 || at.y == 0 || at.x == score.cols - 1 || at.y == score.rows - 1)
                continue;
            GridMatch m;
            m.x = c.x + 0.5;
            m.y = c.y + 0.5;
            m.dx = at.x - r + vertex(score.at<float>(at.y, at.x - 1), best, score.at<float>(at.y, at.x + 1));
            m.dy = at.y - r + vertex(score.at<float>(at.y - 1, at.x), best, score.at<float>(at.y + 1, at.x));
            m.score = best;
            std::lock_guard<std::mutex> guard(lock);
            matches.push_back(m);
        }
    });
    std::sort(matches.begin(), matches.end(), [](const GridMatch& a, const GridMatch& b) {
        return a.y != b.y ? a.y < b.y : a.x < b.x;
    });
    return matches;
}

std::vector<GridMatch> matchByPhase(const cv::Mat& reference, const cv::Mat& image, int count, double radius,
                                    double threshold)
{
    int size = 64;
    while (size < 4 * radius)
        size *= 2;
    const std::vector<cv::Point> centres = gridPoints(reference.cols, reference.rows, count, size / 2 + 1);
    cv::Mat window;
    cv::createHanningWindow(window, cv::Size(size, size), CV_64F);
    std::vector<GridMatch> matches;
    std::mutex lock;
    algokit::parallelFor(int(centres.size()), [&](int begin, int end) {
        for (int k = begin; k < end; ++k)
        {
            const cv::Point c = centres[k];
            const cv::Rect box(c.x - size / 2, c.y - size / 2, size, size);
            cv::Mat a, b;
            reference(box).convertTo(a, CV_64F);
            image(box).convertTo(b, CV_64F);
            if (!allFinite(a) || !allFinite(b))
                continue;
            double response = 0;
            const cv::Point2d shift = cv::phaseCorrelate(a, b, window, &response);
            if (response < threshold || std::hypot(shift.x, shift.y) > radius)
                continue;
            // The window's centre is between pixels size/2 - 1 and size/2: the shift holds there.
            GridMatch m;
            m.x = c.x;
            m.y = c.y;
            m.dx = shift.x;
            m.dy = shift.y;
            m.score = response;
            std::lock_guard<std::mutex> guard(lock);
            matches.push_back(m);
        }
    });
    std::sort(matches.begin(), matches.end(), [](const GridMatch& a, const GridMatch& b) {
        return a.y != b.y ? a.y < b.y : a.x < b.x;
    });
    return matches;
}

std::vector<GridMatch> matchByFeatures(const cv::Mat& reference, const cv::Mat& image, bool sift, int count,
                                       double radius, double ratio)
{
    const cv::Mat a = toByte(reference), b = toByte(image);
    const cv::Mat maskA = a > 0, maskB = b > 0;
    cv::Ptr<cv::Feature2D> detector;
    if (sift)
        detector = cv::SIFT::create(std::max(100, 4 * count));
    else
        detector = cv::ORB::create(std::max(100, 4 * count));
    std::vector<cv::KeyPoint> ka, kb;
    cv::Mat da, db;
    detector->detectAndCompute(a, maskA, ka, da);
    detector->detectAndCompute(b, maskB, kb, db);
    std::vector<GridMatch> matches;
    if (da.empty() || db.empty())
        return matches;
    cv::BFMatcher matcher(sift ? cv::NORM_L2 : cv::NORM_HAMMING);
    std::vector<std::vector<cv::DMatch>> pairs;
    matcher.knnMatch(da, db, pairs, 2);
    for (const auto& pair : pairs)
    {
        if (pair.size() < 2 || pair[0].distance >= ratio * pair[1].distance)
            continue;
        const cv::Point2f p = ka[pair[0].queryIdx].pt, q = kb[pair[0].trainIdx].pt;
        if (std::hypot(q.x - p.x, q.y - p.y) > radius)
            continue;
        GridMatch m;
        // OpenCV's key points count pixel centres from 0.
        m.x = p.x + 0.5;
        m.y = p.y + 0.5;
        m.dx = q.x - p.x;
        m.dy = q.y - p.y;
        m.score = 1.0 - pair[0].distance / std::max(1e-9f, pair[1].distance);
        matches.push_back(m);
    }
    std::sort(matches.begin(), matches.end(), [](const GridMatch& x, const GridMatch& y) { return x.score > y.score; });
    if (int(matches.size()) > count)
        matches.resize(count);
    return matches;
}

} // namespace optgeo
