// Fuzz target: the noise text file ("band value" lines) read back for the noise chart.
#include "fuzz_support.h"
#include "hyperspectral_charts.h"

#include <cstdint>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzzsupport::setUpProcess(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = fuzzsupport::writeInput("noise.txt", data, size);
    algofactory::ExportNoiseChart(path, fuzzsupport::workFolder() + QStringLiteral("/noise.png"));
    return 0;
}
