// SysCarto: map layers made from datasets; the mosaic entries hand raster layers to their plug-in.
#pragma once

#include "sys_utility.h"

#include <QString>

namespace SysDataSource
{
class RasterDataset;
}

namespace SysCarto
{

enum class LayerKind
{
    Raster,
    Other
};

class Layer : public SysUtility::RefObject
{
public:
    Layer(LayerKind kind, const QString& name, const QString& sourcePath);
    LayerKind GetKind() const { return m_kind; }
    const QString& GetName() const { return m_name; }
    // Path of the dataset the layer draws, as the dataset was opened.
    const QString& GetSourcePath() const { return m_sourcePath; }

private:
    LayerKind m_kind;
    QString m_name;
    QString m_sourcePath;
};

class RasterLayer : public Layer
{
public:
    explicit RasterLayer(const SysUtility::_ptr_t<SysDataSource::RasterDataset>& dataset);
    ~RasterLayer() override;
    SysUtility::_ptr_t<SysDataSource::RasterDataset> GetDataset() const;

private:
    // Kept as the base type so this header needs no GDAL or Qt Gui headers (plug-ins include it).
    SysUtility::_ptr_t<SysUtility::RefObject> m_dataset;
};

namespace LayerFactory
{
// The layer a host shows for a dataset: a raster layer for a raster dataset; null for a null dataset.
SysUtility::_ptr_t<Layer> CreateDefaultLayer(const SysUtility::_ptr_t<SysDataSource::RasterDataset>& dataset);
} // namespace LayerFactory

// The layer as a raster layer, or null when it is none.
SysUtility::_ptr_t<RasterLayer> AsRasterLayer(const SysUtility::_ptr_t<Layer>& layer);

} // namespace SysCarto
