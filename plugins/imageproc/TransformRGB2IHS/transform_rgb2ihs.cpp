// Plug-in "TransformRGB2IHS": red, green and blue bands to intensity, hue (degrees) and saturation.
#include "ihs_model.h"

namespace
{

class RGB2IHS : public algokit::PluginBase
{
public:
    RGB2IHS() : PluginBase(QStringLiteral("RGB2IHS")) {}

protected:
    bool run() override
    {
        ihs::convertImage(*this, params<stColorTransformInfo>(), ihs::toIhs, [this](double p) { progress(p); });
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(RGB2IHS)
