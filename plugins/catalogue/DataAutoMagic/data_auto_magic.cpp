// Plug-in "DataAutoMagic": automatic ingest of a delivery folder - unpack archives, recognise each product,
// write an analysis-ready raster per product, thumbnails, a footprint index and a JSON manifest of what was
// done and what was refused and why. One product failing does not stop the others.
#include "archive_unpack.h"
#include "generic_params.h"
#include "image_index.h"
#include "landsat_calibration.h"
#include "picture.h"
#include "plugin_base.h"

#include <gdal_utils.h>
#include <gdal_vrt.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSaveFile>

#include <algorithm>
#include <map>

namespace
{

struct Steps
{
    bool unpack = true;
    bool convert = true;
    bool thumbnails = true;
    bool index = true;
    bool calibrate = true;
    QString indexFormat = QStringLiteral("gpkg");
};

// A name for a product's outputs: its file or folder name without suffixes, safe in any file system.
QString outputStem(const catalogue::CatalogueItem& item)
{
    QString name = QFileInfo(item.path).fileName();
    if (name == QLatin1String("manifest.safe"))
        name = QFileInfo(QFileInfo(item.path).absolutePath()).fileName();
    // A set of band files is named by the prefix they share.
    static const QRegularExpression band(QStringLiteral("^(.+)_B\\d{1,2}A?(?:_\\d{2}m)?\\.[A-Za-z0-9]+$"));
    const QRegularExpressionMatch shared = band.match(name);
    if (item.memberCount > 1 && shared.hasMatch())
        name = shared.captured(1);
    name.remove(QRegularExpression(QStringLiteral("(_MTL\\.txt|\\.meta\\.xml|\\.SAFE|\\.[A-Za-z0-9]{1,8})$"),
                                   QRegularExpression::CaseInsensitiveOption));
    name.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9._-]")), QStringLiteral("_"));
    return name.isEmpty() ? QStringLiteral("product") : name;
}

// One stack of a product: its single-band rasters on one grid, in band order, and a name suffix for the grid.
struct GridStack
{
    QStringList members;
    QString suffix; // empty for the grid of the footprint image, else "_<pixel size>m" (or "_grid<n>")
};

