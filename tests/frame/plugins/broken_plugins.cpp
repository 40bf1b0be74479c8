// Plug-ins that cannot run: one whose factory returns nothing (built with ALGO_NULL_FACTORY), one without a factory.
#include "algorithm_interface.h"

#ifdef ALGO_NULL_FACTORY
extern "C" __attribute__((visibility("default"))) IAlgorithm* GetAlgoObj(QString)
{
    return nullptr;
}
#else
extern "C" __attribute__((visibility("default"))) int NotTheFactory()
{
    return 0;
}
#endif
