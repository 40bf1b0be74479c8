// The sizes of a quick look: the rendering size of a raster and the size actually read for a thumbnail box.
#include "thumbnail_size.h"

#include <QtGlobal>
#include <algorithm>
#include <cmath>

namespace algofactory
{

QSize thumbRenderSize(int width, int height)
{
    if (width > 2000 || height >= 2001)
        return QSize(qRound(width / 2.0), qRound(height / 2.0));
    return QSize(width, height);
}

QSize thumbFinalSize(QSize rendered, int boxEdge, bool keepRatio)
{
    return rendered.scaled(boxEdge, boxEdge, keepRatio ? Qt::KeepAspectRatio : Qt::IgnoreAspectRatio);
}

QSize thumbReadSize(QSize rendered, QSize final)
{
    if (rendered.isEmpty() || final.isEmpty())
        return rendered;
    const double factor = std::min(1.0, std::max(2.0 * final.width() / rendered.width(),
                                                 2.0 * final.height() / rendered.height()));
    return QSize(std::max(1, int(std::lround(rendered.width() * factor))),
                 std::max(1, int(std::lround(rendered.height() * factor))));
}

} // namespace algofactory
