// Plug-in "Batch_SARGeocode": range-Doppler terrain geocoding of slant-range images by backward mapping onto a UTM
// grid, with a layover/shadow mask and the local incidence angle.
#include "dem_grid.h"
#include "generic_params.h"
#include "map_grid.h"
#include "plugin_base.h"
#include "range_doppler.h"
#include "raster_io.h"
#include "s1_product.h"
#include "sar_parameter_file.h"

#include <ogr_spatialref.h>

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <complex>
#include <limits>

namespace
{

using namespace sargeo;

constexpr unsigned char kValid = 0, kLayover = 1, kShadow = 2, kOutside = 255;
constexpr int kTileColumns = 256;
// Map grids beyond these are refused (a wrong Resolution rather than a real request).
constexpr double kMaxMapSide = 200000, kMaxMapCells = 4e9;

struct Scene
{
    QString input;
    SarParameterRecord parameters;
    std::unique_ptr<RangeDoppler> model;
    int epsg = 0;
    double x0 = 0, y0 = 0; // map origin (top-left corner)
    int width = 0, height = 0;
    QString image, mask, incidence;
};

// Where a map cell looks in the image, and what the terrain does there.
struct CellGeometry
{
    double line = -1, pixel = -1;
    float incidence = std::numeric_limits<float>::quiet_NaN();
    unsigned char flag = kOutside;
};

class SarGeocode : public algokit::PluginBase
{
public:
    SarGeocode() : PluginBase(QStringLiteral("Batch_SARGeocode")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const auto inputs = args.text("InputFiles").required();
        const QString demPath = args.text("DEMFile").required().existingFile();
        const QString outputDir = args.text("OutputDir").required();
        const double resolution = args.real("Resolution").orDefault(30.0).above(0.0).atMost(10000.0);

        std::vector<Scene> scenes;
        for (const QString& input : inputs.list())
            scenes.push_back(prepare(args, input, outputDir, resolution));
        // The DEM is checked against every scene before the first output.
        std::vector<std::unique_ptr<DemGrid>> dems;
        for (const Scene& scene : scenes)
            dems.push_back(demFor(args, demPath, scene, resolution));
        if (!QDir().mkpath(outputDir))
            args.refuse("OutputDir", outputDir, QStringLiteral("cannot be created"));

        QStringList written;
        for (size_t i = 0; i < scenes.size(); ++i)
        {
            geocode(scenes[i], *dems[i], resolution, double(i) / double(scenes.size()), 1.0 / double(scenes.size()));
            written << scenes[i].image << scenes[i].mask << scenes[i].incidence;
        }
        setResult(algokit::GenericOutputs().add("Batch_SARGeocode_images", written.join('|')).result());
        return true;
    }

private:
    Scene prepare(const algokit::GenericParams& args, const QString& input, const QString& outputDir,
                  double resolution)
    {
        Scene scene;
        scene.input = input;
        if (!QFileInfo(input).isFile())
            args.refuse("InputFiles", input, QStringLiteral("is not a file"));
        const QString parameterFile = sarParameterFilePath(input);
        bool read = false;
        try
        {
            read = ReadSarParameterFile(QFile::encodeName(parameterFile).constData(), scene.parameters);
        }
        catch (const std::exception&)
        {
            read = false;
        }
        if (!read)
            args.refuse("InputFiles", input, QStringLiteral("has no readable SAR parameter file %1").arg(parameterFile));
        if (scene.parameters.imageGeometry != "SLANT_RANGE")
            args.refuse("InputFiles", input, QStringLiteral("is not in slant-range radar geometry"));
        try
        {
            scene.model = std::make_unique<RangeDoppler>(rangeDopplerFromRecord(scene.parameters));
        }
        catch (const std::exception& e)
        {
            args.refuse("InputFiles", input, QString::fromUtf8(e.what()));
        }
        algokit::DatasetPtr image = algokit::openRaster(input);
        if (image->GetRasterXSize() != scene.parameters.numberOfColumns ||
            image->GetRasterYSize() != scene.parameters.numberOfRows)
            args.refuse("InputFiles", input,
                        QStringLiteral("is %1 x %2 but its parameter file describes %3 x %4")
                            .arg(image->GetRasterXSize())
                            .arg(image->GetRasterYSize())
                            .arg(scene.parameters.numberOfColumns)
                            .arg(scene.parameters.numberOfRows));

        // UTM zone of the scene centre; map extent from the image border at sea level, snapped to the grid.
        const double lat = scene.parameters.sceneCenterLatitude, lon = scene.parameters.sceneCenterLongitude;
        scene.epsg = utmEpsgFor(lat, lon);
        auto transform = lonLatTransform(scene.epsg);
        double xmin = 1e300, xmax = -1e300, ymin = 1e300, ymax = -1e300;
        const int w = scene.parameters.numberOfColumns, h = scene.parameters.numberOfRows;
        for (int i = 0; i <= 8; ++i)
            for (const auto& edge : {std::make_pair(0.0, i * (w - 1) / 8.0), std::make_pair(h - 1.0, i * (w - 1) / 8.0),
                                     std::make_pair(i * (h - 1) / 8.0, 0.0), std::make_pair(i * (h - 1) / 8.0, w - 1.0)})
            {
                Vec3 p;
                if (!scene.model->imageToGround(edge.first, edge.second, 0.0, &p))
                    args.refuse("InputFiles", input, QStringLiteral("has an orbit that does not see its own image"));
                double la, lo, hh;
                ecefToGeodetic(p, &la, &lo, &hh, scene.model->ellipsoid());
                double x = lo, y = la;
                transform->Transform(1, &x, &y);
                xmin = std::min(xmin, x), xmax = std::max(xmax, x), ymin = std::min(ymin, y), ymax = std::max(ymax, y);
            }
        // Margin for terrain displacement (a few hundred metres at most for usual relief and incidence).
        const double margin = 500.0;
        scene.x0 = std::floor((xmin - margin) / resolution) * resolution;
        scene.y0 = std::ceil((ymax + margin) / resolution) * resolution;
        const double cols = std::ceil((xmax + margin - scene.x0) / resolution);
        const double rows = std::ceil((scene.y0 - (ymin - margin)) / resolution);
        if (cols * rows > kMaxMapCells || cols > kMaxMapSide || rows > kMaxMapSide)
            args.refuse("Resolution", QString::number(resolution), QStringLiteral("makes a map grid too large"));
        scene.width = int(cols);
        scene.height = int(rows);
        const QString base = QDir(outputDir).absoluteFilePath(QFileInfo(input).completeBaseName());
        scene.image = base + "_geo.tif";
        scene.mask = base + "_geo_lsmask.tif";
        scene.incidence = base + "_geo_lia.tif";
        if (QFileInfo(scene.image).absoluteFilePath() == QFileInfo(input).absoluteFilePath())
            args.refuse("OutputDir", outputDir, QStringLiteral("would overwrite the input %1").arg(input));
        return scene;
    }

