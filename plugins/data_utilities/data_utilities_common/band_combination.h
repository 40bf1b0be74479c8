// The band-combination tools: chosen bands of several rasters onto the first raster's grid, or every band of
// several rasters onto their common grid (layer stacking).
#pragma once

#include "generic_params.h"

#include <functional>

namespace datautil
{

using ProgressFn = std::function<void(double percent)>;

// InputFiles, OutputFile, Bands and (when withDataType) DataType. Registers nothing: the caller claims
// OutputFile before calling.
void combineBands(const algokit::GenericParams& args, bool withDataType, const ProgressFn& progress,
                  const std::function<void(const QString&)>& claim);

// InputFiles, OutputFile: the finest resolution, the common extent, nearest for classification images.
void stackLayers(const algokit::GenericParams& args, const ProgressFn& progress,
                 const std::function<void(const QString&)>& claim);

} // namespace datautil
