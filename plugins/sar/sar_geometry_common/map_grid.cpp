// UTM grid helpers.
#include "map_grid.h"

#include "plugin_base.h"

#include <algorithm>
#include <cmath>

namespace sargeo
{

int utmEpsgFor(double latitude, double longitude)
{
    const int zone = std::max(1, std::min(60, int(std::floor((longitude + 180.0) / 6.0)) + 1));
    return (latitude >= 0 ? 32600 : 32700) + zone;
}

std::unique_ptr<OGRCoordinateTransformation> lonLatTransform(int epsg, bool inverse)
{
    OGRSpatialReference wgs84, map;
    wgs84.SetWellKnownGeogCS("WGS84");
    map.importFromEPSG(epsg);
    wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    map.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    std::unique_ptr<OGRCoordinateTransformation> t(inverse ? OGRCreateCoordinateTransformation(&map, &wgs84)
                                                           : OGRCreateCoordinateTransformation(&wgs84, &map));
    if (!t)
        throw algokit::AlgoError(QStringLiteral("No transformation between WGS 84 and EPSG:%1").arg(epsg));
    return t;
}

} // namespace sargeo
