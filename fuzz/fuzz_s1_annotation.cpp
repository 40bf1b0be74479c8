// Fuzz target: one text read as a Sentinel-1 product annotation (then debursted), calibration and noise file.
#include "fuzz_support.h"
#include "s1_annotation.h"
#include "tops_deburst.h"

#include <cstdint>
#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzzsupport::setUpProcess(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    try
    {
        const sargeo::S1Annotation annotation = sargeo::readS1Annotation(text);
        if (!annotation.bursts.empty())
        {
            const sargeo::DeburstPlan plan = sargeo::planDeburst(annotation);
            long covered = 0;
            for (const sargeo::BurstPiece& piece : plan.pieces)
            {
                // Every piece lies inside its burst and inside the joined image.
                if (piece.firstLine < 0 || piece.firstLine + piece.lineCount > annotation.linesPerBurst ||
                    piece.outputLine < 0 || piece.outputLine + piece.lineCount > plan.lines)
                    __builtin_trap();
                for (int line = 0; line < piece.lineCount; ++line)
                {
                    int first, last;
                    sargeo::validSamples(annotation, piece, line, &first, &last);
                    if (first < 0 || last >= plan.samples)
                        __builtin_trap();
                }
                covered += piece.lineCount;
            }
            if (covered > plan.lines)
                __builtin_trap();
        }
    }
    catch (const std::runtime_error&)
    {
        // the reader's way of naming what it could not use
    }
    for (int kind = 0; kind < 2; ++kind)
        try
        {
            if (kind == 0)
                sargeo::readS1Calibration(text, 18718);
            else
                sargeo::readS1Noise(text, 18718);
        }
        catch (const std::runtime_error&)
        {
        }
    return 0;
}