// The product's band files grouped by grid (size and pixel size), the footprint image's grid first.
std::vector<GridStack> stackMembers(const catalogue::CatalogueItem& item)
{
    if (item.memberCount <= 1)
        return {{{item.imagePath}, QString()}};
    const QFileInfo image(item.imagePath);
    // Sentinel-2 Level-2A names its band files by resolution (<prefix>_B02_10m.jp2) in folders R10m, R20m and
    // R60m, most bands at several: each band is taken once, at its finest resolution, from all three.
    static const QRegularExpression band(QStringLiteral("^(.+)_B(\\d{1,2})(A?)(?:_(\\d{2})m)?\\.(tif|tiff|jp2)$"),
                                         QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch own = band.match(image.fileName());
    QStringList folders{image.absolutePath()};
    static const QRegularExpression resolutionFolder(QStringLiteral("^R\\d+m$"));
    if (resolutionFolder.match(image.absoluteDir().dirName()).hasMatch())
    {
        QDir parent = image.absoluteDir();
        parent.cdUp();
        for (const QString& sub : parent.entryList({QStringLiteral("R*m")}, QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name))
            if (parent.filePath(sub) != image.absolutePath())
                folders << parent.filePath(sub);
    }
    auto order = [&](const QRegularExpressionMatch& m) {
        return m.hasMatch() ? m.captured(2).toInt() * 2 + !m.captured(3).isEmpty() : 1000;
    };
    std::map<int, std::pair<int, QString>> finest; // band order -> (resolution, path)
    QStringList candidates;
    for (const QString& folder : folders)
        for (const QString& name : QDir(folder).entryList(QDir::Files, QDir::Name))
        {
            const QRegularExpressionMatch m = band.match(name);
            if (!m.hasMatch() || m.captured(4).isEmpty())
            {
                candidates << QDir(folder).filePath(name);
                continue;
            }
            const int resolution = m.captured(4).toInt();
            auto found = finest.find(order(m));
            if (found == finest.end() || resolution < found->second.first)
                finest[order(m)] = {resolution, QDir(folder).filePath(name)};
        }
    for (const auto& chosen : finest)
        candidates << chosen.second.second;
    std::sort(candidates.begin(), candidates.end(), [&](const QString& a, const QString& b) {
        const int ka = order(band.match(QFileInfo(a).fileName())), kb = order(band.match(QFileInfo(b).fileName()));
        return ka != kb ? ka < kb : QFileInfo(a).fileName() < QFileInfo(b).fileName();
    });
    struct Grid
    {
        int width, height;
        double pixel;
        GridStack stack;
    };
    std::vector<Grid> grids;
    for (const QString& path : candidates)
    {
        const QRegularExpressionMatch m = band.match(QFileInfo(path).fileName());
        // A band set is its numbered band files; quality and other masks are not bands.
        if (!own.hasMatch() || !m.hasMatch() || m.captured(1) != own.captured(1))
            continue;
        CPLPushErrorHandler(CPLQuietErrorHandler);
        algokit::DatasetPtr other(GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_RASTER));
        CPLPopErrorHandler();
        if (!other || other->GetRasterCount() != 1)
            continue;
        double gt[6] = {0, 0, 0, 0, 0, 0};
        other->GetGeoTransform(gt);
        const int w = other->GetRasterXSize(), h = other->GetRasterYSize();
        auto it = std::find_if(grids.begin(), grids.end(),
                               [&](const Grid& g) { return g.width == w && g.height == h && g.pixel == gt[1]; });
        if (it == grids.end())
        {
            grids.push_back({w, h, gt[1], {}});
            it = grids.end() - 1;
        }
        it->stack.members << path;
    }
    // The footprint image's grid first, unsuffixed; the others named by their pixel size.
    std::stable_partition(grids.begin(), grids.end(),
                          [&](const Grid& g) { return g.stack.members.contains(item.imagePath); });
    std::vector<GridStack> stacks;
    for (size_t i = 0; i < grids.size(); ++i)
    {
        GridStack stack = grids[i].stack;
        if (i > 0)
            stack.suffix = grids[i].pixel > 0.0 && grids[i].pixel >= 1.0
                               ? QStringLiteral("_%1m").arg(qRound(grids[i].pixel))
                               : QStringLiteral("_grid%1").arg(i + 1);
        stacks.push_back(stack);
    }
    if (stacks.empty())
        stacks.push_back({{item.imagePath}, QString()});
    return stacks;
}

// A tiled, compressed GeoTIFF copy of an open raster; nothing is left when GDAL fails.
// zeroIsFill: the product encodes fill as 0 without saying so; the copy says it (no-data 0) when the source
// declares no no-data of its own.
bool translateToGeoTiff(GDALDatasetH source, const QString& output, bool zeroIsFill, QString* error)
{
    CPLStringList args;
    for (const char* a : {"-of", "GTiff", "-co", "TILED=YES", "-co", "COMPRESS=DEFLATE", "-co", "BIGTIFF=IF_SAFER"})
        args.AddString(a);
    int hasNoData = 0;
    if (GDALGetRasterCount(source) > 0)
        GDALGetRasterNoDataValue(GDALGetRasterBand(source, 1), &hasNoData);
    if (zeroIsFill && !hasNoData)
    {
        args.AddString("-a_nodata");
        args.AddString("0");
    }
    GDALTranslateOptions* options = GDALTranslateOptionsNew(args.List(), nullptr);
    int usageError = 0;
    CPLPushErrorHandler(CPLQuietErrorHandler);
    CPLErrorReset();
    GDALDatasetH out = GDALTranslate(output.toUtf8().constData(), source, options, &usageError);
    // Unreadable pixels of a damaged source may only show when the copy is flushed and closed.
    if (out)
        GDALClose(out);
    const bool failed = !out || CPLGetLastErrorType() >= CE_Failure;
    const QString detail = QString::fromUtf8(CPLGetLastErrorMsg()).left(200);
    CPLPopErrorHandler();
    GDALTranslateOptionsFree(options);
    if (failed)
    {
        *error = QStringLiteral("cannot be converted to GeoTIFF%1")
                     .arg(detail.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(detail));
        algokit::deleteRasterFiles(output);
        return false;
    }
    return true;
}

