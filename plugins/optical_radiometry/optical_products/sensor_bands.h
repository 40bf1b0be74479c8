// What the metadata does not say about each sensor's bands: common names, centre wavelengths, pixel sizes and,
// for the older Landsat sensors, the solar irradiance used to turn radiance into reflectance.
#pragma once

#include <string>
#include <vector>

namespace optical
{

struct KnownBand
{
    const char* id;
    const char* name;
    double wavelengthUm;
    double resolution;
    double esun; // W/(m2 um); 0 where the product carries reflectance factors or the band is thermal
    bool thermal;
    bool reflective30m; // part of the 30 m reflective stack of a Landsat delivery
};

// Bands of a Landsat sensor ("OLI_TIRS", "OLI", "TIRS", "ETM", "TM", with the spacecraft number for TM
// irradiances); empty for an unknown sensor.
const std::vector<KnownBand>& landsatBands(const std::string& sensor, int spacecraft);

// The thirteen Sentinel-2 MSI bands in product order (B01 ... B12 with B8A after B08).
const std::vector<KnownBand>& sentinel2Bands();

// The entry of `bands` with this id, or null.
const KnownBand* findBand(const std::vector<KnownBand>& bands, const std::string& id);

} // namespace optical
