// Fixtures of the data-utility tests: grids and colour tables set on test rasters, small vector files, and the
// outcome of one entry call (return value, printed text, result record).
#pragma once

#include "test_support.h"

#include <QString>
#include <functional>
#include <string>
#include <vector>

namespace datafixtures
{

// Sets a north-up grid (origin, square pixel size) and, when epsg > 0, a reference system on a raster.
void setGrid(const QString& path, double originX, double originY, double pixelSize, int epsg = 32650);

// Gives band 1 a colour table of `classes` entries (entry i: (10 i, 20 i, 30 i)) and category names "c<i>".
void makeClassImage(const QString& path, int classes);

struct VectorFeature
{
    std::string wkt;
    std::vector<double> values; // one per numeric field, in order
    std::string name;           // the text field "name"
};

// A polygon (or other) layer: numeric fields named in `fields` (Real), then the text field "name".
bool makeVector(const QString& path, int epsg, const std::vector<std::string>& fields,
                const std::vector<VectorFeature>& features, const char* driver = "ESRI Shapefile");

struct Outcome
{
    bool ok = false;
    std::string printed;
    std::string message; // the result record's message
};

// Calls the entry with a recording result and captured standard output.
Outcome call(const std::function<bool(AlgoResult*)>& entry);

// The value of the [OUTPUT] line for key, or empty.
std::string outputLine(const std::string& printed, const std::string& key);

// Files in a folder (names), sorted.
QStringList filesIn(const QString& folder);

} // namespace datafixtures
