// Vegetation change between two dates: the NDVI of each date, their difference, and a map of loss, no change and
// gain at plus or minus a threshold, with the area of each class.
#include "class_map.h"
#include "classification_io.h"
#include "date_pair.h"
#include "generic_params.h"
#include "records/generic_record.h"
#include "spectral_bands.h"
#include "thresholds.h"

#include <cmath>
#include <limits>
#include <mutex>

using namespace algokit;

namespace
{

constexpr int kHistogramBins = 2000;

class ChangeDetectVegetation : public PluginBase
{
public:
    ChangeDetectVegetation() : PluginBase(QStringLiteral("ChangeDetectVegetation")) {}

protected:
    bool run() override;
};

obia::OpticalBands redAndNir(const GenericParams& args, const QString& key, const QString& path, GDALDataset* dataset)
{
    const obia::OpticalBands bands = obia::findOpticalBands(obia::bandLabels(dataset));
    if (bands.red < 0 || bands.nir < 0)
        args.refuse(key, path,
                    QStringLiteral("has no band known as red and near infrared (no wavelengths, band names or usual band "
                                   "order for %1 bands)").arg(dataset->GetRasterCount()));
    return bands;
}

inline float ndvi(float red, float nir)
{
    const float sum = nir + red;
    return sum != 0.0f ? (nir - red) / sum : std::numeric_limits<float>::quiet_NaN();
}

bool ChangeDetectVegetation::run()
{
    const auto& record = params<GenericAlgoRecord>();
    GenericParams args(record, GetName());
    const QString beforePath = args.text("BeforeFile").existingFile();
    const QString afterPath = args.text("AfterFile").existingFile();
    DatasetPtr before = args.text("BeforeFile").openRaster();
    DatasetPtr after = args.text("AfterFile").openRaster();
    const double threshold = args.real("Threshold").orDefault(0.0).range(0.0, 2.0);
    const obia::OpticalBands beforeBands = redAndNir(args, QStringLiteral("BeforeFile"), beforePath, before.get());
    const obia::OpticalBands afterBands = redAndNir(args, QStringLiteral("AfterFile"), afterPath, after.get());
    const QString outputPath = args.text("OutputFile").writableOutput();
    const QString driver = obia::rasterDriverFor(args, QStringLiteral("OutputFile"), outputPath);
    const QString ndviPath = obia::sidePath(outputPath, QStringLiteral("_ndvi"));
    for (const QString& path : {outputPath, ndviPath})
    {
        obia::refuseSameFile(args, QStringLiteral("OutputFile"), path, QStringLiteral("BeforeFile"), beforePath);
        obia::refuseSameFile(args, QStringLiteral("OutputFile"), path, QStringLiteral("AfterFile"), afterPath);
    }
    obia::DatePair pair = obia::alignDates(args, QStringLiteral("BeforeFile"), std::move(before), QStringLiteral("AfterFile"), std::move(after));
    GDALDataset* grid = pair.before.get();
    const int width = grid->GetRasterXSize(), height = grid->GetRasterYSize();

    // Pass 1: NDVI of both dates and their difference (after - before).
    OutputRaster ndviFile(ndviPath, driver, width, height, 3, GDT_Float32,
                          driver == QLatin1String("GTiff") ? QStringList{"TILED=YES", "BIGTIFF=IF_SAFER"} : QStringList());
    ndviFile.copyGeoreferencing(grid);
    const char* const descriptions[] = {"NDVI before", "NDVI after", "NDVI difference (after - before)"};
    for (int b = 0; b < 3; ++b)
    {
        ndviFile.band(b)->SetDescription(descriptions[b]);
        ndviFile.band(b)->SetNoDataValue(std::numeric_limits<double>::quiet_NaN());
    }
    auto describe = [](const obia::OpticalBands& bands) {
        return QStringLiteral("red %1, NIR %2 (%3)").arg(bands.red + 1).arg(bands.nir + 1).arg(bands.source).toUtf8();
    };
    ndviFile.get()->SetMetadataItem("BEFORE_BANDS", describe(beforeBands).constData());
    ndviFile.get()->SetMetadataItem("AFTER_BANDS", describe(afterBands).constData());
    const int step = rowsPerBlock(grid, 16);
    obia::RowsOfBoth rows;
    std::vector<std::vector<float>> out(3);
    double largest = 0.0;
    std::mutex largestLock;
    forEachRowBlock(height, step, [&](int row0, int count) {
        obia::readBoth(pair, {beforeBands.red, beforeBands.nir}, {afterBands.red, afterBands.nir}, row0, count, rows);
        for (auto& band : out)
            band.resize(size_t(width) * count);
        parallelFor(count, [&](int begin, int end) {
            double blockLargest = 0.0;
            for (size_t p = size_t(begin) * width; p < size_t(end) * width; ++p)
            {
                const float nan = std::numeric_limits<float>::quiet_NaN();
                const float b = rows.valid[p] ? ndvi(rows.before[2 * p], rows.before[2 * p + 1]) : nan;
                const float a = rows.valid[p] ? ndvi(rows.after[2 * p], rows.after[2 * p + 1]) : nan;
                out[0][p] = b;
                out[1][p] = a;
                out[2][p] = a - b;
                if (std::fabs(a - b) > blockLargest)
                    blockLargest = std::fabs(a - b);
            }
            std::lock_guard<std::mutex> guard(largestLock);
            largest = std::max(largest, blockLargest);
        });
        for (int b = 0; b < 3; ++b)
            writeRows(ndviFile.band(b), row0, count, out[size_t(b)]);
        progress(50.0 * (row0 + count) / height);
    });

    // Threshold: given, or the Bayes split of two Gaussians fitted to |difference|.
    double used = threshold;
    if (!(threshold > 0.0))
        used = obia::emThreshold(obia::bandHistogram(ndviFile.band(2), 0.0, std::max(largest, 1e-6), kHistogramBins, true,
                                                     [&](double done) { progress(50.0 + 15.0 * done); }))
                   .threshold;

    // Pass 2: the class map.
    const QStringList names = {"No change", "Vegetation loss", "Vegetation gain"};
    OutputRaster map = createClassRaster(outputPath, grid, {{220, 220, 220}, {200, 60, 40}, {40, 160, 60}}, names, driver);
    map.band(0)->SetNoDataValue(obia::kMapNoData);
    map.band(0)->SetDescription("vegetation change");
    map.get()->SetMetadataItem("NDVI_THRESHOLD", CPLSPrintf("%.10g", used));
    std::vector<float> difference;
    std::vector<unsigned char> classes;
    forEachRowBlock(height, step, [&](int row0, int count) {
        readRows(ndviFile.band(2), row0, count, difference);
        classes.resize(difference.size());
        for (size_t i = 0; i < difference.size(); ++i)
        {
            const float d = difference[i];
            classes[i] = std::isnan(d) ? obia::kMapNoData : d < -used ? 1 : d > used ? 2 : 0;
        }
        writeRows(map.band(0), row0, count, classes);
        progress(65.0 + 30.0 * (row0 + count) / height);
    });
    const std::vector<double> counts = obia::countClasses(map.band(0), 3, [&](double done) { progress(95.0 + 5.0 * done); });
    QString unit;
    const double area = obia::pixelArea(grid, &unit);
    ndviFile.commit();
    map.commit();
    setResult(GenericOutputs()
                  .add(QStringLiteral("NdviFile"), ndviPath)
                  .add(QStringLiteral("Threshold"), QString::number(used, 'g', 7))
                  .add(QStringLiteral("NoChangeArea"), QString::number(counts[0] * area, 'f', 2))
                  .add(QStringLiteral("LossArea"), QString::number(counts[1] * area, 'f', 2))
                  .add(QStringLiteral("GainArea"), QString::number(counts[2] * area, 'f', 2))
                  .add(QStringLiteral("AreaUnit"), unit)
                  .result());
    return true;
}

} // namespace

ALGO_PLUGIN_FACTORY(ChangeDetectVegetation)
