// Parameter records of the clip ("ImageClipAlgo") and mosaic ("ImageMosaic") plug-ins, fields in the
// order the entries fill them.
#pragma once

#include "../algorithm_interface.h"
#include "../../../platform/sys_carto.h"

#include <QString>
#include <QStringList>
#include <vector>

#pragma GCC visibility push(default)

// One clip: a pixel rectangle (useRegion 0) or the polygons of a region file used as a cutline (useRegion 1).
struct ImageClipParam
{
    QString inputFile;
    QString regionFile;        // empty for the rectangle; a polygon vector file (UTF-8 path) otherwise
    QString outputFile;        // format from the suffix
    QString inputFormat;       // GDAL driver of the input, for the record
    std::vector<int> bands;    // 0-based bands to keep; empty keeps all
    int useRegion = 0;
    int x0 = 0;                // rectangle, pixels, both ends inclusive, in the order of the range text
    int x1 = 0;
    int y0 = 0;
    int y1 = 0;
    double scaleX = 1.0;       // output pixel size as a multiple of the input's
    double scaleY = 1.0;
    QString algoName = QStringLiteral("ImageClipAlgo");
    bool writeAlpha = false;   // mark the outside by an alpha band instead of the no-data value
    int warpMemoryMb = 0;      // 0: GDAL's default working memory
};

// One mosaic product: the inputs as host raster layers, drawn in order (later over earlier).
struct ImageMosaicItem
{
    QString outputFile;
    QString format;            // GDAL driver from the output suffix
    int quick = 1;             // 1: layers in order; 0: each layer limited to its mosaic face
    int maskFilter = 0;        // 1: pixels of value 0 count as background in inputs without a no-data value
    int reserved = 0;
    std::vector<SysUtility::_ptr_t<SysCarto::RasterLayer>> layers; // an empty reference skips that input
    QStringList faces;         // full mosaic: WKT of each layer's face in the first layer's reference
};

struct ImageMosaicParam
{
    std::vector<ImageMosaicItem> items;
    int threads = 0;           // 0: all cores
};

#pragma GCC visibility pop
