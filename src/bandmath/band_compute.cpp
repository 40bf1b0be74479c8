// ExcuteAlgo_BandCompute: check a band-math formula and its inputs, then run the plug-in "UtilityOperBand".
#include "algo_math_exp.h"
#include "entry_guard.h"
#include "input_path.h"
#include "output_protocol.h"
#include "records/bandmath_records.h"
#include "run_algo_plugin.h"
#include "sys_data_source.h"
#include "utilities/format_from_path.h"

#include <gdal_priv.h>

#include <QFileInfo>
#include <QStringList>

#include <algorithm>
#include <memory>
#include <type_traits>

using namespace algofactory;

namespace
{

struct GdalHandleCloser
{
    void operator()(GDALDatasetH dataset) const
    {
        if (dataset)
            GDALClose(dataset);
    }
};
using GdalHandle = std::unique_ptr<std::remove_pointer_t<GDALDatasetH>, GdalHandleCloser>;

GdalHandle openQuietly(const QString& path)
{
    SysDataSource::RegisterGdalDrivers();
    CPLPushErrorHandler(CPLQuietErrorHandler);
    GDALDatasetH dataset =
        GDALOpenEx(path.toLocal8Bit().constData(), GDAL_OF_RASTER | GDAL_OF_READONLY, nullptr, nullptr, nullptr);
    CPLPopErrorHandler();
    return GdalHandle(dataset);
}

// Every listed image in turn: exists, opens, real pixels, its band present, the first image's size.
bool checkImages(const QStringList& images, const std::vector<int>& bands)
{
    int width = 0, height = 0;
    for (int i = 0; i < images.size(); ++i)
    {
        const QString& path = images[i];
        if (!inputExists(path))
        {
            printError("\"" + path + "\" does not exists!");
            return false;
        }
        GdalHandle dataset = openQuietly(path);
        if (!dataset)
        {
            printError("Can not open \"" + path + "\"!");
            return false;
        }
        const int bandCount = GDALGetRasterCount(dataset.get());
        if (bandCount > 0 && GDALDataTypeIsComplex(GDALGetRasterDataType(GDALGetRasterBand(dataset.get(), 1))))
        {
            printError("Data type not supported!");
            return false;
        }
        if (i < int(bands.size()) && (bands[size_t(i)] < 1 || bands[size_t(i)] > bandCount))
        {
            printError("The selected band does not exists!\n\"" + path);
            return false;
        }
        const int w = GDALGetRasterXSize(dataset.get()), h = GDALGetRasterYSize(dataset.get());
        if (i == 0)
        {
            width = w;
            height = h;
        }
        else if (w != width || h != height)
        {
            printError("\"" + path + "\":Inconsistent size of images!");
            return false;
        }
    }
    return true;
}

} // namespace

ALGO_API bool ExcuteAlgo_BandCompute(const char* calculationExp, const char* images, const char* bands,
                                     const char* outputFile, int dataType, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_BandCompute", [&] {
        bandmath::AlgoMathExp formula(QByteArray(calculationExp ? calculationExp : ""));
        if (!formula.parse())
        {
            printError(formula.errorText());
            return false;
        }
        const int operands = int(formula.bandNumbers().size());

        const QStringList imageList = QString::fromLocal8Bit(images ? images : "").split('|');
        if (imageList.size() < operands)
        {
            printError("No corresponding image file has been selected for some variables!");
            return false;
        }
        const QStringList bandItems = QString::fromLocal8Bit(bands ? bands : "").split('|');
        if (bandItems.size() < operands)
        {
            printError("No corresponding band number has been selected for some variables!");
            return false;
        }
        std::vector<int> bandList;
        for (const QString& item : bandItems)
            bandList.push_back(item.trimmed().toInt()); // not a number: 0, which no raster has
        if (!checkImages(imageList, bandList))
            return false;

        stBandComputeInfo record;
        record.expression = QString::fromLocal8Bit(calculationExp);
        record.imageList = imageList.mid(0, operands);
        record.bandList.assign(bandList.begin(), bandList.begin() + operands);
        record.outputFile = QString::fromLocal8Bit(outputFile ? outputFile : "");
        record.format = FormatFromPath(record.outputFile);
        record.description = QStringLiteral("Band Math");
        record.dataType = std::max(1, dataType);

        AlgoParamHolder holder = record;
        AlgoRunContext context;
        return RunAlgoPlugin(&context, QStringLiteral("UtilityOperBand"), &holder, result, QString());
    });
}
