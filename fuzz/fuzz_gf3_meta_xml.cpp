// Fuzz target: a GF-3 product's meta.xml turned into the SAR parameter record of each channel.
#include "fuzz_support.h"
#include "gf3_metadata.h"
#include "plugin_base.h"

#include <cstdint>
#include <memory>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzzsupport::setUpProcess(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = fuzzsupport::writeInput("product.meta.xml", data, size);
    for (const char* channel : {"HH", "VH"})
    {
        try
        {
            auto record = std::make_unique<SarParameterRecord>(sarimport::gf3ParameterRecord(path, channel, 7, 5));
            if (record->numStateVectors < 0 || record->numStateVectors > kMaxStateVectors)
                __builtin_trap();
        }
        catch (const algokit::AlgoError&)
        {
            // the reader's way of naming the file and element it could not use
        }
    }
    return 0;
}
