// Geodetic and Earth-fixed Cartesian coordinates on a reference ellipsoid (WGS 84 unless told otherwise).
#pragma once

#include <Eigen/Core>

namespace sargeo
{

using Vec3 = Eigen::Vector3d;

struct Ellipsoid
{
    double a = 6378137.0;
    double b = 6356752.314245;
};

// Latitude and longitude in degrees, height in metres above the ellipsoid.
Vec3 geodeticToEcef(double latitude, double longitude, double height, const Ellipsoid& e = Ellipsoid());
void ecefToGeodetic(const Vec3& p, double* latitude, double* longitude, double* height,
                    const Ellipsoid& e = Ellipsoid());

// Unit normal of the ellipsoid (local "up") at a geodetic position, and the local east and north.
void localFrame(double latitude, double longitude, Vec3* east, Vec3* north, Vec3* up);

constexpr double kSpeedOfLight = 299792458.0;
constexpr double kPi = 3.14159265358979323846;
constexpr double kDegree = kPi / 180.0;

} // namespace sargeo
