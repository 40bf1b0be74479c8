// Reader of the Landsat MTL text (ODL "GROUP = ... END_GROUP" blocks of KEY = VALUE lines).
#include "landsat_mtl.h"

#include "product_text.h"
#include "sensor_bands.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>
#include <sstream>

namespace optical
{

namespace
{

constexpr size_t kMaxBands = 32;

// Keys of every group except the Level-2 ones (which reuse the Level-1 names for surface reflectance and
// temperature); the first occurrence of a key wins.
std::map<std::string, std::string> readKeys(const std::string& text)
{
    std::map<std::string, std::string> keys;
    std::istringstream lines(text);
    std::string line;
    std::vector<std::string> groups;
    while (std::getline(lines, line))
    {
        const size_t eq = line.find('=');
        if (eq == std::string::npos)
            continue;
        const std::string key = upper(trimmed(line.substr(0, eq)));
        std::string value = trimmed(line.substr(eq + 1));
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
            value = value.substr(1, value.size() - 2);
        if (key == "GROUP")
        {
            groups.push_back(upper(value));
            continue;
        }
        if (key == "END_GROUP")
        {
            if (!groups.empty())
                groups.pop_back();
            continue;
        }
        const bool level2 = std::any_of(groups.begin(), groups.end(),
                                        [](const std::string& g) { return g.rfind("LEVEL2", 0) == 0; });
        if (!level2 && !key.empty())
            keys.emplace(key, value);
    }
    return keys;
}

double number(const std::map<std::string, std::string>& keys, const std::string& key)
{
    const auto it = keys.find(key);
    return it == keys.end() ? kUnknown : parseNumber(it->second);
}

std::string text(const std::map<std::string, std::string>& keys, const std::string& key)
{
    const auto it = keys.find(key);
    return it == keys.end() ? std::string() : it->second;
}

// Band ids found after the given key prefixes ("1", "6_VCID_1", ...), in band-number order.
std::vector<std::string> bandIds(const std::map<std::string, std::string>& keys)
{
    std::set<std::string> ids;
    for (const char* prefix : {"FILE_NAME_BAND_", "RADIANCE_MULT_BAND_", "RADIANCE_MAXIMUM_BAND_"})
    {
        const std::string p(prefix);
        for (auto it = keys.lower_bound(p); it != keys.end() && it->first.compare(0, p.size(), p) == 0; ++it)
        {
            const std::string id = it->first.substr(p.size());
            if (!id.empty() && id.size() <= 16 && std::isdigit(static_cast<unsigned char>(id[0])))
                ids.insert(id);
        }
    }
    std::vector<std::string> ordered(ids.begin(), ids.end());
    std::stable_sort(ordered.begin(), ordered.end(), [](const std::string& a, const std::string& b) {
        const int na = std::atoi(a.c_str()), nb = std::atoi(b.c_str());
        return na != nb ? na < nb : a < b;
    });
    return ordered;
}

int spacecraftNumber(const std::string& spacecraft)
{
    const size_t digit = spacecraft.find_first_of("0123456789");
    return digit == std::string::npos ? 0 : std::atoi(spacecraft.c_str() + digit);
}

} // namespace

const BandCoefficients* LandsatMetadata::band(const std::string& id) const
{
    for (const BandCoefficients& b : bands)
        if (b.id == id)
            return &b;
    return nullptr;
}

bool looksLikeLandsatMtl(const std::string& text)
{
    const std::string head = upper(text.substr(0, 400));
    return head.find("L1_METADATA_FILE") != std::string::npos ||
           head.find("LANDSAT_METADATA_FILE") != std::string::npos;
}

LandsatMetadata parseLandsatMtl(const std::string& mtl)
{
    const auto keys = readKeys(mtl);
    LandsatMetadata meta;
    meta.spacecraft = text(keys, "SPACECRAFT_ID");
    if (meta.spacecraft.empty())
        throw ProductError("the MTL names no SPACECRAFT_ID");
    meta.spacecraftNumber = spacecraftNumber(meta.spacecraft);
    meta.sensor = upper(text(keys, "SENSOR_ID"));
    meta.sceneId = text(keys, "LANDSAT_SCENE_ID");
    meta.qualityFile = text(keys, "FILE_NAME_BAND_QUALITY");
    if (meta.qualityFile.empty())
        meta.qualityFile = text(keys, "FILE_NAME_QUALITY_L1_PIXEL");
    const double collection = number(keys, "COLLECTION_NUMBER");
    meta.collection = known(collection) ? int(collection) : 0;

    std::string date = text(keys, "DATE_ACQUIRED");
    if (date.empty())
        date = text(keys, "ACQUISITION_DATE");
    if (!parseIsoDate(date, &meta.date.year, &meta.date.month, &meta.date.day))
        meta.date = AcquisitionDate();

    meta.sun.elevation = number(keys, "SUN_ELEVATION");
    meta.sun.azimuth = number(keys, "SUN_AZIMUTH");
    meta.sun.earthSunDistance = number(keys, "EARTH_SUN_DISTANCE");
    if (!known(meta.sun.elevation) || meta.sun.elevation < -90 || meta.sun.elevation > 90)
        throw ProductError("the MTL has no valid SUN_ELEVATION");
    if (!known(meta.sun.earthSunDistance) || meta.sun.earthSunDistance < 0.9 || meta.sun.earthSunDistance > 1.1)
        meta.sun.earthSunDistance = meta.date.valid() ? earthSunDistance(meta.date.dayOfYear()) : kUnknown;

    const std::vector<KnownBand>& table = landsatBands(meta.sensor, meta.spacecraftNumber);
    const std::vector<std::string> ids = bandIds(keys);
    if (ids.size() > kMaxBands)
        throw ProductError("the MTL lists more bands than a Landsat sensor has");
    for (const std::string& id : ids)
    {
        BandCoefficients band;
        band.id = id;
        band.fileName = text(keys, "FILE_NAME_BAND_" + id);
        band.radianceMult = number(keys, "RADIANCE_MULT_BAND_" + id);
        band.radianceAdd = number(keys, "RADIANCE_ADD_BAND_" + id);
        if (!band.hasRadiance())
        {
            const double lmax = number(keys, "RADIANCE_MAXIMUM_BAND_" + id);
            const double lmin = number(keys, "RADIANCE_MINIMUM_BAND_" + id);
            const double qmax = number(keys, "QUANTIZE_CAL_MAX_BAND_" + id);
            const double qmin = number(keys, "QUANTIZE_CAL_MIN_BAND_" + id);
            if (known(lmax) && known(lmin) && known(qmax) && known(qmin) && qmax > qmin)
            {
                band.radianceMult = (lmax - lmin) / (qmax - qmin);
                band.radianceAdd = lmin - band.radianceMult * qmin;
            }
        }
        band.reflectanceMult = number(keys, "REFLECTANCE_MULT_BAND_" + id);
        band.reflectanceAdd = number(keys, "REFLECTANCE_ADD_BAND_" + id);
        band.k1 = number(keys, "K1_CONSTANT_BAND_" + id);
        band.k2 = number(keys, "K2_CONSTANT_BAND_" + id);
        if (const KnownBand* known = findBand(table, id))
        {
            band.name = known->name;
            band.wavelengthUm = known->wavelengthUm;
            band.resolution = known->resolution;
            band.thermal = known->thermal;
            if (known->esun > 0)
                band.esun = known->esun;
            if (known->thermal && !band.hasThermal())
            {
                // Chander et al. (2009) constants of the TM and ETM+ thermal bands.
                band.k1 = meta.sensor == "TM" ? 607.76 : 666.09;
                band.k2 = meta.sensor == "TM" ? 1260.56 : 1282.71;
            }
        }
        else if (id.rfind("10", 0) == 0 || id.rfind("11", 0) == 0 || id.rfind("6", 0) == 0)
        {
            band.thermal = band.hasThermal();
        }
        if (band.hasRadiance() || band.hasReflectance())
            meta.bands.push_back(band);
    }
    if (meta.bands.empty())
        throw ProductError("the MTL has no band with radiance rescaling");
    return meta;
}

} // namespace optical
