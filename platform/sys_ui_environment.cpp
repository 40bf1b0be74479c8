// SysUI::Environment: settings kept in memory for the life of the process.
#include "sys_ui_environment.h"

#include <QHash>
#include <QMutex>
#include <QMutexLocker>

namespace SysUI
{

namespace
{
QMutex& settingsLock()
{
    static QMutex lock;
    return lock;
}
QHash<QString, QVariant>& settings()
{
    static QHash<QString, QVariant> values;
    return values;
}
} // namespace

Environment* Environment::Instance()
{
    static Environment instance;
    return &instance;
}

void Environment::SetValue(const QString& key, const QVariant& value)
{
    QMutexLocker locker(&settingsLock());
    settings().insert(key, value);
}

QVariant Environment::Value(const QString& key, const QVariant& fallback) const
{
    QMutexLocker locker(&settingsLock());
    return settings().value(key, fallback);
}

} // namespace SysUI
