// Valid-data footprint through the RPC: mask at reduced resolution, GDAL polygoniser, RPC transformer, simplify.
#include "rpc_footprint.h"

#include "rpc_model.h"

#include <gdal_alg.h>
#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <complex>
#include <stdexcept>

namespace gf3footprint
{

namespace
{

struct DatasetCloser
{
    void operator()(GDALDataset* ds) const { GDALClose(ds); }
};
using DatasetPtr = std::unique_ptr<GDALDataset, DatasetCloser>;

QString rpcSidecar(const QFileInfo& image)
{
    const QString base = image.absolutePath() + "/" + image.completeBaseName();
    for (const char* suffix : {".rpc", ".RPC"})
        if (QFileInfo::exists(base + suffix))
            return base + suffix;
    return {};
}

bool gdalHasRpc(const QString& image)
{
    DatasetPtr ds(static_cast<GDALDataset*>(GDALOpen(image.toUtf8().constData(), GA_ReadOnly)));
    return ds && ds->GetMetadata("RPC") != nullptr;
}

GDALRPCInfoV2 rpcInfo(const RpcImage& source, GDALDataset* ds)
{
    GDALRPCInfoV2 info{};
    if (source.rpcFile.isEmpty())
    {
        if (!GDALExtractRPCInfoV2(ds->GetMetadata("RPC"), &info))
            throw std::runtime_error("GDAL cannot read the RPC of " + source.image.toStdString());
        return info;
    }
    QFile file(source.rpcFile);
    if (!file.open(QIODevice::ReadOnly) || file.size() > (1 << 20))
        throw std::runtime_error("cannot read " + source.rpcFile.toStdString());
    const sargeo::RpcModel m = sargeo::parseRpcGroupText(file.readAll().toStdString());
    info.dfLINE_OFF = m.lineOffset;
    info.dfSAMP_OFF = m.sampOffset;
    info.dfLAT_OFF = m.latOffset;
    info.dfLONG_OFF = m.lonOffset;
    info.dfHEIGHT_OFF = m.heightOffset;
    info.dfLINE_SCALE = m.lineScale;
    info.dfSAMP_SCALE = m.sampScale;
    info.dfLAT_SCALE = m.latScale;
    info.dfLONG_SCALE = m.lonScale;
    info.dfHEIGHT_SCALE = m.heightScale;
    std::copy(m.lineNum.begin(), m.lineNum.end(), info.adfLINE_NUM_COEFF);
    std::copy(m.lineDen.begin(), m.lineDen.end(), info.adfLINE_DEN_COEFF);
    std::copy(m.sampNum.begin(), m.sampNum.end(), info.adfSAMP_NUM_COEFF);
    std::copy(m.sampDen.begin(), m.sampDen.end(), info.adfSAMP_DEN_COEFF);
    info.dfMIN_LONG = -180;
    info.dfMAX_LONG = 180;
    info.dfMIN_LAT = -90;
    info.dfMAX_LAT = 90;
    info.dfERR_BIAS = m.errBias;
    info.dfERR_RAND = m.errRand;
    return info;
}

// 1 where the first band holds data, read at `width` x `height` (nearest neighbour, so nodata never mixes in).
std::vector<GByte> validMask(GDALDataset* ds, int width, int height)
{
    GDALRasterBand* band = ds->GetRasterBand(1);
    int hasNoData = 0;
    const double noData = band->GetNoDataValue(&hasNoData);
    std::vector<std::complex<double>> values(static_cast<size_t>(width) * height);
    if (band->RasterIO(GF_Read, 0, 0, ds->GetRasterXSize(), ds->GetRasterYSize(), values.data(), width, height,
                       GDT_CFloat64, 0, 0, nullptr) != CE_None)
        throw std::runtime_error("cannot read the image: " + std::string(CPLGetLastErrorMsg()));
    std::vector<GByte> mask(values.size());
    const bool complexData = GDALDataTypeIsComplex(band->GetRasterDataType());
    for (size_t i = 0; i < values.size(); ++i)
    {
        const std::complex<double> v = values[i];
        const bool empty = hasNoData && !complexData ? (v.real() == noData || (std::isnan(noData) && std::isnan(v.real())))
                                                     : (v.real() == 0.0 && v.imag() == 0.0);
        mask[i] = empty || std::isnan(v.real()) ? 0 : 1;
    }
    return mask;
}

} // namespace

RpcImage findRpcImage(const QString& metaXml, const QString& productId)
{
    const QDir dir = QFileInfo(metaXml).absoluteDir();
    QFileInfoList images = dir.entryInfoList({"*.tif", "*.tiff", "*.TIF", "*.TIFF"}, QDir::Files, QDir::Name);
    QFileInfoList named;
    for (const QFileInfo& image : images)
        if (!productId.isEmpty() && image.fileName().contains(productId))
            named << image;
    for (const QFileInfo& image : named.isEmpty() ? images : named)
    {
        if (gdalHasRpc(image.absoluteFilePath()))
            return {image.absoluteFilePath(), {}};
        const QString sidecar = rpcSidecar(image);
        if (!sidecar.isEmpty())
            return {image.absoluteFilePath(), sidecar};
    }
    return {};
}

std::unique_ptr<OGRPolygon> validDataFootprint(const RpcImage& source, int maxMaskSide)
{
    DatasetPtr ds(static_cast<GDALDataset*>(GDALOpen(source.image.toUtf8().constData(), GA_ReadOnly)));
    if (!ds || ds->GetRasterCount() < 1)
        throw std::runtime_error("GDAL cannot open " + source.image.toStdString());
    const GDALRPCInfoV2 info = rpcInfo(source, ds.get());
    const int width = ds->GetRasterXSize(), height = ds->GetRasterYSize();
    const double factor = std::max(1.0, std::ceil(double(std::max(width, height)) / maxMaskSide));
    const int maskWidth = std::max(1, int(std::ceil(width / factor)));
    const int maskHeight = std::max(1, int(std::ceil(height / factor)));
    std::vector<GByte> mask = validMask(ds.get(), maskWidth, maskHeight);

    GDALDriver* memDriver = GetGDALDriverManager()->GetDriverByName("MEM");
    DatasetPtr maskDs(memDriver->Create("", maskWidth, maskHeight, 1, GDT_Byte, nullptr));
    GDALRasterBand* maskBand = maskDs->GetRasterBand(1);
    if (maskBand->RasterIO(GF_Write, 0, 0, maskWidth, maskHeight, mask.data(), maskWidth, maskHeight, GDT_Byte, 0, 0,
                           nullptr) != CE_None)
        throw std::runtime_error("cannot build the valid-data mask");
    GDALDriver* vectorDriver = GetGDALDriverManager()->GetDriverByName("Memory");
    DatasetPtr polygons(vectorDriver ? vectorDriver->Create("", 0, 0, 0, GDT_Unknown, nullptr) : nullptr);
    OGRLayer* layer = polygons ? polygons->CreateLayer("mask", nullptr, wkbPolygon, nullptr) : nullptr;
    if (!layer)
        throw std::runtime_error("GDAL has no in-memory vector driver");
    OGRFieldDefn value("value", OFTInteger);
    layer->CreateField(&value);
    if (GDALPolygonize(maskBand, maskBand, layer, 0, nullptr, nullptr, nullptr) != CE_None)
        throw std::runtime_error("cannot polygonise the valid-data mask");

    std::unique_ptr<OGRPolygon> largest;
    double largestArea = 0.0;
    for (auto& feature : *layer)
    {
        const OGRGeometry* geometry = feature->GetGeometryRef();
        if (!geometry || wkbFlatten(geometry->getGeometryType()) != wkbPolygon)
            continue;
        const OGRPolygon* polygon = geometry->toPolygon();
        if (polygon->get_Area() > largestArea)
        {
            largestArea = polygon->get_Area();
            // The outline only: a footprint has no holes.
            largest = std::make_unique<OGRPolygon>();
            largest->addRingDirectly(polygon->getExteriorRing()->clone());
        }
    }
    if (!largest)
        throw std::runtime_error("the image " + source.image.toStdString() + " holds no valid data");

    // Simplified in mask cells, where one cell is the natural tolerance, then carried to full-resolution pixels.
    std::unique_ptr<OGRGeometry> simple(largest->SimplifyPreserveTopology(0.75));
    if (!simple || wkbFlatten(simple->getGeometryType()) != wkbPolygon)
        simple.reset(largest->clone());
    OGRLinearRing* ring = simple->toPolygon()->getExteriorRing();
    const int n = ring->getNumPoints();
    std::vector<double> x(n), y(n), z(n, info.dfHEIGHT_OFF);
    const double scaleX = double(width) / maskWidth, scaleY = double(height) / maskHeight;
    for (int i = 0; i < n; ++i)
    {
        x[i] = ring->getX(i) * scaleX;
        y[i] = ring->getY(i) * scaleY;
    }
    // At the scene's mean height (the model's height offset) rather than the transformer's default of zero.
    const std::string heightOption = "RPC_HEIGHT=" + QString::number(info.dfHEIGHT_OFF, 'g', 17).toStdString();
    const char* options[] = {heightOption.c_str(), nullptr};
    void* transformer = GDALCreateRPCTransformerV2(&info, FALSE, 0.1, const_cast<char**>(options));
    if (!transformer)
        throw std::runtime_error("GDAL cannot use the RPC of " + source.image.toStdString());
    std::vector<int> ok(n, 0);
    GDALRPCTransform(transformer, FALSE, n, x.data(), y.data(), z.data(), ok.data());
    GDALDestroyRPCTransformer(transformer);
    auto result = std::make_unique<OGRPolygon>();
    OGRLinearRing lonLat;
    for (int i = 0; i < n; ++i)
    {
        if (!ok[i] || !std::isfinite(x[i]) || !std::isfinite(y[i]) || std::abs(y[i]) > 90)
            throw std::runtime_error("the RPC of " + source.image.toStdString() +
                                     " does not map the footprint to longitude and latitude");
        lonLat.addPoint(x[i], y[i]);
    }
    lonLat.closeRings();
    result->addRing(&lonLat);
    return result;
}

} // namespace gf3footprint
