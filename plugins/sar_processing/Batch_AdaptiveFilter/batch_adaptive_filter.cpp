// Plug-in "Batch_AdaptiveFilter": speckle filtering of each input on intensity (dB and amplitude images are
// converted there and back), streamed in row blocks with a halo, both cores; the equivalent number of looks is
// the parameter file's, or estimated from the image.
#include "generic_params.h"
#include "radar_batch.h"
#include "speckle_filters.h"

#include <QStringList>
#include <algorithm>
#include <cmath>

namespace
{

class BatchAdaptiveFilter : public algokit::PluginBase
{
public:
    BatchAdaptiveFilter() : PluginBase(QStringLiteral("Batch_AdaptiveFilter")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QStringList inputs = args.text("InputFiles").required().list();
        const QString outputDir = args.text("OutputDir").required();
        QStringList names;
        for (const char* name : sar::kSpeckleFilterNames)
            names << name;
        algokit::TextParam filter = args.text("FilterType").orDefault("Lee");
        filter.oneOf(names);
        m_settings.filter = sar::SpeckleFilter(filter.index());
        m_settings.window = args.integer("WindowSize").orDefault(7).range(3, 51).odd();
        m_suffix = filter.value();

        QStringList looks;
        const sar::BatchOutcome outcome = sar::runBatch(
            inputs,
            [&](const QString& input, const std::function<void(double)>& report) {
                double enl = 0.0;
                const QString written = filterOne(input, outputDir, report, &enl);
                looks << QString::number(enl, 'f', 2);
                return QStringList{written};
            },
            [this](double percent) { progress(percent); });
        algokit::GenericOutputs outputs;
        outputs.add("Batch_AdaptiveFilter_images", outcome.written.join('|'));
        outputs.add("Batch_AdaptiveFilter_ENL", looks.join('|'));
        if (!outcome.failures.isEmpty())
            outputs.add("Batch_AdaptiveFilter_failed", outcome.failures.join('|'));
        setResult(outputs.result());
        return true;
    }

private:
    QString filterOne(const QString& input, const QString& outputDir, const std::function<void(double)>& report,
                      double* enl)
    {
        algokit::DatasetPtr source = algokit::openRaster(input);
        const int width = source->GetRasterXSize(), height = source->GetRasterYSize(), bands = source->GetRasterCount();
        if (GDALDataTypeIsComplex(source->GetRasterBand(1)->GetRasterDataType()))
            throw algokit::AlgoError(QStringLiteral("%1 is complex: the speckle filters need a detected (intensity) image").arg(input));
        if (m_settings.window > std::min(width, height))
            throw algokit::AlgoError(QStringLiteral("%1 is smaller than the %2 x %2 window").arg(input).arg(m_settings.window));

        sar::SpeckleSettings settings = m_settings;
        SarParameterRecord record;
        const bool hasParameters = sar::readParameterFile(input, record);
        if (hasParameters && record.azimuthLooks * record.rangeLooks >= 1)
            settings.looks = double(record.azimuthLooks) * record.rangeLooks;
        else
            settings.looks = 0.0;

        const QString outputPath = sar::batchOutputPath(outputDir, input, m_suffix);
        claimOutput(outputPath); // a stopped batch removes what it finished too
        algokit::OutputRaster output = sar::createFloatOutput(outputPath, source.get(), bands);
        const int halo = sar::speckleHalo(settings);
        const int blockRows = std::max(64, algokit::rowsPerBlock(source.get(), 4, 8u << 20));
        std::vector<float> block, filtered;
        for (int b = 0; b < bands; ++b)
        {
            GDALRasterBand* band = source->GetRasterBand(b + 1);
            const sar::RadarScale scale = sar::bandScale(source.get(), b + 1, input);
            sar::SpeckleSettings bandSettings = settings;
            if (!(bandSettings.looks > 0.0) || bandSettings.filter == sar::SpeckleFilter::LeeSigma)
                sceneStatistics(band, scale, bandSettings);
            if (b == 0)
                *enl = bandSettings.looks;
            output.band(b)->SetMetadataItem("ENL", QByteArray::number(bandSettings.looks, 'f', 3).constData());
            output.band(b)->SetUnitType(band->GetUnitType());
            algokit::forEachRowBlock(height, blockRows, [&](int row0, int rows) {
                const int first = std::max(0, row0 - halo), last = std::min(height, row0 + rows + halo);
                sar::readFloatRows(band, first, last - first, block, false);
                for (float& v : block)
                    v = sar::toIntensity(v, scale);
                const sar::SpeckleBlockFilter kernel(block.data(), width, last - first, bandSettings);
                filtered.resize(size_t(rows) * width);
                algokit::parallelFor(rows, [&](int begin, int end) {
                    kernel.filterRows(row0 - first + begin, row0 - first + end, filtered.data() + size_t(begin) * width);
                });
                for (float& v : filtered)
                    v = sar::fromIntensity(v, scale);
                algokit::writeRows(output.band(b), row0, rows, filtered);
                report((b + double(row0 + rows) / height) / bands);
            });
        }
        output.get()->SetMetadataItem("SPECKLE_FILTER", m_suffix.toUtf8().constData());
        output.get()->SetMetadataItem("WINDOW_SIZE", QByteArray::number(m_settings.window).constData());
        output.commit();
        if (hasParameters)
        {
            claimOutput(sarParameterFilePath(outputPath));
            sar::writeParameterFile(outputPath, record);
        }
        return outputPath;
    }

    // The looks estimated from the image (when the parameter file gives none) and the 98th percentile of the
    // intensity for the sigma filter, from up to about four million pixels in whole row blocks.
    void sceneStatistics(GDALRasterBand* band, sar::RadarScale scale, sar::SpeckleSettings& settings)
    {
        const int width = band->GetXSize(), height = band->GetYSize();
        const int rows = std::max(1, std::min(height, int((4u << 20) / std::max(1, width))));
        const int stripes = std::min(8, std::max(1, height / std::max(1, rows)));
        std::vector<float> stripe, sample;
        std::vector<double> estimates;
        for (int s = 0; s < stripes; ++s)
        {
            const int row0 = int((long long)(height - rows / stripes) * s / stripes);
            const int count = std::min(rows / stripes > 0 ? rows / stripes : 1, height - row0);
            sar::readFloatRows(band, row0, count, stripe, false);
            for (float& v : stripe)
                v = sar::toIntensity(v, scale);
            const double looks = sar::estimateLooks(stripe.data(), width, count);
            if (looks > 0.0)
                estimates.push_back(looks);
            sample.insert(sample.end(), stripe.begin(), stripe.end());
        }
        if (!(settings.looks > 0.0))
        {
            std::sort(estimates.begin(), estimates.end());
            settings.looks = estimates.empty() ? 1.0 : std::max(0.5, estimates[estimates.size() / 2]);
        }
        const double bright = sar::quantile(sample, 0.98);
        if (std::isfinite(bright))
            settings.brightThreshold = bright;
    }

    sar::SpeckleSettings m_settings;
    QString m_suffix;
};

} // namespace

ALGO_PLUGIN_FACTORY(BatchAdaptiveFilter)
