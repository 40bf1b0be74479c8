// The run shared by the pan-sharpening plug-ins: inputs checked and aligned through their
// georeferencing, the model fitted at the multispectral scale, the pan grid fused block by block,
// and the reduced-scale quality report written beside the output.
#pragma once

#include "fusion_model.h"
#include "grid_resample.h"

#include "generic_params.h"

#include <functional>

namespace optgeo
{

struct FusionRequest
{
    FusionMethod method = FusionMethod::Brovey;
    Interpolation interpolation = Interpolation::Cubic;
    // 1-based multispectral bands to fuse and write; empty: all.
    std::vector<int> bands;
    // CNS: 1-based bands inside the pan's spectral range; empty: from wavelength metadata, else all.
    std::vector<int> cnsGroup;
};

struct FusionHooks
{
    std::function<void(double percent)> progress;
    std::function<void(const QString& path)> claim;
};

struct FusionOutcome
{
    QString outputPath;
    QString qualityPath;
};

// The quality report of an output: "<output without suffix>_quality.json".
QString qualityReportPath(const QString& outputPath);

// Reads PanFile, MultiFile and OutputFile from args and runs the fusion; refusals and failures throw
// AlgoError before the output exists.
FusionOutcome runFusion(const algokit::GenericParams& args, const FusionRequest& request, const FusionHooks& hooks);

} // namespace optgeo
