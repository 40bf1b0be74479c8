// `algofactory batch`: the lines of a batch file on a bounded pool of child processes, with a report.
#include "batch_runner.h"

#include "batch_child.h"
#include "batch_file.h"
#include "batch_report.h"
#include "commands.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <memory>
#include <poll.h>
#include <thread>
#include <unistd.h>

namespace cli
{

namespace
{

struct BatchOptions
{
    QString file;
    QString report;
    QString resume;
    int jobs = 0;
    int index = 0;  // 0: every line
    double timeoutSeconds = 3600;
    bool quiet = false;
};

std::atomic<bool> g_stop{false};

void onStop(int)
{
    g_stop = true;
}

QString hostPath()
{
    char buffer[4096];
    const ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    return n > 0 ? QString::fromLocal8Bit(buffer, int(n)) : QStringLiteral("algofactory");
}

bool parseOptions(const QStringList& args, BatchOptions* options)
{
    for (int i = 0; i < args.size(); ++i)
    {
        const QString& arg = args[i];
        const bool hasValue = i + 1 < args.size();
        bool ok = true;
        if (arg == QLatin1String("--jobs") && hasValue)
            options->jobs = args[++i].toInt(&ok);
        else if (arg == QLatin1String("--index") && hasValue)
            options->index = args[++i].toInt(&ok);
        else if (arg == QLatin1String("--timeout") && hasValue)
            options->timeoutSeconds = args[++i].toDouble(&ok);
        else if (arg == QLatin1String("--report") && hasValue)
            options->report = args[++i];
        else if (arg == QLatin1String("--resume") && hasValue)
            options->resume = args[++i];
        else if (arg == QLatin1String("--quiet"))
            options->quiet = true;
        else if (!arg.startsWith(QLatin1String("--")) && options->file.isEmpty())
            options->file = arg;
        else
        {
            std::fprintf(stderr, "algofactory: batch: unknown or incomplete option %s\n", arg.toLocal8Bit().constData());
            return false;
        }
        if (!ok || options->jobs < 0 || options->index < 0 || options->timeoutSeconds < 0)
        {
            std::fprintf(stderr, "algofactory: batch: %s needs a non-negative number\n", arg.toLocal8Bit().constData());
            return false;
        }
    }
    if (options->file.isEmpty())
    {
        std::fprintf(stderr, "algofactory: batch: no batch file given\n");
        return false;
    }
    if (options->jobs == 0)
        options->jobs = std::max(1, int(std::thread::hardware_concurrency()));
    if (options->report.isEmpty())
        options->report = options->resume.isEmpty() ? options->file + QStringLiteral(".report.jsonl") : options->resume;
    return true;
}

// Files a line names (in its texts, "|"-separated lists included) with their state before it runs: what
// is new or changed after a killed run was written by it, half-finished.
struct FileState
{
    QString path;
    bool existed;
    QDateTime modified;
};

std::vector<FileState> namedFiles(const BatchLine& line)
{
    QStringList texts = line.args;
    std::function<void(const QJsonValue&)> collect = [&](const QJsonValue& value) {
        if (value.isString())
            texts << value.toString();
        else if (value.isArray())
            for (const QJsonValue& item : value.toArray())
                collect(item);
    };
    for (const QJsonValue& value : line.params)
        collect(value);
    std::vector<FileState> files;
    for (const QString& text : texts)
        for (const QString& part : text.split('|', Qt::SkipEmptyParts))
        {
            if (part.startsWith(QLatin1String("/vsi")) || part.size() > 4096)
                continue;
            const QFileInfo info(part);
            const QString base = info.path() + '/' + info.completeBaseName();
            for (const QString& path : {part, part + QStringLiteral(".aux.xml"), part + QStringLiteral(".ovr"),
                                        base + QStringLiteral(".hdr")})
            {
                const QFileInfo file(path);
                files.push_back({path, file.exists(), file.exists() ? file.lastModified() : QDateTime()});
            }
        }
    return files;
}

void removeHalfWritten(const std::vector<FileState>& before, const LineOutcome& outcome)
{
    for (const FileState& state : before)
    {
        const QFileInfo now(state.path);
        if (now.isFile() && (!state.existed || now.lastModified() != state.modified))
            QFile::remove(state.path);
    }
    for (const auto& output : outcome.outputs)
        if (QFileInfo(output.second).isFile())
            QFile::remove(output.second);
}

class BatchRun
{
public:
    BatchRun(const BatchOptions& options, std::vector<BatchLine> lines, const QHash<QString, ReportEntry>& resumed)
        : m_options(options), m_lines(std::move(lines)), m_host(hostPath())
    {
        m_state.assign(m_lines.size(), State::Pending);
        m_entries.resize(m_lines.size());
        for (size_t i = 0; i < m_lines.size(); ++i)
        {
            const auto found = resumed.constFind(m_lines[i].id);
            if (found != resumed.constEnd() && found->success)
            {
                m_entries[i] = *found;
                m_state[i] = State::Resumed;
            }
        }
    }