bool writeGeoTiff(const QString& source, const QString& output, bool zeroIsFill, QString* error)
{
    GDALDataset* opened = nullptr;
    catalogue::rasterPathFor(source, &opened);
    algokit::DatasetPtr dataset(opened);
    if (!dataset)
    {
        *error = QStringLiteral("is not a raster GDAL can open");
        return false;
    }
    return translateToGeoTiff(GDALDataset::ToHandle(dataset.get()), output, zeroIsFill, error);
}

// Band stacking through a VRT, then a tiled, compressed GeoTIFF; band names from the file names.
bool writeStack(const QStringList& members, const QString& output, bool zeroIsFill, QString* error)
{
    if (members.size() == 1)
        return writeGeoTiff(members.first(), output, zeroIsFill, error);
    CPLStringList sources;
    for (const QString& m : members)
        sources.AddString(m.toUtf8().constData());
    const QString vrtPath = QStringLiteral("/vsimem/%1.vrt").arg(quintptr(&members));
    CPLStringList vrtArgs;
    vrtArgs.AddString("-separate");
    GDALBuildVRTOptions* vrtOptions = GDALBuildVRTOptionsNew(vrtArgs.List(), nullptr);
    int usageError = 0;
    CPLPushErrorHandler(CPLQuietErrorHandler);
    GDALDatasetH vrt =
        GDALBuildVRT(vrtPath.toUtf8().constData(), members.size(), nullptr, sources.List(), vrtOptions, &usageError);
    CPLPopErrorHandler();
    GDALBuildVRTOptionsFree(vrtOptions);
    if (!vrt)
    {
        *error = QStringLiteral("its bands cannot be stacked");
        return false;
    }
    for (int b = 0; b < members.size() && b < GDALGetRasterCount(vrt); ++b)
        GDALSetDescription(GDALGetRasterBand(vrt, b + 1),
                           QFileInfo(members[b]).completeBaseName().toUtf8().constData());
    const bool written = translateToGeoTiff(vrt, output, zeroIsFill, error);
    GDALClose(vrt);
    VSIUnlink(vrtPath.toUtf8().constData());
    return written;
}

// Radar measurements (complex, in sensor geometry) imported without copying: a VRT whose bands are the
// measurements of the reference's size, with the reference's GCPs.
bool writeRadarVrt(const QStringList& members, const QString& output, QString* error)
{
    std::vector<algokit::DatasetPtr> sources;
    for (const QString& m : members)
    {
        GDALDataset* opened = nullptr;
        catalogue::rasterPathFor(m, &opened);
        if (opened && opened->GetRasterCount() > 0)
            sources.emplace_back(opened);
        else if (opened)
            GDALClose(GDALDataset::ToHandle(opened));
    }
    if (sources.empty())
    {
        *error = QStringLiteral("none of its measurements opens");
        return false;
    }
    GDALDataset* reference = sources.front().get();
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("VRT");
    const GDALDataType type = reference->GetRasterBand(1)->GetRasterDataType();
    algokit::DatasetPtr vrt(driver->Create(output.toUtf8().constData(), reference->GetRasterXSize(),
                                           reference->GetRasterYSize(), 0, type, nullptr));
    if (!vrt)
    {
        *error = QStringLiteral("%1 cannot be created").arg(output);
        return false;
    }
    for (size_t i = 0; i < sources.size(); ++i)
    {
        GDALDataset* source = sources[i].get();
        if (source->GetRasterXSize() != reference->GetRasterXSize() ||
            source->GetRasterYSize() != reference->GetRasterYSize())
            continue;
        for (int b = 1; b <= source->GetRasterCount(); ++b)
        {
            vrt->AddBand(source->GetRasterBand(b)->GetRasterDataType(), nullptr);
            GDALRasterBand* band = vrt->GetRasterBand(vrt->GetRasterCount());
            VRTAddSimpleSource(band, source->GetRasterBand(b), 0, 0, source->GetRasterXSize(), source->GetRasterYSize(),
                               0, 0, source->GetRasterXSize(), source->GetRasterYSize(), nullptr, VRT_NODATA_UNSET);
            band->SetDescription(
                QFileInfo(QString::fromUtf8(source->GetDescription())).completeBaseName().toUtf8().constData());
        }
    }
    if (reference->GetGCPCount() > 0)
        vrt->SetGCPs(reference->GetGCPCount(), reference->GetGCPs(), reference->GetGCPSpatialRef());
    double transform[6];
    if (reference->GetGeoTransform(transform) == CE_None)
    {
        vrt->SetGeoTransform(transform);
        vrt->SetSpatialRef(reference->GetSpatialRef());
    }
    vrt.reset();
    return true;
}

