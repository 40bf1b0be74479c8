// Bridges GDAL's progress callbacks (translate, warp, rasterize, overviews) to a plug-in's progress.
#pragma once

#include "plugin_base.h"

#include <cpl_progress.h>

#include <functional>

namespace algokit
{

// Pass callback() and this object to a GDAL function; a host's "stop" makes GDAL return early and
// rethrowIfCancelled() turns it back into Cancelled after the call. Percentages map onto [from, to].
class GdalProgress
{
public:
    explicit GdalProgress(std::function<void(double percent)> report, double from = 0.0, double to = 100.0)
        : m_report(std::move(report)), m_from(from), m_to(to)
    {
    }

    static int CPL_STDCALL callback(double complete, const char*, void* self)
    {
        auto* bridge = static_cast<GdalProgress*>(self);
        try
        {
            bridge->m_report(bridge->m_from + (bridge->m_to - bridge->m_from) * complete);
            return TRUE;
        }
        catch (const Cancelled&)
        {
            bridge->m_cancelled = true;
            return FALSE;
        }
    }

    void rethrowIfCancelled() const
    {
        if (m_cancelled)
            throw Cancelled();
    }

private:
    std::function<void(double)> m_report;
    double m_from;
    double m_to;
    bool m_cancelled = false;
};

} // namespace algokit
