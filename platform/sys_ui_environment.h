// SysUI::Environment: the host's environment settings (working folder, mosaic options), process-wide.
#pragma once

#include <QString>
#include <QVariant>

namespace SysUI
{

class Environment
{
public:
    static Environment* Instance();
    // Thread-safe; an unknown key gives the fallback.
    void SetValue(const QString& key, const QVariant& value);
    QVariant Value(const QString& key, const QVariant& fallback = QVariant()) const;

private:
    Environment() = default;
};

// Keys used by the entries.
constexpr const char* kWorkDirectoryKey = "WorkDirectory"; // folder of the last opened input
constexpr const char* kMaskFilterKey = "MaskFilter";       // mosaic: value 0 counts as background

} // namespace SysUI
