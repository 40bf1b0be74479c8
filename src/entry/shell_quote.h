// Quoting of one shell argument, so that no file name can break or extend a command. Every command this library
// hands to a shell quotes its paths with it (archive extraction, the clip entries' clean-up).
#pragma once

#include <QString>

namespace algofactory
{

// The text as one single-quoted argument: ' becomes '\'' and the whole is wrapped in quotes.
inline QString shellQuote(const QString& text)
{
    QString quoted = text;
    quoted.replace(QLatin1String("'"), QLatin1String("'\\''"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

} // namespace algofactory
