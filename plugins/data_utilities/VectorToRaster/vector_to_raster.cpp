// Plug-in "VectorToRaster": burns a vector layer into a Width x Height grid over the layer's extent.
#include "gdal_apps.h"
#include "generic_params.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "vector_layers.h"

#include <gdal_alg.h>

namespace
{

// The first numeric field of a layer, -1 when it has none.
int firstNumericField(OGRFeatureDefn* definition)
{
    for (int i = 0; i < definition->GetFieldCount(); ++i)
    {
        const OGRFieldType type = definition->GetFieldDefn(i)->GetType();
        if (type == OFTInteger || type == OFTInteger64 || type == OFTReal)
            return i;
    }
    return -1;
}

class VectorToRaster : public algokit::PluginBase
{
public:
    VectorToRaster() : PluginBase(QStringLiteral("VectorToRaster")) {}

protected:
    bool run() override
    {
        algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString inputPath = args.text(QStringLiteral("InputFile")).required();
        datautil::VectorInput input = datautil::openVectorItem(args, QStringLiteral("InputFile"), inputPath);
        const int width = args.integer(QStringLiteral("Width")).atLeast(1);
        const int height = args.integer(QStringLiteral("Height")).atLeast(1);
        const int burnValue = args.integer(QStringLiteral("BurnValue")).orDefault(1).atLeast(0);
        const QString output = args.text(QStringLiteral("OutputFile")).writableOutput();
        const QString format = algokit::driverForPath(output);
        if (format == QLatin1String("PNG") || format == QLatin1String("JPEG") || format == QLatin1String("VRT"))
            args.refuse(QStringLiteral("OutputFile"), output,
                        QStringLiteral("must be a GeoTIFF, an .img or an ENVI raster"));

        OGRFeatureDefn* definition = input.layer->GetLayerDefn();
        const int field = burnValue == 0 ? firstNumericField(definition) : -1;
        if (burnValue == 0 && field < 0)
            args.refuse(QStringLiteral("BurnValue"), QStringLiteral("0"),
                        QStringLiteral("burns each feature's first numeric field, and %1 has none").arg(inputPath));
        OGREnvelope extent;
        if (input.layer->GetExtent(&extent, TRUE) != OGRERR_NONE || !(extent.MaxX > extent.MinX) ||
            !(extent.MaxY > extent.MinY))
            args.refuse(QStringLiteral("InputFile"), inputPath, QStringLiteral("spans no area to burn"));

        GDALDataType type = GDT_Byte;
        if (field >= 0)
            type = definition->GetFieldDefn(field)->GetType() == OFTReal ? GDT_Float64 : GDT_Int32;
        else if (burnValue > 65535)
            type = GDT_Int32;
        else if (burnValue > 255)
            type = GDT_UInt16;

        QStringList options;
        if (format == QLatin1String("GTiff"))
            options << "TILED=YES"
                    << "COMPRESS=LZW"
                    << "BIGTIFF=IF_SAFER";
        claimOutput(output);
        algokit::OutputRaster raster(output, format, width, height, 1, type, options);
        const double geoTransform[6] = {extent.MinX, (extent.MaxX - extent.MinX) / width,  0.0, extent.MaxY,
                                        0.0,         -(extent.MaxY - extent.MinY) / height};
        raster.get()->SetGeoTransform(const_cast<double*>(geoTransform));
        if (const OGRSpatialReference* srs = input.layer->GetSpatialRef())
            raster.get()->SetSpatialRef(srs);
        GDALRasterBand* band = raster.band(0);
        band->SetNoDataValue(0.0);
        band->SetDescription(field >= 0 ? definition->GetFieldDefn(field)->GetNameRef()
                                        : QStringLiteral("burn value %1").arg(burnValue).toUtf8().constData());

        int bandList[1] = {1};
        OGRLayerH layers[1] = {OGRLayer::ToHandle(input.layer)};
        double burn[1] = {double(burnValue)};
        char** rasterizeOptions = nullptr;
        if (field >= 0)
            rasterizeOptions =
                CSLSetNameValue(rasterizeOptions, "ATTRIBUTE", definition->GetFieldDefn(field)->GetNameRef());
        algokit::GdalProgress bridge([this](double percent) { progress(percent); });
        CPLErrorReset();
        const CPLErr err =
            GDALRasterizeLayers(GDALDataset::ToHandle(raster.get()), 1, bandList, 1, layers, nullptr, nullptr, burn,
                                rasterizeOptions, algokit::GdalProgress::callback, &bridge);
        CSLDestroy(rasterizeOptions);
        bridge.rethrowIfCancelled();
        if (err != CE_None)
            throw algokit::AlgoError(
                QStringLiteral("Burning %1 failed: %2").arg(inputPath, QString::fromUtf8(CPLGetLastErrorMsg())));
        raster.commit();
        progress(100.0);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(VectorToRaster)
