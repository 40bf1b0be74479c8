// Plug-in "PolSAR_Filter": boxcar, refined Lee (Lee et al. 1999: edge-aligned windows and MMSE weight from the
// span) or IDAN (adaptive neighbourhood grown on the span) filtering of a C2/C3/T3/C4/T4 folder, written to
// OutputDir/<kind> in the same layout.
#include "generic_params.h"
#include "polsar_filter.h"

#include <QDir>
#include <QFileInfo>

namespace
{

class PolSARFilter : public algokit::PluginBase
{
public:
    PolSARFilter() : PluginBase(QStringLiteral("PolSAR_Filter")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString inputDir = args.text("InputDir").existingFolder();
        const QString outputRoot = args.text("OutputDir").required();
        algokit::TextParam filter = args.text("FilterType").orDefault("RefinedLee");
        filter.oneOf({"Boxcar", "RefinedLee", "IDAN"});
        sar::SpeckleSettings settings;
        settings.filter = filter.index() == 0 ? sar::SpeckleFilter::Boxcar
                          : filter.index() == 1 ? sar::SpeckleFilter::RefinedLee
                                                : sar::SpeckleFilter::Idan;
        settings.window = args.integer("WindowSize").orDefault(7).range(3, 51).odd();
        settings.looks = 0.0;
        sar::PolFolderReader reader(inputDir);
        if (reader.kind() == sar::PolMatrix::S2)
            args.refuse("InputDir", inputDir, QStringLiteral("holds scattering matrices (S2): convert them to C3 or T3 first"));
        if (settings.window > std::min(reader.width(), reader.height()))
            args.refuse("WindowSize", QString::number(settings.window), QStringLiteral("is larger than the image"));
        const QString outputDir = QDir(outputRoot).filePath(sar::polMatrixName(reader.kind()));
        if (QFileInfo(outputDir).absoluteFilePath() == QFileInfo(inputDir).absoluteFilePath())
            args.refuse("OutputDir", outputRoot, QStringLiteral("would overwrite the input folder"));

        sar::polSceneStatistics(reader, settings);
        sar::PolFolderWriter writer(outputDir, reader.kind(), reader.config(), [this](const QString& path) { claimOutput(path); });
        sar::filterPolFolder(reader, writer, settings, [this](double done) { progress(100.0 * done); });
        writer.finish();
        setResult(algokit::GenericOutputs()
                      .add("PolSAR_Filter_images", writer.files().join('|'))
                      .add("PolSAR_Filter_ENL", QString::number(settings.looks, 'f', 2))
                      .result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(PolSARFilter)
