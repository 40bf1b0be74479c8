// Landsat top-of-atmosphere calibration: the MTL's rescaling factors as a plain struct, and the conversion of
// a row of digital numbers to reflectance (corrected for the sun's elevation) or brightness temperature.
#pragma once

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <map>

namespace catalogue
{

struct LandsatBandCalibration
{
    // NaN when the MTL does not state the factor.
    double reflectanceMult, reflectanceAdd, radianceMult, radianceAdd, k1, k2;
    LandsatBandCalibration();
    bool hasReflectance() const;
    bool hasTemperature() const;
};

struct LandsatCalibration
{
    double sunElevationDegrees;                  // NaN when absent
    std::map<int, LandsatBandCalibration> bands; // by band number
    LandsatCalibration();
};

// From an MTL text (keys REFLECTANCE_MULT_BAND_n, REFLECTANCE_ADD_BAND_n, RADIANCE_MULT_BAND_n,
// RADIANCE_ADD_BAND_n, K1_CONSTANT_BAND_n, K2_CONSTANT_BAND_n, SUN_ELEVATION).
LandsatCalibration readLandsatCalibration(const QByteArray& mtl);

// USGS relations: reflectance = (Mp * Q + Ap) / sin(sun elevation); for thermal bands, radiance
// L = Ml * Q + Al and brightness temperature T = K2 / ln(K1 / L + 1) in kelvin. Q = 0 (fill) and values
// that cannot be computed give noData. False when the band has neither reflectance nor thermal factors.
bool calibrateLandsatRow(const uint16_t* dn, float* out, size_t count, const LandsatBandCalibration& band,
                         double sunElevationDegrees, float noData);

} // namespace catalogue
