// Progress bar on standard error and the Ctrl-C stop request.
#include "progress_display.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace cli
{

namespace
{

std::atomic<bool> g_interrupted{false};
bool g_barDrawn = false;
int g_lastPercent = -1;

void onInterrupt(int)
{
    if (g_interrupted.exchange(true))
        std::_Exit(130);
}

int showProgress(double progress, const char* message, void*)
{
    const int percent = progress < 0 ? 0 : progress > 100 ? 100 : int(progress);
    if (isatty(STDERR_FILENO))
    {
        constexpr int kWidth = 40;
        char bar[kWidth + 1];
        const int filled = percent * kWidth / 100;
        std::memset(bar, '#', size_t(filled));
        std::memset(bar + filled, '.', size_t(kWidth - filled));
        bar[kWidth] = '\0';
        std::fprintf(stderr, "\r[%s] %3d%% %.40s\x1b[K", bar, percent, message ? message : "");
        std::fflush(stderr);
        g_barDrawn = true;
    }
    else if (percent / 10 != g_lastPercent / 10 || (percent == 100 && g_lastPercent != 100))
    {
        std::fprintf(stderr, "progress %d%%\n", percent);
    }
    g_lastPercent = percent;
    return g_interrupted.load() ? -1 : 0;
}

} // namespace

void attachProgress(AlgoResult* result)
{
    result->callback = &showProgress;
    result->userData = nullptr;
}

void finishProgress()
{
    if (g_barDrawn)
        std::fputc('\n', stderr);
    g_barDrawn = false;
}

void installInterruptHandler()
{
    std::signal(SIGINT, onInterrupt);
}

bool interrupted()
{
    return g_interrupted.load();
}

} // namespace cli
