// Fixtures of the change tests: two dates of a textured scene with planted changes, and small helpers.
#pragma once

#include "test_support.h"

#include <QString>
#include <string>
#include <vector>

namespace obiatest
{

constexpr int kSize = 100;

// A planted change: a square of `side` pixels at (x, y) whose bands all rise by `shift` on the later date.
struct Plant
{
    int x, y, side;
    double shift;
};
const std::vector<Plant>& plants();
bool planted(int x, int y);

// Uniform noise in [0, 1) from a pixel, a band and a seed, the same on every run.
double noise(int x, int y, int band, int seed);

// The earlier date: a smooth scene per band plus texture; the later one adds fresh noise and the plants.
double beforeValue(int band, int x, int y);
double afterValue(int band, int x, int y);

// Writes both dates (Float32, 30 m UTM grid) with `bands` bands; returns false when GDAL refuses.
bool makeDates(const QString& beforePath, const QString& afterPath, int bands);

// Category names of band 1 as a GeoTIFF's .aux.xml side-car holds them (what QGIS and gdalinfo show). Read from the
// text: a GDAL dataset opened again in this process does not always reload a side-car written meanwhile.
std::vector<std::string> categoryNames(const QString& path);

// The [OUTPUT] value of a key in captured output, or empty.
std::string outputValue(const std::string& text, const std::string& key);

} // namespace obiatest
