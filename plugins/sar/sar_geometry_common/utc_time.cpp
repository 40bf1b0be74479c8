// UTC text parsing and formatting on a civil calendar day count.
#include "utc_time.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace sargeo
{

namespace
{

long daysFromCivil(long y, long m, long d)
{
    y -= m <= 2;
    const long era = (y >= 0 ? y : y - 399) / 400;
    const long yoe = y - era * 400;
    const long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

void civilFromDays(long z, long* y, long* m, long* d)
{
    z += 719468;
    const long era = (z >= 0 ? z : z - 146096) / 146097;
    const long doe = z - era * 146097;
    const long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const long mp = (5 * doy + 2) / 153;
    *d = doy - (153 * mp + 2) / 5 + 1;
    *m = mp + (mp < 10 ? 3 : -9);
    *y = yoe + era * 400 + (*m <= 2);
}

bool digits(const std::string& text, size_t at, size_t count, long* value)
{
    if (at + count > text.size())
        return false;
    long v = 0;
    for (size_t i = at; i < at + count; ++i)
    {
        if (text[i] < '0' || text[i] > '9')
            return false;
        v = v * 10 + (text[i] - '0');
    }
    *value = v;
    return true;
}

} // namespace

bool parseUtc(const std::string& raw, UtcTime* time)
{
    size_t start = raw.find_first_not_of(" \t\r\n");
    if (start == std::string::npos)
        return false;
    const std::string text = raw.substr(start);
    long y, mo, d, h, mi, s;
    if (!digits(text, 0, 4, &y) || text.size() < 19 || text[4] != '-' || !digits(text, 5, 2, &mo) ||
        text[7] != '-' || !digits(text, 8, 2, &d) || (text[10] != 'T' && text[10] != ' ') ||
        !digits(text, 11, 2, &h) || text[13] != ':' || !digits(text, 14, 2, &mi) || text[16] != ':' ||
        !digits(text, 17, 2, &s))
        return false;
    if (mo < 1 || mo > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || s > 60)
        return false;
    double fraction = 0.0;
    size_t i = 19;
    if (i < text.size() && text[i] == '.')
    {
        double scale = 0.1;
        for (++i; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i, scale *= 0.1)
            fraction += (text[i] - '0') * scale;
    }
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\r' || text[i] == '\n' ||
                               text[i] == 'Z'))
        ++i;
    if (i != text.size())
        return false;
    time->day = daysFromCivil(y, mo, d);
    time->seconds = double(h * 3600 + mi * 60 + s) + fraction;
    return true;
}

std::string formatUtc(long day, double seconds)
{
    const long whole = long(std::floor(seconds / 86400.0));
    day += whole;
    seconds -= double(whole) * 86400.0;
    long micro = std::lround(seconds * 1e6);
    if (micro >= 86400L * 1000000L)
    {
        micro -= 86400L * 1000000L;
        ++day;
    }
    long y, m, d;
    civilFromDays(day, &y, &m, &d);
    const long s = micro / 1000000;
    char buffer[128];
    std::snprintf(buffer, sizeof buffer, "%04ld-%02ld-%02ldT%02ld:%02ld:%02ld.%06ld", y, m, d, s / 3600, (s / 60) % 60,
                  s % 60, micro % 1000000);
    return buffer;
}

} // namespace sargeo
