// ExcuteAlgo_ImgClassPostClump, ExcuteAlgo_ImgClassPostSieve, ExcuteAlgo_ImgClassPostMMA and
// ExcuteAlgo_ImgClassPostComb: checks, the class table of the input, the record, the plug-in run.
#include "classification_text.h"
#include "entry_guard.h"
#include "records/classification_records.h"
#include "run_algo_plugin.h"
#include "sys_data_source.h"

using namespace algofactory;

namespace
{

template <typename Record> bool runRecord(const QString& pluginName, const Record& record, AlgoResult* result)
{
    AlgoParamHolder holder = record;
    AlgoRunContext context;
    return RunAlgoPlugin(&context, pluginName, &holder, result, QString());
}

// The checks clump, sieve and majority/minority analysis share; fills the input, output and class list.
template <typename Record> bool checkClassImage(const char* inputFile, const char* outputFile, Record& record)
{
    if (!inputFile || !*inputFile)
        return printPlain("Please correctly select input file!"), false;
    if (!outputFile || !*outputFile)
        return printPlain("Select correct output file!"), false;
    SysUtility::_ptr_t<SysDataSource::RasterDataset> dataset =
        SysDataSource::DatasetFactory::Instance()->OpenRaster(QString::fromUtf8(inputFile));
    if (!dataset || dataset->GetBandCount() < 1)
        return printPlain("Unsupported Raster format!"), false;
    SysUtility::_ptr_t<SysDataSource::ColorTable> colours = dataset->GetBand(0)->GetColorTable();
    const int classCount = colours ? classCountOf(dataset->GetBand(0)->GetCategoryNames(), colours->GetCount()) : 0;
    if (classCount < 1)
        return printPlain("Select at least one class!"), false;
    record.classes.clear();
    for (int i = 0; i < classCount; ++i)
        record.classes.push_back(i);
    if (record.classes.empty())
        return printPlain("Select at least one class!"), false;
    record.inputFile = QString::fromUtf8(inputFile);
    record.outputFile = QString::fromUtf8(outputFile);
    return true;
}

// Clump and sieve reach the runner here, with the empty algorithm name.
bool runClassPostclump(const QString& pluginName, const stClassPostclump& record, AlgoResult* result)
{
    return runRecord(pluginName, record, result);
}

} // namespace

ALGO_API bool ExcuteAlgo_ImgClassPostClump(const char* inputFile, const char* outputFile, int kernelSize,
                                           AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImgClassPostClump", [&] {
        stClassPostclump record;
        if (!checkClassImage(inputFile, outputFile, record))
            return false;
        record.pair = {kernelSize, kernelSize};
        return runClassPostclump(QStringLiteral("ImgClassPostClump"), record, result);
    });
}

ALGO_API bool ExcuteAlgo_ImgClassPostSieve(const char* inputFile, const char* outputFile, int firstValue, int secondValue,
                                           AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImgClassPostSieve", [&] {
        stClassPostclump record;
        if (!checkClassImage(inputFile, outputFile, record))
            return false;
        record.pair = {secondValue, firstValue}; // deliberately the second value first
        return runClassPostclump(QStringLiteral("ImgClassPostSieve"), record, result);
    });
}

ALGO_API bool ExcuteAlgo_ImgClassPostMMA(const char* inputFile, const char* outputFile, int kernelSize, int centreWeight,
                                         int method, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImgClassPostMMA", [&] {
        stClassPostMMA record;
        if (!checkClassImage(inputFile, outputFile, record))
            return false;
        record.kernelRows = kernelSize;
        record.kernelColumns = kernelSize;
        record.minority = method == 1 ? 1 : 0;
        record.centreWeight = method == 1 ? 1 : centreWeight;
        return runRecord(QStringLiteral("ImgClassPostMMA"), record, result);
    });
}

ALGO_API bool ExcuteAlgo_ImgClassPostComb(const char* inputFile, const char* outputFile, const char* recoding,
                                          AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ImgClassPostComb", [&] {
        stClassPostCombInfo record;
        record.inputFile = QString::fromUtf8(inputFile ? inputFile : "");
        SysUtility::_ptr_t<SysDataSource::RasterDataset> dataset =
            SysDataSource::DatasetFactory::Instance()->OpenRaster(record.inputFile);
        if (!dataset || dataset->GetBandCount() < 1)
            return printPlain("Unsupported Raster format!"), false;
        SysUtility::_ptr_t<SysDataSource::RasterBand> band = dataset->GetBand(0);
        SysUtility::_ptr_t<SysDataSource::ColorTable> colours = band->GetColorTable();
        if (!colours)
            return printPlain("The file is not a classification file, please reselect!"), false;
        record.outputFile = QString::fromUtf8(outputFile ? outputFile : "");
        record.classCount = classCountOf(band->GetCategoryNames(), colours->GetCount());
        record.classNames = classNamesOrDefault(band->GetCategoryNames(), colours->GetCount());
        for (const QColor& colour : colours->Colors())
        {
            if (int(record.red.size()) == record.classCount)
                break;
            record.red.push_back(colour.red());
            record.green.push_back(colour.green());
            record.blue.push_back(colour.blue());
        }
        for (const auto& pair : splitPairText(recoding, 0))
        {
            record.sourceClasses.push_back(pair.first);
            record.targetClasses.push_back(pair.second);
        }
        return runRecord(QStringLiteral("ImgClassPostComb"), record, result);
    });
}
