// Bands of several rasters gathered onto one pixel grid as a virtual raster, then written or saved as .vrt.
#pragma once

#include "gdal_progress.h"
#include "raster_io.h"

#include <gdal_priv.h>

#include <QString>
#include <string>
#include <vector>

namespace datautil
{

// A pixel grid: reference system (WKT, empty when none), north-up geotransform and size.
struct RasterGrid
{
    std::string wkt;
    double geoTransform[6] = {0, 1, 0, 0, 0, 1};
    int width = 0;
    int height = 0;
    bool georeferenced = false;
};

RasterGrid gridOf(GDALDataset* dataset);

// Whether two reference systems are the same (both empty counts as the same).
bool sameReferenceSystem(const std::string& a, const std::string& b);

// The extent of a dataset (minX, minY, maxX, maxY) in the reference system wkt; false when it cannot be
// transformed there.
bool extentIn(GDALDataset* dataset, const std::string& wkt, double extent[4]);

// A classification image: one band with a colour table (or category names): resampled with nearest.
bool isClassImage(GDALDataset* dataset);

// One output band: a band of an input, and how to bring it onto the grid.
struct BandPick
{
    GDALDataset* source = nullptr;
    int band = 1; // 1-based
    bool nearest = false;
};

// The stack being built: the virtual raster and the warped inputs it reads from (kept open with it).
class BandStack
{
public:
    // vrtPath: the .vrt file to save, or empty for a stack kept in memory.
    BandStack(const RasterGrid& grid, GDALDataType type, const QString& vrtPath = QString());
    ~BandStack();
    BandStack(const BandStack&) = delete;
    BandStack& operator=(const BandStack&) = delete;

    // Adds one band; a source in another reference system is warped (not possible in a saved .vrt: false).
    bool add(const BandPick& pick);
    GDALDataset* dataset() const { return m_vrt; }
    // Saves the .vrt (for a stack made with a path); false with GDAL's message in *error on failure.
    bool save(QString* error);

private:
    GDALDataset* warped(GDALDataset* source, bool nearest);

    RasterGrid m_grid;
    GDALDataType m_type;
    QString m_vrtPath;
    GDALDataset* m_vrt = nullptr;
    std::vector<std::pair<std::pair<GDALDataset*, bool>, GDALDataset*>> m_warped;
};

// The widest pixel type of the picked bands.
GDALDataType widestType(const std::vector<BandPick>& picks);

// Writes the stack to path (format by suffix; GeoTIFF tiled and band-interleaved) band by band in large row blocks;
// formats GDAL only copies (PNG, JPEG) go through its translator.
void writeStack(GDALDataset* stack, const QString& path, algokit::GdalProgress* bridge);

} // namespace datautil
