// Bounds on buffers sized from a raster's header. A header may claim any size (a forged TIFF says 10^9 x 10^9
// pixels in 16 bytes of data); code that allocates from those sizes checks them here first and refuses the file.
// Shared by the plug-in kit and the library (header only: the library does not link the kit).
#pragma once

#include <QString>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace algokit
{

// One row of every band as doubles. A 100 000-pixel row of 300 bands is 240 MB; no sensor comes near the bound.
constexpr std::size_t kMaxRowBytes = std::size_t(512) << 20;
// Whatever one computation holds of a whole image at once (Fourier transforms hold whole bands).
constexpr std::size_t kMaxImageBytes = std::size_t(4) << 30;

// True when count * size * bytesEach stays within limit; no product is formed, so nothing overflows.
constexpr bool fitsInBytes(std::uint64_t count, std::uint64_t size, std::uint64_t bytesEach, std::size_t limit)
{
    if (count == 0 || size == 0 || bytesEach == 0)
        return true;
    return size <= std::uint64_t(limit) / bytesEach / count;
}

// Rows of rowBytes bytes to hold at once: at most `wanted`, within kMaxRowBytes (one row at least; callers refuse
// rows that do not fit alone with fitsInBytes first).
constexpr int rowsWithin(std::size_t rowBytes, int wanted)
{
    const std::size_t fitting = kMaxRowBytes / std::max<std::size_t>(1, rowBytes);
    return int(std::max<std::size_t>(1, std::min<std::size_t>(std::size_t(std::max(1, wanted)), fitting)));
}

// The refusal; the path, when given, goes first.
inline QString tooLargeMessage(int width, int height, int bands, const QString& path = QString())
{
    const QString text =
        QStringLiteral("The image is too large to read: %1 x %2 pixels in %3 bands.").arg(width).arg(height).arg(bands);
    return path.isEmpty() ? text : path + QStringLiteral(": ") + text;
}

} // namespace algokit
