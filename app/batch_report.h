// The batch report: one JSON object per line run (id, success, code, message, outputs, seconds).
#pragma once

#include <QFile>
#include <QHash>
#include <QList>
#include <QPair>
#include <QString>

namespace cli
{

struct ReportEntry
{
    QString id;
    int line = 0;
    bool success = false;
    QString status;  // succeeded, failed, not run
    int code = 0;
    QString message;
    QList<QPair<QString, QString>> outputs;
    double seconds = 0;
};

QByteArray reportLine(const ReportEntry& entry);
// False (with the reason) when text is not a report object; blank lines are not objects either.
bool parseReportLine(const QByteArray& text, ReportEntry* entry);
// The last entry of every id in a report file; lines that are not report objects are passed over.
bool readReport(const QString& path, QHash<QString, ReportEntry>* entries, QString* error);

// Writes each entry as soon as it is known, so that a stopped batch can be resumed from it.
class ReportWriter
{
public:
    bool open(const QString& path, QString* error);
    void write(const ReportEntry& entry);

private:
    QFile m_file;
};

} // namespace cli
