// Plug-in "CloudDetect": cloud, cloud-shadow and snow mask of an optical scene, written beside the input
// (<name>_cloudmask.tif: 0 clear, 1 cloud, 2 shadow, 3 snow or ice, 255 no data, with colours and category names),
// and the cloud percentage. Landsat deliveries (MTL, one of its band files, or a stack of ours) get the Fmask tests
// with thermal and cirrus bands; other rasters of reflectance need blue, green, red and NIR, and SWIR bands for
// the full tests.
#include "calibration_kernels.h"
#include "cloud_tests.h"
#include "generic_params.h"
#include "product_text.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "scene_metadata.h"

#include <QDir>
#include <QFileInfo>

#include <cmath>
#include <limits>
#include <mutex>
#include <vector>

namespace
{

using radiometry::CloudBands;

enum Role
{
    kBlue,
    kGreen,
    kRed,
    kNir,
    kSwir1,
    kSwir2,
    kCirrus,
    kThermal,
    kRoleCount
};

// Where a role's values come from, and how DN become reflectance (or temperature in degrees Celsius).
struct RoleSource
{
    GDALRasterBand* band = nullptr;
    radiometry::LinearCalibration toValue;
    bool thermal = false;
    double k1 = 0, k2 = 0;
    radiometry::NoDataRule noData;
};

struct CloudScene
{
    std::vector<algokit::DatasetPtr> files;
    RoleSource roles[kRoleCount];
    GDALDataset* grid = nullptr;
    optical::SunGeometry sun;
    bool full() const { return roles[kSwir1].band && roles[kSwir2].band; }
};

const char* const kLandsatOli[kRoleCount] = {"2", "3", "4", "5", "6", "7", "9", "10"};
const char* const kLandsatTm[kRoleCount] = {"1", "2", "3", "4", "5", "7", "", "6"};
const char* const kSentinel2[kRoleCount] = {"B02", "B03", "B04", "B8A", "B11", "B12", "B10", ""};
const double kCentres[kRoleCount] = {0.48, 0.56, 0.66, 0.86, 1.61, 2.20, 1.37, 0};

class CloudDetect : public algokit::PluginBase
{
public:
    CloudDetect() : PluginBase(QStringLiteral("CloudDetect")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const QString input = args.text("InputFile").required().existingFile();
        CloudScene scene = openScene(args, input);
        GDALDataset* grid = scene.grid;
        algokit::checkWholeImageSize(grid, input, 9);
        const int width = grid->GetRasterXSize(), height = grid->GetRasterYSize();
        const size_t pixels = size_t(width) * size_t(height);
        const QString outputPath = maskPath(input);

        std::vector<uint8_t> flags(pixels, 0);
        std::vector<float> nir(pixels), landProbability(pixels, 0.0f);
        const int step = algokit::rowsPerBlock(grid, 4 * kRoleCount);
        radiometry::Histogram landTemperature(-100, 80, 3600), waterTemperature(-100, 80, 3600);
        std::vector<float> values[kRoleCount];
        std::mutex histogramLock; // the block's rows are shared among the cores; histograms merge under it

        // Pass 1: spectral tests, clear-sky temperatures.
        algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
            const CloudBands bands = readBlock(scene, row0, rows, values);
            const size_t offset = size_t(row0) * size_t(width), count = size_t(rows) * size_t(width);
            algokit::parallelFor(rows, [&](int begin, int end) {
                const size_t first = size_t(begin) * size_t(width), part = size_t(end - begin) * size_t(width);
                const CloudBands slice = shifted(bands, first);
                radiometry::Histogram land(-100, 80, 3600), water(-100, 80, 3600);
                if (scene.full())
                    radiometry::cloudFirstPass(slice, part, flags.data() + offset + first, &land, &water);
                else
                    radiometry::fourBandClouds(slice, part, flags.data() + offset + first);
                const std::lock_guard<std::mutex> guard(histogramLock);
                landTemperature.merge(land);
                waterTemperature.merge(water);
            });
            std::copy(bands.nir, bands.nir + count, nir.begin() + std::ptrdiff_t(offset));
            progress(40.0 * (row0 + rows) / height);
        });

