// Plug-in "NoiseEstimation": per-band noise standard deviation by the local-standard-deviation method
// (Gao, 1993): the image is cut into 4x4 blocks, each block's standard deviation is computed, and the
// noise is the mean of the lowest `ratio` fraction of them (the most homogeneous blocks, where the
// variation left is noise). Writes "band value" lines.
#include "../hys_common.h"

#include <QFile>
#include <QTextStream>
#include <cmath>

namespace
{

constexpr int kBlock = 4;

class NoiseEstimation : public algokit::PluginBase
{
public:
    NoiseEstimation() : PluginBase(QStringLiteral("NoiseEstimation")) {}

protected:
    bool run() override
    {
        NoiseEstimationParam record = params<NoiseEstimationParam>();
        if (!(record.ratio >= 0.0 && record.ratio <= 1.0))
            return fail(QStringLiteral("The ratio must lie in 0..1."));
        algokit::DatasetPtr dataset = algokit::openRaster(record.inputFile);
        const int width = dataset->GetRasterXSize();
        const int height = dataset->GetRasterYSize();
        if (width < kBlock || height < kBlock)
            return fail(QStringLiteral("The image is smaller than one %1 x %1 block.").arg(kBlock));
        std::vector<int> bands(size_t(dataset->GetRasterCount()));
        for (size_t k = 0; k < bands.size(); ++k)
            bands[k] = int(k) + 1;
        // Whole blocks only: the rim that does not fill a block is left out.
        const HysPixelRect rect{0, 0, width / kBlock * kBlock, height / kBlock * kBlock};
        const hys::BlockReader reader(dataset.get(), bands, rect);
        const int step = reader.blockRows(24u << 20, kBlock);

        std::vector<std::vector<float>> deviations(bands.size());
        std::vector<double> buffer;
        for (int row0 = 0; row0 < rect.height; row0 += step)
        {
            const int rows = std::min(step, rect.height - row0);
            size_t stride = 0;
            reader.read(row0, rows, buffer, stride);
            algokit::parallelFor(int(bands.size()), [&](int begin, int end) {
                for (int k = begin; k < end; ++k)
                    blockDeviations(buffer.data() + size_t(k) * stride, rect.width, rows, deviations[size_t(k)]);
            });
            progress(95.0 * (row0 + rows) / rect.height);
        }
        dataset.reset();

        claimOutput(record.textFile);
        QFile file(record.textFile);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
            return fail(QStringLiteral("Cannot write %1").arg(record.textFile));
        QTextStream out(&file);
        for (size_t k = 0; k < bands.size(); ++k)
            out << bands[k] << " " << QString::number(noiseOf(deviations[k], record.ratio), 'g', 8) << "\n";
        out.flush();
        if (out.status() != QTextStream::Ok)
            return fail(QStringLiteral("Cannot write %1").arg(record.textFile));
        setResult(record);
        return true;
    }

private:
    // Sample standard deviation of each complete 4x4 block; blocks with missing pixels are skipped.
    static void blockDeviations(const double* values, int width, int rows, std::vector<float>& out)
    {
        for (int by = 0; by + kBlock <= rows; by += kBlock)
            for (int bx = 0; bx + kBlock <= width; bx += kBlock)
            {
                double sum = 0.0, sumSq = 0.0;
                const double first = values[size_t(by) * width + bx];
                bool valid = true;
                for (int y = by; y < by + kBlock && valid; ++y)
                    for (int x = bx; x < bx + kBlock; ++x)
                    {
                        const double d = values[size_t(y) * width + x] - first;
                        if (std::isnan(d))
                        {
                            valid = false;
                            break;
                        }
                        sum += d;
                        sumSq += d * d;
                    }
                if (!valid)
                    continue;
                const double n = kBlock * kBlock;
                out.push_back(float(std::sqrt(std::max(0.0, (sumSq - sum * sum / n) / (n - 1.0)))));
            }
    }

    // Mean of the lowest fraction of block deviations (at least one block); NaN when no block was valid.
    static double noiseOf(std::vector<float>& deviations, double ratio)
    {
        if (deviations.empty())
            return std::nan("");
        const size_t used = std::max<size_t>(1, size_t(std::llround(ratio * double(deviations.size()))));
        std::nth_element(deviations.begin(), deviations.begin() + (used - 1), deviations.end());
        double sum = 0.0;
        for (size_t i = 0; i < used; ++i)
            sum += deviations[i];
        return sum / double(used);
    }

};

} // namespace

ALGO_PLUGIN_FACTORY(NoiseEstimation)
