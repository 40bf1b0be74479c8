// Shared pieces of the classification entries: plain message prints, band and pair texts, number texts.
#pragma once

#include "AlgoFactory.h"

#include <QString>
#include <QStringList>
#include <utility>
#include <vector>

namespace algofactory
{

// Prints the text as it stands (no prefix, no line end) and flushes, so it keeps its place among
// the lines other code writes.
void printPlain(const char* text);

// Band text: parts split at "|", empty parts kept, each read as a base-10 integer (0 when it is
// not one), plus offset.
std::vector<int> splitBandText(const char* text, int offset);

// A double as the checks see it: general notation, 6 significant digits.
QString doubleText(double value);

// Non-empty, decimal digits with at most one ".", at least one digit; no sign, no exponent.
bool IsPlainDecimalText(const QString& text);

// Texts compared as file names are compared here: letter case ignored.
bool samePathIgnoringCase(const char* first, const char* second);

// "a|b,c|d" -> pairs (a, b), (c, d) of base-10 integers plus offset; empty entries are skipped.
std::vector<std::pair<int, int>> splitPairText(const char* text, int offset);

// Class names of a classification band: its category names, else "Class_1" ... "Class_<count>".
QStringList classNamesOrDefault(const QStringList& categoryNames, int colourCount);

// The number of classes of a classification image: its category names when it has them (a GeoTIFF palette
// always holds 2^bits entries), else the length of its colour table.
int classCountOf(const QStringList& categoryNames, int colourCount);

// Hands a host algorithm's error to the caller's result record (code and message).
void reportHostError(AlgoResult* result, int code, const QString& message);

} // namespace algofactory