    int run(ReportWriter* report)
    {
        for (size_t i = 0; i < m_lines.size(); ++i)
            if (m_state[i] == State::Resumed && isSelected(i))
            {
                report->write(m_entries[i]);
                ++m_done;
            }
        m_total = 0;
        for (size_t i = 0; i < m_lines.size(); ++i)
            if (isSelected(i))
                ++m_total;
        drawProgress();

        std::vector<std::unique_ptr<Running>> running;
        for (;;)
        {
            // Recording a failed line can make lines before it ready to be reported as not run.
            for (int done = -1; !g_stop && done != m_done;)
            {
                done = m_done;
                startReady(&running, report);
            }
            if (running.empty())
                break;
            waitForOutput(running);
            for (size_t r = 0; r < running.size();)
            {
                Running& job = *running[r];
                if (g_stop || (m_options.timeoutSeconds > 0 && job.child.seconds() > m_options.timeoutSeconds))
                    job.child.kill();
                if (job.child.pump())
                {
                    ++r;
                    continue;
                }
                finishLine(job, report);
                running.erase(running.begin() + long(r));
            }
        }
        if (m_barDrawn)
            std::fputc('\n', stderr);
        if (g_stop)
        {
            std::fprintf(stderr, "algofactory: batch stopped; lines not started are not in the report\n");
            return kExitFailure;
        }
        return m_failed == 0 ? kExitSuccess : kExitFailure;
    }

private:
    enum class State
    {
        Pending,
        Running,
        Succeeded,
        Failed,
        Resumed
    };
    struct Running
    {
        size_t index;
        ChildRun child;
        std::vector<FileState> before;
    };

    bool isSelected(size_t i) const { return m_options.index == 0 || m_lines[i].number == m_options.index; }
    bool succeeded(size_t i) const { return m_state[i] == State::Succeeded || m_state[i] == State::Resumed; }

    // The value "$id.key" stands for: the referenced line's [OUTPUT] key once it ran (or in the resumed
    // report), else the parameter of that name it was given (a line run alone reads it from there).
    bool lookup(const BatchReference& reference, QString* value, int depth = 0) const
    {
        if (depth > 64)
            return false;
        for (size_t i = 0; i < m_lines.size(); ++i)
        {
            if (m_lines[i].id != reference.id)
                continue;
            for (const auto& output : m_entries[i].outputs)
                if (output.first == reference.key)
                {
                    *value = output.second;
                    return true;
                }
            if (!m_lines[i].isEntry && m_lines[i].params.contains(reference.key))
            {
                BatchLine source = m_lines[i];
                resolveLine(&source, [&](const BatchReference& inner) {
                    QString text;
                    return lookup(inner, &text, depth + 1) ? text : QString();
                });
                *value = source.params.value(reference.key).toVariant().toString();
                return true;
            }
            return false;
        }
        return false;
    }

    void startReady(std::vector<std::unique_ptr<Running>>* running, ReportWriter* report)
    {
        for (size_t i = 0; i < m_lines.size() && int(running->size()) < m_options.jobs; ++i)
        {
            if (m_state[i] != State::Pending || !isSelected(i))
                continue;
            BatchLine& line = m_lines[i];
            if (!line.error.isEmpty())
            {
                record(i, failure(line, line.error), report);
                continue;
            }
            QString waitingOn, failedOn;
            if (m_options.index == 0)
                for (int d : line.dependencies)
                {
                    if (m_state[size_t(d)] == State::Failed)
                        failedOn = m_lines[size_t(d)].id;
                    else if (!succeeded(size_t(d)))
                        waitingOn = m_lines[size_t(d)].id;
                }
            if (!failedOn.isEmpty())
            {
                ReportEntry entry = failure(line, QStringLiteral("not run: the line with id \"%1\" it depends on failed").arg(failedOn));
                entry.status = QStringLiteral("not run");
                record(i, entry, report);
                continue;
            }
            if (!waitingOn.isEmpty())
                continue;
            QString missing;
            resolveLine(&line, [&](const BatchReference& reference) {
                QString value;
                if (!lookup(reference, &value) && missing.isEmpty())
                    missing = QStringLiteral("$%1.%2").arg(reference.id, reference.key);
                return value;
            });
            if (!missing.isEmpty())
            {
                record(i, failure(line, QStringLiteral("line %1: \"%2\" names neither an output nor a parameter of that line")
                                            .arg(line.number)
                                            .arg(missing)),
                       report);
                continue;
            }
            auto job = std::make_unique<Running>();
            job->index = i;
            job->before = namedFiles(line);
            QStringList argv;
            if (line.isEntry)
                argv << QStringLiteral("call") << line.name << line.args;
            else
                argv << QStringLiteral("run") << line.name
                     << QString::fromUtf8(QJsonDocument(line.params).toJson(QJsonDocument::Compact));
            QString error;
            if (!job->child.start(m_host, argv, &error))
            {
                record(i, failure(line, error), report);
                continue;
            }
            m_state[i] = State::Running;
            running->push_back(std::move(job));
        }
    }

