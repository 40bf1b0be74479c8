// SysUtility: the host log and the application directory.
#include "sys_utility.h"
#include "application_dir_override.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <mutex>

namespace SysUtility
{

namespace
{
std::mutex applicationDirLock;
QString& applicationDirOverride()
{
    static QString dir;
    return dir;
}
} // namespace

void SetApplicationDirPath(const QString& dir)
{
    std::lock_guard<std::mutex> guard(applicationDirLock);
    applicationDirOverride() = dir;
}

QString ApplicationDirPath()
{
    {
        std::lock_guard<std::mutex> guard(applicationDirLock);
        if (!applicationDirOverride().isEmpty())
            return applicationDirOverride();
    }
    if (QCoreApplication::instance())
        return QCoreApplication::applicationDirPath();
    return QFileInfo(QFile::symLinkTarget(QStringLiteral("/proc/self/exe"))).absolutePath();
}

LogInfo* LogInfo::Instance()
{
    static LogInfo instance;
    return &instance;
}

QString LogInfo::FilePath() const
{
    return ApplicationDirPath() + QStringLiteral("/AlgoPlatform_log.txt");
}

void LogInfo::Info(const QString& message)
{
    write("INFO", message);
}

void LogInfo::Error(const QString& message)
{
    write("ERROR", message);
}

void LogInfo::write(const char* level, const QString& message)
{
    static std::mutex lock;
    const QByteArray line = QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz")).toUtf8() + " [" +
                            level + "] " + message.trimmed().toUtf8() + "\n";
    std::lock_guard<std::mutex> guard(lock);
    QFile file(FilePath());
    if (file.open(QIODevice::WriteOnly | QIODevice::Append))
        file.write(line);
}

} // namespace SysUtility
