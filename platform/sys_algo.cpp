// SysAlgo::AlgoFactory: the explicit list of host algorithms and their execution.
#include "sys_algo.h"

#include "sys_algo_builtin.h"

#include <exception>
#include <new>

namespace SysAlgo
{

void Algorithm::GetError(int* code, QString* message) const
{
    if (code)
        *code = m_code;
    if (message)
        *message = m_message;
}

bool Algorithm::fail(const QString& message, int code)
{
    m_code = code;
    m_message = message;
    return false;
}

AlgoFactory* AlgoFactory::Instance()
{
    static AlgoFactory factory;
    return &factory;
}

SysUtility::_ptr_t<Algorithm> AlgoFactory::CreateAlgorithm(const QString& name) const
{
    struct Entry
    {
        const char* name;
        Algorithm* (*create)();
    };
    static const Entry kAlgorithms[] = {
        {"ROIStatistics", &createRoiStatistics},
        {"ImgClassPostPA", &createImgClassPostPA},
    };
    for (const Entry& entry : kAlgorithms)
        if (name == QLatin1String(entry.name))
            return SysUtility::_ptr_t<Algorithm>(entry.create());
    return SysUtility::_ptr_t<Algorithm>();
}

bool AlgoFactory::ExecuteAlgorithm(Algorithm* algorithm) const
{
    if (!algorithm)
        return false;
    try
    {
        algorithm->m_code = 0;
        algorithm->m_message.clear();
        algorithm->m_result = boost::any();
        const bool ok = algorithm->Execute();
        if (!ok && algorithm->m_code == 0)
            algorithm->fail(QStringLiteral("Failure"));
        return ok;
    }
    catch (const std::bad_alloc&)
    {
        return algorithm->fail(QStringLiteral("%1: out of memory").arg(algorithm->GetName()));
    }
    catch (const std::exception& error)
    {
        return algorithm->fail(QStringLiteral("%1: %2").arg(algorithm->GetName(), QString::fromUtf8(error.what())));
    }
    catch (...)
    {
        return algorithm->fail(QStringLiteral("%1: unexpected failure").arg(algorithm->GetName()));
    }
}

} // namespace SysAlgo
