// A simulated slant-range scene: a circular orbit over a rotating Earth, computed in closed form, and the
// image geometry built around a chosen ground point. Truths come from the closed form, not from the library.
#pragma once

#include "sar_parameter_file.h"

#include <Eigen/Core>

#include <QString>
#include <vector>

namespace simscene
{

using Vec3 = Eigen::Vector3d;

// Circular orbit (693 km altitude, 98.2 degrees inclination) in an Earth-fixed frame; t in seconds after kT0.
struct AnalyticOrbit
{
    double raan = 0.0;     // right ascension of the ascending node at t = 0, radians
    double argument0 = 0.0; // argument of latitude at t = 0, radians
    void state(double t, Vec3* position, Vec3* velocity) const;
};

constexpr double kT0 = 40000.0; // record time of t = 0 (seconds of day)

struct Scene
{
    AnalyticOrbit orbit;
    SarParameterRecord record;
    double centreLatitude = 0.0, centreLongitude = 0.0;
    // Doppler centroid of a squinted scene: d0 (Hz) + d1 (Hz/s) x (two-way range time - that of the near range).
    double doppler0 = 0.0, doppler1 = 0.0;
};

// Makes the scene squinted (Doppler-centroid geometry, azimuth not deskewed) with the centroid d0 + d1 dt; the
// record keeps its times, so the targets move along the track.
void squint(Scene& scene, double d0, double d1);

// A scene of width x height samples centred on (latitude, longitude) at height 0, seen right-looking.
Scene makeScene(int width = 400, int height = 500, double latitude = 41.6, double longitude = 12.8);

// Geodetic (WGS 84) to Earth-fixed, written out here for the truths.
Vec3 ecef(double latitude, double longitude, double height);

// The true image position of a ground point: the time at which 2 v.(p - s) / (lambda R) equals the scene's
// Doppler centroid (zero unless squinted), by bisection on the closed-form orbit.
bool truePosition(const Scene& scene, double latitude, double longitude, double height, double* line, double* pixel);

struct Target
{
    double latitude, longitude, height;
    double line, pixel; // true image position
};

// Targets on a small lat/lon grid inside the scene at the given height.
std::vector<Target> targets(const Scene& scene, double height, int perSide = 3);

// Writes a Float32 image (background 0.1, a Gaussian blob of peak 100 and sigma 1.2 samples at every target)
// and its SAR parameter file beside it.
bool writeScene(const QString& imagePath, const Scene& scene, const std::vector<Target>& targets);

} // namespace simscene
