// Plug-in "ImgProFiltCustom": correlation with a user kernel of n x n weights (row by row). A kernel of
// non-negative weights summing to 1 keeps the input's pixel type; any other writes Float32 (Float64 for Float64).
#include "../ImgProFiltCommon/spatial_ops.h"

namespace
{

using namespace filtcommon;

class ImgProFiltCustom : public algokit::PluginBase
{
public:
    ImgProFiltCustom() : PluginBase(QStringLiteral("ImgProFiltCustom")) {}

protected:
    bool run() override
    {
        const auto& record = params<ImgProFiltCustomParam>();
        const int n = record.kernelSize;
        if (n < 1 || n % 2 == 0 || record.kernel.size() != size_t(n) * size_t(n))
            return fail(QStringLiteral("The kernel must hold n x n values for an odd n"));
        for (float w : record.kernel)
            if (!std::isfinite(w))
                return fail(QStringLiteral("The kernel holds a value that is not a finite number"));
        const Kernel kernel = squareKernel(n, record.kernel);
        runFilter(jobOf(record), Convolution({kernel}), kernel.rangePreserving(),
                  [this](double percent) { progress(percent); });
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(ImgProFiltCustom)
