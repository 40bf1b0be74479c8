// Smoothing of polygon boundaries and lines that keeps shared boundaries shared.
#include "arc_smoothing.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <utility>

namespace datautil
{

namespace
{

using Key = std::pair<double, double>;

Key keyOf(const Point& p)
{
    return {p.x, p.y};
}

double distanceToSegment(const Point& p, const Point& a, const Point& b)
{
    const double dx = b.x - a.x, dy = b.y - a.y;
    const double length2 = dx * dx + dy * dy;
    double t = length2 > 0 ? ((p.x - a.x) * dx + (p.y - a.y) * dy) / length2 : 0.0;
    t = std::clamp(t, 0.0, 1.0);
    return std::hypot(p.x - (a.x + t * dx), p.y - (a.y + t * dy));
}

// Marks the vertices of [first, last] that Douglas-Peucker keeps (iterative, no recursion depth limit).
void markKept(const Polyline& line, size_t first, size_t last, double tolerance, std::vector<char>& keep)
{
    std::vector<std::pair<size_t, size_t>> spans{{first, last}};
    while (!spans.empty())
    {
        const auto [a, b] = spans.back();
        spans.pop_back();
        double farthest = -1.0;
        size_t at = a;
        for (size_t i = a + 1; i < b; ++i)
        {
            const double d = distanceToSegment(line[i], line[a], line[b]);
            if (d > farthest)
            {
                farthest = d;
                at = i;
            }
        }
        if (farthest > tolerance)
        {
            keep[at] = 1;
            spans.push_back({a, at});
            spans.push_back({at, b});
        }
    }
}

// An arc in the direction that compares smaller, and whether that reversed it.
std::pair<std::vector<Key>, bool> canonical(const Polyline& arc)
{
    std::vector<Key> forward, backward;
    for (const Point& p : arc)
        forward.push_back(keyOf(p));
    backward.assign(forward.rbegin(), forward.rend());
    if (backward < forward)
        return {backward, true};
    return {forward, false};
}

// A closed ring without nodes, rotated to start at its smallest vertex and turned to a fixed direction, so that
// the same ring seen from both sides (an island and the hole around it) gives the same arc.
Polyline canonicalRing(const Polyline& ring)
{
    Polyline open(ring.begin(), ring.end() - 1);
    const auto smallest =
        std::min_element(open.begin(), open.end(), [](const Point& a, const Point& b) { return keyOf(a) < keyOf(b); });
    std::rotate(open.begin(), smallest, open.end());
    if (open.size() > 2 && keyOf(open.back()) < keyOf(open[1]))
        std::reverse(open.begin() + 1, open.end());
    open.push_back(open.front());
    return open;
}

size_t distinctPoints(const Polyline& ring)
{
    std::set<Key> seen;
    for (const Point& p : ring)
        seen.insert(keyOf(p));
    return seen.size();
}

} // namespace

Polyline simplifyDouglasPeucker(const Polyline& line, double tolerance)
{
    if (tolerance <= 0.0 || line.size() < 3)
        return line;
    std::vector<char> keep(line.size(), 0);
    keep.front() = keep.back() = 1;
    if (line.front() == line.back())
    {
        // A closed arc: split it at its farthest vertex from the start, so both halves have distinct ends.
        size_t far = 1;
        double best = -1.0;
        for (size_t i = 1; i + 1 < line.size(); ++i)
        {
            const double d = std::hypot(line[i].x - line[0].x, line[i].y - line[0].y);
            if (d > best)
            {
                best = d;
                far = i;
            }
        }
        keep[far] = 1;
        markKept(line, 0, far, tolerance, keep);
        markKept(line, far, line.size() - 1, tolerance, keep);
    }
    else
        markKept(line, 0, line.size() - 1, tolerance, keep);
    Polyline kept;
    for (size_t i = 0; i < line.size(); ++i)
        if (keep[i])
            kept.push_back(line[i]);
    return kept;
}

Polyline cutCorners(const Polyline& line, int iterations, bool closed)
{
    Polyline current = line;
    for (int it = 0; it < iterations && current.size() >= 3; ++it)
    {
        Polyline next;
        next.reserve(current.size() * 2);
        if (!closed)
            next.push_back(current.front());
        for (size_t i = 0; i + 1 < current.size(); ++i)
        {
            const Point& a = current[i];
            const Point& b = current[i + 1];
            const Point q{0.75 * a.x + 0.25 * b.x, 0.75 * a.y + 0.25 * b.y};
            const Point r{0.25 * a.x + 0.75 * b.x, 0.25 * a.y + 0.75 * b.y};
            // The ends of an open line stay where they are: its first and last segments keep their outer halves.
            if (closed || i > 0)
                next.push_back(q);
            if (closed || i + 2 < current.size())
                next.push_back(r);
        }
        if (closed)
            next.push_back(next.front());
        else
            next.push_back(current.back());
        current.swap(next);
    }
    return current;
}

std::vector<Polyline> smoothSharedArcs(const std::vector<Polyline>& parts, const std::vector<bool>& closed,
                                       double tolerance, int iterations)
{
    // Distinct neighbours of every vertex over all parts.
    std::map<Key, std::set<Key>> neighbours;
    for (const Polyline& part : parts)
        for (size_t i = 0; i + 1 < part.size(); ++i)
        {
            if (part[i] == part[i + 1])
                continue;
            neighbours[keyOf(part[i])].insert(keyOf(part[i + 1]));
            neighbours[keyOf(part[i + 1])].insert(keyOf(part[i]));
        }
    auto isNode = [&](const Point& p) { return neighbours[keyOf(p)].size() != 2; };

    std::map<std::vector<Key>, Polyline> smoothed; // canonical arc -> smoothed, in canonical direction
    auto smoothArc = [&](const Polyline& arc, bool ring) {
        const auto [key, reversed] = canonical(arc);
        auto it = smoothed.find(key);
        if (it == smoothed.end())
        {
            Polyline forward = arc;
            if (reversed)
                std::reverse(forward.begin(), forward.end());
            Polyline result = cutCorners(simplifyDouglasPeucker(forward, tolerance), iterations, ring);
            it = smoothed.emplace(key, std::move(result)).first;
        }
        Polyline result = it->second;
        if (reversed)
            std::reverse(result.begin(), result.end());
        return result;
    };

    std::vector<Polyline> out;
    out.reserve(parts.size());
    for (size_t p = 0; p < parts.size(); ++p)
    {
        const Polyline& part = parts[p];
        const bool ring = closed[p] && part.size() >= 4 && part.front() == part.back();
        if (part.size() < 3)
        {
            out.push_back(part);
            continue;
        }
        // Start a ring at one of its nodes; a ring without nodes is one closed arc.
        Polyline walk = part;
        size_t start = 0;
        if (ring)
        {
            while (start + 1 < part.size() && !isNode(part[start]))
                ++start;
            if (start + 1 == part.size())
            {
                const Polyline canonicalForm = canonicalRing(part);
                Polyline result = smoothArc(canonicalForm, true);
                out.push_back(distinctPoints(result) >= 3 ? result : part);
                continue;
            }
            walk.assign(part.begin() + long(start), part.end() - 1);
            walk.insert(walk.end(), part.begin(), part.begin() + long(start) + 1);
        }
        Polyline rebuilt{walk.front()};
        size_t from = 0;
        for (size_t i = 1; i < walk.size(); ++i)
        {
            if (i + 1 < walk.size() && !isNode(walk[i]))
                continue;
            const Polyline arc(walk.begin() + long(from), walk.begin() + long(i) + 1);
            const Polyline done = smoothArc(arc, false);
            rebuilt.insert(rebuilt.end(), done.begin() + 1, done.end());
            from = i;
        }
        out.push_back(ring && distinctPoints(rebuilt) < 3 ? part : rebuilt);
    }
    return out;
}

} // namespace datautil
