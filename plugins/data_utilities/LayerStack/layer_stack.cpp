// Plug-in "LayerStack": every band of several rasters on their common extent at the finest resolution.
#include "band_combination.h"
#include "plugin_base.h"

#include <QFileInfo>

namespace
{

class LayerStack : public algokit::PluginBase
{
public:
    LayerStack() : PluginBase(QStringLiteral("LayerStack")) {}

protected:
    bool run() override
    {
        algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        datautil::stackLayers(
            args, [this](double percent) { progress(percent); }, [this](const QString& path) { claimOutput(path); });
        const QString aux = args.text(QStringLiteral("OutputFile")).value() + QStringLiteral(".aux.xml");
        if (QFileInfo::exists(aux))
            setResult(algokit::GenericOutputs().add(QStringLiteral("AuxFile"), aux).result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(LayerStack)
