// Fuzz target: bytes read as a COSAR file's burst headers and as a TerraSAR-X level-1 XML annotation.
#include "fuzz_support.h"
#include "tsx_product.h"

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzzsupport::setUpProcess(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    try
    {
        const auto bursts = sargeo::readCosarBursts(static_cast<long long>(size), [&](long long at, size_t n, unsigned char* to) {
            if (at < 0 || size_t(at) + n > size)
                return false;
            std::memcpy(to, data + at, n);
            return true;
        });
        long long end = 0;
        for (const sargeo::CosarBurst& b : bursts)
        {
            // Every burst lies inside the file and holds its lines.
            if (b.offset != end || b.offset + b.burstBytes > (long long)size ||
                (long long)(b.azimuthSamples + 4) * b.lineBytes != b.burstBytes)
                __builtin_trap();
            end = b.offset + b.burstBytes;
        }
    }
    catch (const std::runtime_error&)
    {
    }
    try
    {
        sargeo::readTsxProduct(std::string(reinterpret_cast<const char*>(data), size));
    }
    catch (const std::runtime_error&)
    {
    }
    return 0;
}
