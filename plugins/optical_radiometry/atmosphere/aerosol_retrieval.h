// Aerosol optical depth from the dark dense vegetation of a scene (Kaufman et al. 1997): over such pixels the
// surface reflectance in the blue and red is a fixed share of the 2.1 um reflectance, which aerosols barely touch,
// so the depth is the one whose forward model reproduces the observed blue and red.
#pragma once

#include "band_correction.h"

#include <cstddef>

namespace atmosphere
{

// Sums over the dark targets found so far (TOA reflectances).
struct DarkTargets
{
    double blue = 0.0, red = 0.0, swir = 0.0;
    size_t count = 0;
    void add(const DarkTargets& other)
    {
        blue += other.blue;
        red += other.red;
        swir += other.swir;
        count += other.count;
    }
};

// Adds the pixels that are dense vegetation (NDVI at least 0.3) and dark at 2.1 um (0.01 to 0.15); any input
// equal to noData is skipped.
void collectDarkTargets(const float* blue, const float* red, const float* nir, const float* swir, size_t count,
                        float noData, DarkTargets* targets);

// Surface reflectance of dark vegetation as a share of its 2.1 um reflectance.
constexpr double kBlueShare = 0.25, kRedShare = 0.5;

// The 550 nm aerosol depth (0 to 3) whose blue and red TOA reflectance of the mean dark target match the
// observed means (the mean of both bands' answers); `state` gives everything else.
double retrieveAerosolDepth(const DarkTargets& targets, const SpectralBand& blue, const SpectralBand& red,
                            AtmosphereState state);

} // namespace atmosphere
