// SysCarto: layers over the host's datasets.
#include "sys_carto.h"

#include "sys_data_source.h"

#include <QFileInfo>

namespace SysCarto
{

Layer::Layer(LayerKind kind, const QString& name, const QString& sourcePath)
    : m_kind(kind), m_name(name), m_sourcePath(sourcePath)
{
}

RasterLayer::RasterLayer(const SysUtility::_ptr_t<SysDataSource::RasterDataset>& dataset)
    : Layer(LayerKind::Raster, QFileInfo(dataset->GetPath()).completeBaseName(), dataset->GetPath()),
      m_dataset(dataset.get())
{
}

RasterLayer::~RasterLayer() = default;

SysUtility::_ptr_t<SysDataSource::RasterDataset> RasterLayer::GetDataset() const
{
    return SysUtility::_ptr_t<SysDataSource::RasterDataset>(static_cast<SysDataSource::RasterDataset*>(m_dataset.get()));
}

namespace LayerFactory
{
SysUtility::_ptr_t<Layer> CreateDefaultLayer(const SysUtility::_ptr_t<SysDataSource::RasterDataset>& dataset)
{
    if (!dataset)
        return SysUtility::_ptr_t<Layer>();
    return SysUtility::_ptr_t<Layer>(new RasterLayer(dataset));
}
} // namespace LayerFactory

SysUtility::_ptr_t<RasterLayer> AsRasterLayer(const SysUtility::_ptr_t<Layer>& layer)
{
    if (!layer || layer->GetKind() != LayerKind::Raster)
        return SysUtility::_ptr_t<RasterLayer>();
    return SysUtility::_ptr_t<RasterLayer>(static_cast<RasterLayer*>(layer.get()));
}

} // namespace SysCarto
