// ReadRoiAreas: "ROI" root, one "AREA" per class with "name", "color" (r,g,b) and "item" elements whose
// "points" are x,y pairs in image coordinates. Polygon and rectangle items take the pairs as their ring;
// an ellipse item is the ellipse inscribed in the bounding rectangle of its pairs (for two pairs, the
// rectangle they span as opposite corners), approximated by a polygon of kEllipseVertices vertices.
#include "roi_reader.h"

#include <QDomDocument>
#include <QFile>

#include <algorithm>
#include <cmath>

namespace algofactory
{
namespace
{

QString childText(const QDomElement& parent, const char* name)
{
    return parent.firstChildElement(QLatin1String(name)).text();
}

QColor readColour(const QString& text)
{
    const QStringList parts = text.split(QLatin1Char(','));
    return QColor(parts.value(0).trimmed().toInt(), parts.value(1).trimmed().toInt(), parts.value(2).trimmed().toInt(),
                  255);
}

std::vector<SysGeometry::Point> readPoints(const QString& text)
{
    std::vector<SysGeometry::Point> points;
    if (text.trimmed().isEmpty())
        return points;
    const QStringList values = text.split(QLatin1Char(','));
    if (values.size() % 2 != 0)
        return points;
    for (int i = 0; i < values.size(); i += 2)
        points.push_back({values[i].trimmed().toDouble(), values[i + 1].trimmed().toDouble()});
    return points;
}

std::vector<SysGeometry::Point> ellipseRing(const std::vector<SysGeometry::Point>& points)
{
    double xMin = points[0].x, xMax = points[0].x, yMin = points[0].y, yMax = points[0].y;
    for (const SysGeometry::Point& p : points)
    {
        xMin = std::min(xMin, p.x), xMax = std::max(xMax, p.x);
        yMin = std::min(yMin, p.y), yMax = std::max(yMax, p.y);
    }
    const double cx = (xMin + xMax) / 2, cy = (yMin + yMax) / 2;
    const double rx = (xMax - xMin) / 2, ry = (yMax - yMin) / 2;
    std::vector<SysGeometry::Point> ring;
    for (int i = 0; i < kEllipseVertices; ++i)
    {
        const double angle = 2.0 * M_PI * i / kEllipseVertices;
        ring.push_back({cx + rx * std::cos(angle), cy + ry * std::sin(angle)});
    }
    return ring;
}

} // namespace

void ReadRoiAreas(const QString& path, std::vector<RoiArea>& areas)
{
    if (!areas.empty())
        return;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    QDomDocument document;
    if (!document.setContent(&file))
        return;
    const QDomElement root = document.documentElement();
    if (root.tagName() != QLatin1String("ROI"))
        return;
    for (QDomElement element = root.firstChildElement(QStringLiteral("AREA")); !element.isNull();
         element = element.nextSiblingElement(QStringLiteral("AREA")))
    {
        RoiArea area;
        area.name = childText(element, "name");
        area.color = readColour(childText(element, "color"));
        for (QDomElement item = element.firstChildElement(QStringLiteral("item")); !item.isNull();
             item = item.nextSiblingElement(QStringLiteral("item")))
        {
            const QString type = childText(item, "type");
            const std::vector<SysGeometry::Point> points = readPoints(childText(item, "points"));
            if (points.empty())
                continue;
            if (type == QLatin1String("type_Ploygon") || type == QLatin1String("type_Rect"))
                area.geometries.emplace_back(points);
            else if (type == QLatin1String("type_Ellipse"))
                area.geometries.emplace_back(ellipseRing(points));
        }
        areas.push_back(std::move(area));
    }
}

} // namespace algofactory
