// What both atmospheric-correction plug-ins share: the bands of a scene tied to its metadata (DN, radiance or TOA
// reflectance in; TOA reflectance out), the sun geometry, and the block-by-block writing of surface reflectance.
#pragma once

#include "band_correction.h"
#include "generic_params.h"
#include "scene_metadata.h"

#include <functional>
#include <vector>

namespace atmosphere
{

struct SceneBand
{
    optical::BandCoefficients coefficients;
    radiometry::LinearCalibration toReflectance; // input value to TOA reflectance
    radiometry::NoDataRule noData;
    SpectralBand spectral;
};

struct PreparedScene
{
    radiometry::SceneMetadata metadata;
    std::vector<SceneBand> bands;
    Geometry geometry;
};

// Sensor codes: 0 any product, 1 Landsat MTL, 2 Sentinel-2 product XML, 3 coefficient table.
constexpr int kAnySensor = 0;

// Reads the metadata and ties every band of the input to it; refuses (through args) a metadata file that cannot
// be read or does not match sensorType, a band it does not describe, a thermal band, a missing sun elevation.
// month/day (0: from the metadata) give the date when the metadata has no Earth-Sun distance.
PreparedScene prepareScene(const algokit::GenericParams& args, GDALDataset* input, const QString& inputPath,
                           const QString& metaPath, int sensorType, int month, int day);

// TOA reflectance of rows [row0, row0 + rows) of band b (kOutputNoData where the input is no data).
void readReflectance(GDALDataset* input, const PreparedScene& scene, int b, int row0, int rows,
                     std::vector<double>& scratch, std::vector<float>& out);

// Writes the surface reflectance of every band with its correction, Float32, no data kept, bands described,
// the correction terms in the band metadata; progress in percent once per block row.
void writeSurfaceReflectance(GDALDataset* input, const PreparedScene& scene,
                             const std::vector<BandCorrection>& corrections, const QString& outputPath,
                             const std::function<void(double)>& progress);

} // namespace atmosphere
