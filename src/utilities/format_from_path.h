// Output raster format from an output path's suffix.
#pragma once

#include <QString>

namespace algofactory
{

// The text from the last "." to the end, compared case-sensitively: ".tif"/".tiff" give "GTiff",
// ".img" gives "HFA", anything else (upper-case suffixes and no suffix included) "ENVI".
QString FormatFromPath(const QString& path);

} // namespace algofactory
