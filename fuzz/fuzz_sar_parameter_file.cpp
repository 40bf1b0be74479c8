// Fuzz target: the SAR parameter file reader on arbitrary file contents; a round trip through the writer
// for every file it accepts.
#include "fuzz_support.h"
#include "sar_parameter_file.h"

#include <boost/property_tree/ptree.hpp>

#include <cstdint>
#include <exception>
#include <memory>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzzsupport::setUpProcess(argc, argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = fuzzsupport::writeInput("parameters.xml", data, size);
    auto record = std::make_unique<SarParameterRecord>();
    bool read = false;
    try
    {
        read = ReadSarParameterFile(path.toLocal8Bit().constData(), *record);
    }
    catch (const boost::property_tree::ptree_error&)
    {
        return 0; // the reader's documented way of refusing a file that does not parse
    }
    if (!read)
        return 0;
    if (record->numStateVectors < 0 || record->numStateVectors > kMaxStateVectors)
        __builtin_trap();
    const QString copy = fuzzsupport::workFolder() + QStringLiteral("/copy.xml");
    WriteSarParameterFile(copy, *record);
    return 0;
}
