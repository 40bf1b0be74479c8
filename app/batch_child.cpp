// One batch line in a child process of its own.
#include "batch_child.h"

#include <QRegularExpression>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace cli
{

namespace
{

QString unquoted(const QString& value)
{
    if (value.size() >= 2 && value.startsWith('"') && value.endsWith('"'))
        return value.mid(1, value.size() - 2);
    return value;
}

void closeFd(int* fd)
{
    if (*fd >= 0)
        ::close(*fd);
    *fd = -1;
}

// Reads until the pipe would block; false once it is closed.
bool drain(int* fd, QByteArray* into)
{
    if (*fd < 0)
        return false;
    char buffer[65536];
    for (;;)
    {
        const ssize_t n = ::read(*fd, buffer, sizeof buffer);
        if (n > 0)
        {
            into->append(buffer, int(n));
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return true;
        closeFd(fd);
        return false;
    }
}

} // namespace

LineOutcome readHostOutcome(const QByteArray& out, const QByteArray& err, int exitCode)
{
    LineOutcome outcome;
    outcome.success = exitCode == 0;
    QString lastError, lastLine;
    for (const QString& row : QString::fromLocal8Bit(out).split('\n'))
    {
        if (!row.trimmed().isEmpty() && !row.startsWith(QLatin1String("[OUTPUT] ")) && !row.startsWith(QLatin1String("[INFO]")))
            lastLine = row.trimmed();
        if (row.startsWith(QLatin1String("[OUTPUT] ")))
        {
            const int equals = row.indexOf('=');
            if (equals > 0)
                outcome.outputs.append({row.mid(9, equals - 9).trimmed(), unquoted(row.mid(equals + 1).trimmed())});
        }
        else if (row.startsWith(QLatin1String("[ERROR] ")))
            lastError = row.mid(8).trimmed();
    }
    if (outcome.success)
        return outcome;

    // The host's own closing line carries the result's code and message (which may span lines).
    const QString errText = QString::fromLocal8Bit(err);
    static const QRegularExpression failed(QStringLiteral("^algofactory: failed with code (-?\\d+): "),
                                           QRegularExpression::MultilineOption);
    const QRegularExpressionMatch match = failed.match(errText);
    if (match.hasMatch())
    {
        outcome.code = match.captured(1).toInt();
        outcome.message = errText.mid(match.capturedEnd()).trimmed();
    }
    if (outcome.message.isEmpty())
        outcome.message = lastError;
    if (outcome.message.isEmpty() && exitCode != 2)
        outcome.message = lastLine;  // an entry's own refusal printed without the [ERROR] mark
    if (outcome.message.isEmpty())
    {
        // A usage error of the host ("no entry named ...", "takes 2 argument(s)") or a bare failure.
        for (const QString& row : errText.split('\n', Qt::SkipEmptyParts))
            if (row.startsWith(QLatin1String("algofactory: ")))
            {
                outcome.message = row.mid(13).trimmed();
                break;
            }
    }
    if (outcome.message.isEmpty())
        outcome.message = QStringLiteral("failed with exit status %1").arg(exitCode);
    if (outcome.code == 0)
        outcome.code = -1;
    return outcome;
}

bool ChildRun::start(const QString& host, const QStringList& argv, QString* error)
{
    int outPipe[2], errPipe[2];
    if (::pipe2(outPipe, O_CLOEXEC) != 0)
    {
        *error = QStringLiteral("cannot create a pipe: %1").arg(QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    if (::pipe2(errPipe, O_CLOEXEC) != 0)
    {
        *error = QStringLiteral("cannot create a pipe: %1").arg(QString::fromLocal8Bit(std::strerror(errno)));
        ::close(outPipe[0]);
        ::close(outPipe[1]);
        return false;
    }
    // Everything the child needs is prepared before fork: after it, only async-signal-safe calls.
    const QByteArray hostPath = host.toLocal8Bit();
    std::vector<QByteArray> texts;
    texts.push_back(hostPath);
    for (const QString& arg : argv)
        texts.push_back(arg.toLocal8Bit());
    std::vector<char*> pointers;
    for (QByteArray& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);

    m_start = std::chrono::steady_clock::now();
    m_pid = ::fork();
    if (m_pid < 0)
    {
        *error = QStringLiteral("cannot start a process: %1").arg(QString::fromLocal8Bit(std::strerror(errno)));
        for (int fd : {outPipe[0], outPipe[1], errPipe[0], errPipe[1]})
            ::close(fd);
        return false;
    }
    if (m_pid == 0)
    {
        ::setpgid(0, 0);
        const int devNull = ::open("/dev/null", O_RDONLY);
        if (devNull >= 0)
            ::dup2(devNull, STDIN_FILENO);
        ::dup2(outPipe[1], STDOUT_FILENO);
        ::dup2(errPipe[1], STDERR_FILENO);
        ::signal(SIGINT, SIG_DFL);
        ::signal(SIGTERM, SIG_DFL);
        ::signal(SIGPIPE, SIG_DFL);  // ignored by the batch, which must not pass that on
        ::execv(pointers[0], pointers.data());
        const char message[] = "algofactory: cannot start the host\n";
        (void)!::write(STDERR_FILENO, message, sizeof message - 1);
        ::_exit(127);
    }
    ::setpgid(m_pid, m_pid);  // also from here, so that a kill right after start reaches the group
    ::close(outPipe[1]);
    ::close(errPipe[1]);
    m_out = outPipe[0];
    m_err = errPipe[0];
    ::fcntl(m_out, F_SETFL, ::fcntl(m_out, F_GETFL) | O_NONBLOCK);
    ::fcntl(m_err, F_SETFL, ::fcntl(m_err, F_GETFL) | O_NONBLOCK);
    return true;
}

bool ChildRun::pump()
{
    const bool outOpen = drain(&m_out, &m_stdout);
    const bool errOpen = drain(&m_err, &m_stderr);
    return outOpen || errOpen;
}

void ChildRun::kill()
{
    if (m_pid > 0 && !m_killed)
    {
        ::kill(-m_pid, SIGKILL);
        m_killed = true;
    }
}

double ChildRun::seconds() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
}

LineOutcome ChildRun::finish()
{
    closeFd(&m_out);
    closeFd(&m_err);
    int status = 0;
    while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR)
    {
    }
    if (WIFSIGNALED(status))
    {
        LineOutcome outcome = readHostOutcome(m_stdout, m_stderr, 1);
        outcome.success = false;
        outcome.code = -1;
        const int signal = WTERMSIG(status);
        outcome.message = QStringLiteral("the process ended on signal %1 (%2)")
                              .arg(signal)
                              .arg(QString::fromLocal8Bit(strsignal(signal)));
        return outcome;
    }
    return readHostOutcome(m_stdout, m_stderr, WIFEXITED(status) ? WEXITSTATUS(status) : 1);
}

} // namespace cli
