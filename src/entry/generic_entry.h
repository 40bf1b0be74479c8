// The generic form of an entry: check required paths, pass the arguments by key to the plug-in
// named after the algorithm, report its outputs.
#pragma once

#include "AlgoFactory.h"

#include <QStringList>
#include <QVariant>
#include <initializer_list>

namespace algofactory
{

struct GenericArg
{
    enum class Role
    {
        Plain,
        Required,   // must be non-empty
        OutputPath  // must be non-empty; printed as an [OUTPUT] line after a successful run
    };
    const char* key;
    QVariant value;
    Role role;
};

GenericArg text(const char* key, const char* value);
GenericArg requiredText(const char* key, const char* value);
GenericArg outputPath(const char* key, const char* value);
GenericArg number(const char* key, int value);
GenericArg number(const char* key, long value);
GenericArg number(const char* key, float value);
GenericArg number(const char* key, double value);

// Runs plug-in `algoName` on a GenericAlgoRecord of the arguments; prints "[ERROR] " + a message
// and returns false when a required text is empty.
bool runGenericEntry(const char* algoName, std::initializer_list<GenericArg> args, AlgoResult* result);

// The radar form (the pattern of the polarimetric entries): an empty required text gives one "[ERROR] " line
// and false; once the checks pass, "Judge the rationality of input paramenters sucessfully"; after a
// successful run only the [OUTPUT] lines the plug-in hands back (by convention one `<Name>_images` line
// listing what it wrote, "|"-separated), not the output paths of the arguments.
bool runRadarGenericEntry(const char* algoName, std::initializer_list<GenericArg> args, AlgoResult* result);

// The same for entries that take the JSON object text itself: every member becomes an argument. `result`, when
// given, receives the plug-in's code and message (these entries have no AlgoResult of their own).
bool runGenericJsonEntry(const char* algoName, const char* jsonText, const QStringList& requiredKeys,
                         const QStringList& outputKeys, AlgoResult* result = nullptr);

} // namespace algofactory
