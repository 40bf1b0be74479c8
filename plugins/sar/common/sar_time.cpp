// Date-time texts and small geodetic helpers of the radar import plug-ins.
#include "sar_time.h"

#include "plugin_base.h"

#include <QStringList>
#include <cmath>

namespace sarimport
{

bool parseDateTime(const QString& text, QDate* date, double* secondsOfDay)
{
    const QString trimmed = text.trimmed();
    const int separator = trimmed.indexOf(QRegExp("[ T]"));
    if (separator < 0)
        return false;
    *date = QDate::fromString(trimmed.left(separator), QStringLiteral("yyyy-MM-dd"));
    const QStringList clock = trimmed.mid(separator + 1).trimmed().split(':');
    if (!date->isValid() || clock.size() != 3)
        return false;
    bool okHours = false, okMinutes = false, okSeconds = false;
    const int hours = clock[0].toInt(&okHours);
    const int minutes = clock[1].toInt(&okMinutes);
    const double seconds = clock[2].toDouble(&okSeconds);
    if (!okHours || !okMinutes || !okSeconds)
        return false;
    *secondsOfDay = hours * 3600.0 + minutes * 60.0 + seconds;
    return true;
}

double secondsAfter(const QDate& referenceDay, const QString& text, const QString& what)
{
    QDate date;
    double seconds = 0.0;
    if (!parseDateTime(text, &date, &seconds))
        throw algokit::AlgoError(QStringLiteral("%1 is not a date and time: \"%2\"").arg(what, text));
    return double(referenceDay.daysTo(date)) * 86400.0 + seconds;
}

QString formatDateTime(const QDate& day, double secondsAfterMidnight)
{
    const qint64 micro = qint64(std::llround(secondsAfterMidnight * 1e6));
    const qint64 dayMicro = 86400LL * 1000000LL;
    const qint64 dayOffset = micro >= 0 ? micro / dayMicro : -((-micro + dayMicro - 1) / dayMicro);
    const qint64 rest = micro - dayOffset * dayMicro;
    const qint64 seconds = rest / 1000000;
    return QStringLiteral("%1 %2:%3:%4.%5")
        .arg(day.addDays(dayOffset).toString(QStringLiteral("yyyy-MM-dd")))
        .arg(seconds / 3600, 2, 10, QChar('0'))
        .arg(seconds / 60 % 60, 2, 10, QChar('0'))
        .arg(seconds % 60, 2, 10, QChar('0'))
        .arg(rest % 1000000, 6, 10, QChar('0'));
}

double bearingDegrees(double latitude0, double longitude0, double latitude1, double longitude1)
{
    const double toRadians = M_PI / 180.0;
    const double phi0 = latitude0 * toRadians, phi1 = latitude1 * toRadians;
    const double deltaLambda = (longitude1 - longitude0) * toRadians;
    const double y = std::sin(deltaLambda) * std::cos(phi1);
    const double x = std::cos(phi0) * std::sin(phi1) - std::sin(phi0) * std::cos(phi1) * std::cos(deltaLambda);
    const double bearing = std::atan2(y, x) / toRadians;
    return std::fmod(bearing + 360.0, 360.0);
}

double ellipsoidRadiusBelow(double x, double y, double z, double semiMajor, double semiMinor)
{
    const double horizontal = std::hypot(x, y);
    const double latitude = std::atan2(z, horizontal); // geocentric
    const double b = semiMinor * std::cos(latitude), a = semiMajor * std::sin(latitude);
    return semiMajor * semiMinor / std::sqrt(b * b + a * a);
}

} // namespace sarimport
