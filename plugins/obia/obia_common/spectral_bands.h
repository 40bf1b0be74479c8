// Which band of an optical image is green, red, near infrared or short-wave infrared: from the bands'
// wavelengths, else their descriptions or colour interpretation, else the usual band order of the sensor that
// delivers that many bands.
#pragma once

#include <QString>
#include <vector>

class GDALDataset;

namespace obia
{

struct BandLabel
{
    double wavelengthNm = -1.0; // below 0: unknown
    QString description;
    QString colour; // GDAL colour interpretation name ("Red", "Green", ...)
};

struct OpticalBands
{
    int green = -1; // 0-based; -1 when not found
    int red = -1;
    int nir = -1;
    int swir = -1; // first short-wave infrared band (about 1.6 um)
    QString source; // "wavelength", "description" or the band order used
};

OpticalBands findOpticalBands(const std::vector<BandLabel>& bands);

// The labels of every band of a dataset: metadata item "wavelength" (with "wavelength_units", else micrometres
// below 100 and nanometres above), description, colour interpretation.
std::vector<BandLabel> bandLabels(GDALDataset* dataset);

} // namespace obia
