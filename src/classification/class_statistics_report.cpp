// WriteClassStatisticsReport. Widths are byte widths of printf over UTF-8 texts; a named class narrows its
// name column by half a column per extra byte of the name in the local 8-bit encoding, so wide characters
// line up.
#include "class_statistics_report.h"

#include <cstdarg>
#include <cstdio>

namespace algofactory
{
namespace
{

void appendFormat(std::string& text, const char* format, ...) __attribute__((format(printf, 2, 3)));

void appendFormat(std::string& text, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    va_list copy;
    va_copy(copy, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (length > 0)
    {
        const size_t start = text.size();
        text.resize(start + size_t(length) + 1);
        std::vsnprintf(&text[start], size_t(length) + 1, format, arguments);
        text.resize(start + size_t(length));
    }
    va_end(arguments);
}

} // namespace

void WriteClassStatisticsReport(std::string& report, const std::vector<std::int64_t>& counts, int classCount,
                                const std::vector<double>& fractions, const std::vector<double>& areas,
                                const QStringList& names)
{
    report.clear();
    appendFormat(report, "%-20s\r\n\r\n", "分类统计报告");
    appendFormat(report, "%-18s%-16s%-17s%-18s\r\n\r\n", "类别", "分类点数", "百分比(%)", "面积");
    long long totalCount = 0;
    double totalPercent = 0.0;
    double totalArea = 0.0;
    for (int i = 0; i < classCount; ++i)
    {
        const long long count = counts[size_t(i)];
        const double percent = fractions[size_t(i)] * 100.0;
        const double area = areas[size_t(i)];
        if (i < names.size())
        {
            const QString& name = names[i];
            const int width = 20 - int(name.toLocal8Bit().size() - name.size()) / 2;
            const std::string format = "%-" + std::to_string(width) + "s%-20lld%-20.2f%-20.2f\r\n";
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
            appendFormat(report, format.c_str(), name.toUtf8().constData(), count, percent, area);
#pragma GCC diagnostic pop
        }
        else
            appendFormat(report, "class_%-20d%-20lld%-20.2f%-20.2f\r\n", i + 1, count, percent, area);
        totalCount += count;
        totalPercent += percent;
        totalArea += area;
    }
    appendFormat(report, "%-18s%-20lld%-20.2f%-20.2f", "总计", totalCount, totalPercent, totalArea);
}

} // namespace algofactory
