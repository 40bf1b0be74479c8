// A batch file: JSON Lines, one algorithm run or entry call per line, with the references between lines.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <functional>
#include <vector>

namespace cli
{

// "$id.Key" inside a text value: the value of Key produced by (or given to) the line named id.
struct BatchReference
{
    QString id;
    QString key;
};

struct BatchLine
{
    int number = 0;        // 1-based line number in the file
    QString id;            // the line's "id", or its number
    bool isEntry = false;  // {"entry": ..., "args": [...]} rather than {"algorithm": ..., "params": {...}}
    QString name;          // algorithm or entry name
    QJsonObject params;    // algorithm form
    QStringList args;      // entry form, every argument as text
    QString error;         // why the line cannot run, empty when it can
    std::vector<BatchReference> references;
    std::vector<int> dependencies;  // indexes of the lines referenced, in the batch
};

// Parses the text of a batch file; blank lines and lines starting with '#' are skipped. Every other line
// becomes a BatchLine (with its error when it is not a valid call). Ids must be unique; references name
// known ids; a line in a cycle of references carries an error.
std::vector<BatchLine> parseBatch(const QByteArray& text);

// The references inside a text value.
std::vector<BatchReference> referencesIn(const QString& text);
// The text with every reference replaced by the value lookup gives.
QString substituteReferences(const QString& text, const std::function<QString(const BatchReference&)>& lookup);


using ReferenceLookup = std::function<QString(const BatchReference&)>;
// Replaces every reference in the line's text values (params, or args) by the value lookup gives.
void resolveLine(BatchLine* line, const ReferenceLookup& lookup);

} // namespace cli
