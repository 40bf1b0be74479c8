// Smoothing of polygon boundaries and lines that keeps shared boundaries shared: the parts are cut into arcs at
// their nodes (vertices where more than two edges meet, ends of lines), each distinct arc is simplified
// (Douglas-Peucker) and rounded (Chaikin corner cutting) once, and every part is rebuilt from its smoothed arcs.
// Neighbouring polygons must store their common boundary with the same vertices (as the polygoniser writes them).
#pragma once

#include <vector>

namespace datautil
{

struct Point
{
    double x = 0.0;
    double y = 0.0;
    bool operator==(const Point& o) const { return x == o.x && y == o.y; }
    bool operator!=(const Point& o) const { return !(*this == o); }
};

using Polyline = std::vector<Point>;

// Douglas-Peucker simplification keeping both ends; tolerance 0 keeps every vertex.
Polyline simplifyDouglasPeucker(const Polyline& line, double tolerance);

// Chaikin corner cutting: each segment gives its points at 1/4 and 3/4. An open line keeps its two ends; a closed
// ring (first point repeated at the end) is cut all round and stays closed.
Polyline cutCorners(const Polyline& line, int iterations, bool closed);

// Smooths every part; closed[i] tells whether part i is a ring (first point repeated at the end). A ring that would
// fall below three distinct points is kept as it was.
std::vector<Polyline> smoothSharedArcs(const std::vector<Polyline>& parts, const std::vector<bool>& closed,
                                       double tolerance, int iterations);

} // namespace datautil
