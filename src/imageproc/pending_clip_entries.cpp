// Entries of image processing: filters, clipping, mosaicking, transforms, fusion, correction in their generic form until their own checks and records are written;
// each moves to a file of its own when it gets them.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_ImageClip(const char* inputFile, long x0, long x1, long y0, long y1, const char* clipRange, const char* fieldName, const char* fieldValue, const char* shpFile, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("ImageClip",
        {
            requiredText("InputFile", inputFile),
            number("X0", x0),
            number("X1", x1),
            number("Y0", y0),
            number("Y1", y1),
            text("ClipRange", clipRange),
            text("FieldName", fieldName),
            text("FieldValue", fieldValue),
            text("ShpFile", shpFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImageClip_Enhance(const char* inputFile, const char* clipRange, const char* shpFile, const char* fieldName, const char* fieldValue, int bufferPixels, int clipType, const char* outputFile, int enabled, AlgoResult* result)
{
    return runGenericEntry("ImageClip_Enhance",
        {
            requiredText("InputFile", inputFile),
            text("ClipRange", clipRange),
            text("ShpFile", shpFile),
            text("FieldName", fieldName),
            text("FieldValue", fieldValue),
            number("BufferPixels", bufferPixels),
            number("ClipType", clipType),
            outputPath("OutputFile", outputFile),
            number("Enabled", enabled),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImageClip2(const char* inputFile, const char* shpFile, const char* fieldName, int bufferPixels, const char* outputDir, AlgoResult* result)
{
    return runGenericEntry("ImageClip_Coustomize",
        {
            requiredText("InputFile", inputFile),
            requiredText("ShpFile", shpFile),
            text("FieldName", fieldName),
            number("BufferPixels", bufferPixels),
            outputPath("OutputDir", outputDir),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImageMosaicFast(const char* inputFiles, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("FastMosaic",
        {
            requiredText("InputFiles", inputFiles),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImageMosaic(const char* inputFiles, const char* outputFile, const char* maskFile, AlgoResult* result)
{
    return runGenericEntry("ImageMosaic",
        {
            requiredText("InputFiles", inputFiles),
            outputPath("OutputFile", outputFile),
            text("MaskFile", maskFile),
        },
        result);
}
