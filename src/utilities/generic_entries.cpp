// Entries of data utilities and quality inspection that pass their arguments unchanged to the plug-in named after the algorithm.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_DataAutoMagic(const char* inputDir, const char* outputDir, const char* options, AlgoResult* result)
{
    return runGenericEntry("DataAutoMagic",
        {
            requiredText("InputDir", inputDir),
            outputPath("OutputDir", outputDir),
            text("Options", options),
        },
        result);
}

ALGO_API bool ExcuteAlgo_BandCombination(const char* inputFiles, const char* outputFile, const char* bands, int dataType, AlgoResult* result)
{
    return runGenericEntry("BandCombination",
        {
            requiredText("InputFiles", inputFiles),
            outputPath("OutputFile", outputFile),
            text("Bands", bands),
            number("DataType", dataType),
        },
        result);
}

ALGO_API bool ExcuteAlgo_CreateMetaData(const char* inputFile, const char* inputXmlFile, const char* otherKey, const char* otherValue, AlgoResult* result)
{
    return runGenericEntry("CreateMetaData",
        {
            requiredText("InputFile", inputFile),
            requiredText("InputXmlFile", inputXmlFile),
            text("OtherKey", otherKey),
            text("OtherValue", otherValue),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ModifyMetaData(const char* inputFile, const char* inputXmlFile, const char* otherKey, const char* otherValue, AlgoResult* result)
{
    return runGenericEntry("ModifyMetaData",
        {
            requiredText("InputFile", inputFile),
            requiredText("InputXmlFile", inputXmlFile),
            text("OtherKey", otherKey),
            text("OtherValue", otherValue),
        },
        result);
}

ALGO_API bool ExcuteAlgo_CreateMetaDataSynthesis(const char* inputFile, const char* inputXmlFile, const char* outputXmlFile, const char* productType, const char* satellite, const char* sensor, const char* produceTime, const char* producer, const char* otherInfo, AlgoResult* result)
{
    return runGenericEntry("CreateMetaDataSynthesis",
        {
            requiredText("InputFile", inputFile),
            requiredText("InputXmlFile", inputXmlFile),
            outputPath("OutputXmlFile", outputXmlFile),
            text("ProductType", productType),
            text("Satellite", satellite),
            text("Sensor", sensor),
            text("ProduceTime", produceTime),
            text("Producer", producer),
            text("OtherInfo", otherInfo),
        },
        result);
}

ALGO_API bool ExcuteAlgo_BandCombination_LandSat(const char* inputDir, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("BandCombination_LandSat",
        {
            requiredText("InputDir", inputDir),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_RasterToVector(const char* inputFile, int band, AlgoResult* result)
{
    return runGenericEntry("RasterToVector",
        {
            requiredText("InputFile", inputFile),
            number("Band", band),
        },
        result);
}

ALGO_API bool ExcuteAlgo_VectorToRaster(const char* inputFile, int width, int height, int burnValue, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("VectorToRaster",
        {
            requiredText("InputFile", inputFile),
            number("Width", width),
            number("Height", height),
            number("BurnValue", burnValue),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_Clouddetect(const char* inputFile, AlgoResult* result)
{
    return runGenericEntry("CloudDetect",
        {
            requiredText("InputFile", inputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_VectorUnion(const char* inputFile1, const char* inputFile2, const char* outputFile, const char* fields, AlgoResult* result)
{
    return runGenericEntry("VectorUnion",
        {
            requiredText("InputFile1", inputFile1),
            requiredText("InputFile2", inputFile2),
            outputPath("OutputFile", outputFile),
            text("Fields", fields),
        },
        result);
}

ALGO_API bool ExcuteAlgo_VectorSmooth(const char* inputFile, double tolerance, double iterations, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("VectorSmooth",
        {
            requiredText("InputFile", inputFile),
            number("Tolerance", tolerance),
            number("Iterations", iterations),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_BadlineInspection(const char* inputFile, const char* reportFile, int threshold, AlgoResult* result)
{
    return runGenericEntry("BadlineInspection",
        {
            requiredText("InputFile", inputFile),
            outputPath("ReportFile", reportFile),
            number("Threshold", threshold),
        },
        result);
}

ALGO_API bool ExcuteAlgo_QualityAtmosCorr(const char* inputFile, const char* referenceFile, const char* reportFile, int option, AlgoResult* result)
{
    return runGenericEntry("QualityAtmosCorr",
        {
            requiredText("InputFile", inputFile),
            text("ReferenceFile", referenceFile),
            outputPath("ReportFile", reportFile),
            number("Option", option),
        },
        result);
}

ALGO_API bool ExcuteAlgo_QualityInspection(const char* inputFile, const char* referenceFile, const char* reportFile, int option, AlgoResult* result)
{
    return runGenericEntry("QualityInspection",
        {
            requiredText("InputFile", inputFile),
            text("ReferenceFile", referenceFile), // optional: without it the report has no comparison
            outputPath("ReportFile", reportFile),
            number("Option", option),
        },
        result);
}

ALGO_API bool ExcuteAlgo_Sen2DataTransform2(const char* inputFile, const char* outputFile, const char* bands, int resolution, double scale, int option, AlgoResult* result)
{
    return runGenericEntry("Sen2DataTransform2",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("Bands", bands),
            number("Resolution", resolution),
            number("Scale", scale),
            number("Option", option),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ThinCloudRemove(const char* inputFile, const char* outputFile, int method, AlgoResult* result)
{
    return runGenericEntry("ThinCloudRemove",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("Method", method),
        },
        result);
}

ALGO_API bool ExcuteAlgo_BandTransform(const char* inputFile, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("BandTransform",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_swbhjc(const char* inputFile, const char* referenceFile, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("swbhjc",
        {
            requiredText("InputFile", inputFile),
            requiredText("ReferenceFile", referenceFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_BandCombination2(const char* inputFiles, const char* outputFile, const char* bands, AlgoResult* result)
{
    return runGenericEntry("BandCombination2",
        {
            requiredText("InputFiles", inputFiles),
            outputPath("OutputFile", outputFile),
            text("Bands", bands),
        },
        result);
}

ALGO_API bool ExcuteAlgo_BufferAnalyse(const char* inputFile, const char* outputFile, double distance, AlgoResult* result)
{
    return runGenericEntry("BufferAnalyse",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("Distance", distance),
        },
        result);
}

ALGO_API bool ExcuteAlgo_RenderRaster(const char* inputFile, const char* outputFile, const char* bands, AlgoResult* result)
{
    return runGenericEntry("RenderRaster",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("Bands", bands),
        },
        result);
}
