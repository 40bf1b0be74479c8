// Entries of polarimetric and radar analysis that pass their arguments unchanged to the plug-in named after the algorithm.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_InSAR_SingleImageCrop(const char* inputFile, const char* outputFile, const char* region, AlgoResult* result)
{
    return runGenericEntry("InSAR_SingleImageCrop",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("Region", region),
        },
        result);
}

ALGO_API bool ExcuteAlgo_InSAR_Slant2Ground(const char* inputFile, const char* parameterFile, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("InSAR_Slant2Ground",
        {
            requiredText("InputFile", inputFile),
            requiredText("ParameterFile", parameterFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_Batch_S1_GRD_FastOrthoCorrection(const char* inputFiles, const char* demFile, const char* outputDir, double resolution, AlgoResult* result)
{
    return runGenericEntry("Batch_S1_GRD_FastOrthoCorrection",
        {
            requiredText("InputFiles", inputFiles),
            requiredText("DEMFile", demFile),
            outputPath("OutputDir", outputDir),
            number("Resolution", resolution),
        },
        result);
}

ALGO_API bool ExcuteAlgo_Batch_SARGeocode(const char* inputFiles, const char* demFile, const char* outputDir, double resolution, AlgoResult* result)
{
    return runGenericEntry("Batch_SARGeocode",
        {
            requiredText("InputFiles", inputFiles),
            requiredText("DEMFile", demFile),
            outputPath("OutputDir", outputDir),
            number("Resolution", resolution),
        },
        result);
}

ALGO_API bool ExcuteAlgo_GF3_ContourShp(const char* metaXmlFile, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("GF3_ContourShp",
        {
            requiredText("MetaXmlFile", metaXmlFile),
            outputPath("OutputFile", outputFile),
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

ALGO_API bool ExcuteAlgo_RD_GenerateRPC(const char* inputFile, const char* parameterFile, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("RD_GenerateRPC",
        {
            requiredText("InputFile", inputFile),
            requiredText("ParameterFile", parameterFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_TerrainRadiometricCorrection(const char* inputFile, const char* demFile, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("TerrainRadiometricCorrection",
        {
            requiredText("InputFile", inputFile),
            requiredText("DEMFile", demFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}
