// Whether a raster's extent and that of a vector (or raster) file overlap, in the raster's reference system.
#pragma once

#include <QString>

namespace algofactory
{

enum class ExtentRelation
{
    Intersect,
    Disjoint,
    Unknown   // a file does not open or has no extent
};

// The attribute file's extent (all layers of a vector file, or a raster's footprint) is transformed into the
// raster's reference system, densified along its edges; without a reference system on either side the
// coordinates are compared as they stand. Touching edges count as intersecting.
ExtentRelation compareExtents(const QString& rasterPath, const QString& attributePath);

} // namespace algofactory
