// Plain descriptions of optical products: per-band radiometric coefficients and the scene's sun geometry,
// as read from a Landsat MTL, a Sentinel-2 MTD XML or a coefficient table.
#pragma once

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace optical
{

constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
inline bool known(double value) { return !std::isnan(value); }

// A metadata text that cannot be used; the message names what is missing or wrong.
class ProductError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

struct AcquisitionDate
{
    int year = 0, month = 0, day = 0;
    bool valid() const { return year > 0 && month >= 1 && month <= 12 && day >= 1 && day <= 31; }
    int dayOfYear() const;
};

// Sun position and Earth-Sun distance of a scene (angles in degrees, distance in astronomical units).
struct SunGeometry
{
    double elevation = kUnknown;
    double azimuth = kUnknown;
    double earthSunDistance = kUnknown;
    double zenith() const { return known(elevation) ? 90.0 - elevation : kUnknown; }
};

// Earth-Sun distance (AU) on a day of the year (the almanac's low-precision series, within about 3e-4).
double earthSunDistance(int dayOfYear);

// One band's coefficients. Radiance L = radianceMult * DN + radianceAdd (W/(m2 sr um)); reflectance before the
// sun correction rho' = reflectanceMult * DN + reflectanceAdd; thermal T = k2 / ln(k1 / L + 1) (kelvin).
struct BandCoefficients
{
    std::string id;       // "4", "6_VCID_1", "B8A": the product's own band name
    std::string name;     // "Red", "NIR", ...
    std::string fileName; // image file of the band as the metadata names it
    double wavelengthUm = kUnknown; // centre wavelength, micrometres
    double resolution = kUnknown;   // pixel size, metres
    double radianceMult = kUnknown, radianceAdd = kUnknown;
    double reflectanceMult = kUnknown, reflectanceAdd = kUnknown;
    double esun = kUnknown; // exo-atmospheric solar irradiance, W/(m2 um)
    double k1 = kUnknown, k2 = kUnknown;
    bool thermal = false;
    // Sentinel-2 reflectance factors already hold the sun's elevation and distance; Landsat ones do not.
    bool reflectanceSunCorrected = false;

    bool hasRadiance() const { return known(radianceMult) && known(radianceAdd); }
    bool hasReflectance() const { return known(reflectanceMult) && known(reflectanceAdd); }
    bool hasThermal() const { return known(k1) && known(k2) && k1 > 0 && k2 > 0; }
};

} // namespace optical
