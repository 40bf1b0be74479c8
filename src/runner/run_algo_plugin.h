// The one routine through which entries run an algorithm plug-in.
#pragma once

#include "AlgoFactory.h"
#include "algorithm_interface.h"

#include <QString>

// The runner is exported (default visibility) for in-process hosts and the tests.
#define ALGO_RUNNER_API __attribute__((visibility("default")))

// Per-call state bound to the plug-in's progress signal; lives on the entry's stack for the run.
struct AlgoRunContext
{
    AlgoResult* result = nullptr;
};

// Loads plug-in `libraryName`, runs it on the record in *params and leaves its result object
// (or nothing) in *params. Writes code and message into *result after the run. Returns what the
// plug-in's Execute returned; false when the plug-in cannot be loaded or created.
ALGO_RUNNER_API bool RunAlgoPlugin(AlgoRunContext* context, const QString& libraryName, AlgoParamHolder* params, AlgoResult* result,
                   QString algoName);

// The file the runner loads for a plug-in name: lib<Name>.so beside libAlgoFactory.so or in the
// application directory when present there, otherwise the bare name for the system's search.
ALGO_RUNNER_API QString PluginFilePath(const QString& libraryName);

// Copies text into the record's message room, NUL-terminated, cut at a UTF-8 character boundary.
ALGO_RUNNER_API void WriteResultMessage(AlgoResult* result, const QByteArray& text);
