// Water-body change between two dates: water of each date (MNDWI or NDWI split by Otsu for optical images,
// backscatter in dB split by the split-based threshold for radar), then the transition map no water, stable
// water, new water, lost water, with the area of each.
#include "class_map.h"
#include "classification_io.h"
#include "date_pair.h"
#include "generic_params.h"
#include "records/generic_record.h"
#include "thresholds.h"
#include "water.h"

#include <cmath>

using namespace algokit;

namespace
{

// Index values between these ends are histogrammed; radar backscatter outside them is clamped to the end bins.
constexpr double kIndexRange[2] = {-1.0, 1.0};
constexpr double kDecibelRange[2] = {-50.0, 20.0};
constexpr int kHistogramBins = 1400;

class WaterChange : public PluginBase
{
public:
    WaterChange() : PluginBase(QStringLiteral("swbhjc")) {}

protected:
    bool run() override;
};

obia::WaterIndex waterIndexOf(const GenericParams& args, const QString& key, const QString& path, GDALDataset* dataset)
{
    obia::WaterIndex index;
    if (!obia::chooseWaterIndex(dataset, &index))
        args.refuse(key, path, QStringLiteral("has neither a green band with a near or short-wave infrared band nor a single radar band"));
    return index;
}

obia::Histogram emptyHistogram(const obia::WaterIndex& index)
{
    return index.kind == obia::WaterIndex::Radar ? obia::Histogram(kDecibelRange[0], kDecibelRange[1], kHistogramBins)
                                                 : obia::Histogram(kIndexRange[0], kIndexRange[1], kHistogramBins);
}

bool WaterChange::run()
{
    const auto& record = params<GenericAlgoRecord>();
    GenericParams args(record, GetName());
    const QString laterPath = args.text("InputFile").existingFile();
    const QString earlierPath = args.text("ReferenceFile").existingFile();
    DatasetPtr later = args.text("InputFile").openRaster();
    DatasetPtr earlier = args.text("ReferenceFile").openRaster();
    const obia::WaterIndex laterIndex = waterIndexOf(args, QStringLiteral("InputFile"), laterPath, later.get());
    const obia::WaterIndex earlierIndex = waterIndexOf(args, QStringLiteral("ReferenceFile"), earlierPath, earlier.get());
    const QString outputPath = args.text("OutputFile").writableOutput();
    const QString driver = obia::rasterDriverFor(args, QStringLiteral("OutputFile"), outputPath);
    obia::refuseSameFile(args, QStringLiteral("OutputFile"), outputPath, QStringLiteral("InputFile"), laterPath);
    obia::refuseSameFile(args, QStringLiteral("OutputFile"), outputPath, QStringLiteral("ReferenceFile"), earlierPath);
    // The earlier image gives the grid.
    obia::DatePair pair = obia::alignDates(args, QStringLiteral("ReferenceFile"), std::move(earlier), QStringLiteral("InputFile"), std::move(later));
    GDALDataset* grid = pair.before.get();
    const int width = grid->GetRasterXSize(), height = grid->GetRasterYSize();
    const obia::WaterIndex* indices[2] = {&earlierIndex, &laterIndex};
    const int step = rowsPerBlock(grid, 16);
    const int tileSize = std::max(16, std::min(256, std::min(width, height) / 16));

    obia::RowsOfBoth rows;
    std::vector<float> values[2];
    auto computeBlock = [&](int row0, int count) {
        obia::readBoth(pair, earlierIndex.bands, laterIndex.bands, row0, count, rows);
        const size_t pixels = size_t(width) * count;
        for (int d = 0; d < 2; ++d)
        {
            values[d].resize(pixels);
            obia::waterIndexValues(*indices[d], d == 0 ? rows.before.data() : rows.after.data(), rows.valid.data(), pixels, values[d].data());
        }
    };

    // Pass 1: histograms of the optical indices, tile statistics of radar backscatter.
    obia::Histogram histograms[2] = {emptyHistogram(earlierIndex), emptyHistogram(laterIndex)};
    obia::TileStatistics tiles[2] = {obia::TileStatistics(width, height, tileSize), obia::TileStatistics(width, height, tileSize)};
    const bool anyRadar = earlierIndex.kind == obia::WaterIndex::Radar || laterIndex.kind == obia::WaterIndex::Radar;
    double valid = 0.0;
    forEachRowBlock(height, step, [&](int row0, int count) {
        computeBlock(row0, count);
        for (unsigned char v : rows.valid)
            valid += v;
        for (int d = 0; d < 2; ++d)
        {
            if (indices[d]->kind == obia::WaterIndex::Radar)
                for (int r = 0; r < count; ++r)
                    tiles[d].addRow(row0 + r, values[d].data() + size_t(r) * width);
            else
                for (float v : values[d])
                    histograms[d].add(v);
        }
        progress((anyRadar ? 30.0 : 50.0) * (row0 + count) / height);
    });
    if (valid == 0.0)
        args.refuse(QStringLiteral("InputFile"), laterPath, QStringLiteral("has no valid pixel in common with ReferenceFile"));

    // Pass 2 (radar only): the histogram of the tiles whose spread shows both water and land.
    if (anyRadar)
    {
        std::vector<char> selected[2];
        for (int d = 0; d < 2; ++d)
            if (indices[d]->kind == obia::WaterIndex::Radar)
                selected[d] = tiles[d].selectBimodal();
        forEachRowBlock(height, step, [&](int row0, int count) {
            computeBlock(row0, count);
            for (int d = 0; d < 2; ++d)
            {
                if (indices[d]->kind != obia::WaterIndex::Radar)
                    continue;
                for (int r = 0; r < count; ++r)
                    for (int x = 0; x < width; ++x)
                        if (selected[d][size_t(tiles[d].tileIndex(x, row0 + r))])
                            histograms[d].add(values[d][size_t(r) * width + x]);
            }
            progress(30.0 + 25.0 * (row0 + count) / height);
        });
    }
    const double thresholds[2] = {obia::otsuThreshold(histograms[0]), obia::otsuThreshold(histograms[1])};

    // Pass 3: the transition map.
    const QStringList names = {"No water", "Stable water", "New water", "Lost water"};
    OutputRaster map = createClassRaster(outputPath, grid, {{235, 235, 225}, {30, 80, 200}, {40, 200, 230}, {220, 120, 40}}, names, driver);
    map.band(0)->SetNoDataValue(obia::kMapNoData);
    map.band(0)->SetDescription("water change");
    map.get()->SetMetadataItem("REFERENCE_WATER", CPLSPrintf("%s, threshold %.6g", earlierIndex.name().toUtf8().constData(), thresholds[0]));
    map.get()->SetMetadataItem("INPUT_WATER", CPLSPrintf("%s, threshold %.6g", laterIndex.name().toUtf8().constData(), thresholds[1]));
    std::vector<unsigned char> classes;
    forEachRowBlock(height, step, [&](int row0, int count) {
        computeBlock(row0, count);
        classes.resize(values[0].size());
        for (size_t p = 0; p < classes.size(); ++p)
        {
            if (std::isnan(values[0][p]) || std::isnan(values[1][p]))
            {
                classes[p] = obia::kMapNoData;
                continue;
            }
            const bool before = earlierIndex.isWater(values[0][p], thresholds[0]);
            const bool after = laterIndex.isWater(values[1][p], thresholds[1]);
            classes[p] = before && after ? 1 : after ? 2 : before ? 3 : 0;
        }
        writeRows(map.band(0), row0, count, classes);
        progress(55.0 + 40.0 * (row0 + count) / height);
    });
    const std::vector<double> counts = obia::countClasses(map.band(0), 4, [&](double done) { progress(95.0 + 5.0 * done); });
    QString unit;
    const double area = obia::pixelArea(grid, &unit);
    map.commit();
    setResult(GenericOutputs()
                  .add(QStringLiteral("NoWaterArea"), QString::number(counts[0] * area, 'f', 2))
                  .add(QStringLiteral("StableWaterArea"), QString::number(counts[1] * area, 'f', 2))
                  .add(QStringLiteral("NewWaterArea"), QString::number(counts[2] * area, 'f', 2))
                  .add(QStringLiteral("LostWaterArea"), QString::number(counts[3] * area, 'f', 2))
                  .add(QStringLiteral("AreaUnit"), unit)
                  .add(QStringLiteral("ReferenceThreshold"), QString::number(thresholds[0], 'g', 6))
                  .add(QStringLiteral("InputThreshold"), QString::number(thresholds[1], 'g', 6))
                  .result());
    return true;
}

} // namespace

ALGO_PLUGIN_FACTORY(WaterChange)
