// One batch line in a child process of its own: started, watched, stopped, and its outcome read back.
#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>
#include <chrono>
#include <sys/types.h>

namespace cli
{

struct LineOutcome
{
    bool success = false;
    int code = 0;
    QString message;
    QList<QPair<QString, QString>> outputs;  // [OUTPUT] lines in order
};

// Reads what the host printed: [OUTPUT] lines, the last [ERROR] line, the host's "failed with code" line.
LineOutcome readHostOutcome(const QByteArray& out, const QByteArray& err, int exitCode);

class ChildRun
{
public:
    // Starts `host argv...` in a process group of its own, standard output and error read through pipes.
    bool start(const QString& host, const QStringList& argv, QString* error);
    // Reads whatever is ready without blocking; true while a pipe is still open.
    bool pump();
    int outFd() const { return m_out; }
    int errFd() const { return m_err; }
    // Kills the whole process group (the host and anything it started).
    void kill();
    // Waits for the process once both pipes are closed; fills the outcome.
    LineOutcome finish();
    double seconds() const;
    bool killed() const { return m_killed; }
    pid_t pid() const { return m_pid; }

private:
    pid_t m_pid = -1;
    int m_out = -1;
    int m_err = -1;
    bool m_killed = false;
    QByteArray m_stdout;
    QByteArray m_stderr;
    std::chrono::steady_clock::time_point m_start;
};

} // namespace cli
