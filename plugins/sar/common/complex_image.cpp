// Writing complex SLC images block by block.
#include "complex_image.h"

#include <vector>

namespace sarimport
{

GDALDataType elementTypeOf(GDALDataType type)
{
    switch (type)
    {
    case GDT_CInt16: return GDT_Int16;
    case GDT_CInt32: return GDT_Int32;
    case GDT_CFloat32: return GDT_Float32;
    case GDT_CFloat64: return GDT_Float64;
    default: return type;
    }
}

GDALDataType complexTypeFor(const QString& format, GDALDataType elementType)
{
    const bool wide = elementType == GDT_Float64 || elementType == GDT_UInt32 || elementType == GDT_Int32;
    if (format == "GTiff")
    {
        if (elementType == GDT_Byte || elementType == GDT_Int16)
            return GDT_CInt16;
        if (elementType == GDT_UInt16 || elementType == GDT_Int32)
            return GDT_CInt32;
    }
    return wide ? GDT_CFloat64 : GDT_CFloat32;
}

QString driverForFormat(const QString& format)
{
    if (format == "GTiff" || format == "ENVI" || format == "HFA")
        return format;
    throw algokit::AlgoError(QStringLiteral("Unsupported output format \"%1\": use GTiff, ENVI or HFA").arg(format));
}

void copyChannelImage(GDALDataset* source, const QString& outputPath, const QString& format, const QString& channel,
                      const std::function<void(double)>& progress)
{
    const int width = source->GetRasterXSize(), height = source->GetRasterYSize();
    const int bands = source->GetRasterCount();
    const GDALDataType sourceType = bands > 0 ? source->GetRasterBand(1)->GetRasterDataType() : GDT_Unknown;
    const bool complexSource = bands == 1 && GDALDataTypeIsComplex(sourceType);
    if (!complexSource && !(bands == 2 && !GDALDataTypeIsComplex(sourceType)))
        throw algokit::AlgoError(QStringLiteral("%1: expected one complex band or two bands (I and Q), found %2 band(s)")
                                     .arg(QString::fromUtf8(source->GetDescription()))
                                     .arg(bands));
    const GDALDataType outputType = complexTypeFor(format, elementTypeOf(sourceType));
    const GDALDataType elementType = elementTypeOf(outputType);
    const int elementBytes = GDALGetDataTypeSizeBytes(elementType);

    algokit::OutputRaster output(outputPath, driverForFormat(format), width, height, 1, outputType);
    output.band(0)->SetDescription(channel.toUtf8().constData());
    const int step = algokit::rowsPerBlock(source, size_t(2 * elementBytes));
    std::vector<unsigned char> buffer;
    algokit::forEachRowBlock(height, step, [&](int row0, int rows) {
        buffer.resize(size_t(width) * size_t(rows) * 2 * size_t(elementBytes));
        CPLErr status;
        if (complexSource)
            status = source->GetRasterBand(1)->RasterIO(GF_Read, 0, row0, width, rows, buffer.data(), width, rows,
                                                        outputType, 0, 0);
        else
        {
            // Reading I and Q with a pixel stride of two elements interleaves them into complex samples directly.
            int bandMap[2] = {1, 2};
            status = source->RasterIO(GF_Read, 0, row0, width, rows, buffer.data(), width, rows, elementType, 2,
                                      bandMap, GSpacing(2 * elementBytes), GSpacing(2 * elementBytes) * width,
                                      GSpacing(elementBytes), nullptr);
        }
        if (status != CE_None)
            throw algokit::AlgoError(QStringLiteral("Read failed at row %1 of %2: %3")
                                         .arg(row0)
                                         .arg(QString::fromUtf8(source->GetDescription()),
                                              QString::fromUtf8(CPLGetLastErrorMsg())));
        if (output.band(0)->RasterIO(GF_Write, 0, row0, width, rows, buffer.data(), width, rows, outputType, 0, 0) !=
            CE_None)
            throw algokit::AlgoError(QStringLiteral("Write failed at row %1 of %2: %3")
                                         .arg(row0)
                                         .arg(outputPath, QString::fromUtf8(CPLGetLastErrorMsg())));
        progress(double(row0 + rows) / double(height));
    });
    output.commit();
}

} // namespace sarimport
