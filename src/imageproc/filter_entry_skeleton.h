// The skeleton that the eight filter entries share: format from the input suffix, opening the input, the band
// selection, the record hand-off to the filter plug-in.
#pragma once

#include "AlgoFactory.h"
#include "algorithm_interface.h"

#include <QString>
#include <functional>
#include <vector>

namespace algofactory
{

// What differs between the filter entries besides their own checks and records.
struct FilterEntryTraits
{
    const char* algorithm;      // name handed to the runner
    const char* plugin;         // plug-in library
    const char* noBandMessage;  // printed when the selection leaves no band (and for an image without bands)
};

extern const char* const kNoBandMessage;      // "Input band number cannot be NULL!"
extern const char* const kSelectBandsMessage; // "Select Bands is Error!"
extern const char* const kIncorrectParameters; // "Incorrect Parameters!"

// The input as the plug-in record needs it.
struct FilterInput
{
    QString inputFile;
    QString outputFile;
    QString format;
    std::vector<int> bands; // zero-based, ascending, unique
};

// Prints a check message as the filter entries do: formatted printing, no prefix, no line end.
void printFilterMessage(const char* text);

// Mode 0-6, read as an unsigned value so that negatives fail.
inline bool filterModeValid(int mode)
{
    return unsigned(mode) <= 6u;
}

// Odd kernel size between 3 and 33.
inline bool filterKernelSizeValid(long n)
{
    return n >= 3 && n <= 33 && n % 2 == 1;
}

// Output format from a path suffix: "tif"/"tiff" GTiff, "img" HFA, any other suffix ENVI (case-insensitive);
// empty for a path without a dot.
QString formatFromSuffix(const QString& path);

// Zero-based indices of the bands 1..bandCount whose decimal text is an item of the "|"-separated selection.
std::vector<int> selectedBandIndices(const QString& selection, int bandCount);

// Opens the input, checks the band selection, then `afterBands` (may be empty; prints its own message), builds
// the record with `makeRecord` and runs the plug-in. Prints one message and returns false at the first failure.
bool runFilterEntry(const FilterEntryTraits& traits, const char* inputFile, const char* outputFile, const char* bands,
                    const std::function<bool()>& afterBands,
                    const std::function<AlgoParamHolder(const FilterInput&)>& makeRecord, AlgoResult* result);

} // namespace algofactory
