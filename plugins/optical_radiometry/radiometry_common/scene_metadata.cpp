// Finding, reading and tying product metadata to the bands of an image.
#include "scene_metadata.h"

#include "product_text.h"
#include "sensor_bands.h"

#include <cpl_vsi.h>

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <memory>

namespace radiometry
{

namespace
{

struct VsiCloser
{
    void operator()(VSILFILE* file) const
    {
        if (file)
            VSIFCloseL(file);
    }
};

QString parentOf(const QString& path)
{
    const int slash = path.lastIndexOf(QLatin1Char('/'));
    return slash <= 0 ? QStringLiteral(".") : path.left(slash);
}

bool isFile(const QString& path)
{
    VSIStatBufL stat;
    return VSIStatL(path.toUtf8().constData(), &stat) == 0 && VSI_ISREG(stat.st_mode);
}

// Files of a folder (through VSI), names only.
QStringList filesOf(const QString& folder)
{
    QStringList names;
    char** list = VSIReadDir(folder.toUtf8().constData());
    for (char** item = list; item && *item; ++item)
        names << QString::fromUtf8(*item);
    CSLDestroy(list);
    return names;
}

void selectTableSensor(const optical::CoefficientTable& table, const QString& imagePath, SceneMetadata* scene)
{
    const std::vector<std::string> sensors = table.sensors();
    if (sensors.empty())
    {
        scene->bands = table.bandsOf(std::string());
        return;
    }
    const std::string name = optical::upper(QFileInfo(imagePath).fileName().toStdString());
    std::string best;
    for (const std::string& sensor : sensors)
        if (name.rfind(sensor, 0) == 0 && sensor.size() > best.size())
            best = sensor;
    if (best.empty())
    {
        std::string list;
        for (const std::string& sensor : sensors)
            list += (list.empty() ? "" : ", ") + sensor;
        throw optical::ProductError("the coefficient table knows no sensor of " +
                                    QFileInfo(imagePath).fileName().toStdString() + " (it lists " + list + ")");
    }
    scene->tableSensor = QString::fromStdString(best);
    scene->bands = table.bandsOf(best);
}

void loadSentinel2(const std::string& text, SceneMetadata* scene)
{
    scene->kind = ProductKind::Sentinel2;
    scene->sentinel2 = optical::parseSentinel2ProductXml(text);
    for (const std::string& granule : scene->sentinel2.granules)
    {
        const QString tile = scene->productFolder + QStringLiteral("/GRANULE/") + QString::fromStdString(granule) +
                             QStringLiteral("/MTD_TL.xml");
        if (isFile(tile))
        {
            optical::addSentinel2TileXml(readSmallFile(tile), &scene->sentinel2);
            break;
        }
    }
    scene->sun = scene->sentinel2.sun;
    scene->date = scene->sentinel2.date;
    for (const optical::Sentinel2Band& band : scene->sentinel2.bands)
        scene->bands.push_back(band.coefficients);
}

} // namespace

const optical::BandCoefficients* SceneMetadata::band(const std::string& id) const
{
    for (const optical::BandCoefficients& b : bands)
        if (b.id == id)
            return &b;
    return nullptr;
}

std::vector<std::string> SceneMetadata::stackBandIds() const
{
    std::vector<std::string> ids;
    if (kind == ProductKind::Landsat)
    {
        for (const optical::KnownBand& known : optical::landsatBands(landsat.sensor, landsat.spacecraftNumber))
            if (known.reflective30m && band(known.id))
                ids.push_back(known.id);
        return ids;
    }
    for (const optical::BandCoefficients& b : bands)
        ids.push_back(b.id);
    return ids;
}

std::string readSmallFile(const QString& path, size_t maxBytes)
{
    std::unique_ptr<VSILFILE, VsiCloser> file(VSIFOpenL(path.toUtf8().constData(), "rb"));
    if (!file)
        throw optical::ProductError("cannot read " + path.toStdString());
    std::string text;
    char buffer[65536];
    size_t got = 0;
    while ((got = VSIFReadL(buffer, 1, sizeof buffer, file.get())) > 0)
    {
        text.append(buffer, got);
        if (text.size() > maxBytes)
            throw optical::ProductError(path.toStdString() + " is too large for a metadata file");
    }
    return text;
}

SceneMetadata loadSceneMetadata(const QString& path, const QString& imagePath)
{
    const std::string text = readSmallFile(path);
    SceneMetadata scene;
    scene.metadataPath = path;
    scene.productFolder = parentOf(path);
    if (optical::looksLikeLandsatMtl(text))
    {
        scene.kind = ProductKind::Landsat;
        scene.landsat = optical::parseLandsatMtl(text);
        scene.sun = scene.landsat.sun;
        scene.date = scene.landsat.date;
        scene.bands = scene.landsat.bands;
        return scene;
    }
    // An XML text (after a byte-order mark and blanks) is a Sentinel-2 description or nothing we read.
    const size_t start = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
    const size_t first = text.find_first_not_of(" \t\r\n", start);
    if (optical::looksLikeSentinel2Xml(text) || (first != std::string::npos && text[first] == '<'))
    {
        loadSentinel2(text, &scene);
        return scene;
    }
    const optical::CoefficientTable table = optical::parseCoefficientTable(text);
    scene.kind = ProductKind::Table;
    scene.sun = table.sun;
    scene.date = table.date;
    selectTableSensor(table, imagePath, &scene);
    return scene;
}

QString findMetadataBeside(const QString& imagePath)
{
    const QFileInfo image(imagePath);
    const QDir folder = image.absoluteDir();
    const QString stem = image.completeBaseName().toUpper();
    QString only;
    int count = 0;
    for (const QString& name : folder.entryList(QDir::Files))
    {
        if (!name.toUpper().endsWith(QLatin1String("_MTL.TXT")))
            continue;
        const QString prefix = name.left(name.size() - 8).toUpper();
        if (stem.startsWith(prefix + QLatin1Char('_')))
            return folder.filePath(name);
        only = folder.filePath(name);
        ++count;
    }
    if (count == 1)
        return only;
    // A Sentinel-2 band sits in GRANULE/<tile>/IMG_DATA[/R<res>m]/ below the product XML.
    QDir up = folder;
    for (int level = 0; level < 5; ++level)
    {
        for (const char* name : {"MTD_MSIL1C.xml", "MTD_MSIL2A.xml"})
            if (up.exists(QLatin1String(name)))
                return up.filePath(QLatin1String(name));
        if (!up.cdUp())
            break;
    }
    return QString();
}

QString landsatBandFile(const QString& mtlPath, const optical::BandCoefficients& band)
{
    const QDir folder = QFileInfo(mtlPath).absoluteDir();
    const QString prefix = QFileInfo(mtlPath).fileName().chopped(8).toUpper(); // without "_MTL.txt"
    const QString named = QString::fromStdString(band.fileName).toUpper();
    const QString renamed = prefix + QStringLiteral("_B") + QString::fromStdString(band.id).toUpper();
    for (const QString& name : folder.entryList(QDir::Files))
    {
        const QString upper = name.toUpper();
        if ((!named.isEmpty() && upper == named) || upper == renamed + QLatin1String(".TIF") ||
            upper == renamed + QLatin1String(".TIFF"))
            return folder.filePath(name);
    }
    return QString();
}

QString sentinel2ProductXml(const QString& productPath)
{
    QString root = productPath;
    while (root.endsWith(QLatin1Char('/')) && root.size() > 1)
        root.chop(1);
    if (root.toLower().endsWith(QLatin1String(".xml")))
        return root;
    if (root.toLower().endsWith(QLatin1String(".zip")) && !root.startsWith(QLatin1String("/vsi")))
        root = QStringLiteral("/vsizip/") + QFileInfo(root).absoluteFilePath();
    // The product XML sits in the SAFE folder, which a zip holds one level down.
    QStringList folders{root};
    for (const QString& name : filesOf(root))
        if (name.toUpper().endsWith(QLatin1String(".SAFE")))
            folders << root + QLatin1Char('/') + name;
    for (const QString& folder : folders)
        for (const char* name : {"MTD_MSIL1C.xml", "MTD_MSIL2A.xml"})
            if (isFile(folder + QLatin1Char('/') + QLatin1String(name)))
                return folder + QLatin1Char('/') + QLatin1String(name);
    return QString();
}

std::vector<std::string> bandIdsOf(GDALDataset* dataset, const QString& path, const SceneMetadata& scene)
{
    const int count = dataset->GetRasterCount();
    std::vector<std::string> ids{size_t(count), std::string()};
    bool all = true;
    for (int b = 0; b < count; ++b)
    {
        const char* id = dataset->GetRasterBand(b + 1)->GetMetadataItem("BAND_ID");
        if (id && scene.band(id))
            ids[size_t(b)] = id;
        else
            all = false;
    }
    if (all)
        return ids;
    if (count == 1)
    {
        const QFileInfo info(path);
        const std::string stem = optical::upper(info.completeBaseName().toStdString());
        for (const optical::BandCoefficients& band : scene.bands)
            if (!band.fileName.empty() &&
                optical::upper(QFileInfo(QString::fromStdString(band.fileName)).completeBaseName().toStdString()) == stem)
                return {band.id};
        if (scene.kind == ProductKind::Landsat)
        {
            static const QRegularExpression suffix(QStringLiteral("_B(\\d+(?:_VCID_\\d)?)$"),
                                                   QRegularExpression::CaseInsensitiveOption);
            const auto match = suffix.match(QString::fromStdString(stem));
            if (match.hasMatch() && scene.band(match.captured(1).toUpper().toStdString()))
                return {match.captured(1).toUpper().toStdString()};
        }
        if (scene.kind == ProductKind::Sentinel2)
        {
            static const QRegularExpression suffix(QStringLiteral("_(B\\w\\w)(?:_\\d\\dm)?$"),
                                                   QRegularExpression::CaseInsensitiveOption);
            const auto match = suffix.match(QString::fromStdString(stem));
            const std::string id =
                match.hasMatch() ? optical::normalSentinel2BandId(match.captured(1).toStdString()) : std::string();
            if (!id.empty())
                return {id};
        }
    }
    // A table's rows are numbered like the image's bands.
    if (scene.kind == ProductKind::Table)
    {
        for (int b = 0; b < count; ++b)
            ids[size_t(b)] = scene.band(std::to_string(b + 1)) ? std::to_string(b + 1) : std::string();
        return ids;
    }
    const std::vector<std::string> stack = scene.stackBandIds();
    if (size_t(count) == stack.size())
        return stack;
    if (size_t(count) == scene.bands.size())
    {
        for (int b = 0; b < count; ++b)
            ids[size_t(b)] = scene.bands[size_t(b)].id;
        return ids;
    }
    return std::vector<std::string>(size_t(count));
}

namespace
{

const char* const kCoefficientItems[] = {"RADIANCE_MULT", "RADIANCE_ADD", "REFLECTANCE_MULT", "REFLECTANCE_ADD",
                                         "ESUN", "K1_CONSTANT", "K2_CONSTANT"};

double* coefficientField(optical::BandCoefficients& c, int item)
{
    double* fields[] = {&c.radianceMult, &c.radianceAdd,
                        &c.reflectanceMult, &c.reflectanceAdd, &c.esun, &c.k1, &c.k2};
    return fields[item];
}

double metadataNumber(GDALMajorObject* object, const char* key)
{
    const char* value = object->GetMetadataItem(key);
    return value ? optical::parseNumber(value) : optical::kUnknown;
}

} // namespace

bool sceneFromBandMetadata(GDALDataset* dataset, SceneMetadata* scene)
{
    SceneMetadata found;
    found.kind = ProductKind::Landsat;
    found.sun.elevation = metadataNumber(dataset, "SUN_ELEVATION");
    found.sun.azimuth = metadataNumber(dataset, "SUN_AZIMUTH");
    found.sun.earthSunDistance = metadataNumber(dataset, "EARTH_SUN_DISTANCE");
    const char* sunCorrected = dataset->GetMetadataItem("REFLECTANCE_SUN_CORRECTED");
    for (int b = 1; b <= dataset->GetRasterCount(); ++b)
    {
        GDALRasterBand* band = dataset->GetRasterBand(b);
        const char* id = band->GetMetadataItem("BAND_ID");
        if (!id || !*id)
            return false;
        optical::BandCoefficients c;
        c.id = id;
        c.name = optical::trimmed(band->GetDescription());
        c.wavelengthUm = metadataNumber(band, "wavelength");
        for (int item = 0; item < 7; ++item)
            *coefficientField(c, item) = metadataNumber(band, kCoefficientItems[item]);
        c.thermal = c.hasThermal();
        c.reflectanceSunCorrected = sunCorrected && std::string(sunCorrected) == "YES";
        if (!c.hasRadiance() && !c.hasReflectance())
            return false;
        // The label written by describeBand holds the name in brackets.
        const size_t open = c.name.find('('), close = c.name.rfind(')');
        c.name = open != std::string::npos && close > open ? c.name.substr(open + 1, close - open - 1) : std::string();
        found.bands.push_back(c);
    }
    if (found.bands.empty())
        return false;
    *scene = found;
    return true;
}

void writeCoefficients(GDALRasterBand* band, const optical::BandCoefficients& coefficients)
{
    optical::BandCoefficients c = coefficients;
    for (int item = 0; item < 7; ++item)
        if (optical::known(*coefficientField(c, item)))
            band->SetMetadataItem(kCoefficientItems[item],
                                  QByteArray::number(*coefficientField(c, item), 'g', 10).constData());
}

void writeSceneGeometry(GDALDataset* dataset, const SceneMetadata& scene)
{
    const auto put = [dataset](const char* key, double value) {
        if (optical::known(value))
            dataset->SetMetadataItem(key, QByteArray::number(value, 'g', 10).constData());
    };
    put("SUN_ELEVATION", scene.sun.elevation);
    put("SUN_AZIMUTH", scene.sun.azimuth);
    put("EARTH_SUN_DISTANCE", scene.sun.earthSunDistance);
    if (scene.date.valid())
        dataset->SetMetadataItem("DATE_ACQUIRED", QString::asprintf("%04d-%02d-%02d", scene.date.year,
                                                                    scene.date.month, scene.date.day)
                                                      .toUtf8()
                                                      .constData());
    if (scene.kind == ProductKind::Sentinel2)
        dataset->SetMetadataItem("REFLECTANCE_SUN_CORRECTED", "YES");
}

NoDataRule noDataRuleOf(GDALRasterBand* band, const SceneMetadata& scene)
{
    NoDataRule rule;
    int has = 0;
    const double value = band->GetNoDataValue(&has);
    rule.hasValue = has != 0;
    rule.value = value;
    rule.zeroIsFill = scene.kind != ProductKind::Table;
    return rule;
}

} // namespace radiometry
