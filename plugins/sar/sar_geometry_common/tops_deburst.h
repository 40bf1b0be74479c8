// Joining the bursts of a TOPS SLC swath into one image: which lines of which burst go where.
#pragma once

#include "s1_annotation.h"

#include <vector>

namespace sargeo
{

// Lines [firstLine, firstLine + lineCount) of burst `burst` (burst-local) become output lines from outputLine on.
struct BurstPiece
{
    int burst = 0;
    int firstLine = 0;
    int lineCount = 0;
    int outputLine = 0;
};

struct DeburstPlan
{
    int lines = 0;
    int samples = 0;
    double firstLineTime = 0.0; // azimuth time of output line 0
    double lineTime = 0.0;
    std::vector<BurstPiece> pieces; // in output order; lines between pieces (gaps) are zero
};

// Each burst keeps its valid lines (firstValidSample not -1); consecutive bursts are cut at the middle of their
// valid overlap, so every output line comes from exactly one burst. Output line times are first burst time +
// (line + first valid line) x azimuthTimeInterval. Throws std::runtime_error for a product without bursts, a
// burst without a valid line, or bursts not in time order.
DeburstPlan planDeburst(const S1Annotation& annotation);

// The valid sample range [first, last] of output line `line` (first > last when none is valid).
void validSamples(const S1Annotation& annotation, const BurstPiece& piece, int lineInPiece, int* first, int* last);

} // namespace sargeo
