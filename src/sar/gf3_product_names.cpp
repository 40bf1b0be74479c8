// Name parts of GF-3 products.
#include "gf3_product_names.h"

#include <QFileInfo>
#include <QStringList>

namespace algofactory
{

Gf3ImagingTime gf3ImagingTime(const QString& centerTime)
{
    const QStringList dateAndTime = centerTime.split(' ');
    Gf3ImagingTime parts;
    parts.date = dateAndTime.value(0).split('-').mid(0, 3).join(QString());
    parts.time = dateAndTime.value(1).split(':').mid(0, 3).join(QString()).left(6);
    return parts;
}

QString gf3ProductNumber(const QString& path)
{
    const QString stem = QFileInfo(path).completeBaseName();
    return stem.mid(stem.lastIndexOf('_') + 1, 12);
}

QString localText(const char* text)
{
    return text ? QString::fromLocal8Bit(text) : QString();
}

} // namespace algofactory
