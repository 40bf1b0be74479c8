// Reading and writing the SAR parameter file with Boost property_tree.
#include "sar_parameter_file.h"

#include <QFile>
#include <QFileInfo>

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>

#include <charconv>
#include <cmath>
#include <sstream>

namespace
{

using boost::property_tree::ptree;

const std::string kMission = "vyrSARParameter.productInfo.missionInfo.";
const std::string kScene = "vyrSARParameter.productInfo.sceneInfo.";
const std::string kCoord = "vyrSARParameter.productInfo.sceneCoord.";
const std::string kImage = "vyrSARParameter.productInfo.imageDataInfo.";
const std::string kRadar = "vyrSARParameter.radarParameters.";
const std::string kOrbit = "vyrSARParameter.orbitInfo.";

// The corner and centre keys of "sceneCoord", in file order, with the record fields they fill.
struct CoordinateKey
{
    const char* key;
    double SarParameterRecord::*field;
};
const CoordinateKey kCoordinates[] = {
    {"sceneCenter.Latitude", &SarParameterRecord::sceneCenterLatitude},
    {"sceneCenter.Longitude", &SarParameterRecord::sceneCenterLongitude},
    {"sceneTopLeft.Latitude", &SarParameterRecord::sceneTopLeftLatitude},
    {"sceneTopLeft.Longitude", &SarParameterRecord::sceneTopLeftLongitude},
    {"sceneTopRight.Latitude", &SarParameterRecord::sceneTopRightLatitude},
    {"sceneTopRight.Longitude", &SarParameterRecord::sceneTopRightLongitude},
    {"sceneBottomLeft.Latitude", &SarParameterRecord::sceneBottomLeftLatitude},
    {"sceneBottomLeft.Longitude", &SarParameterRecord::sceneBottomLeftLongitude},
    {"sceneBottomRight.Latitude", &SarParameterRecord::sceneBottomRightLatitude},
    {"sceneBottomRight.Longitude", &SarParameterRecord::sceneBottomRightLongitude},
};

struct VectorKey
{
    const char* key;
    double StateVector::*field;
};
const VectorKey kVectorKeys[] = {
    {"xPosition", &StateVector::xPosition}, {"yPosition", &StateVector::yPosition},
    {"zPosition", &StateVector::zPosition}, {"xVelocity", &StateVector::xVelocity},
    {"yVelocity", &StateVector::yVelocity}, {"zVelocity", &StateVector::zVelocity},
};

// Numbers of a list text, in order; missing numbers leave their fields as they were.
template <size_t N> void readList(const ptree& tree, const std::string& key, std::array<double, N>& values)
{
    std::istringstream stream(tree.get<std::string>(key, ""));
    for (size_t i = 0; i < N; ++i)
    {
        double value;
        if (!(stream >> value))
            break;
        values[i] = value;
    }
}

void readOptional(const ptree& tree, const std::string& key, double& field)
{
    if (boost::optional<double> value = tree.get_optional<double>(key))
        field = *value;
}

// Collects the first reason the record cannot be written as plain decimal numbers.
class TreeWriter
{
public:
    ptree tree;
    std::string problem;

    void text(const std::string& key, const std::string& value) { tree.put(key, value); }
    void number(const std::string& key, double value) { tree.put(key, checked(key, value)); }
    void integer(const std::string& key, int32_t value) { tree.put(key, std::to_string(value)); }
    template <size_t N> void list(const std::string& key, const std::array<double, N>& values)
    {
        std::string text;
        for (double value : values)
            text += (text.empty() ? "" : " ") + checked(key, value);
        tree.put(key, text);
    }
    std::string checked(const std::string& key, double value)
    {
        if (!std::isfinite(value) && problem.empty())
            problem = "the value of " + key + " is not a finite number";
        return formatPlainDecimal(std::isfinite(value) ? value : 0.0);
    }
};

} // namespace

std::string formatPlainDecimal(double value)
{
    // Shortest fixed-notation text that round-trips; fixed notation of any double fits in 400 characters.
    char buffer[400];
    const std::to_chars_result written = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed);
    if (written.ec != std::errc())
        return std::to_string(value);
    return std::string(buffer, written.ptr);
}

