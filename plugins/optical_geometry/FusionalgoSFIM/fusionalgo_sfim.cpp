// Plug-in "FusionalgoSFIM": smoothing-filter-based intensity modulation.
#include "fusion_plugin.h"

namespace
{

class FusionalgoSFIM : public optgeo::FusionPlugin
{
public:
    FusionalgoSFIM() : FusionPlugin(QStringLiteral("FusionalgoSFIM")) {}

protected:
    optgeo::FusionRequest request(const algokit::GenericParams& args) const override
    {
        optgeo::FusionRequest r;
        r.method = optgeo::FusionMethod::SFIM;
        r.interpolation = interpolationOf(args, 0);
        r.bands = args.text("Bands").intList();
        return r;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(FusionalgoSFIM)
