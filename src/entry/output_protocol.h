// The standard-output protocol: [OUTPUT] key="value", [ERROR] message, [INFO] note.
#pragma once

#include <QString>

namespace algofactory
{

// Prints [OUTPUT] key="value" and a line end; the value in the local 8-bit encoding.
void printOutput(const char* key, const QString& value);
// Prints "[ERROR] " + message and a line end.
void printError(const QString& message);
// Prints "[INFO]" + note and a line end.
void printInfo(const QString& note);

} // namespace algofactory
