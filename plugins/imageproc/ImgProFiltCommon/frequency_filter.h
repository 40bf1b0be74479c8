// Whole-band filtering in the frequency domain: each selected band is transformed at its own size (the image is
// treated as periodic, so the mode does not change the result), multiplied by a transfer function of the
// distance from the zero frequency, transformed back and written as Float32 (Float64 for Float64 input).
#pragma once

#include "fft.h"
#include "filter_engine.h"

namespace filtcommon
{

struct FrequencyPass
{
    std::function<double(double distance)> transfer;
    std::function<double(double)> before; // applied to each pixel before the transform (may be empty)
    std::function<double(double)> after;  // applied to each result after the inverse transform (may be empty)
};

void runFrequencyFilter(const FilterJob& job, const FrequencyPass& pass, const std::function<void(double)>& progress);

} // namespace filtcommon
