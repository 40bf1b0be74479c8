// Valid-data footprints through GDAL: reduced-resolution mask, polygoniser, GEOS simplification, transformer.
#include "footprint.h"

#include <gdal_alg.h>
#include <ogrsf_frmts.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <vector>

namespace catalogue
{

namespace
{

constexpr double kEarthRadius = 6371008.8; // mean radius of WGS 84, metres
constexpr double kDegree = M_PI / 180.0;

struct TransformerCloser
{
    void operator()(void* transformer) const
    {
        if (transformer)
            GDALDestroyGenImgProjTransformer(transformer);
    }
};
using TransformerPtr = std::unique_ptr<void, TransformerCloser>;

// Union of the bands' validity at w x h cells; false when GDAL could not read.
bool readValidMask(GDALDataset* dataset, int w, int h, bool zeroIsFill, std::vector<unsigned char>& mask)
{
    const int width = dataset->GetRasterXSize(), height = dataset->GetRasterYSize();
    mask.assign(size_t(w) * h, 0);
    std::vector<unsigned char> cells(size_t(w) * h);
    std::vector<double> values;
    bool datasetMaskDone = false;
    for (int b = 1; b <= dataset->GetRasterCount(); ++b)
    {
        GDALRasterBand* band = dataset->GetRasterBand(b);
        const int flags = band->GetMaskFlags();
        if (flags == GMF_ALL_VALID && !zeroIsFill)
        {
            std::fill(mask.begin(), mask.end(), 1);
            return true;
        }
        if (flags == GMF_ALL_VALID)
        {
            values.resize(size_t(w) * h);
            if (band->RasterIO(GF_Read, 0, 0, width, height, values.data(), w, h, GDT_Float64, 0, 0) != CE_None)
                return false;
            for (size_t i = 0; i < values.size(); ++i)
                mask[i] |= values[i] != 0.0 && !std::isnan(values[i]);
            continue;
        }
        if (flags & GMF_PER_DATASET)
        {
            if (datasetMaskDone)
                continue;
            datasetMaskDone = true;
        }
        if (band->GetMaskBand()->RasterIO(GF_Read, 0, 0, width, height, cells.data(), w, h, GDT_Byte, 0, 0) != CE_None)
            return false;
        for (size_t i = 0; i < cells.size(); ++i)
            mask[i] |= cells[i] != 0;
    }
    return true;
}

// Polygons of the cells equal to 1, in full-resolution pixel/line coordinates.
GeometryPtr polygoniseMask(const std::vector<unsigned char>& mask, int w, int h, double cellX, double cellY)
{
    GDALDriver* memRaster = GetGDALDriverManager()->GetDriverByName("MEM");
    GDALDriver* memVector = GetGDALDriverManager()->GetDriverByName("Memory");
    if (!memRaster || !memVector)
        return nullptr;
    std::unique_ptr<GDALDataset> raster(memRaster->Create("", w, h, 1, GDT_Byte, nullptr));
    std::unique_ptr<GDALDataset> vector(memVector->Create("", 0, 0, 0, GDT_Unknown, nullptr));
    if (!raster || !vector)
        return nullptr;
    double transform[6] = {0.0, cellX, 0.0, 0.0, 0.0, cellY};
    raster->SetGeoTransform(transform);
    GDALRasterBand* band = raster->GetRasterBand(1);
    if (band->RasterIO(GF_Write, 0, 0, w, h, const_cast<unsigned char*>(mask.data()), w, h, GDT_Byte, 0, 0) != CE_None)
        return nullptr;
    OGRLayer* layer = vector->CreateLayer("mask", nullptr, wkbPolygon, nullptr);
    OGRFieldDefn field("value", OFTInteger);
    if (!layer || layer->CreateField(&field) != OGRERR_NONE)
        return nullptr;
    char* options[] = {const_cast<char*>("8CONNECTED=8"), nullptr};
    if (GDALPolygonize(band, band, OGRLayer::ToHandle(layer), 0, options, nullptr, nullptr) != CE_None)
        return nullptr;
    auto polygons = std::make_unique<OGRMultiPolygon>();
    layer->ResetReading();
    while (std::unique_ptr<OGRFeature> feature{layer->GetNextFeature()})
        if (OGRGeometry* geometry = feature->GetGeometryRef())
            if (wkbFlatten(geometry->getGeometryType()) == wkbPolygon)
                polygons->addGeometry(geometry);
    return polygons;
}

GeometryPtr rectangle(double x0, double y0, double x1, double y1)
{
    auto ring = std::make_unique<OGRLinearRing>();
    ring->addPoint(x0, y0);
    ring->addPoint(x1, y0);
    ring->addPoint(x1, y1);
    ring->addPoint(x0, y1);
    ring->addPoint(x0, y0);
    auto polygon = std::make_unique<OGRPolygon>();
    polygon->addRingDirectly(ring.release());
    auto multi = std::make_unique<OGRMultiPolygon>();
    multi->addGeometryDirectly(polygon.release());
    return multi;
}

// Applies fn(x, y, count) to every ring of a (multi)polygon; false when fn fails for a ring.
template <typename Fn> bool forEachRing(OGRGeometry* geometry, Fn fn)
{
    auto ringPoints = [&](OGRLinearRing* ring) {
        const int n = ring->getNumPoints();
        std::vector<double> x(n), y(n);
        ring->getPoints(x.data(), sizeof(double), y.data(), sizeof(double));
        if (!fn(x.data(), y.data(), n))
            return false;
        ring->setPoints(n, x.data(), y.data());
        return true;
    };
    auto polygonRings = [&](OGRPolygon* polygon) {
        for (OGRLinearRing* ring : *polygon)
            if (!ringPoints(ring))
                return false;
        return true;
    };
    const OGRwkbGeometryType type = wkbFlatten(geometry->getGeometryType());
    if (type == wkbPolygon)
        return polygonRings(geometry->toPolygon());
    if (type == wkbMultiPolygon)
    {
        for (OGRPolygon* polygon : *geometry->toMultiPolygon())
            if (!polygonRings(polygon))
                return false;
        return true;
    }
    return false;
}

GeometryPtr validated(GeometryPtr geometry)
{
    if (!geometry || geometry->IsValid())
        return geometry;
    GeometryPtr fixed(geometry->MakeValid());
    return fixed ? std::move(fixed) : std::move(geometry);
}

QString srsLabel(const OGRSpatialReference& srs)
{
    OGRSpatialReference copy(srs);
    const char* name = copy.GetAuthorityName(nullptr);
    const char* code = copy.GetAuthorityCode(nullptr);
    if ((!name || !code) && copy.AutoIdentifyEPSG() == OGRERR_NONE)
    {
        name = copy.GetAuthorityName(nullptr);
        code = copy.GetAuthorityCode(nullptr);
    }
    if (name && code)
        return QStringLiteral("%1:%2").arg(QString::fromLatin1(name), QString::fromLatin1(code));
    return QString::fromUtf8(copy.GetName() ? copy.GetName() : "");
}

// Transformations to WGS 84 for reference systems seen before on this thread: making one costs far more than
// placing a footprint with it, and an index usually holds many images of few systems.
OGRCoordinateTransformation* toWgs84(const OGRSpatialReference& srs)
{
    thread_local std::map<std::string, std::unique_ptr<OGRCoordinateTransformation>> cache;
    char* wkt = nullptr;
    srs.exportToWkt(&wkt);
    const std::string key = wkt ? wkt : "";
    CPLFree(wkt);
    auto it = cache.find(key);
    if (it == cache.end())
    {
        if (cache.size() > 64)
            cache.clear();
        OGRSpatialReference source(srs);
        source.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        CPLPushErrorHandler(CPLQuietErrorHandler);
        std::unique_ptr<OGRCoordinateTransformation> ct(OGRCreateCoordinateTransformation(&source, &wgs84()));
        CPLPopErrorHandler();
        it = cache.emplace(key, std::move(ct)).first;
    }
    return it->second.get();
}

} // namespace

const OGRSpatialReference& wgs84()
{
    static const OGRSpatialReference srs = [] {
        OGRSpatialReference s;
        s.SetWellKnownGeogCS("WGS84");
        s.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        return s;
    }();
    return srs;
}

double areaSquareMetres(const OGRGeometry& lonLat)
{
    // Lambert cylindrical equal-area about the geometry's own longitude: x = R*lon, y = R*sin(lat).
    GeometryPtr copy(lonLat.clone());
    forEachRing(copy.get(), [](double* x, double* y, int n) {
        for (int i = 0; i < n; ++i)
        {
            x[i] = kEarthRadius * x[i] * kDegree;
            y[i] = kEarthRadius * std::sin(y[i] * kDegree);
        }
        return true;
    });
    const OGRwkbGeometryType type = wkbFlatten(copy->getGeometryType());
    if (type == wkbPolygon)
        return copy->toPolygon()->get_Area();
    if (type == wkbMultiPolygon)
        return copy->toMultiPolygon()->get_Area();
    return 0.0;
}

bool rowRunOutline(const unsigned char* mask, int w, int h, std::vector<std::pair<double, double>>& ring)
{
    ring.clear();
    std::vector<int> first(h, -1), last(h, -1);
    int top = -1, bottom = -1;
    for (int y = 0; y < h; ++y)
    {
        const unsigned char* row = mask + size_t(y) * w;
        int x = 0;
        while (x < w && !row[x])
            ++x;
        if (x == w)
        {
            if (top >= 0 && bottom < 0)
                bottom = y - 1; // the valid rows have ended: any later valid row is a gap
            continue;
        }
        if (bottom >= 0)
            return false;
        int end = x;
        while (end < w && row[end])
            ++end;
        for (int rest = end; rest < w; ++rest)
            if (row[rest])
                return false; // a second run
        first[y] = x;
        last[y] = end - 1;
        if (top < 0)
            top = y;
        else if (first[y] > last[y - 1] || first[y - 1] > last[y])
            return false; // rows that do not share a column
    }
    if (top < 0)
        return false;
    if (bottom < 0)
        bottom = h - 1;
    // Down the left side, then up the right side; each row contributes its two corners on each side (a corner
    // equal to the previous one is left out).
    auto add = [&](double x, double y) {
        if (ring.empty() || ring.back() != std::make_pair(x, y))
            ring.emplace_back(x, y);
    };
    for (int y = top; y <= bottom; ++y)
    {
        add(first[y], y);
        add(first[y], y + 1);
    }
    for (int y = bottom; y >= top; --y)
    {
        add(last[y] + 1, y + 1);
        add(last[y] + 1, y);
    }
    add(ring.front().first, ring.front().second);
    return true;
}

GeometryPtr polygonFromRing(const LonLatRing& ring)
{
    if (ring.size() < 3)
        return nullptr;
    auto linear = std::make_unique<OGRLinearRing>();
    for (const auto& p : ring)
        linear->addPoint(p.first, p.second);
    linear->closeRings();
    auto polygon = std::make_unique<OGRPolygon>();
    polygon->addRingDirectly(linear.release());
    auto multi = std::make_unique<OGRMultiPolygon>();
    multi->addGeometryDirectly(polygon.release());
    multi->assignSpatialReference(const_cast<OGRSpatialReference*>(&wgs84()));
    return validated(std::move(multi));
}

Footprint computeFootprint(GDALDataset* dataset, const FootprintOptions& options, QString* error)
{
    Footprint result;
    const int width = dataset->GetRasterXSize(), height = dataset->GetRasterYSize();
    if (width < 1 || height < 1 || dataset->GetRasterCount() < 1)
    {
        *error = QStringLiteral("has no raster band");
        return result;
    }

    // Pixel/line to longitude/latitude: a geotransformed image through its geotransform and a cached
    // transformation of its reference system; any other through GDAL's generic transformer, which picks
    // GCPs, RPC or geolocation arrays as the warper would.
    // The identity geotransform some files carry beside their GCPs is no georeferencing, as for the warper.
    double geoTransform[6];
    const bool hasGeoTransform = dataset->GetGeoTransform(geoTransform) == CE_None &&
                                 !(geoTransform[0] == 0.0 && geoTransform[1] == 1.0 && geoTransform[2] == 0.0 &&
                                   geoTransform[3] == 0.0 && geoTransform[4] == 0.0 && geoTransform[5] == 1.0);
    const OGRSpatialReference* ownSrs = dataset->GetSpatialRef();
    OGRCoordinateTransformation* projection = hasGeoTransform && ownSrs ? toWgs84(*ownSrs) : nullptr;
    if (hasGeoTransform && !ownSrs)
    {
        *error = QStringLiteral("has a geotransform but no reference system");
        return result;
    }
    TransformerPtr transformer;
    if (!projection)
    {
        CPLStringList options;
        options.AddString("DST_SRS=EPSG:4326");
        // GCPs are in their own reference system: GDAL would otherwise read them in the dataset's, which some
        // files set to that of the image the GCPs were taken from.
        if (!hasGeoTransform && dataset->GetGCPCount() > 0 && dataset->GetGCPSpatialRef())
        {
            char* wkt = nullptr;
            dataset->GetGCPSpatialRef()->exportToWkt(&wkt);
            options.AddString("METHOD=GCP_POLYNOMIAL");
            options.SetNameValue("SRC_SRS", wkt ? wkt : "");
            CPLFree(wkt);
        }
        CPLPushErrorHandler(CPLQuietErrorHandler);
        transformer.reset(GDALCreateGenImgProjTransformer2(GDALDataset::ToHandle(dataset), nullptr, options.List()));
        CPLPopErrorHandler();
    }
    // Places n pixel/line points in longitude/latitude; false when one cannot be placed.
    auto place = [&](double* x, double* y, int n) {
        std::vector<int> ok(n, 0);
        if (projection)
        {
            for (int i = 0; i < n; ++i)
            {
                const double px = x[i], py = y[i];
                x[i] = geoTransform[0] + px * geoTransform[1] + py * geoTransform[2];
                y[i] = geoTransform[3] + px * geoTransform[4] + py * geoTransform[5];
            }
            return projection->Transform(n, x, y, nullptr, ok.data()) == TRUE &&
                   std::all_of(ok.begin(), ok.end(), [](int v) { return v != 0; });
        }
        std::vector<double> z(n, 0.0);
        GDALGenImgProjTransform(transformer.get(), FALSE, n, x, y, z.data(), ok.data());
        return std::all_of(ok.begin(), ok.end(), [](int v) { return v != 0; });
    };
    if (!projection && !transformer)
    {
        *error = QStringLiteral("has no georeferencing (geotransform, GCPs, RPC or geolocation arrays)");
        return result;
    }

    const int longest = std::max(width, height);
    const double scale = std::max(1.0, double(longest) / std::max(2, options.maskSize));
    const int w = std::max(1, int(std::lround(width / scale)));
    const int h = std::max(1, int(std::lround(height / scale)));
    const double cellX = double(width) / w, cellY = double(height) / h;

    std::vector<unsigned char> mask;
    CPLPushErrorHandler(CPLQuietErrorHandler);
    const bool read = readValidMask(dataset, w, h, options.zeroIsFill, mask);
    CPLPopErrorHandler();
    if (!read)
    {
        *error = QStringLiteral("cannot be read");
        return result;
    }
    const size_t valid = size_t(std::count(mask.begin(), mask.end(), 1));
    result.validShare = double(valid) / double(mask.size());
    if (valid == 0)
        return result;

    GeometryPtr pixels;
    if (valid == mask.size())
        pixels = rectangle(0.0, 0.0, width, height);
    else
    {
        // The common shape of a scene's valid area is traced directly; anything else goes to GDAL's polygoniser.
        std::vector<std::pair<double, double>> outline;
        if (rowRunOutline(mask.data(), w, h, outline))
        {
            auto ring = std::make_unique<OGRLinearRing>();
            for (const auto& corner : outline)
                ring->addPoint(corner.first * cellX, corner.second * cellY);
            auto polygon = std::make_unique<OGRPolygon>();
            polygon->addRingDirectly(ring.release());
            auto multi = std::make_unique<OGRMultiPolygon>();
            multi->addGeometryDirectly(polygon.release());
            pixels = std::move(multi);
        }
        else
            pixels = polygoniseMask(mask, w, h, cellX, cellY);
        if (!pixels)
        {
            *error = QStringLiteral("could not be polygonised");
            return result;
        }
        // One traced ring: Douglas-Peucker, several times cheaper than the topology-preserving simplifier (which
        // took most of the time of a small file), kept when the ring it gives is still valid.
        const double tolerance = options.simplifyCells * std::max(cellX, cellY);
        GeometryPtr simple;
        if (pixels->toMultiPolygon()->getNumGeometries() == 1 &&
            pixels->toMultiPolygon()->getGeometryRef(0)->getNumInteriorRings() == 0)
        {
            simple.reset(pixels->Simplify(tolerance));
            if (simple && (simple->IsEmpty() || !simple->IsValid()))
                simple.reset();
        }
        if (!simple)
            simple.reset(pixels->SimplifyPreserveTopology(tolerance));
        if (simple && !simple->IsEmpty())
            pixels = std::move(simple);
    }
    // Edges in pixel space become curves in longitude/latitude: keep vertices close enough to follow them.
    pixels->segmentize(longest / 32.0);

    if (hasGeoTransform)
    {
        result.native.reset(pixels->clone());
        forEachRing(result.native.get(), [&](double* x, double* y, int n) {
            for (int i = 0; i < n; ++i)
            {
                const double px = x[i], py = y[i];
                x[i] = geoTransform[0] + px * geoTransform[1] + py * geoTransform[2];
                y[i] = geoTransform[3] + px * geoTransform[4] + py * geoTransform[5];
            }
            return true;
        });
        if (const OGRSpatialReference* srs = dataset->GetSpatialRef())
        {
            result.nativeSrs = srsLabel(*srs);
            // A copy of its own: the geometry outlives the dataset that owns `srs`.
            OGRSpatialReference* copy = srs->Clone();
            result.native->assignSpatialReference(copy);
            copy->Release();
        }
    }
    else if (dataset->GetGCPCount() > 0 && dataset->GetGCPSpatialRef())
        result.nativeSrs = srsLabel(*dataset->GetGCPSpatialRef()) + QStringLiteral(" (GCPs)");
    else if (dataset->GetMetadata("RPC"))
        result.nativeSrs = QStringLiteral("EPSG:4326 (RPC)");
    else if (dataset->GetMetadata("GEOLOCATION"))
        result.nativeSrs = QStringLiteral("EPSG:4326 (geolocation arrays)");

    GeometryPtr lonLat(pixels->clone());
    const bool placed = forEachRing(lonLat.get(), place);
    if (!placed)
    {
        *error = QStringLiteral("cannot be placed in WGS 84");
        return result;
    }
    result.wgs84.reset(OGRGeometryFactory::forceToMultiPolygon(validated(std::move(lonLat)).release()));
    result.wgs84->assignSpatialReference(const_cast<OGRSpatialReference*>(&wgs84()));

    // Ground resolution: from the geotransform in metres where the units allow, else from the area the
    // whole image covers on the ground.
    const OGRSpatialReference* srs = ownSrs;
    if (hasGeoTransform && srs && srs->IsProjected())
        result.resolutionMetres =
            std::sqrt(std::abs(geoTransform[1] * geoTransform[5] - geoTransform[2] * geoTransform[4])) *
            srs->GetLinearUnits();
    else
    {
        GeometryPtr whole = rectangle(0.0, 0.0, width, height);
        whole->segmentize(longest / 8.0);
        if (forEachRing(whole.get(), place))
            result.resolutionMetres = std::sqrt(areaSquareMetres(*whole) / (double(width) * height));
    }
    return result;
}

} // namespace catalogue
