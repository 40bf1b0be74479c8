// Shared input handling of the hyperspectral entries.
#include "hyperspectral_input.h"

#include <QFileInfo>
#include <QStringList>
#include <iostream>
#include <ostream>

namespace algofactory
{

void printWithPointerTail(const char* text)
{
    using LineEnd = std::ostream& (*)(std::ostream&);
    const LineEnd lineEnd = &std::endl<char, std::char_traits<char>>;
    std::cout << text << reinterpret_cast<const void*>(lineEnd);
    std::cout.flush();
}

QString wavelengthUnit(double firstWavelength)
{
    if (firstWavelength > 100.0)
        return QStringLiteral("nm");
    if (firstWavelength > 0.0 && firstWavelength < 10.0)
        return QStringLiteral("um");
    return QStringLiteral("None");
}

Wavelengths readWavelengths(GDALDataset* dataset)
{
    Wavelengths result;
    const int count = dataset->GetRasterCount();
    result.values.reserve(count);
    for (int band = 1; band <= count; ++band)
    {
        const char* item = dataset->GetRasterBand(band)->GetMetadataItem("wavelength");
        result.values.push_back(item ? QString::fromUtf8(item).trimmed().toDouble() : 0.0);
    }
    result.unit = wavelengthUnit(result.values.empty() ? 0.0 : result.values.front());
    return result;
}

bool parseBandList(const QString& bands, int bandCount, int addend, HysBandList& list)
{
    list.bands.clear();
    if (bands.isEmpty())
    {
        for (int band = 0; band < bandCount; ++band)
            list.bands.push_back(band);
        list.base = 0;
        return true;
    }
    const QStringList parts = bands.split('|');
    if (parts.isEmpty())
        return false;
    for (const QString& part : parts)
        list.bands.push_back(part.toInt() + addend);
    // Statistics add one and hand over band numbers; the quality measures store the zero-based list as given,
    // like their default list.
    list.base = addend > 0 ? 1 : 0;
    return true;
}

HysPixelRect parseRegion(const QString& region, int width, int height)
{
    const QStringList parts = region.split('|');
    HysPixelRect rect;
    if (parts.size() == 4)
    {
        const int x0 = parts[0].toInt();
        const int x1 = parts[1].toInt();
        const int y0 = parts[2].toInt();
        const int y1 = parts[3].toInt();
        rect.x = x0;
        rect.y = y0;
        rect.width = x1 - x0 + 1;
        rect.height = y1 - y0 + 1;
        return rect;
    }
    rect.width = width;
    rect.height = height;
    return rect;
}

QString picturePathFor(const QString& textPath)
{
    const QFileInfo info(textPath);
    return info.absolutePath() + "/" + info.baseName() + ".png";
}

} // namespace algofactory
