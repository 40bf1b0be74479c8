// The clip stretch of rendered pictures: the range between two percentiles of a histogram.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace datautil
{

struct StretchRange
{
    double low = 0.0;
    double high = 0.0;
};

// counts: buckets of equal width over [minValue, maxValue]. Returns the value below which `clip` of the counted
// pixels lie (low) and above which `clip` lie (high), interpolated within the bucket; when the two meet (a flat
// band) high is low plus one bucket so that the stretch stays defined.
StretchRange clipRange(const std::vector<std::uint64_t>& counts, double minValue, double maxValue, double clip);

} // namespace datautil
