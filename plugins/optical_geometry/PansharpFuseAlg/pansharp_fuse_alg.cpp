// Plug-in "PansharpFuseAlg": pan-sharpening by weighted Brovey, generalised IHS, Gram-Schmidt,
// high-pass filter injection or the MTF-matched generalised Laplacian pyramid.
#include "fusion_plugin.h"

namespace
{

class PansharpFuseAlg : public optgeo::FusionPlugin
{
public:
    PansharpFuseAlg() : FusionPlugin(QStringLiteral("PansharpFuseAlg")) {}

protected:
    optgeo::FusionRequest request(const algokit::GenericParams& args) const override
    {
        using M = optgeo::FusionMethod;
        static const M methods[] = {M::Brovey, M::GIHS, M::GramSchmidt, M::HPF, M::MTFGLP};
        optgeo::FusionRequest r;
        r.method = methods[int(args.integer("Method").orDefault(0).range(0, 4))];
        r.interpolation = interpolationOf(args, 2);
        return r;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(PansharpFuseAlg)
