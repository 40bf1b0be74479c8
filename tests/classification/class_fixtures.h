// Fixtures of the classification tests: class images with colour tables, ROI files, entry calls with output.
#pragma once

#include "test_support.h"

#include <QString>
#include <QStringList>
#include <functional>
#include <string>
#include <vector>

namespace classtest
{

// A single-band Byte class image; value(x, y) per pixel; `colours` colour entries (distinct colours),
// category names when given. geographic: EPSG:4326 with `degrees` pixels instead of 30 m UTM pixels.
bool makeClassImage(const QString& path, int width, int height, int colours, const std::function<int(int, int)>& value,
                    const QStringList& names = QStringList(), double degrees = 0.0);

// Colour table entry count and category names of band 1.
int colourCount(const QString& path);
QStringList categoryNames(const QString& path);

// Writes a text file.
void writeText(const QString& path, const std::string& text);
std::string readText(const QString& path);

// What an entry call printed and returned.
struct Outcome
{
    bool ok;
    std::string out;
};
Outcome capture(const std::function<bool()>& call);

// Text that a runner prints when an entry handed its record on.
std::string pluginStart(const char* name);

} // namespace classtest
