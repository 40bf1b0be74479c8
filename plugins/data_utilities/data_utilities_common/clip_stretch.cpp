// The clip stretch of rendered pictures.
#include "clip_stretch.h"

namespace datautil
{

namespace
{

// The value at which the running count reaches `target` (counted from the low end).
double valueAtCount(const std::vector<std::uint64_t>& counts, double minValue, double width, double target)
{
    double running = 0.0;
    for (std::size_t i = 0; i < counts.size(); ++i)
    {
        const double next = running + double(counts[i]);
        if (counts[i] > 0 && next >= target)
            return minValue + width * (double(i) + (target - running) / double(counts[i]));
        running = next;
    }
    return minValue + width * double(counts.size());
}

} // namespace

StretchRange clipRange(const std::vector<std::uint64_t>& counts, double minValue, double maxValue, double clip)
{
    StretchRange range{minValue, maxValue};
    double total = 0.0;
    for (std::uint64_t c : counts)
        total += double(c);
    if (counts.empty() || total <= 0.0)
        return range;
    const double width = (maxValue - minValue) / double(counts.size());
    range.low = valueAtCount(counts, minValue, width, total * clip);
    range.high = valueAtCount(counts, minValue, width, total * (1.0 - clip));
    if (!(range.high > range.low))
        range.high = range.low + (width > 0.0 ? width : 1.0);
    return range;
}

} // namespace datautil
