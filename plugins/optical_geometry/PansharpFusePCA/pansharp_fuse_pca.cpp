// Plug-in "PansharpFusePCA": pan-sharpening by principal-component substitution.
#include "fusion_plugin.h"

namespace
{

class PansharpFusePCA : public optgeo::FusionPlugin
{
public:
    PansharpFusePCA() : FusionPlugin(QStringLiteral("PansharpFusePCA")) {}

protected:
    optgeo::FusionRequest request(const algokit::GenericParams& args) const override
    {
        optgeo::FusionRequest r;
        r.method = optgeo::FusionMethod::PCA;
        r.interpolation = interpolationOf(args, 0);
        r.bands = args.text("Bands").intList();
        return r;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(PansharpFusePCA)
