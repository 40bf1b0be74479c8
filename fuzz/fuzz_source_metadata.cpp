// Fuzz target: a source product's metadata XML read for its identity, and the band-selection text of the band
// combination tools (the first line of the input).
#include "band_groups.h"
#include "source_metadata.h"

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray text(reinterpret_cast<const char*>(data), int(size));
    const datautil::SourceMetadata read = datautil::readSourceMetadata(text);
    // Either parsed with a root and non-empty fields, or refused with a reason and nothing else.
    if (read.parsed != read.error.isEmpty() || (read.parsed && read.rootName.isEmpty()))
        __builtin_trap();
    for (const auto& field : read.fields)
        if (field.second.isEmpty() || field.second != field.second.trimmed())
            __builtin_trap();

    const std::string firstLine = text.left(text.indexOf('\n')).toStdString();
    const datautil::BandGroups groups = datautil::parseBandGroups(firstLine);
    if (!groups.error.empty() && !groups.groups.empty())
        __builtin_trap();
    for (size_t input = 0; input <= groups.groups.size(); ++input)
    {
        int bad = 0;
        for (int band : datautil::bandsOfInput(groups, input, 7, &bad))
            if (band < 1 || band > 7)
                __builtin_trap();
    }
    return 0;
}
