// Plug-in "ThresholdSplit": a two-class image of one band, 1 where the value is at or above Threshold and 0 below
// it, no-data (255) where the band has none. A NaN Threshold chooses Otsu's threshold (Otsu, 1979) from the
// band's histogram: one bin per value for integer bands spanning at most 65536 values, 1024 bins otherwise. The
// threshold used is reported as the [OUTPUT] line "Threshold".
#include "otsu.h"
#include "spectral_cube.h"

#include <cmath>

namespace
{

constexpr unsigned char kNoData = 255;

class ThresholdSplit : public algokit::PluginBase
{
public:
    ThresholdSplit() : PluginBase(QStringLiteral("ThresholdSplit")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        algokit::DatasetPtr input = hysa::openCube(args, QStringLiteral("InputFile"), 1);
        const int bandNumber = args.integer(QStringLiteral("Band")).orDefault(1).range(1, input->GetRasterCount());
        double threshold = args.real(QStringLiteral("Threshold")).orDefault(std::nan("")).value();
        if (std::isinf(threshold))
            args.refuse(QStringLiteral("Threshold"), QString::number(threshold),
                        QStringLiteral("must be finite or nan"));
        const QString outputPath = args.text(QStringLiteral("OutputFile")).required().writableOutput();
        GDALRasterBand* band = input->GetRasterBand(bandNumber);
        int hasNoData = 0;
        const double noData = band->GetNoDataValue(&hasNoData);
        const int width = input->GetRasterXSize(), height = input->GetRasterYSize();
        const int step = algokit::rowsPerBlock(input.get(), sizeof(double));
        std::vector<double> values;
        auto missing = [&](double v) { return std::isnan(v) || (hasNoData && v == noData); };

        const bool otsu = std::isnan(threshold);
        if (otsu)
            threshold = otsuOf(band, args, bandNumber, step, missing);

        algokit::OutputRaster output(outputPath, algokit::driverForPath(outputPath), width, height, 1, GDT_Byte);
        output.copyGeoreferencing(input.get());
        GDALRasterBand* classes = output.band(0);
        classes->SetNoDataValue(kNoData);
        classes->SetDescription(
            QStringLiteral("Band %1 split at %2").arg(bandNumber).arg(threshold, 0, 'g', 10).toUtf8().constData());
        GDALColorTable colours;
        const GDALColorEntry below{0, 0, 0, 255}, above{255, 255, 255, 255};
        colours.SetColorEntry(0, &below);
        colours.SetColorEntry(1, &above);
        classes->SetColorTable(&colours);
        classes->SetColorInterpretation(GCI_PaletteIndex);
        CPLStringList names;
        names.AddString("Below threshold");
        names.AddString("At or above threshold");
        classes->SetCategoryNames(names.List());

        std::vector<unsigned char> split;
        const double progressStart = otsu ? 50.0 : 0.0;
        for (int row0 = 0; row0 < height; row0 += step)
        {
            const int rows = std::min(step, height - row0);
            algokit::readRows(band, row0, rows, values);
            split.resize(values.size());
            for (size_t i = 0; i < values.size(); ++i)
                split[i] = missing(values[i]) ? kNoData : values[i] >= threshold ? 1 : 0;
            algokit::writeRows(classes, row0, rows, split);
            progress(progressStart + (100.0 - progressStart) * (row0 + rows) / height);
        }
        output.commit();
        setResult(
            algokit::GenericOutputs().add(QStringLiteral("Threshold"), QString::number(threshold, 'g', 10)).result());
        return true;
    }

private:
    // Otsu's threshold of the band's valid values: a pass for the range, one for the histogram.
    template <typename Missing>
    double otsuOf(GDALRasterBand* band, const algokit::GenericParams& args, int bandNumber, int step, Missing missing)
    {
        const int height = band->GetYSize();
        std::vector<double> values;
        double low = std::numeric_limits<double>::infinity(), high = -low;
        for (int row0 = 0; row0 < height; row0 += step)
        {
            const int rows = std::min(step, height - row0);
            algokit::readRows(band, row0, rows, values);
            for (double v : values)
                if (!missing(v) && std::isfinite(v)) // infinities are classified but take no part in the histogram
                {
                    low = std::min(low, v);
                    high = std::max(high, v);
                }
            progress(25.0 * (row0 + rows) / height);
        }
        const QString input = args.text(QStringLiteral("InputFile")).value();
        if (!(low <= high))
            args.refuse(QStringLiteral("Band"), QString::number(bandNumber),
                        QStringLiteral("has no valid pixel in %1, so Otsu's threshold is undefined").arg(input));
        const bool integer = GDALDataTypeIsInteger(band->GetRasterDataType()) && high - low < 65536.0;
        const int bins = integer ? int(high - low) + 1 : 1024;
        const double start = integer ? low - 0.5 : low;
        const double width = integer ? 1.0 : (high - low) / bins;
        std::vector<double> counts(size_t(bins), 0.0);
        for (int row0 = 0; row0 < height; row0 += step)
        {
            const int rows = std::min(step, height - row0);
            algokit::readRows(band, row0, rows, values);
            for (double v : values)
                if (!missing(v) && std::isfinite(v))
                    counts[size_t(std::min(bins - 1, std::max(0, int((v - start) / width))))] += 1.0;
            progress(25.0 + 25.0 * (row0 + rows) / height);
        }
        const double threshold = width > 0.0 ? hysa::otsuThreshold(counts, start, width) : std::nan("");
        if (std::isnan(threshold))
            args.refuse(QStringLiteral("Band"), QString::number(bandNumber),
                        QStringLiteral("holds the single value %1 in %2, so Otsu's threshold is undefined")
                            .arg(low, 0, 'g', 10)
                            .arg(input));
        return threshold;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(ThresholdSplit)
