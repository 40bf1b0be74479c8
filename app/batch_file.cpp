// Reading a batch file: calls, ids, references between lines and their order.
#include "batch_file.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>
#include <QRegularExpression>
#include <algorithm>
#include <cmath>

namespace cli
{

namespace
{

const QRegularExpression& referencePattern()
{
    static const QRegularExpression pattern(QStringLiteral("\\$([A-Za-z0-9_-]+)\\.([A-Za-z0-9_]+)"));
    return pattern;
}

// A JSON scalar as the host's "call" would receive it on its command line.
bool argumentText(const QJsonValue& value, QString* text)
{
    switch (value.type())
    {
    case QJsonValue::String: *text = value.toString(); return true;
    case QJsonValue::Bool: *text = value.toBool() ? QStringLiteral("true") : QStringLiteral("false"); return true;
    case QJsonValue::Double:
    {
        const double number = value.toDouble();
        // Whole numbers within the 64-bit range print as integers; converting others to qint64 is undefined.
        const bool whole = std::isfinite(number) && std::fabs(number) < 9.2e18 && number == std::trunc(number);
        *text = whole ? QString::number(qint64(number)) : QString::number(number, 'g', 17);
        return true;
    }
    default: return false;
    }
}

void collectReferences(const QJsonValue& value, std::vector<BatchReference>* out)
{
    if (value.isString())
        for (const BatchReference& r : referencesIn(value.toString()))
            out->push_back(r);
    else if (value.isArray())
        for (const QJsonValue& item : value.toArray())
            collectReferences(item, out);
    else if (value.isObject())
        for (const QJsonValue& item : value.toObject())
            collectReferences(item, out);
}

QJsonValue substituteValue(const QJsonValue& value, const ReferenceLookup& lookup)
{
    if (value.isString())
        return substituteReferences(value.toString(), lookup);
    if (value.isArray())
    {
        QJsonArray array;
        for (const QJsonValue& item : value.toArray())
            array.append(substituteValue(item, lookup));
        return array;
    }
    if (value.isObject())
    {
        QJsonObject object = value.toObject();
        for (auto it = object.begin(); it != object.end(); ++it)
            it.value() = substituteValue(it.value(), lookup);
        return object;
    }
    return value;
}

BatchLine parseLine(const QByteArray& text, int number)
{
    BatchLine line;
    line.number = number;
    line.id = QString::number(number);
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(text, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject())
    {
        line.error = QStringLiteral("line %1 is not a JSON object").arg(number);
        if (parseError.error != QJsonParseError::NoError)
            line.error += QStringLiteral(" (%1 at column %2)").arg(parseError.errorString()).arg(parseError.offset + 1);
        return line;
    }
    const QJsonObject object = document.object();
    const QJsonValue id = object.value(QLatin1String("id"));
    if (!id.isUndefined())
    {
        QString idText;
        if (!argumentText(id, &idText) || id.isBool() || idText.isEmpty())
        {
            line.error = QStringLiteral("line %1: \"id\" must be a non-empty text or a number").arg(number);
            return line;
        }
        line.id = idText;
    }
    const bool hasAlgorithm = object.contains(QLatin1String("algorithm"));
    const bool hasEntry = object.contains(QLatin1String("entry"));
    if (hasAlgorithm == hasEntry)
    {
        line.error = QStringLiteral("line %1 needs either \"algorithm\" with \"params\" or \"entry\" with \"args\"").arg(number);
        return line;
    }
    line.isEntry = hasEntry;
    const QJsonValue name = object.value(line.isEntry ? QLatin1String("entry") : QLatin1String("algorithm"));
    line.name = name.toString();
    if (!name.isString() || line.name.isEmpty())
    {
        line.error = QStringLiteral("line %1: \"%2\" must be a non-empty text").arg(number).arg(line.isEntry ? "entry" : "algorithm");
        return line;
    }
    if (line.isEntry)
    {
        const QJsonValue args = object.value(QLatin1String("args"));
        if (!args.isArray() && !args.isUndefined())
        {
            line.error = QStringLiteral("line %1: \"args\" must be an array").arg(number);
            return line;
        }
        for (const QJsonValue& arg : args.toArray())
        {
            QString argText;
            if (!argumentText(arg, &argText))
            {
                line.error = QStringLiteral("line %1: every item of \"args\" must be a text, a number or a boolean").arg(number);
                return line;
            }
            line.args << argText;
            for (const BatchReference& reference : referencesIn(argText))
                line.references.push_back(reference);
        }
    }
    else
    {
        const QJsonValue params = object.value(QLatin1String("params"));
        if (!params.isObject() && !params.isUndefined())
        {
            line.error = QStringLiteral("line %1: \"params\" must be a JSON object").arg(number);
            return line;
        }
        line.params = params.toObject();
        collectReferences(line.params, &line.references);
    }
    return line;
}

// Marks every line on a cycle of dependencies (depth-first search, colours white/grey/black).
void markCycles(std::vector<BatchLine>& lines)
{
    std::vector<int> state(lines.size(), 0);
    std::vector<int> stack;
    std::function<void(int)> visit = [&](int i) {
        state[size_t(i)] = 1;
        stack.push_back(i);
        for (int next : lines[size_t(i)].dependencies)
        {
            if (state[size_t(next)] == 1)
            {
                // Every line from `next` to the top of the stack is on the cycle.
                QStringList ids;
                auto from = std::find(stack.begin(), stack.end(), next);
                for (auto it = from; it != stack.end(); ++it)
                    ids << lines[size_t(*it)].id;
                for (auto it = from; it != stack.end(); ++it)
                    if (lines[size_t(*it)].error.isEmpty())
                        lines[size_t(*it)].error = QStringLiteral("line %1: its references form a cycle (%2 -> %3)")
                                                        .arg(lines[size_t(*it)].number)
                                                        .arg(ids.join(QLatin1String(" -> ")), lines[size_t(next)].id);
            }
            else if (state[size_t(next)] == 0)
                visit(next);
        }
        stack.pop_back();
        state[size_t(i)] = 2;
    };
    for (size_t i = 0; i < lines.size(); ++i)
        if (state[i] == 0)
            visit(int(i));
}

} // namespace

std::vector<BatchReference> referencesIn(const QString& text)
{
    std::vector<BatchReference> found;
    auto it = referencePattern().globalMatch(text);
    while (it.hasNext())
    {
        const QRegularExpressionMatch match = it.next();
        found.push_back({match.captured(1), match.captured(2)});
    }
    return found;
}

QString substituteReferences(const QString& text, const ReferenceLookup& lookup)
{
    QString result;
    int last = 0;
    auto it = referencePattern().globalMatch(text);
    while (it.hasNext())
    {
        const QRegularExpressionMatch match = it.next();
        result += text.midRef(last, match.capturedStart() - last);
        result += lookup({match.captured(1), match.captured(2)});
        last = match.capturedEnd();
    }
    result += text.midRef(last);
    return result;
}

void resolveLine(BatchLine* line, const ReferenceLookup& lookup)
{
    if (line->isEntry)
        for (QString& arg : line->args)
            arg = substituteReferences(arg, lookup);
    else
        line->params = substituteValue(line->params, lookup).toObject();
}

std::vector<BatchLine> parseBatch(const QByteArray& text)
{
    std::vector<BatchLine> lines;
    const QList<QByteArray> rows = text.split('\n');
    for (int i = 0; i < rows.size(); ++i)
    {
        const QByteArray row = rows[i].trimmed();
        if (row.isEmpty() || row.startsWith('#'))
            continue;
        lines.push_back(parseLine(row, i + 1));
    }

    QHash<QString, int> byId;
    for (size_t i = 0; i < lines.size(); ++i)
    {
        BatchLine& line = lines[i];
        if (byId.contains(line.id))
        {
            if (line.error.isEmpty())
                line.error = QStringLiteral("line %1: the id \"%2\" is already used on line %3")
                                 .arg(line.number)
                                 .arg(line.id)
                                 .arg(lines[size_t(byId.value(line.id))].number);
            continue;
        }
        byId.insert(line.id, int(i));
    }
    for (BatchLine& line : lines)
        for (const BatchReference& reference : line.references)
        {
            const auto found = byId.constFind(reference.id);
            if (found == byId.constEnd())
            {
                if (line.error.isEmpty())
                    line.error = QStringLiteral("line %1: no line has the id \"%2\" (in \"$%2.%3\")")
                                     .arg(line.number)
                                     .arg(reference.id, reference.key);
                continue;
            }
            if (std::find(line.dependencies.begin(), line.dependencies.end(), found.value()) == line.dependencies.end())
                line.dependencies.push_back(found.value());
        }
    markCycles(lines);
    return lines;
}

} // namespace cli
