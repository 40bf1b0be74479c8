// Fuzz target: a Landsat MTL text turned into the scene's band coefficients and sun geometry.
#include "landsat_mtl.h"

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    try
    {
        const optical::LandsatMetadata meta = optical::parseLandsatMtl(text);
        if (meta.bands.empty() || meta.bands.size() > 32 || !(meta.sun.elevation >= -90 && meta.sun.elevation <= 90))
            __builtin_trap();
        for (const optical::BandCoefficients& band : meta.bands)
            if (band.id.empty() || (!band.hasRadiance() && !band.hasReflectance()))
                __builtin_trap();
    }
    catch (const optical::ProductError&)
    {
        // the reader's way of saying what the text lacks
    }
    return 0;
}
