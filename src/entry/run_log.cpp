// The run log of ExcuteAlgo.
#include "run_log.h"

#include <QDateTime>
#include <QDir>
#include <iostream>

namespace algofactory
{

RunLog::RunLog()
    : m_timeStamp(QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH-mm-ss"))),
      m_file(QDir::currentPath() + QStringLiteral("/AlgoFactor_log.txt"))
{
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text | QIODevice::Unbuffered))
        std::cout << "Text create failed!\n" << std::endl;
}

void RunLog::write(const QString& label, const QString& value)
{
    if (!m_file.isOpen())
        return;
    // One write per line: concurrent calls append whole lines.
    m_file.write((m_timeStamp + QLatin1Char(' ') + label + value + QLatin1Char('\n')).toLocal8Bit());
}

} // namespace algofactory
