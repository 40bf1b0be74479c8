// Band names, wavelengths and units written on output bands.
#include "band_description.h"

namespace radiometry
{

QString bandLabel(const optical::BandCoefficients& band)
{
    QString id = QString::fromStdString(band.id);
    if (!id.startsWith(QLatin1Char('B')))
        id.prepend(QLatin1Char('B'));
    return band.name.empty() ? id : QStringLiteral("%1 (%2)").arg(id, QString::fromStdString(band.name));
}

void describeBand(GDALRasterBand* band, const optical::BandCoefficients& coefficients, const QString& unit)
{
    band->SetDescription(bandLabel(coefficients).toUtf8().constData());
    band->SetMetadataItem("BAND_ID", coefficients.id.c_str());
    if (optical::known(coefficients.wavelengthUm))
    {
        band->SetMetadataItem("wavelength", QByteArray::number(coefficients.wavelengthUm, 'g', 6).constData());
        band->SetMetadataItem("wavelength_units", "Micrometers");
    }
    if (!unit.isEmpty())
        band->SetUnitType(unit.toUtf8().constData());
}

} // namespace radiometry
