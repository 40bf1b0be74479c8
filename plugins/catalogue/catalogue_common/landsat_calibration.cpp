// Landsat MTL rescaling factors and the top-of-atmosphere conversion.
#include "landsat_calibration.h"

#include <QList>
#include <QRegularExpression>
#include <QString>

#include <cmath>
#include <limits>

namespace catalogue
{

namespace
{
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr int kMaxMtlBytes = 16 << 20;
} // namespace

LandsatBandCalibration::LandsatBandCalibration()
    : reflectanceMult(kNaN), reflectanceAdd(kNaN), radianceMult(kNaN), radianceAdd(kNaN), k1(kNaN), k2(kNaN)
{
}

bool LandsatBandCalibration::hasReflectance() const
{
    return std::isfinite(reflectanceMult) && std::isfinite(reflectanceAdd);
}

bool LandsatBandCalibration::hasTemperature() const
{
    return std::isfinite(radianceMult) && std::isfinite(radianceAdd) && std::isfinite(k1) && std::isfinite(k2) &&
           k1 > 0.0 && k2 > 0.0;
}

LandsatCalibration::LandsatCalibration() : sunElevationDegrees(kNaN) {}

LandsatCalibration readLandsatCalibration(const QByteArray& mtl)
{
    LandsatCalibration calibration;
    if (mtl.size() > kMaxMtlBytes)
        return calibration;
    static const QRegularExpression bandKey(QStringLiteral(
        "^(REFLECTANCE_MULT|REFLECTANCE_ADD|RADIANCE_MULT|RADIANCE_ADD|K1_CONSTANT|K2_CONSTANT)_BAND_(\\d{1,2})$"));
    for (const QByteArray& line : mtl.split('\n'))
    {
        const int eq = line.indexOf('=');
        if (eq < 0)
            continue;
        const QString key = QString::fromLatin1(line.left(eq)).trimmed();
        bool ok = false;
        const double value = QString::fromLatin1(line.mid(eq + 1)).trimmed().remove(QLatin1Char('"')).toDouble(&ok);
        if (!ok || !std::isfinite(value))
            continue;
        if (key == QLatin1String("SUN_ELEVATION"))
        {
            calibration.sunElevationDegrees = value;
            continue;
        }
        const QRegularExpressionMatch m = bandKey.match(key);
        if (!m.hasMatch())
            continue;
        LandsatBandCalibration& band = calibration.bands[m.captured(2).toInt()];
        const QString kind = m.captured(1);
        double* field = kind == QLatin1String("REFLECTANCE_MULT")  ? &band.reflectanceMult
                        : kind == QLatin1String("REFLECTANCE_ADD") ? &band.reflectanceAdd
                        : kind == QLatin1String("RADIANCE_MULT")   ? &band.radianceMult
                        : kind == QLatin1String("RADIANCE_ADD")    ? &band.radianceAdd
                        : kind == QLatin1String("K1_CONSTANT")     ? &band.k1
                                                                   : &band.k2;
        *field = value;
    }
    return calibration;
}

bool calibrateLandsatRow(const uint16_t* dn, float* out, size_t count, const LandsatBandCalibration& band,
                         double sunElevationDegrees, float noData)
{
    if (band.hasReflectance())
    {
        const double sine = std::sin(sunElevationDegrees * M_PI / 180.0);
        const bool corrected = std::isfinite(sine) && sine > 0.0;
        const double mult = band.reflectanceMult / (corrected ? sine : 1.0);
        const double add = band.reflectanceAdd / (corrected ? sine : 1.0);
        for (size_t i = 0; i < count; ++i)
            out[i] = dn[i] == 0 ? noData : float(mult * dn[i] + add);
        return true;
    }
    if (band.hasTemperature())
    {
        for (size_t i = 0; i < count; ++i)
        {
            const double radiance = band.radianceMult * dn[i] + band.radianceAdd;
            out[i] = dn[i] == 0 || radiance <= 0.0 ? noData : float(band.k2 / std::log(band.k1 / radiance + 1.0));
        }
        return true;
    }
    return false;
}

} // namespace catalogue
