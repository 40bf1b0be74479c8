// Entries of radar data import in their generic form until their own checks and records are written;
// each moves to a file of its own when it gets them.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_GF3_Strip_SLCDataImport(const char* metaXmlFile, const char* polarization, const char* prefixType, const char* customName, const char* outputLocation, const char* outputOption, AlgoResult* result)
{
    return runGenericEntry("GF3_Strip_SLCDataImport",
        {
            requiredText("MetaXmlFile", metaXmlFile),
            text("Polarization", polarization),
            text("PrefixType", prefixType),
            text("CustomName", customName),
            text("OutputLocation", outputLocation),
            text("OutputOption", outputOption),
        },
        result);
}

ALGO_API bool ExcuteAlgo_Batch_GF3_Strip_DataImport(const char* inputDir, const char* productLevel, const char* imagingMode, const char* polarization, const char* namingRule, const char* outputDir, const char* outputFormat, AlgoResult* result)
{
    return runGenericEntry("Batch_GF3_Strip_DataImport",
        {
            requiredText("InputDir", inputDir),
            text("ProductLevel", productLevel),
            text("ImagingMode", imagingMode),
            text("Polarization", polarization),
            text("NamingRule", namingRule),
            outputPath("OutputDir", outputDir),
            text("OutputFormat", outputFormat),
        },
        result);
}

ALGO_API bool ExcuteAlgo_InSAR_CSK_SLCImport(const char* h5File, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("InSAR_CSK_SLCImport",
        {
            requiredText("H5File", h5File),
            outputPath("OutputFile", outputFile),
        },
        result);
}
