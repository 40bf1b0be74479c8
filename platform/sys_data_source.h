// SysDataSource: the host's raster datasets over GDAL (bands 0-based, pixel types in GDAL's numbering).
#pragma once

#include "sys_utility.h"

#include <QColor>
#include <QString>
#include <QStringList>
#include <QVector>

typedef void* GDALDatasetH;
typedef void* GDALRasterBandH;

namespace SysDataSource
{

// Registers GDAL's drivers, once per process. GDALAllRegister rewrites the driver manager's state without its lock
// on every call, so host threads calling it at once race: the library and its plug-ins register through here.
void RegisterGdalDrivers();

enum class OpenMode
{
    ReadOnly,
    Update
};

class ColorTable : public SysUtility::RefObject
{
public:
    int GetCount() const { return m_colors.size(); }
    QColor GetColor(int index) const { return m_colors.value(index); }
    void SetColor(int index, const QColor& color);
    const QVector<QColor>& Colors() const { return m_colors; }

private:
    QVector<QColor> m_colors;
};

class RasterDataset;

class RasterBand : public SysUtility::RefObject
{
public:
    RasterBand(SysUtility::_ptr_t<RasterDataset> owner, int index0);
    int GetIndex() const { return m_index; } // 0-based
    int GetXSize() const;
    int GetYSize() const;
    int GetDataType() const;                 // GDALDataType code
    double GetNoDataValue(bool* hasNoData = nullptr) const;
    SysUtility::_ptr_t<ColorTable> GetColorTable() const; // null without one
    QStringList GetCategoryNames() const;
    QString GetMetadataItem(const QString& name, const QString& domain = QString()) const;
    // Minimum and maximum (exact unless approximate is true); false when they cannot be computed.
    bool GetMinMax(double* minimum, double* maximum, bool approximate = false) const;
    // Reads a window into buffer as the given GDAL type; false on failure.
    bool Read(int x, int y, int width, int height, void* buffer, int bufferType) const;
    GDALRasterBandH Handle() const;

private:
    SysUtility::_ptr_t<RasterDataset> m_owner;
    int m_index;
};

class RasterDataset : public SysUtility::RefObject
{
public:
    RasterDataset(GDALDatasetH handle, const QString& path);
    ~RasterDataset() override;
    const QString& GetPath() const { return m_path; }
    int GetWidth() const;
    int GetHeight() const;
    int GetBandCount() const;
    int GetDataType() const; // of band 0; GDT_Unknown (0) without bands
    SysUtility::_ptr_t<RasterBand> GetBand(int index0);
    QString GetProjection() const; // WKT, empty when none
    bool GetGeoTransform(double transform[6]) const;
    bool HasRpc() const;
    QString GetDriverName() const;
    GDALDatasetH Handle() const { return m_handle; }

private:
    GDALDatasetH m_handle;
    QString m_path;
};

class DatasetFactory
{
public:
    static DatasetFactory* Instance();
    // Null when the path does not open as a raster.
    SysUtility::_ptr_t<RasterDataset> OpenRaster(const QString& path, OpenMode mode = OpenMode::ReadOnly) const;
    SysUtility::_ptr_t<RasterDataset> CreateRaster(const QString& path, const QString& driver, int width, int height,
                                                   int bands, int dataType) const;
};

namespace DataSourceUtil
{
// Bytes per pixel of a GDAL data type code; 0 for unknown codes.
int GetTypeSize(int dataType);
bool IsComplex(int dataType);
} // namespace DataSourceUtil

} // namespace SysDataSource
