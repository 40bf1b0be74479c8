// Plug-in "VYROrtho": RPC orthorectification of an optical image onto the UTM grid of its centre.
#include "rpc_ortho.h"

#include "plugin_base.h"

namespace
{

class VYROrtho : public algokit::PluginBase
{
public:
    VYROrtho() : PluginBase(QStringLiteral("VYROrtho")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const algokit::GenericOutputs outputs = optgeo::runOrtho(
            args, optgeo::OrthoOptions(),
            {[this](double p) { progress(p); }, [this](const QString& path) { claimOutput(path); }});
        setResult(outputs.result());
        progress(100);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(VYROrtho)
