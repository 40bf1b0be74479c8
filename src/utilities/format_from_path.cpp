// Output raster format from an output path's suffix.
#include "format_from_path.h"

namespace algofactory
{

QString FormatFromPath(const QString& path)
{
    const int dot = path.lastIndexOf(QLatin1Char('.'));
    const QString suffix = dot < 0 ? QString() : path.mid(dot);
    if (suffix == QLatin1String(".tif") || suffix == QLatin1String(".tiff"))
        return QStringLiteral("GTiff");
    if (suffix == QLatin1String(".img"))
        return QStringLiteral("HFA");
    return QStringLiteral("ENVI");
}

} // namespace algofactory
