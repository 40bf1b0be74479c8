// The batch report, written and read back for --resume.
#include "batch_report.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <cstdio>

namespace cli
{

QByteArray reportLine(const ReportEntry& entry)
{
    QJsonObject outputs;
    for (const auto& output : entry.outputs)
        outputs.insert(output.first, output.second);
    QJsonObject object;
    object.insert(QStringLiteral("id"), entry.id);
    object.insert(QStringLiteral("line"), entry.line);
    object.insert(QStringLiteral("success"), entry.success);
    object.insert(QStringLiteral("status"), entry.status);
    object.insert(QStringLiteral("code"), entry.code);
    object.insert(QStringLiteral("message"), entry.message);
    object.insert(QStringLiteral("outputs"), outputs);
    object.insert(QStringLiteral("seconds"), double(qRound64(entry.seconds * 1000)) / 1000);
    return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}

bool parseReportLine(const QByteArray& text, ReportEntry* entry)
{
    const QJsonDocument document = QJsonDocument::fromJson(text);
    if (!document.isObject())
        return false;
    const QJsonObject object = document.object();
    if (!object.value(QLatin1String("id")).isString() || !object.value(QLatin1String("success")).isBool())
        return false;
    entry->id = object.value(QLatin1String("id")).toString();
    entry->line = object.value(QLatin1String("line")).toInt();
    entry->success = object.value(QLatin1String("success")).toBool();
    entry->status = object.value(QLatin1String("status")).toString();
    entry->code = object.value(QLatin1String("code")).toInt();
    entry->message = object.value(QLatin1String("message")).toString();
    entry->seconds = object.value(QLatin1String("seconds")).toDouble();
    entry->outputs.clear();
    const QJsonObject outputs = object.value(QLatin1String("outputs")).toObject();
    for (auto it = outputs.begin(); it != outputs.end(); ++it)
        entry->outputs.append({it.key(), it.value().toString()});
    return true;
}

bool readReport(const QString& path, QHash<QString, ReportEntry>* entries, QString* error)
{
    QFile file(path);
    if (!file.exists())
        return true;  // nothing ran yet: resume from nothing
    if (!file.open(QIODevice::ReadOnly))
    {
        *error = QStringLiteral("cannot read the report %1").arg(path);
        return false;
    }
    for (const QByteArray& row : file.readAll().split('\n'))
    {
        ReportEntry entry;
        if (parseReportLine(row, &entry))
            entries->insert(entry.id, entry);
    }
    return true;
}

bool ReportWriter::open(const QString& path, QString* error)
{
    const bool ok = path == QLatin1String("-") ? m_file.open(stdout, QIODevice::WriteOnly)
                                               : (m_file.setFileName(path), m_file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    if (!ok)
        *error = QStringLiteral("cannot write the report %1").arg(path);
    return ok;
}

void ReportWriter::write(const ReportEntry& entry)
{
    m_file.write(reportLine(entry));
    m_file.flush();
}

} // namespace cli
