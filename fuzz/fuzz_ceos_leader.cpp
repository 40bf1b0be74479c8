// Fuzz target: bytes read as a CEOS leader file, as an image file descriptor and as a signal data record prefix.
#include "ceos_reader.h"
#include "fuzz_support.h"

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
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    try
    {
        const sargeo::CeosLeader leader = sargeo::readCeosLeader(bytes);
        if (leader.vectors.size() > 1000)
            __builtin_trap();
    }
    catch (const std::runtime_error&)
    {
    }
    try
    {
        const sargeo::CeosImageDescriptor d = sargeo::readCeosImageDescriptor(bytes);
        if (d.recordLength < d.prefixBytes + d.dataBytes || d.bytesPerPixel() <= 0)
            __builtin_trap();
    }
    catch (const std::runtime_error&)
    {
    }
    try
    {
        sargeo::readCeosLinePrefix(data, size);
    }
    catch (const std::runtime_error&)
    {
    }
    return 0;
}
