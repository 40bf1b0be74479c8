// Product metadata XML of the metadata tools.
#include "metadata_document.h"

#include "raster_io.h"

#include <ogr_spatialref.h>

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSaveFile>
#include <cmath>

namespace datautil
{

namespace
{

QString number(double value)
{
    return QString::number(value, 'g', 15);
}

struct BandSums
{
    double count = 0, sum = 0, squares = 0, low = HUGE_VAL, high = -HUGE_VAL;
};

void appendCorner(QDomDocument& document, QDomElement& corners, const char* tag, double lon, double lat)
{
    QDomElement corner = document.createElement(QLatin1String(tag));
    appendText(document, corner, QStringLiteral("Longitude"), number(lon));
    appendText(document, corner, QStringLiteral("Latitude"), number(lat));
    corners.appendChild(corner);
}

} // namespace

SourceMetadata readSourceFile(const algokit::GenericParams& args, const QString& key, const QString& path)
{
    if (path.trimmed().isEmpty())
        args.refuse(key, path, QStringLiteral("is empty"));
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        args.refuse(key, path, QStringLiteral("is not a readable file"));
    if (file.size() > (qint64(64) << 20))
        args.refuse(key, path, QStringLiteral("is larger than 64 MB, too large for a metadata file"));
    const SourceMetadata source = readSourceMetadata(file.readAll());
    if (!source.parsed)
        args.refuse(key, path, QStringLiteral("is not well-formed XML (%1)").arg(source.error));
    return source;
}

QJsonObject jsonObjectArgument(const algokit::GenericParams& args, const QString& key)
{
    const QString text = args.text(key).value();
    if (text.trimmed().isEmpty())
        return QJsonObject();
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        args.refuse(key, text, QStringLiteral("is not a JSON object"));
    return document.object();
}

QDomElement appendText(QDomDocument& document, QDomElement& parent, const QString& tag, const QString& text)
{
    QDomElement element = document.createElement(tag);
    element.appendChild(document.createTextNode(text));
    parent.appendChild(element);
    return element;
}

QString utcNow()
{
    return QDateTime::currentDateTimeUtc().toString(Qt::ISODate);
}

bool isElementName(const QString& name)
{
    static const QRegularExpression pattern(QStringLiteral("^[A-Za-z_][A-Za-z0-9_.\\-]*$"));
    return pattern.match(name).hasMatch() && !name.startsWith(QLatin1String("xml"), Qt::CaseInsensitive);
}

QDomElement imageInfoElement(QDomDocument& document, GDALDataset* raster, const QString& path,
                             const std::function<void(double)>& progress)
{
    QDomElement info = document.createElement(QLatin1String(kImageInfo));
    const int width = raster->GetRasterXSize(), height = raster->GetRasterYSize(), bands = raster->GetRasterCount();
    appendText(document, info, QStringLiteral("FileName"), QFileInfo(path).fileName());
    appendText(document, info, QStringLiteral("Format"), QString::fromUtf8(raster->GetDriver()->GetDescription()));
    appendText(document, info, QStringLiteral("Width"), QString::number(width));
    appendText(document, info, QStringLiteral("Height"), QString::number(height));
    appendText(document, info, QStringLiteral("BandCount"), QString::number(bands));
    appendText(document, info, QStringLiteral("DataType"),
               QString::fromUtf8(GDALGetDataTypeName(raster->GetRasterBand(1)->GetRasterDataType())));

    double gt[6];
    const bool georeferenced = raster->GetGeoTransform(gt) == CE_None;
    const OGRSpatialReference* srs = raster->GetSpatialRef();
    QDomElement reference = document.createElement(QStringLiteral("ReferenceSystem"));
    if (srs)
    {
        appendText(document, reference, QStringLiteral("Name"), QString::fromUtf8(srs->GetName()));
        const char* authority = srs->GetAuthorityName(nullptr);
        const char* code = srs->GetAuthorityCode(nullptr);
        if (authority && code)
            appendText(document, reference, QStringLiteral("Code"), QStringLiteral("%1:%2").arg(authority, code));
        char* wkt = nullptr;
        srs->exportToWkt(&wkt);
        appendText(document, reference, QStringLiteral("WKT"), QString::fromUtf8(wkt ? wkt : ""));
        CPLFree(wkt);
    }
    info.appendChild(reference);
    if (georeferenced)
    {
        QDomElement resolution = document.createElement(QStringLiteral("Resolution"));
        appendText(document, resolution, QStringLiteral("X"), number(std::hypot(gt[1], gt[4])));
        appendText(document, resolution, QStringLiteral("Y"), number(std::hypot(gt[2], gt[5])));
        if (srs)
        {
            const char* unit = nullptr;
            if (srs->IsGeographic())
                srs->GetAngularUnits(&unit);
            else
                srs->GetLinearUnits(&unit);
            appendText(document, resolution, QStringLiteral("Unit"), QString::fromUtf8(unit ? unit : ""));
        }
        info.appendChild(resolution);
    }
    if (georeferenced && srs)
    {
        // Corner coordinates (outer pixel edges) in longitude and latitude on the system's own datum.
        OGRSpatialReference geographic;
        geographic.CopyGeogCSFrom(srs);
        geographic.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        OGRSpatialReference own(*srs);
        own.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        std::unique_ptr<OGRCoordinateTransformation> toLonLat(OGRCreateCoordinateTransformation(&own, &geographic));
        double xs[4] = {0, double(width), double(width), 0}, ys[4] = {0, 0, double(height), double(height)};
        for (int i = 0; i < 4; ++i)
        {
            const double px = xs[i], py = ys[i];
            xs[i] = gt[0] + px * gt[1] + py * gt[2];
            ys[i] = gt[3] + px * gt[4] + py * gt[5];
        }
        if (toLonLat && toLonLat->Transform(4, xs, ys))
        {
            QDomElement corners = document.createElement(QStringLiteral("Corners"));
            appendCorner(document, corners, "UpperLeft", xs[0], ys[0]);
            appendCorner(document, corners, "UpperRight", xs[1], ys[1]);
            appendCorner(document, corners, "LowerRight", xs[2], ys[2]);
            appendCorner(document, corners, "LowerLeft", xs[3], ys[3]);
            info.appendChild(corners);
        }
    }

    QDomElement bandList = document.createElement(QStringLiteral("Bands"));
    const int step = algokit::rowsPerBlock(raster, sizeof(double));
    std::vector<double> buffer;
    for (int b = 1; b <= bands; ++b)
    {
        GDALRasterBand* band = raster->GetRasterBand(b);
        int hasNoData = 0;
        const double noData = band->GetNoDataValue(&hasNoData);
        BandSums sums;
        algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
            algokit::readRows(band, row0, rows, buffer);
            for (double v : buffer)
            {
                if (std::isnan(v) || (hasNoData && v == noData))
                    continue;
                sums.count += 1;
                sums.sum += v;
                sums.squares += v * v;
                sums.low = std::min(sums.low, v);
                sums.high = std::max(sums.high, v);
            }
            progress(100.0 * (b - 1 + double(row0 + rows) / height) / bands);
        });
        QDomElement element = document.createElement(QStringLiteral("Band"));
        element.setAttribute(QStringLiteral("index"), b);
        if (const char* description = band->GetDescription(); description && *description)
            appendText(document, element, QStringLiteral("Name"), QString::fromUtf8(description));
        if (const char* wavelength = band->GetMetadataItem("wavelength"))
            appendText(document, element, QStringLiteral("Wavelength"), QString::fromUtf8(wavelength));
        if (const char* unit = band->GetMetadataItem("wavelength_units"))
            appendText(document, element, QStringLiteral("WavelengthUnit"), QString::fromUtf8(unit));
        if (hasNoData)
            appendText(document, element, QStringLiteral("NoData"), number(noData));
        appendText(document, element, QStringLiteral("ValidPixels"), QString::number(qint64(sums.count)));
        if (sums.count > 0)
        {
            const double mean = sums.sum / sums.count;
            appendText(document, element, QStringLiteral("Minimum"), number(sums.low));
            appendText(document, element, QStringLiteral("Maximum"), number(sums.high));
            appendText(document, element, QStringLiteral("Mean"), number(mean));
            appendText(document, element, QStringLiteral("StdDev"),
                       number(std::sqrt(std::max(0.0, sums.squares / sums.count - mean * mean))));
        }
        bandList.appendChild(element);
    }
    info.appendChild(bandList);
    return info;
}

