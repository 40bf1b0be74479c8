// Index entries (one footprint and its attributes per product), and the footprint index as a vector file.
#pragma once

#include "footprint.h"
#include "product_scan.h"

#include <QString>
#include <QStringList>
#include <functional>
#include <vector>

namespace catalogue
{

struct IndexEntry
{
    QString path;
    QString fileName;
    ProductInfo info;
    double resolutionMetres = 0.0;
    int bandCount = 0;
    QString srs;
    GeometryPtr footprint; // WGS 84; null when none could be made
    GeometryPtr native;    // the footprint in the image's own reference system, when it has one
    QString error;         // why there is no footprint
};

// Footprint and attributes of one item (opens its raster; a SAFE folder keeps its declared footprint).
IndexEntry describeItem(const CatalogueItem& item, const FootprintOptions& options);

// describeItem over all items on both cores; progress(done, total) from the calling thread.
std::vector<IndexEntry> describeItems(const std::vector<CatalogueItem>& items, const FootprintOptions& options,
                                      const std::function<void(int done, int total)>& progress);

// The OGR driver for an index path by its suffix (.gpkg, .shp, .geojson/.json), or empty.
QString indexDriverForPath(const QString& path);

// The attribute fields of an index, in order (shapefile names, at most 10 characters).
QStringList indexFieldNames();

// Writes entries with a footprint as a multipolygon layer in WGS 84; an existing file is replaced.
bool writeIndex(const QString& path, const std::vector<IndexEntry>& entries, QString* error);

// Deletes an index file set through its driver (a shapefile's .shx, .dbf and .prj too).
void deleteIndex(const QString& path);

// What an index says of one image.
struct IndexRow
{
    QString path;
    ProductInfo info;
    GeometryPtr footprint; // WGS 84
};

struct IndexContent
{
    QString layerName;
    QStringList fields; // name:type
    std::vector<IndexRow> rows;
};

// Reads the first layer of a vector index; false (and `error`) when the file is not a vector dataset.
bool readIndex(const QString& path, IndexContent& content, QString* error);

} // namespace catalogue
