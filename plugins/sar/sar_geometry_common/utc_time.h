// UTC date-time texts of product annotations as a day number and seconds of that day.
#pragma once

#include <string>

namespace sargeo
{

struct UtcTime
{
    long day = 0;          // days since 1970-01-01
    double seconds = 0.0;  // seconds after midnight
    // Seconds after midnight of referenceDay (large day differences keep their sign and size).
    double secondsAfter(long referenceDay) const { return double(day - referenceDay) * 86400.0 + seconds; }
};

// Parses "YYYY-MM-DD[T or blank]HH:MM:SS[.fraction]"; false when the text is not such a date-time.
bool parseUtc(const std::string& text, UtcTime* time);

// "YYYY-MM-DDTHH:MM:SS.ffffff" of the instant `seconds` after midnight of `day`.
std::string formatUtc(long day, double seconds);

} // namespace sargeo
