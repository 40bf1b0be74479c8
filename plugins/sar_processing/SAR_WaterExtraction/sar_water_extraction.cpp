// Plug-in "SAR_WaterExtraction": water where backscatter (dB) lies below a threshold, given or chosen by the
// hierarchical split-based method over a quadtree of tiles; patches of fewer than kMinPatch pixels merged into their surroundings
// (GDAL's sieve, 8-connected); a two-class image with colour table and names, the threshold and water area.
#include "classification_io.h"
#include "gdal_progress.h"
#include "generic_params.h"
#include "radar_batch.h"
#include "water_threshold.h"

#include <gdal_alg.h>

#include <cmath>

namespace
{

constexpr int kMinPatch = 10;
constexpr unsigned char kNoData = 255;

class SarWaterExtraction : public algokit::PluginBase
{
public:
    SarWaterExtraction() : PluginBase(QStringLiteral("SAR_WaterExtraction")) {}

protected:
    bool run() override
    {
        const algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        algokit::TextParam inputParam = args.text("InputFile").existingFile();
        algokit::DatasetPtr source = inputParam.openRaster();
        const QString input = inputParam.value();
        const QString outputPath = args.text("OutputFile").writableOutput();
        const double given = args.real("Threshold").orDefault(0.0).range(-100.0, 100.0);
        GDALRasterBand* band = source->GetRasterBand(1);
        if (GDALDataTypeIsComplex(band->GetRasterDataType()))
            args.refuse("InputFile", input, QStringLiteral("is complex: a detected backscatter image is needed"));
        const sar::RadarScale scale = sar::bandScale(source.get(), 1, input);
        const int width = source->GetRasterXSize(), height = source->GetRasterYSize();

        // Leaf tiles of the quadtree: at most 64 along the longer side, at least 32 pixels wide.
        const int tile = std::max(32, (std::max(width, height) + 63) / 64);
        std::vector<float> values;
        auto readDecibels = [&](int row0, int rows) {
            sar::readFloatRows(band, row0, rows, values, false);
            if (scale != sar::RadarScale::Decibel)
                for (float& v : values)
                    v = sar::fromIntensity(sar::toIntensity(v, scale), sar::RadarScale::Decibel);
        };
        double threshold = given;
        int tilesUsed = 0;
        if (given == 0.0)
        {
            std::vector<sar::Histogram> tiles;
            algokit::forEachRowBlock(height, tile, [&](int row0, int rows) {
                readDecibels(row0, rows);
                for (int x0 = 0; x0 < width; x0 += tile)
                {
                    sar::Histogram histogram;
                    for (int r = 0; r < rows; ++r)
                        for (int x = x0; x < std::min(width, x0 + tile); ++x)
                            histogram.add(values[size_t(r) * width + x]);
                    tiles.push_back(histogram);
                }
                progress(30.0 * (row0 + rows) / height);
            });
            threshold = sar::hierarchicalSplitThreshold(tiles, (width + tile - 1) / tile, (height + tile - 1) / tile,
                                                        &tilesUsed);
        }

        algokit::OutputRaster output = algokit::createClassRaster(outputPath, source.get(), {{190, 190, 190}, {0, 90, 255}},
                                                                  {"Non-water", "Water"});
        GDALRasterBand* classes = output.band(0);
        classes->SetNoDataValue(kNoData);
        std::vector<unsigned char> labels;
        algokit::forEachRowBlock(height, algokit::rowsPerBlock(source.get(), 4), [&](int row0, int rows) {
            readDecibels(row0, rows);
            labels.resize(values.size());
            for (size_t i = 0; i < values.size(); ++i)
                labels[i] = std::isnan(values[i]) ? kNoData : (values[i] < threshold ? 1 : 0);
            algokit::writeRows(classes, row0, rows, labels);
            progress(30.0 + 30.0 * (row0 + rows) / height);
        });

        algokit::GdalProgress sieveProgress([this](double percent) { progress(percent); }, 60.0, 90.0);
        if (GDALSieveFilter(classes, classes->GetMaskBand(), classes, kMinPatch, 8, nullptr,
                            algokit::GdalProgress::callback, &sieveProgress) != CE_None)
        {
            sieveProgress.rethrowIfCancelled();
            throw algokit::AlgoError(QStringLiteral("Removing small patches failed: %1").arg(CPLGetLastErrorMsg()));
        }

        long long water = 0;
        algokit::forEachRowBlock(height, algokit::rowsPerBlock(source.get(), 1), [&](int row0, int rows) {
            algokit::readRows(classes, row0, rows, labels);
            for (unsigned char label : labels)
                water += label == 1;
            progress(90.0 + 10.0 * (row0 + rows) / height);
        });
        double transform[6];
        const bool georeferenced = source->GetGeoTransform(transform) == CE_None && source->GetSpatialRef() &&
                                   source->GetSpatialRef()->IsProjected();
        const double pixelArea = georeferenced ? std::fabs(transform[1] * transform[5] - transform[2] * transform[4]) *
                                                     source->GetSpatialRef()->GetLinearUnits() *
                                                     source->GetSpatialRef()->GetLinearUnits()
                                               : 0.0;
        const QString thresholdText = QString::number(threshold, 'f', 2);
        const QString areaText = georeferenced ? QString::number(water * pixelArea / 1e6, 'f', 4) : QString();
        output.get()->SetMetadataItem("WATER_THRESHOLD_DB", thresholdText.toUtf8().constData());
        output.get()->SetMetadataItem("WATER_PIXELS", QByteArray::number(water).constData());
        if (given == 0.0)
            output.get()->SetMetadataItem("BIMODAL_TILES", QByteArray::number(tilesUsed).constData());
        if (georeferenced)
            output.get()->SetMetadataItem("WATER_AREA_KM2", areaText.toUtf8().constData());
        output.commit();

        algokit::GenericOutputs outputs;
        outputs.add("SAR_WaterExtraction_images", outputPath);
        outputs.add("SAR_WaterExtraction_threshold", thresholdText);
        outputs.add("SAR_WaterExtraction_water_pixels", QString::number(water));
        if (georeferenced)
            outputs.add("SAR_WaterExtraction_area_km2", areaText);
        setResult(outputs.result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(SarWaterExtraction)
