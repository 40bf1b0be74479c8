// CGrapgColor: a hand-picked palette first, then golden-ratio hue steps at readable saturation.
#include "graph_color.h"

#include <cmath>
#include <iterator>

namespace
{

// Strong colours that stay distinct on a white background and in grey print.
const QRgb kPalette[] = {0x1f77b4, 0xd62728, 0x2ca02c, 0xff7f0e, 0x9467bd, 0x8c564b, 0xe377c2, 0x17becf, 0x7f7f7f,
                         0xbcbd22};

} // namespace

QColor CGrapgColor::CreateColor()
{
    const int index = m_index++;
    const int paletteSize = int(std::size(kPalette));
    if (index < paletteSize)
        return QColor(kPalette[index]);
    // Beyond the palette: the golden ratio spreads hues evenly; value stays below 0.8 for contrast
    // against the white plot background.
    const double hue = std::fmod(0.11 + (index - paletteSize) * 0.618033988749895, 1.0);
    const double value = (index % 2 == 0) ? 0.75 : 0.55;
    return QColor::fromHsvF(hue, 0.85, value);
}
