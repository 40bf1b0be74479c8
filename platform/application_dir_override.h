// Lets a host whose executable is not beside the library's files choose the application folder.
#pragma once

#include <QString>

namespace SysUtility
{

// Overrides ApplicationDirPath() (sys_utility.h) for hosts such as an interpreter or a GIS, whose
// executable lives elsewhere; an empty dir restores the default.
void SetApplicationDirPath(const QString& dir);

} // namespace SysUtility
