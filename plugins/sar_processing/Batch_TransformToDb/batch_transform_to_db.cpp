// Plug-in "Batch_TransformToDb": 10 log10 of intensity (20 log10 of amplitude, 10 log10 |z|^2 of complex samples)
// for each input; values at or below 0 become no data.
#include "generic_params.h"
#include "radar_batch.h"
#include "radar_kernels.h"


namespace
{

class BatchTransformToDb : public algokit::PluginBase
{
public:
    BatchTransformToDb() : PluginBase(QStringLiteral("Batch_TransformToDb")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QStringList inputs = args.text("InputFiles").required().list();
        const QString outputDir = args.text("OutputDir").required();
        const sar::BatchOutcome outcome = sar::runBatch(
            inputs,
            [&](const QString& input, const std::function<void(double)>& report) {
                return QStringList{toDecibels(input, outputDir, report)};
            },
            [this](double percent) { progress(percent); });
        algokit::GenericOutputs outputs;
        outputs.add("Batch_TransformToDb_images", outcome.written.join('|'));
        if (!outcome.failures.isEmpty())
            outputs.add("Batch_TransformToDb_failed", outcome.failures.join('|'));
        setResult(outputs.result());
        return true;
    }

private:
    QString toDecibels(const QString& input, const QString& outputDir, const std::function<void(double)>& report)
    {
        algokit::DatasetPtr source = algokit::openRaster(input);
        const int height = source->GetRasterYSize(), bands = source->GetRasterCount();
        std::vector<double> factors;
        for (int b = 1; b <= bands; ++b)
        {
            GDALRasterBand* band = source->GetRasterBand(b);
            const sar::RadarScale scale = GDALDataTypeIsComplex(band->GetRasterDataType())
                                              ? sar::RadarScale::Intensity
                                              : sar::bandScale(source.get(), b, input);
            if (scale == sar::RadarScale::Decibel)
                throw algokit::AlgoError(QStringLiteral("%1 band %2 is already in dB").arg(input).arg(b));
            factors.push_back(scale == sar::RadarScale::Amplitude ? 20.0 : 10.0);
        }
        const QString outputPath = sar::batchOutputPath(outputDir, input, QStringLiteral("dB"));
        claimOutput(outputPath); // a stopped batch removes what it finished too
        algokit::OutputRaster output = sar::createFloatOutput(outputPath, source.get(), bands);
        const int blockRows = algokit::rowsPerBlock(source.get(), 8);
        std::vector<float> values;
        for (int b = 0; b < bands; ++b)
        {
            output.band(b)->SetUnitType("dB");
            const float factor = float(factors[size_t(b)]);
            algokit::forEachRowBlock(height, blockRows, [&](int row0, int rows) {
                sar::readFloatRows(source->GetRasterBand(b + 1), row0, rows, values, true);
                const size_t width = size_t(source->GetRasterXSize());
                algokit::parallelFor(rows, [&](int begin, int end) {
                    float* first = values.data() + size_t(begin) * width;
                    sar::decibels(first, first, size_t(end - begin) * width, factor);
                });
                algokit::writeRows(output.band(b), row0, rows, values);
                report((b + double(row0 + rows) / height) / bands);
            });
        }
        output.commit();
        SarParameterRecord record;
        if (sar::readParameterFile(input, record))
        {
            claimOutput(sarParameterFilePath(outputPath));
            sar::writeParameterFile(outputPath, record);
        }
        return outputPath;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(BatchTransformToDb)
