// Entries of image catalogue and data management that pass their arguments unchanged to the plug-in named after the algorithm.
#include "generic_entry.h"
#include "output_protocol.h"

using namespace algofactory;

namespace
{

// These entries have no AlgoResult: a plug-in's refusal reaches the host as one "[ERROR] " line.
bool runCatalogueJsonEntry(const char* algoName, const char* jsonText, const QStringList& requiredKeys,
                           const QStringList& outputKeys)
{
    AlgoResult result{};
    const bool ok = runGenericJsonEntry(algoName, jsonText, requiredKeys, outputKeys, &result);
    if (!ok && result.message[0] != 0)
        printError(QString::fromLocal8Bit(result.message));
    return ok;
}

} // namespace

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
    return runCatalogueJsonEntry("GetImgEnv", jsonText, {"InputFile"}, {});
}

ALGO_API bool ExcuteAlgo_CreateImgIndex(const char* jsonText)
{
    return runCatalogueJsonEntry("CreateImgIndex", jsonText, {"InputFiles", "OutputFile"}, {"OutputFile"});
}

ALGO_API bool ExcuteAlgo_FilterImg(const char* jsonText)
{
    return runCatalogueJsonEntry("FilterImg", jsonText, {"InputFiles"}, {});
}

ALGO_API bool ExcuteAlgo_GetIndexInfo(const char* jsonText)
{
    return runCatalogueJsonEntry("GetIndexInfo", jsonText, {"IndexFile"}, {});
}

ALGO_API bool ExcuteAlgo_UploadAlgo(const char* jsonText)
{
    return runCatalogueJsonEntry("UploadAlgo", jsonText, {"InputFile"}, {});
}

ALGO_API bool ExcuteAlgo_ExporttoTaIReport(const char* jsonText)
{
    return runCatalogueJsonEntry("ExportReport", jsonText, {"InputFiles", "report_html"}, {"report_html"});
}
