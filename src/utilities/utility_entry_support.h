// What the raster utility entries share: argument texts and the hand-over of a record to its plug-in.
#pragma once

#include "AlgoFactory.h"
#include "algorithm_interface.h"
#include "run_algo_plugin.h"

#include <QString>

namespace algofactory
{

// A path or text argument (UTF-8); null reads as empty.
inline QString utf8Arg(const char* text)
{
    return QString::fromUtf8(text ? text : "");
}

// Hands `record` to plug-in `library` under algorithm `algoName` and returns the runner's result.
template <typename Record>
bool runUtilityPlugin(const Record& record, const char* library, const char* algoName, AlgoResult* result)
{
    AlgoParamHolder holder = record;
    AlgoRunContext context;
    return RunAlgoPlugin(&context, QString::fromLatin1(library), &holder, result, QString::fromLatin1(algoName));
}

} // namespace algofactory
