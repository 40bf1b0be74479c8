// Entries of image processing: filters, clipping, mosaicking, transforms, fusion, correction in their generic form until their own checks and records are written;
// each moves to a file of its own when it gets them.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_WaveletTransform(const char* inputFile, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("WaveletTransform",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_WaveletInverseTransform(const char* inputFile, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("WaveletInverseTransform",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_DeRelationStretch(const char* inputFile, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("DeRelationStretch",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_MNFTransformFunc(const char* inputFile, const char* outputFile, const char* statisticsFile, AlgoResult* result)
{
    return runGenericEntry("MNFTransform",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("StatisticsFile", statisticsFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_PCATransformFunc(const char* inputFile, const char* outputFile, const char* statisticsFile, int dataType, int componentCount, int useCorrelation, int bands, int region, AlgoResult* result)
{
    return runGenericEntry("PCAForwardTrans",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("StatisticsFile", statisticsFile),
            number("DataType", dataType),
            number("ComponentCount", componentCount),
            number("UseCorrelation", useCorrelation),
            number("Bands", bands),
            number("Region", region),
        },
        result);
}

ALGO_API bool ExcuteAlgo_InvPCATransformFunc(const char* inputFile, const char* outputFile, const char* statisticsFile, int dataType, AlgoResult* result)
{
    return runGenericEntry("PCAInverseTrans",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("StatisticsFile", statisticsFile),
            number("DataType", dataType),
        },
        result);
}

ALGO_API bool ExcuteAlgo_InvMNTransformFunc(const char* inputFile, const char* outputFile, const char* statisticsFile, AlgoResult* result)
{
    return runGenericEntry("InvMNTransform",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("StatisticsFile", statisticsFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_FFTransformFunc(const char* inputFile, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("FFTForwardTrans",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_InvFFTransformFunc(const char* inputFile, const char* outputFile, int dataType, AlgoResult* result)
{
    return runGenericEntry("FFTInverseTrans",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("DataType", dataType),
        },
        result);
}

ALGO_API bool ExcuteAlgo_KTTransformFunc(const char* inputFile, const char* outputFile, int sensorType, AlgoResult* result)
{
    return runGenericEntry("KTTrans",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("SensorType", sensorType),
        },
        result);
}

ALGO_API bool ExcuteAlgo_RGB2IHSTransformFunc(const char* inputFile, const char* outputFile, int redBand, int greenBand, int blueBand, int stretchType, int stretchMin, int stretchMax, AlgoResult* result)
{
    return runGenericEntry("RGB2IHSTrans",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("RedBand", redBand),
            number("GreenBand", greenBand),
            number("BlueBand", blueBand),
            number("StretchType", stretchType),
            number("StretchMin", stretchMin),
            number("StretchMax", stretchMax),
        },
        result);
}

ALGO_API bool ExcuteAlgo_IHS2RGBTransformFunc(const char* inputFile, const char* outputFile, int intensityBand, int hueBand, int saturationBand, AlgoResult* result)
{
    return runGenericEntry("IHS2RGBTrans",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("IntensityBand", intensityBand),
            number("HueBand", hueBand),
            number("SaturationBand", saturationBand),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImgProFiltSpaCom(const char* inputFile, const char* outputFile, int filterType, const char* bands, int mode, AlgoResult* result)
{
    return runGenericEntry("ImgProFiltSpaCom",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("FilterType", filterType),
            text("Bands", bands),
            number("Mode", mode),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImgProFiltSpaMean(const char* inputFile, const char* outputFile, int kernelSize, const char* bands, int mode, AlgoResult* result)
{
    return runGenericEntry("ImgProFiltSpaMean",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("KernelSize", kernelSize),
            text("Bands", bands),
            number("Mode", mode),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImgProFiltSpaMid(const char* inputFile, const char* outputFile, int kernelSize, const char* bands, int mode, int extra, AlgoResult* result)
{
    return runGenericEntry("ImgProFiltSpaMid",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("KernelSize", kernelSize),
            text("Bands", bands),
            number("Mode", mode),
            number("Extra", extra),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImgProFiltSpaDirect(const char* inputFile, const char* outputFile, const char* bands, int mode, int directionType, AlgoResult* result)
{
    return runGenericEntry("ImgProFiltSpaDirect",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("Bands", bands),
            number("Mode", mode),
            number("DirectionType", directionType),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImgProFiltFrequency(const char* inputFile, const char* outputFile, const char* bands, int mode, int filterKind, int passFlag, long cutOff, long segmentPoint, AlgoResult* result)
{
    return runGenericEntry("ImgProFiltFrequency",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("Bands", bands),
            number("Mode", mode),
            number("FilterKind", filterKind),
            number("PassFlag", passFlag),
            number("CutOff", cutOff),
            number("SegmentPoint", segmentPoint),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImgProFiltHomo(const char* inputFile, const char* outputFile, const char* bands, int mode, float gammaHigh, float gammaLow, float cutOff, float sharpness, int extra, AlgoResult* result)
{
    return runGenericEntry("ImgProFiltHomo",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("Bands", bands),
            number("Mode", mode),
            number("GammaHigh", gammaHigh),
            number("GammaLow", gammaLow),
            number("CutOff", cutOff),
            number("Sharpness", sharpness),
            number("Extra", extra),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImgProFiltCustom(const char* inputFile, const char* outputFile, const char* bands, int mode, long kernelSize, const char* kernel, AlgoResult* result)
{
    return runGenericEntry("ImgProFiltCustom",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("Bands", bands),
            number("Mode", mode),
            number("KernelSize", kernelSize),
            text("Kernel", kernel),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImgProFiltDiffSharp(const char* inputFile, const char* outputFile, const char* bands, int mode, int sharpType, AlgoResult* result)
{
    return runGenericEntry("ImgProFiltDiffSharp",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("Bands", bands),
            number("Mode", mode),
            number("SharpType", sharpType),
        },
        result);
}