// Top-of-atmosphere reflectance (bands with reflectance factors) and brightness temperature in kelvin (thermal
// bands) of a Landsat stack whose band descriptions end in _B<n>; Float32, no-data -9999.
bool writeLandsatToa(const QString& stackPath, const QString& mtlPath, const QString& output, QString* error)
{
    constexpr float kNoData = -9999.0f;
    QFile mtl(mtlPath);
    if (mtl.size() > (16 << 20) || !mtl.open(QIODevice::ReadOnly))
    {
        *error = QStringLiteral("its MTL file cannot be read");
        return false;
    }
    const catalogue::LandsatCalibration calibration = catalogue::readLandsatCalibration(mtl.readAll());
    algokit::DatasetPtr stack(GDALDataset::Open(stackPath.toUtf8().constData(), GDAL_OF_RASTER));
    if (!stack)
    {
        *error = QStringLiteral("its stack cannot be read");
        return false;
    }
    static const QRegularExpression bandName(QStringLiteral("_B(\\d{1,2})$"),
                                             QRegularExpression::CaseInsensitiveOption);
    std::vector<catalogue::LandsatBandCalibration> bands;
    QStringList names;
    for (int b = 1; b <= stack->GetRasterCount(); ++b)
    {
        const QString description = QString::fromUtf8(stack->GetRasterBand(b)->GetDescription());
        const QRegularExpressionMatch m = bandName.match(description);
        const auto found = m.hasMatch() ? calibration.bands.find(m.captured(1).toInt()) : calibration.bands.end();
        if (found == calibration.bands.end() || (!found->second.hasReflectance() && !found->second.hasTemperature()))
        {
            *error = QStringLiteral("its MTL has no calibration for %1").arg(description);
            return false;
        }
        bands.push_back(found->second);
        names << QStringLiteral("B%1 %2").arg(m.captured(1), found->second.hasReflectance()
                                                                 ? QStringLiteral("TOA reflectance")
                                                                 : QStringLiteral("brightness temperature (K)"));
    }
    const int width = stack->GetRasterXSize(), height = stack->GetRasterYSize();
    try
    {
        algokit::OutputRaster out(
            output, QStringLiteral("GTiff"), width, height, int(bands.size()), GDT_Float32,
            {QStringLiteral("TILED=YES"), QStringLiteral("COMPRESS=DEFLATE"), QStringLiteral("PREDICTOR=3")});
        out.copyGeoreferencing(stack.get());
        std::vector<unsigned short> dn;
        std::vector<float> value;
        algokit::forEachRowBlock(height, algokit::rowsPerBlock(stack.get(), 2), [&](int row0, int rows) {
            for (size_t b = 0; b < bands.size(); ++b)
            {
                algokit::readRows(stack->GetRasterBand(int(b) + 1), row0, rows, dn);
                value.resize(dn.size());
                catalogue::calibrateLandsatRow(dn.data(), value.data(), dn.size(), bands[b],
                                               calibration.sunElevationDegrees, kNoData);
                algokit::writeRows(out.band(int(b)), row0, rows, value);
            }
        });
        for (size_t b = 0; b < bands.size(); ++b)
        {
            out.band(int(b))->SetNoDataValue(kNoData);
            out.band(int(b))->SetDescription(names[int(b)].toUtf8().constData());
        }
        out.commit();
    }
    catch (const algokit::AlgoError& failure)
    {
        *error = failure.message();
        return false;
    }
    return true;
}

