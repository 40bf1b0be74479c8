// Entries of radar import and geometry (Sentinel-1, ALOS PALSAR, TerraSAR-X imports; crop, ground range, RPC,
// geocoding, terrain flattening, GF-3 footprints): the radar form of the generic entry, whose plug-ins check their
// own arguments; a plug-in's refusal or failure is also printed as the pattern's "[ERROR] " line.
#include "generic_entry.h"
#include "output_protocol.h"

#include <cstring>

using namespace algofactory;

namespace
{

// The caller's progress callback is kept; the plug-in's message is read back to print it.
bool runRadarEntry(const char* algoName, std::initializer_list<GenericArg> args, AlgoResult* result)
{
    AlgoResult local{};
    AlgoResult* used = result ? result : &local;
    const int32_t savedCode = used->code;
    char savedMessage[sizeof used->message];
    std::memcpy(savedMessage, used->message, sizeof savedMessage);
    used->code = 0;
    used->message[0] = '\0';
    const bool ok = runRadarGenericEntry(algoName, args, used);
    if (!ok && used->message[0] != '\0')
        printError(QString::fromLocal8Bit(used->message));
    else if (!ok && used->code == 0)
    {
        // Refused before the run (an empty argument): the record stays as the caller left it.
        used->code = savedCode;
        std::memcpy(used->message, savedMessage, sizeof savedMessage);
    }
    return ok;
}

} // namespace

ALGO_API bool ExcuteAlgo_S1_TOPS_SLCDataImport(const char* inputFile, const char* outputDir, const char* swath, const char* polarization, AlgoResult* result)
{
    return runRadarEntry("S1_TOPS_SLCDataImport",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputDir", outputDir),
            text("Swath", swath),
            text("Polarization", polarization),
        },
        result);
}

ALGO_API bool ExcuteAlgo_PALSAR1_SLCDataImport(const char* inputDir, const char* outputDir, AlgoResult* result)
{
    return runRadarEntry("PALSAR1_SLCDataImport",
        {
            requiredText("InputDir", inputDir),
            outputPath("OutputDir", outputDir),
        },
        result);
}

ALGO_API bool ExcuteAlgo_PALSAR2_SLCDataImport(const char* inputDir, const char* outputDir, AlgoResult* result)
{
    return runRadarEntry("PALSAR2_SLCDataImport",
        {
            requiredText("InputDir", inputDir),
            outputPath("OutputDir", outputDir),
        },
        result);
}

ALGO_API bool ExcuteAlgo_InSAR_TSX_SLCImport(const char* xmlFile, const char* outputFile, AlgoResult* result)
{
    return runRadarEntry("InSAR_TSX_SLCImport",
        {
            requiredText("XmlFile", xmlFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_InSAR_SingleImageCrop(const char* inputFile, const char* outputFile, const char* region, AlgoResult* result)
{
    return runRadarEntry("InSAR_SingleImageCrop",
        {
            requiredText("InputFile", inputFile),
            outputPath("OutputFile", outputFile),
            text("Region", region),
        },
        result);
}

ALGO_API bool ExcuteAlgo_InSAR_Slant2Ground(const char* inputFile, const char* parameterFile, const char* outputFile, AlgoResult* result)
{
    return runRadarEntry("InSAR_Slant2Ground",
        {
            requiredText("InputFile", inputFile),
            requiredText("ParameterFile", parameterFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_Batch_S1_GRD_FastOrthoCorrection(const char* inputFiles, const char* demFile, const char* outputDir, double resolution, AlgoResult* result)
{
    return runRadarEntry("Batch_S1_GRD_FastOrthoCorrection",
        {
            requiredText("InputFiles", inputFiles),
            text("DEMFile", demFile),
            outputPath("OutputDir", outputDir),
            number("Resolution", resolution),
        },
        result);
}

ALGO_API bool ExcuteAlgo_Batch_SARGeocode(const char* inputFiles, const char* demFile, const char* outputDir, double resolution, AlgoResult* result)
{
    return runRadarEntry("Batch_SARGeocode",
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
    return runRadarEntry("GF3_ContourShp",
        {
            requiredText("MetaXmlFile", metaXmlFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_RD_GenerateRPC(const char* inputFile, const char* parameterFile, const char* outputFile, AlgoResult* result)
{
    return runRadarEntry("RD_GenerateRPC",
        {
            requiredText("InputFile", inputFile),
            requiredText("ParameterFile", parameterFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}

ALGO_API bool ExcuteAlgo_TerrainRadiometricCorrection(const char* inputFile, const char* demFile, const char* outputFile, AlgoResult* result)
{
    return runRadarEntry("TerrainRadiometricCorrection",
        {
            requiredText("InputFile", inputFile),
            requiredText("DEMFile", demFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}