QDomElement sourceElement(QDomDocument& document, const QString& tag, const SourceMetadata& source, const QString& path)
{
    QDomElement element = document.createElement(tag);
    appendText(document, element, QStringLiteral("MetadataFile"), QFileInfo(path).fileName());
    for (const auto& field : source.fields)
        appendText(document, element, field.first, field.second);
    return element;
}

QString appendJson(QDomDocument& document, QDomElement& parent, const QJsonObject& object)
{
    for (auto it = object.begin(); it != object.end(); ++it)
    {
        if (!isElementName(it.key()))
            return it.key();
        const QJsonArray items = it.value().isArray() ? it.value().toArray() : QJsonArray{it.value()};
        for (const QJsonValue& item : items)
        {
            QDomElement child = document.createElement(it.key());
            if (item.isObject())
            {
                const QString bad = appendJson(document, child, item.toObject());
                if (!bad.isEmpty())
                    return bad;
            }
            else
            {
                const QVariant value = item.toVariant();
                child.appendChild(
                    document.createTextNode(item.isDouble() ? number(item.toDouble()) : value.toString()));
            }
            parent.appendChild(child);
        }
    }
    return QString();
}

QDomElement elementAt(QDomDocument& document, const QStringList& path)
{
    QDomElement current = document.documentElement();
    for (int i = 0; i < path.size(); ++i)
    {
        if (i == 0 && path.size() > 1 && path[0] == current.tagName())
            continue;
        QDomElement child = current.firstChildElement(path[i]);
        if (child.isNull())
        {
            child = document.createElement(path[i]);
            current.appendChild(child);
        }
        current = child;
    }
    return current;
}

void saveDocument(const QDomDocument& document, const QString& path)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        throw algokit::AlgoError(QStringLiteral("Cannot write %1: %2").arg(path, file.errorString()));
    file.write(document.toByteArray(2));
    if (!file.commit())
        throw algokit::AlgoError(QStringLiteral("Cannot write %1: %2").arg(path, file.errorString()));
}

} // namespace datautil
