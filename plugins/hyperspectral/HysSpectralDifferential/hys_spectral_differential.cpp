// Plug-in "HysSpectralDifferential": first or second spectral derivative by central differences at a gap of
// g = Interval bands, over wavelengths w (band metadata, or band numbers) times Scale:
//   first  (R[i+g] - R[i-g]) / (w[i+g] - w[i-g])
//   second (R[i+g] - 2 R[i] + R[i-g]) / ((w[i+g] - w[i-g]) / 2)^2
// The output keeps the input's bands and wavelengths; the g bands at each end, and values that draw on a band
// flagged bad, are no-data.
#include "hyperspectral/hys_common.h"
#include "spectral_cube.h"

#include <numeric>

namespace
{

class HysSpectralDifferential : public algokit::PluginBase
{
public:
    HysSpectralDifferential() : PluginBase(QStringLiteral("HysSpectralDifferential")) {}

protected:
    bool run() override
    {
        const GenericAlgoRecord record =
            hysa::withoutZeros(params<GenericAlgoRecord>(), {"Order", "Interval", "Scale"});
        algokit::GenericParams args(record, GetName());
        algokit::DatasetPtr input = hysa::openCube(args, QStringLiteral("InputFile"), 3);
        const QString outputPath = args.text(QStringLiteral("OutputFile")).required().writableOutput();
        const int order = args.integer(QStringLiteral("Order")).orDefault(1).oneOf({1, 2});
        const int bands = input->GetRasterCount();
        const int gap = args.integer(QStringLiteral("Interval")).orDefault(1).atLeast(1).atMost((bands - 1) / 2);
        const double scale = args.real(QStringLiteral("Scale")).orDefault(1.0).above(0.0);
        const hysa::SpectralAxis axis = hysa::readSpectralAxis(input.get());

        // Per output band: the divisor, or 0 where the band is no-data.
        std::vector<double> divisor(size_t(bands), 0.0);
        for (int i = gap; i < bands - gap; ++i)
        {
            if (!axis.good[size_t(i - gap)] || !axis.good[size_t(i + gap)] || (order == 2 && !axis.good[size_t(i)]))
                continue;
            const double span = scale * (axis.wavelengths[size_t(i + gap)] - axis.wavelengths[size_t(i - gap)]);
            const double d = order == 1 ? span : span * span / 4.0;
            if (d != 0.0 && std::isfinite(d))
                divisor[size_t(i)] = d;
        }

        const int width = input->GetRasterXSize(), height = input->GetRasterYSize();
        algokit::OutputRaster output = hysa::createCube(outputPath, input.get(), 0, 0, width, height, axis);
        std::vector<int> all(static_cast<size_t>(bands));
        std::iota(all.begin(), all.end(), 1);
        const hys::BlockReader reader(input.get(), all, HysPixelRect{0, 0, width, height});
        const int step = reader.blockRows();
        hysa::PassedBlocks passed(input.get(), all);
        std::vector<double> block;
        std::vector<float> result;
        for (int row0 = 0; row0 < height; row0 += step)
        {
            const int rows = std::min(step, height - row0);
            size_t pitch = 0;
            reader.read(row0, rows, block, pitch);
            passed.doneAbove(row0 + rows);
            result.assign(pitch * size_t(bands), std::numeric_limits<float>::quiet_NaN());
            algokit::parallelFor(int(pitch), [&](int begin, int end) {
                for (int i = 0; i < bands; ++i)
                {
                    const double d = divisor[size_t(i)];
                    if (d == 0.0)
                        continue;
                    const double* up = block.data() + size_t(i + gap) * pitch;
                    const double* down = block.data() + size_t(i - gap) * pitch;
                    const double* centre = block.data() + size_t(i) * pitch;
                    float* target = result.data() + size_t(i) * pitch;
                    if (order == 1)
                        for (int p = begin; p < end; ++p)
                            target[p] = float((up[p] - down[p]) / d);
                    else
                        for (int p = begin; p < end; ++p)
                            target[p] = float((up[p] - 2.0 * centre[p] + down[p]) / d);
                }
            });
            hysa::writeCubeRows(output.get(), row0, rows, result.data());
            progress(100.0 * (row0 + rows) / height);
        }
        output.commit();
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(HysSpectralDifferential)
