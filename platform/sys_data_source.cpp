// SysDataSource over GDAL.
#include "sys_data_source.h"

#include <gdal_priv.h>

#include <mutex>

namespace SysDataSource
{

using SysUtility::_ptr_t;

void RegisterGdalDrivers()
{
    static std::once_flag once;
    std::call_once(once, [] { GDALAllRegister(); });
}

void ColorTable::SetColor(int index, const QColor& color)
{
    if (index < 0)
        return;
    if (index >= m_colors.size())
        m_colors.resize(index + 1);
    m_colors[index] = color;
}

RasterBand::RasterBand(_ptr_t<RasterDataset> owner, int index0) : m_owner(std::move(owner)), m_index(index0) {}

GDALRasterBandH RasterBand::Handle() const
{
    return GDALGetRasterBand(m_owner->Handle(), m_index + 1);
}

int RasterBand::GetXSize() const { return GDALGetRasterBandXSize(Handle()); }
int RasterBand::GetYSize() const { return GDALGetRasterBandYSize(Handle()); }
int RasterBand::GetDataType() const { return GDALGetRasterDataType(Handle()); }

double RasterBand::GetNoDataValue(bool* hasNoData) const
{
    int has = 0;
    const double value = GDALGetRasterNoDataValue(Handle(), &has);
    if (hasNoData)
        *hasNoData = has != 0;
    return value;
}

_ptr_t<ColorTable> RasterBand::GetColorTable() const
{
    GDALColorTableH table = GDALGetRasterColorTable(Handle());
    if (!table)
        return _ptr_t<ColorTable>();
    _ptr_t<ColorTable> result(new ColorTable);
    const int count = GDALGetColorEntryCount(table);
    for (int i = 0; i < count; ++i)
    {
        const GDALColorEntry* entry = GDALGetColorEntry(table, i);
        result->SetColor(i, QColor(entry->c1, entry->c2, entry->c3, entry->c4));
    }
    return result;
}

QStringList RasterBand::GetCategoryNames() const
{
    QStringList names;
    for (char** name = GDALGetRasterCategoryNames(Handle()); name && *name; ++name)
        names << QString::fromUtf8(*name);
    return names;
}

QString RasterBand::GetMetadataItem(const QString& name, const QString& domain) const
{
    const QByteArray domainBytes = domain.toUtf8();
    const char* value = GDALGetMetadataItem(Handle(), name.toUtf8().constData(), domain.isEmpty() ? nullptr : domainBytes.constData());
    return value ? QString::fromUtf8(value) : QString();
}

bool RasterBand::GetMinMax(double* minimum, double* maximum, bool approximate) const
{
    double minMax[2] = {0, 0};
    CPLPushErrorHandler(CPLQuietErrorHandler);
    const CPLErr error = GDALComputeRasterMinMax(Handle(), approximate ? TRUE : FALSE, minMax);
    CPLPopErrorHandler();
    if (error != CE_None)
        return false;
    *minimum = minMax[0];
    *maximum = minMax[1];
    return true;
}

bool RasterBand::Read(int x, int y, int width, int height, void* buffer, int bufferType) const
{
    return GDALRasterIO(Handle(), GF_Read, x, y, width, height, buffer, width, height, GDALDataType(bufferType), 0, 0) == CE_None;
}

RasterDataset::RasterDataset(GDALDatasetH handle, const QString& path) : m_handle(handle), m_path(path) {}

RasterDataset::~RasterDataset()
{
    if (m_handle)
        GDALClose(m_handle);
}

int RasterDataset::GetWidth() const { return GDALGetRasterXSize(m_handle); }
int RasterDataset::GetHeight() const { return GDALGetRasterYSize(m_handle); }
int RasterDataset::GetBandCount() const { return GDALGetRasterCount(m_handle); }

int RasterDataset::GetDataType() const
{
    return GetBandCount() > 0 ? GDALGetRasterDataType(GDALGetRasterBand(m_handle, 1)) : GDT_Unknown;
}

_ptr_t<RasterBand> RasterDataset::GetBand(int index0)
{
    if (index0 < 0 || index0 >= GetBandCount())
        return _ptr_t<RasterBand>();
    return _ptr_t<RasterBand>(new RasterBand(_ptr_t<RasterDataset>(this), index0));
}

QString RasterDataset::GetProjection() const
{
    const char* wkt = GDALGetProjectionRef(m_handle);
    return wkt ? QString::fromUtf8(wkt) : QString();
}

bool RasterDataset::GetGeoTransform(double transform[6]) const
{
    return GDALGetGeoTransform(m_handle, transform) == CE_None;
}

bool RasterDataset::HasRpc() const
{
    char** rpc = GDALGetMetadata(m_handle, "RPC");
    return rpc && *rpc;
}

QString RasterDataset::GetDriverName() const
{
    GDALDriverH driver = GDALGetDatasetDriver(m_handle);
    return driver ? QString::fromUtf8(GDALGetDriverShortName(driver)) : QString();
}

DatasetFactory* DatasetFactory::Instance()
{
    static DatasetFactory instance;
    return &instance;
}

_ptr_t<RasterDataset> DatasetFactory::OpenRaster(const QString& path, OpenMode mode) const
{
    if (path.isEmpty())
        return _ptr_t<RasterDataset>();
    RegisterGdalDrivers();
    CPLPushErrorHandler(CPLQuietErrorHandler);
    GDALDatasetH handle = GDALOpenEx(path.toUtf8().constData(),
                                     GDAL_OF_RASTER | (mode == OpenMode::Update ? GDAL_OF_UPDATE : GDAL_OF_READONLY),
                                     nullptr, nullptr, nullptr);
    CPLPopErrorHandler();
    if (!handle)
        return _ptr_t<RasterDataset>();
    return _ptr_t<RasterDataset>(new RasterDataset(handle, path));
}

_ptr_t<RasterDataset> DatasetFactory::CreateRaster(const QString& path, const QString& driver, int width, int height,
                                                   int bands, int dataType) const
{
    RegisterGdalDrivers();
    GDALDriverH gdalDriver = GDALGetDriverByName(driver.toUtf8().constData());
    if (!gdalDriver)
        return _ptr_t<RasterDataset>();
    GDALDatasetH handle = GDALCreate(gdalDriver, path.toUtf8().constData(), width, height, bands, GDALDataType(dataType), nullptr);
    if (!handle)
        return _ptr_t<RasterDataset>();
    return _ptr_t<RasterDataset>(new RasterDataset(handle, path));
}

namespace DataSourceUtil
{
int GetTypeSize(int dataType)
{
    if (dataType <= GDT_Unknown || dataType >= GDT_TypeCount)
        return 0;
    return GDALGetDataTypeSizeBytes(GDALDataType(dataType));
}

bool IsComplex(int dataType)
{
    return dataType > GDT_Unknown && dataType < GDT_TypeCount && GDALDataTypeIsComplex(GDALDataType(dataType));
}
} // namespace DataSourceUtil

} // namespace SysDataSource
