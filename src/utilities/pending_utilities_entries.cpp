// Entries of data utilities and quality inspection in their generic form until their own checks and records are written;
// each moves to a file of its own when it gets them.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_UtilityBitDepthTrans(const char* inputFile, const char* outputFile, int option, double minLimit, double maxLimit, AlgoResult* result)
{
    return runGenericEntry("UtilityBitDepthTrans",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("Option", option),
            number("MinLimit", minLimit),
            number("MaxLimit", maxLimit),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ProjectTrans(const char* inputFile, const char* outputFile, const char* targetSRS, int resampleMethod, AlgoResult* result)
{
    return runGenericEntry("ProjectTrans",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("TargetSRS", targetSRS),
            number("ResampleMethod", resampleMethod),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ProjectDef(const char* inputFile, const char* projectionText, AlgoResult* result)
{
    return runGenericEntry("ProjectDef",
        {
            requiredText("InputFile", inputFile),
            text("ProjectionText", projectionText),
        },
        result);
}

ALGO_API bool ExcuteAlgo_MaskCreation(const char* inputFile, const char* outputFile, const char* attributeFile, const char* flag, AlgoResult* result)
{
    return runGenericEntry("MaskCreation",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            requiredText("AttributeFile", attributeFile),
            text("Flag", flag),
        },
        result);
}

ALGO_API bool ExcuteAlgo_MaskApplication(const char* inputFile, const char* maskFile, const char* outputFile, int maskValue, AlgoResult* result)
{
    return runGenericEntry("MaskApplication",
        {
            requiredText("InputFile", inputFile),
            requiredText("MaskFile", maskFile),
            outputPath("OutputFile", outputFile),
            number("MaskValue", maskValue),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImageResample(const char* inputFile, const char* outputFile, long resampleMethod, int option, long width, AlgoResult* result)
{
    return runGenericEntry("ImageResample",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            number("ResampleMethod", resampleMethod),
            number("Option", option),
            number("Width", width),
        },
        result);
}

ALGO_API bool ExcuteAlgo_ImagePyramidBuild(const char* inputFile, AlgoResult* result)
{
    return runGenericEntry("ImagePyramidBuild",
        {
            requiredText("InputFile", inputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_SetNodata(const char* inputFile, double noDataValue, AlgoResult* result)
{
    return runGenericEntry("SetNodata",
        {
            requiredText("InputFile", inputFile),
            number("NoDataValue", noDataValue),
        },
        result);
}
