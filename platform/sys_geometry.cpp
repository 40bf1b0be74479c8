// SysGeometry over OGR.
#include "sys_geometry.h"

#include "sys_data_source.h"

#include <ogr_geometry.h>

#include <algorithm>

namespace SysGeometry
{

void Envelope::Merge(const Envelope& other)
{
    if (other.IsEmpty())
        return;
    if (IsEmpty())
    {
        *this = other;
        return;
    }
    m_xMin = std::min(m_xMin, other.m_xMin);
    m_xMax = std::max(m_xMax, other.m_xMax);
    m_yMin = std::min(m_yMin, other.m_yMin);
    m_yMax = std::max(m_yMax, other.m_yMax);
}

Envelope Polygon::GetEnvelope() const
{
    Envelope envelope;
    for (const Point& point : m_ring)
        envelope.Merge(Envelope(point.x, point.x, point.y, point.y));
    return envelope;
}

OGRPolygon* Polygon::ToOgr() const
{
    auto* ring = new OGRLinearRing;
    for (const Point& point : m_ring)
        ring->addPoint(point.x, point.y);
    ring->closeRings();
    auto* polygon = new OGRPolygon;
    polygon->addRingDirectly(ring);
    return polygon;
}

Envelope RasterExtent(const SysDataSource::RasterDataset& dataset)
{
    double transform[6] = {0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
    if (!dataset.GetGeoTransform(transform))
    {
        transform[0] = 0.0, transform[1] = 1.0, transform[2] = 0.0;
        transform[3] = 0.0, transform[4] = 0.0, transform[5] = 1.0;
    }
    const double width = dataset.GetWidth();
    const double height = dataset.GetHeight();
    Envelope extent;
    for (const double px : {0.0, width})
        for (const double py : {0.0, height})
        {
            const double x = transform[0] + px * transform[1] + py * transform[2];
            const double y = transform[3] + px * transform[4] + py * transform[5];
            extent.Merge(Envelope(x, x, y, y));
        }
    return extent;
}

} // namespace SysGeometry
