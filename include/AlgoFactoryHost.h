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

/* Receives text the library prints on standard output: length bytes (not NUL-terminated), in the
   local 8-bit encoding, in the order printed; lines may arrive in several pieces. */
typedef void (*AlgoOutputCallback)(const char* text, size_t length, void* userData);

/* Sends what the library prints on standard output from the calling thread (std::cout and C stdio
   alike) to callback instead, until called again; a null callback restores standard output. Other
   threads are unaffected, so concurrent calls on different threads each receive their own text.
   Text printed by worker threads that a plug-in starts still goes to standard output. */
ALGO_API void AlgoFactory_SetThreadOutput(AlgoOutputCallback callback, void* userData);

/* Makes dir the application folder the library finds its descriptions ("/../Model/abd") and data
   files from, for hosts whose executable lives elsewhere (an interpreter, a GIS); null or empty
   restores the executable's folder. Call it before the first algorithm runs. */
ALGO_API void AlgoFactory_SetApplicationDir(const char* dir);

/* Makes the Qt application object that charts and pictures need (off screen without a display) when
   the host has none: for hosts that are not Qt programs, such as an interpreter. Call it once, from
   the host's main thread, before the first algorithm runs. Returns true when a GUI application exists
   afterwards (false when the host already made a non-GUI one). */
ALGO_API bool AlgoFactory_StartApplication(void);

#endif
