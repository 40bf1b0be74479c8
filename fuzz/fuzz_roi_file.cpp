// Fuzz target: the training-region (ROI) file reader of the supervised classifications.
#include "fuzz_support.h"
#include "roi_reader.h"

#include <cstdint>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzzsupport::setUpProcess(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = fuzzsupport::writeInput("regions.xml", data, size);
    std::vector<RoiArea> areas;
    algofactory::ReadRoiAreas(path, areas);
    return 0;
}
