// Plug-in "BandCombination_LandSat": the 30 m reflective bands of a Landsat delivery stacked into one raster,
// DN kept, with band names, wavelengths, the calibration coefficients and the sun geometry in its metadata.
#include "band_description.h"
#include "generic_params.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "scene_metadata.h"

#include <QDir>
#include <QFileInfo>

#include <vector>

namespace
{

class BandCombinationLandSat : public algokit::PluginBase
{
public:
    BandCombinationLandSat() : PluginBase(QStringLiteral("BandCombination_LandSat")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const QString inputDir = args.text("InputDir").required().existingPath();
        const QString outputPath = args.text("OutputFile").required().writableOutput();

        const QString mtlPath = findMtl(args, inputDir);
        radiometry::SceneMetadata scene;
        try
        {
            scene = radiometry::loadSceneMetadata(mtlPath);
        }
        catch (const optical::ProductError& error)
        {
            args.refuse(QStringLiteral("InputDir"), inputDir, QStringLiteral("cannot be used: ") + error.what());
        }
        if (scene.kind != radiometry::ProductKind::Landsat)
            args.refuse(QStringLiteral("InputDir"), inputDir, QStringLiteral("holds no Landsat MTL"));
        const std::vector<std::string> ids = scene.stackBandIds();
        if (ids.empty())
            args.refuse(QStringLiteral("InputDir"), inputDir,
                        QStringLiteral("describes no reflective band of a known Landsat sensor (%1)")
                            .arg(QString::fromStdString(scene.landsat.sensor)));

        // Every band file opens and lies on the same grid before anything is written.
        std::vector<algokit::DatasetPtr> inputs;
        for (const std::string& id : ids)
        {
            const QString path = radiometry::landsatBandFile(mtlPath, *scene.band(id));
            if (path.isEmpty())
                args.refuse(QStringLiteral("InputDir"), inputDir,
                            QStringLiteral("lacks the image of band %1 (%2)")
                                .arg(QString::fromStdString(id), QString::fromStdString(scene.band(id)->fileName)));
            inputs.push_back(algokit::openRaster(path));
            GDALDataset* first = inputs.front().get();
            GDALDataset* last = inputs.back().get();
            if (last->GetRasterXSize() != first->GetRasterXSize() || last->GetRasterYSize() != first->GetRasterYSize())
                args.refuse(QStringLiteral("InputDir"), inputDir,
                            QStringLiteral("holds band %1 at a size other than band %2's")
                                .arg(QString::fromStdString(id), QString::fromStdString(ids.front())));
        }

        GDALDataset* reference = inputs.front().get();
        const int width = reference->GetRasterXSize(), height = reference->GetRasterYSize();
        const int bands = int(inputs.size());
        const GDALDataType type = reference->GetRasterBand(1)->GetRasterDataType();
        QStringList options;
        if (algokit::driverForPath(outputPath) == QLatin1String("GTiff"))
            options << QStringLiteral("TILED=YES") << QStringLiteral("BIGTIFF=IF_SAFER")
                    << QStringLiteral("INTERLEAVE=BAND");
        algokit::OutputRaster output(outputPath, algokit::driverForPath(outputPath), width, height, bands, type, options);
        output.copyGeoreferencing(reference);
        for (int b = 0; b < bands; ++b)
        {
            const optical::BandCoefficients& c = *scene.band(ids[size_t(b)]);
            radiometry::describeBand(output.band(b), c, QString());
            radiometry::writeCoefficients(output.band(b), c);
            // Level-1 DN 0 is fill.
            output.band(b)->SetNoDataValue(0.0);
        }
        radiometry::writeSceneGeometry(output.get(), scene);
        output.get()->SetMetadataItem("SPACECRAFT_ID", scene.landsat.spacecraft.c_str());
        output.get()->SetMetadataItem("SENSOR_ID", scene.landsat.sensor.c_str());
        if (!scene.landsat.sceneId.empty())
            output.get()->SetMetadataItem("LANDSAT_SCENE_ID", scene.landsat.sceneId.c_str());

        const int step = algokit::rowsPerBlock(reference, 8);
        std::vector<double> rows;
        algokit::forEachRowBlock(height, step, [&](int row0, int count) {
            for (int b = 0; b < bands; ++b)
            {
                algokit::readRows(inputs[size_t(b)]->GetRasterBand(1), row0, count, rows);
                algokit::writeRows(output.band(b), row0, count, rows);
            }
            progress(100.0 * (row0 + count) / height);
        });
        output.commit();
        return true;
    }

private:
    // The MTL: the path itself, or the one *_MTL.txt of the folder.
    static QString findMtl(const algokit::GenericParams& args, const QString& inputDir)
    {
        const QFileInfo info(inputDir);
        if (info.isFile())
            return info.absoluteFilePath();
        const QDir folder(inputDir);
        const QStringList found = folder.entryList({QStringLiteral("*_MTL.txt"), QStringLiteral("*_MTL.TXT")},
                                                   QDir::Files, QDir::Name);
        if (found.isEmpty())
            args.refuse(QStringLiteral("InputDir"), inputDir, QStringLiteral("holds no *_MTL.txt file"));
        if (found.size() > 1)
            args.refuse(QStringLiteral("InputDir"), inputDir,
                        QStringLiteral("holds %1 MTL files; give the one to use").arg(found.size()));
        return folder.filePath(found.front());
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(BandCombinationLandSat)
