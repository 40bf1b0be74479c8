// Small georeferenced rasters and polygon shapefiles made with GDAL for the clip and mosaic tests.
#pragma once

#include <gdal_priv.h>

#include <QString>
#include <QStringList>
#include <functional>
#include <string>
#include <vector>

namespace cliptest
{

struct Grid
{
    double originX, originY, pixel; // north-up, square pixels
    int epsg;                       // 0: no reference
};

// A GeoTIFF whose pixel (band, x, y) is value(band, x, y); noData applied when not NaN.
bool makeGridRaster(const QString& path, int width, int height, int bands, GDALDataType type, const Grid& grid,
                    const std::function<double(int, int, int)>& value, double noData = std::nan(""));

// A WGS 84 polygon shapefile with a text field NAME; an empty WKT gives a feature without geometry.
bool makeShapefile(const QString& path, const std::vector<std::pair<std::string, std::string>>& nameAndWkt);

struct RasterInfo
{
    int width = 0, height = 0, bands = 0;
    double transform[6] = {0, 0, 0, 0, 0, 0};
    std::string driver;
    bool hasNoData = false;
    double noData = 0.0;
};
RasterInfo rasterInfo(const QString& path);

// Folders directly inside dir (names only).
QStringList subfolders(const QString& dir);

} // namespace cliptest
