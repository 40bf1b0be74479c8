// Plug-in "InformationEntropy": Shannon entropy in bits of each selected band's histogram over a pixel
// rectangle. Byte bands use one bin per value (exact); other types 256 equal bins over the band's range
// in the rectangle, found by a first pass.
#include "../hys_common.h"

#include <cmath>
#include <limits>

namespace
{

constexpr int kBins = 256;

class InformationEntropy : public algokit::PluginBase
{
public:
    InformationEntropy() : PluginBase(QStringLiteral("InformationEntropy")) {}

protected:
    bool run() override
    {
        InformationEntropyParam record = params<InformationEntropyParam>();
        hys::SelectedCube cube = hys::openSelection(record.inputFile, record.bandList, record.rect);
        const size_t count = cube.bands.size();
        const hys::BlockReader reader(cube.dataset.get(), cube.bands, cube.rect);
        const int step = reader.blockRows();

        std::vector<bool> exact(count);
        std::vector<double> low(count, std::numeric_limits<double>::infinity());
        std::vector<double> high(count, -std::numeric_limits<double>::infinity());
        for (size_t k = 0; k < count; ++k)
        {
            exact[k] = cube.dataset->GetRasterBand(cube.bands[k])->GetRasterDataType() == GDT_Byte;
            if (exact[k])
            {
                low[k] = 0.0;
                high[k] = 255.0;
            }
        }
        const bool needRange = std::find(exact.begin(), exact.end(), false) != exact.end();
        std::vector<double> buffer;
        size_t stride = 0;
        const int passes = needRange ? 2 : 1;
        if (needRange)
            for (int row0 = 0; row0 < cube.rect.height; row0 += step)
            {
                const int rows = std::min(step, cube.rect.height - row0);
                reader.read(row0, rows, buffer, stride);
                algokit::parallelFor(int(count), [&](int begin, int end) {
                    for (int k = begin; k < end; ++k)
                    {
                        if (exact[size_t(k)])
                            continue;
                        const double* values = buffer.data() + size_t(k) * stride;
                        for (size_t i = 0; i < stride; ++i)
                            if (!std::isnan(values[i]))
                            {
                                low[size_t(k)] = std::min(low[size_t(k)], values[i]);
                                high[size_t(k)] = std::max(high[size_t(k)], values[i]);
                            }
                    }
                });
                progress(100.0 / passes * (row0 + rows) / cube.rect.height);
            }

        std::vector<std::vector<qint64>> histograms(count, std::vector<qint64>(kBins, 0));
        for (int row0 = 0; row0 < cube.rect.height; row0 += step)
        {
            const int rows = std::min(step, cube.rect.height - row0);
            reader.read(row0, rows, buffer, stride);
            algokit::parallelFor(int(count), [&](int begin, int end) {
                for (int k = begin; k < end; ++k)
                    addToHistogram(buffer.data() + size_t(k) * stride, stride, low[size_t(k)], high[size_t(k)],
                                   exact[size_t(k)], histograms[size_t(k)]);
            });
            progress(100.0 * (passes - 1) / passes + 100.0 / passes * (row0 + rows) / cube.rect.height);
        }

        record.entropy.clear();
        for (const std::vector<qint64>& histogram : histograms)
            record.entropy.push_back(entropyBits(histogram));
        setResult(record);
        return true;
    }

private:
    static void addToHistogram(const double* values, size_t count, double low, double high, bool exact,
                               std::vector<qint64>& histogram)
    {
        const double range = high - low;
        for (size_t i = 0; i < count; ++i)
        {
            const double value = values[i];
            if (std::isnan(value))
                continue;
            int bin = 0;
            if (exact)
                bin = int(value);
            else if (range > 0.0)
                bin = std::min(kBins - 1, int((value - low) / range * kBins));
            ++histogram[size_t(std::max(0, bin))];
        }
    }

    // H = -sum p log2 p over non-empty bins; 0 for a band without valid pixels.
    static double entropyBits(const std::vector<qint64>& histogram)
    {
        qint64 total = 0;
        for (qint64 n : histogram)
            total += n;
        if (total == 0)
            return 0.0;
        double entropy = 0.0;
        for (qint64 n : histogram)
            if (n > 0)
            {
                const double p = double(n) / double(total);
                entropy -= p * std::log2(p);
            }
        return entropy;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(InformationEntropy)
