// Plug-in "StatisticalAnalysis": per-band minimum, maximum, mean and standard deviation over a pixel
// rectangle, the covariance and correlation matrices of the selected bands as K x K Float64 images,
// and a text report. One streaming pass over row blocks; shifted sums keep the variances stable.
#include "../hys_common.h"
#include "cross_products.h"

#include <QFile>
#include <QFileInfo>
#include <QTextStream>
#include <cmath>
#include <limits>
#include <mutex>

namespace
{

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct BandAccumulator
{
    qint64 count = 0;
    double minimum = std::numeric_limits<double>::infinity();
    double maximum = -std::numeric_limits<double>::infinity();
    double sum = 0.0;   // of (value - shift)
    double sumSq = 0.0; // of (value - shift)^2
};

QString number(double value)
{
    return std::isnan(value) ? QStringLiteral("nan") : QString::number(value, 'g', 10);
}

class StatisticalAnalysis : public algokit::PluginBase
{
public:
    StatisticalAnalysis() : PluginBase(QStringLiteral("StatisticalAnalysis")) {}

protected:
    bool run() override
    {
        StatisticalAnalysisParam record = params<StatisticalAnalysisParam>();
        hys::SelectedCube cube = hys::openSelection(record.inputFile, record.bandList, record.rect);
        const int bandCount = int(cube.bands.size());
        const hys::BlockReader reader(cube.dataset.get(), cube.bands, cube.rect);
        const int step = reader.blockRows();

        std::vector<BandAccumulator> bands(static_cast<size_t>(bandCount));
        std::vector<double> shift(static_cast<size_t>(bandCount), 0.0);
        std::vector<double> centredSum(static_cast<size_t>(bandCount), 0.0);
        std::vector<double> cross(size_t(bandCount) * bandCount, 0.0);
        qint64 completePixels = 0;
        bool shiftChosen = false;
        std::vector<double> buffer;
        std::vector<unsigned char> complete;
        std::mutex merge;

        for (int row0 = 0; row0 < cube.rect.height; row0 += step)
        {
            const int rows = std::min(step, cube.rect.height - row0);
            size_t stride = 0;
            reader.read(row0, rows, buffer, stride);
            if (!shiftChosen)
                shiftChosen = chooseShifts(buffer, stride, shift);

            // Per-band statistics over each band's own valid pixels.
            std::vector<unsigned char> bandHasGaps(size_t(bandCount), 0);
            algokit::parallelFor(bandCount, [&](int begin, int end) {
                for (int k = begin; k < end; ++k)
                    bandHasGaps[size_t(k)] = accumulateBand(buffer.data() + size_t(k) * stride, stride,
                                                            shift[size_t(k)], bands[size_t(k)]);
            });

            // Covariance uses pixels valid in every selected band: centre, zero the incomplete ones.
            complete.assign(stride, 1);
            if (std::find(bandHasGaps.begin(), bandHasGaps.end(), 1) != bandHasGaps.end())
                for (int k = 0; k < bandCount; ++k)
                {
                    const double* values = buffer.data() + size_t(k) * stride;
                    for (size_t i = 0; i < stride; ++i)
                        if (std::isnan(values[i]))
                            complete[i] = 0;
                }
            for (size_t i = 0; i < stride; ++i)
                completePixels += complete[i];
            algokit::parallelFor(bandCount, [&](int begin, int end) {
                for (int k = begin; k < end; ++k)
                {
                    double* values = buffer.data() + size_t(k) * stride;
                    const double s = shift[size_t(k)];
                    double sum = 0.0;
                    for (size_t i = 0; i < stride; ++i)
                    {
                        values[i] = complete[i] ? values[i] - s : 0.0;
                        sum += values[i];
                    }
                    centredSum[size_t(k)] += sum;
                }
            });

            const int chunks = int((stride + 255) / 256);
            algokit::parallelFor(chunks, [&](int begin, int end) {
                std::vector<double> local(size_t(bandCount) * bandCount, 0.0);
                const size_t p0 = size_t(begin) * 256;
                const size_t p1 = std::min(stride, size_t(end) * 256);
                stats::accumulateCrossProducts(buffer.data() + p0, stride, bandCount, p1 - p0, local.data());
                std::lock_guard<std::mutex> guard(merge);
                for (size_t i = 0; i < local.size(); ++i)
                    cross[i] += local[i];
            });
            progress(90.0 * (row0 + rows) / cube.rect.height);
        }
        cube.dataset.reset();

        fillBandStatistics(bands, shift, record);
        std::vector<double> covariance, correlation;
        int constantBands = 0;
        matrices(cross, centredSum, completePixels, bandCount, covariance, correlation, constantBands);

        algokit::OutputRaster covImage = writeMatrix(record.covImageFile, record.covFormat, covariance, bandCount);
        algokit::OutputRaster corImage = writeMatrix(record.corCoeFile, record.corFormat, correlation, bandCount);
        m_outputs = QStringList{record.covImageFile, record.corCoeFile, record.textFile};
        writeReport(record, cube, completePixels, covariance, correlation, constantBands);
        covImage.commit();
        corImage.commit();
        m_outputs.clear();
        progress(100.0);
        setResult(record);
        return true;
    }

