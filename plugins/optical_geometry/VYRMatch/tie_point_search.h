// Tie points between a reference and an image already resampled onto the reference grid: normalised
// cross-correlation or phase correlation of windows on a regular grid, or SIFT/ORB features.
#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace optgeo
{

// The feature at reference pixel centre (x, y) is at (x + dx, y + dy) in the resampled image.
struct GridMatch
{
    double x = 0, y = 0, dx = 0, dy = 0, score = 0;
};

// Float images (CV_32F, NaN for no data) of the same size.
std::vector<GridMatch> matchByCorrelation(const cv::Mat& reference, const cv::Mat& image, int count, double radius,
                                          double threshold);
std::vector<GridMatch> matchByPhase(const cv::Mat& reference, const cv::Mat& image, int count, double radius,
                                    double threshold);
// sift: SIFT descriptors, else ORB; ratio: Lowe's ratio test.
std::vector<GridMatch> matchByFeatures(const cv::Mat& reference, const cv::Mat& image, bool sift, int count,
                                       double radius, double ratio);

} // namespace optgeo
