// Band tables of the Landsat and Sentinel-2 sensors. Centre wavelengths from the mission handbooks; TM and
// ETM+ solar irradiances from Chander, Markham and Helder (2009), Remote Sensing of Environment 113.
#include "sensor_bands.h"

namespace optical
{

namespace
{

const std::vector<KnownBand> kOli = {
    {"1", "Coastal aerosol", 0.443, 30, 0, false, true}, {"2", "Blue", 0.482, 30, 0, false, true},
    {"3", "Green", 0.561, 30, 0, false, true},           {"4", "Red", 0.655, 30, 0, false, true},
    {"5", "NIR", 0.865, 30, 0, false, true},             {"6", "SWIR 1", 1.609, 30, 0, false, true},
    {"7", "SWIR 2", 2.201, 30, 0, false, true},          {"8", "Panchromatic", 0.590, 15, 0, false, false},
    {"9", "Cirrus", 1.373, 30, 0, false, true},          {"10", "TIRS 1", 10.895, 30, 0, true, false},
    {"11", "TIRS 2", 12.005, 30, 0, true, false},
};

const std::vector<KnownBand> kEtm = {
    {"1", "Blue", 0.483, 30, 1997, false, true},         {"2", "Green", 0.560, 30, 1812, false, true},
    {"3", "Red", 0.662, 30, 1533, false, true},          {"4", "NIR", 0.835, 30, 1039, false, true},
    {"5", "SWIR 1", 1.648, 30, 230.8, false, true},      {"6", "Thermal", 11.335, 60, 0, true, false},
    {"6_VCID_1", "Thermal low gain", 11.335, 60, 0, true, false},
    {"6_VCID_2", "Thermal high gain", 11.335, 60, 0, true, false},
    {"7", "SWIR 2", 2.206, 30, 84.90, false, true},      {"8", "Panchromatic", 0.706, 15, 1362, false, false},
};

const std::vector<KnownBand> kTm5 = {
    {"1", "Blue", 0.485, 30, 1983, false, true},   {"2", "Green", 0.560, 30, 1796, false, true},
    {"3", "Red", 0.660, 30, 1536, false, true},    {"4", "NIR", 0.830, 30, 1031, false, true},
    {"5", "SWIR 1", 1.650, 30, 220.0, false, true}, {"6", "Thermal", 11.450, 120, 0, true, false},
    {"7", "SWIR 2", 2.215, 30, 83.44, false, true},
};

const std::vector<KnownBand> kTm4 = {
    {"1", "Blue", 0.485, 30, 1983, false, true},   {"2", "Green", 0.560, 30, 1795, false, true},
    {"3", "Red", 0.660, 30, 1539, false, true},    {"4", "NIR", 0.830, 30, 1028, false, true},
    {"5", "SWIR 1", 1.650, 30, 219.8, false, true}, {"6", "Thermal", 11.450, 120, 0, true, false},
    {"7", "SWIR 2", 2.215, 30, 83.49, false, true},
};

const std::vector<KnownBand> kMsi = {
    {"B01", "Coastal aerosol", 0.4427, 60, 0, false, false}, {"B02", "Blue", 0.4924, 10, 0, false, false},
    {"B03", "Green", 0.5598, 10, 0, false, false},           {"B04", "Red", 0.6646, 10, 0, false, false},
    {"B05", "Red edge 1", 0.7041, 20, 0, false, false},      {"B06", "Red edge 2", 0.7405, 20, 0, false, false},
    {"B07", "Red edge 3", 0.7828, 20, 0, false, false},      {"B08", "NIR", 0.8328, 10, 0, false, false},
    {"B8A", "Narrow NIR", 0.8647, 20, 0, false, false},      {"B09", "Water vapour", 0.9451, 60, 0, false, false},
    {"B10", "SWIR cirrus", 1.3735, 60, 0, false, false},     {"B11", "SWIR 1", 1.6137, 20, 0, false, false},
    {"B12", "SWIR 2", 2.2024, 20, 0, false, false},
};

const std::vector<KnownBand> kNone;

} // namespace

const std::vector<KnownBand>& landsatBands(const std::string& sensor, int spacecraft)
{
    if (sensor == "OLI_TIRS" || sensor == "OLI" || sensor == "TIRS")
        return kOli;
    if (sensor == "ETM" || sensor == "ETM+")
        return kEtm;
    if (sensor == "TM")
        return spacecraft == 4 ? kTm4 : kTm5;
    return kNone;
}

const std::vector<KnownBand>& sentinel2Bands() { return kMsi; }

const KnownBand* findBand(const std::vector<KnownBand>& bands, const std::string& id)
{
    for (const KnownBand& band : bands)
        if (id == band.id)
            return &band;
    return nullptr;
}

} // namespace optical
