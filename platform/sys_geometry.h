// SysGeometry: envelopes, points and polygons (image or map coordinates), and a raster's extent.
#pragma once

#include <QString>
#include <vector>

class OGRPolygon;

namespace SysDataSource
{
class RasterDataset;
}

namespace SysGeometry
{

struct Point
{
    double x = 0.0;
    double y = 0.0;
};

class Envelope
{
public:
    Envelope() = default;
    Envelope(double xMin, double xMax, double yMin, double yMax) : m_xMin(xMin), m_xMax(xMax), m_yMin(yMin), m_yMax(yMax) {}
    double GetXMin() const { return m_xMin; }
    double GetXMax() const { return m_xMax; }
    double GetYMin() const { return m_yMin; }
    double GetYMax() const { return m_yMax; }
    bool IsEmpty() const { return m_xMax < m_xMin || m_yMax < m_yMin; }
    // Grows the envelope to hold another one.
    void Merge(const Envelope& other);

private:
    double m_xMin = 1.0;
    double m_xMax = 0.0;
    double m_yMin = 1.0;
    double m_yMax = 0.0;
};

// A polygon given by its outer ring; the ring is closed implicitly.
class Polygon
{
public:
    Polygon() = default;
    explicit Polygon(std::vector<Point> ring) : m_ring(std::move(ring)) {}
    const std::vector<Point>& Ring() const { return m_ring; }
    Envelope GetEnvelope() const;
    // The polygon as a new OGR geometry (closed ring); the caller owns it.
    OGRPolygon* ToOgr() const;

private:
    std::vector<Point> m_ring;
};

// Extent of a raster from its geotransform (the pixel grid when it has none).
Envelope RasterExtent(const SysDataSource::RasterDataset& dataset);

} // namespace SysGeometry
