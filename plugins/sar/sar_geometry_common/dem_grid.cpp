// DEM window sampling.
#include "dem_grid.h"

#include "geodesy.h"

#include <gdal_alg.h>

#include <algorithm>
#include <cmath>

namespace sargeo
{

DemGrid::DemGrid(const QString& path, double west, double south, double east, double north)
{
    algokit::DatasetPtr dem = algokit::openRaster(path);
    double transform[6];
    const OGRSpatialReference* srs = dem->GetSpatialRef();
    if (dem->GetGeoTransform(transform) != CE_None || !srs || transform[2] != 0.0 || transform[4] != 0.0)
        throw algokit::AlgoError(QStringLiteral("the DEM %1 has no north-up georeferencing").arg(path));
    m_geographic = srs->IsGeographic();
    OGRSpatialReference wgs84;
    wgs84.SetWellKnownGeogCS("WGS84");
    wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    OGRSpatialReference target(*srs);
    target.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    if (!m_geographic)
    {
        m_fromLonLat.reset(OGRCreateCoordinateTransformation(&wgs84, &target));
        if (!m_fromLonLat)
            throw algokit::AlgoError(QStringLiteral("the DEM %1 has a CRS that cannot be reached from WGS 84").arg(path));
    }
    // The box in DEM pixels (corners and edge midpoints, enough for the small boxes of a scene).
    double c0 = 1e300, c1 = -1e300, r0 = 1e300, r1 = -1e300;
    if (!GDALInvGeoTransform(transform, m_inverse))
        throw algokit::AlgoError(QStringLiteral("the DEM %1 has a singular geotransform").arg(path));
    for (int i = 0; i <= 4; ++i)
        for (int j = 0; j <= 4; ++j)
        {
            double x = west + (east - west) * i / 4.0, y = south + (north - south) * j / 4.0;
            if (m_fromLonLat && !m_fromLonLat->Transform(1, &x, &y))
                throw algokit::AlgoError(QStringLiteral("the scene cannot be placed in the DEM's CRS"));
            const double c = m_inverse[0] + m_inverse[1] * x + m_inverse[2] * y;
            const double r = m_inverse[3] + m_inverse[4] * x + m_inverse[5] * y;
            c0 = std::min(c0, c), c1 = std::max(c1, c), r0 = std::min(r0, r), r1 = std::max(r1, r);
        }
    const int w = dem->GetRasterXSize(), h = dem->GetRasterYSize();
    if (c0 < -0.5 || r0 < -0.5 || c1 > w - 0.5 || r1 > h - 0.5)
        throw algokit::AlgoError(QStringLiteral("does not cover the scene"));
    const int x0 = std::max(0, int(std::floor(c0)) - 2), y0 = std::max(0, int(std::floor(r0)) - 2);
    const int x1 = std::min(w - 1, int(std::ceil(c1)) + 2), y1 = std::min(h - 1, int(std::ceil(r1)) + 2);
    m_width = x1 - x0 + 1;
    m_height = y1 - y0 + 1;
    if (double(m_width) * double(m_height) * 4.0 > double(algokit::kMaxImageBytes))
        throw algokit::AlgoError(QStringLiteral("the DEM window over the scene is too large to hold"));
    m_heights.resize(size_t(m_width) * size_t(m_height));
    GDALRasterBand* band = dem->GetRasterBand(1);
    if (band->RasterIO(GF_Read, x0, y0, m_width, m_height, m_heights.data(), m_width, m_height, GDT_Float32, 0, 0) !=
        CE_None)
        throw algokit::AlgoError(QStringLiteral("the DEM %1 cannot be read").arg(path));
    int hasNoData = 0;
    m_noData = band->GetNoDataValue(&hasNoData);
    m_hasNoData = hasNoData != 0;
    std::copy(transform, transform + 6, m_transform);
    m_transform[0] += x0 * transform[1];
    m_transform[3] += y0 * transform[5];
    if (!GDALInvGeoTransform(m_transform, m_inverse))
        throw algokit::AlgoError(QStringLiteral("the DEM %1 has a singular geotransform").arg(path));
}

bool DemGrid::toGrid(double longitude, double latitude, double* column, double* row) const
{
    double x = longitude, y = latitude;
    if (m_fromLonLat)
    {
        std::lock_guard<std::mutex> lock(m_transformLock);
        if (!m_fromLonLat->Transform(1, &x, &y))
            return false;
    }
    // Pixel-is-area: sample centres sit at half-integers of the geotransform.
    *column = m_inverse[0] + m_inverse[1] * x + m_inverse[2] * y - 0.5;
    *row = m_inverse[3] + m_inverse[4] * x + m_inverse[5] * y - 0.5;
    return true;
}

bool DemGrid::sample(double column, double row, double* h) const
{
    if (!(column >= 0.0) || !(row >= 0.0) || column > m_width - 1 || row > m_height - 1)
        return false;
    const int c = std::min(int(column), m_width - 2 < 0 ? 0 : m_width - 2);
    const int r = std::min(int(row), m_height - 2 < 0 ? 0 : m_height - 2);
    const double fc = column - c, fr = row - r;
    const int c1 = std::min(c + 1, m_width - 1), r1 = std::min(r + 1, m_height - 1);
    const float v[4] = {m_heights[size_t(r) * size_t(m_width) + size_t(c)],
                        m_heights[size_t(r) * size_t(m_width) + size_t(c1)],
                        m_heights[size_t(r1) * size_t(m_width) + size_t(c)],
                        m_heights[size_t(r1) * size_t(m_width) + size_t(c1)]};
    for (float value : v)
        if (!std::isfinite(value) || (m_hasNoData && double(value) == m_noData))
            return false;
    *h = (1 - fr) * ((1 - fc) * v[0] + fc * v[1]) + fr * ((1 - fc) * v[2] + fc * v[3]);
    return true;
}

bool DemGrid::height(double longitude, double latitude, double* h) const
{
    double column, row;
    return toGrid(longitude, latitude, &column, &row) && sample(column, row, h);
}

bool DemGrid::heightAndSlope(double longitude, double latitude, double* h, double* dzEast, double* dzNorth) const
{
    double column, row;
    if (!toGrid(longitude, latitude, &column, &row) || !sample(column, row, h))
        return false;
    // Central differences one DEM cell apart (clamped at the window's edge).
    double west, east, south, north;
    if (!sample(std::max(0.0, column - 1), row, &west) || !sample(std::min(m_width - 1.0, column + 1), row, &east) ||
        !sample(column, std::max(0.0, row - 1), &north) || !sample(column, std::min(m_height - 1.0, row + 1), &south))
        return false;
    const double dc = std::min(m_width - 1.0, column + 1) - std::max(0.0, column - 1);
    const double dr = std::min(m_height - 1.0, row + 1) - std::max(0.0, row - 1);
    double metresPerColumn = std::abs(m_transform[1]), metresPerRow = std::abs(m_transform[5]);
    if (m_geographic)
    {
        metresPerRow *= 111320.0;
        metresPerColumn *= 111320.0 * std::cos(latitude * kDegree);
    }
    *dzEast = dc > 0 ? (east - west) / (dc * metresPerColumn) : 0.0;
    // Rows run south when the geotransform's row step is negative (north-up).
    const double northSign = m_transform[5] < 0 ? 1.0 : -1.0;
    *dzNorth = dr > 0 ? northSign * (north - south) / (dr * metresPerRow) : 0.0;
    return true;
}

} // namespace sargeo
