// Standard output passed through a pipe, its last byte noted.
#include "output_watch.h"

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <poll.h>
#include <unistd.h>

namespace cli
{

namespace
{

void flushStandardOutput()
{
    std::cout.flush();
    std::fflush(stdout);
}

bool writeAll(int fd, const char* data, ssize_t size)
{
    while (size > 0)
    {
        const ssize_t written = ::write(fd, data, size_t(size));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        size -= written;
    }
    return true;
}

} // namespace

OutputWatch::OutputWatch()
{
    int fds[2];
    flushStandardOutput();
    if (::pipe(fds) != 0)
        return;
    m_savedFd = ::dup(STDOUT_FILENO);
    if (m_savedFd < 0 || ::dup2(fds[1], STDOUT_FILENO) < 0)
    {
        ::close(fds[0]);
        ::close(fds[1]);
        if (m_savedFd >= 0)
            ::close(m_savedFd);
        m_savedFd = -1;
        return;
    }
    ::close(fds[1]);
    const int readFd = fds[0];
    m_reader = std::thread([this, readFd] { pump(readFd); });
}

OutputWatch::~OutputWatch()
{
    stop();
}

void OutputWatch::pump(int readFd)
{
    char buffer[16384];
    for (;;)
    {
        // A child process of the algorithm that keeps the pipe open must not hold the host: once stopping, an
        // idle pipe counts as drained.
        pollfd waiting{readFd, POLLIN, 0};
        const int ready = ::poll(&waiting, 1, m_stopping.load() ? 100 : 500);
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready == 0)
        {
            if (m_stopping.load())
                break;
            continue;
        }
        const ssize_t got = ::read(readFd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        m_wrote = true;
        m_lastByte = buffer[got - 1];
        writeAll(m_savedFd, buffer, got);
    }
    ::close(readFd);
}

void OutputWatch::stop()
{
    if (m_savedFd < 0)
        return;
    flushStandardOutput();
    // Putting the saved descriptor back closes the pipe's writing end, so the reader sees its end.
    ::dup2(m_savedFd, STDOUT_FILENO);
    m_stopping.store(true);
    if (m_reader.joinable())
        m_reader.join();
    ::close(m_savedFd);
    m_savedFd = -1;
}

} // namespace cli
