// Entries of image processing: filters, clipping, mosaicking, transforms, fusion, correction that pass their arguments unchanged to the plug-in named after the algorithm.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_VYROrtho(const char* inputFile, const char* demFile, const char* rpcFile, const char* gcpFile, const char* outputFile, float resolution, const char* resampleMethod, long blockSize, float defaultHeight, float heightOffset, AlgoResult* result)
{
    return runGenericEntry("VYROrtho",
        {
            requiredText("InputFile", inputFile),
            text("DEMFile", demFile),
            text("RPCFile", rpcFile),
            text("GCPFile", gcpFile),
            outputPath("OutputFile", outputFile),
            number("Resolution", resolution),
            text("ResampleMethod", resampleMethod),
            number("BlockSize", blockSize),
            number("DefaultHeight", defaultHeight),
            number("HeightOffset", heightOffset),
        },
        result);
}

ALGO_API bool ExcuteAlgo_VYRCalibration(const char* inputFile, const char* outputFile, int calibrationType, const char* calibrationFile, AlgoResult* result)
{
    return runGenericEntry("Calibration",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("CalibrationType", calibrationType),
            text("CalibrationFile", calibrationFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_AtmosphericCorrection(int sensorType, const char* inputFile, const char* outputFile, int atmosphereModel, int aerosolModel, float visibility, int month, const char* metaFile, AlgoResult* result)
{
    return runGenericEntry("AtmosphericCorrection",
        {
            number("SensorType", sensorType),
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("AtmosphereModel", atmosphereModel),
            number("AerosolModel", aerosolModel),
            number("Visibility", visibility),
            number("Month", month),
            requiredText("MetaFile", metaFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_VYRMatch(const char* referenceFile, const char* inputFile, const char* outputFile, const char* matchMethod, const char* demFile, const char* gcpFile, double searchRadius, double threshold, int pointCount, AlgoResult* result)
{
    return runGenericEntry("VYRMatch",
        {
            requiredText("ReferenceFile", referenceFile),
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("MatchMethod", matchMethod),
            text("DEMFile", demFile),
            text("GCPFile", gcpFile),
            number("SearchRadius", searchRadius),
            number("Threshold", threshold),
            number("PointCount", pointCount),
        },
        result);
}

ALGO_API bool ExcuteAlgo_PansharpFuseAlg(const char* panFile, const char* multiFile, const char* outputFile, int method, AlgoResult* result)
{
    return runGenericEntry("PansharpFuseAlg",
        {
            requiredText("PanFile", panFile),
            requiredText("MultiFile", multiFile),
            outputPath("OutputFile", outputFile),
            number("Method", method),
        },
        result);
}

ALGO_API bool ExcuteAlgo_PansharpFuseAlgPCA(const char* panFile, const char* multiFile, const char* outputFile, int resampleMethod, const char* bands, AlgoResult* result)
{
    return runGenericEntry("PansharpFusePCA",
        {
            requiredText("PanFile", panFile),
            requiredText("MultiFile", multiFile),
            outputPath("OutputFile", outputFile),
            number("ResampleMethod", resampleMethod),
            text("Bands", bands),
        },
        result);
}

ALGO_API bool ExcuteAlgo_Fusionalgo(const char* panFile, const char* multiFile, const char* outputFile, int resampleMethod, const char* bands, AlgoResult* result)
{
    return runGenericEntry("FusionalgoCNS",
        {
            requiredText("PanFile", panFile),
            requiredText("MultiFile", multiFile),
            outputPath("OutputFile", outputFile),
            number("ResampleMethod", resampleMethod),
            text("Bands", bands),
        },
        result);
}

ALGO_API bool ExcuteAlgo_FusionalgoSFIM(const char* panFile, const char* multiFile, const char* outputFile, int resampleMethod, const char* bands, AlgoResult* result)
{
    return runGenericEntry("FusionalgoSFIM",
        {
            requiredText("PanFile", panFile),
            requiredText("MultiFile", multiFile),
            outputPath("OutputFile", outputFile),
            number("ResampleMethod", resampleMethod),
            text("Bands", bands),
        },
        result);
}

ALGO_API bool ExcuteAlgo_VYRAtmCorr(const char* inputFile, const char* metaFile, const char* outputFile, int sensorType, int atmosphereModel, int aerosolModel, int month, int day, AlgoResult* result)
{
    return runGenericEntry("VYRAtmCorr",
        {
            requiredText("InputFile", inputFile),
            requiredText("MetaFile", metaFile),
            outputPath("OutputFile", outputFile),
            number("SensorType", sensorType),
            number("AtmosphereModel", atmosphereModel),
            number("AerosolModel", aerosolModel),
            number("Month", month),
            number("Day", day),
        },
        result);
}

ALGO_API bool ExcuteAlgo_BuildGLT(const char* inputFile, const char* latFile, const char* lonFile, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("BuildGLT",
        {
            requiredText("InputFile", inputFile),
            text("LatFile", latFile),
            text("LonFile", lonFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_UsingGlt(const char* inputFile, const char* gltFile, const char* outputFile, const char* bands, int resampleMethod, AlgoResult* result)
{
    return runGenericEntry("UsingGlt",
        {
            requiredText("InputFile", inputFile),
            requiredText("GltFile", gltFile),
            outputPath("OutputFile", outputFile),
            text("Bands", bands),
            number("ResampleMethod", resampleMethod),
        },
        result);
}
