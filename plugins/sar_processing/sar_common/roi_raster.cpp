// Burning training areas into labels with GDAL's rasteriser.
#include "roi_raster.h"

#include <gdal_alg.h>
#include <gdal_priv.h>
#include <ogr_geometry.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace sar
{

bool rasterizeRoi(const std::vector<std::string>& classWkt, int imageWidth, int imageHeight, RoiLabels& result,
                  std::string* error)
{
    result = RoiLabels();
    result.counts.assign(classWkt.size() + 1, 0);
    if (classWkt.size() > 255)
    {
        *error = "more than 255 classes";
        return false;
    }
    std::vector<std::unique_ptr<OGRGeometry>> geometries;
    OGREnvelope all;
    for (size_t i = 0; i < classWkt.size(); ++i)
    {
        OGRGeometry* geometry = nullptr;
        if (classWkt[i].empty())
        {
            geometries.emplace_back();
            continue;
        }
        if (OGRGeometryFactory::createFromWkt(classWkt[i].c_str(), nullptr, &geometry) != OGRERR_NONE || !geometry ||
            (wkbFlatten(geometry->getGeometryType()) != wkbPolygon && wkbFlatten(geometry->getGeometryType()) != wkbMultiPolygon))
        {
            delete geometry;
            *error = "class " + std::to_string(i + 1) + " is not a polygon geometry";
            return false;
        }
        OGREnvelope envelope;
        geometry->getEnvelope(&envelope);
        all.Merge(envelope);
        geometries.emplace_back(geometry);
    }
    if (!all.IsInit())
        return true;
    result.x0 = std::max(0, int(std::floor(all.MinX)));
    result.y0 = std::max(0, int(std::floor(all.MinY)));
    const int x1 = std::min(imageWidth, int(std::ceil(all.MaxX)) + 1), y1 = std::min(imageHeight, int(std::ceil(all.MaxY)) + 1);
    if (x1 <= result.x0 || y1 <= result.y0)
        return true;
    result.width = x1 - result.x0;
    result.height = y1 - result.y0;
    GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("MEM");
    if (!memory)
    {
        *error = "GDAL's MEM driver is not registered";
        return false;
    }
    std::unique_ptr<GDALDataset, void (*)(GDALDataset*)> grid(
        memory->Create("", result.width, result.height, 1, GDT_Byte, nullptr),
        [](GDALDataset* d) { GDALClose(GDALDataset::ToHandle(d)); });
    double transform[6] = {double(result.x0), 1.0, 0.0, double(result.y0), 0.0, 1.0};
    grid->SetGeoTransform(transform);
    std::vector<OGRGeometryH> handles;
    std::vector<double> values;
    for (size_t i = 0; i < geometries.size(); ++i)
        if (geometries[i])
        {
            handles.push_back(OGRGeometry::ToHandle(geometries[i].get()));
            values.push_back(double(i + 1));
        }
    int band = 1;
    if (GDALRasterizeGeometries(GDALDataset::ToHandle(grid.get()), 1, &band, int(handles.size()), handles.data(),
                                nullptr, nullptr, values.data(), nullptr, nullptr, nullptr) != CE_None)
    {
        *error = CPLGetLastErrorMsg();
        return false;
    }
    result.labels.resize(size_t(result.width) * result.height);
    if (grid->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, result.width, result.height, result.labels.data(), result.width,
                                         result.height, GDT_Byte, 0, 0) != CE_None)
    {
        *error = CPLGetLastErrorMsg();
        return false;
    }
    for (unsigned char label : result.labels)
        ++result.counts[label];
    result.counts[0] = 0;
    return true;
}

} // namespace sar
