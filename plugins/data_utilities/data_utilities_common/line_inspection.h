// Bad lines and columns of a band: per-line statistics gathered block by block, then lines that are zero,
// saturated, constant, a copy of the line before, or whose mean departs from the median of their neighbours by
// more than a number of robust deviations.
#pragma once

#include <string>
#include <vector>

namespace datautil
{

enum class LineFlaw
{
    None,
    Zero,
    Saturated,
    Constant,
    Duplicate,
    Outlier
};

// "zero", "saturated", "constant", "duplicate", "outlier".
const char* flawName(LineFlaw flaw);

// Statistics of each line (a row or a column) over its valid pixels.
struct LineProfile
{
    explicit LineProfile(int lines = 0);
    std::vector<double> sum;
    std::vector<double> count;
    std::vector<double> low;
    std::vector<double> high;
    std::vector<double> zeros;        // valid pixels equal to 0
    std::vector<double> saturated;    // valid pixels at the saturation value
    std::vector<char> sameAsPrevious; // every pixel equal to the line before (line 0: never)
    double mean(int line) const { return count[size_t(line)] > 0 ? sum[size_t(line)] / count[size_t(line)] : 0.0; }
};

// Gathers the row and column profiles of one band from blocks of whole rows, top to bottom.
class LineAccumulator
{
public:
    // saturation: the value of a saturated pixel (none when hasSaturation is false).
    LineAccumulator(int width, int height, bool hasNoData, double noData, bool hasSaturation = false,
                    double saturation = 0.0);
    // rows: rowCount rows of `width` values starting at row0; blocks must come in order.
    void add(const double* rows, int row0, int rowCount);
    const LineProfile& rows() const { return m_rows; }
    const LineProfile& columns() const { return m_columns; }

private:
    bool valid(double v) const { return !(v != v) && !(m_hasNoData && v == m_noData); }
    int m_width;
    bool m_hasNoData;
    double m_noData;
    bool m_hasSaturation;
    double m_saturation;
    LineProfile m_rows;
    LineProfile m_columns;
    std::vector<double> m_previous; // the last row seen
    bool m_havePrevious = false;
};

struct FlawedLine
{
    int index = 0; // 0-based
    LineFlaw flaw = LineFlaw::None;
    double value = 0.0; // the line's mean (its value for constant lines)
};

// Share of a line's valid pixels that makes it a zero or saturated line: a dead line stays dead where a bad
// line of the other direction crosses it.
constexpr double kFlawShare = 0.9;

// Flawed lines of a profile. threshold: robust deviations (1.4826 x the median one-sided departure) beyond which
// a line's mean departs from the medians of the `halfWindow` lines above and below it, both the same way.
std::vector<FlawedLine> findFlawedLines(const LineProfile& profile, double threshold, int halfWindow = 3);

} // namespace datautil
