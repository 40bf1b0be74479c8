// The map grids radar products are put on: UTM of the scene centre, transformations to and from WGS 84.
#pragma once

#include <ogr_spatialref.h>

#include <memory>

namespace sargeo
{

// EPSG code of the WGS 84 / UTM zone holding a point (326xx north, 327xx south).
int utmEpsgFor(double latitude, double longitude);

// WGS 84 longitude/latitude to the EPSG code's coordinates (inverse: back), in GIS axis order; throws
// algokit::AlgoError when PROJ cannot make it.
std::unique_ptr<OGRCoordinateTransformation> lonLatTransform(int epsg, bool inverse = false);

} // namespace sargeo
