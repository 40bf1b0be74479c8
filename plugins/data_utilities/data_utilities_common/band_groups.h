// The band-selection text of the band-combination tools: one group per input separated by "|", 1-based band
// numbers within a group separated by ",", an empty group (or an empty text) meaning every band.
#pragma once

#include <string>
#include <vector>

namespace datautil
{

struct BandGroups
{
    // One entry per group as written; an empty vector stands for "all bands".
    std::vector<std::vector<int>> groups;
    // Empty when the text parsed; otherwise why it did not (the item that broke it is quoted).
    std::string error;
};

BandGroups parseBandGroups(const std::string& text);

// The 1-based bands chosen of an input of bandCount bands by group index (absent group: all).
// Returns an empty vector when a number lies outside 1..bandCount; *badBand then holds it.
std::vector<int> bandsOfInput(const BandGroups& parsed, size_t input, int bandCount, int* badBand);

} // namespace datautil
