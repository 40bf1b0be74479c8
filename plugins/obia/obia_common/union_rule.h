// The class-merge rule "1,2->1;3,4,5->2": groups separated by ';', each a comma-separated list of source classes,
// "->" and the class they become.
#pragma once

#include <QString>
#include <map>

namespace obia
{

struct UnionRule
{
    std::map<long long, long long> target; // source class -> new class; classes not listed keep their value; empty on error
    QString error;                          // empty when the text parsed
};

// Parses the rule; `error` says what is wrong (an empty rule, a group without "->", a class that is not a
// whole number, a class given two targets).
UnionRule parseUnionRule(const QString& text);

} // namespace obia
