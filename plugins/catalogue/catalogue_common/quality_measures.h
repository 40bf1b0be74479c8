// No-reference quality measures of one band over a grid of values with a validity mask.
#pragma once

#include <cstddef>

namespace catalogue
{

struct BandMeasures
{
    size_t validCount = 0;
    double validShare = 0.0; // valid / all
    double minimum = 0.0, maximum = 0.0, mean = 0.0, stdDev = 0.0;
    double entropyBits = 0.0;  // Shannon entropy of a 256-bin histogram over [minimum, maximum]
    double meanGradient = 0.0; // mean of sqrt((dx^2 + dy^2) / 2) over cells whose right and lower neighbours are valid
    double snr = 0.0;          // mean / standard deviation (0 when the deviation is 0)
};

// values: w*h row-major; valid: w*h, non-zero where the value counts (may be null: all valid).
BandMeasures measureBand(const double* values, const unsigned char* valid, int w, int h);

} // namespace catalogue
