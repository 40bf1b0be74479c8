// Plug-in "ImgProFiltDiffSharp": differential sharpening. Types: 0 Roberts gradient magnitude, 1 Sobel gradient
// magnitude, 2 Prewitt gradient magnitude, 3 Laplacian sharpening with 4 neighbours (input plus the centre-positive
// Laplacian: centre 5), 4 Laplacian sharpening with 8 neighbours (centre 9). Output Float32 (Float64 for Float64).
#include "../ImgProFiltCommon/spatial_ops.h"

namespace
{

using namespace filtcommon;

class ImgProFiltDiffSharp : public algokit::PluginBase
{
public:
    ImgProFiltDiffSharp() : PluginBase(QStringLiteral("ImgProFiltDiffSharp")) {}

protected:
    bool run() override
    {
        const auto& record = params<ImgProFiltDiffSharpParam>();
        std::vector<Kernel> kernels;
        switch (record.sharpType)
        {
        case 0: kernels = {robertsMain(), robertsAnti()}; break;
        case 1: kernels = {sobelX(), sobelY()}; break;
        case 2: kernels = {prewittX(), prewittY()}; break;
        case 3: kernels = {identityPlus(laplacian4())}; break;
        case 4: kernels = {identityPlus(laplacian8())}; break;
        default: return fail(QStringLiteral("Sharpening type %1 is outside 0-4").arg(record.sharpType));
        }
        runFilter(jobOf(record), Convolution(std::move(kernels)), false, [this](double percent) { progress(percent); });
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(ImgProFiltDiffSharp)
