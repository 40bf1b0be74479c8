// The run log "AlgoFactor_log.txt" in the working directory, one call's lines under one time stamp.
#pragma once

#include <QFile>
#include <QString>

namespace algofactory
{

class RunLog
{
public:
    // Opens the log for appending; prints "Text create failed!\n" when it cannot, and then logs nothing.
    RunLog();
    // Writes timestamp + " " + label + value + "\n" as one line.
    void write(const QString& label, const QString& value);
    const QString& timeStamp() const { return m_timeStamp; }

private:
    QString m_timeStamp;
    QFile m_file;
};

} // namespace algofactory
