// Plug-in "Sen2DataTransform2": bands of a Sentinel-2 product (SAFE folder, zip or product XML; L1C or L2A) as
// one reflectance stack at 10, 20 or 60 m: reflectance = (DN + offset) / quantification * Scale, band names and
// wavelengths in the metadata, optionally the L2A scene classification as a last band.
#include "band_description.h"
#include "calibration_kernels.h"
#include "gdal_apps.h"
#include "generic_params.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "scene_metadata.h"

#include <QFileInfo>
#include <QRegularExpression>

#include <cmath>
#include <vector>

namespace
{

struct Grid
{
    double x0 = 0, y0 = 0, pixel = 0;
    int width = 0, height = 0;
    std::string wkt;
};

struct Source
{
    algokit::DatasetPtr file;
    algokit::DatasetPtr onGrid; // warped VRT on the output grid
    const optical::Sentinel2Band* band = nullptr;
};

class Sen2DataTransform2 : public algokit::PluginBase
{
public:
    Sen2DataTransform2() : PluginBase(QStringLiteral("Sen2DataTransform2")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const QString inputPath = args.text("InputFile").required().existingPath();
        const QString outputPath = args.text("OutputFile").required().writableOutput();
        const auto bandsParam = args.text("Bands");
        const int resolution = args.integer("Resolution").orDefault(10).oneOf({10, 20, 60});
        const double scale = args.real("Scale").orDefault(1.0).above(0.0);
        const int option = args.integer("Option").orDefault(0).oneOf({0, 1});

        const QString xmlPath = radiometry::sentinel2ProductXml(inputPath);
        if (xmlPath.isEmpty())
            args.refuse(QStringLiteral("InputFile"), inputPath,
                        QStringLiteral("is not a Sentinel-2 product (no MTD_MSIL1C.xml or MTD_MSIL2A.xml found)"));
        radiometry::SceneMetadata scene;
        try
        {
            scene = radiometry::loadSceneMetadata(xmlPath);
        }
        catch (const optical::ProductError& error)
        {
            args.refuse(QStringLiteral("InputFile"), inputPath, QStringLiteral("cannot be used: ") + error.what());
        }
        if (scene.kind != radiometry::ProductKind::Sentinel2)
            args.refuse(QStringLiteral("InputFile"), inputPath, QStringLiteral("is not a Sentinel-2 product"));
        const optical::Sentinel2Metadata& product = scene.sentinel2;
        if (option == 1 && product.level != "L2A")
            args.refuse(QStringLiteral("Option"), QStringLiteral("1"),
                        QStringLiteral("adds the scene classification, which only an L2A product has"));

        // The bands asked for, or every band of that resolution.
        std::vector<const optical::Sentinel2Band*> chosen;
        if (bandsParam.isEmpty())
        {
            for (const optical::Sentinel2Band& band : product.bands)
                if (band.coefficients.resolution == resolution && !(product.level == "L2A" && band.coefficients.id == "B10"))
                    chosen.push_back(&band);
        }
        else
        {
            for (const QString& item : bandsParam.value().split(QRegularExpression(QStringLiteral("[,|;\\s]+")),
                                                              Qt::SkipEmptyParts))
            {
                const std::string id = optical::normalSentinel2BandId(item.toStdString());
                if (id.empty())
                    args.refuse(QStringLiteral("Bands"), bandsParam.value(),
                                QStringLiteral("names %1, which is not a Sentinel-2 band").arg(item));
                chosen.push_back(product.band(id));
            }
        }
        std::vector<Source> sources;
        for (const optical::Sentinel2Band* band : chosen)
        {
            const QString file = imagePath(scene.productFolder, band->imageFile);
            if (file.isEmpty())
                args.refuse(bandsParam.isEmpty() ? QStringLiteral("InputFile") : QStringLiteral("Bands"),
                            bandsParam.isEmpty() ? inputPath : bandsParam.value(),
                            QStringLiteral("asks for band %1, which the product does not hold")
                                .arg(QString::fromStdString(band->coefficients.id)));
            Source source;
            source.file = algokit::openRaster(file);
            source.band = band;
            sources.push_back(std::move(source));
        }
        if (sources.empty())
            args.refuse(QStringLiteral("Resolution"), QString::number(resolution),
                        QStringLiteral("has no band of the product at that pixel size; name the Bands"));
        algokit::DatasetPtr classification;
        if (option == 1)
        {
            const QString file = imagePath(scene.productFolder, product.classificationFile);
            if (file.isEmpty())
                args.refuse(QStringLiteral("Option"), QStringLiteral("1"),
                            QStringLiteral("needs the scene classification (SCL), which the product does not hold"));
            classification = algokit::openRaster(file);
        }

        const Grid grid = outputGrid(sources, resolution);
        for (Source& source : sources)
            source.onGrid = onGrid(source.file.get(), grid, source.band->coefficients.resolution, false);
        algokit::DatasetPtr classes;
        if (classification)
            classes = onGrid(classification.get(), grid, 20, true);

        const int bands = int(sources.size()) + (classes ? 1 : 0);
        QStringList options;
        if (algokit::driverForPath(outputPath) == QLatin1String("GTiff"))
            options << QStringLiteral("TILED=YES") << QStringLiteral("BIGTIFF=IF_SAFER")
                    << QStringLiteral("INTERLEAVE=BAND");
        algokit::OutputRaster output(outputPath, algokit::driverForPath(outputPath), grid.width, grid.height, bands,
                                     GDT_Float32, options);
        double transform[6] = {grid.x0, grid.pixel, 0, grid.y0, 0, -grid.pixel};
        output.get()->SetGeoTransform(transform);
        if (!grid.wkt.empty())
            output.get()->SetProjection(grid.wkt.c_str());
        for (size_t b = 0; b < sources.size(); ++b)
        {
            const optical::Sentinel2Band& band = *sources[b].band;
            GDALRasterBand* out = output.band(int(b));
            radiometry::describeBand(out, band.coefficients, QString());
            out->SetNoDataValue(radiometry::kOutputNoData);
            out->SetMetadataItem("RADIO_ADD_OFFSET", QByteArray::number(band.offset).constData());
            out->SetMetadataItem("QUANTIFICATION_VALUE", QByteArray::number(product.quantification).constData());
            out->SetMetadataItem("SCALE", QByteArray::number(scale, 'g', 10).constData());
        }
        if (classes)
        {
            output.band(bands - 1)->SetDescription("SCL (scene classification)");
            output.band(bands - 1)->SetMetadataItem("BAND_ID", "SCL");
        }
        radiometry::writeSceneGeometry(output.get(), scene);
        output.get()->SetMetadataItem("PROCESSING_LEVEL", product.level.c_str());
        if (optical::known(product.baseline))
            output.get()->SetMetadataItem("PROCESSING_BASELINE", QByteArray::number(product.baseline, 'f', 2).constData());

        const int step = algokit::rowsPerBlock(output.get(), 8);
        std::vector<double> dn;
        std::vector<float> out;
        algokit::forEachRowBlock(grid.height, step, [&](int row0, int rows) {
            for (size_t b = 0; b < sources.size(); ++b)
            {
                algokit::readRows(sources[b].onGrid->GetRasterBand(1), row0, rows, dn);
                out.resize(dn.size());
                const optical::Sentinel2Band& band = *sources[b].band;
                radiometry::NoDataRule noData;
                noData.zeroIsFill = true;
                const radiometry::LinearCalibration c{scale / product.quantification,
                                                      band.offset * scale / product.quantification};
                radiometry::applyLinear(dn.data(), dn.size(), c, noData, out.data());
                algokit::writeRows(output.band(int(b)), row0, rows, out);
            }
            if (classes)
            {
                algokit::readRows(classes->GetRasterBand(1), row0, rows, dn);
                for (double& c : dn) // class 0 is the product's no data
                    c = c == 0 ? double(radiometry::kOutputNoData) : c;
                algokit::writeRows(output.band(bands - 1), row0, rows, dn);
            }
            progress(100.0 * (row0 + rows) / grid.height);
        });
        output.commit();
        return true;
    }

private:
    // The band's image below the product folder: IMAGE_FILE plus the suffix the delivery uses.
    static QString imagePath(const QString& folder, const std::string& imageFile)
    {
        if (imageFile.empty())
            return QString();
        for (const char* suffix : {".jp2", ".tif", ".TIF", ".JP2", ""})
        {
            const QString path = folder + QLatin1Char('/') + QString::fromStdString(imageFile) + QLatin1String(suffix);
            VSIStatBufL stat;
            if (VSIStatL(path.toUtf8().constData(), &stat) == 0 && VSI_ISREG(stat.st_mode))
                return path;
        }
        return QString();
    }

