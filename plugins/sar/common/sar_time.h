// Date-time texts of radar products as seconds on one time base (seconds after midnight of a reference day).
#pragma once

#include <QDate>
#include <QString>

namespace sarimport
{

// Splits "YYYY-MM-DD HH:MM:SS[.fraction]" (a "T" also separates date and time). False when it does not parse.
bool parseDateTime(const QString& text, QDate* date, double* secondsOfDay);

// Seconds from midnight of referenceDay to the instant written in text; throws AlgoError naming what when the
// text does not parse.
double secondsAfter(const QDate& referenceDay, const QString& text, const QString& what);

// "YYYY-MM-DD HH:MM:SS.ffffff" of the instant secondsAfterMidnight after midnight of day.
QString formatDateTime(const QDate& day, double secondsAfterMidnight);

// Initial great-circle bearing from one point to another, degrees clockwise from north in [0, 360).
double bearingDegrees(double latitude0, double longitude0, double latitude1, double longitude1);

// Geocentric radius of the ellipsoid under an Earth-fixed position, metres.
double ellipsoidRadiusBelow(double x, double y, double z, double semiMajor, double semiMinor);

constexpr double kSpeedOfLight = 299792458.0;

} // namespace sarimport