class DataAutoMagic : public algokit::PluginBase
{
public:
    DataAutoMagic() : PluginBase(QStringLiteral("DataAutoMagic")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const QString input = args.text("InputDir").existingFolder();
        const QString outputDir = args.text("OutputDir").required();
        const QString optionText = args.text("Options");
        const Steps steps = readOptions(args, optionText);
        if (QFileInfo(outputDir).exists() && !QFileInfo(outputDir).isDir())
            args.refuse("OutputDir", outputDir, "is a file, not a folder");
        if (QFileInfo(outputDir).absoluteFilePath().startsWith(QFileInfo(input).absoluteFilePath() + QLatin1Char('/')))
            args.refuse("OutputDir", outputDir, "lies inside InputDir");

        // What the delivery holds, before anything is written.
        QStringList archives;
        QDirIterator walk(input, QDir::Files, QDirIterator::Subdirectories);
        while (walk.hasNext())
        {
            const QString path = walk.next();
            if (catalogue::isArchive(path))
                archives << path;
        }
        QStringList unusable;
        std::vector<catalogue::CatalogueItem> items = catalogue::scanInputs({input}, &unusable);
        if (items.empty() && (archives.isEmpty() || !steps.unpack))
            args.refuse("InputDir", input, "holds no raster, product or archive");
        if (!QFileInfo(outputDir).exists())
        {
            if (!QDir().mkpath(outputDir))
                args.refuse("OutputDir", outputDir, "cannot be created");
            m_made << outputDir;
        }
        const QDir out(outputDir);
        QJsonArray done, refused;

        if (steps.unpack && !archives.isEmpty())
        {
            const QString unpackRoot = madeFolder(out.filePath(QStringLiteral("unpacked")));
            for (const QString& archive : archives)
            {
                const QString target = madeFolder(QDir(unpackRoot).filePath(catalogue::archiveStem(archive)));
                QString error;
                if (!catalogue::unpackArchive(archive, target, &error))
                {
                    refused.append(QJsonObject{{"source", archive}, {"reason", error}});
                    QDir(target).removeRecursively();
                    continue;
                }
                for (catalogue::CatalogueItem& item : catalogue::scanInputs({target}, nullptr))
                    items.push_back(std::move(item));
            }
        }
        progress(10.0);

        std::vector<catalogue::IndexEntry> entries = catalogue::describeItems(
            items, catalogue::FootprintOptions(), [this](int n, int total) { progress(10.0 + 30.0 * n / total); });
        const QString thumbs = steps.thumbnails ? out.filePath(QStringLiteral("thumbnails")) : QString();
        std::vector<catalogue::IndexEntry> indexed;
        QStringList rasters, pictures; // every file written, for the [OUTPUT] lines
        QSet<QString> stems;
        for (size_t i = 0; i < items.size(); ++i)
        {
            const catalogue::CatalogueItem& item = items[i];
            catalogue::IndexEntry& entry = entries[i];
            progress(40.0 + 50.0 * double(i) / double(items.size()));
            if (!entry.footprint)
            {
                refused.append(QJsonObject{{"source", item.path}, {"reason", entry.error}});
                continue;
            }
            QString stem = outputStem(item);
            for (int n = 2; stems.contains(stem); ++n)
                stem = outputStem(item) + QStringLiteral("_%1").arg(n);
            stems.insert(stem);

            QJsonObject product{{"source", item.path},
                                {"kind", item.info.family.isEmpty() ? QStringLiteral("raster") : item.info.family},
                                {"satellite", item.info.satellite},
                                {"sensor", item.info.sensor},
                                {"acquisition", item.info.acquisition},
                                {"level", item.info.level}};
            QString analysisReady = item.imagePath;
            if (steps.convert && item.imagePath.isEmpty())
            {
                refused.append(
                    QJsonObject{{"source", item.path}, {"reason", QStringLiteral("holds no image to convert")}});
                continue;
            }
            if (steps.convert)
            {
                // Radar products stay complex and large: they are imported as a VRT over their measurements.
                const bool radar = item.info.family == QLatin1String("sentinel1") ||
                                   item.info.family == QLatin1String("csk") || item.info.satellite.startsWith("GF3");
                const std::vector<GridStack> stacks =
                    radar ? std::vector<GridStack>{{measurementFiles(item), QString()}} : stackMembers(item);
                QString error;
                QJsonArray written;
                for (const GridStack& stack : stacks)
                {
                    const QString target =
                        out.filePath(stem + stack.suffix + (radar ? QStringLiteral(".vrt") : QStringLiteral(".tif")));
                    m_made << target;
                    const bool ok = !stack.members.isEmpty() &&
                                    (radar ? writeRadarVrt(stack.members, target, &error)
                                           : writeStack(stack.members, target, item.zeroIsFill(), &error));
                    if (!ok)
                    {
                        written = QJsonArray();
                        break;
                    }
                    written.append(QJsonObject{{"file", target}, {"bands", stack.members.size()}});
                    rasters << target;
                }
                if (written.isEmpty())
                {
                    // The stacks of this product already written go with it.
                    for (const GridStack& stack : stacks)
                    {
                        const QString file = out.filePath(stem + stack.suffix +
                                                          (radar ? QStringLiteral(".vrt") : QStringLiteral(".tif")));
                        algokit::deleteRasterFiles(file);
                        rasters.removeAll(file);
                    }
                    refused.append(QJsonObject{{"source", item.path},
                                               {"reason", error.isEmpty() ? QStringLiteral("holds no image") : error}});
                    continue;
                }
                analysisReady = written.first().toObject().value("file").toString();
                if (steps.calibrate && item.info.family == QLatin1String("landsat") &&
                    item.path.endsWith(QLatin1String("_MTL.txt"), Qt::CaseInsensitive))
                {
                    // Top-of-atmosphere values of the main stack become the analysis-ready raster.
                    const QString toa = out.filePath(stem + QStringLiteral("_toa.tif"));
                    m_made << toa;
                    if (!writeLandsatToa(analysisReady, item.path, toa, &error))
                    {
                        for (const QJsonValue& w : written)
                        {
                            algokit::deleteRasterFiles(w.toObject().value("file").toString());
                            rasters.removeAll(w.toObject().value("file").toString());
                        }
                        refused.append(QJsonObject{{"source", item.path}, {"reason", error}});
                        continue;
                    }
                    written.prepend(QJsonObject{{"file", toa}, {"bands", written.first().toObject().value("bands")}});
                    rasters.prepend(toa);
                    analysisReady = toa;
                }
                product.insert(QStringLiteral("output"), analysisReady);
                product.insert(QStringLiteral("bands"), written.first().toObject().value("bands"));
                product.insert(QStringLiteral("stacks"), written);
            }
            if (!thumbs.isEmpty() && !analysisReady.isEmpty())
            {
                madeFolder(thumbs);
                const QString png = QDir(thumbs).filePath(stem + QStringLiteral(".png"));
                GDALDataset* opened = nullptr;
                catalogue::rasterPathFor(analysisReady, &opened);
                algokit::DatasetPtr dataset(opened);
                const QImage picture = dataset ? catalogue::renderThumbnail(dataset.get(), 256) : QImage();
                m_made << png;
                if (!picture.isNull() && picture.save(png, "PNG"))
                {
                    product.insert(QStringLiteral("thumbnail"), png);
                    pictures << png;
                }
            }
            product.insert(QStringLiteral("status"), QStringLiteral("done"));
            done.append(product);
            entry.path = analysisReady;
            entry.fileName = QFileInfo(analysisReady).fileName();
            indexed.push_back(std::move(entry));
        }

        QJsonObject manifest{{"input", input},
                             {"output", outputDir},
                             {"options", QJsonObject{{"unpack", steps.unpack},
                                                     {"convert", steps.convert},
                                                     {"calibrate", steps.calibrate},
                                                     {"thumbnails", steps.thumbnails},
                                                     {"index", steps.index}}},
                             {"products", done},
                             {"refused", refused}};
        algokit::GenericOutputs outputs;
        if (steps.index && !indexed.empty())
        {
            const QString indexPath = out.filePath(QStringLiteral("index.") + steps.indexFormat);
            m_made << indexPath;
            QString error;
            if (!catalogue::writeIndex(indexPath, indexed, &error))
                return fail(QStringLiteral("DataAutoMagic: %1").arg(error));
            manifest.insert(QStringLiteral("index"), indexPath);
            outputs.add("IndexFile", indexPath);
        }
        const QString manifestPath = out.filePath(QStringLiteral("manifest.json"));
        QSaveFile file(manifestPath);
        m_made << manifestPath;
        if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(manifest).toJson()) < 0 || !file.commit())
            return fail(QStringLiteral("DataAutoMagic: %1 cannot be written").arg(manifestPath));
        if (done.isEmpty())
            return fail(QStringLiteral("DataAutoMagic: no product of %1 could be ingested (%2 refused)")
                            .arg(input)
                            .arg(refused.size()));
        progress(100.0);
        outputs.add("Rasters", rasters.join(QLatin1Char('|')))
            .add("Thumbnails", pictures.join(QLatin1Char('|')))
            .add("Manifest", manifestPath)
            .add("ProductCount", QString::number(done.size()))
            .add("RefusedCount", QString::number(refused.size()));
        setResult(outputs.result());
        return true;
    }

    void discardOutputs() override
    {
        // Newest first, so that folders are empty by the time they are removed.
        for (auto it = m_made.crbegin(); it != m_made.crend(); ++it)
        {
            const QFileInfo info(*it);
            if (info.isDir())
                QDir(*it).removeRecursively();
            else if (!catalogue::indexDriverForPath(*it).isEmpty())
                catalogue::deleteIndex(*it);
            else
                QFile::remove(*it);
        }
    }

