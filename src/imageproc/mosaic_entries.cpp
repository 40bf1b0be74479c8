// The mosaic entries: ExcuteAlgo_ImageMosaicFast (strict input check, layers in order) and
// ExcuteAlgo_ImageMosaic (mosaic faces within an optional mask region).
#include "entry_guard.h"
#include "mosaic_faces.h"
#include "records/clip_mosaic_records.h"
#include "run_algo_plugin.h"
#include "utilities/format_from_path.h"

#include "sys_carto.h"
#include "sys_data_source.h"
#include "sys_ui_environment.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <iostream>
#include <string>
#include <vector>

using namespace algofactory;
using SysUtility::_ptr_t;

namespace
{

using DatasetList = std::vector<_ptr_t<SysDataSource::RasterDataset>>;

// The list text split at "|", each path kept byte for byte as it stood; empty parts are dropped.
std::vector<std::string> splitPaths(const char* text)
{
    std::vector<std::string> paths;
    std::string current;
    for (const char* p = text ? text : ""; ; ++p)
    {
        if (*p == '|' || *p == '\0')
        {
            if (!current.empty())
                paths.push_back(current);
            current.clear();
            if (*p == '\0')
                break;
        }
        else
        {
            current += *p;
        }
    }
    return paths;
}

// "Image <" + path + tail, both texts in the translation context of the quick-mosaic dialog.
void printImageMessage(const std::string& path, const char* tail)
{
    std::cout << QCoreApplication::translate("FastMosaicDlg", "Image <").toLocal8Bit().constData() << path
              << QCoreApplication::translate("FastMosaicDlg", tail).toLocal8Bit().constData() << std::endl;
}

bool checkFastMosaicInputs(const std::vector<std::string>& paths, DatasetList* datasets)
{
    if (paths.empty())
    {
        std::cout << "The input file is null!" << std::endl;
        return false;
    }
    SysUI::Environment::Instance()->SetValue(SysUI::kWorkDirectoryKey,
                                             QFileInfo(QString::fromStdString(paths.front())).absolutePath());
    int referenceBands = -1;
    int referenceType = 0;
    for (const std::string& path : paths)
    {
        _ptr_t<SysDataSource::RasterDataset> dataset =
            SysDataSource::DatasetFactory::Instance()->OpenRaster(QString::fromStdString(path));
        if (!dataset)
        {
            std::cout << "Can not open dataset!" << std::endl;
            return false;
        }
        if (dataset->HasRpc())
        {
            printImageMessage(path, ">Not support with RPC data");
            return false;
        }
        if (dataset->GetProjection().isEmpty())
        {
            std::cout << "no spatial reference!" << std::endl;
            return false;
        }
        if (dataset->GetBandCount() == 0)
        {
            printImageMessage(path, ">band count is 0");
            return false;
        }
        if (dataset->GetDataType() == 0)
        {
            printImageMessage(path, ">band type is unknown");
            return false;
        }
        if (referenceBands < 0)
        {
            referenceBands = dataset->GetBandCount();
            referenceType = dataset->GetDataType();
        }
        if (dataset->GetBandCount() != referenceBands)
        {
            printImageMessage(path, ">band count differ with other images");
            return false;
        }
        if (dataset->GetDataType() != referenceType)
        {
            printImageMessage(path, ">band type differ with other images");
            return false;
        }
        datasets->push_back(dataset);
    }
    return true;
}

std::vector<_ptr_t<SysCarto::RasterLayer>> layersOf(const DatasetList& datasets)
{
    std::vector<_ptr_t<SysCarto::RasterLayer>> layers;
    for (const auto& dataset : datasets)
        layers.push_back(SysCarto::AsRasterLayer(SysCarto::LayerFactory::CreateDefaultLayer(dataset)));
    return layers;
}

bool runMosaic(ImageMosaicItem item, AlgoResult* result)
{
    ImageMosaicParam job;
    job.items.push_back(std::move(item));
    AlgoParamHolder holder = std::move(job);
    AlgoRunContext context;
    return RunAlgoPlugin(&context, QStringLiteral("ImageMosaic"), &holder, result, QString());
}

void printTranslated(const char* context, const char* text)
{
    std::cout << QCoreApplication::translate(context, text).toLocal8Bit().constData() << std::endl;
}

} // namespace

ALGO_API bool ExcuteAlgo_ImageMosaicFast(const char* inputFiles, const char* outputFile, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImageMosaicFast", [&] {
        DatasetList datasets;
        if (!checkFastMosaicInputs(splitPaths(inputFiles), &datasets))
            return false;
        ImageMosaicItem item;
        item.outputFile = QString::fromUtf8(outputFile ? outputFile : "");
        item.format = FormatFromPath(item.outputFile);
        item.quick = 1;
        item.maskFilter = 0;
        item.reserved = 0;
        item.layers = layersOf(datasets);
        return runMosaic(std::move(item), result);
    });
}

ALGO_API bool ExcuteAlgo_ImageMosaic(const char* inputFiles, const char* outputFile, const char* maskFile,
                                     AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImageMosaic", [&] {
        const std::vector<std::string> paths = splitPaths(inputFiles);
        if (paths.empty())
        {
            printTranslated("ImageMosaicCommand", "Please load multi-faceted images first!");
            return false;
        }
        DatasetList datasets;
        QStringList inputs;
        for (const std::string& path : paths)
        {
            _ptr_t<SysDataSource::RasterDataset> dataset =
                SysDataSource::DatasetFactory::Instance()->OpenRaster(QString::fromStdString(path));
            if (!dataset)
            {
                printTranslated("ImageMosaicImp", "data set is null!");
                return false;
            }
            if (dataset->GetProjection().isEmpty())
            {
                printTranslated("ImageMosaicImp", "No spatial reference!");
                return false;
            }
            if (SysDataSource::DataSourceUtil::IsComplex(dataset->GetDataType()))
            {
                printTranslated("ImageMosaicImp", "Not support complex data!");
                return false;
            }
            if (dataset->GetDataType() == 0)
            {
                printTranslated("ImageMosaicImp", "Data type in unknown!");
                return false;
            }
            datasets.push_back(dataset);
            inputs.append(QString::fromStdString(path));
        }
        printTranslated("ImageMosaicImp", "Creating mosaic faces, please wait......");
        const QString mask = QString::fromUtf8(maskFile ? maskFile : "");
        ImageMosaicItem item;
        if (!buildMosaicFaces(inputs, mask, &item.faces))
        {
            // Only the mask region can fail here: every input opened above.
            printTranslated("ImageMosaicImp", "data set is null!");
            return false;
        }
        item.outputFile = QString::fromUtf8(outputFile ? outputFile : "");
        item.format = QStringLiteral("GTiff");
        item.quick = 0;
        item.maskFilter = SysUI::Environment::Instance()->Value(SysUI::kMaskFilterKey, 0).toInt() != 0 ? 1 : 0;
        item.layers = layersOf(datasets);
        return runMosaic(std::move(item), result);
    });
}
