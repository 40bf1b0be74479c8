// TOPS deburst arithmetic.
#include "tops_deburst.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace sargeo
{

DeburstPlan planDeburst(const S1Annotation& a)
{
    if (a.bursts.empty() || a.linesPerBurst <= 0 || a.samplesPerBurst <= 0)
        throw std::runtime_error("the annotation lists no bursts");
    const double dt = a.azimuthTimeInterval;
    const double t0 = a.bursts.front().azimuthTime;
    struct Span
    {
        long first, last; // valid lines on the common line axis of the first burst
        int start;        // burst line 0 on that axis
    };
    std::vector<Span> spans;
    for (size_t k = 0; k < a.bursts.size(); ++k)
    {
        const S1Burst& b = a.bursts[k];
        const double offset = (b.azimuthTime - t0) / dt;
        if (!std::isfinite(offset) || std::abs(offset) > 1e8)
            throw std::runtime_error("a burst time lies far from the first burst");
        const int start = int(std::lround(offset));
        int first = 0;
        while (first < a.linesPerBurst && b.firstValidSample[size_t(first)] < 0)
            ++first;
        int last = a.linesPerBurst - 1;
        while (last >= 0 && b.firstValidSample[size_t(last)] < 0)
            --last;
        if (first > last)
            throw std::runtime_error("burst " + std::to_string(k + 1) + " has no valid line");
        if (!spans.empty() && start <= spans.back().start)
            throw std::runtime_error("the bursts are not in time order");
        spans.push_back({long(start) + first, long(start) + last, start});
    }
    // Cut between neighbours at the middle of the lines both cover (or keep both whole across a gap).
    std::vector<long> from(spans.size()), to(spans.size());
    from.front() = spans.front().first;
    to.back() = spans.back().last;
    for (size_t k = 0; k + 1 < spans.size(); ++k)
    {
        const long overlapFirst = spans[k + 1].first, overlapLast = spans[k].last;
        long cut = overlapFirst + (overlapLast - overlapFirst + 1) / 2; // first line taken from burst k+1
        cut = std::max(cut, overlapFirst);
        to[k] = std::min(overlapLast, cut - 1);
        from[k + 1] = std::max(overlapFirst, cut);
    }
    DeburstPlan plan;
    plan.samples = a.samplesPerBurst;
    plan.lineTime = dt;
    plan.firstLineTime = t0 + double(from.front()) * dt;
    for (size_t k = 0; k < spans.size(); ++k)
    {
        if (to[k] < from[k])
            continue; // wholly covered by its neighbours
        BurstPiece piece;
        piece.burst = int(k);
        piece.firstLine = int(from[k] - spans[k].start);
        piece.lineCount = int(to[k] - from[k] + 1);
        piece.outputLine = int(from[k] - from.front());
        plan.pieces.push_back(piece);
    }
    plan.lines = int(to.back() - from.front() + 1);
    return plan;
}

void validSamples(const S1Annotation& a, const BurstPiece& piece, int lineInPiece, int* first, int* last)
{
    const S1Burst& b = a.bursts[size_t(piece.burst)];
    const size_t line = size_t(piece.firstLine + lineInPiece);
    *first = std::max(0, b.firstValidSample[line]);
    *last = std::min(a.samplesPerBurst - 1, b.lastValidSample[line]);
    if (b.firstValidSample[line] < 0 || b.lastValidSample[line] < 0)
        *last = *first - 1;
}

} // namespace sargeo
