/* AlgoFactory host helpers: call any entry by name with its arguments as texts. */
#ifndef ALGOFACTORY_HOST_H
#define ALGOFACTORY_HOST_H

#include "AlgoFactory.h"

/* Calls entry `entryName` (for example "ExcuteAlgo_BandCompute") with argc texts converted to the
   entry's argument kinds (an empty or unparsable number gives 0). A JSON-text entry takes one text.
   Returns the entry's result; false with a message on standard output for an unknown entry or a
   wrong argument count. */
ALGO_API bool AlgoFactory_CallEntry(const char* entryName, int argc, const char* const* argv, AlgoResult* result);

/* Argument kinds of an entry as "text,int,..." ("json" for JSON-text entries); NULL when unknown.
   The text is static. */
ALGO_API const char* AlgoFactory_EntryKinds(const char* entryName);

#endif
