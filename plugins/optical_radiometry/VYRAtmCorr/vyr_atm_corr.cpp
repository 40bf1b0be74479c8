// Plug-in "VYRAtmCorr": surface reflectance with the aerosol optical depth retrieved from the scene's dark dense
// vegetation (Kaufman et al. 1997) instead of a visibility; the depth found is reported.
#include "aerosol_retrieval.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "scene_correction.h"

#include <QFileInfo>

#include <cmath>

namespace
{

// The band of the scene nearest a wavelength, within a tolerance (micrometres); -1 when none.
int bandNear(const atmosphere::PreparedScene& scene, double wavelength, double tolerance)
{
    int best = -1;
    for (size_t b = 0; b < scene.bands.size(); ++b)
    {
        const double distance = std::fabs(scene.bands[b].coefficients.wavelengthUm - wavelength);
        if (distance <= tolerance &&
            (best < 0 || distance < std::fabs(scene.bands[size_t(best)].coefficients.wavelengthUm - wavelength)))
            best = int(b);
    }
    return best;
}

class VYRAtmCorr : public algokit::PluginBase
{
public:
    VYRAtmCorr() : PluginBase(QStringLiteral("VYRAtmCorr")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const QString inputPath = args.text("InputFile").required().existingFile();
        algokit::DatasetPtr input = args.text("InputFile").openRaster();
        const QString metaPath = args.text("MetaFile").required().existingFile();
        const QString outputPath = args.text("OutputFile").required().writableOutput();
        const int sensor = args.integer("SensorType").orDefault(0).range(0, 3);
        const int atmosphereModel = args.integer("AtmosphereModel").orDefault(2).range(0, 6);
        const int aerosolModel = args.integer("AerosolModel").orDefault(1).range(1, 4);
        const int month = args.integer("Month").orDefault(0).range(0, 12);
        const int day = args.integer("Day").orDefault(0).range(0, 31);
        if (QFileInfo(outputPath).absoluteFilePath() == QFileInfo(inputPath).absoluteFilePath())
            args.refuse(QStringLiteral("OutputFile"), outputPath, QStringLiteral("must differ from the input"));

        const atmosphere::PreparedScene scene =
            atmosphere::prepareScene(args, input.get(), inputPath, metaPath, sensor, month, day);
        const int blue = bandNear(scene, 0.48, 0.03), red = bandNear(scene, 0.655, 0.03);
        const int nir = bandNear(scene, 0.86, 0.05), swir = bandNear(scene, 2.2, 0.12);
        if (blue < 0 || red < 0 || nir < 0 || swir < 0)
            args.refuse(QStringLiteral("InputFile"), inputPath,
                        QStringLiteral("lacks the blue, red, near-infrared or 2.1 um band the dark-vegetation "
                                       "retrieval needs"));

        // First pass: the dark dense vegetation of the whole scene, block by block.
        atmosphere::DarkTargets targets;
        const int height = input->GetRasterYSize();
        const int step = algokit::rowsPerBlock(input.get(), 16);
        std::vector<double> scratch;
        std::vector<float> bands[4];
        const int wanted[4] = {blue, red, nir, swir};
        algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
            for (int i = 0; i < 4; ++i)
                atmosphere::readReflectance(input.get(), scene, wanted[i], row0, rows, scratch, bands[i]);
            atmosphere::collectDarkTargets(bands[0].data(), bands[1].data(), bands[2].data(), bands[3].data(),
                                           bands[0].size(), radiometry::kOutputNoData, &targets);
            progress(30.0 * (row0 + rows) / height);
        });
        constexpr size_t kFewestTargets = 50;
        if (targets.count < kFewestTargets)
            args.refuse(QStringLiteral("InputFile"), inputPath,
                        QStringLiteral("has too little dark dense vegetation (%1 pixels) to retrieve the aerosol")
                            .arg(targets.count));

        atmosphere::AtmosphereState state;
        state.atmosphere = atmosphere::StandardAtmosphere(atmosphereModel);
        state.aerosol = atmosphere::AerosolKind(aerosolModel);
        state.geometry = scene.geometry;
        state.aerosolDepth550 = atmosphere::retrieveAerosolDepth(targets, scene.bands[size_t(blue)].spectral,
                                                                 scene.bands[size_t(red)].spectral, state);
        std::vector<atmosphere::BandCorrection> corrections;
        for (const atmosphere::SceneBand& band : scene.bands)
            corrections.push_back(atmosphere::bandCorrection(band.spectral, state));

        atmosphere::writeSurfaceReflectance(input.get(), scene, corrections, outputPath,
                                            [this](double percent) { progress(30.0 + 0.7 * percent); });
        const double visibility = atmosphere::visibilityFromAerosolDepth(state.aerosolDepth550);
        setResult(algokit::GenericOutputs()
                      .add(QStringLiteral("AerosolOpticalDepth"), QString::number(state.aerosolDepth550, 'f', 4))
                      .add(QStringLiteral("Visibility"),
                           std::isfinite(visibility) ? QString::number(visibility, 'f', 1) : QStringLiteral("inf"))
                      .add(QStringLiteral("DarkTargets"), QString::number(qulonglong(targets.count)))
                      .result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(VYRAtmCorr)
