// Fixtures of the change tests.
#include "obia_fixtures.h"

#include <QFile>
#include <QRegularExpression>

#include <cmath>
#include <cstdint>

namespace obiatest
{

const std::vector<Plant>& plants()
{
    static const std::vector<Plant> list = {{10, 10, 8, 60}, {60, 30, 8, 60}, {30, 70, 8, 60}, {85, 85, 6, 60}};
    return list;
}

bool planted(int x, int y)
{
    for (const Plant& p : plants())
        if (x >= p.x && x < p.x + p.side && y >= p.y && y < p.y + p.side)
            return true;
    return false;
}

double noise(int x, int y, int band, int seed)
{
    uint32_t h = uint32_t(x) * 73856093u ^ uint32_t(y) * 19349663u ^ uint32_t(band + 1) * 83492791u ^ uint32_t(seed) * 2654435761u;
    h ^= h >> 13;
    h *= 0x5bd1e995u;
    h ^= h >> 15;
    return double(h % 10000u) / 10000.0;
}

double beforeValue(int band, int x, int y)
{
    return 80 + 40 * band + 30 * std::sin(x / 9.0) * std::cos(y / 13.0) + 10 * noise(x, y, band, 1);
}

double afterValue(int band, int x, int y)
{
    double value = beforeValue(band, x, y) + 6 * (noise(x, y, band, 2) - 0.5);
    for (const Plant& p : plants())
        if (x >= p.x && x < p.x + p.side && y >= p.y && y < p.y + p.side)
            value += p.shift;
    return value;
}

bool makeDates(const QString& beforePath, const QString& afterPath, int bands)
{
    return testsupport::makeRaster(beforePath, kSize, kSize, bands, GDT_Float32, beforeValue) &&
           testsupport::makeRaster(afterPath, kSize, kSize, bands, GDT_Float32, afterValue);
}

std::vector<std::string> categoryNames(const QString& path)
{
    QFile file(path + ".aux.xml");
    std::vector<std::string> names;
    if (!file.open(QIODevice::ReadOnly))
        return names;
    const QString text = QString::fromUtf8(file.readAll());
    static const QRegularExpression category("<Category>([^<]*)</Category>");
    for (auto match = category.globalMatch(text); match.hasNext();)
        names.push_back(match.next().captured(1).toStdString());
    return names;
}

std::string outputValue(const std::string& text, const std::string& key)
{
    const std::string marker = "[OUTPUT] " + key + "=\"";
    const size_t start = text.find(marker);
    if (start == std::string::npos)
        return {};
    const size_t end = text.find('"', start + marker.size());
    return text.substr(start + marker.size(), end - start - marker.size());
}

} // namespace obiatest
