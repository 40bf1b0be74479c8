// Which band is green, red, near infrared or short-wave infrared.
#include "spectral_bands.h"

#include <gdal_priv.h>

#include <QRegularExpression>
#include <cmath>

namespace obia
{

namespace
{

struct Window
{
    double low, centre, high;
};
constexpr Window kGreen{500, 560, 600};
constexpr Window kRed{620, 660, 700};
constexpr Window kNir{760, 840, 900};
constexpr Window kSwir{1500, 1610, 1800};

int nearestInWindow(const std::vector<BandLabel>& bands, const Window& window)
{
    int best = -1;
    for (int i = 0; i < int(bands.size()); ++i)
    {
        const double w = bands[size_t(i)].wavelengthNm;
        if (w < window.low || w > window.high)
            continue;
        if (best < 0 || std::fabs(w - window.centre) < std::fabs(bands[size_t(best)].wavelengthNm - window.centre))
            best = i;
    }
    return best;
}

int byDescription(const std::vector<BandLabel>& bands, const QRegularExpression& pattern)
{
    for (int i = 0; i < int(bands.size()); ++i)
        if (pattern.match(bands[size_t(i)].description).hasMatch())
            return i;
    return -1;
}

// Usual band orders by band count: 4 blue-green-red-NIR (GF-1/2/6, ZY-3, PlanetScope, SPOT 6/7 order); 5 RapidEye
// (blue, green, red, red edge, NIR); 6 and 7 Landsat TM/ETM+ (1-5,7 and 1-7); 8 to 11 Landsat 8/9 OLI(-TIRS) from the
// coastal band; 12 and 13 Sentinel-2 (B1-B12 with B8A, without or with B10).
OpticalBands byBandCount(int count)
{
    OpticalBands found;
    auto set = [&](int g, int r, int n, int s, const char* name) {
        found.green = g;
        found.red = r;
        found.nir = n;
        found.swir = s;
        found.source = QString::fromLatin1(name);
    };
    if (count == 4)
        set(1, 2, 3, -1, "band order blue, green, red, NIR");
    else if (count == 5)
        set(1, 2, 4, -1, "band order of RapidEye (blue, green, red, red edge, NIR)");
    else if (count == 6 || count == 7)
        set(1, 2, 3, 4, "band order of Landsat TM/ETM+");
    else if (count >= 8 && count <= 11)
        set(2, 3, 4, 5, "band order of Landsat 8/9 OLI");
    else if (count == 12)
        set(2, 3, 7, 10, "band order of Sentinel-2 without B10");
    else if (count == 13)
        set(2, 3, 7, 11, "band order of Sentinel-2");
    return found;
}

} // namespace

OpticalBands findOpticalBands(const std::vector<BandLabel>& bands)
{
    OpticalBands found;
    found.green = nearestInWindow(bands, kGreen);
    found.red = nearestInWindow(bands, kRed);
    found.nir = nearestInWindow(bands, kNir);
    found.swir = nearestInWindow(bands, kSwir);
    if (found.red >= 0 && found.nir >= 0)
    {
        found.source = QStringLiteral("wavelength");
        return found;
    }
    static const QRegularExpression green(QStringLiteral("^\\s*green\\b|\\bgreen\\s*$|^\\s*b(and)?\\s*green"),
                                          QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression red(QStringLiteral("^\\s*red\\s*$|^\\s*red\\b(?!\\s*edge)"), QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression nir(QStringLiteral("\\bnir\\b|near[ -]?infra-?red"), QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression swir(QStringLiteral("\\bswir\\s*-?\\s*1?\\b|short[ -]?wave"), QRegularExpression::CaseInsensitiveOption);
    OpticalBands named;
    named.green = byDescription(bands, green);
    named.red = byDescription(bands, red);
    named.nir = byDescription(bands, nir);
    named.swir = byDescription(bands, swir);
    for (int i = 0; i < int(bands.size()); ++i)
    {
        if (named.red < 0 && bands[size_t(i)].colour == QLatin1String("Red"))
            named.red = i;
        if (named.green < 0 && bands[size_t(i)].colour == QLatin1String("Green"))
            named.green = i;
    }
    if (named.red >= 0 && named.nir >= 0)
    {
        named.source = QStringLiteral("description");
        return named;
    }
    OpticalBands ordered = byBandCount(int(bands.size()));
    return ordered.nir >= 0 ? ordered : OpticalBands{};
}

std::vector<BandLabel> bandLabels(GDALDataset* dataset)
{
    std::vector<BandLabel> labels;
    for (int b = 1; b <= dataset->GetRasterCount(); ++b)
    {
        GDALRasterBand* band = dataset->GetRasterBand(b);
        BandLabel label;
        label.description = QString::fromUtf8(band->GetDescription());
        label.colour = QString::fromLatin1(GDALGetColorInterpretationName(band->GetColorInterpretation()));
        const char* wavelength = band->GetMetadataItem("wavelength");
        if (!wavelength)
            wavelength = band->GetMetadataItem("WAVELENGTH");
        if (wavelength)
        {
            bool ok = false;
            double value = QString::fromLatin1(wavelength).trimmed().toDouble(&ok);
            const QString units = QString::fromLatin1(band->GetMetadataItem("wavelength_units")).toLower();
            if (ok && value > 0)
            {
                const bool micrometres = units.startsWith(QLatin1String("micro")) || units == QLatin1String("um") ||
                                         (units.isEmpty() && value < 100.0);
                label.wavelengthNm = micrometres ? value * 1000.0 : value;
            }
        }
        labels.push_back(label);
    }
    return labels;
}

} // namespace obia
