// Entries of image catalogue and data management in their generic form until their own checks and records are written;
// each moves to a file of its own when it gets them.
#include "generic_entry.h"

using namespace algofactory;

ALGO_API bool ExcuteAlgo_Decompress(const char* jsonText)
{
    return runGenericJsonEntry("Decompress", jsonText, {}, {});
}

ALGO_API bool ExcuteAlgo_CreateThumb(const char* jsonText)
{
    return runGenericJsonEntry("CreateThumb", jsonText, {}, {});
}
