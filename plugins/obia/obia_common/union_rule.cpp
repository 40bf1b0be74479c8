// The class-merge rule.
#include "union_rule.h"

#include <QStringList>

namespace obia
{

namespace
{

bool wholeNumber(const QString& text, long long* value)
{
    bool ok = false;
    *value = text.trimmed().toLongLong(&ok);
    return ok;
}

UnionRule parseGroups(const QString& text)
{
    UnionRule rule;
    const QStringList groups = text.split(QLatin1Char(';'), Qt::SkipEmptyParts);
    for (const QString& group : groups)
    {
        if (group.trimmed().isEmpty())
            continue;
        const QStringList sides = group.split(QStringLiteral("->"));
        long long target = 0;
        if (sides.size() != 2)
        {
            rule.error = QStringLiteral("has a group without one \"->\": %1").arg(group.trimmed());
            return rule;
        }
        if (!wholeNumber(sides[1], &target))
        {
            rule.error = QStringLiteral("has a target that is not a whole number: %1").arg(sides[1].trimmed());
            return rule;
        }
        for (const QString& source : sides[0].split(QLatin1Char(',')))
        {
            long long from = 0;
            if (!wholeNumber(source, &from))
            {
                rule.error = QStringLiteral("has a class that is not a whole number: %1").arg(source.trimmed());
                return rule;
            }
            const auto known = rule.target.find(from);
            if (known != rule.target.end() && known->second != target)
            {
                rule.error = QStringLiteral("sends class %1 to both %2 and %3").arg(from).arg(known->second).arg(target);
                return rule;
            }
            rule.target[from] = target;
        }
    }
    if (rule.target.empty() && rule.error.isEmpty())
        rule.error = QStringLiteral("names no class");
    return rule;
}

} // namespace

UnionRule parseUnionRule(const QString& text)
{
    UnionRule rule = parseGroups(text);
    if (!rule.error.isEmpty())
        rule.target.clear();
    return rule;
}

} // namespace obia
