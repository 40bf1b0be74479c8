// Fuzz target: ExcuteAlgo's JSON route. The first line of the input is the algorithm name, the rest the JSON text.
#include "AlgoFactory.h"
#include "fuzz_support.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>
#include <fcntl.h>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzzsupport::setUpProcess(argc, argv);
    // The entries speak on standard output; keep libFuzzer's own report (standard error) readable.
    const int null = open("/dev/null", O_WRONLY);
    if (null >= 0)
        dup2(null, STDOUT_FILENO);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t lineEnd = input.find('\n');
    const std::string name = input.substr(0, lineEnd);
    const std::string json = lineEnd == std::string::npos ? std::string() : input.substr(lineEnd + 1);
    AlgoResult result;
    std::memset(&result, 0, sizeof result);
    result.code = 12345;
    ExcuteAlgo(name.c_str(), json.c_str(), &result);
    // Whatever happened, the message stays a terminated text inside its room.
    if (std::memchr(result.message, 0, sizeof result.message) == nullptr)
        __builtin_trap();
    return 0;
}
