// The transform entries as the JSON dispatch table calls them, where the table's parameter list differs from the
// exported signature: the extra table parameters are kept in the record, missing ones take their defaults.
#pragma once

#include "AlgoFactory.h"

namespace algofactory
{

bool pcaForwardFromTable(const char* inputFile, const char* outputFile, const char* statisticsFile, int dataType,
                         int componentCount, int extra1, int extra2, int extra3, AlgoResult* result);
bool rgbToIhsFromTable(const char* inputFile, const char* outputFile, int bandOrder, int extra1, int extra2, int extra3,
                       int extra4, int extra5, AlgoResult* result);
bool ihsToRgbFromTable(const char* inputFile, const char* outputFile, int bandOrder, int extra1, int extra2,
                       AlgoResult* result);

} // namespace algofactory