        if (scene.full())
        {
            // Pass 2: probabilities, with the scene's temperature percentiles.
            radiometry::CloudTemperatures temperatures;
            temperatures.thermal = scene.roles[kThermal].band != nullptr;
            temperatures.landLow = landTemperature.percentile(17.5, 0);
            temperatures.landHigh = landTemperature.percentile(82.5, 0);
            temperatures.water = waterTemperature.percentile(82.5, 0);
            radiometry::Histogram clearLand(-2, 3, 5000);
            algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
                const CloudBands bands = readBlock(scene, row0, rows, values);
                const size_t offset = size_t(row0) * size_t(width);
                algokit::parallelFor(rows, [&](int begin, int end) {
                    const size_t first = size_t(begin) * size_t(width), part = size_t(end - begin) * size_t(width);
                    radiometry::Histogram land(-2, 3, 5000);
                    radiometry::cloudSecondPass(shifted(bands, first), part, temperatures, flags.data() + offset + first,
                                                landProbability.data() + offset + first, &land);
                    const std::lock_guard<std::mutex> guard(histogramLock);
                    clearLand.merge(land);
                });
                progress(40.0 + 40.0 * (row0 + rows) / height);
            });
            // With almost no clear land every potential cloud is cloud.
            const double threshold = clearLand.count() > long(pixels / 1000) ? clearLand.percentile(82.5, 0) + 0.2
                                                                               : -std::numeric_limits<double>::max();
            radiometry::cloudThirdPass(pixels, threshold, landProbability.data(), flags.data());
        }
        landProbability = std::vector<float>();

        std::vector<uint8_t> mask(pixels);
        size_t valid = 0, cloudy = 0;
        for (size_t i = 0; i < pixels; ++i)
        {
            const uint8_t f = flags[i];
            mask[i] = (f & radiometry::kFlagNoData)  ? radiometry::kNoDataClass
                      : (f & radiometry::kFlagCloud) ? radiometry::kCloud
                      : (f & radiometry::kFlagSnow)  ? radiometry::kSnow
                                                     : radiometry::kClear;
        }
        findShadows(scene, width, height, &nir, &mask);
        for (uint8_t m : mask)
        {
            valid += m != radiometry::kNoDataClass;
            cloudy += m == radiometry::kCloud;
        }
        progress(95.0);

        algokit::OutputRaster output(outputPath, QStringLiteral("GTiff"), width, height, 1, GDT_Byte,
                                     {QStringLiteral("TILED=YES"), QStringLiteral("COMPRESS=DEFLATE")});
        output.copyGeoreferencing(grid);
        describeMask(output.band(0));
        if (output.band(0)->RasterIO(GF_Write, 0, 0, width, height, mask.data(), width, height, GDT_Byte, 0, 0) != CE_None)
            throw algokit::AlgoError(QStringLiteral("CloudDetect: writing %1 failed").arg(outputPath));
        const double percent = valid ? 100.0 * double(cloudy) / double(valid) : 0.0;
        output.get()->SetMetadataItem("CLOUD_COVER", QByteArray::number(percent, 'f', 2).constData());
        output.commit();
        setResult(algokit::GenericOutputs()
                      .add(QStringLiteral("CloudMask"), outputPath)
                      .add(QStringLiteral("CloudPercent"), QString::number(percent, 'f', 2))
                      .result());
        return true;
    }

