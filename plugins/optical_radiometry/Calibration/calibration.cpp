// Plug-in "Calibration": DN to at-sensor radiance, top-of-atmosphere reflectance or brightness temperature, with
// the coefficients of a Landsat MTL, a Sentinel-2 product XML or a coefficient table.
#include "band_description.h"
#include "calibration_kernels.h"
#include "generic_params.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "scene_metadata.h"

#include <QFileInfo>

#include <vector>

namespace
{

enum CalibrationType
{
    kRadiance = 0,
    kReflectance = 1,
    kBrightnessTemperature = 2
};

// The per-band conversion chosen before any pixel is read.
struct BandPlan
{
    optical::BandCoefficients coefficients;
    radiometry::LinearCalibration linear; // radiance for brightness temperature
    radiometry::NoDataRule noData;
};

class Calibration : public algokit::PluginBase
{
public:
    Calibration() : PluginBase(QStringLiteral("Calibration")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const QString inputPath = args.text("InputFile").required().existingFile();
        algokit::DatasetPtr input = args.text("InputFile").openRaster();
        const QString outputPath = args.text("OutputFile").required().writableOutput();
        const int type = args.integer("CalibrationType").orDefault(kReflectance).oneOf({0, 1, 2});
        auto calibrationFile = args.text("CalibrationFile");
        if (!calibrationFile.isEmpty())
            calibrationFile.existingFile();
        if (QFileInfo(outputPath).absoluteFilePath() == QFileInfo(inputPath).absoluteFilePath())
            args.refuse(QStringLiteral("OutputFile"), outputPath, QStringLiteral("must differ from the input"));

        // The coefficients: the file given, else the product's own metadata beside the image, else those a stack
        // of ours carries in its band metadata.
        QString metadataKey = QStringLiteral("CalibrationFile");
        QString metadataPath = calibrationFile.value();
        radiometry::SceneMetadata scene;
        bool fromBands = false;
        if (calibrationFile.isEmpty())
        {
            metadataKey = QStringLiteral("InputFile");
            metadataPath = radiometry::findMetadataBeside(inputPath);
            fromBands = metadataPath.isEmpty() && radiometry::sceneFromBandMetadata(input.get(), &scene);
            if (metadataPath.isEmpty() && !fromBands)
                args.refuse(metadataKey, inputPath,
                            QStringLiteral("has no MTL or Sentinel-2 product XML beside it and no CalibrationFile "
                                           "was given"));
            if (fromBands)
                metadataPath = inputPath;
        }
        try
        {
            if (!fromBands)
                scene = radiometry::loadSceneMetadata(metadataPath, inputPath);
        }
        catch (const optical::ProductError& error)
        {
            args.refuse(metadataKey, metadataPath, QStringLiteral("cannot be used: ") + error.what());
        }

        const std::vector<std::string> ids = radiometry::bandIdsOf(input.get(), inputPath, scene);
        std::vector<BandPlan> plans;
        for (int b = 0; b < input->GetRasterCount(); ++b)
        {
            const std::string& id = ids[size_t(b)];
            if (id.empty())
                args.refuse(metadataKey, metadataPath,
                            QStringLiteral("does not tell which of its bands is band %1 of the input").arg(b + 1));
            BandPlan plan;
            plan.coefficients = *scene.band(id);
            plan.noData = radiometry::noDataRuleOf(input->GetRasterBand(b + 1), scene);
            try
            {
                if (type == kBrightnessTemperature)
                {
                    if (!plan.coefficients.hasThermal())
                        throw optical::ProductError("band " + id + " has no thermal constants K1/K2, which "
                                                    "brightness temperature needs");
                    plan.linear = radiometry::radianceOf(plan.coefficients);
                }
                else if (type == kRadiance)
                    plan.linear = radiometry::radianceOf(plan.coefficients);
                else
                    plan.linear = radiometry::reflectanceOf(plan.coefficients, scene.sun);
            }
            catch (const optical::ProductError& error)
            {
                args.refuse(metadataKey, metadataPath, QStringLiteral("cannot be used: ") + error.what());
            }
            plans.push_back(plan);
        }

        const int width = input->GetRasterXSize(), height = input->GetRasterYSize();
        const int bands = input->GetRasterCount();
        algokit::OutputRaster output(outputPath, algokit::driverForPath(outputPath), width, height, bands,
                                     GDT_Float32, tiffOptions(outputPath));
        output.copyGeoreferencing(input.get());
        static const char* const units[] = {"W/(m2 sr um)", "", "K"};
        for (int b = 0; b < bands; ++b)
        {
            output.band(b)->SetNoDataValue(radiometry::kOutputNoData);
            radiometry::describeBand(output.band(b), plans[size_t(b)].coefficients, QLatin1String(units[type]));
        }
        output.get()->SetMetadataItem("CALIBRATION", type == kRadiance      ? "radiance"
                                                     : type == kReflectance ? "TOA reflectance"
                                                                            : "brightness temperature");

        const int step = algokit::rowsPerBlock(input.get(), 12);
        std::vector<double> dn;
        std::vector<float> out;
        algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
            for (int b = 0; b < bands; ++b)
            {
                algokit::readRows(input->GetRasterBand(b + 1), row0, rows, dn);
                out.resize(dn.size());
                const BandPlan& plan = plans[size_t(b)];
                if (type == kBrightnessTemperature)
                    radiometry::applyBrightnessTemperature(dn.data(), dn.size(), plan.linear, plan.coefficients.k1,
                                                           plan.coefficients.k2, plan.noData, out.data());
                else
                    radiometry::applyLinear(dn.data(), dn.size(), plan.linear, plan.noData, out.data());
                algokit::writeRows(output.band(b), row0, rows, out);
            }
            progress(100.0 * (row0 + rows) / height);
        });
        output.commit();
        return true;
    }

private:
    static QStringList tiffOptions(const QString& path)
    {
        if (algokit::driverForPath(path) != QLatin1String("GTiff"))
            return {};
        return {QStringLiteral("TILED=YES"), QStringLiteral("BIGTIFF=IF_SAFER")};
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(Calibration)
