// Mosaic faces from image footprints and a mask region.
#include "mosaic_faces.h"
#include "sys_data_source.h"

#include <gdal_priv.h>
#include <ogr_spatialref.h>
#include <ogrsf_frmts.h>

#include <memory>
#include <vector>

namespace algofactory
{

namespace
{

struct GdalCloser
{
    void operator()(GDALDataset* dataset) const { GDALClose(GDALDataset::ToHandle(dataset)); }
};
using GdalPtr = std::unique_ptr<GDALDataset, GdalCloser>;
using GeometryPtr = std::unique_ptr<OGRGeometry>;

GdalPtr openQuietly(const QString& path, unsigned int kind)
{
    CPLPushErrorHandler(CPLQuietErrorHandler);
    GdalPtr dataset(GDALDataset::Open(path.toUtf8().constData(), kind | GDAL_OF_READONLY));
    CPLPopErrorHandler();
    return dataset;
}

// Densified image outline (so a reprojected edge stays close to the true footprint).
GeometryPtr footprint(GDALDataset* dataset)
{
    double t[6];
    if (dataset->GetGeoTransform(t) != CE_None)
        return nullptr;
    const int w = dataset->GetRasterXSize(), h = dataset->GetRasterYSize();
    auto ring = std::make_unique<OGRLinearRing>();
    const double corners[5][2] = {{0, 0}, {double(w), 0}, {double(w), double(h)}, {0, double(h)}, {0, 0}};
    const int steps = 16;
    for (int c = 0; c < 4; ++c)
        for (int s = 0; s < steps; ++s)
        {
            const double px = corners[c][0] + (corners[c + 1][0] - corners[c][0]) * s / steps;
            const double py = corners[c][1] + (corners[c + 1][1] - corners[c][1]) * s / steps;
            ring->addPoint(t[0] + px * t[1] + py * t[2], t[3] + px * t[4] + py * t[5]);
        }
    ring->closeRings();
    auto polygon = std::make_unique<OGRPolygon>();
    polygon->addRingDirectly(ring.release());
    return polygon;
}

bool reproject(OGRGeometry* geometry, const OGRSpatialReference* from, const OGRSpatialReference& to)
{
    if (!from || from->IsSame(&to))
        return true;
    OGRSpatialReference source(*from);
    source.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    std::unique_ptr<OGRCoordinateTransformation> transform(OGRCreateCoordinateTransformation(&source, &to));
    return transform && geometry->transform(transform.get()) == OGRERR_NONE;
}

GeometryPtr maskRegion(const QString& maskFile, const OGRSpatialReference& target, bool* ok)
{
    *ok = false;
    GdalPtr mask = openQuietly(maskFile, GDAL_OF_VECTOR);
    if (!mask || mask->GetLayerCount() < 1)
        return nullptr;
    OGRLayer* layer = mask->GetLayer(0);
    GeometryPtr region;
    for (auto& feature : *layer)
    {
        const OGRGeometry* geometry = feature->GetGeometryRef();
        if (!geometry || geometry->IsEmpty())
            continue;
        GeometryPtr part(geometry->clone());
        if (!reproject(part.get(), layer->GetSpatialRef(), target))
            return nullptr;
        region = region ? GeometryPtr(region->Union(part.get())) : std::move(part);
        if (!region)
            return nullptr;
    }
    *ok = true;
    return region ? std::move(region) : GeometryPtr(new OGRPolygon());
}

// Overlay operations may leave slivers as lines or points; the cutline takes polygons only.
GeometryPtr polygonalPart(GeometryPtr geometry)
{
    if (!geometry)
        return nullptr;
    const OGRwkbGeometryType type = wkbFlatten(geometry->getGeometryType());
    if (type == wkbPolygon || type == wkbMultiPolygon)
        return geometry;
    auto parts = std::make_unique<OGRMultiPolygon>();
    if (type == wkbGeometryCollection)
        for (const OGRGeometry* part : *geometry->toGeometryCollection())
        {
            const OGRwkbGeometryType partType = wkbFlatten(part->getGeometryType());
            if (partType == wkbPolygon)
                parts->addGeometry(part);
            else if (partType == wkbMultiPolygon)
                for (const OGRPolygon* polygon : *part->toMultiPolygon())
                    parts->addGeometry(polygon);
        }
    return parts;
}

} // namespace

bool buildMosaicFaces(const QStringList& inputs, const QString& maskFile, QStringList* faces)
{
    SysDataSource::RegisterGdalDrivers();
    faces->clear();
    std::vector<GeometryPtr> footprints;
    OGRSpatialReference target;
    for (int i = 0; i < inputs.size(); ++i)
    {
        GdalPtr dataset = openQuietly(inputs[i], GDAL_OF_RASTER);
        if (!dataset)
            return false;
        const OGRSpatialReference* srs = dataset->GetSpatialRef();
        if (i == 0)
        {
            if (!srs)
                return false;
            target = *srs;
            target.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        }
        GeometryPtr outline = footprint(dataset.get());
        if (!outline || !reproject(outline.get(), srs, target))
            return false;
        footprints.push_back(std::move(outline));
    }
    GeometryPtr region;
    if (!maskFile.isEmpty())
    {
        bool ok = false;
        region = maskRegion(maskFile, target, &ok);
        if (!ok)
            return false;
    }
    // Later inputs lie over earlier ones: walk backwards, taking away what is already covered.
    std::vector<QString> reversed;
    GeometryPtr covered;
    for (int i = int(footprints.size()) - 1; i >= 0; --i)
    {
        GeometryPtr face(footprints[size_t(i)]->clone());
        if (covered)
            face.reset(face->Difference(covered.get()));
        if (face && region)
            face.reset(face->Intersection(region.get()));
        covered = covered ? GeometryPtr(covered->Union(footprints[size_t(i)].get()))
                          : GeometryPtr(footprints[size_t(i)]->clone());
        face = polygonalPart(std::move(face));
        QString wkt;
        if (face && !face->IsEmpty())
            wkt = QString::fromStdString(face->exportToWkt());
        reversed.push_back(wkt);
    }
    for (auto it = reversed.rbegin(); it != reversed.rend(); ++it)
        faces->append(*it);
    return true;
}

} // namespace algofactory
