// Plug-in "FusionalgoCNS": colour-normalised spectral sharpening of the bands inside the pan's range.
#include "fusion_plugin.h"

namespace
{

class FusionalgoCNS : public optgeo::FusionPlugin
{
public:
    FusionalgoCNS() : FusionPlugin(QStringLiteral("FusionalgoCNS")) {}

protected:
    optgeo::FusionRequest request(const algokit::GenericParams& args) const override
    {
        optgeo::FusionRequest r;
        r.method = optgeo::FusionMethod::CNS;
        r.interpolation = interpolationOf(args, 0);
        // Bands names the group inside the pan's range; every band is written.
        r.cnsGroup = args.text("Bands").intList();
        return r;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(FusionalgoCNS)
