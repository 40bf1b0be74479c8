// Plug-in "Batch_ComplexDataConvert": each complex image to amplitude, intensity, phase, real or imaginary part,
// or intensity in dB, one Float32 band per complex band, streamed in row blocks.
#include "generic_params.h"
#include "radar_batch.h"

#include <cmath>
#include <complex>
#include <limits>

namespace
{

enum Conversion
{
    kAmplitude,
    kIntensity,
    kPhase,
    kReal,
    kImag,
    kDecibel
};

float convert(std::complex<float> z, int conversion)
{
    switch (conversion)
    {
    case kAmplitude:
        return std::abs(z);
    case kIntensity:
        return std::norm(z);
    case kPhase:
        return std::arg(z);
    case kReal:
        return z.real();
    case kImag:
        return z.imag();
    default:
    {
        const float intensity = std::norm(z);
        return intensity > 0.0f ? 10.0f * std::log10(intensity) : std::numeric_limits<float>::quiet_NaN();
    }
    }
}

class BatchComplexDataConvert : public algokit::PluginBase
{
public:
    BatchComplexDataConvert() : PluginBase(QStringLiteral("Batch_ComplexDataConvert")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QStringList inputs = args.text("InputFiles").required().list();
        const QString outputDir = args.text("OutputDir").required();
        algokit::TextParam conversion = args.text("Conversion").orDefault("Intensity");
        conversion.oneOf({"Amplitude", "Intensity", "Phase", "Real", "Imag", "dB"});
        const sar::BatchOutcome outcome = sar::runBatch(
            inputs,
            [&](const QString& input, const std::function<void(double)>& report) {
                return QStringList{convertOne(input, outputDir, conversion.index(), conversion.value(), report)};
            },
            [this](double percent) { progress(percent); });
        algokit::GenericOutputs outputs;
        outputs.add("Batch_ComplexDataConvert_images", outcome.written.join('|'));
        if (!outcome.failures.isEmpty())
            outputs.add("Batch_ComplexDataConvert_failed", outcome.failures.join('|'));
        setResult(outputs.result());
        return true;
    }

private:
    QString convertOne(const QString& input, const QString& outputDir, int conversion, const QString& word,
                       const std::function<void(double)>& report)
    {
        algokit::DatasetPtr source = algokit::openRaster(input);
        const int width = source->GetRasterXSize(), height = source->GetRasterYSize(), bands = source->GetRasterCount();
        for (int b = 1; b <= bands; ++b)
            if (!GDALDataTypeIsComplex(source->GetRasterBand(b)->GetRasterDataType()))
                throw algokit::AlgoError(QStringLiteral("%1 band %2 is not complex").arg(input).arg(b));
        const QString outputPath = sar::batchOutputPath(outputDir, input, word);
        claimOutput(outputPath); // a stopped batch removes what it finished too
        algokit::OutputRaster output = sar::createFloatOutput(outputPath, source.get(), bands);
        static const char* const kUnits[] = {"", "", "radian", "", "", "dB"};
        const int blockRows = algokit::rowsPerBlock(source.get(), 8);
        std::vector<std::complex<float>> values;
        std::vector<float> converted;
        for (int b = 0; b < bands; ++b)
        {
            const QString description = QString::fromUtf8(source->GetRasterBand(b + 1)->GetDescription());
            output.band(b)->SetDescription(((description.isEmpty() ? QString() : description + " ") + word.toLower())
                                               .toUtf8()
                                               .constData());
            output.band(b)->SetUnitType(kUnits[conversion]);
            algokit::forEachRowBlock(height, blockRows, [&](int row0, int rows) {
                sar::readComplexRows(source->GetRasterBand(b + 1), row0, rows, values);
                converted.resize(values.size());
                for (size_t i = 0; i < values.size(); ++i)
                    converted[i] = convert(values[i], conversion);
                algokit::writeRows(output.band(b), row0, rows, converted);
                report((b + double(row0 + rows) / height) / bands);
            });
        }
        output.commit();
        (void)width;
        SarParameterRecord record;
        if (sar::readParameterFile(input, record))
        {
            if (conversion == kAmplitude)
                record.imageDataType = "AMPLITUDE";
            else if (conversion == kIntensity || conversion == kDecibel)
                record.imageDataType = conversion == kDecibel ? "INTENSITY_DB" : "INTENSITY";
            else
                record.imageDataType = word.toUpper().toStdString();
            claimOutput(sarParameterFilePath(outputPath));
            sar::writeParameterFile(outputPath, record);
        }
        return outputPath;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(BatchComplexDataConvert)
