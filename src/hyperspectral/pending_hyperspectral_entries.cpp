// Entries of hyperspectral analysis in their generic form until their own checks and records are written;
// each moves to a file of its own when it gets them.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_HyspecPrePro(const char* inputFile, const char* outputFile, const char* formatFile, AlgoResult* result)
{
    return runGenericEntry("HyspecPrePro",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            requiredText("FormatFile", formatFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_GF5PreProcessing(const char* inputFile, int dropOverlap, int dropAbsorption, const char* outputDir, const char* outputSuffix, AlgoResult* result)
{
    return runGenericEntry("GF5PreProcessing",
        {
            requiredText("InputFile", inputFile),
            number("DropOverlap", dropOverlap),
            number("DropAbsorption", dropAbsorption),
            text("OutputDir", outputDir),
            text("OutputSuffix", outputSuffix),
        },
        result);
}

ALGO_API bool ExcuteAlgo_HypGF5RadiometricCalibrate(const char* inputFile, const char* calibrationFile, const char* spectralResponseFile, const char* metaFile, int calibrationType, int scaleFlag, int unitFlag, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("HypGF5RadiometricCalibrate",
        {
            requiredText("InputFile", inputFile),
            text("CalibrationFile", calibrationFile),
            text("SpectralResponseFile", spectralResponseFile),
            text("MetaFile", metaFile),
            number("CalibrationType", calibrationType),
            number("ScaleFlag", scaleFlag),
            number("UnitFlag", unitFlag),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_NoiseEstimation(const char* inputFile, const char* outputDir, double ratio, AlgoResult* result)
{
    return runGenericEntry("NoiseEstimation",
        {
            requiredText("InputFile", inputFile),
            text("OutputDir", outputDir),
            number("Ratio", ratio),
        },
        result);
}

ALGO_API bool ExcuteAlgo_HysSharpness(const char* inputFile, const char* region, const char* bands, double outputDir, const char* chartType, AlgoResult* result)
{
    return runGenericEntry("HysSharpness",
        {
            requiredText("InputFile", inputFile),
            text("Region", region),
            text("Bands", bands),
            number("OutputDir", outputDir),
            text("ChartType", chartType),
        },
        result);
}

ALGO_API bool ExcuteAlgo_InformationEntropy(const char* inputFile, const char* region, const char* bands, const char* outputDir, AlgoResult* result)
{
    return runGenericEntry("InformationEntropy",
        {
            requiredText("InputFile", inputFile),
            text("Region", region),
            text("Bands", bands),
            text("OutputDir", outputDir),
        },
        result);
}

ALGO_API bool ExcuteAlgo_StatisticalAnalysis(const char* inputFile, const char* region, const char* bands, AlgoResult* result)
{
    return runGenericEntry("StatisticalAnalysis",
        {
            requiredText("InputFile", inputFile),
            text("Region", region),
            text("Bands", bands),
        },
        result);
}
