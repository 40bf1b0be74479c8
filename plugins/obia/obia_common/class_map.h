// What the change and class-map plug-ins share about their outputs: the raster formats they can write,
// outputs that would overwrite an input, class counts, and sieving small patches away.
#pragma once

#include "generic_params.h"
#include "raster_io.h"
#include "thresholds.h"

#include <QString>
#include <functional>
#include <vector>

namespace obia
{

// Value of the change and water maps where an input has no data.
constexpr unsigned char kMapNoData = 255;

// The GDAL driver for a raster output path; refuses, naming the key, the suffixes of formats that cannot be
// written block by block (.png, .jpg, .vrt).
QString rasterDriverFor(const algokit::GenericParams& args, const QString& key, const QString& path);

// Refuses when the output path names the same file as an input.
void refuseSameFile(const algokit::GenericParams& args, const QString& outputKey, const QString& output,
                    const QString& inputKey, const QString& input);

// Pixels per value 0..classes-1 of a Byte band (other values are not counted); report(fraction) per block.
std::vector<double> countClasses(GDALRasterBand* band, int classes, const std::function<void(double)>& report);

// The histogram of a band's values (their absolute values when `absolute`) over [low, high], block by block.
Histogram bandHistogram(GDALRasterBand* band, double low, double high, int bins, bool absolute,
                        const std::function<void(double)>& report);

// Merges patches smaller than minSize pixels (8-connected) into their largest neighbour, in place, leaving the
// band's no-data pixels alone (GDAL's sieve filter).
void sievePatches(GDALRasterBand* band, int minSize, const std::function<void(double)>& report);

} // namespace obia
