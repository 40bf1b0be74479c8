// Fixtures of the optical tests: small metadata texts written here, and sample products assembled in a
// temporary folder from ../shared/data.
#pragma once

#include <QString>
#include <QStringList>
#include <string>

namespace opticalfixtures
{

// A Sentinel-2 product XML. baseline "02.01" or "04.00"; withOffsets lists RADIO_ADD_OFFSET (BOA_ADD_OFFSET for
// L2A) -1000 for every band; granule names the GRANULE/<granule> folder of the image paths.
std::string sentinel2ProductXml(const std::string& level, const std::string& baseline, bool withOffsets,
                                const std::string& granule = "L1C_T18SVG_A002939_20160112T155852");
// A tile XML with the mean sun angles.
std::string sentinel2TileXml(double zenith, double azimuth);

// Writes text to a file; false on failure.
bool writeText(const QString& path, const std::string& text);

// A Sentinel-2 SAFE folder under `folder` holding the sample's 20 m and 60 m bands (symbolic links) at the
// paths its product XML names; returns the SAFE folder, or empty when ../shared/data is absent.
QString makeSentinel2Safe(const QString& folder, const std::string& level, const std::string& baseline,
                          bool withOffsets);

// Links the Landsat 8 sample's files into `folder` (all when names is empty); false when the sample is absent.
bool linkLandsatSample(const QString& folder, const QStringList& names = {});

} // namespace opticalfixtures