    // The extent of the first band at the output resolution (else of the first band), cut into pixels of that
    // size: bands of other resolutions are resampled by map coordinates onto it.
    static Grid outputGrid(const std::vector<Source>& sources, int resolution)
    {
        const Source* reference = &sources.front();
        for (const Source& source : sources)
            if (source.band->coefficients.resolution == resolution)
            {
                reference = &source;
                break;
            }
        GDALDataset* file = reference->file.get();
        double gt[6];
        if (file->GetGeoTransform(gt) != CE_None)
            throw algokit::AlgoError(QStringLiteral("Sen2DataTransform2: the image of band %1 has no georeferencing")
                                         .arg(QString::fromStdString(reference->band->coefficients.id)));
        Grid grid;
        grid.x0 = gt[0];
        grid.y0 = gt[3];
        grid.pixel = resolution;
        grid.width = std::max(1, int(std::lround(file->GetRasterXSize() * gt[1] / resolution)));
        grid.height = std::max(1, int(std::lround(file->GetRasterYSize() * std::fabs(gt[5]) / resolution)));
        if (const char* wkt = file->GetProjectionRef())
            grid.wkt = wkt;
        return grid;
    }

    // A virtual warp of one band onto the grid: average when coarsening, bilinear when refining, nearest for the
    // scene classification; 0 (fill) stays out of the averages.
    static algokit::DatasetPtr onGrid(GDALDataset* file, const Grid& grid, double nativeResolution, bool classes)
    {
        CPLStringList argv;
        const auto add = [&argv](const QString& text) { argv.AddString(text.toUtf8().constData()); };
        add(QStringLiteral("-of"));
        add(QStringLiteral("VRT"));
        add(QStringLiteral("-r"));
        const char* method = nativeResolution < grid.pixel ? (classes ? "mode" : "average")
                             : nativeResolution > grid.pixel && !classes ? "bilinear"
                                                                         : "near";
        add(QLatin1String(method));
        add(QStringLiteral("-te"));
        for (double v : {grid.x0, grid.y0 - grid.height * grid.pixel, grid.x0 + grid.width * grid.pixel, grid.y0})
            add(QString::number(v, 'f', 6));
        add(QStringLiteral("-ts"));
        add(QString::number(grid.width));
        add(QString::number(grid.height));
        add(QStringLiteral("-srcnodata"));
        add(QStringLiteral("0"));
        add(QStringLiteral("-dstnodata"));
        add(QStringLiteral("0"));
        if (!classes)
        {
            add(QStringLiteral("-ot"));
            add(QStringLiteral("Float32"));
        }
        return algokit::DatasetPtr(GDALDataset::FromHandle(algokit::warpRaster(file, QString(), argv, nullptr)));
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(Sen2DataTransform2)
