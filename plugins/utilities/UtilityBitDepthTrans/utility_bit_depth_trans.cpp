// Plug-in "UtilityBitDepthTrans": linear stretch of the input's value range into another pixel type (GDALTranslate).
#include "gdal_apps.h"
#include "plugin_base.h"
#include "raster_io.h"
#include "records/utility_records.h"

#include <QDir>
#include <QFileInfo>
#include <limits>

namespace
{

GDALDataType outputType(int option)
{
    return option >= GDT_Byte && option <= GDT_Float64 ? GDALDataType(option) : GDT_Byte;
}

// The full range of an integer type; [0, 1] for floating-point types.
void typeRange(GDALDataType type, double* low, double* high)
{
    switch (type)
    {
    case GDT_UInt16: *low = 0; *high = 65535; break;
    case GDT_Int16: *low = -32768; *high = 32767; break;
    case GDT_UInt32: *low = 0; *high = 4294967295.0; break;
    case GDT_Int32: *low = -2147483648.0; *high = 2147483647.0; break;
    case GDT_Float32:
    case GDT_Float64: *low = 0; *high = 1; break;
    default: *low = 0; *high = 255; break;
    }
}

class UtilityBitDepthTrans : public algokit::PluginBase
{
public:
    UtilityBitDepthTrans() : PluginBase(QStringLiteral("UtilityBitDepthTrans")) {}

protected:
    bool run() override
    {
        const stBitDepthTransInfo& info = params<stBitDepthTransInfo>();
        if (info.outputFile.isEmpty())
            return fail(QStringLiteral("An output path is required."));
        if (QFileInfo(info.inputFile).absoluteFilePath() == QFileInfo(info.outputFile).absoluteFilePath())
            return fail(QStringLiteral("The output file must differ from the input file."));
        algokit::DatasetPtr source = algokit::openRaster(info.inputFile);
        if (!(info.inputMin <= info.inputMax) || info.inputMin == std::numeric_limits<double>::max())
            return fail(QStringLiteral("The value range of %1 could not be computed.").arg(info.inputFile));

        const GDALDataType type = outputType(info.option);
        double outLow = info.minLimit, outHigh = info.maxLimit;
        if (outLow == 0.0 && outHigh == 0.0)
            typeRange(type, &outLow, &outHigh);
        // A constant image maps onto the lower limit instead of dividing by an empty range.
        const double inHigh = info.inputMax > info.inputMin ? info.inputMax : info.inputMin + 1.0;

        CPLStringList argv;
        argv.AddString("-of");
        argv.AddString(info.format.toUtf8().constData());
        argv.AddString("-ot");
        argv.AddString(GDALGetDataTypeName(type));
        argv.AddString("-scale");
        for (double value : {info.inputMin, inHigh, outLow, outHigh})
            argv.AddString(QByteArray::number(value, 'g', 17).constData());
        algokit::addGeoTiffOptions(info.format, &argv);

        QDir().mkpath(QFileInfo(info.outputFile).absolutePath());
        claimOutput(info.outputFile);
        algokit::GdalProgress bridge([this](double percent) { progress(percent); });
        algokit::translateRaster(source.get(), info.outputFile, argv, &bridge);
        progress(100.0);
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(UtilityBitDepthTrans)