    void discardOutputs() override
    {
        for (const QString& path : m_outputs)
            if (path.endsWith(".txt"))
                QFile::remove(path);
            else
                algokit::deleteRasterFiles(path);
        m_outputs.clear();
    }

private:
    // Shift of each band: the mean of its valid values in the first block, close to the band's mean,
    // so the shifted sums do not cancel. Returns false while no band has a valid value yet.
    static bool chooseShifts(const std::vector<double>& buffer, size_t stride, std::vector<double>& shift)
    {
        bool any = false;
        for (size_t k = 0; k < shift.size(); ++k)
        {
            double sum = 0.0;
            qint64 count = 0;
            const double* values = buffer.data() + k * stride;
            for (size_t i = 0; i < stride; ++i)
                if (!std::isnan(values[i]))
                {
                    sum += values[i];
                    ++count;
                }
            if (count)
            {
                shift[k] = sum / double(count);
                any = true;
            }
        }
        return any;
    }

    // Returns 1 when the band had missing pixels in this block.
    static unsigned char accumulateBand(const double* values, size_t count, double shift, BandAccumulator& band)
    {
        double minimum = band.minimum, maximum = band.maximum, sum = 0.0, sumSq = 0.0;
        qint64 valid = 0;
        for (size_t i = 0; i < count; ++i)
        {
            const double value = values[i];
            if (std::isnan(value))
                continue;
            minimum = std::min(minimum, value);
            maximum = std::max(maximum, value);
            const double d = value - shift;
            sum += d;
            sumSq += d * d;
            ++valid;
        }
        band.minimum = minimum;
        band.maximum = maximum;
        band.sum += sum;
        band.sumSq += sumSq;
        band.count += valid;
        return qint64(count) != valid;
    }

    static void fillBandStatistics(const std::vector<BandAccumulator>& bands, const std::vector<double>& shift,
                                   StatisticalAnalysisParam& record)
    {
        record.minimum.clear();
        record.maximum.clear();
        record.mean.clear();
        record.stdDev.clear();
        for (size_t k = 0; k < bands.size(); ++k)
        {
            const BandAccumulator& band = bands[k];
            const double n = double(band.count);
            record.minimum.push_back(band.count ? band.minimum : kNaN);
            record.maximum.push_back(band.count ? band.maximum : kNaN);
            record.mean.push_back(band.count ? shift[k] + band.sum / n : kNaN);
            const double variance = band.count > 1 ? (band.sumSq - band.sum * band.sum / n) / (n - 1.0) : kNaN;
            record.stdDev.push_back(std::isnan(variance) ? kNaN : std::sqrt(std::max(0.0, variance)));
        }
    }

