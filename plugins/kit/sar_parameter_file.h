// The platform's SAR parameter file (root "vyrSARParameter"): its record, reader, writer and location rule,
// shared by the radar entries of the library and the import plug-ins.
#pragma once

#include <QString>
#include <array>
#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

// One orbit state vector in an Earth-fixed Cartesian frame: metres and metres per second.
struct StateVector
{
    double xPosition = 0.0;
    double yPosition = 0.0;
    double zPosition = 0.0;
    double xVelocity = 0.0;
    double yVelocity = 0.0;
    double zVelocity = 0.0;
};

constexpr int kMaxStateVectors = 255;

// The parameters of one SAR image, in the order of the file. Member initialisers are the file's defaults,
// so a writer that leaves a field alone writes what a reader would assume for an absent element.
struct SarParameterRecord
{
    std::string title = "Unknown";
    std::string sensor = "Unknown";
    std::string rawDataStartTime = "UNKNOWN";
    std::string orbitDirection = "DESCENDING";
    std::string lookDirection = "RIGHT";
    double azimuthAngle = 0.0;
    std::string imageGeometry = "SLANT_RANGE";
    std::string polarizationMode = "SINGLE";
    std::string polarizationType = "HH";
    double startTime = 0.0;
    double centerTime = 0.0;
    double endTime = 0.0;
    double azimuthLineTime = 0.0;
    double nearSlantRange = 0.0;
    double centerSlantRange = 0.0;
    double farSlantRange = 0.0;
    double sceneCenterLatitude = 0.0;
    double sceneCenterLongitude = 0.0;
    double sceneTopLeftLatitude = 0.0;
    double sceneTopLeftLongitude = 0.0;
    double sceneTopRightLatitude = 0.0;
    double sceneTopRightLongitude = 0.0;
    double sceneBottomLeftLatitude = 0.0;
    double sceneBottomLeftLongitude = 0.0;
    double sceneBottomRightLatitude = 0.0;
    double sceneBottomRightLongitude = 0.0;
    double incidenceAngle = 0.0;
    double headingAngle = 0.0;
    std::array<double, 6> firstSlantRangePolynomial{};
    std::array<double, 6> centerSlantRangePolynomial{};
    std::array<double, 6> lastSlantRangePolynomial{};
    int32_t lineHeaderSize = 0;
    double rangeScaleFactor = 1.0;
    double azimuthScaleFactor = 1.0;
    int32_t numberOfColumns = 0;
    int32_t numberOfRows = 0;
    int32_t azimuthLooks = 1;
    int32_t rangeLooks = 1;
    double slantRangeSpacing = 0.0;
    double azimuthSpacing = 0.0;
    std::string imageDataType;
    std::string azimuthDeskew = "ON";
    double radarWavelength = 0.0;
    double radarCenterFrequency = 0.0;
    double adcSamplingRate = 0.0;
    double chirpBandWidth = 0.0;
    double pulseRepetitionFrequency = 0.0;
    double azimuthProcBandwidth = 0.0;
    std::array<double, 4> dopplerCentroidCoefficients{};
    std::array<double, 4> dopplerCentroidCoefficientsDot{};
    std::array<double, 4> dopplerCentroidCoefficientsDDot{};
    double receiverGain = 0.0;
    double calibrationGain = 0.0;
    double sarToEarthCenter = 0.0;
    double earthRadiusBelowSensor = 0.0;
    double earthSemiMajorAxis = 6378137.0;
    double earthSemiMinorAxis = 6356752.314245;
    int32_t numStateVectors = 0;
    double firstStateTime = 0.0;
    double stateVectorTimeSpacing = 0.0;
    std::array<StateVector, kMaxStateVectors> stateVectors{};
};

// Reads a SAR parameter file into record (fields overwritten in file order; optional fields without a default
// keep the caller's values). False when the root or "sceneCoord" is missing, when a state vector's "num" is
// outside 1..255, or when the last vector read is not number numStateVectors. A file that does not parse, or a
// required key that is absent or does not convert, throws the property-tree library's error.
bool ReadSarParameterFile(const char* path, SarParameterRecord& record);

// Writes record as a SAR parameter file (numbers in plain decimal that read back to the same double, lists
// separated by single spaces, state vectors 1..numStateVectors after the scalar orbit keys). False with a reason
// in *error when the record cannot be written faithfully (a non-finite number, more than 255 state vectors) or
// the file cannot be written; a file that failed half-way is removed.
bool WriteSarParameterFile(const QString& path, const SarParameterRecord& record, QString* error = nullptr);

// The parameter file of an image: its absolute path cut at the last "." (kept whole without one) + ".xml".
QString sarParameterFilePath(const QString& imagePath);

// A double in the writer's form: the shortest plain decimal text that reads back to the same value.
std::string formatPlainDecimal(double value);

#pragma GCC visibility pop
