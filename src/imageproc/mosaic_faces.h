// Mosaic faces: the part of the mosaic each input supplies (its footprint less the later inputs' footprints,
// within an optional mask region), as WKT in the first input's reference.
#pragma once

#include <QString>
#include <QStringList>

namespace algofactory
{

// One face per input path, in order; an input that supplies nothing gets an empty text. maskFile, when not
// empty, is a polygon vector file whose features bound the mosaic. False when a file cannot be read.
bool buildMosaicFaces(const QStringList& inputs, const QString& maskFile, QStringList* faces);

} // namespace algofactory