private:
    // The same bands from `offset` pixels on.
    static CloudBands shifted(const CloudBands& bands, size_t offset)
    {
        const auto at = [offset](const float* p) { return p ? p + offset : nullptr; };
        CloudBands part;
        part.blue = at(bands.blue);
        part.green = at(bands.green);
        part.red = at(bands.red);
        part.nir = at(bands.nir);
        part.swir1 = at(bands.swir1);
        part.swir2 = at(bands.swir2);
        part.cirrus = at(bands.cirrus);
        part.temperature = at(bands.temperature);
        return part;
    }

    // "<folder>/<name>_cloudmask.tif", the name without a trailing "_MTL".
    static QString maskPath(const QString& input)
    {
        const QFileInfo info(input);
        QString stem = info.completeBaseName();
        if (stem.endsWith(QLatin1String("_MTL"), Qt::CaseInsensitive))
            stem.chop(4);
        return info.absoluteDir().filePath(stem + QStringLiteral("_cloudmask.tif"));
    }

    CloudScene openScene(const algokit::GenericParams& args, const QString& input)
    {
        const QString key = QStringLiteral("InputFile");
        CloudScene scene;
        radiometry::SceneMetadata meta;
        QString mtl;
        if (QFileInfo(input).suffix().compare(QLatin1String("txt"), Qt::CaseInsensitive) == 0)
            mtl = input;
        algokit::DatasetPtr raster;
        if (mtl.isEmpty())
        {
            raster = args.text(key).openRaster();
            if (!radiometry::sceneFromBandMetadata(raster.get(), &meta))
                mtl = radiometry::findMetadataBeside(input);
        }
        try
        {
            if (!mtl.isEmpty())
                meta = radiometry::loadSceneMetadata(mtl, input);
        }
        catch (const optical::ProductError& error)
        {
            args.refuse(key, mtl == input ? input : mtl, QStringLiteral("cannot be used: ") + error.what());
        }
        if (!mtl.isEmpty() && meta.kind == radiometry::ProductKind::Landsat)
            return landsatDelivery(args, input, mtl, meta);
        if (!raster)
            args.refuse(key, input, QStringLiteral("is neither a raster nor a Landsat MTL"));
        scene.sun = meta.sun;
        if (scene.sun.elevation != scene.sun.elevation)
        {
            const char* elevation = raster->GetMetadataItem("SUN_ELEVATION");
            const char* azimuth = raster->GetMetadataItem("SUN_AZIMUTH");
            scene.sun.elevation = elevation ? optical::parseNumber(elevation) : optical::kUnknown;
            scene.sun.azimuth = azimuth ? optical::parseNumber(azimuth) : optical::kUnknown;
        }
        mapRasterBands(args, input, raster.get(), meta, &scene);
        scene.grid = raster.get();
        scene.files.push_back(std::move(raster));
        return scene;
    }

    // The bands of a Landsat delivery, read from their own files and calibrated on the fly.
    CloudScene landsatDelivery(const algokit::GenericParams& args, const QString& input, const QString& mtl,
                               const radiometry::SceneMetadata& meta)
    {
        CloudScene scene;
        scene.sun = meta.sun;
        const bool oli = meta.landsat.sensor.rfind("OLI", 0) == 0;
        const char* const* ids = oli ? kLandsatOli : kLandsatTm;
        for (int role = 0; role < kRoleCount; ++role)
        {
            std::string id = ids[role];
            if (role == kThermal && !oli && !meta.band(id))
                id = "6_VCID_1";
            const optical::BandCoefficients* band = meta.band(id);
            if (band && role == kThermal && !band->hasThermal())
                continue; // a thermal band without K1/K2 gives no temperature
            if (!band)
            {
                if (role == kCirrus || role == kThermal)
                    continue;
                args.refuse(QStringLiteral("InputFile"), input,
                            QStringLiteral("describes no band %1, which cloud detection needs").arg(QString::fromStdString(id)));
            }
            const QString path = radiometry::landsatBandFile(mtl, *band);
            if (path.isEmpty())
            {
                if (role == kCirrus || role == kThermal)
                    continue;
                args.refuse(QStringLiteral("InputFile"), input,
                            QStringLiteral("lacks the image of band %1 (%2)")
                                .arg(QString::fromStdString(id), QString::fromStdString(band->fileName)));
            }
            scene.files.push_back(algokit::openRaster(path));
            GDALDataset* file = scene.files.back().get();
            if (!scene.grid)
                scene.grid = file;
            if (file->GetRasterXSize() != scene.grid->GetRasterXSize() ||
                file->GetRasterYSize() != scene.grid->GetRasterYSize())
                args.refuse(QStringLiteral("InputFile"), input,
                            QStringLiteral("holds band %1 at a size other than the blue band's").arg(QString::fromStdString(id)));
            RoleSource& source = scene.roles[role];
            source.band = file->GetRasterBand(1);
            source.noData = radiometry::noDataRuleOf(source.band, meta);
            try
            {
                if (role == kThermal)
                {
                    source.thermal = true;
                    source.toValue = radiometry::radianceOf(*band);
                    source.k1 = band->k1;
                    source.k2 = band->k2;
                }
                else
                    source.toValue = radiometry::reflectanceOf(*band, meta.sun);
            }
            catch (const optical::ProductError& error)
            {
                args.refuse(QStringLiteral("InputFile"), input, QStringLiteral("cannot be used: ") + error.what());
            }
        }
        return scene;
    }

    // The bands of one raster: by product band id, else by wavelength, else in the order blue, green, red, NIR,
    // SWIR 1, SWIR 2. Values are reflectance unless the bands carry calibration coefficients.
    void mapRasterBands(const algokit::GenericParams& args, const QString& input, GDALDataset* raster,
                        const radiometry::SceneMetadata& meta, CloudScene* scene)
    {
        const int count = raster->GetRasterCount();
        if (count < 4)
            args.refuse(QStringLiteral("InputFile"), input,
                        QStringLiteral("has %1 band(s); cloud detection needs blue, green, red and NIR").arg(count));
        std::vector<std::string> ids(static_cast<size_t>(count));
        std::vector<double> wavelengths(size_t(count), optical::kUnknown);
        for (int b = 0; b < count; ++b)
        {
            GDALRasterBand* band = raster->GetRasterBand(b + 1);
            const char* id = band->GetMetadataItem("BAND_ID");
            ids[size_t(b)] = id ? id : "";
            const char* wavelength = band->GetMetadataItem("wavelength");
            wavelengths[size_t(b)] = wavelength ? optical::parseNumber(wavelength) : optical::kUnknown;
            if (wavelengths[size_t(b)] > 100) // nanometres
                wavelengths[size_t(b)] /= 1000.0;
        }
        for (int role = 0; role < kRoleCount; ++role)
        {
            int chosen = -1;
            for (const char* const* table : {kLandsatOli, kLandsatTm, kSentinel2})
                for (int b = 0; b < count && chosen < 0; ++b)
                    if (!ids[size_t(b)].empty() && ids[size_t(b)] == table[role] &&
                        (table != kLandsatTm || meta.bands.empty() || isTm(meta)) &&
                        (table != kLandsatOli || meta.bands.empty() || !isTm(meta)))
                        chosen = b;
            if (chosen < 0 && role != kThermal)
            {
                double best = 0.06; // micrometres
                for (int b = 0; b < count; ++b)
                    if (optical::known(wavelengths[size_t(b)]) && std::fabs(wavelengths[size_t(b)] - kCentres[role]) < best)
                    {
                        best = std::fabs(wavelengths[size_t(b)] - kCentres[role]);
                        chosen = b;
                    }
            }
            const bool anyDescribed = std::any_of(wavelengths.begin(), wavelengths.end(), optical::known) ||
                                      std::any_of(ids.begin(), ids.end(), [](const std::string& s) { return !s.empty(); });
            if (chosen < 0 && !anyDescribed && role <= kSwir2)
            {
                const int order = role;
                if (order < count && (role < kSwir1 || count >= 6))
                    chosen = order;
            }
            if (chosen < 0)
                continue;
            RoleSource& source = scene->roles[role];
            source.band = raster->GetRasterBand(chosen + 1);
            int hasNoData = 0;
            source.noData.value = source.band->GetNoDataValue(&hasNoData);
            source.noData.hasValue = hasNoData != 0;
            const optical::BandCoefficients* coefficients = meta.band(ids[size_t(chosen)]);
            const char* scale = source.band->GetMetadataItem("SCALE");
            if (coefficients && coefficients->hasRadiance())
            {
                source.noData.zeroIsFill = true;
                try
                {
                    source.toValue = radiometry::reflectanceOf(*coefficients, meta.sun);
                }
                catch (const optical::ProductError& error)
                {
                    args.refuse(QStringLiteral("InputFile"), input, QStringLiteral("cannot be used: ") + error.what());
                }
            }
            else if (scale && optical::parseNumber(scale) > 0)
                source.toValue = {1.0 / optical::parseNumber(scale), 0.0};
        }
        for (int role : {kBlue, kGreen, kRed, kNir})
            if (!scene->roles[role].band)
                args.refuse(QStringLiteral("InputFile"), input,
                            QStringLiteral("has no band that can be told to be blue, green, red and NIR"));
        if (!scene->roles[kSwir1].band || !scene->roles[kSwir2].band)
            scene->roles[kSwir1].band = scene->roles[kSwir2].band = nullptr;
    }

    static bool isTm(const radiometry::SceneMetadata& meta) { return meta.landsat.sensor == "TM" || meta.landsat.sensor == "ETM"; }

    // One block of every role as reflectance (temperature in degrees Celsius), NaN where no data.
    CloudBands readBlock(const CloudScene& scene, int row0, int rows, std::vector<float>* values)
    {
        std::vector<double> dn;
        float* pointers[kRoleCount] = {};
        for (int role = 0; role < kRoleCount; ++role)
        {
            const RoleSource& source = scene.roles[role];
            if (!source.band)
                continue;
            algokit::readRows(source.band, row0, rows, dn);
            std::vector<float>& out = values[role];
            out.resize(dn.size());
            if (source.thermal)
                radiometry::applyBrightnessTemperature(dn.data(), dn.size(), source.toValue, source.k1, source.k2,
                                                       source.noData, out.data());
            else
                radiometry::applyLinear(dn.data(), dn.size(), source.toValue, source.noData, out.data());
            for (float& v : out)
                v = v == radiometry::kOutputNoData ? std::numeric_limits<float>::quiet_NaN()
                    : source.thermal               ? v - 273.15f
                                                   : v;
            pointers[role] = out.data();
        }
        CloudBands bands;
        bands.blue = pointers[kBlue];
        bands.green = pointers[kGreen];
        bands.red = pointers[kRed];
        bands.nir = pointers[kNir];
        bands.swir1 = pointers[kSwir1];
        bands.swir2 = pointers[kSwir2];
        bands.cirrus = pointers[kCirrus];
        bands.temperature = pointers[kThermal];
        return bands;
    }

    // Potential shadow: pixels darker in NIR than the filled NIR surface around them; then each cloud object is
    // matched to its shadow along the sun's direction. Needs the sun's position.
    static void findShadows(const CloudScene& scene, int width, int height, std::vector<float>* nir,
                            std::vector<uint8_t>* mask)
    {
        const optical::SunGeometry& sun = scene.sun;
        double gt[6];
        if (!optical::known(sun.elevation) || !optical::known(sun.azimuth) || sun.elevation <= 0 ||
            scene.grid->GetGeoTransform(gt) != CE_None)
            return;
        std::vector<float> filled = *nir;
        radiometry::fillDepressions(filled.data(), width, height);
        std::vector<uint8_t> potential(nir->size(), 0);
        for (size_t i = 0; i < potential.size(); ++i)
            potential[i] = !std::isnan((*nir)[i]) && filled[i] - (*nir)[i] > 0.02f && (*mask)[i] != radiometry::kCloud;
        *nir = std::vector<float>();
        radiometry::matchCloudShadows(mask->data(), potential.data(), width, height, sun.azimuth, sun.zenith(),
                                      std::fabs(gt[1]));
    }

    static void describeMask(GDALRasterBand* band)
    {
        GDALColorTable colours;
        const GDALColorEntry clear{40, 120, 40, 255}, cloud{255, 255, 255, 255}, shadow{70, 70, 70, 255},
            snow{0, 230, 255, 255}, none{0, 0, 0, 0};
        for (int i = 0; i < 256; ++i)
            colours.SetColorEntry(i, &none);
        colours.SetColorEntry(radiometry::kClear, &clear);
        colours.SetColorEntry(radiometry::kCloud, &cloud);
        colours.SetColorEntry(radiometry::kShadow, &shadow);
        colours.SetColorEntry(radiometry::kSnow, &snow);
        band->SetColorTable(&colours);
        CPLStringList names;
        for (int i = 0; i < 256; ++i)
            names.AddString(i == 0 ? "Clear" : i == 1 ? "Cloud" : i == 2 ? "Cloud shadow" : i == 3 ? "Snow/ice" : i == 255 ? "No data" : "");
        band->SetCategoryNames(names.List());
        band->SetNoDataValue(radiometry::kNoDataClass);
        band->SetDescription("Cloud mask");
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(CloudDetect)
