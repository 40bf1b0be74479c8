// CEOS SAR products (ALOS PALSAR and PALSAR-2): the image file descriptor, the leader's data set summary and
// platform position records, and the prefix of each image record, read into plain structs from bytes.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace sargeo
{

struct CeosImageDescriptor
{
    int records = 0;        // image records after the descriptor
    int recordLength = 0;   // bytes per image record
    int lines = 0;
    int pixels = 0;
    int prefixBytes = 0;    // bytes before the samples of each record
    int dataBytes = 0;      // sample bytes of each record
    int bitsPerSample = 0;
    std::string format;     // e.g. "C*8", "COMPLEX*8", "UNSIGNED INTEGER*2"
    bool isComplex() const;
    int bytesPerPixel() const;
};

// The first 720 bytes of an IMG file. Throws std::runtime_error naming the field that does not read.
CeosImageDescriptor readCeosImageDescriptor(const std::string& bytes);

struct CeosStateVector
{
    std::array<double, 3> position{}, velocity{};
};

struct CeosLeader
{
    std::string sceneCentreTime;   // "YYYYMMDDhhmmssttt"
    double centreLatitude = 0, centreLongitude = 0;
    double semiMajor = 6378137.0, semiMinor = 6356752.314;  // metres
    double wavelength = 0;         // metres
    double rangeSamplingRate = 0;  // Hz
    double prf = 0;                // Hz, 0 when absent
    // Platform position record: vectors at firstTime + k * interval (seconds of the day year-month-day).
    int year = 0, month = 0, day = 0;
    double firstTime = 0, interval = 0;
    std::vector<CeosStateVector> vectors;
};

// The whole leader file. Throws std::runtime_error for a truncated record or a field that does not read.
CeosLeader readCeosLeader(const std::string& bytes);

// The prefix of one level-1.1 signal data record (at least 124 bytes).
struct CeosLinePrefix
{
    int lineNumber = 0;
    int year = 0, dayOfYear = 0;
    int64_t millisecondOfDay = 0;
    double prf = 0;              // Hz
    double slantRangeFirst = 0;  // metres
};

CeosLinePrefix readCeosLinePrefix(const unsigned char* prefix, size_t size);

} // namespace sargeo
