// The layer-stack entry, which passes its arguments unchanged to the plug-in named after the algorithm.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_LayerStack(const char* inputFiles, const char* outputFile, AlgoResult* result)
{
    return runGenericEntry("LayerStack",
        {
            requiredText("InputFiles", inputFiles),
            outputPath("OutputFile", outputFile),
        },
        result);
}

