// Whether an entry's input exists: local paths through the file system, GDAL virtual paths
// (/vsicurl/, /vsis3/, /vsizip/, ...) through GDAL's own file systems.
#pragma once

#include <QString>

namespace algofactory
{

bool isVirtualPath(const QString& path);
bool inputExists(const QString& path);

} // namespace algofactory
