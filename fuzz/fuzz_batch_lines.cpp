// Fuzz target: batch files through the line reader, the reference substitution and the report reader.
#include "batch_file.h"
#include "batch_report.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray text(reinterpret_cast<const char*>(data), int(size));
    std::vector<cli::BatchLine> lines = cli::parseBatch(text);
    for (cli::BatchLine& line : lines)
    {
        // Every dependency names a line of the batch; once resolved, no reference is left in a line's texts.
        for (int d : line.dependencies)
            if (d < 0 || size_t(d) >= lines.size())
                __builtin_trap();
        if (!line.error.isEmpty())
            continue;
        cli::resolveLine(&line, [](const cli::BatchReference& r) { return r.id + QStringLiteral("/") + r.key; });
        for (const QString& arg : line.args)
            if (!cli::referencesIn(arg).empty())
                __builtin_trap();
    }
    for (const QByteArray& row : text.split('\n'))
    {
        cli::ReportEntry entry;
        if (cli::parseReportLine(row, &entry))
        {
            // What was read writes back as one line that reads the same.
            cli::ReportEntry again;
            const QByteArray written = cli::reportLine(entry);
            if (written.count('\n') != 1 || !cli::parseReportLine(written, &again) || again.id != entry.id)
                __builtin_trap();
        }
    }
    return 0;
}
