// Fuzz target: config.txt of a polarimetric folder, parsed as text, formatted back, and inspected as a folder
// whose element files are missing.
#include "fuzz_support.h"
#include "sar_processing/sar_common/polsar_layout.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzzsupport::setUpProcess(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    sar::PolConfig config;
    if (sar::parsePolConfig(text, config))
    {
        sar::PolConfig again;
        if (!sar::parsePolConfig(sar::formatPolConfig(config), again) || again.rows != config.rows || again.cols != config.cols)
            __builtin_trap();
    }
    const QString path = fuzzsupport::writeInput("config.txt", data, size);
    sar::PolMatrix kind;
    sar::inspectPolFolder(QFile::encodeName(QFileInfo(path).absolutePath()).toStdString(), &kind, &config);
    return 0;
}
