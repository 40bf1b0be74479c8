// A DEM window held in memory and sampled at geographic positions (bilinear), with its local slope.
#pragma once

#include "raster_io.h"

#include <ogr_spatialref.h>

#include <QString>
#include <memory>
#include <mutex>
#include <vector>

namespace sargeo
{

class DemGrid
{
public:
    // Reads the part of the DEM covering the longitude/latitude box (plus a two-cell margin). Throws
    // algokit::AlgoError when the DEM has no georeferencing, does not cover the box, or the window is too large.
    DemGrid(const QString& path, double west, double south, double east, double north);

    // Height (metres) at a longitude/latitude; false outside the DEM or on no-data. Safe from several threads.
    bool height(double longitude, double latitude, double* h) const;
    // Height and its gradient (metres per metre, towards east and north).
    bool heightAndSlope(double longitude, double latitude, double* h, double* dzEast, double* dzNorth) const;

private:
    bool sample(double column, double row, double* h) const;
    bool toGrid(double longitude, double latitude, double* column, double* row) const;

    std::vector<float> m_heights;
    int m_width = 0, m_height = 0;
    double m_transform[6] = {0, 1, 0, 0, 0, 1}; // of the window
    double m_inverse[6] = {0, 1, 0, 0, 0, 1};
    bool m_geographic = true;
    std::unique_ptr<OGRCoordinateTransformation> m_fromLonLat; // to the DEM's CRS when it is projected
    mutable std::mutex m_transformLock; // a PROJ transformation serves one thread at a time
    double m_noData = 0.0;
    bool m_hasNoData = false;
};

} // namespace sargeo
