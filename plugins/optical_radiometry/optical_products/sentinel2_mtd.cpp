// Reader of the Sentinel-2 product and tile XML: elements are found by local name wherever they sit, so the
// L1C and L2A layouts and the namespace prefixes of the successive processing baselines read alike.
#include "sentinel2_mtd.h"

#include "product_text.h"
#include "sensor_bands.h"

#include <QXmlStreamReader>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>

namespace optical
{

namespace
{

constexpr double kPi = 3.14159265358979323846;
constexpr int kBandCount = 13;

std::string local(const QXmlStreamReader& xml) { return xml.name().toString().toStdString(); }

int bandIndexAttribute(const QXmlStreamReader& xml)
{
    for (const char* name : {"bandId", "band_id"})
    {
        const QStringRef value = xml.attributes().value(QLatin1String(name));
        if (!value.isEmpty())
        {
            bool ok = false;
            const int index = value.toInt(&ok);
            return ok && index >= 0 && index < kBandCount ? index : -1;
        }
    }
    return -1;
}

// Band name at the end of an IMAGE_FILE path: ".../T18SVG_20160112T155852_B01" or ".../T.._B05_20m".
std::string bandOfImageFile(const std::string& path, std::string* resolution)
{
    std::string stem = path.substr(path.find_last_of('/') == std::string::npos ? 0 : path.find_last_of('/') + 1);
    resolution->clear();
    if (stem.size() > 4 && stem.back() == 'm' && stem[stem.size() - 4] == '_')
    {
        *resolution = stem.substr(stem.size() - 3, 2);
        stem.resize(stem.size() - 4);
    }
    const size_t underscore = stem.find_last_of('_');
    return underscore == std::string::npos ? std::string() : stem.substr(underscore + 1);
}

std::string granuleOf(const std::string& path)
{
    const std::string key = "GRANULE/";
    const size_t at = path.find(key);
    if (at == std::string::npos)
        return std::string();
    const size_t end = path.find('/', at + key.size());
    return end == std::string::npos ? std::string() : path.substr(at + key.size(), end - at - key.size());
}

struct Walk
{
    std::map<std::string, std::string> values; // first text of each element local name
    std::map<int, double> offsets, irradiances, centralNm, resolutions;
    std::vector<std::string> imageFiles;
    double sunZenith = kUnknown, sunAzimuth = kUnknown;
    std::string root;
};

Walk walk(const std::string& text)
{
    QXmlStreamReader xml(QByteArray::fromRawData(text.data(), int(std::min<size_t>(text.size(), 1u << 30))));
    Walk w;
    std::vector<std::string> path;
    std::vector<int> bandOfPath;
    while (!xml.atEnd())
    {
        const QXmlStreamReader::TokenType token = xml.readNext();
        if (token == QXmlStreamReader::StartElement)
        {
            const std::string name = local(xml);
            if (path.empty())
                w.root = name;
            const int parentBand = bandOfPath.empty() ? -1 : bandOfPath.back();
            const int ownBand = bandIndexAttribute(xml);
            path.push_back(name);
            bandOfPath.push_back(ownBand >= 0 ? ownBand : parentBand);
            if (path.size() > 64)
                throw ProductError("the XML nests too deeply");
        }
        else if (token == QXmlStreamReader::EndElement)
        {
            if (!path.empty())
            {
                path.pop_back();
                bandOfPath.pop_back();
            }
        }
        else if (token == QXmlStreamReader::Characters && !xml.isWhitespace() && !path.empty())
        {
            const std::string& name = path.back();
            const std::string value = trimmed(xml.text().toString().toStdString());
            const int band = bandOfPath.back();
            const bool inSun = path.size() >= 2 && path[path.size() - 2] == "Mean_Sun_Angle";
            if (name == "IMAGE_FILE" || name == "IMAGE_FILE_2A")
                w.imageFiles.push_back(value);
            else if (inSun && name == "ZENITH_ANGLE")
                w.sunZenith = parseNumber(value);
            else if (inSun && name == "AZIMUTH_ANGLE")
                w.sunAzimuth = parseNumber(value);
            else if (band >= 0 && (name == "RADIO_ADD_OFFSET" || name == "BOA_ADD_OFFSET"))
                w.offsets[band] = parseNumber(value);
            else if (band >= 0 && name == "SOLAR_IRRADIANCE")
                w.irradiances[band] = parseNumber(value);
            else if (band >= 0 && name == "CENTRAL")
                w.centralNm[band] = parseNumber(value);
            else if (band >= 0 && name == "RESOLUTION")
                w.resolutions[band] = parseNumber(value);
            else
                w.values.emplace(name, value);
        }
    }
    if (xml.hasError())
        throw ProductError("the XML is not well formed (" + xml.errorString().toStdString() + ")");
    return w;
}

std::string value(const Walk& w, const std::string& name)
{
    const auto it = w.values.find(name);
    return it == w.values.end() ? std::string() : it->second;
}

void readDate(const Walk& w, AcquisitionDate* date)
{
    for (const char* name : {"PRODUCT_START_TIME", "SENSING_TIME", "DATATAKE_SENSING_START"})
        if (parseIsoDate(value(w, name), &date->year, &date->month, &date->day))
            return;
    *date = AcquisitionDate();
}

} // namespace

const Sentinel2Band* Sentinel2Metadata::band(const std::string& id) const
{
    for (const Sentinel2Band& b : bands)
        if (b.coefficients.id == id)
            return &b;
    return nullptr;
}

std::string normalSentinel2BandId(const std::string& text)
{
    std::string t = upper(trimmed(text));
    if (!t.empty() && t[0] == 'B')
        t = t.substr(1);
    if (t == "8A")
        return "B8A";
    if (t.empty() || t.size() > 2 || !std::isdigit(static_cast<unsigned char>(t[0])) ||
        (t.size() == 2 && !std::isdigit(static_cast<unsigned char>(t[1]))))
        return std::string();
    const int number = std::stoi(t);
    if (number < 1 || number > 12)
        return std::string();
    return number < 10 ? "B0" + std::to_string(number) : "B" + std::to_string(number);
}

bool looksLikeSentinel2Xml(const std::string& text)
{
    const std::string head = text.substr(0, 2000);
    return head.find("User_Product") != std::string::npos || head.find("_Tile_ID") != std::string::npos;
}

Sentinel2Metadata parseSentinel2ProductXml(const std::string& xml)
{
    const Walk w = walk(xml);
    if (w.root.find("User_Product") == std::string::npos)
        throw ProductError("the XML is not a Sentinel-2 product description (its root is " +
                           (w.root.empty() ? std::string("missing") : w.root) + ")");
    Sentinel2Metadata meta;
    const std::string level = value(w, "PROCESSING_LEVEL") + value(w, "PRODUCT_TYPE");
    meta.level = level.find("2A") != std::string::npos || w.root.find("2A") != std::string::npos ? "L2A" : "L1C";
    meta.spacecraft = value(w, "SPACECRAFT_NAME");
    meta.baseline = parseNumber(value(w, "PROCESSING_BASELINE"));
    readDate(w, &meta.date);
    meta.quantification = parseNumber(value(w, meta.level == "L2A" ? "BOA_QUANTIFICATION_VALUE" : "QUANTIFICATION_VALUE"));
    if (!known(meta.quantification))
        meta.quantification = parseNumber(value(w, "QUANTIFICATION_VALUE"));
    if (!known(meta.quantification) || meta.quantification <= 0)
        throw ProductError("the product XML has no positive quantification value");
    meta.reflectanceU = parseNumber(value(w, "U"));

    const bool newBaseline = known(meta.baseline) && meta.baseline >= 4.0;
    const std::vector<KnownBand>& table = sentinel2Bands();
    for (int i = 0; i < kBandCount; ++i)
    {
        Sentinel2Band band;
        BandCoefficients& c = band.coefficients;
        c.id = table[size_t(i)].id;
        c.name = table[size_t(i)].name;
        c.wavelengthUm = w.centralNm.count(i) && known(w.centralNm.at(i)) ? w.centralNm.at(i) / 1000.0
                                                                           : table[size_t(i)].wavelengthUm;
        c.resolution = w.resolutions.count(i) && known(w.resolutions.at(i)) ? w.resolutions.at(i)
                                                                             : table[size_t(i)].resolution;
        if (w.irradiances.count(i))
            c.esun = w.irradiances.at(i);
        if (w.offsets.count(i) && known(w.offsets.at(i)))
            band.offset = w.offsets.at(i);
        else
            band.offset = newBaseline ? -1000.0 : 0.0;
        c.reflectanceMult = 1.0 / meta.quantification;
        c.reflectanceAdd = band.offset / meta.quantification;
        c.reflectanceSunCorrected = true;
        meta.bands.push_back(band);
    }
    for (const std::string& file : w.imageFiles)
    {
        std::string resolution;
        const std::string name = bandOfImageFile(file, &resolution);
        const std::string granule = granuleOf(file);
        if (!granule.empty() && std::find(meta.granules.begin(), meta.granules.end(), granule) == meta.granules.end())
            meta.granules.push_back(granule);
        if (name == "SCL")
        {
            if (meta.classificationFile.empty() || resolution == "20")
                meta.classificationFile = file;
            continue;
        }
        const std::string id = normalSentinel2BandId(name);
        if (id.empty())
            continue;
        // L2A lists a band at several resolutions: the file at the band's own pixel size wins.
        for (Sentinel2Band& band : meta.bands)
            if (band.coefficients.id == id &&
                (band.imageFile.empty() ||
                 (!resolution.empty() && parseNumber(resolution) == band.coefficients.resolution)))
                band.imageFile = file;
    }
    return meta;
}

void addSentinel2TileXml(const std::string& xml, Sentinel2Metadata* meta)
{
    const Walk w = walk(xml);
    if (!known(w.sunZenith) || w.sunZenith < 0 || w.sunZenith > 90)
        throw ProductError("the tile XML has no valid mean sun zenith angle");
    meta->sun.elevation = 90.0 - w.sunZenith;
    meta->sun.azimuth = w.sunAzimuth;
    if (!meta->date.valid())
        readDate(w, &meta->date);
    if (known(meta->reflectanceU) && meta->reflectanceU > 0.8 && meta->reflectanceU < 1.2)
        meta->sun.earthSunDistance = 1.0 / std::sqrt(meta->reflectanceU);
    else if (meta->date.valid())
        meta->sun.earthSunDistance = earthSunDistance(meta->date.dayOfYear());
    const double cosZenith = std::cos(w.sunZenith * kPi / 180.0);
    const double d = meta->sun.earthSunDistance;
    for (Sentinel2Band& band : meta->bands)
    {
        BandCoefficients& c = band.coefficients;
        if (!known(c.esun) || !known(d))
            continue;
        const double factor = c.esun * cosZenith / (kPi * d * d);
        c.radianceMult = c.reflectanceMult * factor;
        c.radianceAdd = c.reflectanceAdd * factor;
    }
}

} // namespace optical
