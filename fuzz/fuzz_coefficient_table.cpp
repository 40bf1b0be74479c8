// Fuzz target: a plain coefficient table turned into per-sensor band rows and scene settings.
#include "coefficient_table.h"

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    try
    {
        const optical::CoefficientTable table = optical::parseCoefficientTable(text);
        if (table.rows.empty())
            __builtin_trap();
        for (const std::string& sensor : table.sensors())
            if (table.bandsOf(sensor).empty())
                __builtin_trap();
    }
    catch (const optical::ProductError&)
    {
        // the reader's way of naming the line it could not use
    }
    return 0;
}
