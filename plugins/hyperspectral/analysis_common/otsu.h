// Otsu's threshold (Otsu, 1979) of a histogram.
#pragma once

#include <vector>

namespace hysa
{

// Bin i covers [low + i * width, low + (i + 1) * width). Returns the bin edge that splits the histogram into the
// two classes of largest between-class variance; where several consecutive splits share the maximum (empty bins
// between two modes), the middle of them. NaN when fewer than two bins are occupied.
double otsuThreshold(const std::vector<double>& counts, double low, double width);

} // namespace hysa
