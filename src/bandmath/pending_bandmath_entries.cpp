// Entries of band math in their generic form until their own checks and records are written;
// each moves to a file of its own when it gets them.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_BandCompute(const char* calculationExp, const char* images, const char* bands, const char* outputFile, int dataType, AlgoResult* result)
{
    return runGenericEntry("BandCompute",
        {
            text("CalculationExp", calculationExp),
            text("Images", images),
            text("Bands", bands),
            text("OutputFile", outputFile),
            number("dataType", dataType),
        },
        result);
}
