// The range-Doppler model of a slant-range image, in zero-Doppler or Doppler-centroid geometry:
// ground position <-> (line, pixel).
#pragma once

#include "geodesy.h"
#include "orbit.h"

#include <array>

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
    // Doppler-centroid geometry (an image that was not deskewed): the centroid in Hz as a cubic in the two-way
    // range time minus that of the near range, f = d0 + d1 dt + d2 dt^2 + d3 dt^3, and the wavelength in metres.
    // All zero: zero-Doppler geometry.
    std::array<double, 4> doppler{};
    double wavelength = 0.0;

    bool squinted() const { return wavelength > 0.0 && (doppler[0] != 0 || doppler[1] != 0 || doppler[2] != 0 || doppler[3] != 0); }
    // The Doppler centroid (Hz) at slant range `range` (metres).
    double dopplerAt(double range) const;
};

// The grid of a SAR parameter record; throws std::invalid_argument when its timing or sampling is unusable.
// The Doppler polynomial is taken when the record says the azimuth was not deskewed (azimuthDeskew "OFF"): a
// deskewed image (Sentinel-1, GF-3 and most level-1 products) is in zero-Doppler geometry whatever its centroid.
RadarGrid radarGridFromRecord(const SarParameterRecord& record);

class RangeDoppler
{
public:
    RangeDoppler(Orbit orbit, RadarGrid grid, Ellipsoid ellipsoid = Ellipsoid());

    // Azimuth time of an Earth-fixed point by Newton iteration on the Doppler equation
    // f_D = 2 v(t).(p - s(t)) / (lambda R), with f_D = 0 in zero-Doppler geometry, started at *timeGuess when
    // given. False when the iteration leaves the orbit's time span or fails.
    bool azimuthTime(const Vec3& point, double* time, const double* timeGuess = nullptr) const;

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
