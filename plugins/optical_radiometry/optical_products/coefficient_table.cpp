// Reader of the plain coefficient table.
#include "coefficient_table.h"

#include "product_text.h"

#include <algorithm>
#include <sstream>

namespace optical
{

namespace
{

constexpr size_t kMaxRows = 4096;

std::vector<std::string> fields(const std::string& line)
{
    std::string spaced = line;
    std::replace(spaced.begin(), spaced.end(), ',', ' ');
    std::replace(spaced.begin(), spaced.end(), '\t', ' ');
    std::istringstream in(spaced);
    std::vector<std::string> out;
    std::string field;
    while (in >> field)
        out.push_back(field);
    return out;
}

std::string lineMessage(int number, const std::string& what)
{
    return "line " + std::to_string(number) + " of the coefficient table " + what;
}

} // namespace

std::vector<std::string> CoefficientTable::sensors() const
{
    std::vector<std::string> names;
    for (const CoefficientRow& row : rows)
        if (!row.sensor.empty() && std::find(names.begin(), names.end(), row.sensor) == names.end())
            names.push_back(row.sensor);
    return names;
}

std::vector<BandCoefficients> CoefficientTable::bandsOf(const std::string& sensor) const
{
    std::vector<BandCoefficients> bands;
    for (const CoefficientRow& row : rows)
        if (row.sensor.empty() || row.sensor == upper(sensor))
            bands.push_back(row.coefficients);
    return bands;
}

CoefficientTable parseCoefficientTable(const std::string& text)
{
    CoefficientTable table;
    std::istringstream lines(text);
    std::string line;
    int number = 0;
    while (std::getline(lines, line))
    {
        ++number;
        const size_t hash = line.find('#');
        if (hash != std::string::npos)
            line.resize(hash);
        line = trimmed(line);
        if (line.empty())
            continue;
        const size_t eq = line.find('=');
        if (eq != std::string::npos)
        {
            const std::string key = upper(trimmed(line.substr(0, eq)));
            const std::string value = trimmed(line.substr(eq + 1));
            const double v = parseNumber(value);
            if (key == "SUN_ELEVATION" && known(v) && v > 0 && v <= 90)
                table.sun.elevation = v;
            else if (key == "SUN_AZIMUTH" && known(v) && v >= 0 && v <= 360)
                table.sun.azimuth = v;
            else if (key == "EARTH_SUN_DISTANCE" && known(v) && v > 0.9 && v < 1.1)
                table.sun.earthSunDistance = v;
            else if (key == "DATE" && parseIsoDate(value, &table.date.year, &table.date.month, &table.date.day))
                ;
            else
                throw ProductError(lineMessage(number, "has an unknown or invalid setting: " + line.substr(0, 80)));
            continue;
        }
        std::vector<std::string> f = fields(line);
        CoefficientRow row;
        if (!f.empty() && !known(parseNumber(f[0])))
        {
            row.sensor = upper(f[0]);
            f.erase(f.begin());
        }
        if (f.size() != 4 && f.size() != 6)
            throw ProductError(lineMessage(number, "is not \"[sensor] band gain offset esun [k1 k2]\""));
        std::vector<double> v;
        for (const std::string& item : f)
            v.push_back(parseNumber(item));
        if (std::any_of(v.begin(), v.end(), [](double x) { return !known(x); }) || v[0] < 1 || v[0] > 1000 ||
            v[0] != double(int(v[0])))
            throw ProductError(lineMessage(number, "holds a field that is not a number or a band number"));
        BandCoefficients& c = row.coefficients;
        c.id = std::to_string(int(v[0]));
        c.radianceMult = v[1];
        c.radianceAdd = v[2];
        if (v[3] > 0)
            c.esun = v[3];
        if (f.size() == 6)
        {
            c.k1 = v[4];
            c.k2 = v[5];
            c.thermal = c.hasThermal();
        }
        table.rows.push_back(row);
        if (table.rows.size() > kMaxRows)
            throw ProductError("the coefficient table has too many rows");
    }
    if (table.rows.empty())
        throw ProductError("the coefficient table has no band row");
    if (!known(table.sun.earthSunDistance) && table.date.valid())
        table.sun.earthSunDistance = earthSunDistance(table.date.dayOfYear());
    return table;
}

} // namespace optical
