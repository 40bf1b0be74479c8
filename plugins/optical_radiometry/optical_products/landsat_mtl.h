// Landsat Level-1 metadata (the MTL text of pre-collection, Collection 1 and Collection 2 deliveries of TM,
// ETM+ and OLI/TIRS) as a plain struct.
#pragma once

#include "optical_products.h"

#include <string>
#include <vector>

namespace optical
{

struct LandsatMetadata
{
    std::string spacecraft; // "LANDSAT_8"
    int spacecraftNumber = 0;
    std::string sensor;     // "OLI_TIRS", "ETM", "TM"
    int collection = 0;     // 0 pre-collection, 1, 2
    std::string sceneId;
    AcquisitionDate date;
    SunGeometry sun;
    std::string qualityFile;
    std::vector<BandCoefficients> bands; // in band number order

    const BandCoefficients* band(const std::string& id) const;
};

// True when the text looks like an MTL (its first non-blank line opens the metadata group).
bool looksLikeLandsatMtl(const std::string& text);

// Parses an MTL text. Throws ProductError naming what is missing: the spacecraft, the sun elevation, or any
// band with radiance rescaling. Radiance comes from RADIANCE_MULT/ADD, else from the radiance and quantised
// ranges; the Earth-Sun distance from the file, else from the acquisition date; TM and ETM+ bands without
// reflectance factors get the sensor's solar irradiance, thermal bands without K1/K2 the sensor's constants.
LandsatMetadata parseLandsatMtl(const std::string& text);

} // namespace optical
