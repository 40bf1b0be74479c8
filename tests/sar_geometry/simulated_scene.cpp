// Closed-form orbit, scene geometry and targets of the geometry tests.
#include "simulated_scene.h"

#include "test_support.h"

#include <cmath>

namespace simscene
{

namespace
{

constexpr double kGM = 3.986004418e14;
constexpr double kRadius = 6378137.0 + 693000.0;
constexpr double kInclination = 98.18 * M_PI / 180.0;
constexpr double kEarthRate = 7.2921150e-5;
constexpr double kLight = 299792458.0;

// Doppler equation v.d - (lambda / 2) R f(R) = 0 with f(R) = d0 + d1 2 (R - nearRange) / c.
double dopplerTime(const AnalyticOrbit& orbit, const Vec3& p, double low, double high, double lambda = 0.0,
                   double d0 = 0.0, double d1 = 0.0, double nearRange = 0.0)
{
    auto f = [&](double t) {
        Vec3 s, v;
        orbit.state(t, &s, &v);
        const double range = (p - s).norm();
        return v.dot(p - s) - 0.5 * lambda * range * (d0 + d1 * 2.0 * (range - nearRange) / kLight);
    };
    // f decreases through zero as the sensor passes the point.
    for (int i = 0; i < 200 && high - low > 1e-12; ++i)
    {
        const double mid = 0.5 * (low + high);
        (f(mid) > 0 ? low : high) = mid;
    }
    return 0.5 * (low + high);
}

} // namespace

void AnalyticOrbit::state(double t, Vec3* position, Vec3* velocity) const
{
    const double n = std::sqrt(kGM / (kRadius * kRadius * kRadius));
    const double u = argument0 + n * t;
    const double cO = std::cos(raan), sO = std::sin(raan), ci = std::cos(kInclination), si = std::sin(kInclination);
    const Vec3 r(kRadius * (cO * std::cos(u) - sO * std::sin(u) * ci), kRadius * (sO * std::cos(u) + cO * std::sin(u) * ci),
                 kRadius * std::sin(u) * si);
    const Vec3 v(kRadius * n * (-cO * std::sin(u) - sO * std::cos(u) * ci),
                 kRadius * n * (-sO * std::sin(u) + cO * std::cos(u) * ci), kRadius * n * std::cos(u) * si);
    const double th = kEarthRate * t, c = std::cos(th), s = std::sin(th);
    const Vec3 rE(c * r.x() + s * r.y(), -s * r.x() + c * r.y(), r.z());
    const Vec3 vRot(c * v.x() + s * v.y(), -s * v.x() + c * v.y(), v.z());
    *position = rE;
    *velocity = vRot + Vec3(kEarthRate * rE.y(), -kEarthRate * rE.x(), 0.0);
}

Vec3 ecef(double latitude, double longitude, double height)
{
    const double a = 6378137.0, f = 1.0 / 298.257223563, e2 = f * (2 - f);
    const double phi = latitude * M_PI / 180.0, lambda = longitude * M_PI / 180.0;
    const double n = a / std::sqrt(1 - e2 * std::sin(phi) * std::sin(phi));
    return Vec3((n + height) * std::cos(phi) * std::cos(lambda), (n + height) * std::cos(phi) * std::sin(lambda),
                (n * (1 - e2) + height) * std::sin(phi));
}

Scene makeScene(int width, int height, double latitude, double longitude)
{
    Scene scene;
    scene.centreLatitude = latitude;
    scene.centreLongitude = longitude;
    // Sub-satellite point at t = 0 about 4.8 degrees west of the scene (the radar looks right, i.e. east).
    scene.orbit.argument0 = std::asin(std::sin((latitude - 0.1) * M_PI / 180.0) / std::sin(kInclination));
    Vec3 s, v;
    scene.orbit.state(0.0, &s, &v);
    scene.orbit.raan = (longitude - 4.8) * M_PI / 180.0 - std::atan2(s.y(), s.x());

    const Vec3 centre = ecef(latitude, longitude, 0.0);
    const double tc = dopplerTime(scene.orbit, centre, -60.0, 60.0);
    scene.orbit.state(tc, &s, &v);
    const double rc = (centre - s).norm();

    SarParameterRecord& r = scene.record;
    r.title = "simulated";
    r.sensor = "SIM";
    r.orbitDirection = "ASCENDING";
    r.lookDirection = "RIGHT";
    r.polarizationType = "VV";
    r.azimuthLineTime = 2e-3;
    r.slantRangeSpacing = 10.0;
    r.numberOfColumns = width;
    r.numberOfRows = height;
    r.startTime = kT0 + tc - r.azimuthLineTime * (height - 1) / 2.0;
    r.endTime = r.startTime + r.azimuthLineTime * (height - 1);
    r.centerTime = kT0 + tc;
    r.nearSlantRange = rc - r.slantRangeSpacing * (width - 1) / 2.0;
    r.centerSlantRange = rc;
    r.farSlantRange = r.nearSlantRange + r.slantRangeSpacing * (width - 1);
    r.sceneCenterLatitude = latitude;
    r.sceneCenterLongitude = longitude;
    r.incidenceAngle = 35.0;
    r.radarWavelength = 0.0555;
    r.radarCenterFrequency = kLight / r.radarWavelength;
    r.adcSamplingRate = kLight / (2 * r.slantRangeSpacing);
    r.pulseRepetitionFrequency = 1.0 / r.azimuthLineTime;
    r.imageDataType = "DETECTED";
    r.numStateVectors = 31;
    r.firstStateTime = kT0 + tc - 150.0;
    r.stateVectorTimeSpacing = 10.0;
    for (int i = 0; i < r.numStateVectors; ++i)
    {
        scene.orbit.state(tc - 150.0 + 10.0 * i, &s, &v);
        r.stateVectors[size_t(i)] = {s.x(), s.y(), s.z(), v.x(), v.y(), v.z()};
    }
    r.sarToEarthCenter = kRadius;
    r.earthRadiusBelowSensor = 6378137.0;
    return scene;
}

void squint(Scene& scene, double d0, double d1)
{
    scene.doppler0 = d0;
    scene.doppler1 = d1;
    scene.record.azimuthDeskew = "OFF";
    scene.record.dopplerCentroidCoefficients = {d0, d1, 0.0, 0.0};
}

bool truePosition(const Scene& scene, double latitude, double longitude, double height, double* line, double* pixel)
{
    const SarParameterRecord& r = scene.record;
    const Vec3 p = ecef(latitude, longitude, height);
    const double t = dopplerTime(scene.orbit, p, r.startTime - kT0 - 30.0, r.endTime - kT0 + 30.0, r.radarWavelength,
                                 scene.doppler0, scene.doppler1, r.nearSlantRange);
    Vec3 s, v;
    scene.orbit.state(t, &s, &v);
    *line = (t + kT0 - r.startTime) / r.azimuthLineTime;
    *pixel = ((p - s).norm() - r.nearSlantRange) / r.slantRangeSpacing;
    return std::isfinite(*line) && std::isfinite(*pixel);
}

std::vector<Target> targets(const Scene& scene, double height, int perSide)
{
    std::vector<Target> list;
    for (int i = 0; i < perSide; ++i)
        for (int j = 0; j < perSide; ++j)
        {
            Target t;
            t.latitude = scene.centreLatitude + (i - (perSide - 1) / 2.0) * 0.012;
            t.longitude = scene.centreLongitude + (j - (perSide - 1) / 2.0) * 0.016;
            t.height = height;
            truePosition(scene, t.latitude, t.longitude, height, &t.line, &t.pixel);
            list.push_back(t);
        }
    return list;
}

bool writeScene(const QString& imagePath, const Scene& scene, const std::vector<Target>& targets)
{
    const bool made = testsupport::makeRaster(
        imagePath, scene.record.numberOfColumns, scene.record.numberOfRows, 1, GDT_Float32,
        [&](int, int x, int y) {
            double value = 0.1;
            for (const Target& t : targets)
            {
                const double d2 = (x - t.pixel) * (x - t.pixel) + (y - t.line) * (y - t.line);
                if (d2 < 100)
                    value += 100.0 * std::exp(-d2 / (2 * 1.2 * 1.2));
            }
            return value;
        },
        "GTiff", false);
    return made && WriteSarParameterFile(sarParameterFilePath(imagePath), scene.record);
}

} // namespace simscene
