// The host's commands: list the descriptions, run an algorithm from JSON, call an entry directly.
#include "commands.h"

#include "AlgoFactory.h"
#include "AlgoFactoryHost.h"
#include "output_watch.h"
#include "plugin_metadata.h"
#include "progress_display.h"
#include "sys_utility.h"

#include <QFile>
#include <QFileInfo>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <vector>

namespace cli
{

namespace
{

const Plugin::Metadata* descriptions()
{
    return Plugin::Metadata::Instance(SysUtility::ApplicationDirPath() + QStringLiteral("/../Model/abd"));
}

int finish(bool ok, const AlgoResult& result, OutputWatch& output)
{
    output.stop();
    finishProgress();
    if (ok)
        return kExitSuccess;
    // A message without a line end by design stays as it is; the host's line starts on a line of its own.
    if (output.endsMidLine())
        std::fputc('\n', stderr);
    if (result.code != 0 || result.message[0] != '\0')
        std::fprintf(stderr, "algofactory: failed with code %d: %s\n", result.code, result.message);
    else
        std::fprintf(stderr, "algofactory: failed\n");
    return kExitFailure;
}

AlgoResult freshResult()
{
    AlgoResult result;
    std::memset(&result, 0, sizeof result);
    attachProgress(&result);
    return result;
}

} // namespace

void printUsage(bool toError)
{
    std::FILE* out = toError ? stderr : stdout;
    std::fputs("Usage:\n"
               "  algofactory list [NAME]            algorithms with their parameter keys and kinds\n"
               "  algofactory run NAME PARAMS        run an algorithm; PARAMS is a JSON file or JSON text\n"
               "  algofactory call ENTRY ARG...      call an exported entry (ExcuteAlgo_<Name> or <Name>)\n"
               "                                     with its arguments in order, converted to its kinds\n"
               "  algofactory batch FILE [OPT]...    run a JSON Lines file of calls, one process per line:\n"
               "      --jobs N      lines at a time (default: the number of cores)\n"
               "      --timeout S   time limit of a line in seconds, 0 for none (default 3600)\n"
               "      --report R    JSON Lines report, - for standard output (default FILE.report.jsonl)\n"
               "      --resume R    skip the ids that succeeded in report R (and write the new report there)\n"
               "      --index N     run the call on line N of FILE alone (job arrays)\n"
               "      --quiet       no progress bar and no failure lines on standard error\n"
               "  algofactory --help                 this text\n"
               "Exit status: 0 success, 1 failure, 2 bad usage. Ctrl-C asks the running algorithm to stop.\n",
               out);
}

int listAlgorithms(const QStringList& args)
{
    const Plugin::Metadata* metadata = descriptions();
    const QStringList wanted = args.mid(0, 1);
    for (const QString& problem : metadata->Problems())
        std::fprintf(stderr, "algofactory: description %s\n", problem.toLocal8Bit().constData());
    int shown = 0;
    for (const QString& name : metadata->AlgorithmNames())
    {
        if (!wanted.isEmpty() && name != wanted.first())
            continue;
        const Plugin::AlgoDescription* d = metadata->Find(name);
        std::printf("%s  (%s, %s)\n", name.toLocal8Bit().constData(), d->entry.toLocal8Bit().constData(),
                    d->route.toLocal8Bit().constData());
        if (!d->summary.isEmpty())
            std::printf("    %s\n", d->summary.toLocal8Bit().constData());
        for (int i = 0; i < d->params.size(); ++i)
        {
            const Plugin::ParamDescription& p = d->params[i];
            std::printf("    %2d %-24s %-6s %s\n", i, p.key.toLocal8Bit().constData(), p.kind.toLocal8Bit().constData(),
                        p.meaning.toLocal8Bit().constData());
        }
        ++shown;
    }
    if (!wanted.isEmpty() && shown == 0)
    {
        std::fprintf(stderr, "algofactory: no algorithm named %s\n", wanted.first().toLocal8Bit().constData());
        return kExitFailure;
    }
    return kExitSuccess;
}

int runAlgorithm(const QStringList& args)
{
    if (args.size() != 2)
    {
        printUsage(true);
        return kExitUsage;
    }
    QByteArray json = args[1].toLocal8Bit();
    const QFileInfo paramsFile(args[1]);
    if (!args[1].trimmed().startsWith('{') && paramsFile.isFile())
    {
        QFile file(paramsFile.filePath());
        if (!file.open(QIODevice::ReadOnly))
        {
            std::fprintf(stderr, "algofactory: cannot read %s\n", args[1].toLocal8Bit().constData());
            return kExitUsage;
        }
        json = file.readAll();
    }
    AlgoResult result = freshResult();
    OutputWatch output;
    const bool ok = ExcuteAlgo(args[0].toLocal8Bit().constData(), json.constData(), &result);
    return finish(ok, result, output);
}

int callEntry(const QStringList& args)
{
    if (args.isEmpty())
    {
        printUsage(true);
        return kExitUsage;
    }
    QString entry = args[0];
    if (!entry.startsWith(QLatin1String("ExcuteAlgo_")))
        entry.prepend(QLatin1String("ExcuteAlgo_"));
    const QByteArray entryName = entry.toLocal8Bit();
    const char* kinds = AlgoFactory_EntryKinds(entryName.constData());
    if (!kinds)
    {
        std::fprintf(stderr, "algofactory: no entry named %s\n", entryName.constData());
        return kExitUsage;
    }
    const int expected = std::strcmp(kinds, "json") == 0 ? 1 : QString::fromLatin1(kinds).split(',', Qt::SkipEmptyParts).size();
    if (args.size() - 1 != expected)
    {
        std::fprintf(stderr, "algofactory: %s takes %d argument(s): %s\n", entryName.constData(), expected, kinds);
        if (const Plugin::AlgoDescription* d = descriptions()->FindByEntry(entry))
            for (const Plugin::ParamDescription& p : d->params)
                std::fprintf(stderr, "    %-24s %-6s %s\n", p.key.toLocal8Bit().constData(),
                             p.kind.toLocal8Bit().constData(), p.meaning.toLocal8Bit().constData());
        return kExitUsage;
    }
    std::vector<QByteArray> texts;
    for (int i = 1; i < args.size(); ++i)
        texts.push_back(args[i].toLocal8Bit());
    std::vector<const char*> argv;
    for (const QByteArray& text : texts)
        argv.push_back(text.constData());
    AlgoResult result = freshResult();
    OutputWatch output;
    const bool ok = AlgoFactory_CallEntry(entryName.constData(), int(argv.size()), argv.data(), &result);
    return finish(ok, result, output);
}

} // namespace cli
