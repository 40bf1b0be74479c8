// Entries of the single-channel radar steps (speckle filtering, complex conversion, multilooking, dB, water):
// the radar pattern, with the checks each needs before its plug-in runs. In the batch entries an input that
// cannot be processed is reported on its own "[ERROR] " line and left out; the others still run.
#include "entry_guard.h"
#include "generic_entry.h"
#include "output_protocol.h"
#include "kit/sar_parameter_file.h"
#include "sys_data_source.h"

#include <cpl_error.h>
#include <gdal_priv.h>

#include <QFileInfo>
#include <QStringList>
#include <algorithm>
#include <memory>

using namespace algofactory;

namespace
{

QString local(const char* value)
{
    return value ? QString::fromLocal8Bit(value) : QString();
}

bool refuseParameter(const char* algo, const char* key, const QString& value, const QString& rule)
{
    if (value.isNull())
        printError(QStringLiteral("%1: the parameter %2 %3!").arg(QLatin1String(algo), QLatin1String(key), rule));
    else
        printError(QStringLiteral("%1: the parameter %2 (%3) %4!").arg(QLatin1String(algo), QLatin1String(key), value, rule));
    return false;
}

// What an input of a batch must be.
struct InputRule
{
    enum Complex
    {
        Any,
        Refused,
        Required
    } complex = Any;
    int minimumSide = 1;          // the window of a filter must fit
    bool needsParameterFile = false;
};

struct GdalCloser
{
    void operator()(GDALDataset* dataset) const { GDALClose(GDALDataset::ToHandle(dataset)); }
};

// The reason an input cannot be processed, or an empty text.
QString inputProblem(const QString& path, const InputRule& rule)
{
    if (!QFileInfo(path).isFile())
        return QStringLiteral("does not exist");
    SysDataSource::RegisterGdalDrivers();
    CPLPushErrorHandler(CPLQuietErrorHandler);
    std::unique_ptr<GDALDataset, GdalCloser> dataset(
        GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    CPLPopErrorHandler();
    if (!dataset || dataset->GetRasterCount() < 1)
        return QStringLiteral("does not open as a raster");
    const bool complex = GDALDataTypeIsComplex(dataset->GetRasterBand(1)->GetRasterDataType()) != 0;
    if (rule.complex == InputRule::Refused && complex)
        return QStringLiteral("is complex: an intensity image is required");
    if (rule.complex == InputRule::Required && !complex)
        return QStringLiteral("is not complex");
    if (std::min(dataset->GetRasterXSize(), dataset->GetRasterYSize()) < rule.minimumSide)
        return QStringLiteral("is smaller than the %1 x %1 window").arg(rule.minimumSide);
    if (rule.needsParameterFile && !QFileInfo(sarParameterFilePath(path)).isFile())
        return QStringLiteral("has no parameter file %1 to choose the looks from").arg(sarParameterFilePath(path));
    return QString();
}

// The inputs of a "|" list that can be processed; one "[ERROR] " line for each of the others.
QStringList usableInputs(const char* algo, const QString& list, const InputRule& rule)
{
    QStringList usable;
    for (const QString& item : list.split('|'))
    {
        const QString path = item.trimmed();
        if (path.isEmpty())
            continue;
        const QString problem = inputProblem(path, rule);
        if (problem.isEmpty())
            usable << path;
        else
            printError(QStringLiteral("%1: the input %2 %3!").arg(QLatin1String(algo), path, problem));
    }
    return usable;
}

bool checkBatchPaths(const char* algo, const QString& inputs, const QString& outputDir)
{
    if (inputs.trimmed().isEmpty())
        return refuseParameter(algo, "InputFiles", QString(), "is empty");
    if (outputDir.trimmed().isEmpty())
        return refuseParameter(algo, "OutputDir", QString(), "is empty");
    return true;
}

} // namespace

ALGO_API bool ExcuteAlgo_Batch_AdaptiveFilter(const char* inputFiles, const char* outputDir, const char* filterType,
                                              int windowSize, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_Batch_AdaptiveFilter", [&] {
        const char* algo = "Batch_AdaptiveFilter";
        const QString inputs = local(inputFiles), output = local(outputDir);
        const QString filter = local(filterType).isEmpty() ? QStringLiteral("Lee") : local(filterType);
        if (!checkBatchPaths(algo, inputs, output))
            return false;
        static const QStringList kFilters = {"Boxcar", "Median", "Lee", "RefinedLee", "Frost",
                                             "Kuan", "GammaMAP", "LeeSigma", "IDAN"};
        if (!kFilters.contains(filter))
            return refuseParameter(algo, "FilterType", filter, "must be one of " + kFilters.join(", "));
        if (windowSize < 3 || windowSize > 51 || windowSize % 2 == 0)
            return refuseParameter(algo, "WindowSize", QString::number(windowSize), "must be odd, from 3 to 51");
        InputRule rule;
        rule.complex = InputRule::Refused;
        rule.minimumSide = windowSize;
        const QStringList usable = usableInputs(algo, inputs, rule);
        if (usable.isEmpty())
            return false;
        const QByteArray list = usable.join('|').toLocal8Bit(), words = filter.toLocal8Bit();
        return runRadarGenericEntry(algo,
                                    {requiredText("InputFiles", list.constData()), outputPath("OutputDir", outputDir),
                                     text("FilterType", words.constData()), number("WindowSize", windowSize)},
                                    result);
    });
}

