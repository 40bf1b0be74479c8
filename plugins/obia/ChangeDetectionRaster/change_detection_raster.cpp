// Change between two dates of one scene: a change magnitude (difference, ratio, log-ratio, change vector or
// IR-MAD) and a change map thresholded by hand or automatically, patches below a size sieved away.
#include "change_measures.h"
#include "class_map.h"
#include "classification_io.h"
#include "date_pair.h"
#include "generic_params.h"
#include "records/generic_record.h"
#include "thresholds.h"

#include <cmath>
#include <limits>
#include <mutex>

using namespace algokit;
using obia::ChangeMethod;

namespace
{

// Pixels of the regular sample IR-MAD is fitted to: its statistics settle long before that.
constexpr size_t kMadSample = 200000;
constexpr int kHistogramBins = 2048;
// The no-change probability below which IR-MAD calls a pixel changed when no threshold is given.
constexpr double kMadConfidence = 0.99;

const char* const kMethodNames[] = {"difference", "ratio", "log-ratio", "change vector analysis", "IR-MAD"};

class ChangeDetectionRaster : public PluginBase
{
public:
    ChangeDetectionRaster() : PluginBase(QStringLiteral("ChangeDetectionRaster")) {}

protected:
    bool run() override;

private:
    obia::MadTransform fitMad(const obia::DatePair& pair, const std::vector<int>& bands, GDALRasterBand* mask);
    void readMask(GDALRasterBand* mask, int row0, int rows, std::vector<unsigned char>& valid) const;
};

void ChangeDetectionRaster::readMask(GDALRasterBand* mask, int row0, int rows, std::vector<unsigned char>& valid) const
{
    if (!mask)
        return;
    std::vector<float> values;
    readRows(mask, row0, rows, values);
    int hasNoData = 0;
    const double noData = mask->GetNoDataValue(&hasNoData);
    for (size_t i = 0; i < values.size(); ++i)
        if (values[i] == 0.0f || std::isnan(values[i]) || (hasNoData && values[i] == float(noData)))
            valid[i] = 0;
}

obia::MadTransform ChangeDetectionRaster::fitMad(const obia::DatePair& pair, const std::vector<int>& bands,
                                                 GDALRasterBand* mask)
{
    const int width = pair.before->GetRasterXSize(), height = pair.before->GetRasterYSize();
    const size_t n = bands.size();
    const double total = double(width) * height;
    const int step = std::max(1, int(std::ceil(std::sqrt(total / double(kMadSample)))));
    std::vector<float> x, y;
    obia::RowsOfBoth rows;
    for (int row = 0, line = 0; row < height; row += step, ++line)
    {
        obia::readBoth(pair, bands, {}, row, 1, rows);
        readMask(mask, row, 1, rows.valid);
        for (int column = line % step; column < width; column += step)
            if (rows.valid[size_t(column)])
            {
                x.insert(x.end(), rows.before.begin() + column * n, rows.before.begin() + (column + 1) * n);
                y.insert(y.end(), rows.after.begin() + column * n, rows.after.begin() + (column + 1) * n);
            }
        progress(20.0 * (row + 1) / height);
    }
    try
    {
        return obia::fitIrMad(x.data(), y.data(), x.size() / n, int(n));
    }
    catch (const std::runtime_error& error)
    {
        throw AlgoError(QStringLiteral("ChangeDetectionRaster: IR-MAD cannot be fitted: %1.").arg(QString::fromUtf8(error.what())));
    }
}

bool ChangeDetectionRaster::run()
{
    const auto& record = params<GenericAlgoRecord>();
    GenericParams args(record, GetName());
    const QString beforePath = args.text("BeforeFile").existingFile();
    const QString afterPath = args.text("AfterFile").existingFile();
    DatasetPtr before = args.text("BeforeFile").openRaster();
    DatasetPtr after = args.text("AfterFile").openRaster();
    const double threshold = args.real("Threshold").orDefault(0.0).atLeast(0.0);
    const auto method = ChangeMethod(args.integer("Method").orDefault(0).range(0, 4).value());
    const int minSize = args.integer("MinSize").orDefault(0).atLeast(0);
    if (before->GetRasterCount() != after->GetRasterCount())
        args.refuse(QStringLiteral("AfterFile"), afterPath,
                    QStringLiteral("has %1 bands, BeforeFile has %2").arg(after->GetRasterCount()).arg(before->GetRasterCount()));
    const TextParam bandsText = args.text("Bands");
    std::vector<int> bands;
    for (int band : bandsText.intList())
    {
        if (band < 1 || band > before->GetRasterCount())
            args.refuse(QStringLiteral("Bands"), bandsText.value(),
                        QStringLiteral("names band %1; the images have %2").arg(band).arg(before->GetRasterCount()));
        bands.push_back(band - 1);
    }
    if (bands.empty())
        for (int b = 0; b < before->GetRasterCount(); ++b)
            bands.push_back(b);
    DatasetPtr maskDataset;
    if (!args.text("MaskFile").isEmpty())
    {
        maskDataset = args.text("MaskFile").existingFile().openRaster();
        if (maskDataset->GetRasterXSize() != before->GetRasterXSize() || maskDataset->GetRasterYSize() != before->GetRasterYSize())
            args.refuse(QStringLiteral("MaskFile"), args.text("MaskFile").value(),
                        QStringLiteral("is not the size of BeforeFile (%1 x %2 pixels)").arg(before->GetRasterXSize()).arg(before->GetRasterYSize()));
    }
    const QString outputPath = args.text("OutputFile").writableOutput();
    const QString driver = obia::rasterDriverFor(args, QStringLiteral("OutputFile"), outputPath);
    obia::refuseSameFile(args, QStringLiteral("OutputFile"), outputPath, QStringLiteral("BeforeFile"), beforePath);
    obia::refuseSameFile(args, QStringLiteral("OutputFile"), outputPath, QStringLiteral("AfterFile"), afterPath);
    const QString magnitudePath = obia::sidePath(outputPath, QStringLiteral("_magnitude"));
    obia::refuseSameFile(args, QStringLiteral("OutputFile"), magnitudePath, QStringLiteral("BeforeFile"), beforePath);
    obia::refuseSameFile(args, QStringLiteral("OutputFile"), magnitudePath, QStringLiteral("AfterFile"), afterPath);
    obia::DatePair pair = obia::alignDates(args, QStringLiteral("BeforeFile"), std::move(before), QStringLiteral("AfterFile"), std::move(after));
    GDALRasterBand* mask = maskDataset ? maskDataset->GetRasterBand(1) : nullptr;

    GDALDataset* grid = pair.before.get();
    const int width = grid->GetRasterXSize(), height = grid->GetRasterYSize();
    const int n = int(bands.size());
    obia::MadTransform mad;
    if (method == ChangeMethod::IrMad)
        mad = fitMad(pair, bands, mask);
    const double passStart = method == ChangeMethod::IrMad ? 20.0 : 0.0;

    // Pass 1: the magnitude raster (with the direction or the MAD variates after it).
    const int extraBands = method == ChangeMethod::Cva ? 1 : method == ChangeMethod::IrMad ? n : 0;
    OutputRaster magnitude(magnitudePath, driver, width, height, 1 + extraBands, GDT_Float32,
                           driver == QLatin1String("GTiff") ? QStringList{"TILED=YES", "BIGTIFF=IF_SAFER"} : QStringList());
    magnitude.copyGeoreferencing(grid);
    magnitude.band(0)->SetDescription(method == ChangeMethod::IrMad ? "chi-square of the MAD variates" : "change magnitude");
    if (method == ChangeMethod::Cva)
        magnitude.band(1)->SetDescription("change direction (degrees)");
    for (int i = 0; method == ChangeMethod::IrMad && i < n; ++i)
        magnitude.band(1 + i)->SetDescription(CPLSPrintf("MAD %d", i + 1));
    for (int b = 0; b <= extraBands; ++b)
        magnitude.band(b)->SetNoDataValue(std::numeric_limits<double>::quiet_NaN());
    magnitude.get()->SetMetadataItem("CHANGE_METHOD", kMethodNames[int(method)]);

    const int step = rowsPerBlock(grid, size_t(8) * n);
    double low = std::numeric_limits<double>::infinity(), high = -low;
    std::mutex rangeLock;
    obia::RowsOfBoth rows;
    std::vector<std::vector<float>> out(size_t(1 + extraBands));
    forEachRowBlock(height, step, [&](int row0, int count) {
        obia::readBoth(pair, bands, {}, row0, count, rows);
        readMask(mask, row0, count, rows.valid);
        for (auto& band : out)
            band.resize(size_t(width) * count);
        parallelFor(count, [&](int begin, int end) {
            double blockLow = std::numeric_limits<double>::infinity(), blockHigh = -blockLow;
            std::vector<double> variates(static_cast<size_t>(n));
            for (int r = begin; r < end; ++r)
            {
                const size_t first = size_t(r) * width;
                if (method == ChangeMethod::IrMad)
                    for (int x = 0; x < width; ++x)
                    {
                        const size_t p = first + x;
                        const bool ok = rows.valid[p];
                        const double z = ok ? mad.apply(&rows.before[p * n], &rows.after[p * n], variates.data()) : 0.0;
                        out[0][p] = ok ? float(z) : std::numeric_limits<float>::quiet_NaN();
                        for (int i = 0; i < n; ++i)
                            out[size_t(1 + i)][p] = ok ? float(variates[size_t(i)]) : std::numeric_limits<float>::quiet_NaN();
                    }
                else
                    obia::changeMagnitude(method, &rows.before[first * n], &rows.after[first * n], &rows.valid[first], size_t(width), n,
                                          &out[0][first], method == ChangeMethod::Cva ? &out[1][first] : nullptr);
                for (int x = 0; x < width; ++x)
                {
                    const float v = out[0][first + x];
                    if (!std::isnan(v))
                    {
                        blockLow = std::min(blockLow, double(v));
                        blockHigh = std::max(blockHigh, double(v));
                    }
                }
            }
            std::lock_guard<std::mutex> guard(rangeLock);
            low = std::min(low, blockLow);
            high = std::max(high, blockHigh);
        });
        for (int b = 0; b <= extraBands; ++b)
            writeRows(magnitude.band(b), row0, count, out[size_t(b)]);
        progress(passStart + (50.0 - passStart) * (row0 + count) / height);
    });
    if (!(high >= low))
        args.refuse(QStringLiteral("AfterFile"), afterPath, QStringLiteral("has no valid pixel in common with BeforeFile"));

    // Pass 2: the histogram of the magnitude and the threshold.
    std::vector<float> values;
    double used = threshold;
    if (!(threshold > 0.0))
    {
        if (method == ChangeMethod::IrMad)
            used = obia::chiSquareQuantile(kMadConfidence, n);
        else
        {
            const obia::Histogram histogram = obia::bandHistogram(magnitude.band(0), low, high, kHistogramBins, false,
                                                                  [&](double done) { progress(50.0 + 15.0 * done); });
            used = method == ChangeMethod::Difference || method == ChangeMethod::Cva ? obia::emThreshold(histogram).threshold
                                                                                     : obia::otsuThreshold(histogram);
        }
    }

    // Pass 3: the change map.
    const bool directions = method == ChangeMethod::Cva;
    const std::vector<Rgb> colours = directions ? std::vector<Rgb>{{220, 220, 220}, {230, 60, 50}, {240, 200, 40}, {60, 170, 80}, {50, 110, 220}}
                                                : std::vector<Rgb>{{220, 220, 220}, {230, 60, 50}};
    const QStringList names = directions ? QStringList{"No change", "Change, direction 0-90 degrees", "Change, direction 90-180 degrees",
                                                       "Change, direction 180-270 degrees", "Change, direction 270-360 degrees"}
                                         : QStringList{"No change", "Change"};
    OutputRaster map = createClassRaster(outputPath, grid, colours, names, driver);
    map.band(0)->SetNoDataValue(obia::kMapNoData);
    map.band(0)->SetDescription("change");
    map.get()->SetMetadataItem("CHANGE_METHOD", kMethodNames[int(method)]);
    map.get()->SetMetadataItem("CHANGE_THRESHOLD", CPLSPrintf("%.10g", used));
    std::vector<float> direction;
    std::vector<unsigned char> classes;
    forEachRowBlock(height, step, [&](int row0, int count) {
        readRows(magnitude.band(0), row0, count, values);
        if (directions)
            readRows(magnitude.band(1), row0, count, direction);
        classes.resize(values.size());
        for (size_t i = 0; i < values.size(); ++i)
        {
            if (std::isnan(values[i]))
                classes[i] = obia::kMapNoData;
            else if (!(values[i] > used))
                classes[i] = 0;
            else
                classes[i] = directions ? (unsigned char)(1 + std::min(3, int(direction[i] / 90.0f))) : 1;
        }
        writeRows(map.band(0), row0, count, classes);
        progress(65.0 + 20.0 * (row0 + count) / height);
    });
    obia::sievePatches(map.band(0), minSize, [&](double done) { progress(85.0 + 10.0 * done); });
    const std::vector<double> counts =
        obia::countClasses(map.band(0), int(names.size()), [&](double done) { progress(95.0 + 5.0 * done); });
    QString unit;
    const double pixelArea = obia::pixelArea(grid, &unit);
    double changed = 0.0;
    for (size_t c = 1; c < counts.size(); ++c)
        changed += counts[c];
    magnitude.commit();
    map.commit();
    progress(100.0);
    setResult(GenericOutputs()
                  .add(QStringLiteral("MagnitudeFile"), magnitudePath)
                  .add(QStringLiteral("Threshold"), QString::number(used, 'g', 7))
                  .add(QStringLiteral("ChangedArea"), QString::number(changed * pixelArea, 'f', 2))
                  .add(QStringLiteral("UnchangedArea"), QString::number(counts[0] * pixelArea, 'f', 2))
                  .add(QStringLiteral("AreaUnit"), unit)
                  .result());
    return true;
}

} // namespace

ALGO_PLUGIN_FACTORY(ChangeDetectionRaster)
