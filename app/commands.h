// The host's commands: list, run, call.
#pragma once

#include <QStringList>

namespace cli
{

constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

int listAlgorithms(const QStringList& args);
int runAlgorithm(const QStringList& args);
int callEntry(const QStringList& args);
void printUsage(bool toError);

} // namespace cli
