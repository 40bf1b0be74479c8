// Plug-in "ContinuumRemoval": every pixel's spectrum divided by its upper convex hull over wavelength (Clark and
// Roush, 1984). Wavelengths come from the band metadata (band numbers when absent); bands flagged bad are left
// out of the hull and written as no-data. The output is Float32 with the input's band metadata.
#include "continuum.h"
#include "hyperspectral/hys_common.h"
#include "spectral_cube.h"

#include <algorithm>
#include <numeric>

namespace
{

class ContinuumRemoval : public algokit::PluginBase
{
public:
    ContinuumRemoval() : PluginBase(QStringLiteral("ContinuumRemoval")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        algokit::DatasetPtr input = hysa::openCube(args, QStringLiteral("InputFile"), 2);
        const QString outputPath = args.text(QStringLiteral("OutputFile")).required().writableOutput();
        const hysa::SpectralAxis axis = hysa::readSpectralAxis(input.get());

        // The good bands in order of wavelength: the hull's abscissae.
        std::vector<int> used;
        for (int k = 0; k < axis.size(); ++k)
            if (axis.good[size_t(k)])
                used.push_back(k);
        std::stable_sort(used.begin(), used.end(),
                         [&](int a, int b) { return axis.wavelengths[size_t(a)] < axis.wavelengths[size_t(b)]; });
        if (used.size() < 2)
            args.refuse(QStringLiteral("InputFile"), args.text(QStringLiteral("InputFile")).value(),
                        QStringLiteral("must have at least 2 bands not flagged bad, it has %1").arg(used.size()));
        std::vector<double> x;
        std::vector<int> bandNumbers;
        for (int k : used)
        {
            x.push_back(axis.wavelengths[size_t(k)]);
            bandNumbers.push_back(k + 1);
        }

        const int width = input->GetRasterXSize(), height = input->GetRasterYSize(), bands = axis.size();
        algokit::OutputRaster output = hysa::createCube(outputPath, input.get(), 0, 0, width, height, axis);
        const hys::BlockReader reader(input.get(), bandNumbers, HysPixelRect{0, 0, width, height});
        const int step = reader.blockRows();
        hysa::PassedBlocks passed(input.get(), bandNumbers);
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
                const int n = int(used.size());
                std::vector<double> spectrum(static_cast<size_t>(n)), removed(static_cast<size_t>(n));
                std::vector<int> hull(static_cast<size_t>(n));
                for (int i = begin; i < end; ++i)
                {
                    for (int j = 0; j < n; ++j)
                        spectrum[size_t(j)] = block[size_t(j) * pitch + size_t(i)];
                    hysa::removeContinuum(x.data(), spectrum.data(), n, removed.data(), hull.data());
                    for (int j = 0; j < n; ++j)
                        result[size_t(used[size_t(j)]) * pitch + size_t(i)] = float(removed[size_t(j)]);
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

ALGO_PLUGIN_FACTORY(ContinuumRemoval)
