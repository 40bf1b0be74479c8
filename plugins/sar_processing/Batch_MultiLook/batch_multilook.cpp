// Plug-in "Batch_MultiLook": mean intensity over AzimuthLooks x RangeLooks cells (complex samples detected
// first, amplitude and dB images averaged as intensity and written back in their scale); 0 and 0 choose the
// looks that make ground pixels square from the parameter file, which is written for the output with the
// new looks, spacings, sizes and line time.
#include "generic_params.h"
#include "radar_batch.h"
#include "radar_kernels.h"

#include <QFileInfo>
#include <algorithm>
#include <cmath>

namespace
{

struct Looks
{
    int azimuth = 1;
    int range = 1;
};

// Looks that bring the ground-range pixel size (slant spacing / sin(incidence) for slant-range images) and the
// azimuth spacing closest to equal, the smaller one multiplied.
Looks squareLooks(const SarParameterRecord& record)
{
    const double sine = std::sin(record.incidenceAngle * M_PI / 180.0);
    const bool slant = record.imageGeometry == "SLANT_RANGE";
    const double ground = slant ? record.slantRangeSpacing / sine : record.slantRangeSpacing;
    if (!(ground > 0.0) || !(record.azimuthSpacing > 0.0) || !std::isfinite(ground))
        throw algokit::AlgoError(QStringLiteral("its parameter file gives no usable spacings or incidence angle"));
    Looks looks;
    if (ground >= record.azimuthSpacing)
        looks.azimuth = std::max(1, int(std::lround(ground / record.azimuthSpacing)));
    else
        looks.range = std::max(1, int(std::lround(record.azimuthSpacing / ground)));
    return looks;
}

class BatchMultiLook : public algokit::PluginBase
{
public:
    BatchMultiLook() : PluginBase(QStringLiteral("Batch_MultiLook")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QStringList inputs = args.text("InputFiles").required().list();
        const QString outputDir = args.text("OutputDir").required();
        const int azimuth = args.integer("AzimuthLooks").orDefault(0).range(0, 1000);
        const int range = args.integer("RangeLooks").orDefault(0).range(0, 1000);
        if ((azimuth == 0) != (range == 0))
            args.refuse("RangeLooks", QString::number(range), QStringLiteral("must be 0 together with AzimuthLooks (%1)").arg(azimuth));
        const sar::BatchOutcome outcome = sar::runBatch(
            inputs,
            [&](const QString& input, const std::function<void(double)>& report) {
                return QStringList{multilook(input, outputDir, Looks{azimuth, range}, report)};
            },
            [this](double percent) { progress(percent); });
        algokit::GenericOutputs outputs;
        outputs.add("Batch_MultiLook_images", outcome.written.join('|'));
        if (!outcome.failures.isEmpty())
            outputs.add("Batch_MultiLook_failed", outcome.failures.join('|'));
        setResult(outputs.result());
        return true;
    }

private:
    QString multilook(const QString& input, const QString& outputDir, Looks looks,
                      const std::function<void(double)>& report)
    {
        algokit::DatasetPtr source = algokit::openRaster(input);
        const int width = source->GetRasterXSize(), height = source->GetRasterYSize(), bands = source->GetRasterCount();
        SarParameterRecord record;
        const bool hasParameters = sar::readParameterFile(input, record);
        if (looks.azimuth == 0)
        {
            if (!hasParameters)
                throw algokit::AlgoError(QStringLiteral("%1 has no readable parameter file to choose the looks from").arg(input));
            try
            {
                looks = squareLooks(record);
            }
            catch (const algokit::AlgoError& error)
            {
                throw algokit::AlgoError(input + ": " + error.message());
            }
        }
        const int outWidth = width / looks.range, outHeight = height / looks.azimuth;
        if (outWidth < 1 || outHeight < 1)
            throw algokit::AlgoError(QStringLiteral("%1 (%2 x %3) is smaller than one %4 x %5 cell")
                                         .arg(input).arg(width).arg(height).arg(looks.range).arg(looks.azimuth));

        const QString outputPath = sar::batchOutputPath(outputDir, input, QStringLiteral("ML"));
        claimOutput(outputPath); // a stopped batch removes what it finished too
        algokit::OutputRaster output = sar::createFloatOutput(outputPath, source.get(), bands, outWidth, outHeight);
        double transform[6];
        if (source->GetGeoTransform(transform) == CE_None)
        {
            transform[1] *= looks.range;
            transform[2] *= looks.azimuth;
            transform[4] *= looks.range;
            transform[5] *= looks.azimuth;
            output.get()->SetGeoTransform(transform);
        }
        output.get()->SetMetadataItem("AZIMUTH_LOOKS", QByteArray::number(looks.azimuth).constData());
        output.get()->SetMetadataItem("RANGE_LOOKS", QByteArray::number(looks.range).constData());

        // Whole cells per block: the rows of one block give whole output rows.
        const int cellRows = std::max(1, algokit::rowsPerBlock(source.get(), 8) / looks.azimuth);
        std::vector<float> values, averaged;
        for (int b = 0; b < bands; ++b)
        {
            GDALRasterBand* band = source->GetRasterBand(b + 1);
            const bool complex = GDALDataTypeIsComplex(band->GetRasterDataType());
            const sar::RadarScale scale = complex ? sar::RadarScale::Intensity : sar::bandScale(source.get(), b + 1, input);
            output.band(b)->SetUnitType(complex ? "" : band->GetUnitType());
            algokit::forEachRowBlock(outHeight, cellRows, [&](int outRow0, int outRows) {
                sar::readFloatRows(band, outRow0 * looks.azimuth, outRows * looks.azimuth, values, true);
                if (scale != sar::RadarScale::Intensity)
                    for (float& v : values)
                        v = sar::toIntensity(v, scale);
                averaged.resize(size_t(outRows) * outWidth);
                algokit::parallelFor(outRows, [&](int begin, int end) {
                    std::vector<double> sums(static_cast<size_t>(width));
                    std::vector<int> counts(static_cast<size_t>(width));
                    for (int r = begin; r < end; ++r)
                    {
                        std::fill(sums.begin(), sums.end(), 0.0);
                        std::fill(counts.begin(), counts.end(), 0);
                        sar::accumulateCellLines(values.data() + size_t(r) * looks.azimuth * width, size_t(width),
                                                 looks.azimuth, sums.data(), counts.data());
                        float* out = averaged.data() + size_t(r) * outWidth;
                        sar::cellMeans(sums.data(), counts.data(), looks.range, size_t(outWidth), out);
                        if (scale != sar::RadarScale::Intensity)
                            for (int c = 0; c < outWidth; ++c)
                                out[c] = sar::fromIntensity(out[c], scale);
                    }
                });
                algokit::writeRows(output.band(b), outRow0, outRows, averaged);
                report((b + double(outRow0 + outRows) / outHeight) / bands);
            });
        }
        output.commit();
        if (hasParameters)
        {
            record.azimuthLooks *= looks.azimuth;
            record.rangeLooks *= looks.range;
            record.azimuthSpacing *= looks.azimuth;
            record.slantRangeSpacing *= looks.range;
            record.azimuthLineTime *= looks.azimuth;
            record.numberOfColumns = outWidth;
            record.numberOfRows = outHeight;
            if (record.imageDataType.find("COMPLEX") != std::string::npos || record.imageDataType.empty())
                record.imageDataType = "INTENSITY";
            claimOutput(sarParameterFilePath(outputPath));
            sar::writeParameterFile(outputPath, record);
        }
        return outputPath;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(BatchMultiLook)
