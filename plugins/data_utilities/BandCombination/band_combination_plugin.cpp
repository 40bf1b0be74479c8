// Plug-in "BandCombination": chosen bands of several rasters into one raster (or .vrt) of a chosen pixel type.
#include "band_combination.h"
#include "plugin_base.h"

#include <QFileInfo>

namespace
{

class BandCombination : public algokit::PluginBase
{
public:
    BandCombination() : PluginBase(QStringLiteral("BandCombination")) {}

protected:
    bool run() override
    {
        algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        datautil::combineBands(
            args, true, [this](double percent) { progress(percent); },
            [this](const QString& path) { claimOutput(path); });
        const QString aux = args.text(QStringLiteral("OutputFile")).value() + QStringLiteral(".aux.xml");
        if (QFileInfo::exists(aux))
            setResult(algokit::GenericOutputs().add(QStringLiteral("AuxFile"), aux).result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(BandCombination)
