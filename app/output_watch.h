// Passes the library's standard output through unchanged while noting whether it ended with a line end, so
// that the host's own lines on standard error start on a line of their own.
#pragma once

#include <atomic>
#include <thread>

namespace cli
{

class OutputWatch
{
public:
    // Starts passing file descriptor 1 through a pipe; does nothing when that cannot be set up.
    OutputWatch();
    // Restores file descriptor 1 after draining the pipe.
    ~OutputWatch();
    OutputWatch(const OutputWatch&) = delete;
    OutputWatch& operator=(const OutputWatch&) = delete;

    // Drains and restores now; afterwards endsMidLine() is final.
    void stop();
    // True when something was written and the last byte was not a line end.
    bool endsMidLine() const { return m_wrote && m_lastByte != '\n'; }

private:
    void pump(int readFd);
    int m_savedFd = -1;
    std::thread m_reader;
    std::atomic<bool> m_stopping{false};
    bool m_wrote = false;
    char m_lastByte = '\n';
};

} // namespace cli