    // Covariance (n - 1) from the cross products of the shifted values; correlation NaN for a band whose
    // variance is zero (undefined), 1 on the diagonal otherwise.
    static void matrices(std::vector<double>& cross, const std::vector<double>& sums, qint64 pixels, int count,
                         std::vector<double>& covariance, std::vector<double>& correlation, int& constantBands)
    {
        covariance.assign(size_t(count) * count, kNaN);
        correlation.assign(size_t(count) * count, kNaN);
        constantBands = 0;
        if (pixels < 2)
            return;
        const double n = double(pixels);
        for (int i = 0; i < count; ++i)
            for (int j = 0; j <= i; ++j)
            {
                const double value = (cross[size_t(i) * count + j] - sums[size_t(i)] * sums[size_t(j)] / n) / (n - 1.0);
                covariance[size_t(i) * count + j] = value;
                covariance[size_t(j) * count + i] = value;
            }
        std::vector<double> deviation(static_cast<size_t>(count));
        for (int i = 0; i < count; ++i)
        {
            double& variance = covariance[size_t(i) * count + i];
            variance = std::max(0.0, variance);
            deviation[size_t(i)] = std::sqrt(variance);
            if (variance <= 0.0)
                ++constantBands;
        }
        for (int i = 0; i < count; ++i)
            for (int j = 0; j < count; ++j)
            {
                const double scale = deviation[size_t(i)] * deviation[size_t(j)];
                double value = scale > 0.0 ? covariance[size_t(i) * count + j] / scale : kNaN;
                if (!std::isnan(value))
                    value = i == j ? 1.0 : std::max(-1.0, std::min(1.0, value));
                correlation[size_t(i) * count + j] = value;
            }
    }

    static algokit::OutputRaster writeMatrix(const QString& path, const QString& format,
                                             const std::vector<double>& matrix, int count)
    {
        algokit::OutputRaster image(path, format.isEmpty() ? QStringLiteral("ENVI") : format, count, count, 1,
                                    GDT_Float64);
        algokit::writeRows(image.band(0), 0, count, matrix);
        return image;
    }

    void writeReport(const StatisticalAnalysisParam& record, const hys::SelectedCube& cube, qint64 completePixels,
                     const std::vector<double>& covariance, const std::vector<double>& correlation,
                     int constantBands)
    {
        QFile file(record.textFile);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(record.textFile));
        QTextStream out(&file);
        const int count = int(cube.bands.size());
        out << "Statistical analysis of " << QFileInfo(record.inputFile).fileName() << "\n";
        out << "Region: x " << cube.rect.x << ", y " << cube.rect.y << ", width " << cube.rect.width << ", height "
            << cube.rect.height << "\n";
        out << "Pixels valid in every selected band: " << completePixels << "\n";
        out << "Standard deviation and covariance divide by (pixels - 1); NaN and no-data pixels are skipped.\n";
        if (constantBands > 0)
            out << "Correlation with a constant band is undefined and written as nan (" << constantBands
                << " constant band(s)).\n";
        if (completePixels < 2)
            out << "Fewer than two complete pixels: covariance and correlation are written as nan.\n";
        out << "\n";
        out << qSetFieldWidth(8) << Qt::left << "Band" << qSetFieldWidth(18) << "Minimum" << "Maximum" << "Mean"
            << "StdDev" << qSetFieldWidth(0) << "\n";
        for (int k = 0; k < count; ++k)
            out << qSetFieldWidth(8) << cube.bands[size_t(k)] << qSetFieldWidth(18) << number(record.minimum[size_t(k)])
                << number(record.maximum[size_t(k)]) << number(record.mean[size_t(k)])
                << number(record.stdDev[size_t(k)]) << qSetFieldWidth(0) << "\n";
        writeMatrixText(out, "Covariance matrix", cube.bands, covariance);
        writeMatrixText(out, "Correlation matrix", cube.bands, correlation);
        out.flush();
        if (out.status() != QTextStream::Ok)
            throw algokit::AlgoError(QStringLiteral("Cannot write %1").arg(record.textFile));
    }

    static void writeMatrixText(QTextStream& out, const char* title, const std::vector<int>& bands,
                                const std::vector<double>& matrix)
    {
        const int count = int(bands.size());
        out << "\n" << title << "\n" << qSetFieldWidth(8) << Qt::left << "Band" << qSetFieldWidth(18);
        for (int band : bands)
            out << QStringLiteral("Band %1").arg(band);
        out << qSetFieldWidth(0) << "\n";
        for (int i = 0; i < count; ++i)
        {
            out << qSetFieldWidth(8) << bands[size_t(i)] << qSetFieldWidth(18);
            for (int j = 0; j < count; ++j)
                out << number(matrix[size_t(i) * count + j]);
            out << qSetFieldWidth(0) << "\n";
        }
    }

    QStringList m_outputs;
};

} // namespace

ALGO_PLUGIN_FACTORY(StatisticalAnalysis)
