// Water from one image.
#include "water.h"

#include "spectral_bands.h"

#include <gdal_priv.h>

#include <cmath>
#include <limits>

namespace obia
{

QString WaterIndex::name() const
{
    return kind == Mndwi ? QStringLiteral("MNDWI") : kind == Ndwi ? QStringLiteral("NDWI") : QStringLiteral("backscatter (dB)");
}

bool chooseWaterIndex(GDALDataset* dataset, WaterIndex* index)
{
    const int count = dataset->GetRasterCount();
    if (count < 1)
        return false;
    const std::vector<BandLabel> labels = bandLabels(dataset);
    bool anyWavelength = false;
    for (const BandLabel& label : labels)
        anyWavelength = anyWavelength || label.wavelengthNm > 0;
    const bool complex = GDALDataTypeIsComplex(dataset->GetRasterBand(1)->GetRasterDataType());
    if (complex || (count <= 2 && !anyWavelength))
    {
        index->kind = WaterIndex::Radar;
        index->bands = {0};
        // Backscatter in dB is mostly negative; linear power is never.
        double range[2] = {0.0, 0.0};
        GDALRasterBand* band = dataset->GetRasterBand(1);
        index->decibels = complex ? false : band->ComputeRasterMinMax(TRUE, range) == CE_None ? range[0] < 0.0 : true;
        return true;
    }
    const OpticalBands bands = findOpticalBands(labels);
    if (bands.green < 0)
        return false;
    if (bands.swir >= 0)
    {
        index->kind = WaterIndex::Mndwi;
        index->bands = {bands.green, bands.swir};
        return true;
    }
    if (bands.nir >= 0)
    {
        index->kind = WaterIndex::Ndwi;
        index->bands = {bands.green, bands.nir};
        return true;
    }
    return false;
}

void waterIndexValues(const WaterIndex& index, const float* pixels, const unsigned char* valid, size_t count, float* out)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    if (index.kind == WaterIndex::Radar)
    {
        for (size_t p = 0; p < count; ++p)
        {
            const float v = pixels[p];
            out[p] = !valid[p] ? nan : index.decibels ? v : v > 0.0f ? 10.0f * std::log10(v) : nan;
        }
        return;
    }
    for (size_t p = 0; p < count; ++p)
    {
        const float green = pixels[2 * p], other = pixels[2 * p + 1];
        const float sum = green + other;
        out[p] = valid[p] && sum != 0.0f ? (green - other) / sum : nan;
    }
}

} // namespace obia
