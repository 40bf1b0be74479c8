// Product recognition from names (naming rules of each mission) and from metadata texts.
#include "product_recognition.h"

#include <QDate>
#include <QMap>
#include <QRegularExpression>
#include <QStringList>
#include <QXmlStreamReader>

#include <algorithm>
#include <cmath>

namespace catalogue
{

namespace
{

// Metadata texts beyond this are not product metadata; the readers stop there.
constexpr int kMaxMetadataBytes = 64 << 20;

QString landsatSensor(QChar letter, int mission)
{
    switch (letter.toUpper().toLatin1())
    {
    case 'C':
        return QStringLiteral("OLI_TIRS");
    case 'O':
        return QStringLiteral("OLI");
    case 'T':
        return mission >= 8 ? QStringLiteral("TIRS") : QStringLiteral("TM");
    case 'E':
        return QStringLiteral("ETM");
    case 'M':
        return QStringLiteral("MSS");
    default:
        return QString();
    }
}

struct NameRule
{
    QRegularExpression pattern;
    ProductInfo (*read)(const QRegularExpressionMatch& m);
};

ProductInfo landsatCollection(const QRegularExpressionMatch& m)
{
    ProductInfo info;
    const int mission = m.captured(2).toInt();
    info.satellite = QStringLiteral("LANDSAT_%1").arg(mission);
    info.sensor = landsatSensor(m.captured(1).at(0), mission);
    info.acquisition = normaliseDateTime(m.captured(4));
    info.level = m.captured(3).toUpper();
    info.family = QStringLiteral("landsat");
    return info;
}

ProductInfo landsatSceneId(const QRegularExpressionMatch& m)
{
    ProductInfo info;
    const int mission = m.captured(2).toInt();
    info.satellite = QStringLiteral("LANDSAT_%1").arg(mission);
    info.sensor = landsatSensor(m.captured(1).at(0), mission);
    info.acquisition = normaliseDateTime(m.captured(3));
    info.family = QStringLiteral("landsat");
    return info;
}

ProductInfo sentinel2Product(const QRegularExpressionMatch& m)
{
    ProductInfo info;
    info.satellite = QStringLiteral("SENTINEL-2") + m.captured(1).toUpper();
    info.sensor = QStringLiteral("MSI");
    info.level = m.captured(2).toUpper();
    info.acquisition = normaliseDateTime(m.captured(3));
    info.family = QStringLiteral("sentinel2");
    return info;
}

ProductInfo sentinel2Tile(const QRegularExpressionMatch& m)
{
    ProductInfo info;
    info.satellite = QStringLiteral("SENTINEL-2");
    info.sensor = QStringLiteral("MSI");
    info.acquisition = normaliseDateTime(m.captured(2));
    info.family = QStringLiteral("sentinel2");
    return info;
}

ProductInfo sentinel1Product(const QRegularExpressionMatch& m)
{
    ProductInfo info;
    info.satellite = QStringLiteral("SENTINEL-1") + m.captured(1).toUpper();
    info.sensor = QStringLiteral("C-SAR ") + m.captured(2).toUpper();
    info.level = m.captured(3).toUpper().remove(QLatin1Char('_'));
    info.acquisition = normaliseDateTime(m.captured(4));
    info.family = QStringLiteral("sentinel1");
    return info;
}

// Measurement and annotation files inside a SAFE folder: s1b-iw1-slc-vv-20210401t052624-...
ProductInfo sentinel1File(const QRegularExpressionMatch& m)
{
    ProductInfo info;
    info.satellite = QStringLiteral("SENTINEL-1") + m.captured(1).toUpper();
    info.sensor = QStringLiteral("C-SAR ") + m.captured(2).toUpper();
    info.level = m.captured(3).toUpper();
    info.acquisition = normaliseDateTime(m.captured(4));
    info.family = QStringLiteral("sentinel1");
    return info;
}

// GF-1/2/4/6/7 and ZY-3 optical names: <sat>_<sensor>_<E|W>lon_<N|S>lat_<yyyyMMdd>_<level><number>
ProductInfo gaofenOptical(const QRegularExpressionMatch& m)
{
    ProductInfo info;
    info.satellite = m.captured(1).toUpper();
    info.sensor = m.captured(2).toUpper();
    info.acquisition = normaliseDateTime(m.captured(3));
    info.level = m.captured(4).toUpper();
    info.family = info.satellite.startsWith(QLatin1String("ZY")) ? QStringLiteral("zy3") : QStringLiteral("gf");
    return info;
}

// GF-3: GF3_<station>_<mode>_<orbit>_<E|W>lon_<N|S>lat_<yyyyMMdd>_<level>_<pol>_<number>
ProductInfo gaofen3(const QRegularExpressionMatch& m)
{
    ProductInfo info;
    info.satellite = m.captured(1).toUpper();
    info.sensor = m.captured(2).toUpper();
    info.acquisition = normaliseDateTime(m.captured(3));
    info.level = m.captured(4).toUpper();
    info.family = QStringLiteral("gf");
    return info;
}

// GF-5: GF5[B]_<sensor>_<E|W>lon_<N|S>lat_<yyyyMMdd>_<orbit>_L<level><number>
ProductInfo gaofen5(const QRegularExpressionMatch& m)
{
    ProductInfo info;
    info.satellite = m.captured(1).toUpper();
    info.sensor = m.captured(2).toUpper();
    info.acquisition = normaliseDateTime(m.captured(3));
    info.level = QStringLiteral("L") + m.captured(4);
    info.family = QStringLiteral("gf");
    return info;
}

// COSMO-SkyMed: CSKS<n>_<product>_<mode>_<swath>_<pol>_<look><pass>_<..>_<start yyyyMMddHHmmss>_<stop>
ProductInfo cosmoSkyMed(const QRegularExpressionMatch& m)
{
    ProductInfo info;
    info.satellite = QStringLiteral("COSMO-SKYMED-") + m.captured(1);
    info.level = m.captured(2).toUpper();
    info.sensor = QStringLiteral("SAR-2000 ") + m.captured(3).toUpper();
    info.acquisition = normaliseDateTime(m.captured(4));
    info.family = QStringLiteral("csk");
    return info;
}

// COSMO-SkyMed second generation: CSG_SSAR<n>_<product>_..._<start yyyyMMddHHmmss>_...
ProductInfo cosmoSecondGeneration(const QRegularExpressionMatch& m)
{
    ProductInfo info;
    info.satellite = QStringLiteral("COSMO-SKYMED-SG") + m.captured(1);
    info.level = m.captured(2).toUpper();
    info.sensor = QStringLiteral("CSG-SAR");
    info.acquisition = normaliseDateTime(m.captured(3));
    info.family = QStringLiteral("csk");
    return info;
}

ProductInfo sentinel1Derived(const QRegularExpressionMatch& m)
{
    ProductInfo info;
    info.satellite = QStringLiteral("SENTINEL-1") + m.captured(1).toUpper();
    info.sensor = (QStringLiteral("C-SAR ") + m.captured(2).toUpper()).trimmed();
    info.acquisition = normaliseDateTime(m.captured(3));
    info.family = QStringLiteral("sentinel1");
    return info;
}

ProductInfo sentinel2Derived(const QRegularExpressionMatch& m)
{
    ProductInfo info;
    info.satellite = QStringLiteral("SENTINEL-2") + m.captured(1).toUpper();
    info.sensor = QStringLiteral("MSI");
    info.acquisition = normaliseDateTime(m.captured(2));
    info.family = QStringLiteral("sentinel2");
    return info;
}

const std::vector<NameRule>& nameRules()
{
    using RE = QRegularExpression;
    const RE::PatternOptions ci = RE::CaseInsensitiveOption;
    static const std::vector<NameRule> rules = {
        {RE(QStringLiteral("^L([COTEM])(\\d{2})_(L1TP|L1GT|L1GS|L2SP|L2SR)_\\d{6}_(\\d{8})_\\d{8}_\\d{2}_(?:T1|T2|RT)"),
            ci),
         landsatCollection},
        {RE(QStringLiteral("^L([COTEM])(\\d)\\d{6}(\\d{7})[A-Z]{3}\\d{2}"), ci), landsatSceneId},
        {RE(QStringLiteral("^S2([ABCD])_MSI(L1C|L2A)_(\\d{8}T\\d{6})_"), ci), sentinel2Product},
        {RE(QStringLiteral("^T(\\d{2}[A-Z]{3})_(\\d{8}T\\d{6})_"), ci), sentinel2Tile},
        {RE(QStringLiteral(
                "^S1([ABCD])_(IW|EW|SM|WV|S[1-6])_(SLC_|GRD[FHM]|RAW_|OCN_)_[12][SA][A-Z]{2}_(\\d{8}T\\d{6})_"),
            ci),
         sentinel1Product},
        {RE(QStringLiteral("^s1([abcd])-(iw\\d?|ew\\d?|s[1-6]|wv\\d?)-(slc|grd|ocn)-(?:hh|hv|vh|vv)-(\\d{8}t\\d{6})-"),
            ci),
         sentinel1File},
        {RE(QStringLiteral("^(GF3[BC]?)_[A-Z]{3}_([A-Z]+)_\\d{6}_[EW][\\d.]+_[NS][\\d.]+_(\\d{8})_(L[12][AB]?)_"), ci),
         gaofen3},
        {RE(QStringLiteral("^(GF5[AB]?)_([A-Z]+)_[EW][\\d.]+_[NS][\\d.]+_(\\d{8})_\\d{6}_L(\\d)"), ci), gaofen5},
        {RE(QStringLiteral("^(GF1[BCD]?|GF2|GF4|GF6|GF7|ZY3|ZY302|ZY303)_([A-Z]+\\d?)_[EW][\\d.]+_[NS][\\d.]+_(\\d{8})_"
                           "(L\\d[A-Z]?)"),
            ci),
         gaofenOptical},
        {RE(QStringLiteral(
                "^CSKS(\\d)_([A-Z]{3}_[A-Z])_([A-Z0-9]{2})_[A-Z0-9]{2}_(?:HH|HV|VH|VV)_[RL][AD]_[FS][FS]_(\\d{14})_"),
            ci),
         cosmoSkyMed},
        {RE(QStringLiteral("^CSG_SSAR(\\d)_([A-Z]{3}_[A-Z])_\\w*?_(\\d{14})_"), ci), cosmoSecondGeneration},
        // Derived products that keep the mission prefix and the start time of their source.
        {RE(QStringLiteral("^S1([ABCD])_+(IW|EW|SM|WV)?[_A-Z0-9]*?(\\d{8}T\\d{6})"), ci), sentinel1Derived},
        {RE(QStringLiteral("^S2([ABCD])_[_A-Z0-9]*?(\\d{8}T\\d{6})"), ci), sentinel2Derived},
    };
    return rules;
}

QString firstLineValue(const QString& value)
{
    QString v = value.trimmed();
    if (v.size() >= 2 && v.startsWith(QLatin1Char('"')) && v.endsWith(QLatin1Char('"')))
        v = v.mid(1, v.size() - 2);
    return v.trimmed();
}

// Cloud share as written (a percentage); -1 when it is no number in [0, 100].
double cloudShare(const QString& text)
{
    bool ok = false;
    const double value = text.trimmed().toDouble(&ok);
    return ok && value >= 0.0 && value <= 100.0 ? value : -1.0;
}

} // namespace

ProductInfo merged(const ProductInfo& base, const ProductInfo& more)
{
    ProductInfo out = base;
    auto fill = [](QString& field, const QString& value) {
        if (field.isEmpty())
            field = value;
    };
    fill(out.satellite, more.satellite);
    fill(out.sensor, more.sensor);
    fill(out.acquisition, more.acquisition);
    fill(out.level, more.level);
    fill(out.family, more.family);
    if (out.cloudPercent < 0.0)
        out.cloudPercent = more.cloudPercent;
    if (out.pixelSpacingMetres <= 0.0)
        out.pixelSpacingMetres = more.pixelSpacingMetres;
    // A time of day is worth more than a bare date of the same day.
    if (more.acquisition.size() > out.acquisition.size() && more.acquisition.startsWith(out.acquisition))
        out.acquisition = more.acquisition;
    return out;
}

ProductInfo recogniseName(const QString& fileName)
{
    const QString name = fileName.left(512);
    for (const NameRule& rule : nameRules())
    {
        const QRegularExpressionMatch match = rule.pattern.match(name);
        if (match.hasMatch())
            return rule.read(match);
    }
    return ProductInfo();
}

ProductInfo readLandsatMtl(const QByteArray& text)
{
    ProductInfo info;
    if (text.size() > kMaxMetadataBytes)
        return info;
    QString date, time;
    const QList<QByteArray> lines = text.split('\n');
    for (const QByteArray& raw : lines)
    {
        const int eq = raw.indexOf('=');
        if (eq < 0)
            continue;
        const QString key = QString::fromLatin1(raw.left(eq)).trimmed();
        const QString value = firstLineValue(QString::fromLatin1(raw.mid(eq + 1)));
        if (key == QLatin1String("SPACECRAFT_ID") && info.satellite.isEmpty())
            info.satellite = value.toUpper();
        else if (key == QLatin1String("SENSOR_ID") && info.sensor.isEmpty())
            info.sensor = value.toUpper();
        else if (key == QLatin1String("DATE_ACQUIRED") && date.isEmpty())
            date = value;
        else if ((key == QLatin1String("SCENE_CENTER_TIME")) && time.isEmpty())
            time = value;
        else if ((key == QLatin1String("DATA_TYPE") || key == QLatin1String("PROCESSING_LEVEL")) &&
                 info.level.isEmpty())
            info.level = value.toUpper();
        else if (key == QLatin1String("CLOUD_COVER") && info.cloudPercent < 0.0)
            info.cloudPercent = cloudShare(value);
    }
    if (!date.isEmpty())
        info.acquisition = normaliseDateTime(time.isEmpty() ? date : date + QLatin1Char(' ') + time);
    if (info.recognised())
        info.family = QStringLiteral("landsat");
    return info;
}

double readSentinel1PixelSpacing(const QByteArray& xml)
{
    double range = -1.0, azimuth = -1.0;
    QXmlStreamReader reader(xml);
    while (!reader.atEnd() && !reader.hasError() && (range <= 0.0 || azimuth <= 0.0))
    {
        if (reader.readNext() != QXmlStreamReader::StartElement)
            continue;
        const bool isRange = reader.name() == QLatin1String("rangePixelSpacing");
        if (!isRange && reader.name() != QLatin1String("azimuthPixelSpacing"))
            continue;
        bool ok = false;
        const double value = reader.readElementText(QXmlStreamReader::SkipChildElements).trimmed().toDouble(&ok);
        // A spacing outside a metre range that any orbiting radar uses is a damaged file, not a resolution.
        if (!ok || !(value > 0.0 && value < 10000.0))
            continue;
        double& field = isRange ? range : azimuth;
        if (field <= 0.0)
            field = value;
    }
    return std::max(range, azimuth);
}

ProductInfo readSafeManifest(const QByteArray& xml, LonLatRing* footprint)
{
    ProductInfo info;
    if (xml.size() > kMaxMetadataBytes)
        return info;
    QString family, number, mode, productType, start, coordinates;
    QXmlStreamReader reader(xml);
    while (!reader.atEnd() && !reader.hasError())
    {
        if (reader.readNext() != QXmlStreamReader::StartElement)
            continue;
        const QStringRef name = reader.name();
        auto take = [&](QString& field) {
            const QString text = reader.readElementText(QXmlStreamReader::SkipChildElements).trimmed();
            if (field.isEmpty())
                field = text;
        };
        if (name == QLatin1String("familyName") && family.isEmpty())
            take(family);
        else if (name == QLatin1String("number"))
            take(number);
        else if (name == QLatin1String("mode"))
            take(mode);
        else if (name == QLatin1String("productType"))
            take(productType);
        else if (name == QLatin1String("startTime"))
            take(start);
        else if (name == QLatin1String("coordinates"))
            take(coordinates);
    }
    // The platform's family name comes first; the instrument's (for instance "SAR") follows it.
    if (family.startsWith(QLatin1String("SENTINEL"), Qt::CaseInsensitive))
    {
        info.satellite = family.toUpper() + number.toUpper();
        const bool radar = family.contains(QLatin1Char('1'));
        info.family = radar ? QStringLiteral("sentinel1") : QStringLiteral("sentinel2");
        info.sensor = radar ? (QStringLiteral("C-SAR ") + mode).trimmed() : QStringLiteral("MSI");
    }
    info.level = productType.toUpper();
    info.acquisition = normaliseDateTime(start);
    if (footprint)
    {
        footprint->clear();
        // gml:coordinates of the footprint: "lat,lon lat,lon ..."
        for (const QString& pair : coordinates.split(QRegularExpression(QStringLiteral("\\s+")), Qt::SkipEmptyParts))
        {
            const QStringList parts = pair.split(QLatin1Char(','));
            bool okLat = false, okLon = false;
            const double lat = parts.size() == 2 ? parts[0].toDouble(&okLat) : 0.0;
            const double lon = parts.size() == 2 ? parts[1].toDouble(&okLon) : 0.0;
            if (!okLat || !okLon || std::abs(lat) > 90.0 || std::abs(lon) > 180.0)
            {
                footprint->clear();
                break;
            }
            footprint->emplace_back(lon, lat);
        }
        if (footprint->size() < 3)
            footprint->clear();
    }
    return info;
}

ProductInfo readMetadataXml(const QByteArray& xml)
{
    ProductInfo info;
    if (xml.size() > kMaxMetadataBytes)
        return info;
    // Element names in the order of preference for each attribute.
    static const QStringList satelliteNames = {"SatelliteID", "satellite", "SPACECRAFT_NAME", "Satellite_ID"};
    static const QStringList sensorNames = {"SensorID", "imagingMode", "sensorID", "Sensor"};
    static const QStringList timeNames = {"CenterTime", "SceneCenterTime",    "imagingStartTime",       "StartTime",
                                          "start",      "PRODUCT_START_TIME", "DATATAKE_SENSING_START", "ReceiveTime"};
    static const QStringList levelNames = {"ProductLevel", "productLevel", "PROCESSING_LEVEL", "Level"};
    static const QStringList cloudNames = {"CloudPercent", "Cloud_Coverage_Assessment", "CloudCover"};
    QMap<QString, QString> found;
    QXmlStreamReader reader(xml);
    int elements = 0;
    while (!reader.atEnd() && !reader.hasError() && ++elements < 200000)
    {
        if (reader.readNext() != QXmlStreamReader::StartElement)
            continue;
        const QString name = reader.name().toString();
        const bool wanted = satelliteNames.contains(name) || sensorNames.contains(name) || timeNames.contains(name) ||
                            levelNames.contains(name) || cloudNames.contains(name);
        if (!wanted || found.contains(name))
            continue;
        const QString text = reader.readElementText(QXmlStreamReader::SkipChildElements).trimmed();
        if (!text.isEmpty())
            found.insert(name, text);
    }
    auto first = [&](const QStringList& names) {
        for (const QString& n : names)
            if (found.contains(n))
                return found.value(n);
        return QString();
    };
    info.satellite = first(satelliteNames).toUpper().left(64);
    info.sensor = first(sensorNames).toUpper().left(64);
    info.acquisition = normaliseDateTime(first(timeNames));
    info.level = first(levelNames).toUpper().left(32);
    info.cloudPercent = cloudShare(first(cloudNames));
    if (info.satellite.startsWith(QLatin1String("GF")))
        info.family = QStringLiteral("gf");
    else if (info.satellite.startsWith(QLatin1String("ZY")))
        info.family = QStringLiteral("zy3");
    else if (info.satellite.startsWith(QLatin1String("SENTINEL-2")))
        info.family = QStringLiteral("sentinel2");
    return info;
}

QString normaliseDateTime(const QString& text)
{
    static const QRegularExpression full(
        QStringLiteral("^(\\d{4})-?(\\d{2})-?(\\d{2})(?:[T ]?(\\d{2}):?(\\d{2}):?(\\d{2})(?:\\.\\d*)?Z?)?"),
        QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression yearDay(QStringLiteral("^(\\d{4})(\\d{3})$"));
    const QString t = text.trimmed().left(64);
    const QRegularExpressionMatch dayMatch = yearDay.match(t);
    if (dayMatch.hasMatch())
    {
        const QDate date = QDate(dayMatch.captured(1).toInt(), 1, 1).addDays(dayMatch.captured(2).toInt() - 1);
        return dayMatch.captured(2).toInt() >= 1 && date.isValid() && date.year() == dayMatch.captured(1).toInt()
                   ? date.toString(QStringLiteral("yyyy-MM-dd"))
                   : QString();
    }
    const QRegularExpressionMatch m = full.match(t);
    if (!m.hasMatch())
        return QString();
    const QDate date(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3).toInt());
    if (!date.isValid())
        return QString();
    QString out = date.toString(QStringLiteral("yyyy-MM-dd"));
    if (!m.captured(4).isEmpty())
    {
        const int h = m.captured(4).toInt(), mi = m.captured(5).toInt(), s = m.captured(6).toInt();
        if (h > 23 || mi > 59 || s > 60)
            return out;
        out += QStringLiteral("T%1:%2:%3")
                   .arg(h, 2, 10, QLatin1Char('0'))
                   .arg(mi, 2, 10, QLatin1Char('0'))
                   .arg(s, 2, 10, QLatin1Char('0'));
    }
    return out;
}

QString satelliteKey(const QString& name)
{
    QString key = name.toLower();
    key.remove(QRegularExpression(QStringLiteral("[\\s_-]")));
    return key;
}

} // namespace catalogue
