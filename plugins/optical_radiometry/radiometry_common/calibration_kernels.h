// Radiometric calibration over typed buffers: linear DN conversions and brightness temperature.
#pragma once

#include "optical_products.h"

#include <cstddef>

namespace radiometry
{

constexpr float kOutputNoData = -9999.0f;

// out = gain * DN + bias.
struct LinearCalibration
{
    double gain = 1.0;
    double bias = 0.0;
};

// At-sensor radiance of a band; throws optical::ProductError when the band has no radiance rescaling.
LinearCalibration radianceOf(const optical::BandCoefficients& band);
// Top-of-atmosphere reflectance: the product's reflectance factors (divided by the sine of the sun elevation
// where they do not already hold it), else pi * L * d^2 / (ESUN * cos(sun zenith)). Throws ProductError naming
// what is missing.
LinearCalibration reflectanceOf(const optical::BandCoefficients& band, const optical::SunGeometry& sun);

// Which input values are no data: the band's own value when it has one, and 0 for products that fill with 0.
struct NoDataRule
{
    bool hasValue = false;
    double value = 0.0;
    bool zeroIsFill = false;
    bool isNoData(double dn) const { return (hasValue && dn == value) || (zeroIsFill && dn == 0.0) || dn != dn; }
};

// out[i] = gain * dn[i] + bias, or kOutputNoData where dn[i] is no data.
void applyLinear(const double* dn, size_t count, const LinearCalibration& calibration, const NoDataRule& noData,
                 float* out);
// Brightness temperature in kelvin, K2 / ln(K1 / L + 1) with L the band's radiance; kOutputNoData where the DN
// is no data or the radiance is not positive.
void applyBrightnessTemperature(const double* dn, size_t count, const LinearCalibration& radiance, double k1,
                                double k2, const NoDataRule& noData, float* out);

} // namespace radiometry
