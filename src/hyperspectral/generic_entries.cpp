// Entries of hyperspectral analysis that pass their arguments unchanged to the plug-in named after the algorithm.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_HysOrthorectification(const char* inputFile, const char* demFile, const char* rpcFile, const char* gcpFile, const char* outputFile, const char* resampleMethod, int outputType, double resolution, double defaultHeight, int blockSize, AlgoResult* result)
{
    return runGenericEntry("HysOrthorectification",
        {
            requiredText("InputFile", inputFile),
            text("DEMFile", demFile),
            text("RPCFile", rpcFile),
            text("GCPFile", gcpFile),
            outputPath("OutputFile", outputFile),
            text("ResampleMethod", resampleMethod),
            number("OutputType", outputType),
            number("Resolution", resolution),
            number("DefaultHeight", defaultHeight),
            number("BlockSize", blockSize),
        },
        result);
}

ALGO_API bool ExcuteAlgo_SavitzkyGolayFiltering(const char* inputFile, const char* outputFile, const char* bands, const char* region, int windowSize, int polyOrder, int derivative, AlgoResult* result)
{
    return runGenericEntry("SavitzkyGolayFiltering",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("Bands", bands),
            text("Region", region),
            number("WindowSize", windowSize),
            number("PolyOrder", polyOrder),
            number("Derivative", derivative),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ThresholdSplit(const char* inputFile, int band, double threshold, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("ThresholdSplit",
        {
            requiredText("InputFile", inputFile),
            number("Band", band),
            number("Threshold", threshold),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ContinuumRemoval(const char* inputFile, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("ContinuumRemoval",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_HysSpectralDifferential(const char* inputFile, const char* outputFile, int order, int interval, double scale, AlgoResult* result)
{
    return runGenericEntry("HysSpectralDifferential",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("Order", order),
            number("Interval", interval),
            number("Scale", scale),
        },
        result);
}

ALGO_API bool ExcuteAlgo_VertexComponentAnalysis(const char* inputFile, const char* outputFile, int endmemberCount, AlgoResult* result)
{
    return runGenericEntry("VertexComponentAnalysis",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("EndmemberCount", endmemberCount),
        },
        result);
}

ALGO_API bool ExcuteAlgo_RXAnomalyDetection(const char* inputFile, const char* outputFile, int method, int windowSize, AlgoResult* result)
{
    return runGenericEntry("RXAnomalyDetection",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("Method", method),
            number("WindowSize", windowSize),
        },
        result);
}