bool ReadSarParameterFile(const char* path, SarParameterRecord& record)
{
    ptree tree;
    const std::string fileName = path ? path : "";
    try
    {
        boost::property_tree::read_xml(fileName, tree);
    }
    catch (const std::ios_base::failure& failure)
    {
        // A directory or an unreadable device fails in the stream; report it as the parser's own error.
        throw boost::property_tree::xml_parser_error(failure.what(), fileName, 0);
    }

    record.title = tree.get<std::string>(kMission + "title", "Unknown");
    record.sensor = tree.get<std::string>(kMission + "sensor", "Unknown");
    record.rawDataStartTime = tree.get<std::string>(kMission + "rawDataStartTime", "UNKNOWN");
    record.orbitDirection = tree.get<std::string>(kMission + "orbitDirection", "DESCENDING");
    record.lookDirection = tree.get<std::string>(kMission + "lookDirection", "RIGHT");
    if (!tree.get_child_optional("vyrSARParameter"))
        return false;

    readOptional(tree, kMission + "azimuthAngle", record.azimuthAngle);
    record.imageGeometry = tree.get<std::string>(kMission + "imageGeometry", "SLANT_RANGE");
    record.polarizationMode = tree.get<std::string>(kMission + "polarizationMode", "SINGLE");
    record.polarizationType = tree.get<std::string>(kMission + "polarizationType", "HH");
    readOptional(tree, kScene + "startTime", record.startTime);
    readOptional(tree, kScene + "centerTime", record.centerTime);
    readOptional(tree, kScene + "endTime", record.endTime);
    record.azimuthLineTime = tree.get<double>(kScene + "azimuthLineTime");
    record.nearSlantRange = tree.get<double>(kScene + "nearSlantRange");
    record.centerSlantRange = tree.get<double>(kScene + "centerSlantRange");
    record.farSlantRange = tree.get<double>(kScene + "farSlantRange");

    if (!tree.get_child_optional("vyrSARParameter.productInfo.sceneCoord"))
        return false;
    for (const CoordinateKey& coordinate : kCoordinates)
        record.*coordinate.field = tree.get<double>(kCoord + coordinate.key);
    record.incidenceAngle = tree.get<double>(kScene + "incidenceAngle");
    record.headingAngle = tree.get<double>(kScene + "headingAngle");
    readList(tree, kScene + "firstSlantRangePolynomial", record.firstSlantRangePolynomial);
    readList(tree, kScene + "centerSlantRangePolynomial", record.centerSlantRangePolynomial);
    readList(tree, kScene + "lastSlantRangePolynomial", record.lastSlantRangePolynomial);

    record.lineHeaderSize = tree.get<int32_t>(kImage + "lineHeaderSize", 0);
    record.numberOfColumns = tree.get<int32_t>(kImage + "numberOfColumns");
    record.numberOfRows = tree.get<int32_t>(kImage + "numberOfRows");
    record.azimuthLooks = tree.get<int32_t>(kImage + "azimuthLooks");
    record.rangeLooks = tree.get<int32_t>(kImage + "rangeLooks");
    record.slantRangeSpacing = tree.get<double>(kImage + "slantRangeSpacing");
    record.azimuthSpacing = tree.get<double>(kImage + "azimuthSpacing");
    record.imageDataType = tree.get<std::string>(kImage + "imageDataType", "");
    record.rangeScaleFactor = tree.get<double>(kImage + "rangeScaleFactor", 1.0);
    record.azimuthScaleFactor = tree.get<double>(kImage + "azimuthScaleFactor", 1.0);

    record.azimuthDeskew = tree.get<std::string>(kRadar + "azimuthDeskew", "ON");
    record.radarWavelength = tree.get<double>(kRadar + "radarWavelength");
    record.radarCenterFrequency = tree.get<double>(kRadar + "radarCenterFrequency");
    record.adcSamplingRate = tree.get<double>(kRadar + "adcSamplingRate");
    record.chirpBandWidth = tree.get<double>(kRadar + "chirpBandWidth");
    record.pulseRepetitionFrequency = tree.get<double>(kRadar + "pulseRepetitionFrequency");
    record.azimuthProcBandwidth = tree.get<double>(kRadar + "azimuthProcBandwidth");
    readList(tree, kRadar + "dopplerCentroidCoefficients", record.dopplerCentroidCoefficients);
    readList(tree, kRadar + "dopplerCentroidCoefficientsDot", record.dopplerCentroidCoefficientsDot);
    readList(tree, kRadar + "dopplerCentroidCoefficientsDDot", record.dopplerCentroidCoefficientsDDot);
    record.receiverGain = tree.get<double>(kRadar + "receiverGain", 0.0);
    record.calibrationGain = tree.get<double>(kRadar + "calibrationGain", 0.0);

    record.sarToEarthCenter = tree.get<double>(kOrbit + "sarToEarthCenter");
    record.earthRadiusBelowSensor = tree.get<double>(kOrbit + "earthRadiusBelowSensor");
    record.earthSemiMajorAxis = tree.get<double>(kOrbit + "earthSemiMajorAxis");
    record.earthSemiMinorAxis = tree.get<double>(kOrbit + "earthSemiMinorAxis");
    record.numStateVectors = tree.get<int32_t>(kOrbit + "numStateVectors");
    record.firstStateTime = tree.get<double>(kOrbit + "firstStateTime");
    record.stateVectorTimeSpacing = tree.get<double>(kOrbit + "stateVectorTimeSpacing");

    // The scan stores vector "num" k at index k-1; a number outside the array ends the read instead.
    int lastNumber = 0;
    for (const ptree::value_type& child : tree.get_child("vyrSARParameter.orbitInfo"))
    {
        if (child.first != "stateVector")
            continue;
        const int number = child.second.get<int>("<xmlattr>.num");
        if (number < 1 || number > kMaxStateVectors)
            return false;
        StateVector& vector = record.stateVectors[size_t(number - 1)];
        for (const VectorKey& key : kVectorKeys)
            vector.*key.field = child.second.get<double>(key.key);
        lastNumber = number;
    }
    return lastNumber == record.numStateVectors;
}

