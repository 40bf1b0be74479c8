// Extent, satellite and date rules of image filtering.
#include "filter_rules.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace catalogue
{

namespace
{

GeometryPtr boxFromText(const QString& text, bool* isBox)
{
    const QStringList parts = text.split(QLatin1Char('|'));
    *isBox = parts.size() == 4;
    if (!*isBox)
        return nullptr;
    double v[4];
    for (int i = 0; i < 4; ++i)
    {
        bool ok = false;
        v[i] = parts[i].trimmed().toDouble(&ok);
        if (!ok || !std::isfinite(v[i]))
            return nullptr;
    }
    if (v[0] > v[2] || v[1] > v[3] || v[0] < -180.0 || v[2] > 180.0 || v[1] < -90.0 || v[3] > 90.0)
        return nullptr;
    LonLatRing ring = {{v[0], v[1]}, {v[2], v[1]}, {v[2], v[3]}, {v[0], v[3]}};
    if (v[0] == v[2] || v[1] == v[3])
    {
        // A point or a line as a box: keep it as a geometry that still intersects what it touches.
        OGRGeometry* point = new OGRPoint(v[0], v[1]);
        point->assignSpatialReference(const_cast<OGRSpatialReference*>(&wgs84()));
        return GeometryPtr(point);
    }
    return polygonFromRing(ring);
}

} // namespace

GeometryPtr parseExtent(const QString& rawText, QString* error)
{
    error->clear();
    const QString text = rawText.trimmed();
    if (text.isEmpty())
        return nullptr;
    GeometryPtr geometry;
    if (text.startsWith(QLatin1Char('{')))
    {
        // A GeoJSON geometry, or a Feature holding one.
        QJsonObject object = QJsonDocument::fromJson(text.toUtf8()).object();
        if (object.value(QStringLiteral("type")).toString() == QLatin1String("Feature"))
            object = object.value(QStringLiteral("geometry")).toObject();
        if (!object.isEmpty())
        {
            const QByteArray json = QJsonDocument(object).toJson(QJsonDocument::Compact);
            CPLPushErrorHandler(CPLQuietErrorHandler);
            geometry.reset(OGRGeometryFactory::createFromGeoJson(json.constData()));
            CPLPopErrorHandler();
        }
    }
    else
    {
        bool isBox = false;
        geometry = boxFromText(text, &isBox);
        if (!isBox)
        {
            const QByteArray wkt = text.toUtf8();
            OGRGeometry* parsed = nullptr;
            if (OGRGeometryFactory::createFromWkt(wkt.constData(), nullptr, &parsed) == OGRERR_NONE)
                geometry.reset(parsed);
            else
                delete parsed;
        }
    }
    if (!geometry || geometry->IsEmpty())
    {
        *error = QStringLiteral("is not a WKT or GeoJSON geometry nor minx|miny|maxx|maxy in WGS 84");
        return nullptr;
    }
    OGREnvelope envelope;
    geometry->getEnvelope(&envelope);
    if (envelope.MinX < -360.0 || envelope.MaxX > 360.0 || envelope.MinY < -90.0 || envelope.MaxY > 90.0)
    {
        *error = QStringLiteral("lies outside longitude/latitude bounds");
        return nullptr;
    }
    geometry->assignSpatialReference(const_cast<OGRSpatialReference*>(&wgs84()));
    return geometry;
}

bool satelliteMatches(const QString& satellite, const QStringList& wanted)
{
    if (wanted.isEmpty())
        return true;
    const QString key = satelliteKey(satellite);
    for (const QString& name : wanted)
    {
        const QString want = satelliteKey(name);
        if (!want.isEmpty() && key.contains(want))
            return true;
    }
    return false;
}

bool DateRange::contains(const QString& acquisition) const
{
    if (isOpen())
        return true;
    if (acquisition.isEmpty())
        return false;
    if (!from.isEmpty() && acquisition < from && !from.startsWith(acquisition))
        return false;
    if (!to.isEmpty() && acquisition.left(to.size()) > to)
        return false;
    return true;
}

bool parseDateRange(const QString& text, DateRange* range)
{
    *range = DateRange();
    if (text.trimmed().isEmpty())
        return true;
    const QStringList parts = text.split(QLatin1Char('|'));
    if (parts.size() != 2)
        return false;
    const QString from = parts[0].trimmed(), to = parts[1].trimmed();
    range->from = normaliseDateTime(from);
    range->to = normaliseDateTime(to);
    if ((!from.isEmpty() && range->from.isEmpty()) || (!to.isEmpty() && range->to.isEmpty()))
        return false;
    return range->from.isEmpty() || range->to.isEmpty() || range->from.left(range->to.size()) <= range->to;
}

} // namespace catalogue
