// `algofactory batch`: the lines of a batch file on a bounded pool of child processes, with a report.
#pragma once

#include <QStringList>

namespace cli
{

int runBatch(const QStringList& args);

} // namespace cli