bool WriteSarParameterFile(const QString& path, const SarParameterRecord& record, QString* error)
{
    auto refuse = [error](const QString& reason) {
        if (error)
            *error = reason;
        return false;
    };
    if (record.numStateVectors < 0 || record.numStateVectors > kMaxStateVectors)
        return refuse(QStringLiteral("A SAR parameter file holds at most %1 state vectors, not %2")
                          .arg(kMaxStateVectors)
                          .arg(record.numStateVectors));

    TreeWriter w;
    w.text(kMission + "title", record.title);
    w.text(kMission + "sensor", record.sensor);
    w.text(kMission + "rawDataStartTime", record.rawDataStartTime);
    w.text(kMission + "orbitDirection", record.orbitDirection);
    w.text(kMission + "lookDirection", record.lookDirection);
    w.number(kMission + "azimuthAngle", record.azimuthAngle);
    w.text(kMission + "imageGeometry", record.imageGeometry);
    w.text(kMission + "polarizationMode", record.polarizationMode);
    w.text(kMission + "polarizationType", record.polarizationType);
    w.number(kScene + "startTime", record.startTime);
    w.number(kScene + "centerTime", record.centerTime);
    w.number(kScene + "endTime", record.endTime);
    w.number(kScene + "azimuthLineTime", record.azimuthLineTime);
    w.number(kScene + "nearSlantRange", record.nearSlantRange);
    w.number(kScene + "centerSlantRange", record.centerSlantRange);
    w.number(kScene + "farSlantRange", record.farSlantRange);
    for (const CoordinateKey& coordinate : kCoordinates)
        w.number(kCoord + coordinate.key, record.*coordinate.field);
    w.number(kScene + "incidenceAngle", record.incidenceAngle);
    w.number(kScene + "headingAngle", record.headingAngle);
    w.list(kScene + "firstSlantRangePolynomial", record.firstSlantRangePolynomial);
    w.list(kScene + "centerSlantRangePolynomial", record.centerSlantRangePolynomial);
    w.list(kScene + "lastSlantRangePolynomial", record.lastSlantRangePolynomial);
    w.integer(kImage + "lineHeaderSize", record.lineHeaderSize);
    w.integer(kImage + "numberOfColumns", record.numberOfColumns);
    w.integer(kImage + "numberOfRows", record.numberOfRows);
    w.integer(kImage + "azimuthLooks", record.azimuthLooks);
    w.integer(kImage + "rangeLooks", record.rangeLooks);
    w.number(kImage + "slantRangeSpacing", record.slantRangeSpacing);
    w.number(kImage + "azimuthSpacing", record.azimuthSpacing);
    w.text(kImage + "imageDataType", record.imageDataType);
    w.number(kImage + "rangeScaleFactor", record.rangeScaleFactor);
    w.number(kImage + "azimuthScaleFactor", record.azimuthScaleFactor);
    w.text(kRadar + "azimuthDeskew", record.azimuthDeskew);
    w.number(kRadar + "radarWavelength", record.radarWavelength);
    w.number(kRadar + "radarCenterFrequency", record.radarCenterFrequency);
    w.number(kRadar + "adcSamplingRate", record.adcSamplingRate);
    w.number(kRadar + "chirpBandWidth", record.chirpBandWidth);
    w.number(kRadar + "pulseRepetitionFrequency", record.pulseRepetitionFrequency);
    w.number(kRadar + "azimuthProcBandwidth", record.azimuthProcBandwidth);
    w.list(kRadar + "dopplerCentroidCoefficients", record.dopplerCentroidCoefficients);
    w.list(kRadar + "dopplerCentroidCoefficientsDot", record.dopplerCentroidCoefficientsDot);
    w.list(kRadar + "dopplerCentroidCoefficientsDDot", record.dopplerCentroidCoefficientsDDot);
    w.number(kRadar + "receiverGain", record.receiverGain);
    w.number(kRadar + "calibrationGain", record.calibrationGain);
    w.number(kOrbit + "sarToEarthCenter", record.sarToEarthCenter);
    w.number(kOrbit + "earthRadiusBelowSensor", record.earthRadiusBelowSensor);
    w.number(kOrbit + "earthSemiMajorAxis", record.earthSemiMajorAxis);
    w.number(kOrbit + "earthSemiMinorAxis", record.earthSemiMinorAxis);
    w.integer(kOrbit + "numStateVectors", record.numStateVectors);
    w.number(kOrbit + "firstStateTime", record.firstStateTime);
    w.number(kOrbit + "stateVectorTimeSpacing", record.stateVectorTimeSpacing);
    ptree& orbit = w.tree.get_child("vyrSARParameter.orbitInfo");
    for (int i = 0; i < record.numStateVectors; ++i)
    {
        ptree vector;
        vector.put("<xmlattr>.num", std::to_string(i + 1));
        for (const VectorKey& key : kVectorKeys)
            vector.put(key.key, w.checked("stateVector.", record.stateVectors[size_t(i)].*key.field));
        orbit.add_child("stateVector", vector);
    }
    if (!w.problem.empty())
        return refuse(QString::fromStdString("Cannot write the SAR parameter file: " + w.problem));

    const QByteArray fileName = path.toLocal8Bit();
    try
    {
        boost::property_tree::write_xml(fileName.toStdString(), w.tree, std::locale(),
                                        boost::property_tree::xml_writer_make_settings<std::string>(' ', 2));
    }
    catch (const std::exception& failure)
    {
        QFile::remove(path);
        return refuse(QStringLiteral("Cannot write the SAR parameter file %1: %2")
                          .arg(path, QString::fromLocal8Bit(failure.what())));
    }
    return true;
}

QString sarParameterFilePath(const QString& imagePath)
{
    const QString absolute = QFileInfo(imagePath).absoluteFilePath();
    const int dot = absolute.lastIndexOf('.');
    return (dot < 0 ? absolute : absolute.left(dot)) + QStringLiteral(".xml");
}
