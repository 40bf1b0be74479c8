// Bad lines and columns of a band.
#include "line_inspection.h"

#include <algorithm>
#include <cmath>

namespace datautil
{

const char* flawName(LineFlaw flaw)
{
    switch (flaw)
    {
    case LineFlaw::Zero:
        return "zero";
    case LineFlaw::Saturated:
        return "saturated";
    case LineFlaw::Constant:
        return "constant";
    case LineFlaw::Duplicate:
        return "duplicate";
    case LineFlaw::Outlier:
        return "outlier";
    case LineFlaw::None:
        break;
    }
    return "none";
}

LineProfile::LineProfile(int lines)
    : sum(size_t(lines), 0.0), count(size_t(lines), 0.0), low(size_t(lines), HUGE_VAL), high(size_t(lines), -HUGE_VAL),
      zeros(size_t(lines), 0.0), saturated(size_t(lines), 0.0), sameAsPrevious(size_t(lines), 0)
{
}

LineAccumulator::LineAccumulator(int width, int height, bool hasNoData, double noData, bool hasSaturation,
                                 double saturation)
    : m_width(width), m_hasNoData(hasNoData), m_noData(noData), m_hasSaturation(hasSaturation),
      m_saturation(saturation), m_rows(height), m_columns(width), m_previous(size_t(width), 0.0)
{
    // Columns start equal to their left neighbour and lose it at the first pixel that differs.
    std::fill(m_columns.sameAsPrevious.begin() + (width > 0 ? 1 : 0), m_columns.sameAsPrevious.end(), 1);
}

void LineAccumulator::add(const double* rows, int row0, int rowCount)
{
    for (int r = 0; r < rowCount; ++r)
    {
        const double* row = rows + size_t(r) * size_t(m_width);
        const size_t y = size_t(row0 + r);
        double sum = 0.0, count = 0.0, low = HUGE_VAL, high = -HUGE_VAL, zeros = 0.0, saturated = 0.0;
        bool sameAsPrevious = m_havePrevious;
        for (int x = 0; x < m_width; ++x)
        {
            const double v = row[x];
            if (sameAsPrevious &&
                !(v == m_previous[size_t(x)] || (v != v && m_previous[size_t(x)] != m_previous[size_t(x)])))
                sameAsPrevious = false;
            if (x > 0 && m_columns.sameAsPrevious[size_t(x)] &&
                !(v == row[x - 1] || (v != v && row[x - 1] != row[x - 1])))
                m_columns.sameAsPrevious[size_t(x)] = 0;
            if (!valid(v))
                continue;
            sum += v;
            count += 1.0;
            low = std::min(low, v);
            high = std::max(high, v);
            m_columns.sum[size_t(x)] += v;
            m_columns.count[size_t(x)] += 1.0;
            m_columns.low[size_t(x)] = std::min(m_columns.low[size_t(x)], v);
            m_columns.high[size_t(x)] = std::max(m_columns.high[size_t(x)], v);
            if (v == 0.0)
            {
                zeros += 1.0;
                m_columns.zeros[size_t(x)] += 1.0;
            }
            else if (m_hasSaturation && v == m_saturation)
            {
                saturated += 1.0;
                m_columns.saturated[size_t(x)] += 1.0;
            }
        }
        m_rows.zeros[y] = zeros;
        m_rows.saturated[y] = saturated;
        m_rows.sum[y] = sum;
        m_rows.count[y] = count;
        m_rows.low[y] = low;
        m_rows.high[y] = high;
        m_rows.sameAsPrevious[y] = sameAsPrevious ? 1 : 0;
        std::copy(row, row + m_width, m_previous.begin());
        m_havePrevious = true;
    }
}

namespace
{

double median(std::vector<double> values)
{
    if (values.empty())
        return 0.0;
    const size_t middle = values.size() / 2;
    std::nth_element(values.begin(), values.begin() + long(middle), values.end());
    const double upper = values[middle];
    if (values.size() % 2 == 1)
        return upper;
    const double lower = *std::max_element(values.begin(), values.begin() + long(middle));
    return 0.5 * (lower + upper);
}

} // namespace

std::vector<FlawedLine> findFlawedLines(const LineProfile& profile, double threshold, int halfWindow)
{
    const int lines = int(profile.count.size());
    std::vector<FlawedLine> flawed;
    std::vector<LineFlaw> flaws(size_t(lines), LineFlaw::None);
    for (int i = 0; i < lines; ++i)
    {
        if (profile.count[size_t(i)] <= 0)
            continue; // nothing but nodata: not a line of the image
        const double low = profile.low[size_t(i)], high = profile.high[size_t(i)];
        LineFlaw& flaw = flaws[size_t(i)];
        const double count = profile.count[size_t(i)];
        if (profile.zeros[size_t(i)] >= kFlawShare * count)
            flaw = LineFlaw::Zero;
        else if (profile.saturated[size_t(i)] >= kFlawShare * count)
            flaw = LineFlaw::Saturated;
        else if (low == high && lines > 1)
            flaw = LineFlaw::Constant;
        else if (profile.sameAsPrevious[size_t(i)])
            flaw = LineFlaw::Duplicate;
    }

    // Departure of each line's mean from the median of the lines above it and from that of the lines below it
    // (flawed lines left out). A bad line stands out from both sides the same way; an edge in the scene (a coast,
    // a field border) departs from one side only, so the smaller departure is kept, and none when they disagree.
    auto sideMedian = [&](int i, int direction, bool* found) {
        std::vector<double> side;
        for (int j = i + direction; j >= 0 && j < lines && std::abs(j - i) <= halfWindow; j += direction)
            if (profile.count[size_t(j)] > 0 && flaws[size_t(j)] == LineFlaw::None)
                side.push_back(profile.mean(j));
        *found = !side.empty();
        return median(side);
    };
    std::vector<double> departure(size_t(lines), 0.0);
    std::vector<char> measured(size_t(lines), 0);
    std::vector<double> spread; // every one-sided departure: the scale of ordinary line-to-line change
    for (int i = 0; i < lines; ++i)
    {
        if (profile.count[size_t(i)] <= 0 || flaws[size_t(i)] != LineFlaw::None)
            continue;
        bool haveAbove = false, haveBelow = false;
        const double above = profile.mean(i) - sideMedian(i, -1, &haveAbove);
        const double below = profile.mean(i) - sideMedian(i, +1, &haveBelow);
        if (!haveAbove && !haveBelow)
            continue;
        if (haveAbove)
            spread.push_back(std::fabs(above));
        if (haveBelow)
            spread.push_back(std::fabs(below));
        if (haveAbove && haveBelow)
            departure[size_t(i)] =
                (above > 0) != (below > 0) ? 0.0 : (std::fabs(above) < std::fabs(below) ? above : below);
        else
            departure[size_t(i)] = haveAbove ? above : below;
        measured[size_t(i)] = 1;
    }
    const double scale = 1.4826 * median(spread);
    // A perfectly smooth band has no spread: then any departure beyond rounding stands out.
    const double floor = 1e-9 * (1.0 + std::fabs(profile.count.empty() ? 0.0 : profile.mean(0)));
    const double limit = threshold * std::max(scale, floor);
    for (int i = 0; i < lines; ++i)
        if (measured[size_t(i)] && std::fabs(departure[size_t(i)]) > limit)
            flaws[size_t(i)] = LineFlaw::Outlier;

    for (int i = 0; i < lines; ++i)
        if (flaws[size_t(i)] != LineFlaw::None)
            flawed.push_back({i, flaws[size_t(i)], profile.mean(i)});
    return flawed;
}

} // namespace datautil
