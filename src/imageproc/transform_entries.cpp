// The transform entries: PCA and MNF both ways, FFT both ways, tasselled cap, RGB/IHS both ways, wavelet both ways
// and decorrelation stretch; path checks with their messages, records, the transform plug-ins.
#include "entry_guard.h"
#include "filter_entry_skeleton.h"
#include "records/transform_records.h"
#include "run_algo_plugin.h"
#include "sys_data_source.h"
#include "transform_table_entries.h"

#include <iostream>

using namespace algofactory;

namespace
{

const char* const kSelectInput = "Please correctly select input file! ";
const char* const kSelectOutput = "Select correct output file! ";
const char* const kSameFile = "Input file is matching to output file! ";
const char* const kOutputStatistics = "Select output statistics file! ";
const char* const kInputStatistics = "Select Input statistics file! ";
const char* const kOpenFailed = "Open RasterDataset faild, Please correctly select input file! ";
const char* const kNoBand = "band count less than 1! ";
const char* const kTransformLibrary = "VYRTransformFunc";

bool refuse(const char* message)
{
    std::cout << message << std::endl;
    return false;
}

QString localPath(const char* text)
{
    return QString::fromLocal8Bit(text ? text : "");
}

bool run(const QString& library, const QString& algorithm, AlgoParamHolder holder, AlgoResult* result)
{
    AlgoRunContext context;
    return RunAlgoPlugin(&context, library, &holder, result, algorithm);
}

// Input, statistics file (when the entry has one, with its message), output and input/output identity, in order.
bool pathsValid(const QString& input, const QString* statistics, const char* statisticsMessage, const QString& output,
                bool checkSame)
{
    if (input.isEmpty())
        return refuse(kSelectInput);
    if (statistics && statistics->isEmpty())
        return refuse(statisticsMessage);
    if (output.isEmpty())
        return refuse(kSelectOutput);
    if (checkSame && input == output)
        return refuse(kSameFile);
    return true;
}

// Band count of the input through the host dataset factory; -1 (after the message) when it does not open.
int openedBandCount(const QString& input)
{
    auto dataset = SysDataSource::DatasetFactory::Instance()->OpenRaster(input, SysDataSource::OpenMode::ReadOnly);
    if (!dataset)
    {
        refuse(kOpenFailed);
        return -1;
    }
    return dataset->GetBandCount();
}

// The four statistics-file transforms.
struct StatisticsTransform
{
    const char* entry;
    const char* algorithm;
    const char* statisticsMessage;
};
const StatisticsTransform kForwardPca{"ExcuteAlgo_PCATransformFunc", "Forward PCA", kOutputStatistics};
const StatisticsTransform kInversePca{"ExcuteAlgo_InvPCATransformFunc", "Inverse PCA", kInputStatistics};
const StatisticsTransform kForwardMnf{"ExcuteAlgo_MNFTransformFunc", "Forward MNF", kOutputStatistics};
const StatisticsTransform kInverseMnf{"ExcuteAlgo_InvMNTransformFunc", "Inverse MNF", kOutputStatistics};

bool runStatisticsTransform(const StatisticsTransform& kind, const char* inputFile, const char* outputFile,
                            const char* statisticsFile, int dataType, std::vector<int> extras, AlgoResult* result)
{
    return guardEntry(kind.entry, [&] {
        stPCATransformInfo record;
        record.inputFile = localPath(inputFile);
        record.statisticsFile = localPath(statisticsFile);
        record.outputFile = localPath(outputFile);
        if (!pathsValid(record.inputFile, &record.statisticsFile, kind.statisticsMessage, record.outputFile, true))
            return false;
        record.format = formatFromSuffix(record.outputFile);
        record.dataType = dataType;
        record.tableExtras = std::move(extras);
        return run(kTransformLibrary, kind.algorithm, record, result);
    });
}

bool runColorTransform(const char* entry, bool forward, const char* inputFile, const char* outputFile, int bandOrder,
                       std::vector<int> extras, AlgoResult* result)
{
    return guardEntry(entry, [&] {
        stColorTransformInfo record;
        record.inputFile = localPath(inputFile);
        record.outputFile = localPath(outputFile);
        if (!pathsValid(record.inputFile, nullptr, nullptr, record.outputFile, false))
            return false;
        if (forward && bandOrder < 1)
            return refuse("Band order must greater than 1 ");
        record.format = formatFromSuffix(record.outputFile);
        record.bandOrder = bandOrder;
        record.tableExtras = std::move(extras);
        return forward ? run("TransformRGB2IHS", "RGB2IHS", record, result)
                       : run("TransformIHS2RGB", "IHS2RGB", record, result);
    });
}

template <typename Record> Record pathRecord(const char* inputFile, const char* outputFile)
{
    Record record;
    record.inputFile = localPath(inputFile);
    record.outputFile = localPath(outputFile);
    record.format = formatFromSuffix(record.outputFile);
    return record;
}

} // namespace

ALGO_API bool ExcuteAlgo_PCATransformFunc(const char* inputFile, const char* outputFile, const char* statisticsFile,
                                          int dataType, AlgoResult* result)
{
    return runStatisticsTransform(kForwardPca, inputFile, outputFile, statisticsFile, dataType, {}, result);
}

ALGO_API bool ExcuteAlgo_InvPCATransformFunc(const char* inputFile, const char* outputFile, const char* statisticsFile,
                                             int dataType, AlgoResult* result)
{
    return runStatisticsTransform(kInversePca, inputFile, outputFile, statisticsFile, dataType, {}, result);
}

