// SysDisplay: raster rendering to RGBA pictures for quick looks.
#pragma once

#include "sys_data_source.h"

#include <QImage>

namespace SysDisplay
{

// Renders a raster into a width x height picture (Format_ARGB32_Premultiplied): bands 1-3 as red, green and
// blue, or band 1 in grey when there are fewer than three; each band stretched linearly between the 2nd and
// 98th percentiles of the pixels read; a pixel that is no-data (or NaN) in any shown band is transparent.
// The bands are read at the picture's size through GDAL's decimated reads (its overviews when present), so a
// small picture of a large image never reads the full resolution. A null image when the read fails.
QImage RenderRaster(SysDataSource::RasterDataset* dataset, int width, int height);

// The linear stretch of one band: the 2nd and 98th percentiles of the finite values that are not no-data.
// Returns false when there are none.
bool PercentileStretch(const float* values, size_t count, const unsigned char* invalid, double* low, double* high);

} // namespace SysDisplay