    void waitForOutput(const std::vector<std::unique_ptr<Running>>& running) const
    {
        std::vector<pollfd> fds;
        for (const auto& job : running)
            for (int fd : {job->child.outFd(), job->child.errFd()})
                if (fd >= 0)
                    fds.push_back({fd, POLLIN, 0});
        // A bounded wait, so that time limits and Ctrl-C are noticed without output.
        ::poll(fds.data(), nfds_t(fds.size()), 200);
    }

    void finishLine(Running& job, ReportWriter* report)
    {
        const BatchLine& line = m_lines[job.index];
        const double seconds = job.child.seconds();
        LineOutcome outcome = job.child.finish();
        if (job.child.killed() || (!outcome.success && outcome.code == -1 && outcome.message.startsWith(QLatin1String("the process ended"))))
        {
            removeHalfWritten(job.before, outcome);
            if (job.child.killed())
                outcome.message = g_stop ? QStringLiteral("stopped: the batch was interrupted")
                                         : QStringLiteral("stopped after the time limit of %1 s").arg(m_options.timeoutSeconds);
            outcome.success = false;
            outcome.code = -1;
            outcome.outputs.clear();
        }
        ReportEntry entry;
        entry.id = line.id;
        entry.line = line.number;
        entry.success = outcome.success;
        entry.status = outcome.success ? QStringLiteral("succeeded") : QStringLiteral("failed");
        entry.code = outcome.code;
        entry.message = outcome.message;
        entry.outputs = outcome.outputs;
        entry.seconds = seconds;
        record(job.index, entry, report);
    }

    ReportEntry failure(const BatchLine& line, const QString& message) const
    {
        ReportEntry entry;
        entry.id = line.id;
        entry.line = line.number;
        entry.status = QStringLiteral("failed");
        entry.code = -1;
        entry.message = message;
        return entry;
    }

    void record(size_t i, const ReportEntry& entry, ReportWriter* report)
    {
        m_entries[i] = entry;
        m_state[i] = entry.success ? State::Succeeded : State::Failed;
        report->write(entry);
        ++m_done;
        if (!entry.success)
        {
            ++m_failed;
            if (!m_options.quiet)
            {
                if (m_barDrawn)
                    std::fputs("\r\x1b[K", stderr);
                std::fprintf(stderr, "algofactory: line %d (id %s) %s: %s\n", entry.line, entry.id.toLocal8Bit().constData(),
                             entry.status.toLocal8Bit().constData(), entry.message.toLocal8Bit().constData());
            }
        }
        drawProgress();
    }

    void drawProgress()
    {
        if (m_options.quiet || !isatty(STDERR_FILENO) || m_total == 0)
            return;
        constexpr int kWidth = 40;
        const int filled = m_done * kWidth / m_total;
        std::fprintf(stderr, "\r[%s%s] %d/%d lines, %d failed\x1b[K", QByteArray(filled, '#').constData(),
                     QByteArray(kWidth - filled, '.').constData(), m_done, m_total, m_failed);
        std::fflush(stderr);
        m_barDrawn = true;
    }

    BatchOptions m_options;
    std::vector<BatchLine> m_lines;
    std::vector<State> m_state;
    std::vector<ReportEntry> m_entries;
    QString m_host;
    int m_total = 0;
    int m_done = 0;
    int m_failed = 0;
    bool m_barDrawn = false;
};

} // namespace

int runBatch(const QStringList& args)
{
    BatchOptions options;
    if (!parseOptions(args, &options))
    {
        printUsage(true);
        return kExitUsage;
    }
    QFile file(options.file);
    if (!file.open(QIODevice::ReadOnly))
    {
        std::fprintf(stderr, "algofactory: cannot read %s\n", options.file.toLocal8Bit().constData());
        return kExitUsage;
    }
    std::vector<BatchLine> lines = parseBatch(file.readAll());
    if (options.index > 0 &&
        std::none_of(lines.begin(), lines.end(), [&](const BatchLine& line) { return line.number == options.index; }))
    {
        std::fprintf(stderr, "algofactory: line %d of %s holds no call\n", options.index, options.file.toLocal8Bit().constData());
        return kExitUsage;
    }
    QHash<QString, ReportEntry> resumed;
    if (!options.resume.isEmpty())
    {
        QString error;
        if (!readReport(options.resume, &resumed, &error))
        {
            std::fprintf(stderr, "algofactory: %s\n", error.toLocal8Bit().constData());
            return kExitUsage;
        }
    }
    ReportWriter report;
    QString error;
    if (!report.open(options.report, &error))
    {
        std::fprintf(stderr, "algofactory: %s\n", error.toLocal8Bit().constData());
        return kExitUsage;
    }
    std::signal(SIGINT, onStop);
    std::signal(SIGTERM, onStop);
    std::signal(SIGPIPE, SIG_IGN);
    BatchRun run(options, std::move(lines), resumed);
    return run.run(&report);
}

} // namespace cli