    std::unique_ptr<DemGrid> demFor(const algokit::GenericParams& args, const QString& demPath, const Scene& scene,
                                    double resolution)
    {
        auto toLonLat = lonLatTransform(scene.epsg, true);
        double west = 1e300, east = -1e300, south = 1e300, north = -1e300;
        for (int i = 0; i <= 4; ++i)
            for (int j = 0; j <= 4; ++j)
            {
                double x = scene.x0 + scene.width * resolution * i / 4.0;
                double y = scene.y0 - scene.height * resolution * j / 4.0;
                toLonLat->Transform(1, &x, &y);
                west = std::min(west, x), east = std::max(east, x), south = std::min(south, y), north = std::max(north, y);
            }
        try
        {
            return std::make_unique<DemGrid>(demPath, west, south, east, north);
        }
        catch (const algokit::AlgoError& e)
        {
            args.refuse("DEMFile", demPath, QStringLiteral("%1 (scene of %2)").arg(e.message(), scene.input));
        }
    }

    void geocode(const Scene& scene, const DemGrid& dem, double resolution, double progressStart, double progressSpan)
    {
        algokit::DatasetPtr source = algokit::openRaster(scene.input);
        const int bands = source->GetRasterCount();
        const int imageWidth = source->GetRasterXSize(), imageHeight = source->GetRasterYSize();
        const QStringList options{"TILED=YES", "COMPRESS=DEFLATE", "BIGTIFF=IF_SAFER"};
        OGRSpatialReference utm;
        utm.importFromEPSG(scene.epsg);
        const double geoTransform[6] = {scene.x0, resolution, 0, scene.y0, 0, -resolution};
        auto georeference = [&](algokit::OutputRaster& raster) {
            raster.get()->SetSpatialRef(&utm);
            raster.get()->SetGeoTransform(const_cast<double*>(geoTransform));
        };
        claimOutput(scene.image);
        algokit::OutputRaster image(scene.image, "GTiff", scene.width, scene.height, bands, GDT_Float32, options);
        georeference(image);
        std::vector<bool> complexBand(static_cast<size_t>(bands));
        for (int b = 0; b < bands; ++b)
        {
            GDALRasterBand* in = source->GetRasterBand(b + 1);
            complexBand[size_t(b)] = GDALDataTypeIsComplex(in->GetRasterDataType()) != 0;
            QString name = QString::fromUtf8(in->GetDescription());
            if (name.isEmpty())
                name = QString::fromStdString(scene.parameters.polarizationType);
            if (complexBand[size_t(b)])
                name = "Intensity_" + name;
            image.band(b)->SetDescription(name.toUtf8().constData());
            image.band(b)->SetNoDataValue(std::numeric_limits<double>::quiet_NaN());
        }
        claimOutput(scene.mask);
        algokit::OutputRaster mask(scene.mask, "GTiff", scene.width, scene.height, 1, GDT_Byte, options);
        georeference(mask);
        mask.band(0)->SetDescription("Layover/shadow");
        mask.band(0)->SetNoDataValue(kOutside);
        {
            GDALColorTable colours;
            const GDALColorEntry valid{200, 200, 200, 255}, layover{230, 60, 40, 255}, shadow{30, 30, 120, 255};
            colours.SetColorEntry(kValid, &valid);
            colours.SetColorEntry(kLayover, &layover);
            colours.SetColorEntry(kShadow, &shadow);
            mask.band(0)->SetColorTable(&colours);
            char* names[] = {const_cast<char*>("Valid"), const_cast<char*>("Layover"), const_cast<char*>("Shadow"),
                             nullptr};
            mask.band(0)->SetCategoryNames(names);
        }
        claimOutput(scene.incidence);
        algokit::OutputRaster incidence(scene.incidence, "GTiff", scene.width, scene.height, 1, GDT_Float32, options);
        georeference(incidence);
        incidence.band(0)->SetDescription("Local incidence angle (degrees)");
        incidence.band(0)->SetNoDataValue(std::numeric_limits<double>::quiet_NaN());

        const int blockRows = 64;
        std::vector<CellGeometry> cells;
        std::vector<float> values, lia;
        std::vector<unsigned char> flags;
        std::vector<std::complex<float>> window;
        for (int row0 = 0; row0 < scene.height; row0 += blockRows)
        {
            const int rows = std::min(blockRows, scene.height - row0);
            const size_t count = size_t(rows) * size_t(scene.width);
            cells.assign(count, CellGeometry());
            locate(scene, dem, resolution, row0, rows, cells);

            // Tiles of the block read the image window their cells need, once per band: the memory stays bounded
            // whatever the track's angle to the map's rows.
            values.assign(count * size_t(bands), std::numeric_limits<float>::quiet_NaN());
            for (int tile0 = 0; tile0 < scene.width; tile0 += kTileColumns)
            {
                const int tile1 = std::min(scene.width, tile0 + kTileColumns), tileWidth = tile1 - tile0;
                double l0 = 1e300, l1 = -1e300, p0 = 1e300, p1 = -1e300;
                for (int r = 0; r < rows; ++r)
                    for (int c = tile0; c < tile1; ++c)
                    {
                        const CellGeometry& g = cells[size_t(r) * size_t(scene.width) + size_t(c)];
                        if (g.flag != kOutside)
                            l0 = std::min(l0, g.line), l1 = std::max(l1, g.line), p0 = std::min(p0, g.pixel),
                            p1 = std::max(p1, g.pixel);
                    }
                if (!(l1 >= l0))
                    continue;
                const int wl0 = std::max(0, int(std::floor(l0))), wl1 = std::min(imageHeight - 1, int(std::floor(l1)) + 1);
                const int wp0 = std::max(0, int(std::floor(p0))), wp1 = std::min(imageWidth - 1, int(std::floor(p1)) + 1);
                const int ww = wp1 - wp0 + 1, wh = wl1 - wl0 + 1;
                if (double(ww) * wh * 8.0 > double(algokit::kMaxImageBytes) / 4)
                    throw algokit::AlgoError(QStringLiteral("The map rows %1.. need an image window of %2 x %3 samples")
                                                 .arg(row0)
                                                 .arg(ww)
                                                 .arg(wh));
                window.resize(size_t(ww) * size_t(wh));
                for (int b = 0; b < bands; ++b)
                {
                    if (source->GetRasterBand(b + 1)->RasterIO(GF_Read, wp0, wl0, ww, wh, window.data(), ww, wh,
                                                               GDT_CFloat32, 0, 0) != CE_None)
                        throw algokit::AlgoError(QStringLiteral("Read failed in %1").arg(scene.input));
                    const bool intensity = complexBand[size_t(b)];
                    float* out = values.data() + size_t(b) * count;
                    algokit::parallelFor(rows * tileWidth, [&](int begin, int end) {
                        for (int k = begin; k < end; ++k)
                        {
                            const size_t i = size_t(k / tileWidth) * size_t(scene.width) + size_t(tile0 + k % tileWidth);
                            const CellGeometry& c = cells[i];
                            if (c.flag == kOutside)
                                continue;
                            // Bilinear on the band (on intensity for complex samples: phase does not interpolate).
                            const double l = c.line - wl0, p = c.pixel - wp0;
                            const int li = std::min(std::max(0, int(std::floor(l))), std::max(0, wh - 2));
                            const int pi = std::min(std::max(0, int(std::floor(p))), std::max(0, ww - 2));
                            const double fl = std::min(1.0, std::max(0.0, l - li)), fp = std::min(1.0, std::max(0.0, p - pi));
                            const int li1 = std::min(li + 1, wh - 1), pi1 = std::min(pi + 1, ww - 1);
                            auto v = [&](int y, int x) {
                                const std::complex<float> z = window[size_t(y) * size_t(ww) + size_t(x)];
                                return intensity ? double(std::norm(z)) : double(z.real());
                            };
                            out[i] = float((1 - fl) * ((1 - fp) * v(li, pi) + fp * v(li, pi1)) +
                                           fl * ((1 - fp) * v(li1, pi) + fp * v(li1, pi1)));
                        }
                    });
                }
            }
            lia.resize(count);
            flags.resize(count);
            for (size_t i = 0; i < count; ++i)
            {
                lia[i] = cells[i].incidence;
                flags[i] = cells[i].flag;
            }
            for (int b = 0; b < bands; ++b)
                if (image.band(b)->RasterIO(GF_Write, 0, row0, scene.width, rows, values.data() + size_t(b) * count,
                                            scene.width, rows, GDT_Float32, 0, 0) != CE_None)
                    throw algokit::AlgoError(QStringLiteral("Write failed: %1").arg(scene.image));
            if (mask.band(0)->RasterIO(GF_Write, 0, row0, scene.width, rows, flags.data(), scene.width, rows, GDT_Byte,
                                       0, 0) != CE_None ||
                incidence.band(0)->RasterIO(GF_Write, 0, row0, scene.width, rows, lia.data(), scene.width, rows,
                                            GDT_Float32, 0, 0) != CE_None)
                throw algokit::AlgoError(QStringLiteral("Write failed: %1").arg(scene.mask));
            progress(100.0 * (progressStart + progressSpan * double(row0 + rows) / scene.height));
        }
        image.commit();
        mask.commit();
        incidence.commit();
    }

