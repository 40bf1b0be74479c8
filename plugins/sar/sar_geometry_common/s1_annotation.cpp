// Sentinel-1 annotation readers over Boost's property tree.
#include "s1_annotation.h"

#include "utc_time.h"

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <type_traits>

namespace sargeo
{

namespace
{

using boost::property_tree::ptree;

ptree parse(const std::string& text)
{
    std::istringstream stream(text);
    ptree tree;
    try
    {
        boost::property_tree::read_xml(stream, tree);
    }
    catch (const boost::property_tree::xml_parser_error& e)
    {
        throw std::runtime_error(std::string("the XML does not parse: ") + e.message() + " at line " +
                                 std::to_string(e.line()));
    }
    return tree;
}

const ptree& child(const ptree& tree, const std::string& path)
{
    const auto found = tree.get_child_optional(path);
    if (!found)
        throw std::runtime_error("the element " + path + " is missing");
    return *found;
}

std::string text(const ptree& tree, const std::string& path)
{
    return child(tree, path).get_value<std::string>();
}

double number(const ptree& tree, const std::string& path)
{
    const std::string value = text(tree, path);
    char* end = nullptr;
    const double parsed = std::strtod(value.c_str(), &end);
    while (end && (*end == ' ' || *end == '\n' || *end == '\r' || *end == '\t'))
        ++end;
    if (value.empty() || !end || *end != '\0' || !std::isfinite(parsed))
        throw std::runtime_error("the element " + path + " is not a number: \"" + value + "\"");
    return parsed;
}

double numberOr(const ptree& tree, const std::string& path, double fallback)
{
    return tree.get_child_optional(path) ? number(tree, path) : fallback;
}

int integer(const ptree& tree, const std::string& path)
{
    const double value = number(tree, path);
    if (value != std::floor(value) || std::abs(value) > 2e9)
        throw std::runtime_error("the element " + path + " is not an integer");
    return int(value);
}

double timeOf(const ptree& tree, const std::string& path, long referenceDay)
{
    UtcTime t;
    if (!parseUtc(text(tree, path), &t))
        throw std::runtime_error("the element " + path + " is not a UTC time: \"" + text(tree, path) + "\"");
    return t.secondsAfter(referenceDay);
}

template <typename T> std::vector<T> list(const ptree& tree, const std::string& path)
{
    std::istringstream stream(text(tree, path));
    std::vector<T> values;
    std::string item;
    while (stream >> item)
    {
        char* end = nullptr;
        const double v = std::strtod(item.c_str(), &end);
        if (*end != '\0' || !std::isfinite(v))
            throw std::runtime_error("the element " + path + " holds a value that is not a number: \"" + item + "\"");
        if (std::is_integral<T>::value && (v != std::floor(v) || std::abs(v) > 2e9))
            throw std::runtime_error("the element " + path + " holds a value that is not an integer: \"" + item + "\"");
        values.push_back(T(v));
    }
    return values;
}

// Children named `name` of the element at path (none when the path is absent).
std::vector<const ptree*> children(const ptree& tree, const std::string& path, const std::string& name)
{
    std::vector<const ptree*> found;
    if (const auto parent = tree.get_child_optional(path))
        for (const auto& item : *parent)
            if (item.first == name)
                found.push_back(&item.second);
    return found;
}

} // namespace

S1Annotation readS1Annotation(const std::string& xmlText)
{
    const ptree tree = parse(xmlText);
    const ptree& product = child(tree, "product");
    S1Annotation a;
    a.missionId = text(product, "adsHeader.missionId");
    a.productType = text(product, "adsHeader.productType");
    a.polarisation = text(product, "adsHeader.polarisation");
    a.mode = text(product, "adsHeader.mode");
    a.swath = text(product, "adsHeader.swath");
    a.startTimeText = text(product, "adsHeader.startTime");
    UtcTime start;
    if (!parseUtc(a.startTimeText, &start))
        throw std::runtime_error("the element adsHeader.startTime is not a UTC time: \"" + a.startTimeText + "\"");
    a.referenceDay = start.day;
    const long day = a.referenceDay;

    a.pass = text(product, "generalAnnotation.productInformation.pass");
    a.platformHeading = number(product, "generalAnnotation.productInformation.platformHeading");
    a.rangeSamplingRate = number(product, "generalAnnotation.productInformation.rangeSamplingRate");
    a.radarFrequency = number(product, "generalAnnotation.productInformation.radarFrequency");
    for (const ptree* info : children(product, "generalAnnotation.downlinkInformationList", "downlinkInformation"))
    {
        a.prf = number(*info, "prf");
        break;
    }
    for (const ptree* orbit : children(product, "generalAnnotation.orbitList", "orbit"))
    {
        OrbitState state;
        state.time = timeOf(*orbit, "time", day);
        state.position = Vec3(number(*orbit, "position.x"), number(*orbit, "position.y"), number(*orbit, "position.z"));
        state.velocity = Vec3(number(*orbit, "velocity.x"), number(*orbit, "velocity.y"), number(*orbit, "velocity.z"));
        a.orbit.push_back(state);
    }

    const std::string info = "imageAnnotation.imageInformation.";
    a.firstLineTime = timeOf(product, info + "productFirstLineUtcTime", day);
    a.lastLineTime = timeOf(product, info + "productLastLineUtcTime", day);
    a.slantRangeTime = number(product, info + "slantRangeTime");
    a.rangePixelSpacing = number(product, info + "rangePixelSpacing");
    a.azimuthPixelSpacing = number(product, info + "azimuthPixelSpacing");
    a.azimuthTimeInterval = number(product, info + "azimuthTimeInterval");
    a.numberOfSamples = integer(product, info + "numberOfSamples");
    a.numberOfLines = integer(product, info + "numberOfLines");
    a.incidenceAngleMidSwath = numberOr(product, info + "incidenceAngleMidSwath", 0.0);
    if (a.numberOfSamples <= 0 || a.numberOfLines <= 0 || !(a.azimuthTimeInterval > 0.0) ||
        !(a.slantRangeTime > 0.0) || !(a.rangeSamplingRate > 0.0) || !(a.radarFrequency > 0.0))
        throw std::runtime_error("the image information gives no usable size, timing or sampling");

    const std::string processing = "imageAnnotation.processingInformation.";
    for (const ptree* params : children(product, processing + "swathProcParamsList", "swathProcParams"))
    {
        a.rangeBandwidth = numberOr(*params, "rangeProcessing.processingBandwidth", 0.0);
        a.azimuthBandwidth = numberOr(*params, "azimuthProcessing.processingBandwidth", 0.0);
        break;
    }
    a.ellipsoidSemiMajor = numberOr(product, processing + "ellipsoidSemiMajorAxis", a.ellipsoidSemiMajor);
    a.ellipsoidSemiMinor = numberOr(product, processing + "ellipsoidSemiMinorAxis", a.ellipsoidSemiMinor);
    for (const ptree* estimate : children(product, "dopplerCentroid.dcEstimateList", "dcEstimate"))
    {
        a.dopplerReferenceRangeTime = number(*estimate, "t0");
        const std::vector<double> poly = list<double>(*estimate, "dataDcPolynomial");
        for (size_t i = 0; i < poly.size() && i < 3; ++i)
            a.dopplerCentroid[i] = poly[i];
        break;
    }

    if (const auto timing = product.get_child_optional("swathTiming"))
    {
        a.linesPerBurst = integer(*timing, "linesPerBurst");
        a.samplesPerBurst = integer(*timing, "samplesPerBurst");
        for (const ptree* burst : children(*timing, "burstList", "burst"))
        {
            S1Burst b;
            b.azimuthTime = timeOf(*burst, "azimuthTime", day);
            b.firstValidSample = list<int>(*burst, "firstValidSample");
            b.lastValidSample = list<int>(*burst, "lastValidSample");
            if (int(b.firstValidSample.size()) != a.linesPerBurst || int(b.lastValidSample.size()) != a.linesPerBurst)
                throw std::runtime_error("a burst's valid-sample lists do not hold linesPerBurst values");
            a.bursts.push_back(std::move(b));
        }
    }
    for (const ptree* point : children(product, "geolocationGrid.geolocationGridPointList", "geolocationGridPoint"))
    {
        S1GridPoint p;
        p.azimuthTime = timeOf(*point, "azimuthTime", day);
        p.slantRangeTime = number(*point, "slantRangeTime");
        p.line = number(*point, "line");
        p.pixel = number(*point, "pixel");
        p.latitude = number(*point, "latitude");
        p.longitude = number(*point, "longitude");
        p.height = number(*point, "height");
        p.incidenceAngle = numberOr(*point, "incidenceAngle", 0.0);
        a.geolocationGrid.push_back(p);
    }
    return a;
}

S1Calibration readS1Calibration(const std::string& xmlText, long referenceDay)
{
    const ptree tree = parse(xmlText);
    const ptree& root = child(tree, "calibration");
    S1Calibration c;
    c.absoluteCalibrationConstant =
        numberOr(root, "calibrationInformation.absoluteCalibrationConstant", c.absoluteCalibrationConstant);
    for (const ptree* item : children(root, "calibrationVectorList", "calibrationVector"))
    {
        S1CalibrationVector v;
        v.azimuthTime = timeOf(*item, "azimuthTime", referenceDay);
        v.line = integer(*item, "line");
        v.pixel = list<int>(*item, "pixel");
        v.sigmaNought = list<double>(*item, "sigmaNought");
        v.betaNought = list<double>(*item, "betaNought");
        v.gamma = list<double>(*item, "gamma");
        v.dn = list<double>(*item, "dn");
        const size_t n = v.pixel.size();
        if (n == 0 || v.sigmaNought.size() != n || v.betaNought.size() != n || v.gamma.size() != n || v.dn.size() != n)
            throw std::runtime_error("a calibration vector's lists differ in length");
        c.vectors.push_back(std::move(v));
    }
    if (c.vectors.empty())
        throw std::runtime_error("the calibration holds no calibrationVector");
    return c;
}

S1Noise readS1Noise(const std::string& xmlText, long referenceDay)
{
    const ptree tree = parse(xmlText);
    const ptree& root = child(tree, "noise");
    S1Noise n;
    auto readRange = [&](const char* listName, const char* itemName, const char* lutName) {
        for (const ptree* item : children(root, listName, itemName))
        {
            S1NoiseRangeVector v;
            v.azimuthTime = timeOf(*item, "azimuthTime", referenceDay);
            v.line = integer(*item, "line");
            v.pixel = list<int>(*item, "pixel");
            v.lut = list<double>(*item, lutName);
            if (v.pixel.empty() || v.lut.size() != v.pixel.size())
                throw std::runtime_error(std::string("a ") + itemName + "'s lists differ in length");
            n.range.push_back(std::move(v));
        }
    };
    readRange("noiseRangeVectorList", "noiseRangeVector", "noiseRangeLut");
    if (n.range.empty())
        readRange("noiseVectorList", "noiseVector", "noiseLut");
    for (const ptree* item : children(root, "noiseAzimuthVectorList", "noiseAzimuthVector"))
    {
        S1NoiseAzimuthBlock b;
        b.firstAzimuthLine = integer(*item, "firstAzimuthLine");
        b.lastAzimuthLine = integer(*item, "lastAzimuthLine");
        b.firstRangeSample = integer(*item, "firstRangeSample");
        b.lastRangeSample = integer(*item, "lastRangeSample");
        b.line = list<int>(*item, "line");
        b.lut = list<double>(*item, "noiseAzimuthLut");
        if (b.line.empty() || b.lut.size() != b.line.size())
            throw std::runtime_error("a noiseAzimuthVector's lists differ in length");
        n.azimuth.push_back(std::move(b));
    }
    if (n.range.empty())
        throw std::runtime_error("the noise file holds no noise range vector");
    return n;
}

} // namespace sargeo
