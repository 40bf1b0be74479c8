// Lifecycle of every plug-in: parameters in, run with exceptions captured, error and result out.
#include "plugin_base.h"

#include "raster_io.h"

#include <algorithm>
#include <new>

namespace algokit
{

const char* const kCancelledMessage = "The algorithm was cancelled by the user.";

void PluginBase::SetParams(AlgoParamHolder* params)
{
    m_params = params ? *params : AlgoParamHolder();
}

void PluginBase::GetError(int* code, QString* message)
{
    if (code)
        *code = m_code;
    if (message)
        *message = m_message;
}

bool PluginBase::fail(const QString& message, int code)
{
    m_code = code;
    m_message = message;
    return false;
}

void PluginBase::progress(double percent, const QString& message)
{
    if (m_cancelled)
        throw Cancelled();
    percent = std::min(100.0, std::max(percent, m_lastProgress));
    m_lastProgress = percent;
    boost::optional<int> answer = progressSignal(percent, message, nullptr);
    if (answer && *answer < 0)
    {
        m_cancelled = true;
        throw Cancelled();
    }
}

bool PluginBase::Execute()
{
    m_code = 0;
    m_message.clear();
    m_result = AlgoParamHolder();
    m_lastProgress = 0.0;
    m_claimedOutputs.clear();
    bool ok = false;
    try
    {
        ok = run();
        if (ok && m_lastProgress < 100.0)
            progress(100.0);
    }
    catch (const Cancelled&)
    {
        ok = fail(QString::fromUtf8(kCancelledMessage), kCancelledCode);
    }
    catch (const AlgoError& error)
    {
        ok = fail(error.message(), error.code());
    }
    catch (const std::bad_alloc&)
    {
        ok = fail(QStringLiteral("%1: out of memory").arg(m_name));
    }
    catch (const std::exception& error)
    {
        ok = fail(QStringLiteral("%1: %2").arg(m_name, QString::fromLocal8Bit(error.what())));
    }
    catch (...)
    {
        ok = fail(QStringLiteral("%1: unexpected failure").arg(m_name));
    }
    if (!ok)
    {
        m_result = AlgoParamHolder();
        try
        {
            for (const QString& path : m_claimedOutputs)
                deleteRasterFiles(path);
            discardOutputs();
        }
        catch (...)
        {
        }
    }
    m_claimedOutputs.clear();
    return ok;
}

} // namespace algokit
