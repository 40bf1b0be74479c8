// The record of algorithms whose entries pass their arguments through unchanged, keyed by name.
#pragma once

#include "../algorithm_interface.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

#pragma GCC visibility push(default)

// Arguments of a generic entry: the algorithm's name and each argument under its description key
// (texts as QString, numbers as int, qlonglong, float or double), in index order in `keys`.
struct GenericAlgoRecord
{
    QString algoName;
    QStringList keys;
    QVariantMap args;
};

// What a generic plug-in reports back: output key -> path, printed as [OUTPUT] lines by the entry.
struct GenericAlgoResult
{
    QStringList outputKeys;
    QStringList outputValues;
};

#pragma GCC visibility pop
