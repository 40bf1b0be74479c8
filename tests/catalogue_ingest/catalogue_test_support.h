// Helpers of the catalogue tests: calling a JSON entry and reading its [OUTPUT] lines.
#pragma once

#include "test_support.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QRegularExpression>
#include <QString>

#include <string>

namespace cataloguetest
{

struct EntryRun
{
    bool ok = false;
    std::string text;               // everything printed
    QMap<QString, QString> outputs; // [OUTPUT] key -> value
};

inline QMap<QString, QString> outputLines(const std::string& text)
{
    QMap<QString, QString> outputs;
    static const QRegularExpression line(QStringLiteral("^\\[OUTPUT\\] ([^=]+)=\"(.*)\"$"));
    for (const std::string& l : testsupport::lines(text))
    {
        const QRegularExpressionMatch m = line.match(QString::fromStdString(l));
        if (m.hasMatch())
            outputs.insert(m.captured(1), m.captured(2));
    }
    return outputs;
}

template <typename Entry> EntryRun runJson(Entry entry, const QJsonObject& parameters)
{
    EntryRun run;
    const QByteArray json = QJsonDocument(parameters).toJson(QJsonDocument::Compact);
    testsupport::StdoutCapture capture;
    run.ok = entry(json.constData());
    run.text = capture.text();
    run.outputs = outputLines(run.text);
    return run;
}

} // namespace cataloguetest
