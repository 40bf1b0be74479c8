// Speckle filtering of polarimetric matrix folders: the neighbourhood and weight chosen on the span of each pixel
// apply to every matrix element, so each filtered matrix is a non-negative mix of Hermitian matrices and stays
// Hermitian.
#pragma once

#include "polsar_folder.h"
#include "speckle_filters.h"

#include <functional>

namespace sar
{

// Looks (when settings.looks is 0) and, for the sigma filter, the span's 98th percentile, from up to about four
// million pixels of the folder in eight stripes.
void polSceneStatistics(PolFolderReader& reader, SpeckleSettings& settings);

// Filters every pixel of reader into writer (same kind) with settings (Boxcar, RefinedLee, LeeSigma or Idan),
// in row blocks with a halo, both cores; report(fraction done) once per block.
void filterPolFolder(PolFolderReader& reader, PolFolderWriter& writer, const SpeckleSettings& settings,
                     const std::function<void(double)>& report);

} // namespace sar
