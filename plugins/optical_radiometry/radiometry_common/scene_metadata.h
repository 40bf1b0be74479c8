// The radiometric metadata of a scene, wherever it comes from (Landsat MTL, Sentinel-2 product XML, coefficient
// table), found beside an image when not given, and tied band by band to the bands of a raster.
#pragma once

#include "calibration_kernels.h"
#include "coefficient_table.h"
#include "landsat_mtl.h"
#include "sentinel2_mtd.h"

#include <gdal_priv.h>

#include <QString>
#include <string>
#include <vector>

namespace radiometry
{

enum class ProductKind
{
    Landsat,
    Sentinel2,
    Table
};

struct SceneMetadata
{
    ProductKind kind = ProductKind::Table;
    QString metadataPath;  // the file that was read
    QString productFolder; // the folder image paths of the metadata are relative to
    optical::SunGeometry sun;
    optical::AcquisitionDate date;
    std::vector<optical::BandCoefficients> bands; // every band the metadata describes, in product order
    optical::LandsatMetadata landsat;             // kind Landsat
    optical::Sentinel2Metadata sentinel2;         // kind Sentinel2
    QString tableSensor;                          // kind Table: the sensor whose rows were taken, if rows name one

    const optical::BandCoefficients* band(const std::string& id) const;
    // Bands a product stacks by default: the 30 m reflective bands of Landsat, every Sentinel-2 band, every row.
    std::vector<std::string> stackBandIds() const;
};

// The text of a small file, read through GDAL's virtual file systems (so /vsizip/ paths work). Throws
// optical::ProductError when it cannot be read or exceeds maxBytes.
std::string readSmallFile(const QString& path, size_t maxBytes = 32u << 20);

// Reads the metadata file at `path`, recognising its kind by content. imagePath (may be empty) picks the sensor
// of a table whose rows name sensors: the one whose name starts the image's file name. Throws
// optical::ProductError naming the problem.
SceneMetadata loadSceneMetadata(const QString& path, const QString& imagePath = QString());

// The coefficients a stack of ours carries in its band metadata (RADIANCE_MULT, ... beside BAND_ID), with the
// sun geometry of its dataset metadata; false when some band carries none.
bool sceneFromBandMetadata(GDALDataset* dataset, SceneMetadata* scene);

// Writes a band's coefficients as band metadata items, and the sun geometry and date on the dataset, so that
// the stack can be calibrated without its product metadata.
void writeCoefficients(GDALRasterBand* band, const optical::BandCoefficients& coefficients);
void writeSceneGeometry(GDALDataset* dataset, const SceneMetadata& scene);

// The Landsat MTL or Sentinel-2 product XML delivered with an image file, or an empty text.
QString findMetadataBeside(const QString& imagePath);

// The image of a Landsat band beside its MTL: the file the MTL names, else <MTL prefix>_B<id> with a TIFF
// suffix (deliveries are often renamed), case ignored; empty when there is none.
QString landsatBandFile(const QString& mtlPath, const optical::BandCoefficients& band);

// The product XML of a Sentinel-2 product given as a SAFE folder, a .zip or the XML itself (a /vsizip/ path
// for a zip), or an empty text.
QString sentinel2ProductXml(const QString& productPath);

// The product band id of each band of a raster (empty where none can be told): a BAND_ID band metadata item,
// else the file's name for a one-band file, else the product's stack order when the band count matches it.
std::vector<std::string> bandIdsOf(GDALDataset* dataset, const QString& path, const SceneMetadata& scene);

// How no data is recognised in the product's DN: the band's no-data value, and 0 for Landsat and Sentinel-2.
NoDataRule noDataRuleOf(GDALRasterBand* band, const SceneMetadata& scene);

} // namespace radiometry
