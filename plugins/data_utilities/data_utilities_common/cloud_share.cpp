// Cloud share of an optical image (see cloud_share.h).
#include "cloud_share.h"

#include "cloud_tests.h"
#include "raster_io.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace datautil
{
namespace
{

const double kCentres[kSpectralRoles] = {0.48, 0.56, 0.66, 0.86, 1.61, 2.20, 1.37};
const char* const kOli[kSpectralRoles] = {"2", "3", "4", "5", "6", "7", "9"};
const char* const kTm[kSpectralRoles] = {"1", "2", "3", "4", "5", "7", ""};
const char* const kSentinel2[kSpectralRoles] = {"2", "3", "4", "8A", "11", "12", "10"};

std::string upper(std::string text)
{
    for (char& c : text)
        c = char(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

// "B04" -> "4", "band 8a" -> "8A", "B4 (Red)" -> "4"; other names stay as they are (upper case).
std::string bandNumber(const std::string& name)
{
    std::string text = upper(name);
    const size_t space = text.find_first_of(" (_");
    size_t begin = 0;
    if (text.rfind("BAND", 0) == 0)
        begin = 4;
    else if (text.rfind("B", 0) == 0)
        begin = 1;
    while (begin < text.size() && text[begin] == ' ')
        ++begin;
    std::string number = text.substr(begin, space == std::string::npos || space < begin ? std::string::npos
                                                                                          : space - begin);
    if (begin > 0 && number.empty())
        return text;
    while (number.size() > 1 && number[0] == '0')
        number.erase(0, 1);
    return number;
}

double parse(const char* text)
{
    if (!text)
        return std::nan("");
    char* end = nullptr;
    const double value = std::strtod(text, &end);
    return end != text ? value : std::nan("");
}

// The centre wavelength of a band in micrometres, from its "wavelength" item (nanometres when above 100 or so
// labelled).
double wavelengthOf(GDALRasterBand* band)
{
    double value = parse(band->GetMetadataItem("wavelength"));
    if (std::isnan(value))
        value = parse(band->GetMetadataItem("CENTRAL_WAVELENGTH_UM", "IMAGERY"));
    const char* unit = band->GetMetadataItem("wavelength_units");
    const std::string units = unit ? upper(unit) : std::string();
    if (value > 100 || units.find("NANO") != std::string::npos || units == "NM")
        value /= 1000.0;
    return value > 0 ? value : std::nan("");
}

Sensor sensorOf(GDALDataset* dataset)
{
    std::string text;
    for (const char* domain : {"", "IMAGERY", "IMD"})
        if (char** items = dataset->GetMetadata(domain))
            for (int i = 0; items[i]; ++i)
            {
                const std::string item = upper(items[i]);
                const size_t equals = item.find('=');
                const std::string key = item.substr(0, equals);
                if (key.find("SPACECRAFT") != std::string::npos || key.find("SATELLITE") != std::string::npos ||
                    key.find("SENSOR") != std::string::npos || key.find("PLATFORM") != std::string::npos ||
                    key.find("MISSION") != std::string::npos)
                    text += item.substr(equals == std::string::npos ? 0 : equals + 1) + " ";
            }
    return sensorNamed(text);
}

// How one band's values become reflectance: v * gain + bias, NaN at its nodata value.
struct Reflectance
{
    GDALRasterBand* band = nullptr;
    double gain = 1, bias = 0;
    bool hasNoData = false;
    double noData = 0;
};

} // namespace

Sensor sensorNamed(const std::string& text)
{
    const std::string t = upper(text);
    if (t.find("SENTINEL-2") != std::string::npos || t.find("SENTINEL2") != std::string::npos ||
        t.find("S2A") != std::string::npos || t.find("S2B") != std::string::npos || t.find("MSI") != std::string::npos)
        return Sensor::Sentinel2;
    if (t.find("LANDSAT_8") != std::string::npos || t.find("LANDSAT_9") != std::string::npos ||
        t.find("LANDSAT-8") != std::string::npos || t.find("LANDSAT-9") != std::string::npos ||
        t.find("OLI") != std::string::npos)
        return Sensor::LandsatOli;
    if (t.find("LANDSAT_4") != std::string::npos || t.find("LANDSAT_5") != std::string::npos ||
        t.find("LANDSAT_7") != std::string::npos || t.find("ETM") != std::string::npos ||
        t.find("TM") != std::string::npos)
        return Sensor::LandsatTm;
    return Sensor::Unknown;
}

std::array<int, kSpectralRoles> spectralRoles(const std::vector<BandLabel>& bands, Sensor sensor)
{
    std::array<int, kSpectralRoles> roles;
    roles.fill(-1);
    const char* const* numbering = sensor == Sensor::LandsatOli  ? kOli
                                   : sensor == Sensor::LandsatTm ? kTm
                                   : sensor == Sensor::Sentinel2 ? kSentinel2
                                                                 : nullptr;
    for (int role = 0; role < kSpectralRoles; ++role)
    {
        double best = 0.06;
        for (size_t b = 0; b < bands.size(); ++b)
            if (std::fabs(bands[b].wavelength - kCentres[role]) < best) // false for NaN
            {
                best = std::fabs(bands[b].wavelength - kCentres[role]);
                roles[size_t(role)] = int(b);
            }
        if (roles[size_t(role)] >= 0 || !numbering)
            continue;
        for (size_t b = 0; b < bands.size() && roles[size_t(role)] < 0; ++b)
            if (!bands[b].name.empty() && bandNumber(bands[b].name) == numbering[role])
                roles[size_t(role)] = int(b);
        if (roles[size_t(role)] < 0 && sensor == Sensor::Sentinel2 && role == kRoleNir)
            for (size_t b = 0; b < bands.size() && roles[size_t(role)] < 0; ++b)
                if (bandNumber(bands[b].name) == "8") // the 10 m NIR band when B8A is absent
                    roles[size_t(role)] = int(b);
    }
    return roles;
}

CloudShare estimateCloudShare(GDALDataset* dataset, const std::function<void(double)>& progress)
{
    CloudShare share;
    const int count = dataset->GetRasterCount();
    const Sensor sensor = sensorOf(dataset);
    std::vector<BandLabel> labels;
    for (int b = 1; b <= count; ++b)
    {
        GDALRasterBand* band = dataset->GetRasterBand(b);
        const char* id = band->GetMetadataItem("BAND_ID");
        labels.push_back({wavelengthOf(band), id ? id : band->GetDescription()});
    }
    const std::array<int, kSpectralRoles> roles = spectralRoles(labels, sensor);
    if (roles[kRoleBlue] < 0 || roles[kRoleGreen] < 0 || roles[kRoleRed] < 0 || roles[kRoleNir] < 0)
    {
        share.notEstimated = QStringLiteral("the bands cannot be told to be blue, green, red and NIR (no "
                                            "wavelengths, no Landsat or Sentinel-2 band names)");
        return share;
    }
    const bool full = roles[kRoleSwir1] >= 0 && roles[kRoleSwir2] >= 0;
    const bool cirrus = full && roles[kRoleCirrus] >= 0; // the four-band rules have no cirrus term
    std::vector<int> used = {kRoleBlue, kRoleGreen, kRoleRed, kRoleNir};
    if (full)
        used.insert(used.end(), {kRoleSwir1, kRoleSwir2});
    if (cirrus)
        used.push_back(kRoleCirrus);
    Reflectance sources[kSpectralRoles];
    for (int role : used)
    {
        Reflectance& source = sources[role];
        source.band = dataset->GetRasterBand(roles[size_t(role)] + 1);
        int hasNoData = 0;
        source.noData = source.band->GetNoDataValue(&hasNoData);
        source.hasNoData = hasNoData != 0;
        int hasScale = 0, hasOffset = 0;
        const double scale = source.band->GetScale(&hasScale), offset = source.band->GetOffset(&hasOffset);
        const double scaleItem = parse(source.band->GetMetadataItem("SCALE"));
        const bool integer = !GDALDataTypeIsFloating(source.band->GetRasterDataType());
        if ((hasScale && scale != 1.0) || (hasOffset && offset != 0.0))
            source.gain = scale, source.bias = offset;
        else if (scaleItem > 0)
            source.gain = 1.0 / scaleItem;
        else if (integer && sensor == Sensor::Sentinel2)
            source.gain = 1e-4;
        else if (integer)
        {
            share.notEstimated = QStringLiteral("band %1 holds integers with no scale to reflectance")
                                     .arg(roles[size_t(role)] + 1);
            return share;
        }
    }

    const int width = dataset->GetRasterXSize(), height = dataset->GetRasterYSize();
    const int step = algokit::rowsPerBlock(dataset, 4 * used.size());
    std::vector<float> values[kSpectralRoles];
    std::vector<double> dn;
    std::vector<uint8_t> flags;
    std::vector<float> landProbability;
    auto read = [&](int row0, int rows) {
        radiometry::CloudBands bands;
        const float** pointers[kSpectralRoles] = {&bands.blue,  &bands.green, &bands.red,   &bands.nir,
                                                  &bands.swir1, &bands.swir2, &bands.cirrus};
        for (int role : used)
        {
            const Reflectance& source = sources[role];
            algokit::readRows(source.band, row0, rows, dn);
            values[role].resize(dn.size());
            for (size_t i = 0; i < dn.size(); ++i)
                values[role][i] = source.hasNoData && dn[i] == source.noData
                                      ? std::numeric_limits<float>::quiet_NaN()
                                      : float(dn[i] * source.gain + source.bias);
            *pointers[role] = values[role].data();
        }
        flags.assign(size_t(rows) * size_t(width), 0);
        return bands;
    };
    size_t valid = 0, cloudy = 0;
    auto tally = [&]() {
        for (uint8_t f : flags)
            if (!(f & radiometry::kFlagNoData))
            {
                ++valid;
                cloudy += (f & radiometry::kFlagCloud) != 0;
            }
    };
    if (!full)
        algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
            const radiometry::CloudBands bands = read(row0, rows);
            radiometry::fourBandClouds(bands, flags.size(), flags.data());
            tally();
            progress(double(row0 + rows) / height);
        });
    else
    {
        // No thermal band here: the first pass's temperature statistics stay empty, so only its flags matter,
        // and each later pass recomputes the earlier ones block by block instead of keeping them.
        radiometry::CloudTemperatures temperatures;
        radiometry::Histogram clearLand(-2, 3, 5000);
        algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
            const radiometry::CloudBands bands = read(row0, rows);
            landProbability.assign(flags.size(), 0.0f);
            radiometry::cloudFirstPass(bands, flags.size(), flags.data(), nullptr, nullptr);
            radiometry::cloudSecondPass(bands, flags.size(), temperatures, flags.data(), landProbability.data(),
                                        &clearLand);
            progress(0.5 * double(row0 + rows) / height);
        });
        // With almost no clear land every potential cloud is cloud (as the cloud detector decides).
        const double pixels = double(width) * double(height);
        const double threshold = double(clearLand.count()) > pixels / 1000 ? clearLand.percentile(82.5, 0) + 0.2
                                                                          : -std::numeric_limits<double>::max();
        algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
            const radiometry::CloudBands bands = read(row0, rows);
            landProbability.assign(flags.size(), 0.0f);
            radiometry::Histogram unused(-2, 3, 16);
            radiometry::cloudFirstPass(bands, flags.size(), flags.data(), nullptr, nullptr);
            radiometry::cloudSecondPass(bands, flags.size(), temperatures, flags.data(), landProbability.data(),
                                        &unused);
            radiometry::cloudThirdPass(flags.size(), threshold, landProbability.data(), flags.data());
            tally();
            progress(0.5 + 0.5 * double(row0 + rows) / height);
        });
    }
    share.estimated = true;
    share.percent = valid ? 100.0 * double(cloudy) / double(valid) : 0.0;
    share.method = full ? QStringLiteral("cloud tests of blue, green, red, NIR, SWIR 1 and SWIR 2%1, no thermal band")
                              .arg(cirrus ? QStringLiteral(" and cirrus") : QString())
                        : QStringLiteral("four-band cloud rules of blue, green, red and NIR");
    return share;
}

} // namespace datautil
