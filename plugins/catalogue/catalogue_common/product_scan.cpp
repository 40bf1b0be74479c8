// Folder scan and product grouping for the catalogue.
#include "product_scan.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QRegularExpression>
#include <QSet>

#include <gdal_priv.h>

#include <algorithm>
#include <map>

namespace catalogue
{

namespace
{

constexpr int kMaxDepth = 12;
constexpr qint64 kMaxMetadataFileBytes = 16 << 20;

QByteArray readSmallFile(const QString& path)
{
    QFile file(path);
    if (file.size() > kMaxMetadataFileBytes || !file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

// Band files: <prefix>_B<n>[A][_<r>m].<ext> (Landsat, Sentinel-2 tiles and their crops; Level-2A names its
// files by resolution, and holds most bands at several).
const QRegularExpression& bandFilePattern()
{
    static const QRegularExpression pattern(QStringLiteral("^(.+)_B(\\d{1,2})(A?)(?:_(\\d{2})m)?\\.(tif|tiff|jp2)$"),
                                            QRegularExpression::CaseInsensitiveOption);
    return pattern;
}

int bandOrder(const QString& fileName)
{
    const QRegularExpressionMatch m = bandFilePattern().match(fileName);
    return m.hasMatch() ? m.captured(2).toInt() * 2 + (m.captured(3).isEmpty() ? 0 : 1) : 1000;
}

// The band a product's footprint is taken from: the lowest band number, a panchromatic band last.
QString preferredBand(QStringList files, const QString& family)
{
    std::sort(files.begin(), files.end(), [&](const QString& a, const QString& b) {
        auto key = [&](const QString& f) {
            const int order = bandOrder(QFileInfo(f).fileName());
            const bool pan = family == QLatin1String("landsat") && order == 16;
            return pan ? 5000 : order;
        };
        return key(a) < key(b);
    });
    return files.isEmpty() ? QString() : files.first();
}

CatalogueItem safeItem(const QString& folder)
{
    CatalogueItem item;
    item.path = QDir::cleanPath(folder);
    item.info = readSafeManifest(readSmallFile(QDir(folder).filePath(QStringLiteral("manifest.safe"))),
                                 &item.declaredFootprint);
    item.info = merged(item.info, recogniseName(QFileInfo(folder).fileName()));
    const QStringList measurements =
        QDir(QDir(folder).filePath(QStringLiteral("measurement"))).entryList(QDir::Files, QDir::Name);
    // Radar in sensor geometry has no grid of its own: its resolution is the annotation's pixel spacing (the
    // element sits in the first few hundred kilobytes of a file of a few megabytes).
    const QDir annotations(QDir(folder).filePath(QStringLiteral("annotation")));
    for (const QString& name : annotations.entryList({QStringLiteral("*.xml")}, QDir::Files, QDir::Name))
    {
        QFile annotation(annotations.filePath(name));
        if (annotation.open(QIODevice::ReadOnly))
            item.info.pixelSpacingMetres = readSentinel1PixelSpacing(annotation.read(kMaxMetadataFileBytes));
        if (item.info.pixelSpacingMetres > 0.0)
            break;
    }
    item.memberCount = 0;
    for (const QString& name : measurements)
        if (looksLikeRaster(name))
        {
            if (item.imagePath.isEmpty())
                item.imagePath = QDir(folder).filePath(QStringLiteral("measurement/") + name);
            ++item.memberCount;
        }
    if (item.memberCount == 0)
    {
        // Sentinel-2: the band files of the first granule, GRANULE/<granule>/IMG_DATA/<tile>_<time>_B<n>.jp2.
        QDir granules(QDir(folder).filePath(QStringLiteral("GRANULE")));
        for (const QString& granule : granules.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name))
        {
            // Level-1C keeps its bands in IMG_DATA, Level-2A in IMG_DATA/R10m, R20m and R60m: each band once,
            // at its finest resolution.
            const QDir images(granules.filePath(granule + QStringLiteral("/IMG_DATA")));
            QStringList folders{images.path()};
            for (const QString& sub : images.entryList({QStringLiteral("R*m")}, QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name))
                folders << images.filePath(sub);
            std::map<int, std::pair<int, QString>> finest; // band order -> (resolution, path)
            for (const QString& folderPath : folders)
                for (const QString& name : QDir(folderPath).entryList(QDir::Files, QDir::Name))
                {
                    const QRegularExpressionMatch m = bandFilePattern().match(name);
                    if (!m.hasMatch())
                        continue;
                    const int resolution = m.captured(4).isEmpty() ? 0 : m.captured(4).toInt();
                    auto found = finest.find(bandOrder(name));
                    if (found == finest.end() || resolution < found->second.first)
                        finest[bandOrder(name)] = {resolution, QDir(folderPath).filePath(name)};
                }
            QStringList bands;
            for (const auto& band : finest)
                bands << band.second.second;
            if (bands.isEmpty())
                continue;
            item.imagePath = preferredBand(bands, QString());
            item.memberCount = bands.size();
            break;
        }
    }
    return item;
}

CatalogueItem landsatItem(const QString& mtlPath, const QStringList& bandFiles)
{
    CatalogueItem item;
    item.path = QDir::cleanPath(mtlPath);
    const QString prefix = QFileInfo(mtlPath).fileName().chopped(int(qstrlen("_MTL.txt")));
    item.info = merged(readLandsatMtl(readSmallFile(mtlPath)), recogniseName(prefix));
    item.imagePath = preferredBand(bandFiles, QStringLiteral("landsat"));
    item.memberCount = bandFiles.size();
    return item;
}

// Metadata beside a raster: the MTL of its Landsat delivery, or an XML named after it (GF, ZY-3).
ProductInfo siblingMetadata(const QFileInfo& raster)
{
    const QDir dir = raster.absoluteDir();
    const QString name = raster.fileName();
    const QRegularExpressionMatch band = bandFilePattern().match(name);
    if (band.hasMatch())
    {
        const QString mtl = dir.filePath(band.captured(1) + QStringLiteral("_MTL.txt"));
        if (QFileInfo::exists(mtl))
            return readLandsatMtl(readSmallFile(mtl));
    }
    for (const QString& suffix : {QStringLiteral(".xml"), QStringLiteral(".meta.xml")})
    {
        const QString xml = dir.filePath(raster.completeBaseName() + suffix);
        if (QFileInfo::exists(xml))
            return readMetadataXml(readSmallFile(xml));
    }
    return ProductInfo();
}

CatalogueItem rasterItem(const QString& path)
{
    CatalogueItem item;
    const QFileInfo info(path);
    item.path = QDir::cleanPath(path);
    item.imagePath = item.path;
    item.info = merged(recogniseName(info.fileName()), siblingMetadata(info));
    if (!item.info.recognised())
        item.info = merged(item.info, recogniseName(info.absoluteDir().dirName()));
    return item;
}

// The items of one folder's files; sub-folders are the caller's.
void scanFolderFiles(const QDir& dir, std::vector<CatalogueItem>& items)
{
    const QStringList names = dir.entryList(QDir::Files, QDir::Name);
    QSet<QString> claimed;

    for (const QString& name : names)
        if (name.endsWith(QLatin1String("_MTL.txt"), Qt::CaseInsensitive))
        {
            const QString prefix = name.chopped(8) + QLatin1Char('_');
            QStringList bands;
            for (const QString& other : names)
                if (other.startsWith(prefix, Qt::CaseInsensitive) && looksLikeRaster(other))
                {
                    bands << dir.filePath(other);
                    claimed.insert(other);
                }
            claimed.insert(name);
            if (!bands.isEmpty())
                items.push_back(landsatItem(dir.filePath(name), bands));
        }

    // A GF-3 product: its meta.xml and the channel images that carry the same product number.
    for (const QString& name : names)
        if (name.endsWith(QLatin1String(".meta.xml"), Qt::CaseInsensitive) && name.startsWith(QLatin1String("GF3")))
        {
            const QString stem = name.chopped(9);
            const QString number = stem.section(QLatin1Char('_'), -1);
            QStringList channels;
            for (const QString& other : names)
                if (!claimed.contains(other) && looksLikeRaster(other) && other.startsWith(QLatin1String("GF3")) &&
                    QFileInfo(other).completeBaseName().endsWith(number))
                {
                    channels << dir.filePath(other);
                    claimed.insert(other);
                }
            claimed.insert(name);
            if (channels.isEmpty())
                continue;
            CatalogueItem item;
            item.path = dir.filePath(name);
            item.imagePath = channels.first();
            item.memberCount = channels.size();
            item.info = merged(readMetadataXml(readSmallFile(item.path)), recogniseName(name));
            items.push_back(item);
        }

    QMap<QString, QStringList> bandGroups;
    for (const QString& name : names)
    {
        const QRegularExpressionMatch m = bandFilePattern().match(name);
        if (!claimed.contains(name) && m.hasMatch())
            bandGroups[m.captured(1)] << dir.filePath(name);
    }
    for (auto it = bandGroups.begin(); it != bandGroups.end(); ++it)
    {
        if (it.value().size() < 2)
            continue;
        CatalogueItem item = rasterItem(preferredBand(it.value(), QString()));
        item.memberCount = it.value().size();
        item.info = merged(item.info, recogniseName(it.key()));
        items.push_back(item);
        for (const QString& f : it.value())
            claimed.insert(QFileInfo(f).fileName());
    }

    for (const QString& name : names)
        if (!claimed.contains(name) && looksLikeRaster(name))
            items.push_back(rasterItem(dir.filePath(name)));
}

void scanFolder(const QDir& dir, int depth, std::vector<CatalogueItem>& items)
{
    if (QFileInfo::exists(dir.filePath(QStringLiteral("manifest.safe"))))
    {
        items.push_back(safeItem(dir.path()));
        return;
    }
    scanFolderFiles(dir, items);
    if (depth >= kMaxDepth)
        return;
    for (const QString& sub : dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::NoSymLinks, QDir::Name))
        scanFolder(QDir(dir.filePath(sub)), depth + 1, items);
}

} // namespace

bool CatalogueItem::zeroIsFill() const
{
    if (info.family == QLatin1String("landsat") || info.family == QLatin1String("sentinel2") ||
        info.family == QLatin1String("zy3"))
        return true;
    return info.family == QLatin1String("gf") && !info.satellite.startsWith(QLatin1String("GF3"));
}

bool looksLikeRaster(const QString& fileName)
{
    static const QStringList suffixes = {"tif", "tiff", "jp2", "img", "vrt", "dat", "bsq",     "bil",  "bip",
                                         "hdf", "h5",   "he5", "nc",  "ntf", "kea", "geotiff", "gtiff"};
    const QFileInfo info(fileName);
    return suffixes.contains(info.suffix().toLower());
}

CatalogueItem itemForPath(const QString& path)
{
    const QFileInfo info(path);
    if (info.isDir())
        return safeItem(path);
    if (info.fileName() == QLatin1String("manifest.safe"))
        return safeItem(info.absolutePath());
    if (info.fileName().endsWith(QLatin1String("_MTL.txt"), Qt::CaseInsensitive))
    {
        const QString prefix = info.fileName().chopped(8) + QLatin1Char('_');
        QStringList bands;
        for (const QString& other : info.absoluteDir().entryList(QDir::Files, QDir::Name))
            if (other.startsWith(prefix, Qt::CaseInsensitive) && looksLikeRaster(other))
                bands << info.absoluteDir().filePath(other);
        return landsatItem(path, bands);
    }
    return rasterItem(path);
}

QString rasterPathFor(const QString& path, GDALDataset** opened)
{
    *opened = nullptr;
    CPLPushErrorHandler(CPLQuietErrorHandler);
    GDALDataset* dataset = GDALDataset::FromHandle(
        GDALOpenEx(path.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_READONLY, nullptr, nullptr, nullptr));
    QString chosen = path;
    // A container (HDF5, netCDF, HDF4) opens without bands and lists its images as subdatasets.
    if (dataset && dataset->GetRasterCount() == 0)
        if (const char* first = dataset->GetMetadataItem("SUBDATASET_1_NAME", "SUBDATASETS"))
        {
            chosen = QString::fromUtf8(first);
            GDALClose(GDALDataset::ToHandle(dataset));
            dataset = GDALDataset::FromHandle(
                GDALOpenEx(first, GDAL_OF_RASTER | GDAL_OF_READONLY, nullptr, nullptr, nullptr));
        }
    CPLPopErrorHandler();
    *opened = dataset;
    return chosen;
}

std::vector<CatalogueItem> scanInputs(const QStringList& paths, QStringList* unusable)
{
    std::vector<CatalogueItem> items;
    for (const QString& path : paths)
    {
        const QFileInfo info(path);
        const size_t before = items.size();
        if (!info.exists())
        {
            if (unusable)
                *unusable << path;
            continue;
        }
        if (info.isDir())
            scanFolder(QDir(path), 0, items);
        else
        {
            items.push_back(itemForPath(path));
            items.back().explicitlyNamed = true;
        }
        if (items.size() == before && unusable)
            *unusable << path;
    }
    return items;
}

} // namespace catalogue
