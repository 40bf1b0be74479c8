// Fuzz target: the segment sample table (CSV) that MSS_Sample writes and MSS_TrainModel / MSS_Classify read.
#include "fuzz_support.h"
#include "segment_samples.h"

#include <cstdint>
#include <stdexcept>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzzsupport::setUpProcess(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = fuzzsupport::writeInput("samples.csv", data, size);
    try
    {
        const obia::SampleTable table = obia::readSampleCsv(path);
        // What was read is consistent: one class index per row, every index inside the scheme, whole rows of values.
        if (table.values.size() != size_t(table.rows()) * size_t(table.columns.size()) || table.segments.size() != size_t(table.rows()))
            __builtin_trap();
        for (int c : table.classIndex)
            if (c < 0 || size_t(c) >= table.scheme.codes.size())
                __builtin_trap();
    }
    catch (const std::runtime_error&)
    {
    }
    return 0;
}
