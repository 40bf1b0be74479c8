// Entries of radar data import that pass their arguments unchanged to the plug-in named after the algorithm.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_S1_TOPS_SLCDataImport(const char* inputFile, const char* outputDir, const char* swath, const char* polarization, AlgoResult* result)
{
    return runRadarGenericEntry("S1_TOPS_SLCDataImport",
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
    return runRadarGenericEntry("PALSAR1_SLCDataImport",
        {
            requiredText("InputDir", inputDir),
            outputPath("OutputDir", outputDir),
        },
        result);
}

ALGO_API bool ExcuteAlgo_PALSAR2_SLCDataImport(const char* inputDir, const char* outputDir, AlgoResult* result)
{
    return runRadarGenericEntry("PALSAR2_SLCDataImport",
        {
            requiredText("InputDir", inputDir),
            outputPath("OutputDir", outputDir),
        },
        result);
}

ALGO_API bool ExcuteAlgo_InSAR_TSX_SLCImport(const char* xmlFile, const char* outputFile, AlgoResult* result)
{
    return runRadarGenericEntry("InSAR_TSX_SLCImport",
        {
            requiredText("XmlFile", xmlFile),
            outputPath("OutputFile", outputFile),
        },
        result);
}
