// Calibration arithmetic: the coefficient rules and the per-pixel loops.
#include "calibration_kernels.h"

#include <cmath>

namespace radiometry
{

namespace
{
constexpr double kPi = 3.14159265358979323846;
constexpr double kDegree = kPi / 180.0;
} // namespace

LinearCalibration radianceOf(const optical::BandCoefficients& band)
{
    if (!band.hasRadiance())
        throw optical::ProductError("band " + band.id + " has no radiance rescaling");
    return {band.radianceMult, band.radianceAdd};
}

LinearCalibration reflectanceOf(const optical::BandCoefficients& band, const optical::SunGeometry& sun)
{
    if (band.thermal)
        throw optical::ProductError("band " + band.id + " is a thermal band and has no reflectance");
    if (band.hasReflectance() && band.reflectanceSunCorrected)
        return {band.reflectanceMult, band.reflectanceAdd};
    if (!optical::known(sun.elevation) || sun.elevation <= 0)
        throw optical::ProductError("the sun elevation needed for reflectance is unknown");
    const double sinElevation = std::sin(sun.elevation * kDegree);
    if (band.hasReflectance())
        return {band.reflectanceMult / sinElevation, band.reflectanceAdd / sinElevation};
    if (!band.hasRadiance() || !optical::known(band.esun))
        throw optical::ProductError("band " + band.id + " has neither reflectance factors nor a solar irradiance");
    if (!optical::known(sun.earthSunDistance))
        throw optical::ProductError("the Earth-Sun distance needed for reflectance is unknown");
    const double d = sun.earthSunDistance;
    // cos(zenith) = sin(elevation).
    const double factor = kPi * d * d / (band.esun * sinElevation);
    return {band.radianceMult * factor, band.radianceAdd * factor};
}

void applyLinear(const double* dn, size_t count, const LinearCalibration& c, const NoDataRule& noData, float* out)
{
    for (size_t i = 0; i < count; ++i)
        out[i] = noData.isNoData(dn[i]) ? kOutputNoData : float(c.gain * dn[i] + c.bias);
}

void applyBrightnessTemperature(const double* dn, size_t count, const LinearCalibration& radiance, double k1,
                                double k2, const NoDataRule& noData, float* out)
{
    for (size_t i = 0; i < count; ++i)
    {
        const double l = radiance.gain * dn[i] + radiance.bias;
        out[i] = noData.isNoData(dn[i]) || !(l > 0) ? kOutputNoData : float(k2 / std::log(k1 / l + 1.0));
    }
}

} // namespace radiometry
