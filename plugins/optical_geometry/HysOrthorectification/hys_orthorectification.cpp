// Plug-in "HysOrthorectification": RPC orthorectification of a hyperspectral cube, every band on one
// mapping, wavelength, fwhm and bad-band metadata kept.
#include "rpc_ortho.h"

#include "plugin_base.h"

namespace
{

class HysOrthorectification : public algokit::PluginBase
{
public:
    HysOrthorectification() : PluginBase(QStringLiteral("HysOrthorectification")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        optgeo::OrthoOptions options;
        // GDAL's pixel type codes: 1 Byte, 2 UInt16, 3 Int16, 4 UInt32, 5 Int32, 6 Float32, 7 Float64.
        options.outputType = GDALDataType(int(args.integer("OutputType").orDefault(0).range(0, 7)));
        options.heightOffsetKey.clear();
        const algokit::GenericOutputs outputs = optgeo::runOrtho(
            args, options, {[this](double p) { progress(p); }, [this](const QString& path) { claimOutput(path); }});
        setResult(outputs.result());
        progress(100);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(HysOrthorectification)
