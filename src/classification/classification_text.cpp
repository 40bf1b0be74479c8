// Shared pieces of the classification entries.
#include "classification_text.h"

#include "run_algo_plugin.h"

#include <cstdio>
#include <cstring>

namespace algofactory
{

void printPlain(const char* text)
{
    std::fputs(text, stdout);
    std::fflush(stdout);
}

std::vector<int> splitBandText(const char* text, int offset)
{
    std::vector<int> bands;
    for (const QString& part : QString::fromUtf8(text ? text : "").split(QLatin1Char('|'), Qt::KeepEmptyParts))
        bands.push_back(part.toInt(nullptr, 10) + offset);
    return bands;
}

QString doubleText(double value)
{
    return QString::number(value, 'g', 6);
}

bool IsPlainDecimalText(const QString& text)
{
    int digits = 0;
    int points = 0;
    for (const QChar c : text)
    {
        if (c == QLatin1Char('.'))
            ++points;
        else if (c >= QLatin1Char('0') && c <= QLatin1Char('9'))
            ++digits;
        else
            return false;
    }
    return digits > 0 && points <= 1;
}

bool samePathIgnoringCase(const char* first, const char* second)
{
    return QString::fromUtf8(first).compare(QString::fromUtf8(second), Qt::CaseInsensitive) == 0;
}

std::vector<std::pair<int, int>> splitPairText(const char* text, int offset)
{
    std::vector<std::pair<int, int>> pairs;
    for (const QString& entry : QString::fromUtf8(text ? text : "").split(QLatin1Char(','), Qt::KeepEmptyParts))
    {
        if (entry.trimmed().isEmpty())
            continue;
        const QStringList members = entry.split(QLatin1Char('|'), Qt::KeepEmptyParts);
        pairs.emplace_back(members.value(0).trimmed().toInt(nullptr, 10) + offset,
                           members.value(1).trimmed().toInt(nullptr, 10) + offset);
    }
    return pairs;
}

QStringList classNamesOrDefault(const QStringList& categoryNames, int colourCount)
{
    if (!categoryNames.isEmpty())
        return categoryNames;
    QStringList names;
    for (int i = 1; i <= colourCount; ++i)
        names << QString::asprintf("Class_%d", i);
    return names;
}

int classCountOf(const QStringList& categoryNames, int colourCount)
{
    return categoryNames.isEmpty() ? colourCount : int(categoryNames.size());
}

void reportHostError(AlgoResult* result, int code, const QString& message)
{
    if (!result)
        return;
    result->code = code != 0 ? code : -1;
    WriteResultMessage(result, (message.isEmpty() ? QStringLiteral("Failure") : message).toLocal8Bit());
}

} // namespace algofactory
