// The cloud share of an optical image whose bands can be told apart: blue, green, red and NIR (and SWIR 1 and 2
// for the full tests) found by wavelength or by a Landsat or Sentinel-2 band numbering, judged by the cloud tests
// of the optical radiometry plug-ins.
#pragma once

#include <gdal_priv.h>

#include <QString>

#include <array>
#include <functional>
#include <string>
#include <vector>

namespace datautil
{

enum SpectralRole
{
    kRoleBlue,
    kRoleGreen,
    kRoleRed,
    kRoleNir,
    kRoleSwir1,
    kRoleSwir2,
    kRoleCirrus, // optional, in every test set
    kSpectralRoles
};

enum class Sensor
{
    Unknown,
    LandsatOli, // Landsat 8 and 9
    LandsatTm,  // Landsat 4, 5 and 7
    Sentinel2
};

// What is known of one band: its centre wavelength in micrometres (NaN: unknown) and its name ("B4", "B8A",
// "4"; empty: none).
struct BandLabel
{
    double wavelength;
    std::string name;
};

// Which band (0-based) plays each role, -1 where none: the band whose centre wavelength lies nearest the role's
// and within 60 nm, else the band named as the sensor numbers that role.
std::array<int, kSpectralRoles> spectralRoles(const std::vector<BandLabel>& bands, Sensor sensor);

// The sensor named by a text of metadata ("LANDSAT_8", "Sentinel-2A", "OLI_TIRS", ...).
Sensor sensorNamed(const std::string& text);

struct CloudShare
{
    bool estimated = false;
    double percent = 0;  // of the valid pixels
    QString method;      // which tests judged it
    QString notEstimated; // why not, when not
};

// Reads the image (three passes for the full tests, one for the four-band rules). The bands must hold
// reflectance: floating-point values as they are, integers through the band's scale and offset (or its SCALE
// item), Sentinel-2 integers as reflectance x 10000. `progress` receives 0..1.
CloudShare estimateCloudShare(GDALDataset* dataset, const std::function<void(double)>& progress);

} // namespace datautil
