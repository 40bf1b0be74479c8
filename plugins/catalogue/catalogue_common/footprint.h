// The valid-data footprint of a raster: mask of valid pixels at a reduced resolution, polygonised,
// simplified and placed in WGS 84 through GDAL's generic transformer (geotransform, GCPs, RPC, geolocation).
#pragma once

#include "product_recognition.h"

#include <gdal_priv.h>
#include <ogr_geometry.h>

#include <QString>
#include <memory>
#include <utility>
#include <vector>

namespace catalogue
{

using GeometryPtr = std::unique_ptr<OGRGeometry>;

struct FootprintOptions
{
    // Longest side of the reduced mask, in cells.
    int maskSize = 256;
    // When no band declares no-data (nor a mask or alpha), pixels that are 0 in every band are fill: the
    // convention of delivered optical products (Landsat, Sentinel-2, GF).
    bool zeroIsFill = false;
    // Douglas-Peucker tolerance in mask cells.
    double simplifyCells = 1.0;
};

struct Footprint
{
    GeometryPtr wgs84;             // (multi)polygon, longitude/latitude order; null when the image has no valid pixel
    GeometryPtr native;            // the same in the image's own reference system (geotransformed images only)
    QString nativeSrs;             // "EPSG:32616", a reference-system name, or empty
    double resolutionMetres = 0.0; // ground pixel size, approximate for sensor geometry
    double validShare = 0.0;       // valid cells / all cells of the mask
};

// The outline of a mask whose valid cells form one run per row, the runs of consecutive rows sharing a column
// (the usual valid area of a scene: convex along rows): the staircase ring, closed, in cell corner coordinates.
// False when the mask is not of that shape (several runs in a row, a gap between rows, no valid cell).
bool rowRunOutline(const unsigned char* mask, int w, int h, std::vector<std::pair<double, double>>& ring);

// Throws nothing; `error` receives why no footprint could be made (no georeferencing, read failure).
Footprint computeFootprint(GDALDataset* dataset, const FootprintOptions& options, QString* error);

// A polygon in WGS 84 from a ring of (longitude, latitude) vertices, as products declare them.
GeometryPtr polygonFromRing(const LonLatRing& ring);

// WGS 84 with longitude first, as GIS files hold it.
const OGRSpatialReference& wgs84();

// Area of a longitude/latitude geometry in square metres on a sphere of the WGS 84 mean radius
// (an equal-area approximation, good to about 0.5 % for scene-sized polygons).
double areaSquareMetres(const OGRGeometry& lonLat);

} // namespace catalogue
