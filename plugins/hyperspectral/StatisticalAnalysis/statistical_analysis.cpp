// Plug-in "StatisticalAnalysis": per-band minimum, maximum, mean and standard deviation over a pixel
// rectangle, the covariance and correlation matrices of the selected bands as K x K Float64 images,
// and a text report. One streaming pass over windows of whole blocks; shifted sums keep the variances
// stable, and integer images are summed exactly.
#include "../hys_common.h"
#include "../block_windows.h"
#include "cube_moments.h"

#include <QFile>
#include <QFileInfo>
#include <QTextStream>
#include <cmath>
#include <limits>

namespace
{

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
// Pixels per window: about 8 MB of samples whatever the band count.
constexpr size_t kWindowBytes = 8u << 20;

QString number(double value)
{
    return std::isnan(value) ? QStringLiteral("nan") : QString::number(value, 'g', 10);
}

// Samples of up to 16 bits are summed exactly as integers.
bool integerSamples(GDALDataset* dataset, const std::vector<int>& bands)
{
    for (int band : bands)
    {
        const GDALDataType type = dataset->GetRasterBand(band)->GetRasterDataType();
        if (type != GDT_Byte && type != GDT_UInt16 && type != GDT_Int16)
            return false;
    }
    return true;
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
        const bool integer = integerSamples(cube.dataset.get(), cube.bands);
        const hys::BlockReader reader(cube.dataset.get(), cube.bands, cube.rect);
        stats::CubeMoments moments(bandCount);
        std::vector<int32_t> samples;
        std::vector<double> values;
        const double pixels = double(cube.rect.width) * cube.rect.height;
        double done = 0.0;
        hys::forEachWindow(cube.dataset.get(), cube.bands, cube.rect,
                           std::max<size_t>(4096, kWindowBytes / (size_t(bandCount) * sizeof(double))),
                           [&](const HysPixelRect& window) {
                               const size_t n = size_t(window.width) * size_t(window.height);
                               if (integer)
                               {
                                   reader.readWindow(window, samples);
                                   moments.addIntegerWindow(samples, n, reader.noData());
                               }
                               else
                               {
                                   reader.readWindow(window, values);
                                   moments.addRealWindow(values, n);
                               }
                               done += double(n);
                               progress(90.0 * done / pixels);
                           });
        cube.dataset.reset();

        fillBandStatistics(moments, record);
        const std::vector<double> covariance = moments.covariance();
        int constantBands = 0;
        const std::vector<double> correlation = correlationOf(covariance, bandCount, constantBands);

        const qint64 completePixels = moments.completePixels();
        algokit::OutputRaster covImage = writeMatrix(record.covImageFile, record.covFormat, covariance, bandCount);
        algokit::OutputRaster corImage = writeMatrix(record.corCoeFile, record.corFormat, correlation, bandCount);
        claimOutput(record.textFile);
        writeReport(record, cube, completePixels, covariance, correlation, constantBands);
        covImage.commit();
        corImage.commit();
        progress(100.0);
        setResult(record);
        return true;
    }

private:
    static void fillBandStatistics(const stats::CubeMoments& moments, StatisticalAnalysisParam& record)
    {
        record.minimum.clear();
        record.maximum.clear();
        record.mean.clear();
        record.stdDev.clear();
        for (int k = 0; k < moments.bandCount(); ++k)
        {
            const stats::BandMoments& band = moments.band(k);
            const double n = double(band.count);
            record.minimum.push_back(band.count ? band.minimum : kNaN);
            record.maximum.push_back(band.count ? band.maximum : kNaN);
            record.mean.push_back(band.count ? moments.shift(k) + band.sum / n : kNaN);
            const double variance = band.count > 1 ? (band.sumSq - band.sum * band.sum / n) / (n - 1.0) : kNaN;
            record.stdDev.push_back(std::isnan(variance) ? kNaN : std::sqrt(std::max(0.0, variance)));
        }
    }

    // Correlation from the covariance: NaN for a band whose variance is zero (undefined), 1 on the
    // diagonal otherwise. Negative rounding residues of a variance count as zero.
    static std::vector<double> correlationOf(const std::vector<double>& covariance, int count, int& constantBands)
    {
        std::vector<double> correlation(size_t(count) * count, kNaN);
        std::vector<double> deviation(static_cast<size_t>(count));
        constantBands = 0;
        for (int i = 0; i < count; ++i)
        {
            const double variance = covariance[size_t(i) * count + i];
            deviation[size_t(i)] = std::isnan(variance) ? kNaN : std::sqrt(std::max(0.0, variance));
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
        return correlation;
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
};

} // namespace

ALGO_PLUGIN_FACTORY(StatisticalAnalysis)
