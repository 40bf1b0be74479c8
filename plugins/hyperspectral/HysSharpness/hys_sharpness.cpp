// Plug-in "HysSharpness": per-band sharpness over a pixel rectangle: average gradient, Brenner gradient,
// energy gradient and variance (plus mean, Tenengrad and Laplacian energy), each a mean over the pixels
// where the measure is defined so bands and rectangles of any size compare; writes the sharpness text file.
#include "../hys_common.h"

#include <QFile>
#include <QTextStream>
#include <cmath>

namespace
{

// Sums of one band; a term that touches a missing pixel is left out of its measure.
struct Sums
{
    double average = 0.0, brenner = 0.0, energy = 0.0, tenengrad = 0.0, laplacian = 0.0;
    qint64 gradientCount = 0, brennerCount = 0, interiorCount = 0;
    double shift = std::nan(""), sum = 0.0, sumSq = 0.0;
    qint64 count = 0;
};

class HysSharpness : public algokit::PluginBase
{
public:
    HysSharpness() : PluginBase(QStringLiteral("HysSharpness")) {}

protected:
    bool run() override
    {
        HysSharpnessParam record = params<HysSharpnessParam>();
        hys::SelectedCube cube = hys::openSelection(record.inputFile, record.bandList, record.rect);
        const size_t count = cube.bands.size();
        const hys::BlockReader reader(cube.dataset.get(), cube.bands, cube.rect);
        const int step = reader.blockRows();
        const int height = cube.rect.height;
        const int width = cube.rect.width;

        std::vector<Sums> sums(count);
        std::vector<double> buffer;
        for (int row0 = 0; row0 < height; row0 += step)
        {
            const int rows = std::min(step, height - row0);
            // One row of halo above and below, where the rectangle has it.
            const int first = std::max(0, row0 - 1);
            const int last = std::min(height, row0 + rows + 1);
            size_t stride = 0;
            reader.read(first, last - first, buffer, stride);
            algokit::parallelFor(int(count), [&](int begin, int end) {
                for (int k = begin; k < end; ++k)
                    accumulate(buffer.data() + size_t(k) * stride, width, height, first, last, row0, row0 + rows,
                               sums[size_t(k)]);
            });
            progress(95.0 * (row0 + rows) / height);
        }
        cube.dataset.reset();

        for (const Sums& s : sums)
        {
            record.averageGradient.push_back(s.gradientCount ? s.average / double(s.gradientCount) : 0.0);
            record.brennerGradient.push_back(s.brennerCount ? s.brenner / double(s.brennerCount) : 0.0);
            record.energyGradient.push_back(s.gradientCount ? s.energy / double(s.gradientCount) : 0.0);
            const double n = double(s.count);
            record.variance.push_back(s.count ? std::max(0.0, (s.sumSq - s.sum * s.sum / n) / n) : 0.0);
            record.mean.push_back(s.count ? s.shift + s.sum / n : 0.0);
            record.tenengrad.push_back(s.interiorCount ? s.tenengrad / double(s.interiorCount) : 0.0);
            record.laplacianEnergy.push_back(s.interiorCount ? s.laplacian / double(s.interiorCount) : 0.0);
        }
        writeText(record, cube.bands);
        setResult(record);
        return true;
    }

private:
    // Rows [first, last) of the rectangle are in `values`; measures are taken for rows [from, to).
    static void accumulate(const double* values, int width, int height, int first, int last, int from, int to,
                           Sums& s)
    {
        auto at = [&](int x, int y) { return values[size_t(y - first) * width + x]; };
        for (int y = from; y < to; ++y)
        {
            for (int x = 0; x < width; ++x)
            {
                const double f = at(x, y);
                if (std::isnan(f))
                    continue;
                if (std::isnan(s.shift))
                    s.shift = f;
                const double d = f - s.shift;
                s.sum += d;
                s.sumSq += d * d;
                ++s.count;
                if (x + 1 < width && y + 1 < height && y + 1 < last)
                {
                    const double dx = at(x + 1, y) - f;
                    const double dy = at(x, y + 1) - f;
                    if (!std::isnan(dx) && !std::isnan(dy))
                    {
                        const double g = dx * dx + dy * dy;
                        s.average += std::sqrt(g / 2.0);
                        s.energy += g;
                        ++s.gradientCount;
                    }
                }
                if (x + 2 < width)
                {
                    const double d2 = at(x + 2, y) - f;
                    if (!std::isnan(d2))
                    {
                        s.brenner += d2 * d2;
                        ++s.brennerCount;
                    }
                }
                if (x >= 1 && x + 1 < width && y >= 1 && y + 1 < height)
                {
                    const double a = at(x - 1, y - 1), b = at(x, y - 1), c = at(x + 1, y - 1);
                    const double l = at(x - 1, y), r = at(x + 1, y);
                    const double g = at(x - 1, y + 1), h = at(x, y + 1), i = at(x + 1, y + 1);
                    const double gx = (c + 2 * r + i) - (a + 2 * l + g);
                    const double gy = (g + 2 * h + i) - (a + 2 * b + c);
                    const double lap = 4 * f - l - r - b - h;
                    if (!std::isnan(gx + gy + lap))
                    {
                        s.tenengrad += gx * gx + gy * gy;
                        s.laplacian += lap * lap;
                        ++s.interiorCount;
                    }
                }
            }
        }
    }

    void writeText(const HysSharpnessParam& record, const std::vector<int>& bands)
    {
        claimOutput(record.textFile);
        QFile file(record.textFile);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(record.textFile));
        QTextStream out(&file);
        out << Qt::left << qSetFieldWidth(8) << "Band" << qSetFieldWidth(20) << "AverageGradient" << "BrennerGradient"
            << "EnergyGradient" << "Variance" << qSetFieldWidth(0) << "\n";
        for (size_t k = 0; k < bands.size(); ++k)
            out << qSetFieldWidth(8) << bands[k] << qSetFieldWidth(20)
                << QString::number(record.averageGradient[k], 'g', 10)
                << QString::number(record.brennerGradient[k], 'g', 10)
                << QString::number(record.energyGradient[k], 'g', 10) << QString::number(record.variance[k], 'g', 10)
                << qSetFieldWidth(0) << "\n";
        out.flush();
        if (out.status() != QTextStream::Ok)
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(record.textFile));
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(HysSharpness)
