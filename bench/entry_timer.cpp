// Times one entry called in-process, the way a host calls it, so that the figure compares with peers timed
// after their own start-up (numpy after its imports).
// Usage: entry_timer REPEATS ENTRY [ARG...]
// Prints to standard error "seconds <median> first <first call> peak_gain_mb <peak RSS above the RSS before
// the first call>"; the entry's own lines go to standard output.
#include "AlgoFactoryHost.h"

#include <QApplication>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace
{

// A line "Key:   N kB" of /proc/self/status, in kB.
long statusKb(const char* key)
{
    FILE* status = std::fopen("/proc/self/status", "r");
    char line[256];
    long value = 0;
    while (status && std::fgets(line, sizeof line, status))
        if (std::strncmp(line, key, std::strlen(key)) == 0)
            value = std::atol(line + std::strlen(key) + 1);
    if (status)
        std::fclose(status);
    return value;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3)
    {
        std::fprintf(stderr, "usage: %s REPEATS ENTRY [ARG...]\n", argv[0]);
        return 2;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    int qtArgc = 1;
    QApplication application(qtArgc, argv);
    const int repeats = std::max(1, std::atoi(argv[1]));
    const long before = statusKb("VmRSS:");
    std::vector<double> seconds;
    for (int i = 0; i < repeats; ++i)
    {
        AlgoResult result{};
        const auto start = std::chrono::steady_clock::now();
        const bool ok = AlgoFactory_CallEntry(argv[2], argc - 3, argv + 3, &result);
        seconds.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        if (!ok)
        {
            std::fprintf(stderr, "%s failed: %s\n", argv[2], result.message);
            return 1;
        }
    }
    const double first = seconds.front();
    std::sort(seconds.begin(), seconds.end());
    std::fprintf(stderr, "seconds %.4f first %.4f peak_gain_mb %.1f\n", seconds[seconds.size() / 2], first,
                 (statusKb("VmHWM:") - before) / 1024.0);
    return 0;
}
