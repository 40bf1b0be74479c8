// CEOS record parsing: ASCII fields at fixed 1-based byte positions, big-endian binary integers in record prefixes.
#include "ceos_reader.h"

#include <cmath>
#include <cstdlib>
#include <stdexcept>

namespace sargeo
{

namespace
{

// Bytes from..to (1-based, inclusive) of a record as text.
std::string field(const std::string& record, size_t from, size_t to, const char* what)
{
    if (to > record.size())
        throw std::runtime_error(std::string("the record is too short for its ") + what);
    return record.substr(from - 1, to - from + 1);
}

double real(const std::string& record, size_t from, size_t to, const char* what, bool optional = false)
{
    const std::string text = field(record, from, to, what);
    const size_t start = text.find_first_not_of(' ');
    if (start == std::string::npos)
    {
        if (optional)
            return 0.0;
        throw std::runtime_error(std::string("the ") + what + " is blank");
    }
    char* end = nullptr;
    const double v = std::strtod(text.c_str() + start, &end);
    while (end && *end == ' ')
        ++end;
    if (!end || *end != '\0' || !std::isfinite(v))
        throw std::runtime_error(std::string("the ") + what + " is not a number: \"" + text + "\"");
    return v;
}

int integer(const std::string& record, size_t from, size_t to, const char* what)
{
    const double v = real(record, from, to, what);
    if (v != std::floor(v) || std::abs(v) > 2e9)
        throw std::runtime_error(std::string("the ") + what + " is not an integer");
    return int(v);
}

uint32_t bigEndian(const unsigned char* p)
{
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | uint32_t(p[3]);
}

std::string trimmed(const std::string& s)
{
    const size_t a = s.find_first_not_of(' '), b = s.find_last_not_of(' ');
    return a == std::string::npos ? std::string() : s.substr(a, b - a + 1);
}

} // namespace

bool CeosImageDescriptor::isComplex() const
{
    return format.rfind("C*", 0) == 0 || format.rfind("COMPLEX", 0) == 0;
}

int CeosImageDescriptor::bytesPerPixel() const
{
    return pixels > 0 ? dataBytes / pixels : 0;
}

CeosImageDescriptor readCeosImageDescriptor(const std::string& bytes)
{
    if (bytes.size() < 720)
        throw std::runtime_error("the image file is shorter than its 720-byte descriptor");
    const std::string d = bytes.substr(0, 720);
    CeosImageDescriptor r;
    r.records = integer(d, 181, 186, "number of image records");
    r.recordLength = integer(d, 187, 192, "image record length");
    r.bitsPerSample = integer(d, 217, 220, "bits per sample");
    r.lines = integer(d, 237, 244, "number of lines");
    r.pixels = integer(d, 249, 256, "number of pixels per line");
    r.prefixBytes = integer(d, 277, 280, "record prefix length");
    r.dataBytes = integer(d, 281, 288, "sample bytes per record");
    r.format = trimmed(field(d, 401, 428, "sample format"));
    if (r.records < 0 || r.lines <= 0 || r.pixels <= 0 || r.prefixBytes < 0 || r.dataBytes <= 0 ||
        r.recordLength < r.prefixBytes + r.dataBytes || r.dataBytes % r.pixels != 0)
        throw std::runtime_error("the image descriptor's sizes do not agree with each other");
    const int bytesPerPixel = r.dataBytes / r.pixels;
    if (r.isComplex() ? bytesPerPixel != 8 : bytesPerPixel != 2)
        throw std::runtime_error("the sample format \"" + r.format + "\" is not complex float (8 bytes) or 16-bit");
    return r;
}

CeosLeader readCeosLeader(const std::string& bytes)
{
    CeosLeader leader;
    bool summary = false, platform = false;
    size_t position = 0;
    while (position + 12 <= bytes.size())
    {
        const unsigned char* header = reinterpret_cast<const unsigned char*>(bytes.data() + position);
        const uint32_t length = bigEndian(header + 8);
        if (length < 12 || position + length > bytes.size())
            throw std::runtime_error("the leader's record at byte " + std::to_string(position) + " is truncated");
        const std::string record = bytes.substr(position, length);
        const unsigned char subtype = header[5];
        if (subtype == 10 && !summary) // data set summary
        {
            leader.sceneCentreTime = trimmed(field(record, 69, 100, "scene centre time"));
            leader.centreLatitude = real(record, 117, 132, "scene centre latitude");
            leader.centreLongitude = real(record, 133, 148, "scene centre longitude");
            leader.semiMajor = real(record, 181, 196, "ellipsoid semi-major axis") * 1000.0;
            leader.semiMinor = real(record, 197, 212, "ellipsoid semi-minor axis") * 1000.0;
            leader.wavelength = real(record, 501, 516, "radar wavelength");
            leader.rangeSamplingRate = real(record, 711, 726, "range sampling rate", true) * 1e6;
            leader.prf = real(record, 935, 950, "pulse repetition frequency", true) * 1e-3;
            summary = true;
        }
        else if (subtype == 30 && !platform) // platform position
        {
            const int count = integer(record, 141, 144, "number of state vectors");
            leader.year = integer(record, 145, 148, "state vector year");
            leader.month = integer(record, 149, 152, "state vector month");
            leader.day = integer(record, 153, 156, "state vector day");
            leader.firstTime = real(record, 161, 182, "first state vector time");
            leader.interval = real(record, 183, 204, "state vector interval");
            if (count < 0 || count > 1000 || 386 + size_t(count) * 132 > record.size())
                throw std::runtime_error("the platform position record does not hold its state vectors");
            for (int k = 0; k < count; ++k)
            {
                CeosStateVector v;
                const size_t at = 387 + size_t(k) * 132;
                for (size_t i = 0; i < 3; ++i)
                {
                    v.position[i] = real(record, at + 22 * i, at + 22 * i + 21, "state vector position");
                    v.velocity[i] = real(record, at + 66 + 22 * i, at + 66 + 22 * i + 21, "state vector velocity");
                }
                leader.vectors.push_back(v);
            }
            platform = true;
        }
        position += length;
    }
    if (!summary)
        throw std::runtime_error("the leader has no data set summary record");
    if (!platform)
        throw std::runtime_error("the leader has no platform position record");
    if (!(leader.wavelength > 0) || leader.sceneCentreTime.size() < 17)
        throw std::runtime_error("the data set summary gives no wavelength or scene centre time");
    return leader;
}

CeosLinePrefix readCeosLinePrefix(const unsigned char* p, size_t size)
{
    if (size < 124)
        throw std::runtime_error("an image record's prefix is shorter than 124 bytes");
    CeosLinePrefix r;
    r.lineNumber = int(bigEndian(p + 12));
    r.year = int(bigEndian(p + 36));
    r.dayOfYear = int(bigEndian(p + 40));
    r.millisecondOfDay = int64_t(bigEndian(p + 44));
    r.prf = double(bigEndian(p + 56)) * 1e-3;
    r.slantRangeFirst = double(bigEndian(p + 116));
    return r;
}

} // namespace sargeo
