// Entries of image catalogue and data management that pass their arguments unchanged to the plug-in named after the algorithm.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_VYROrthoDowndoad(const char* url, const char* outputDir, AlgoResult* result)
{
    return runGenericEntry("VYROrthoDowndoad",
        {
            requiredText("Url", url),
            outputPath("OutputDir", outputDir),
        },
        result);
}

ALGO_API bool ExcuteAlgo_GetImgEnv(const char* jsonText)
{
    return runGenericJsonEntry("GetImgEnv", jsonText, {"InputFile"}, {});
}

ALGO_API bool ExcuteAlgo_CreateImgIndex(const char* jsonText)
{
    return runGenericJsonEntry("CreateImgIndex", jsonText, {"InputFiles", "OutputFile"}, {"OutputFile"});
}

ALGO_API bool ExcuteAlgo_FilterImg(const char* jsonText)
{
    return runGenericJsonEntry("FilterImg", jsonText, {"InputFiles"}, {});
}

ALGO_API bool ExcuteAlgo_GetIndexInfo(const char* jsonText)
{
    return runGenericJsonEntry("GetIndexInfo", jsonText, {"IndexFile"}, {});
}

ALGO_API bool ExcuteAlgo_UploadAlgo(const char* jsonText)
{
    return runGenericJsonEntry("UploadAlgo", jsonText, {"InputFile"}, {});
}

ALGO_API bool ExcuteAlgo_ExporttoTaIReport(const char* jsonText)
{
    return runGenericJsonEntry("ExportReport", jsonText, {"InputFiles", "report_html"}, {"report_html"});
}
