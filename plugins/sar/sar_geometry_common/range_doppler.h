// The range-Doppler model of a zero-Doppler slant-range image: ground position <-> (line, pixel).
#pragma once

#include "geodesy.h"
#include "orbit.h"

struct SarParameterRecord;

namespace sargeo
{

// Timing and sampling of a slant-range image grid.
struct RadarGrid
{
    double firstLineTime = 0.0; // azimuth time of line 0, seconds on the orbit's time base
    double lineTime = 0.0;      // seconds per line
    double nearRange = 0.0;     // slant range of column 0, metres
    double rangeSpacing = 0.0;  // metres per column
    int width = 0;
    int height = 0;
    bool rightLooking = true;
};

// The grid of a SAR parameter record; throws std::invalid_argument when its timing or sampling is unusable.
RadarGrid radarGridFromRecord(const SarParameterRecord& record);

class RangeDoppler
{
public:
    RangeDoppler(Orbit orbit, RadarGrid grid, Ellipsoid ellipsoid = Ellipsoid());

    // Zero-Doppler time of an Earth-fixed point by Newton iteration on v(t).(p - s(t)) = 0, started at
    // *timeGuess when given (and updated). False when the iteration leaves the orbit's time span or fails.
    bool zeroDopplerTime(const Vec3& point, double* time, const double* timeGuess = nullptr) const;

    // Image position (fractional line and pixel, 0 at the centre of the first sample) of an Earth-fixed point.
    bool groundToImage(const Vec3& point, double* line, double* pixel, double* timeGuess = nullptr) const;

    // The Earth-fixed point at geodetic height h seen at (line, pixel). False when the range does not reach it.
    bool imageToGround(double line, double pixel, double height, Vec3* point) const;

    // Incidence angle (degrees) on the ellipsoid, between the ellipsoid normal and the line of sight.
    double ellipsoidIncidence(const Vec3& point, double time) const;

    const Orbit& orbit() const { return m_orbit; }
    const RadarGrid& grid() const { return m_grid; }
    const Ellipsoid& ellipsoid() const { return m_ellipsoid; }
    double lineTimeOf(double line) const { return m_grid.firstLineTime + line * m_grid.lineTime; }

private:
    Orbit m_orbit;
    RadarGrid m_grid;
    Ellipsoid m_ellipsoid;
};

} // namespace sargeo
