// Whether a raster's extent and that of a vector (or raster) file overlap, in the raster's reference system.
#include "extent_intersection.h"
#include "sys_data_source.h"

#include <gdal_priv.h>
#include <ogr_spatialref.h>
#include <ogrsf_frmts.h>

#include <algorithm>
#include <memory>

namespace algofactory
{

namespace
{

struct Extent
{
    double minX = 0, minY = 0, maxX = 0, maxY = 0;
    bool valid = false;
    void add(double x, double y)
    {
        if (!valid)
        {
            minX = maxX = x;
            minY = maxY = y;
            valid = true;
            return;
        }
        minX = std::min(minX, x);
        maxX = std::max(maxX, x);
        minY = std::min(minY, y);
        maxY = std::max(maxY, y);
    }
    void add(const Extent& other)
    {
        if (other.valid)
        {
            add(other.minX, other.minY);
            add(other.maxX, other.maxY);
        }
    }
};

struct Closer
{
    void operator()(GDALDataset* dataset) const { GDALClose(GDALDataset::ToHandle(dataset)); }
};
using Dataset = std::unique_ptr<GDALDataset, Closer>;

Dataset openQuietly(const QString& path, unsigned flags)
{
    SysDataSource::RegisterGdalDrivers();
    CPLPushErrorHandler(CPLQuietErrorHandler);
    GDALDataset* dataset =
        GDALDataset::FromHandle(GDALOpenEx(path.toUtf8().constData(), flags | GDAL_OF_READONLY, nullptr, nullptr, nullptr));
    CPLPopErrorHandler();
    return Dataset(dataset);
}

Extent rasterFootprint(GDALDataset* dataset)
{
    double gt[6] = {0, 1, 0, 0, 0, 1};
    dataset->GetGeoTransform(gt);
    Extent extent;
    const double w = dataset->GetRasterXSize(), h = dataset->GetRasterYSize();
    for (double px : {0.0, w})
        for (double py : {0.0, h})
            extent.add(gt[0] + px * gt[1] + py * gt[2], gt[3] + px * gt[4] + py * gt[5]);
    return extent;
}

// The extent in the target system; unchanged when either system is missing.
Extent toTarget(const Extent& extent, const OGRSpatialReference* source, const OGRSpatialReference* target)
{
    if (!extent.valid || !source || !target || source->IsEmpty() || target->IsEmpty() || source->IsSame(target))
        return extent;
    OGRSpatialReference from(*source), to(*target);
    from.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    to.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    std::unique_ptr<OGRCoordinateTransformation> transform(OGRCreateCoordinateTransformation(&from, &to));
    Extent out;
    if (!transform)
        return out;
    double minX = 0, minY = 0, maxX = 0, maxY = 0;
    CPLPushErrorHandler(CPLQuietErrorHandler);
    const bool ok = transform->TransformBounds(extent.minX, extent.minY, extent.maxX, extent.maxY, &minX, &minY, &maxX,
                                               &maxY, 21);
    CPLPopErrorHandler();
    if (ok)
    {
        out.add(minX, minY);
        out.add(maxX, maxY);
    }
    return out;
}

// The attribute file's extent in the given reference system (its own coordinates when either has none).
Extent attributeExtent(GDALDataset* attribute, const OGRSpatialReference* target)
{
    Extent extent;
    if (attribute->GetLayerCount() > 0)
    {
        for (int i = 0; i < attribute->GetLayerCount(); ++i)
        {
            OGRLayer* layer = attribute->GetLayer(i);
            OGREnvelope envelope;
            if (layer->GetExtent(&envelope, TRUE) != OGRERR_NONE)
                continue;
            Extent layerExtent;
            layerExtent.add(envelope.MinX, envelope.MinY);
            layerExtent.add(envelope.MaxX, envelope.MaxY);
            extent.add(toTarget(layerExtent, layer->GetSpatialRef(), target));
        }
    }
    else if (attribute->GetRasterCount() > 0)
    {
        extent = toTarget(rasterFootprint(attribute), attribute->GetSpatialRef(), target);
    }
    return extent;
}

bool overlap(const Extent& a, const Extent& b)
{
    return a.minX <= b.maxX && b.minX <= a.maxX && a.minY <= b.maxY && b.minY <= a.maxY;
}

} // namespace

ExtentRelation compareExtents(const QString& rasterPath, const QString& attributePath)
{
    Dataset raster = openQuietly(rasterPath, GDAL_OF_RASTER);
    Dataset attribute = openQuietly(attributePath, GDAL_OF_VECTOR | GDAL_OF_RASTER);
    if (!raster || !attribute)
        return ExtentRelation::Unknown;
    const Extent rasterExtent = rasterFootprint(raster.get());
    const OGRSpatialReference* rasterSrs = raster->GetSpatialRef();

    Extent other = attributeExtent(attribute.get(), rasterSrs);
    if (other.valid)
        return overlap(rasterExtent, other) ? ExtentRelation::Intersect : ExtentRelation::Disjoint;
    // Far from the raster's projection zone the transformation can fail: compare in longitude and latitude.
    if (!rasterSrs)
        return ExtentRelation::Unknown;
    OGRSpatialReference geographic;
    geographic.SetWellKnownGeogCS("WGS84");
    const Extent rasterGeographic = toTarget(rasterExtent, rasterSrs, &geographic);
    other = attributeExtent(attribute.get(), &geographic);
    if (!rasterGeographic.valid || !other.valid)
        return ExtentRelation::Unknown;
    return overlap(rasterGeographic, other) ? ExtentRelation::Intersect : ExtentRelation::Disjoint;
}

} // namespace algofactory