ALGO_API bool ExcuteAlgo_Batch_ComplexDataConvert(const char* inputFiles, const char* outputDir, const char* conversion,
                                                  AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_Batch_ComplexDataConvert", [&] {
        const char* algo = "Batch_ComplexDataConvert";
        const QString inputs = local(inputFiles), output = local(outputDir), word = local(conversion);
        if (!checkBatchPaths(algo, inputs, output))
            return false;
        static const QStringList kConversions = {"Amplitude", "Intensity", "Phase", "Real", "Imag", "dB"};
        if (!kConversions.contains(word))
            return refuseParameter(algo, "Conversion", word, "must be one of " + kConversions.join(", "));
        InputRule rule;
        rule.complex = InputRule::Required;
        const QStringList usable = usableInputs(algo, inputs, rule);
        if (usable.isEmpty())
            return false;
        const QByteArray list = usable.join('|').toLocal8Bit();
        return runRadarGenericEntry(algo,
                                    {requiredText("InputFiles", list.constData()), outputPath("OutputDir", outputDir),
                                     text("Conversion", conversion)},
                                    result);
    });
}

ALGO_API bool ExcuteAlgo_Batch_MultiLook(const char* inputFiles, const char* outputDir, int azimuthLooks, int rangeLooks,
                                         AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_Batch_MultiLook", [&] {
        const char* algo = "Batch_MultiLook";
        const QString inputs = local(inputFiles), output = local(outputDir);
        if (!checkBatchPaths(algo, inputs, output))
            return false;
        if (azimuthLooks < 0 || azimuthLooks > 1000)
            return refuseParameter(algo, "AzimuthLooks", QString::number(azimuthLooks), "must be from 0 to 1000");
        if (rangeLooks < 0 || rangeLooks > 1000)
            return refuseParameter(algo, "RangeLooks", QString::number(rangeLooks), "must be from 0 to 1000");
        if ((azimuthLooks == 0) != (rangeLooks == 0))
            return refuseParameter(algo, "RangeLooks", QString::number(rangeLooks),
                                   QStringLiteral("must be 0 together with AzimuthLooks (%1)").arg(azimuthLooks));
        InputRule rule;
        rule.needsParameterFile = azimuthLooks == 0;
        const QStringList usable = usableInputs(algo, inputs, rule);
        if (usable.isEmpty())
            return false;
        const QByteArray list = usable.join('|').toLocal8Bit();
        return runRadarGenericEntry(algo,
                                    {requiredText("InputFiles", list.constData()), outputPath("OutputDir", outputDir),
                                     number("AzimuthLooks", azimuthLooks), number("RangeLooks", rangeLooks)},
                                    result);
    });
}

ALGO_API bool ExcuteAlgo_Batch_TransformToDb(const char* inputFiles, const char* outputDir, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_Batch_TransformToDb", [&] {
        const char* algo = "Batch_TransformToDb";
        const QString inputs = local(inputFiles), output = local(outputDir);
        if (!checkBatchPaths(algo, inputs, output))
            return false;
        const QStringList usable = usableInputs(algo, inputs, InputRule());
        if (usable.isEmpty())
            return false;
        const QByteArray list = usable.join('|').toLocal8Bit();
        return runRadarGenericEntry(algo, {requiredText("InputFiles", list.constData()), outputPath("OutputDir", outputDir)},
                                    result);
    });
}

ALGO_API bool ExcuteAlgo_SAR_WaterExtraction(const char* inputFile, const char* outputFile, double threshold,
                                             AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_SAR_WaterExtraction", [&] {
        const char* algo = "SAR_WaterExtraction";
        const QString input = local(inputFile), output = local(outputFile);
        if (input.trimmed().isEmpty())
            return refuseParameter(algo, "InputFile", QString(), "is empty");
        if (output.trimmed().isEmpty())
            return refuseParameter(algo, "OutputFile", QString(), "is empty");
        if (!(threshold >= -100.0 && threshold <= 100.0))
            return refuseParameter(algo, "Threshold", QString::number(threshold), "must be from -100 to 100 dB (0 chooses it)");
        InputRule rule;
        rule.complex = InputRule::Refused;
        const QString problem = inputProblem(input, rule);
        if (!problem.isEmpty())
            return refuseParameter(algo, "InputFile", input, problem);
        if (QFileInfo(output).isDir())
            return refuseParameter(algo, "OutputFile", output, "is a folder, not a file");
        return runRadarGenericEntry(algo,
                                    {requiredText("InputFile", inputFile), outputPath("OutputFile", outputFile),
                                     number("Threshold", threshold)},
                                    result);
    });
}
