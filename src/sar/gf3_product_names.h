// Name parts of GF-3 products shared by the single-scene and batch import entries.
#pragma once

#include <QString>

namespace algofactory
{

// Imaging date "YYYYMMDD" and time "HHMMSS" from a "CenterTime" text "YYYY-MM-DD HH:MM:SS[.ffffff]".
struct Gf3ImagingTime
{
    QString date;
    QString time;
};
Gf3ImagingTime gf3ImagingTime(const QString& centerTime);

// The product number of a GF-3 file: the 12 characters after the last "_" of its complete base name.
QString gf3ProductNumber(const QString& path);

// An entry's 8-bit text argument as a QString (null pointers read as empty).
QString localText(const char* text);

} // namespace algofactory
