// Satellite, sensor, date and level of a product read from its name or its metadata text: plain structs,
// no GDAL, so the readers are tested and fuzzed on their own.
#pragma once

#include <QByteArray>
#include <QString>
#include <utility>
#include <vector>

namespace catalogue
{

struct ProductInfo
{
    QString satellite;   // upper case, as the mission writes it: "LANDSAT_8", "SENTINEL-2A", "GF3", "COSMO-SKYMED-1"
    QString sensor;      // "OLI_TIRS", "MSI", "C-SAR", "PMS1", "AHSI", "QPSI"
    QString acquisition; // UTC, "yyyy-MM-ddTHH:mm:ss" or "yyyy-MM-dd" when only the day is known
    QString level;       // "L1T", "L1C", "GRDH", "SLC", "L1A"
    double cloudPercent = -1.0; // negative: not stated
    QString family;             // "landsat", "sentinel1", "sentinel2", "gf", "zy3", "csk", empty when not recognised
    double pixelSpacingMetres = -1.0; // from a product annotation (radar in sensor geometry); negative: not stated

    bool recognised() const { return !satellite.isEmpty(); }
};

// Fills what `more` knows and `base` does not.
ProductInfo merged(const ProductInfo& base, const ProductInfo& more);

// From a file or folder name (the product naming rules of Landsat, Sentinel-1/2, GF-1/2/3/4/5/6/7, ZY-3,
// COSMO-SkyMed); unrecognised names give an empty record.
ProductInfo recogniseName(const QString& fileName);

// From a Landsat MTL text (ODL "KEY = value" lines).
ProductInfo readLandsatMtl(const QByteArray& text);

// The footprint a product's metadata declares, as (longitude, latitude) vertices of one ring.
using LonLatRing = std::vector<std::pair<double, double>>;

// From a SAFE manifest (Sentinel-1/2); `footprint`, when given, receives the declared footprint.
ProductInfo readSafeManifest(const QByteArray& xml, LonLatRing* footprint = nullptr);

// The pixel spacing of a Sentinel-1 annotation XML (imageInformation): the coarser of range and azimuth spacing
// in metres, negative when neither is stated. Reads only as far as it needs, so a truncated file is fine.
double readSentinel1PixelSpacing(const QByteArray& xml);

// From a product metadata XML of the GF, ZY-3 and Sentinel-2 kind: the first non-empty element among
// the usual names of satellite, sensor, time, level and cloud share.
ProductInfo readMetadataXml(const QByteArray& xml);

// "20150804" -> "2015-08-04", "20220414T102209" -> "2022-04-14T10:22:09", "2018-10-25 10:11:12.5" ->
// "2018-10-25T10:11:12", "2015216" (year and day of year) -> "2015-08-04"; empty when the text is no date.
QString normaliseDateTime(const QString& text);

// Lower case without blanks, '-' and '_': the form in which satellite names are compared.
QString satelliteKey(const QString& name);

} // namespace catalogue
