// Water from one image: the modified normalised difference water index (green, short-wave infrared) when the
// image has a short-wave infrared band, else the normalised difference water index (green, near infrared); for
// radar images the backscatter in dB, water being darker than the threshold.
#pragma once

#include <QString>
#include <vector>

class GDALDataset;

namespace obia
{

struct WaterIndex
{
    enum Kind
    {
        Mndwi,
        Ndwi,
        Radar
    };
    Kind kind = Radar;
    std::vector<int> bands; // 0-based bands read: green and SWIR, green and NIR, or the one radar band
    bool decibels = true;   // radar: values already in dB (else linear power, converted)
    QString name() const;
    // Water is above the threshold for the indices, below it for radar backscatter.
    bool isWater(float value, double threshold) const { return kind == Radar ? value < threshold : value > threshold; }
};

// The index for an image: radar for one or two bands without optical wavelengths (or of a complex type), else the
// optical index; false when an optical image has no green band or neither SWIR nor NIR.
bool chooseWaterIndex(GDALDataset* dataset, WaterIndex* index);

// The index of `count` pixels whose values of index.bands lie side by side; NaN where valid is 0 or undefined.
void waterIndexValues(const WaterIndex& index, const float* pixels, const unsigned char* valid, size_t count, float* out);

} // namespace obia