private:
    Steps readOptions(const algokit::GenericParams& args, const QString& text)
    {
        Steps steps;
        if (text.trimmed().isEmpty())
            return steps;
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &error);
        if (error.error != QJsonParseError::NoError || !document.isObject())
            args.refuse("Options", text, "is not a JSON object");
        const QJsonObject object = document.object();
        for (auto it = object.begin(); it != object.end(); ++it)
        {
            bool* flag = it.key() == QLatin1String("unpack")       ? &steps.unpack
                         : it.key() == QLatin1String("convert")    ? &steps.convert
                         : it.key() == QLatin1String("thumbnails") ? &steps.thumbnails
                         : it.key() == QLatin1String("index")      ? &steps.index
                         : it.key() == QLatin1String("calibrate")  ? &steps.calibrate
                                                                   : nullptr;
            if (flag && it.value().isBool())
                *flag = it.value().toBool();
            else if (it.key() == QLatin1String("indexFormat") &&
                     QStringList{"gpkg", "shp", "geojson"}.contains(it.value().toString()))
                steps.indexFormat = it.value().toString();
            else
                args.refuse("Options", text,
                            QStringLiteral("has an unknown or mistyped member \"%1\" (known: unpack, convert, "
                                           "calibrate, thumbnails, index as true/false; indexFormat as gpkg, shp or "
                                           "geojson)")
                                .arg(it.key()));
        }
        return steps;
    }

    QStringList measurementFiles(const catalogue::CatalogueItem& item)
    {
        QFileInfo image(item.imagePath);
        QStringList files;
        for (const QString& name : image.absoluteDir().entryList(QDir::Files, QDir::Name))
            if (catalogue::looksLikeRaster(name))
                files << image.absoluteDir().filePath(name);
        return files;
    }

    QString madeFolder(const QString& path)
    {
        if (!QFileInfo::exists(path))
        {
            QDir().mkpath(path);
            m_made << path;
        }
        return path;
    }

    QStringList m_made;
};

} // namespace

ALGO_PLUGIN_FACTORY(DataAutoMagic)