ALGO_API bool ExcuteAlgo_MNFTransformFunc(const char* inputFile, const char* outputFile, const char* statisticsFile,
                                          int dataType, AlgoResult* result)
{
    return runStatisticsTransform(kForwardMnf, inputFile, outputFile, statisticsFile, dataType, {}, result);
}

ALGO_API bool ExcuteAlgo_InvMNTransformFunc(const char* inputFile, const char* outputFile, const char* statisticsFile,
                                            int dataType, AlgoResult* result)
{
    return runStatisticsTransform(kInverseMnf, inputFile, outputFile, statisticsFile, dataType, {}, result);
}

ALGO_API bool ExcuteAlgo_FFTransformFunc(const char* inputFile, const char* outputFile, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_FFTransformFunc", [&] {
        auto record = pathRecord<stFFTransformInfo>(inputFile, outputFile);
        const int bandCount = openedBandCount(record.inputFile);
        if (bandCount < 0)
            return false;
        if (bandCount < 1)
            return refuse(kNoBand);
        for (int band = 0; band < bandCount; ++band)
            record.bands.push_back(band);
        return run(kTransformLibrary, "FFT", record, result);
    });
}

ALGO_API bool ExcuteAlgo_InvFFTransformFunc(const char* inputFile, const char* outputFile, int dataType,
                                            AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_InvFFTransformFunc", [&] {
        auto record = pathRecord<stInvFFTransformInfo>(inputFile, outputFile);
        if (!pathsValid(record.inputFile, nullptr, nullptr, record.outputFile, false))
            return false;
        if (dataType < 0 || dataType > 6)
            return refuse("Please Input correct datatype! ");
        record.dataType = dataType;
        return run(kTransformLibrary, "InvFFT", record, result);
    });
}

ALGO_API bool ExcuteAlgo_KTTransformFunc(const char* inputFile, const char* outputFile, int sensorType,
                                         AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_KTTransformFunc", [&] {
        auto record = pathRecord<stKTTransformInfo>(inputFile, outputFile);
        if (!pathsValid(record.inputFile, nullptr, nullptr, record.outputFile, false))
            return false;
        if (sensorType < 0 || sensorType > 2)
            return refuse("Please Input correct datatype!");
        const int bandCount = openedBandCount(record.inputFile);
        if (bandCount < 0)
            return false;
        if (bandCount < 1)
            return refuse(kNoBand);
        if (bandCount < (sensorType == 1 ? 4 : 6))
            return refuse("Input file is inconsistent with the sensor type! ");
        record.sensorType = sensorType;
        record.components = 4;
        return run(kTransformLibrary, "KT", record, result);
    });
}

ALGO_API bool ExcuteAlgo_RGB2IHSTransformFunc(const char* inputFile, const char* outputFile, int bandOrder,
                                              AlgoResult* result)
{
    return runColorTransform("ExcuteAlgo_RGB2IHSTransformFunc", true, inputFile, outputFile, bandOrder, {}, result);
}

ALGO_API bool ExcuteAlgo_IHS2RGBTransformFunc(const char* inputFile, const char* outputFile, int bandOrder,
                                              AlgoResult* result)
{
    return runColorTransform("ExcuteAlgo_IHS2RGBTransformFunc", false, inputFile, outputFile, bandOrder, {}, result);
}

ALGO_API bool ExcuteAlgo_WaveletTransform(const char* inputFile, const char* outputFile, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_WaveletTransform", [&] {
        return run(kTransformLibrary, "Wavelet", pathRecord<stWaveletTransformInfo>(inputFile, outputFile), result);
    });
}

ALGO_API bool ExcuteAlgo_WaveletInverseTransform(const char* inputFile, const char* outputFile, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_WaveletInverseTransform", [&] {
        return run(kTransformLibrary, "InvWavelet", pathRecord<stWaveletTransformInfo>(inputFile, outputFile), result);
    });
}

ALGO_API bool ExcuteAlgo_DeRelationStretch(const char* inputFile, const char* outputFile, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_DeRelationStretch", [&] {
        return run("DeRelationStretch", "DeRelationStretch", pathRecord<stDeRelationStretch>(inputFile, outputFile),
                   result);
    });
}

namespace algofactory
{

bool pcaForwardFromTable(const char* inputFile, const char* outputFile, const char* statisticsFile, int dataType,
                         int componentCount, int extra1, int extra2, int extra3, AlgoResult* result)
{
    return runStatisticsTransform(kForwardPca, inputFile, outputFile, statisticsFile, dataType,
                                  {componentCount, extra1, extra2, extra3}, result);
}

bool rgbToIhsFromTable(const char* inputFile, const char* outputFile, int bandOrder, int extra1, int extra2, int extra3,
                       int extra4, int extra5, AlgoResult* result)
{
    return runColorTransform("ExcuteAlgo_RGB2IHSTransformFunc", true, inputFile, outputFile, bandOrder,
                             {extra1, extra2, extra3, extra4, extra5}, result);
}

bool ihsToRgbFromTable(const char* inputFile, const char* outputFile, int bandOrder, int extra1, int extra2,
                       AlgoResult* result)
{
    return runColorTransform("ExcuteAlgo_IHS2RGBTransformFunc", false, inputFile, outputFile, bandOrder,
                             {extra1, extra2}, result);
}

} // namespace algofactory
