// Vector layers of the data utilities: opening an input layer with refusals naming the key, and creating an output
// layer whose format follows the path's suffix.
#pragma once

#include "generic_params.h"

#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include <QString>

namespace datautil
{

struct VectorInput
{
    GDALDatasetUniquePtr dataset;
    OGRLayer* layer = nullptr; // the first layer
};

// Opens the first layer of a vector file; refuses a missing path, a raster, a file without layers or features.
VectorInput openVectorItem(const algokit::GenericParams& args, const QString& key, const QString& path);

// The OGR driver for an output path: .shp "ESRI Shapefile", .geojson/.json "GeoJSON", .gpkg "GPKG", .kml "KML";
// empty for any other suffix.
QString vectorDriverForPath(const QString& path);

// GDAL's path helpers (which the shapefile driver uses for its side-car files) work on at most 2048 bytes and
// fall back to the working folder beyond: output vector paths are kept well inside that.
constexpr int kMaxVectorPathBytes = 1024;
bool vectorPathFits(const QString& path);

// Creates the output data source (an existing one is replaced); throws AlgoError with GDAL's message.
GDALDatasetUniquePtr createVectorOutput(const QString& path);

// Removes a vector file and the side-car files of its format (.shx, .dbf, .prj, .cpg, .qix for shapefiles).
void removeVectorFiles(const QString& path);

// The geometry type of an output layer of polygons: single polygons in shapefiles (which take multipolygons
// too), multipolygons elsewhere.
OGRwkbGeometryType polygonLayerType(const QString& driver);

// Copies the field definitions of a layer into another; with `only` non-empty just those fields. Returns for each
// copied field its index in the source.
std::vector<int> copyFields(OGRFeatureDefn* from, OGRLayer* to, const QStringList& only = QStringList());

} // namespace datautil
