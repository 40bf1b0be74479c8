// TerraSAR-X XML and COSAR header parsing.
#include "tsx_product.h"

#include "utc_time.h"

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>

#include <cmath>
#include <cstring>
#include <sstream>
#include <stdexcept>

namespace sargeo
{

namespace
{

using boost::property_tree::ptree;

const ptree& child(const ptree& tree, const std::string& path)
{
    const auto found = tree.get_child_optional(path);
    if (!found)
        throw std::runtime_error("the element " + path + " is missing");
    return *found;
}

std::string text(const ptree& tree, const std::string& path)
{
    std::string s = child(tree, path).get_value<std::string>();
    const size_t a = s.find_first_not_of(" \t\r\n"), b = s.find_last_not_of(" \t\r\n");
    return a == std::string::npos ? std::string() : s.substr(a, b - a + 1);
}

double number(const ptree& tree, const std::string& path)
{
    const std::string s = text(tree, path);
    char* end = nullptr;
    const double v = std::strtod(s.c_str(), &end);
    if (s.empty() || *end != '\0' || !std::isfinite(v))
        throw std::runtime_error("the element " + path + " is not a number: \"" + s + "\"");
    return v;
}

double timeOf(const ptree& tree, const std::string& path, long day)
{
    UtcTime t;
    if (!parseUtc(text(tree, path), &t))
        throw std::runtime_error("the element " + path + " is not a UTC time");
    return t.secondsAfter(day);
}

uint32_t bigEndian(const unsigned char* p)
{
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | uint32_t(p[3]);
}

} // namespace

TsxProduct readTsxProduct(const std::string& xmlText)
{
    std::istringstream stream(xmlText);
    ptree tree;
    try
    {
        boost::property_tree::read_xml(stream, tree);
    }
    catch (const boost::property_tree::xml_parser_error& e)
    {
        throw std::runtime_error("the XML does not parse: " + e.message());
    }
    const ptree& root = child(tree, "level1Product");
    TsxProduct p;
    p.mission = text(root, "productInfo.missionInfo.mission");
    p.orbitDirection = text(root, "productInfo.missionInfo.orbitDirection");
    p.lookDirection = text(root, "productInfo.acquisitionInfo.lookDirection");
    p.polarisationMode = text(root, "productInfo.acquisitionInfo.polarisationMode");
    p.startText = text(root, "productInfo.sceneInfo.start.timeUTC");
    UtcTime start;
    if (!parseUtc(p.startText, &start))
        throw std::runtime_error("the element productInfo.sceneInfo.start.timeUTC is not a UTC time");
    p.referenceDay = start.day;
    p.start = start.seconds;
    p.stop = timeOf(root, "productInfo.sceneInfo.stop.timeUTC", p.referenceDay);
    p.rows = int(number(root, "productInfo.imageDataInfo.imageRaster.numberOfRows"));
    p.columns = int(number(root, "productInfo.imageDataInfo.imageRaster.numberOfColumns"));
    p.rowSpacing = number(root, "productInfo.imageDataInfo.imageRaster.rowSpacing");
    p.columnSpacing = number(root, "productInfo.imageDataInfo.imageRaster.columnSpacing");
    p.firstPixelTime = number(root, "productInfo.sceneInfo.rangeTime.firstPixel");
    p.lastPixelTime = number(root, "productInfo.sceneInfo.rangeTime.lastPixel");
    p.centreLatitude = number(root, "productInfo.sceneInfo.sceneCenterCoord.lat");
    p.centreLongitude = number(root, "productInfo.sceneInfo.sceneCenterCoord.lon");
    p.centreIncidence = number(root, "productInfo.sceneInfo.sceneCenterCoord.incidenceAngle");
    p.centerFrequency = number(root, "instrument.radarParameters.centerFrequency");
    p.prf = number(root, "productSpecific.complexImageInfo.commonPRF");
    p.rangeSamplingRate = number(root, "productSpecific.complexImageInfo.commonRSF");
    if (p.rows < 2 || p.columns < 2 || p.rows > 1000000 || p.columns > 1000000 || !(p.stop > p.start) ||
        !(p.firstPixelTime > 0) || !(p.rangeSamplingRate > 0) || !(p.centerFrequency > 0))
        throw std::runtime_error("the image raster, scene times or radar parameters are not usable");
    int corner = 0;
    for (const auto& item : child(root, "productInfo.sceneInfo"))
        if (item.first == "sceneCornerCoord" && corner < 4)
        {
            p.corners[size_t(2 * corner)] = number(item.second, "lat");
            p.corners[size_t(2 * corner + 1)] = number(item.second, "lon");
            ++corner;
        }
    for (const auto& item : child(root, "productComponents"))
        if (item.first == "imageData")
        {
            TsxLayer layer;
            layer.polarisation = text(item.second, "polLayer");
            const std::string folder = text(item.second, "file.location.path");
            layer.file = (folder.empty() ? std::string() : folder + "/") + text(item.second, "file.location.filename");
            if (layer.file.find("..") != std::string::npos || (!layer.file.empty() && layer.file[0] == '/'))
                throw std::runtime_error("an image file path leaves the product folder: " + layer.file);
            p.layers.push_back(layer);
        }
    if (p.layers.empty())
        throw std::runtime_error("the product lists no imageData");
    if (const auto calibration = root.get_child_optional("calibration"))
        for (const auto& item : *calibration)
            if (item.first == "calibrationConstant")
                for (TsxLayer& layer : p.layers)
                    if (layer.polarisation == text(item.second, "polLayer"))
                        layer.calibrationFactor = number(item.second, "calFactor");
    for (const auto& item : child(root, "platform.orbit"))
        if (item.first == "stateVec")
        {
            OrbitState s;
            s.time = timeOf(item.second, "timeUTC", p.referenceDay);
            s.position = Vec3(number(item.second, "posX"), number(item.second, "posY"), number(item.second, "posZ"));
            s.velocity = Vec3(number(item.second, "velX"), number(item.second, "velY"), number(item.second, "velZ"));
            p.orbit.push_back(s);
        }
    return p;
}

CosarBurst parseCosarBurstHeader(const unsigned char* h, long long offset, long long fileSize)
{
    if (std::memcmp(h + 28, "CSAR", 4) != 0)
        throw std::runtime_error("no CSAR mark in the burst header at byte " + std::to_string(offset));
    CosarBurst b;
    b.offset = offset;
    b.burstBytes = bigEndian(h);
    b.rangeSamples = int(bigEndian(h + 8));
    b.azimuthSamples = int(bigEndian(h + 12));
    b.lineBytes = int(bigEndian(h + 20));
    if (b.rangeSamples <= 0 || b.azimuthSamples <= 0 || b.rangeSamples > 1000000 || b.azimuthSamples > 1000000 ||
        b.lineBytes != 8 + 4 * b.rangeSamples || b.burstBytes != (long long)(b.azimuthSamples + 4) * b.lineBytes ||
        offset + b.burstBytes > fileSize)
        throw std::runtime_error("the burst header at byte " + std::to_string(offset) +
                                 " gives sizes that disagree with each other or with the file");
    return b;
}

} // namespace sargeo
