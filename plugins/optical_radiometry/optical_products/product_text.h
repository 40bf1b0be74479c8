// Small text helpers of the metadata readers: numbers in the C locale, trimming, case-blind comparison.
#pragma once

#include <string>

namespace optical
{

// The number that the whole (trimmed) text spells, in the C locale whatever the process locale; NaN otherwise.
double parseNumber(const std::string& text);
std::string trimmed(const std::string& text);
std::string upper(std::string text);
// "2015-08-04" (or the date part of "2015-08-04T16:19:21Z") to year, month, day; false when it is not a date.
bool parseIsoDate(const std::string& text, int* year, int* month, int* day);

} // namespace optical
