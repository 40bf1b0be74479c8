// Geodetic <-> Earth-fixed conversions.
#include "geodesy.h"

#include <cmath>

namespace sargeo
{

Vec3 geodeticToEcef(double latitude, double longitude, double height, const Ellipsoid& e)
{
    const double phi = latitude * kDegree, lambda = longitude * kDegree;
    const double e2 = 1.0 - (e.b * e.b) / (e.a * e.a);
    const double s = std::sin(phi), c = std::cos(phi);
    const double n = e.a / std::sqrt(1.0 - e2 * s * s);
    return Vec3((n + height) * c * std::cos(lambda), (n + height) * c * std::sin(lambda),
                (n * (1.0 - e2) + height) * s);
}

void ecefToGeodetic(const Vec3& p, double* latitude, double* longitude, double* height, const Ellipsoid& e)
{
    // Bowring's start followed by a few fixed-point steps: sub-millimetre for points near the Earth and orbit.
    const double e2 = 1.0 - (e.b * e.b) / (e.a * e.a);
    const double ep2 = (e.a * e.a) / (e.b * e.b) - 1.0;
    const double r = std::hypot(p.x(), p.y());
    double phi;
    if (r < 1e-9)
    {
        phi = p.z() >= 0 ? kPi / 2 : -kPi / 2;
        *latitude = phi / kDegree;
        *longitude = 0.0;
        *height = std::abs(p.z()) - e.b;
        return;
    }
    const double theta = std::atan2(p.z() * e.a, r * e.b);
    phi = std::atan2(p.z() + ep2 * e.b * std::pow(std::sin(theta), 3), r - e2 * e.a * std::pow(std::cos(theta), 3));
    double n = 0.0, h = 0.0;
    for (int i = 0; i < 3; ++i)
    {
        const double s = std::sin(phi);
        n = e.a / std::sqrt(1.0 - e2 * s * s);
        h = r / std::cos(phi) - n;
        phi = std::atan2(p.z(), r * (1.0 - e2 * n / (n + h)));
    }
    const double s = std::sin(phi);
    n = e.a / std::sqrt(1.0 - e2 * s * s);
    h = std::abs(phi) < 1.3 ? r / std::cos(phi) - n : p.z() / s - n * (1.0 - e2);
    *latitude = phi / kDegree;
    *longitude = std::atan2(p.y(), p.x()) / kDegree;
    *height = h;
}

void localFrame(double latitude, double longitude, Vec3* east, Vec3* north, Vec3* up)
{
    const double phi = latitude * kDegree, lambda = longitude * kDegree;
    *east = Vec3(-std::sin(lambda), std::cos(lambda), 0.0);
    *north = Vec3(-std::sin(phi) * std::cos(lambda), -std::sin(phi) * std::sin(lambda), std::cos(phi));
    *up = Vec3(std::cos(phi) * std::cos(lambda), std::cos(phi) * std::sin(lambda), std::sin(phi));
}

} // namespace sargeo
