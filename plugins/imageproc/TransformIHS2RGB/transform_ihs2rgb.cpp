// Plug-in "TransformIHS2RGB": intensity, hue (degrees) and saturation bands back to red, green and blue.
#include "../TransformRGB2IHS/ihs_model.h"

namespace
{

class IHS2RGB : public algokit::PluginBase
{
public:
    IHS2RGB() : PluginBase(QStringLiteral("IHS2RGB")) {}

protected:
    bool run() override
    {
        ihs::convertImage(*this, params<stColorTransformInfo>(), ihs::toRgb, [this](double p) { progress(p); });
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(IHS2RGB)
