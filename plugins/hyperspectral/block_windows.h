// Windows over a pixel rectangle that follow the image's natural blocks: columns of whole blocks, walked
// top to bottom. Blocks leave GDAL's cache as soon as the windows that need them are done, so streaming a
// cube keeps about one row of blocks per band in memory, whatever the cube's size.
#pragma once

#include "records/hyperspectral_records.h"

#include <gdal_priv.h>

#include <algorithm>
#include <functional>
#include <vector>

namespace hys
{

// Calls fn(window) for windows of at most about maxPixels pixels covering `rect`; `bands` are 1-based.
inline void forEachWindow(GDALDataset* dataset, const std::vector<int>& bands, const HysPixelRect& rect,
                          size_t maxPixels, const std::function<void(const HysPixelRect&)>& fn)
{
    int blockWidth = 0, blockHeight = 0;
    dataset->GetRasterBand(bands.front())->GetBlockSize(&blockWidth, &blockHeight);
    blockWidth = std::max(1, blockWidth);
    blockHeight = std::max(1, blockHeight);
    // Narrow tiles are grouped so that one read covers at least 256 columns.
    const int columnWidth = blockWidth * std::max(1, (256 + blockWidth - 1) / blockWidth);
    const int right = rect.x + rect.width, bottom = rect.y + rect.height;
    for (int x0 = rect.x; x0 < right;)
    {
        const int x1 = std::min(right, (x0 / columnWidth + 1) * columnWidth);
        int rows = int(std::max<size_t>(1, maxPixels / size_t(x1 - x0)));
        if (rows >= blockHeight)
            rows = rows / blockHeight * blockHeight;
        int nextBlockRow = rect.y / blockHeight;
        for (int y0 = rect.y; y0 < bottom;)
        {
            const int y1 = std::min(bottom, y0 + rows);
            fn(HysPixelRect{x0, y0, x1 - x0, y1 - y0});
            // Block rows wholly above y1 (or all, at the bottom) are no longer needed.
            const int doneBlockRows = y1 == bottom ? (bottom - 1) / blockHeight + 1 : y1 / blockHeight;
            for (; nextBlockRow < doneBlockRows; ++nextBlockRow)
                for (int band : bands)
                    for (int column = x0 / blockWidth; column <= (x1 - 1) / blockWidth; ++column)
                        dataset->GetRasterBand(band)->FlushBlock(column, nextBlockRow, FALSE);
            y0 = y1;
        }
        x0 = x1;
    }
}

} // namespace hys
