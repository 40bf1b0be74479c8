// Parameter record of the band-math plug-in "UtilityOperBand", fields in the order the entry fills them.
#pragma once

#include "../algorithm_interface.h"

#include <QString>
#include <QStringList>
#include <vector>

#pragma GCC visibility push(default)

struct stBandComputeInfo
{
    QString expression;      // the formula, parsed again by the plug-in
    QStringList imageList;   // one input path per band operand, in ascending operand number
    std::vector<int> bandList; // 1-based band numbers, one per band operand
    QString outputFile;
    QString format;          // GDAL driver name derived from the output suffix
    QString description;     // "Band Math"
    int dataType = 1;        // output pixel type, GDAL numbering: 1 Byte ... 7 Float64
};

#pragma GCC visibility pop
