// Plug-in "ImgProFiltSpa": the four spatial filters (named kernel table, directional, mean, median), told apart
// by the record type they receive.
//
// Filter types of ImgProFiltSpaCom (n: n x n window):
//   0 mean 3        1 mean 5         2 Gaussian 3 (binomial)   3 Gaussian 5 (binomial)   4 median 3   5 median 5
//   6 Laplacian 4-neighbour          7 Laplacian 8-neighbour   8 Laplacian sharpening 4  9 Laplacian sharpening 8
//  10 Sobel x      11 Sobel y       12 Sobel magnitude        13 Prewitt x              14 Prewitt y
//  15 Prewitt magnitude             16 Roberts magnitude      17 high-pass 3 (input - mean 3)
//  18 high-pass 5 (input - mean 5)  19 emboss                 20 minimum 3              21 maximum 3
//  22 Laplacian of Gaussian 5
// Types 0-5, 20 and 21 keep the input's pixel type; the others write Float32 (Float64 for Float64 input).
#include "../ImgProFiltCommon/spatial_ops.h"

namespace
{

using namespace filtcommon;

Kernel highPass(int n)
{
    Kernel kernel = boxKernel(n);
    for (float& w : kernel.weights)
        w = -w;
    return identityPlus(kernel);
}

class ImgProFiltSpa : public algokit::PluginBase
{
public:
    ImgProFiltSpa() : PluginBase(QStringLiteral("ImgProFiltSpa")) {}

protected:
    bool run() override
    {
        const auto report = [this](double percent) { progress(percent); };
        if (holdsParams(typeid(ImgProFiltSpaMeanParam)))
        {
            const auto& record = params<ImgProFiltSpaMeanParam>();
            checkSize(record.kernelWidth, record.kernelHeight);
            runFilter(jobOf(record), BoxMean{record.kernelWidth / 2, record.kernelHeight / 2}, true, report);
        }
        else if (holdsParams(typeid(ImgProFiltSpaMidParam)))
        {
            const auto& record = params<ImgProFiltSpaMidParam>();
            checkSize(record.kernelWidth, record.kernelHeight);
            if (record.shape != 0 && record.shape != 1)
                return fail(QStringLiteral("Median window shape %1 is not 0 (square) or 1 (cross)").arg(record.shape));
            runFilter(jobOf(record), Median{record.kernelWidth / 2, record.kernelHeight / 2, record.shape}, true,
                      report);
        }
        else if (holdsParams(typeid(ImgProFiltSpaDirectParam)))
        {
            const auto& record = params<ImgProFiltSpaDirectParam>();
            if (record.directionType < 0 || record.directionType > 7)
                return fail(QStringLiteral("Direction type %1 is outside 0-7").arg(record.directionType));
            runFilter(jobOf(record), Convolution({compassKernel(record.directionType)}), false, report);
        }
        else
            runCommon(params<ImgProFiltSpaComParam>(), report);
        return true;
    }

private:
    static void checkSize(int width, int height)
    {
        if (width < 1 || height < 1 || width % 2 == 0 || height % 2 == 0 || width > 255 || height > 255)
            throw algokit::AlgoError(QStringLiteral("Kernel size %1 x %2 is not an odd size up to 255").arg(width).arg(height));
    }

    static void runCommon(const ImgProFiltSpaComParam& record, const std::function<void(double)>& report)
    {
        const FilterJob job = jobOf(record);
        const auto convolve = [&](std::vector<Kernel> kernels, bool native) {
            runFilter(job, Convolution(std::move(kernels)), native, report);
        };
        switch (record.filterType)
        {
        case 0: return runFilter(job, BoxMean{1, 1}, true, report);
        case 1: return runFilter(job, BoxMean{2, 2}, true, report);
        case 2: return convolve({binomialKernel(3)}, true);
        case 3: return convolve({binomialKernel(5)}, true);
        case 4: return runFilter(job, Median{1, 1, 0}, true, report);
        case 5: return runFilter(job, Median{2, 2, 0}, true, report);
        case 6: return convolve({laplacian4()}, false);
        case 7: return convolve({laplacian8()}, false);
        case 8: return convolve({identityPlus(laplacian4())}, false);
        case 9: return convolve({identityPlus(laplacian8())}, false);
        case 10: return convolve({sobelX()}, false);
        case 11: return convolve({sobelY()}, false);
        case 12: return convolve({sobelX(), sobelY()}, false);
        case 13: return convolve({prewittX()}, false);
        case 14: return convolve({prewittY()}, false);
        case 15: return convolve({prewittX(), prewittY()}, false);
        case 16: return convolve({robertsMain(), robertsAnti()}, false);
        case 17: return convolve({highPass(3)}, false);
        case 18: return convolve({highPass(5)}, false);
        case 19: return convolve({squareKernel(3, {-1, -1, 0, -1, 0, 1, 0, 1, 1})}, false);
        case 20: return runFilter(job, RankExtreme{1, 1, false}, true, report);
        case 21: return runFilter(job, RankExtreme{1, 1, true}, true, report);
        case 22:
            return convolve({squareKernel(5, {0, 0, -1, 0, 0, 0, -1, -2, -1, 0, -1, -2, 16, -2, -1, 0, -1, -2, -1, 0,
                                               0, 0, -1, 0, 0})},
                            false);
        default:
            throw algokit::AlgoError(QStringLiteral("Filter type %1 is outside 0-22").arg(record.filterType));
        }
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(ImgProFiltSpa)
