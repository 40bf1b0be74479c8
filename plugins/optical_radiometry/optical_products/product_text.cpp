// Number, case and date helpers of the metadata readers.
#include "product_text.h"

#include "optical_products.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>

namespace optical
{

double parseNumber(const std::string& text)
{
    const std::string t = trimmed(text);
    if (t.empty())
        return kUnknown;
    const char* begin = t.data();
    if (*begin == '+')
        ++begin;
    double value = 0.0;
    const auto [end, error] = std::from_chars(begin, t.data() + t.size(), value);
    if (error != std::errc() || end != t.data() + t.size() || !std::isfinite(value))
        return kUnknown;
    return value;
}

std::string trimmed(const std::string& text)
{
    size_t begin = 0, end = text.size();
    while (begin < end && std::isspace(static_cast<unsigned char>(text[begin])))
        ++begin;
    while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1])))
        --end;
    return text.substr(begin, end - begin);
}

std::string upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

bool parseIsoDate(const std::string& text, int* year, int* month, int* day)
{
    const std::string t = trimmed(text);
    if (t.size() < 10 || t[4] != '-' || t[7] != '-')
        return false;
    for (int i : {0, 1, 2, 3, 5, 6, 8, 9})
        if (!std::isdigit(static_cast<unsigned char>(t[size_t(i)])))
            return false;
    *year = std::stoi(t.substr(0, 4));
    *month = std::stoi(t.substr(5, 2));
    *day = std::stoi(t.substr(8, 2));
    return *month >= 1 && *month <= 12 && *day >= 1 && *day <= 31;
}

int AcquisitionDate::dayOfYear() const
{
    static const int before[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return before[month - 1] + day + (leap && month > 2 ? 1 : 0);
}

double earthSunDistance(int dayOfYear)
{
    // The almanac's series in the mean anomaly g, taken as zero at perihelion (3-4 January).
    const double pi = 3.14159265358979323846;
    const double g = 0.98560028 * (dayOfYear - 4) * pi / 180.0;
    return 1.00014 - 0.01671 * std::cos(g) - 0.00014 * std::cos(2.0 * g);
}

} // namespace optical
