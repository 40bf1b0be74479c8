// Whether an entry's input exists, asking GDAL about its virtual file systems.
#include "input_path.h"

#include <QFileInfo>
#include <cpl_vsi.h>

namespace algofactory
{

bool isVirtualPath(const QString& path)
{
    return path.startsWith(QLatin1String("/vsi"));
}

bool inputExists(const QString& path)
{
    if (path.isEmpty())
        return false;
    if (!isVirtualPath(path))
        return QFileInfo::exists(path);
    // A remote object answers a HEAD (or ranged GET) request; no listing of its folder is needed.
    VSIStatBufL stat;
    return VSIStatExL(path.toUtf8().constData(), &stat, VSI_STAT_EXISTS_FLAG) == 0;
}

} // namespace algofactory
