// The sizes of a quick look: the rendering size of a raster and the size actually read for a thumbnail box.
#pragma once

#include <QSize>

namespace algofactory
{

// Full size, or both halved (rounded) once when the width is above 2000 or the height 2001 or more.
QSize thumbRenderSize(int width, int height);

// The rendered size scaled into the box of boxEdge x boxEdge (aspect kept or not).
QSize thumbFinalSize(QSize rendered, int boxEdge, bool keepRatio);

// What is read from the file: the rendered size, reduced (aspect kept) to twice the final thumbnail in its larger
// relative dimension, since every pixel beyond that is thrown away by the smooth scaling into the box.
QSize thumbReadSize(QSize rendered, QSize final);

} // namespace algofactory
