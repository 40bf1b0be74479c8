// Per-thread capture of what the library prints: std::cout and C stdio go to the calling thread's sink.
//
// Hosts that run several algorithms at once on their own threads (Python, a GIS) need each run's
// [OUTPUT] lines apart. Rather than touching every place that prints, std::cout's buffer is replaced
// once, at load, by a router, and the library's C stdio calls are redirected at link time
// (-Wl,--wrap=..., see src/CMakeLists.txt) to the __wrap_ functions below. A thread without a sink
// prints exactly as before.
#include "AlgoFactoryHost.h"

#include "application_dir_override.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <streambuf>
#include <string>

namespace
{

struct ThreadSink
{
    AlgoOutputCallback callback = nullptr;
    void* userData = nullptr;
};

thread_local ThreadSink threadSink;

bool sendToSink(const char* text, size_t length)
{
    const ThreadSink sink = threadSink;
    if (!sink.callback)
        return false;
    if (length > 0)
        sink.callback(text, length, sink.userData);
    return true;
}

// Unbuffered, so each write is routed by the thread that makes it; everything of threads without a
// sink goes to the original buffer (itself thread-safe: synchronised with stdio).
class RoutingBuffer : public std::streambuf
{
public:
    explicit RoutingBuffer(std::streambuf* original) : m_original(original) {}
    std::streambuf* original() const { return m_original; }

protected:
    std::streamsize xsputn(const char* text, std::streamsize count) override
    {
        if (sendToSink(text, static_cast<size_t>(count)))
            return count;
        return m_original->sputn(text, count);
    }
    int_type overflow(int_type c) override
    {
        if (traits_type::eq_int_type(c, traits_type::eof()))
            return traits_type::not_eof(c);
        const char ch = traits_type::to_char_type(c);
        if (sendToSink(&ch, 1))
            return c;
        return m_original->sputc(ch);
    }
    int sync() override { return threadSink.callback ? 0 : m_original->pubsync(); }

private:
    std::streambuf* m_original;
};

// Installed when the library loads, removed when it unloads (std::cout outlives both: the
// ios_base::Init of <iostream> above is constructed first in this file).
struct CoutRouter
{
    RoutingBuffer buffer{std::cout.rdbuf()};
    CoutRouter() { std::cout.rdbuf(&buffer); }
    ~CoutRouter()
    {
        if (std::cout.rdbuf() == &buffer)
            std::cout.rdbuf(buffer.original());
    }
};

CoutRouter coutRouter;

bool toSink(FILE* stream, const char* text, size_t length)
{
    return stream == stdout && sendToSink(text, length);
}

bool formatToSink(FILE* stream, const char* format, va_list args)
{
    if (stream != stdout || !threadSink.callback)
        return false;
    va_list copy;
    va_copy(copy, args);
    char small[512];
    const int length = std::vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (length < 0)
        return true;
    if (static_cast<size_t>(length) < sizeof small)
        return sendToSink(small, static_cast<size_t>(length));
    std::string large(static_cast<size_t>(length) + 1, '\0');
    std::vsnprintf(&large[0], large.size(), format, args);
    return sendToSink(large.data(), static_cast<size_t>(length));
}

} // namespace

ALGO_API void AlgoFactory_SetThreadOutput(AlgoOutputCallback callback, void* userData)
{
    std::cout.flush();
    threadSink = ThreadSink{callback, callback ? userData : nullptr};
}

ALGO_API void AlgoFactory_SetApplicationDir(const char* dir)
{
    SysUtility::SetApplicationDirPath(dir ? QString::fromLocal8Bit(dir) : QString());
}

// The link-time redirections of C stdio (only libAlgoFactory.so is linked with --wrap).
extern "C" {
int __real_vprintf(const char* format, va_list args);
int __real_vfprintf(FILE* stream, const char* format, va_list args);
int __real_puts(const char* text);
int __real_fputs(const char* text, FILE* stream);
int __real_putchar(int c);
int __real_fputc(int c, FILE* stream);
size_t __real_fwrite(const void* data, size_t size, size_t count, FILE* stream);

__attribute__((visibility("hidden"))) int __wrap_vprintf(const char* format, va_list args)
{
    va_list copy;
    va_copy(copy, args);
    const bool sent = formatToSink(stdout, format, copy);
    va_end(copy);
    return sent ? 0 : __real_vprintf(format, args);
}

__attribute__((visibility("hidden"))) int __wrap_printf(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int written = __wrap_vprintf(format, args);
    va_end(args);
    return written;
}

__attribute__((visibility("hidden"))) int __wrap_vfprintf(FILE* stream, const char* format, va_list args)
{
    va_list copy;
    va_copy(copy, args);
    const bool sent = formatToSink(stream, format, copy);
    va_end(copy);
    return sent ? 0 : __real_vfprintf(stream, format, args);
}

__attribute__((visibility("hidden"))) int __wrap_fprintf(FILE* stream, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int written = __wrap_vfprintf(stream, format, args);
    va_end(args);
    return written;
}

__attribute__((visibility("hidden"))) int __wrap_puts(const char* text)
{
    if (threadSink.callback)
    {
        sendToSink(text, std::strlen(text));
        sendToSink("\n", 1);
        return 1;
    }
    return __real_puts(text);
}

__attribute__((visibility("hidden"))) int __wrap_fputs(const char* text, FILE* stream)
{
    return toSink(stream, text, std::strlen(text)) ? 1 : __real_fputs(text, stream);
}

__attribute__((visibility("hidden"))) int __wrap_putchar(int c)
{
    const char ch = static_cast<char>(c);
    return toSink(stdout, &ch, 1) ? static_cast<unsigned char>(ch) : __real_putchar(c);
}

__attribute__((visibility("hidden"))) int __wrap_fputc(int c, FILE* stream)
{
    const char ch = static_cast<char>(c);
    return toSink(stream, &ch, 1) ? static_cast<unsigned char>(ch) : __real_fputc(c, stream);
}

__attribute__((visibility("hidden"))) size_t __wrap_fwrite(const void* data, size_t size, size_t count,
                                                            FILE* stream)
{
    if (toSink(stream, static_cast<const char*>(data), size * count))
        return count;
    return __real_fwrite(data, size, count, stream);
}
}
