// Sentinel-2 product metadata (the MTD_MSIL1C / MTD_MSIL2A product XML and the MTD_TL tile XML) as a plain struct.
#pragma once

#include "optical_products.h"

#include <string>
#include <vector>

namespace optical
{

struct Sentinel2Band
{
    BandCoefficients coefficients; // id "B01" ... "B12", "B8A"; reflectance = (DN + offset) / quantification
    double offset = 0.0;           // radiometric offset added to DN (-1000 from processing baseline 04.00)
    std::string imageFile;         // IMAGE_FILE of the product XML: path below the product folder, no extension
};

struct Sentinel2Metadata
{
    std::string level;      // "L1C" or "L2A"
    std::string spacecraft; // "Sentinel-2A"
    double baseline = kUnknown; // processing baseline, 4.0 for "04.00"
    AcquisitionDate date;
    double quantification = kUnknown;
    double reflectanceU = kUnknown; // U of the reflectance conversion: 1 / d^2
    SunGeometry sun;                // from the tile XML (mean sun angles)
    std::vector<Sentinel2Band> bands; // the thirteen bands in product order
    std::string classificationFile;   // L2A scene classification (SCL) at 20 m, when the product lists one
    std::vector<std::string> granules; // granule folder names (below GRANULE/) met in the image paths

    const Sentinel2Band* band(const std::string& id) const;
};

// "B1", "b01", "B8A", "8a" -> "B01", "B01", "B8A", "B8A"; empty when it names no Sentinel-2 band.
std::string normalSentinel2BandId(const std::string& text);

bool looksLikeSentinel2Xml(const std::string& text);

// Parses a product XML (or a tile XML, which gives only the sun angles and the date). Bands the XML does not
// describe take the mission's wavelengths and pixel sizes. The offset is the product's RADIO_ADD_OFFSET
// (L1C) or BOA_ADD_OFFSET (L2A) of each band; a product of baseline 04.00 or later that lists none gets -1000,
// earlier baselines 0. Throws ProductError when the text is not a Sentinel-2 product XML or its
// quantification value is missing or not positive.
Sentinel2Metadata parseSentinel2ProductXml(const std::string& xml);

// Adds the mean sun angles, the date and the Earth-Sun distance of a tile XML; throws ProductError when it has no
// mean sun angle. Then fills each band's radiance factors (radiance = reflectance * E * cos(sun zenith) * U / pi).
void addSentinel2TileXml(const std::string& xml, Sentinel2Metadata* meta);

} // namespace optical
