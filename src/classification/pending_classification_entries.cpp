// Entries of classification in their generic form until their own checks and records are written;
// each moves to a file of its own when it gets them.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_ImgClassPostPA(const char* classFile, const char* referenceFile, const char* referenceVector, const char* classField, const char* classPairs, const char* reportFile, AlgoResult* result)
{
    return runGenericEntry("ImgClassPostPA",
        {
            requiredText("ClassFile", classFile),
            text("ReferenceFile", referenceFile),
            text("ReferenceVector", referenceVector),
            text("ClassField", classField),
            text("ClassPairs", classPairs),
            outputPath("ReportFile", reportFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ISODataClassification(const char* inputFile, const char* outputFile, const char* bands, int expectedClasses, int initialClasses, int minClassSize, double maxStdDev, double minDistance, int maxMergePairs, int maxIterations, AlgoResult* result)
{
    return runGenericEntry("ISODataClassification",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("Bands", bands),
            number("ExpectedClasses", expectedClasses),
            number("InitialClasses", initialClasses),
            number("MinClassSize", minClassSize),
            number("MaxStdDev", maxStdDev),
            number("MinDistance", minDistance),
            number("MaxMergePairs", maxMergePairs),
            number("MaxIterations", maxIterations),
        },
        result);
}

ALGO_API bool ExcuteAlgo_KmeansClassification(const char* inputFile, const char* outputFile, const char* bands, int expectedClasses, int option, double threshold, AlgoResult* result)
{
    return runGenericEntry("KmeansClassification",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("Bands", bands),
            number("ExpectedClasses", expectedClasses),
            number("Option", option),
            number("Threshold", threshold),
        },
        result);
}

ALGO_API bool ExcuteAlgo_NeuralNetworkCluster(const char* inputFile, const char* outputFile, const char* bands, int option, int classCount, float value1, float value2, int value3, AlgoResult* result)
{
    return runGenericEntry("NeuralNetworkCluster",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("Bands", bands),
            number("Option", option),
            number("ClassCount", classCount),
            number("Value1", value1),
            number("Value2", value2),
            number("Value3", value3),
        },
        result);
}

ALGO_API bool ExcuteAlgo_DistanceClassification(const char* inputFile, const char* outputFile, const char* roiFile, const char* bands, int option, AlgoResult* result)
{
    return runGenericEntry("DistanceClassification",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            requiredText("RoiFile", roiFile),
            text("Bands", bands),
            number("Option", option),
        },
        result);
}

ALGO_API bool ExcuteAlgo_MLClassification(const char* inputFile, const char* outputFile, const char* roiFile, const char* bands, AlgoResult* result)
{
    return runGenericEntry("MLClassification",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            requiredText("RoiFile", roiFile),
            text("Bands", bands),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImgClassPostClump(const char* inputFile, const char* outputFile, int kernelSize, AlgoResult* result)
{
    return runGenericEntry("ImgClassPostClump",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("KernelSize", kernelSize),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImgClassPostComb(const char* inputFile, const char* outputFile, const char* recoding, AlgoResult* result)
{
    return runGenericEntry("ImgClassPostComb",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("Recoding", recoding),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImgClassPostMMA(const char* inputFile, const char* outputFile, int kernelSize, int centreWeight, int method, AlgoResult* result)
{
    return runGenericEntry("ImgClassPostMMA",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("KernelSize", kernelSize),
            number("CentreWeight", centreWeight),
            number("Method", method),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImgClassPostSieve(const char* inputFile, const char* outputFile, int firstValue, int secondValue, AlgoResult* result)
{
    return runGenericEntry("ImgClassPostSieve",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("FirstValue", firstValue),
            number("SecondValue", secondValue),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImgClassPostSta(const char* inputFile, const char* reportFile, AlgoResult* result)
{
    return runGenericEntry("ImgClassPostSta",
        {
            requiredText("InputFile", inputFile),
            outputPath("ReportFile", reportFile),
        },
        result);
}
