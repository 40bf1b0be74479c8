// ExcuteAlgo_DistanceClassification and ExcuteAlgo_MLClassification: training statistics from the ROI file
// through the host algorithm "ROIStatistics", then the supervised plug-in on a pointer to the record.
#include "classification_text.h"
#include "entry_guard.h"
#include "records/classification_records.h"
#include "roi_reader.h"
#include "run_algo_plugin.h"
#include "sys_algo.h"
#include "sys_algo_classification.h"

using namespace algofactory;

namespace
{

bool runSupervised(const char* pluginName, const char* inputFile, const char* outputFile, const char* roiFile,
                   const char* bands, int option, AlgoResult* result)
{
    stSupervisedClassificationInfo record;
    record.inputFile = QString::fromUtf8(inputFile ? inputFile : "");
    SysUtility::_ptr_t<SysDataSource::RasterDataset> dataset =
        SysDataSource::DatasetFactory::Instance()->OpenRaster(record.inputFile);
    if (!dataset)
        return false;
    record.firstRow = 0;
    record.lastRow = dataset->GetHeight() - 1;
    record.firstColumn = 0;
    record.lastColumn = dataset->GetWidth() - 1;
    record.bands = splitBandText(bands, 1); // 0-based text, 1-based record
    record.bandCount = int(record.bands.size());
    record.outputFile = QString::fromUtf8(outputFile ? outputFile : "");
    record.option = option;

    std::vector<RoiArea> areas;
    ReadRoiAreas(QString::fromUtf8(roiFile ? roiFile : ""), areas);
    for (const RoiArea& area : areas)
        record.classes.push_back({area.name, area.color.red(), area.color.green(), area.color.blue()});

    stROIStatisticsInfo statisticsInfo;
    statisticsInfo.inputFile = record.inputFile;
    statisticsInfo.dataset = dataset;
    statisticsInfo.bands = record.bands;
    statisticsInfo.bandCount = record.bandCount;
    statisticsInfo.areas = areas;

    SysAlgo::AlgoFactory* factory = SysAlgo::AlgoFactory::Instance();
    SysUtility::_ptr_t<SysAlgo::Algorithm> statistics = factory->CreateAlgorithm(QStringLiteral("ROIStatistics"));
    if (!statistics)
    {
        printPlain("MLClassiferCommand"); // the dialog title only; "Algorithm plug-in load failed!" is not shown
        return false;
    }
    statistics->SetParameter(statisticsInfo);
    statistics->SetCommandText(QStringLiteral("ROIStatistics"));
    if (!factory->ExecuteAlgorithm(statistics.get()))
    {
        int code = 0;
        QString message;
        statistics->GetError(&code, &message);
        reportHostError(result, code, message);
        return false;
    }
    const stROIStatisticsInfo* computed = boost::any_cast<stROIStatisticsInfo>(&statistics->GetResult());
    if (!computed)
        return false;
    record.classCount = int(computed->statistics.size());
    for (const RoiClassStatistics& classStatistics : computed->statistics)
    {
        record.means.insert(record.means.end(), classStatistics.mean.begin(), classStatistics.mean.end());
        record.covariances.insert(record.covariances.end(), classStatistics.covariance.begin(),
                                  classStatistics.covariance.end());
    }

    // The plug-in reads the entry's own record through the pointer; the record outlives the run.
    AlgoParamHolder holder = &record;
    AlgoRunContext context;
    return RunAlgoPlugin(&context, QString::fromLatin1(pluginName), &holder, result, QString());
}

} // namespace

ALGO_API bool ExcuteAlgo_DistanceClassification(const char* inputFile, const char* outputFile, const char* roiFile,
                                                const char* bands, int option, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_DistanceClassification", [&] {
        return runSupervised("DistanceClassification", inputFile, outputFile, roiFile, bands, option, result);
    });
}

ALGO_API bool ExcuteAlgo_MLClassification(const char* inputFile, const char* outputFile, const char* roiFile,
                                          const char* bands, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_MLClassification", [&] {
        return runSupervised("MLClassification", inputFile, outputFile, roiFile, bands, 0, result);
    });
}
