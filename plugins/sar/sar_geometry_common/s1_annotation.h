// Sentinel-1 product annotation, calibration and noise XML read into plain structs. All times are seconds after
// midnight of the reference day (the day of the annotation's start time).
#pragma once

#include "orbit.h"

#include <array>
#include <string>
#include <vector>

namespace sargeo
{

struct S1Burst
{
    double azimuthTime = 0.0;
    std::vector<int> firstValidSample; // one per burst line, -1 for a line without valid samples
    std::vector<int> lastValidSample;
};

struct S1GridPoint
{
    double azimuthTime = 0.0;
    double slantRangeTime = 0.0; // two-way, seconds
    double line = 0.0;
    double pixel = 0.0;
    double latitude = 0.0;
    double longitude = 0.0;
    double height = 0.0;
    double incidenceAngle = 0.0;
};

struct S1Annotation
{
    std::string missionId, productType, polarisation, mode, swath;
    std::string startTimeText;
    long referenceDay = 0;
    std::string pass;                // "Ascending" or "Descending"
    double platformHeading = 0.0;    // degrees
    double rangeSamplingRate = 0.0;  // Hz
    double radarFrequency = 0.0;     // Hz
    double prf = 0.0;                // Hz
    double firstLineTime = 0.0;
    double lastLineTime = 0.0;
    double slantRangeTime = 0.0;     // two-way time of column 0, seconds
    double rangePixelSpacing = 0.0;
    double azimuthPixelSpacing = 0.0;
    double azimuthTimeInterval = 0.0;
    double incidenceAngleMidSwath = 0.0;
    int numberOfSamples = 0;
    int numberOfLines = 0;
    double rangeBandwidth = 0.0;
    double azimuthBandwidth = 0.0;
    double ellipsoidSemiMajor = 6378137.0;
    double ellipsoidSemiMinor = 6356752.314245;
    std::array<double, 3> dopplerCentroid{}; // data Doppler polynomial of the first estimate, in (tau - t0)
    double dopplerReferenceRangeTime = 0.0;
    int linesPerBurst = 0;
    int samplesPerBurst = 0;
    std::vector<S1Burst> bursts; // empty for GRD
    std::vector<OrbitState> orbit;
    std::vector<S1GridPoint> geolocationGrid;
};

// Parses the text of a product annotation. Throws std::runtime_error naming the element that is missing or
// not a number, or the line of an XML error.
S1Annotation readS1Annotation(const std::string& xmlText);

struct S1CalibrationVector
{
    double azimuthTime = 0.0;
    int line = 0;
    std::vector<int> pixel;
    std::vector<double> sigmaNought, betaNought, gamma, dn;
};

struct S1Calibration
{
    double absoluteCalibrationConstant = 1.0;
    std::vector<S1CalibrationVector> vectors;
};

// Parses a calibration XML; its times are taken after midnight of referenceDay.
S1Calibration readS1Calibration(const std::string& xmlText, long referenceDay);

struct S1NoiseRangeVector
{
    double azimuthTime = 0.0;
    int line = 0;
    std::vector<int> pixel;
    std::vector<double> lut;
};

// One block of the azimuth noise profile (IPF 2.9 and later), valid over a line and sample rectangle.
struct S1NoiseAzimuthBlock
{
    int firstAzimuthLine = 0, lastAzimuthLine = 0, firstRangeSample = 0, lastRangeSample = 0;
    std::vector<int> line;
    std::vector<double> lut;
};

struct S1Noise
{
    std::vector<S1NoiseRangeVector> range; // "noiseRangeVector", or the older "noiseVector"
    std::vector<S1NoiseAzimuthBlock> azimuth;
};

S1Noise readS1Noise(const std::string& xmlText, long referenceDay);

} // namespace sargeo
