// Entries of polarimetric and radar analysis that pass their arguments unchanged to the plug-in named after the algorithm.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_Batch_AdaptiveFilter(const char* inputFiles, const char* outputDir, const char* filterType, int windowSize, AlgoResult* result)
{
    return runGenericEntry("Batch_AdaptiveFilter",
        {
            requiredText("InputFiles", inputFiles),
            outputPath("OutputDir", outputDir),
            text("FilterType", filterType),
            number("WindowSize", windowSize),
        },
        result);
}

ALGO_API bool ExcuteAlgo_Batch_ComplexDataConvert(const char* inputFiles, const char* outputDir, const char* conversion, AlgoResult* result)
{
    return runGenericEntry("Batch_ComplexDataConvert",
        {
            requiredText("InputFiles", inputFiles),
            outputPath("OutputDir", outputDir),
            text("Conversion", conversion),
        },
        result);
}

ALGO_API bool ExcuteAlgo_Batch_MultiLook(const char* inputFiles, const char* outputDir, int azimuthLooks, int rangeLooks, AlgoResult* result)
{
    return runGenericEntry("Batch_MultiLook",
        {
            requiredText("InputFiles", inputFiles),
            outputPath("OutputDir", outputDir),
            number("AzimuthLooks", azimuthLooks),
            number("RangeLooks", rangeLooks),
        },
        result);
}

ALGO_API bool ExcuteAlgo_Batch_TransformToDb(const char* inputFiles, const char* outputDir, AlgoResult* result)
{
    return runGenericEntry("Batch_TransformToDb",
        {
            requiredText("InputFiles", inputFiles),
            outputPath("OutputDir", outputDir),
        },
        result);
}

ALGO_API bool ExcuteAlgo_LayerStack(const char* inputFiles, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("LayerStack",
        {
            requiredText("InputFiles", inputFiles),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_SAR_WaterExtraction(const char* inputFile, const char* outputFile, double threshold, AlgoResult* result)
{
    return runGenericEntry("SAR_WaterExtraction",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("Threshold", threshold),
        },
        result);
}

ALGO_API bool ExcuteAlgo_WishartSupervisedClassification(const char* inputDir, const char* roiFile, const char* outputDir, AlgoResult* result)
{
    return runGenericEntry("WishartSupervisedClassification",
        {
            requiredText("InputDir", inputDir),
            requiredText("RoiFile", roiFile),
            outputPath("OutputDir", outputDir),
        },
        result);
}

ALGO_API bool ExcuteAlgo_PolSAR_BasisChange(const char* inputDir, const char* outputDir, const char* basis, AlgoResult* result)
{
    return runGenericEntry("PolSAR_BasisChange",
        {
            requiredText("InputDir", inputDir),
            outputPath("OutputDir", outputDir),
            text("Basis", basis),
        },
        result);
}

ALGO_API bool ExcuteAlgo_PolSAR_ClassMerge(const char* inputFile, const char* outputFile, const char* mergePairs, AlgoResult* result)
{
    return runGenericEntry("PolSAR_ClassMerge",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("MergePairs", mergePairs),
        },
        result);
}

ALGO_API bool ExcuteAlgo_PolSAR_Filter(const char* inputDir, const char* outputDir, const char* filterType, int windowSize, AlgoResult* result)
{
    return runGenericEntry("PolSAR_Filter",
        {
            requiredText("InputDir", inputDir),
            outputPath("OutputDir", outputDir),
            text("FilterType", filterType),
            number("WindowSize", windowSize),
        },
        result);
}

ALGO_API bool ExcuteAlgo_PolSAR_MatrixConvert(const char* inputDir, const char* outputDir, const char* targetMatrix, AlgoResult* result)
{
    return runGenericEntry("PolSAR_MatrixConvert",
        {
            requiredText("InputDir", inputDir),
            outputPath("OutputDir", outputDir),
            text("TargetMatrix", targetMatrix),
        },
        result);
}

ALGO_API bool ExcuteAlgo_PolSAR_PolSignatures(const char* inputDir, const char* outputDir, const char* region, AlgoResult* result)
{
    return runGenericEntry("PolSAR_PolSignatures",
        {
            requiredText("InputDir", inputDir),
            outputPath("OutputDir", outputDir),
            text("Region", region),
        },
        result);
}

ALGO_API bool ExcuteAlgo_PolSAR_STANFilter(const char* inputDir, const char* outputDir, int windowSize, AlgoResult* result)
{
    return runGenericEntry("PolSAR_STANFilter",
        {
            requiredText("InputDir", inputDir),
            outputPath("OutputDir", outputDir),
            number("WindowSize", windowSize),
        },
        result);
}

ALGO_API bool ExcuteAlgo_PolSAR_SVMClassification(const char* inputDir, const char* roiFile, const char* outputDir, AlgoResult* result)
{
    return runGenericEntry("PolSAR_SVMClassification",
        {
            requiredText("InputDir", inputDir),
            requiredText("RoiFile", roiFile),
            outputPath("OutputDir", outputDir),
        },
        result);
}

ALGO_API bool ExcuteAlgo_PolSAR_WishartUnsupervisedClassification(const char* inputDir, const char* outputDir, int classCount, int iterations, AlgoResult* result)
{
    return runGenericEntry("PolSAR_WishartUnsupervisedClassification",
        {
            requiredText("InputDir", inputDir),
            outputPath("OutputDir", outputDir),
            number("ClassCount", classCount),
            number("Iterations", iterations),
        },
        result);
}
