// ExcuteAlgo_ISODataClassification, ExcuteAlgo_KmeansClassification, ExcuteAlgo_NeuralNetworkCluster:
// checks in their fixed order, the record, and the run of the clustering plug-in.
#include "classification_text.h"
#include "entry_guard.h"
#include "records/classification_records.h"
#include "run_algo_plugin.h"

using namespace algofactory;

namespace
{

// Steps shared by the three entries: null paths and equal paths. The first failure prints its message.
bool checkPaths(const char* inputFile, const char* outputFile)
{
    if (!inputFile)
    {
        printPlain("ISODataClassificationDlg"); // the dialog title only; its message is never shown
        return false;
    }
    if (!outputFile)
    {
        printPlain("Please select the correct output file!");
        return false;
    }
    if (samePathIgnoringCase(inputFile, outputFile))
    {
        printPlain("Input file matching output file!");
        return false;
    }
    return true;
}

bool positiveDecimal(double value)
{
    return value > 0 && IsPlainDecimalText(doubleText(value));
}

template <typename Record> bool runRecord(const char* pluginName, const Record& record, AlgoResult* result)
{
    AlgoParamHolder holder = record;
    AlgoRunContext context;
    return RunAlgoPlugin(&context, QString::fromLatin1(pluginName), &holder, result, QString());
}

} // namespace

ALGO_API bool ExcuteAlgo_ISODataClassification(const char* inputFile, const char* outputFile, const char* bands,
                                               int expectedClasses, int initialClasses, int minClassSize, double maxStdDev,
                                               double minDistance, int maxMergePairs, int maxIterations, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_ISODataClassification", [&] {
        if (!checkPaths(inputFile, outputFile))
            return false;
        // The accepted range starts at 2 although the words say 1.
        if (expectedClasses < 2 || expectedClasses > 255)
            return printPlain("The expected number should be a positive integer from 1 to 255!"), false;
        if (initialClasses < 2 || initialClasses > 255)
            return printPlain("The initial number should be a positive integer from 1 to 255!"), false;
        if (minClassSize < 1)
            return printPlain("Minimal number should be a positive integer!"), false;
        if (!positiveDecimal(maxStdDev))
            return printPlain("The maximum standard deviation should be positive!"), false;
        if (!positiveDecimal(minDistance))
            return printPlain("The minimum class center distance should be positive!"), false;
        if (maxMergePairs < 1)
            return printPlain("The maximum number of merged logarithms should be a positive integer!"), false;
        if (maxIterations < 1)
            return printPlain("The maximum number of iterations should be a positive integer!"), false;

        stInfoClassificationISO record;
        record.inputFile = QString::fromUtf8(inputFile);
        record.outputFile = QString::fromUtf8(outputFile);
        record.expectedClasses = expectedClasses;
        record.initialClasses = initialClasses;
        record.minClassSize = minClassSize;
        record.maxMergePairs = maxMergePairs;
        record.maxIterations = maxIterations;
        record.maxStdDev = maxStdDev;
        record.minDistance = minDistance;
        record.bands = splitBandText(bands, 0);
        if (record.bands.empty())
            return printPlain("The number of input bands can not be empty!"), false;
        return runRecord("ISODataClassification", record, result);
    });
}

ALGO_API bool ExcuteAlgo_KmeansClassification(const char* inputFile, const char* outputFile, const char* bands,
                                              int expectedClasses, int option, double threshold, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_KmeansClassification", [&] {
        if (!checkPaths(inputFile, outputFile))
            return false;
        if (expectedClasses < 2 || expectedClasses > 255)
            return printPlain("The expected number should be a positive integer from 1 to 255!"), false;
        const QString thresholdText = doubleText(threshold);
        if (thresholdText.isEmpty() || !IsPlainDecimalText(thresholdText))
            return printPlain("Please enter a termination threshold!"), false;
        if (!(threshold > 0 && threshold <= 1))
            return printPlain(
                       "The input termination threshold is invalid. Please enter a valid value greater than 0 for less than 1!"),
                   false;

        stInfoClassificationKmeans record;
        record.inputFile = QString::fromUtf8(inputFile);
        record.outputFile = QString::fromUtf8(outputFile);
        record.expectedClasses = expectedClasses;
        record.maxIterations = option;
        record.threshold = threshold;
        record.title = QStringLiteral("K-Means Classification");
        record.bands = splitBandText(bands, 0);
        if (record.bands.empty())
            return printPlain("The number of input bands can not be empty!"), false;
        return runRecord("KmeansClassification", record, result);
    });
}

ALGO_API bool ExcuteAlgo_NeuralNetworkCluster(const char* inputFile, const char* outputFile, const char* bands, int option,
                                              int classCount, float value1, float value2, int value3, AlgoResult* result)
{
    return guardEntry("ExcuteAlgo_NeuralNetworkCluster", [&] {
        if (!checkPaths(inputFile, outputFile))
            return false;
        if (classCount < 1)
            return printPlain("The number of Class can not be Zero!"), false;
        NETWORKCLASS record;
        record.inputFile = QString::fromUtf8(inputFile);
        record.outputFile = QString::fromUtf8(outputFile);
        record.bands = splitBandText(bands, 0);
        if (record.bands.empty())
            return printPlain("The number of input bands can not be empty!"), false;
        if (record.bands.size() < 2)
            return printPlain("The number of input bands can not be less than 2!"), false;
        record.networkType = option;
        record.classCount = classCount;
        record.learningRate = value1;
        record.radius = value2;
        record.epochs = value3;
        record.format = QStringLiteral("ENVI");
        return runRecord("NeuralNetworkCluster", record, result);
    });
}
