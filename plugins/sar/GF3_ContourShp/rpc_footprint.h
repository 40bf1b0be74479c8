// Footprint of a GF-3 image from its valid-data mask and RPC: the mask polygonised at reduced resolution and
// carried to longitude/latitude at the scene's mean height.
#pragma once

#include <QString>

#include <memory>
#include <vector>

class OGRPolygon;

namespace gf3footprint
{

// The image beside the meta.xml that carries an RPC (GDAL's RPC metadata: .RPB, _RPC.TXT, TIFF tags; or a
// .rpc in the key = value layout); empty when none does. Images naming the product ID are preferred.
struct RpcImage
{
    QString image;
    QString rpcFile; // the .rpc read by us; empty when GDAL reads the RPC itself
};
RpcImage findRpcImage(const QString& metaXml, const QString& productId);

// The largest valid-data region (pixels not equal to the band's nodata, or not zero) of the image's first band
// as a WGS 84 polygon (x longitude, y latitude), simplified to about one mask cell; `maxMaskSide` bounds the mask.
// Throws std::runtime_error with the reason when the image, its RPC or the mask is not usable.
std::unique_ptr<OGRPolygon> validDataFootprint(const RpcImage& source, int maxMaskSide = 1024);

} // namespace gf3footprint
