// Pictures for reports and ingest: a stretched thumbnail of a raster and an overview map of footprints.
#pragma once

#include <gdal_priv.h>
#include <ogr_geometry.h>

#include <QByteArray>
#include <QImage>
#include <vector>

namespace catalogue
{

// The first three bands as RGB (one band as grey), read at most `maxSize` pixels on the longer side and
// stretched linearly between the 2 % and 98 % of each band's valid values; invalid pixels transparent.
QImage renderThumbnail(GDALDataset* dataset, int maxSize);

// Footprints (longitude/latitude) drawn on a graticule of their common extent; `highlight` (or -1) filled.
QImage drawFootprintMap(const std::vector<const OGRGeometry*>& footprints, int highlight, int width, int height);

// The image as PNG bytes.
QByteArray pngBytes(const QImage& image);

// Per-band stretch limits: the values at fractions `low` and `high` of the sorted valid values; a band
// with no valid value gives (0, 0).
std::pair<double, double> stretchLimits(std::vector<double> values, double low, double high);

} // namespace catalogue
