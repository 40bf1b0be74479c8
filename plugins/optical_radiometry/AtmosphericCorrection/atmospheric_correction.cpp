// Plug-in "AtmosphericCorrection": surface reflectance of a Landsat, Sentinel-2 or tabled scene for a standard
// atmosphere, an aerosol model and a visibility, one correction per band applied block by block.
#include "plugin_base.h"
#include "scene_correction.h"

#include <QFileInfo>

namespace
{

class AtmosphericCorrection : public algokit::PluginBase
{
public:
    AtmosphericCorrection() : PluginBase(QStringLiteral("AtmosphericCorrection")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const QString inputPath = args.text("InputFile").required().existingFile();
        algokit::DatasetPtr input = args.text("InputFile").openRaster();
        const QString outputPath = args.text("OutputFile").required().writableOutput();
        const QString metaPath = args.text("MetaFile").required().existingFile();
        const int sensor = args.integer("SensorType").orDefault(0).range(0, 3);
        const int atmosphereModel = args.integer("AtmosphereModel").orDefault(2).range(0, 6);
        const int aerosolModel = args.integer("AerosolModel").orDefault(1).range(0, 4);
        const double visibility = args.real("Visibility").orDefault(23.0).range(1.0, 1000.0);
        const int month = args.integer("Month").orDefault(0).range(0, 12);
        if (QFileInfo(outputPath).absoluteFilePath() == QFileInfo(inputPath).absoluteFilePath())
            args.refuse(QStringLiteral("OutputFile"), outputPath, QStringLiteral("must differ from the input"));

        const atmosphere::PreparedScene scene =
            atmosphere::prepareScene(args, input.get(), inputPath, metaPath, sensor, month, 0);
        atmosphere::AtmosphereState state;
        state.atmosphere = atmosphere::StandardAtmosphere(atmosphereModel);
        state.aerosol = atmosphere::AerosolKind(aerosolModel);
        state.aerosolDepth550 = atmosphere::aerosolDepthFromVisibility(visibility);
        state.geometry = scene.geometry;
        std::vector<atmosphere::BandCorrection> corrections;
        for (const atmosphere::SceneBand& band : scene.bands)
            corrections.push_back(atmosphere::bandCorrection(band.spectral, state));

        atmosphere::writeSurfaceReflectance(input.get(), scene, corrections, outputPath,
                                            [this](double percent) { progress(percent); });
        setResult(algokit::GenericOutputs()
                      .add(QStringLiteral("AerosolOpticalDepth"), QString::number(state.aerosolDepth550, 'f', 4))
                      .result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(AtmosphericCorrection)
