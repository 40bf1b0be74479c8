// What the hyperspectral entries share: the early messages, wavelengths and their unit, band lists,
// the pixel rectangle and the picture path derived from a text path.
#pragma once

#include "records/hyperspectral_records.h"

#include <gdal_priv.h>

#include <QString>
#include <vector>

namespace algofactory
{

// Prints text followed at once by the address of the line-end routine, with no line end: the form
// the two early messages of these entries have always had.
void printWithPointerTail(const char* text);

// Band wavelengths (metadata item "wavelength", 0 when missing or not a number) and their unit word.
struct Wavelengths
{
    std::vector<double> values;
    QString unit = "None";
};
Wavelengths readWavelengths(GDALDataset* dataset);
// "nm" above 100, "um" strictly between 0 and 10, "None" otherwise.
QString wavelengthUnit(double firstWavelength);

// The band list of a "|"-separated text: empty gives 0..bandCount-1 (zero-based); otherwise each part's
// integer value plus `addend`, one-based when `addend` is 1 and zero-based (as given) when it is 0. Returns false when the split yields nothing.
bool parseBandList(const QString& bands, int bandCount, int addend, HysBandList& list);

// x0|x1|y0|y1 (inclusive) gives that rectangle; anything else the whole image.
HysPixelRect parseRegion(const QString& region, int width, int height);

// The picture beside a text file: its absolute directory + "/" + its base name (up to the first dot) + ".png".
QString picturePathFor(const QString& textPath);

} // namespace algofactory
