// Fuzz target: a Sentinel-2 product XML (and the same text read as a tile XML) turned into band offsets,
// quantification, image paths and sun angles.
#include "sentinel2_mtd.h"

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    try
    {
        optical::Sentinel2Metadata meta = optical::parseSentinel2ProductXml(text);
        if (meta.bands.size() != 13 || !(meta.quantification > 0))
            __builtin_trap();
        optical::addSentinel2TileXml(text, &meta);
        if (!(meta.sun.elevation >= 0 && meta.sun.elevation <= 90))
            __builtin_trap();
    }
    catch (const optical::ProductError&)
    {
        // the reader's way of saying what the text lacks
    }
    return 0;
}
