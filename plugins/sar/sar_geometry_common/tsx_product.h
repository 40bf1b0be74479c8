// TerraSAR-X / TanDEM-X level-1 SSC products: the main XML annotation and the COSAR burst headers, read into plain
// structs. Times are seconds after midnight of the scene start's day.
#pragma once

#include "orbit.h"

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

namespace sargeo
{

struct TsxLayer
{
    std::string polarisation; // "HH", "VV", ...
    std::string file;         // COSAR path relative to the XML's folder
    double calibrationFactor = 0.0;
};

struct TsxProduct
{
    std::string mission, orbitDirection, lookDirection, polarisationMode;
    long referenceDay = 0;
    std::string startText;
    double start = 0, stop = 0;
    int rows = 0, columns = 0;
    double rowSpacing = 0, columnSpacing = 0;
    double firstPixelTime = 0, lastPixelTime = 0; // two-way range time, seconds
    double centreLatitude = 0, centreLongitude = 0, centreIncidence = 0;
    std::array<double, 8> corners{}; // lat, lon of up to four corners in file order
    double centerFrequency = 0, prf = 0, rangeSamplingRate = 0;
    std::vector<TsxLayer> layers;
    std::vector<OrbitState> orbit;
};

// Parses the product's main XML text. Throws std::runtime_error naming the missing or bad element.
TsxProduct readTsxProduct(const std::string& xmlText);

struct CosarBurst
{
    long long offset = 0;     // of the burst's first byte in the file
    int rangeSamples = 0;     // RS
    int azimuthSamples = 0;   // AS
    int lineBytes = 0;        // RTNB = 8 + 4 RS
    long long burstBytes = 0; // BIB
};

// The bursts of a COSAR file of fileSize bytes, from its headers; read(offset, count, buffer) fetches bytes.
// Throws std::runtime_error for a missing "CSAR" mark, sizes that disagree, or a burst past the end of the file.
template <typename Read> std::vector<CosarBurst> readCosarBursts(long long fileSize, Read read);

// One burst header (the first 36 bytes of a burst). Throws std::runtime_error when it is not one.
CosarBurst parseCosarBurstHeader(const unsigned char* header, long long offset, long long fileSize);

template <typename Read> std::vector<CosarBurst> readCosarBursts(long long fileSize, Read read)
{
    std::vector<CosarBurst> bursts;
    long long offset = 0;
    while (offset < fileSize)
    {
        unsigned char header[36];
        if (!read(offset, sizeof header, header))
            throw std::runtime_error("the COSAR file cannot be read at byte " + std::to_string(offset));
        bursts.push_back(parseCosarBurstHeader(header, offset, fileSize));
        offset += bursts.back().burstBytes;
        if (bursts.size() > 100000)
            throw std::runtime_error("the COSAR file holds implausibly many bursts");
    }
    if (bursts.empty())
        throw std::runtime_error("the COSAR file is empty");
    return bursts;
}

} // namespace sargeo
