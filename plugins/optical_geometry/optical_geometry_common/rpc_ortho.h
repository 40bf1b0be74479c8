// Orthorectification with an RPC model on GDAL's RPC transformer and warper: model from a text file
// or the image, heights from a DEM or a default, optional bias correction from control points, output
// on the UTM grid (WGS 84) of the scene centre.
#pragma once

#include "generic_params.h"

#include <functional>

namespace optgeo
{

struct OrthoHooks
{
    std::function<void(double percent)> progress;
    std::function<void(const QString& path)> claim;
};

struct OrthoOptions
{
    // Pixel type of the output; GDT_Unknown keeps the input's.
    GDALDataType outputType = GDT_Unknown;
    // Key of the height offset added to DEM heights; empty when the algorithm has none.
    QString heightOffsetKey = QStringLiteral("HeightOffset");
};

// Reads InputFile, DEMFile, RPCFile, GCPFile, OutputFile, Resolution, ResampleMethod, BlockSize,
// DefaultHeight (and the height offset) from args and orthorectifies; returns the extra outputs
// (control point residual file and RMSE) as key/value pairs.
algokit::GenericOutputs runOrtho(const algokit::GenericParams& args, const OrthoOptions& options, const OrthoHooks& hooks);

// The control point residual file of an output: "<output without suffix>_gcp_residuals.csv".
QString residualFilePath(const QString& outputPath);

} // namespace optgeo
