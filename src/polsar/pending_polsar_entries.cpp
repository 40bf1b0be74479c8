// Entries of polarimetric and radar analysis in their generic form until their own checks and records are written;
// each moves to a file of its own when it gets them.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_PolSAR_Decomposition(const char* inputDir, const char* outputDir, const char* method, int windowSize, AlgoResult* result)
{
    return runGenericEntry("PolSAR_Decomposition",
        {
            requiredText("InputDir", inputDir),
            outputPath("OutputDir", outputDir),
            text("Method", method),
            number("WindowSize", windowSize),
        },
        result);
}

ALGO_API bool ExcuteAlgo_PolSAR_HAAlphaClassification(const char* entropyFile, const char* anisotropyFile, const char* alphaFile, const char* lambdaFile, const char* method, const char* outputDir, AlgoResult* result)
{
    return runGenericEntry("PolSAR_HAAlphaClassification",
        {
            requiredText("EntropyFile", entropyFile),
            requiredText("AnisotropyFile", anisotropyFile),
            requiredText("AlphaFile", alphaFile),
            requiredText("LambdaFile", lambdaFile),
            text("Method", method),
            text("OutputDir", outputDir),
        },
        result);
}
