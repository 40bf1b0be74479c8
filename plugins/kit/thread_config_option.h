// A GDAL configuration option set for the calling thread only (for example GTIFF_DIRECT_IO in a worker),
// restored when the scope ends; other threads of the host never see it.
#pragma once

#include <cpl_conv.h>

#include <string>

namespace algokit
{

class ThreadConfigOption
{
public:
    ThreadConfigOption(const char* key, const char* value)
        : m_key(key), m_hadPrevious(CPLGetThreadLocalConfigOption(key, nullptr) != nullptr),
          m_previous(m_hadPrevious ? CPLGetThreadLocalConfigOption(key, "") : "")
    {
        CPLSetThreadLocalConfigOption(key, value);
    }
    ~ThreadConfigOption() { CPLSetThreadLocalConfigOption(m_key, m_hadPrevious ? m_previous.c_str() : nullptr); }
    ThreadConfigOption(const ThreadConfigOption&) = delete;
    ThreadConfigOption& operator=(const ThreadConfigOption&) = delete;

private:
    const char* m_key;
    bool m_hadPrevious;
    std::string m_previous;
};

} // namespace algokit