    // Per cell: map -> geodetic -> DEM height -> Earth-fixed -> zero-Doppler time -> (line, pixel), and the
    // local incidence angle with the layover and shadow tests in the plane of incidence.
    void locate(const Scene& scene, const DemGrid& dem, double resolution, int row0, int rows,
                std::vector<CellGeometry>& cells)
    {
        const RangeDoppler& model = *scene.model;
        const int width = scene.width;
        algokit::parallelFor(rows, [&](int begin, int end) {
            auto toLonLat = lonLatTransform(scene.epsg, true);
            std::vector<double> xs(static_cast<size_t>(width)), ys(static_cast<size_t>(width));
            double timeGuess = model.lineTimeOf(0.5 * model.grid().height);
            for (int r = begin; r < end; ++r)
            {
                for (int c = 0; c < width; ++c)
                {
                    xs[size_t(c)] = scene.x0 + (c + 0.5) * resolution;
                    ys[size_t(c)] = scene.y0 - (row0 + r + 0.5) * resolution;
                }
                std::vector<int> ok(static_cast<size_t>(width));
                toLonLat->Transform(width, xs.data(), ys.data(), nullptr, ok.data());
                for (int c = 0; c < width; ++c)
                {
                    CellGeometry& cell = cells[size_t(r) * size_t(width) + size_t(c)];
                    double h, dzEast, dzNorth;
                    if (!ok[size_t(c)] || !dem.heightAndSlope(xs[size_t(c)], ys[size_t(c)], &h, &dzEast, &dzNorth))
                        continue;
                    const Vec3 p = geodeticToEcef(ys[size_t(c)], xs[size_t(c)], h, model.ellipsoid());
                    double line, pixel;
                    if (!model.groundToImage(p, &line, &pixel, &timeGuess))
                    {
                        timeGuess = model.lineTimeOf(0.5 * model.grid().height);
                        continue;
                    }
                    if (line < -0.5 || pixel < -0.5 || line > model.grid().height - 0.5 ||
                        pixel > model.grid().width - 0.5)
                        continue;
                    Vec3 s;
                    model.orbit().at(timeGuess, &s, nullptr);
                    Vec3 east, north, up;
                    localFrame(ys[size_t(c)], xs[size_t(c)], &east, &north, &up);
                    const Vec3 look = (s - p).normalized(); // towards the sensor
                    const Vec3 normal = (up - dzEast * east - dzNorth * north).normalized();
                    const double cosLocal = std::max(-1.0, std::min(1.0, normal.dot(look)));
                    cell.incidence = float(std::acos(cosLocal) / kDegree);
                    // Terrain slope along the ground-range direction (positive when it faces the sensor).
                    const double lookUp = look.dot(up);
                    const Vec3 ground = (look - lookUp * up).normalized(); // horizontal, towards the sensor
                    const double rise = -(dzEast * ground.dot(east) + dzNorth * ground.dot(north));
                    const double theta = std::acos(std::max(-1.0, std::min(1.0, lookUp)));
                    const double slope = std::atan(rise);
                    cell.flag = slope > theta ? kLayover : (-slope > kPi / 2 - theta ? kShadow : kValid);
                    cell.line = line;
                    cell.pixel = pixel;
                }
            }
        });
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(SarGeocode)
