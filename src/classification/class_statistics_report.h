// WriteClassStatisticsReport: the fixed-layout class statistics report (UTF-8, CR LF, last line open).
#pragma once

#include <QStringList>
#include <cstdint>
#include <string>
#include <vector>

namespace algofactory
{

// Clears `report` and fills it with the title, the header, one line per class and the total line.
void WriteClassStatisticsReport(std::string& report, const std::vector<std::int64_t>& counts, int classCount,
                                const std::vector<double>& fractions, const std::vector<double>& areas,
                                const QStringList& names);

} // namespace algofactory
