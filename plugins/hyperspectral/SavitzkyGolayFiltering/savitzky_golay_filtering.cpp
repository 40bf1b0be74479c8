// Plug-in "SavitzkyGolayFiltering": Savitzky-Golay smoothing or differentiation (Savitzky and Golay, 1964)
// along the spectral axis of every pixel of a region, over the listed bands in list order. The first and last
// WindowSize/2 bands are evaluated on the polynomial fitted to the first and last window, as scipy's
// savgol_filter does with mode "interp"; derivatives are per band step. The output is the region's pixels and
// the listed bands, Float32, georeferenced at the region's corner.
#include "hyperspectral/hys_common.h"
#include "savitzky_golay.h"
#include "spectral_cube.h"

#include <numeric>

namespace
{

class SavitzkyGolayFiltering : public algokit::PluginBase
{
public:
    SavitzkyGolayFiltering() : PluginBase(QStringLiteral("SavitzkyGolayFiltering")) {}

protected:
    bool run() override
    {
        const GenericAlgoRecord record = hysa::withoutZeros(params<GenericAlgoRecord>(), {"WindowSize"});
        algokit::GenericParams args(record, GetName());
        algokit::DatasetPtr input = hysa::openCube(args, QStringLiteral("InputFile"), 2);
        const QString outputPath = args.text(QStringLiteral("OutputFile")).required().writableOutput();
        const int imageBands = input->GetRasterCount();
        const int width = input->GetRasterXSize(), height = input->GetRasterYSize();

        const algokit::TextParam bandText = args.text(QStringLiteral("Bands"));
        std::vector<int> bands; // 1-based
        for (int band : bandText.intList())
        {
            if (band < 1 || band > imageBands)
                args.refuse(QStringLiteral("Bands"), bandText.value(),
                            QStringLiteral("must list bands between 1 and %1, not %2").arg(imageBands).arg(band));
            bands.push_back(band);
        }
        if (bands.empty())
        {
            bands.resize(size_t(imageBands));
            std::iota(bands.begin(), bands.end(), 1);
        }
        const HysPixelRect rect = regionOf(args, width, height);

        const int window = args.integer(QStringLiteral("WindowSize")).orDefault(5).atLeast(1).odd();
        if (window > int(bands.size()))
            args.refuse(QStringLiteral("WindowSize"), QString::number(window),
                        QStringLiteral("must not exceed the %1 bands filtered").arg(bands.size()));
        const int order = args.integer(QStringLiteral("PolyOrder")).orDefault(2).atLeast(0);
        if (order >= window)
            args.refuse(QStringLiteral("PolyOrder"), QString::number(order),
                        QStringLiteral("must be less than WindowSize (%1)").arg(window));
        const int derivative = args.integer(QStringLiteral("Derivative")).orDefault(0).atLeast(0).atMost(order);
        const Eigen::MatrixXd weights = hysa::savitzkyGolayWeights(window, order, derivative);

        std::vector<int> bands0;
        for (int band : bands)
            bands0.push_back(band - 1);
        hysa::SpectralAxis axis = hysa::selectBands(hysa::readSpectralAxis(input.get()), bands0);
        algokit::OutputRaster output =
            hysa::createCube(outputPath, input.get(), rect.x, rect.y, rect.width, rect.height, axis);
        const hys::BlockReader reader(input.get(), bands, rect);
        const int step = reader.blockRows();
        hysa::PassedBlocks passed(input.get(), bands);
        std::vector<double> block;
        std::vector<float> result;
        for (int row0 = 0; row0 < rect.height; row0 += step)
        {
            const int rows = std::min(step, rect.height - row0);
            size_t pitch = 0;
            reader.read(row0, rows, block, pitch);
            passed.doneAbove(rect.y + row0 + rows);
            result.resize(pitch * bands.size());
            hysa::savitzkyGolayFilter(weights, block.data(), result.data(), int(bands.size()), pitch, pitch);
            hysa::writeCubeRows(output.get(), row0, rows, result.data());
            progress(100.0 * (row0 + rows) / rect.height);
        }
        output.commit();
        return true;
    }

private:
    // x0|x1|y0|y1 (inclusive) inside the image; anything else is the whole image.
    static HysPixelRect regionOf(const algokit::GenericParams& args, int width, int height)
    {
        const algokit::TextParam region = args.text(QStringLiteral("Region"));
        const QStringList parts = region.value().split('|');
        if (parts.size() != 4)
            return HysPixelRect{0, 0, width, height};
        const std::vector<int> ends = region.intList();
        if (ends.size() != 4 || ends[0] < 0 || ends[2] < 0 || ends[1] < ends[0] || ends[3] < ends[2] ||
            ends[1] >= width || ends[3] >= height)
            args.refuse(QStringLiteral("Region"), region.value(),
                        QStringLiteral("must be x0|x1|y0|y1 with 0 <= x0 <= x1 < %1 and 0 <= y0 <= y1 < %2")
                            .arg(width)
                            .arg(height));
        return HysPixelRect{ends[0], ends[2], ends[1] - ends[0] + 1, ends[3] - ends[2] + 1};
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(SavitzkyGolayFiltering)
