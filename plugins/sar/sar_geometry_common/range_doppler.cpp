// Range-Doppler geolocation in both directions.
#include "range_doppler.h"

#include "sar_parameter_file.h"

#include <Eigen/Geometry>

#include <cmath>
#include <stdexcept>

namespace sargeo
{

RadarGrid radarGridFromRecord(const SarParameterRecord& record)
{
    RadarGrid grid;
    grid.firstLineTime = record.startTime;
    grid.lineTime = record.azimuthLineTime;
    grid.nearRange = record.nearSlantRange;
    grid.width = record.numberOfColumns;
    grid.height = record.numberOfRows;
    grid.rangeSpacing = record.slantRangeSpacing;
    if (grid.width > 1 && record.farSlantRange > record.nearSlantRange)
        grid.rangeSpacing = (record.farSlantRange - record.nearSlantRange) / (grid.width - 1);
    grid.rightLooking = record.lookDirection != "LEFT" && record.lookDirection != "L";
    if (record.azimuthDeskew == "OFF")
    {
        grid.doppler = record.dopplerCentroidCoefficients;
        grid.wavelength = record.radarWavelength;
        for (double c : grid.doppler)
            if (!std::isfinite(c))
                throw std::invalid_argument("the parameter file gives a Doppler centroid polynomial that is not finite");
        if (grid.squinted() && !(grid.wavelength > 0.0 && std::isfinite(grid.wavelength)))
            throw std::invalid_argument("the parameter file gives a Doppler centroid but no radar wavelength");
    }
    if (!(grid.lineTime > 0.0) || !(grid.nearRange > 0.0) || !(grid.rangeSpacing > 0.0) || grid.width <= 0 ||
        grid.height <= 0)
        throw std::invalid_argument("the parameter file gives no usable line time, near range, range spacing or size");
    return grid;
}

double RadarGrid::dopplerAt(double range) const
{
    const double dt = 2.0 * (range - nearRange) / kSpeedOfLight;
    return doppler[0] + dt * (doppler[1] + dt * (doppler[2] + dt * doppler[3]));
}

RangeDoppler::RangeDoppler(Orbit orbit, RadarGrid grid, Ellipsoid ellipsoid)
    : m_orbit(std::move(orbit)), m_grid(grid), m_ellipsoid(ellipsoid)
{
}

bool RangeDoppler::azimuthTime(const Vec3& point, double* time, const double* timeGuess) const
{
    double t = timeGuess ? *timeGuess : lineTimeOf(0.5 * m_grid.height);
    const double margin = 0.5 * (m_orbit.lastTime() - m_orbit.firstTime());
    const bool squinted = m_grid.squinted();
    const double halfLambda = 0.5 * m_grid.wavelength;
    for (int iteration = 0; iteration < 30; ++iteration)
    {
        Vec3 s, v, a;
        m_orbit.at(t, &s, &v, &a);
        const Vec3 d = point - s;
        // g(t) = v.d - (lambda / 2) R f_D(R); zero Doppler when f_D vanishes.
        double f = v.dot(d);
        double slope = a.dot(d) - v.squaredNorm();
        if (squinted)
        {
            const double range = d.norm();
            const double fd = m_grid.dopplerAt(range);
            const double h = 1.0; // metres; the polynomial is smooth, a central difference is plenty
            const double dfd = (m_grid.dopplerAt(range + h) - m_grid.dopplerAt(range - h)) / (2.0 * h);
            const double rangeRate = -v.dot(d) / range;
            f -= halfLambda * range * fd;
            slope -= halfLambda * (fd + range * dfd) * rangeRate;
        }
        if (slope == 0.0 || !std::isfinite(f))
            return false;
        const double step = f / slope;
        t -= step;
        if (!std::isfinite(t) || t < m_orbit.firstTime() - margin || t > m_orbit.lastTime() + margin)
            return false;
        if (std::abs(step) < 1e-10)
        {
            *time = t;
            return t >= m_orbit.firstTime() && t <= m_orbit.lastTime();
        }
    }
    return false;
}

bool RangeDoppler::groundToImage(const Vec3& point, double* line, double* pixel, double* timeGuess) const
{
    double t = 0.0;
    if (!azimuthTime(point, &t, timeGuess))
        return false;
    if (timeGuess)
        *timeGuess = t;
    Vec3 s;
    m_orbit.at(t, &s, nullptr);
    *line = (t - m_grid.firstLineTime) / m_grid.lineTime;
    *pixel = ((point - s).norm() - m_grid.nearRange) / m_grid.rangeSpacing;
    return true;
}

bool RangeDoppler::imageToGround(double line, double pixel, double height, Vec3* point) const
{
    const double t = lineTimeOf(line);
    const double range = m_grid.nearRange + pixel * m_grid.rangeSpacing;
    Vec3 s, v;
    m_orbit.at(t, &s, &v);
    // The Doppler cone v.d = (lambda / 2) R f_D: a fixed distance `ahead` along the track, and a circle of radius
    // `across` in the plane perpendicular to v spanned by "down" and the look side (zero Doppler: ahead = 0).
    const Vec3 forward = v.normalized();
    const double ahead = m_grid.squinted() ? 0.5 * m_grid.wavelength * range * m_grid.dopplerAt(range) / v.norm() : 0.0;
    if (!(std::abs(ahead) < range))
        return false;
    const double across = std::sqrt(range * range - ahead * ahead);
    Vec3 down = -s.normalized();
    down = (down - down.dot(forward) * forward).normalized();
    Vec3 side = down.cross(forward);
    if (!m_grid.rightLooking)
        side = -side;
    auto heightAt = [&](double angle) {
        const Vec3 p = s + ahead * forward + across * (std::cos(angle) * down + std::sin(angle) * side);
        double lat, lon, h;
        ecefToGeodetic(p, &lat, &lon, &h, m_ellipsoid);
        return h;
    };
    // The height along the circle rises monotonically from nadir outwards over the angles a radar looks at.
    double low = 0.0, high = 80.0 * kDegree;
    if (heightAt(low) > height || heightAt(high) < height)
        return false;
    for (int i = 0; i < 60 && high - low > 1e-13; ++i)
    {
        const double mid = 0.5 * (low + high);
        (heightAt(mid) < height ? low : high) = mid;
    }
    const double angle = 0.5 * (low + high);
    *point = s + ahead * forward + across * (std::cos(angle) * down + std::sin(angle) * side);
    return true;
}

double RangeDoppler::ellipsoidIncidence(const Vec3& point, double time) const
{
    Vec3 s;
    m_orbit.at(time, &s, nullptr);
    double lat, lon, h;
    ecefToGeodetic(point, &lat, &lon, &h, m_ellipsoid);
    Vec3 east, north, up;
    localFrame(lat, lon, &east, &north, &up);
    const double c = up.dot((s - point).normalized());
    return std::acos(std::max(-1.0, std::min(1.0, c))) / kDegree;
}

} // namespace sargeo
