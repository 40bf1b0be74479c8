// Dark dense vegetation aerosol retrieval.
#include "aerosol_retrieval.h"

#include <algorithm>
#include <cmath>

namespace atmosphere
{

void collectDarkTargets(const float* blue, const float* red, const float* nir, const float* swir, size_t count,
                        float noData, DarkTargets* targets)
{
    for (size_t i = 0; i < count; ++i)
    {
        const float b = blue[i], r = red[i], n = nir[i], s = swir[i];
        if (b == noData || r == noData || n == noData || s == noData)
            continue;
        if (!(s >= 0.01f && s <= 0.15f) || !(n + r > 0) || (n - r) < 0.3f * (n + r))
            continue;
        targets->blue += b;
        targets->red += r;
        targets->swir += s;
        ++targets->count;
    }
}

namespace
{

// Depth where observed - predicted(depth) changes sign, by a coarse grid and linear interpolation.
double matchDepth(const SpectralBand& band, double surface, double observed, AtmosphereState state)
{
    static const double grid[] = {0.0, 0.05, 0.1, 0.15, 0.2, 0.3, 0.4, 0.55, 0.7, 0.9, 1.2, 1.6, 2.2, 3.0};
    double previous = 0.0;
    for (size_t i = 0; i < std::size(grid); ++i)
    {
        state.aerosolDepth550 = grid[i];
        const double residual = observed - bandCorrection(band, state).topOfAtmosphere(surface);
        if (residual <= 0)
            return i == 0 ? 0.0 : grid[i - 1] + (grid[i] - grid[i - 1]) * previous / (previous - residual);
        previous = residual;
    }
    return grid[std::size(grid) - 1];
}

} // namespace

double retrieveAerosolDepth(const DarkTargets& targets, const SpectralBand& blue, const SpectralBand& red,
                            AtmosphereState state)
{
    if (targets.count == 0)
        return 0.0;
    const double n = double(targets.count);
    const double swir = targets.swir / n;
    const double fromBlue = matchDepth(blue, kBlueShare * swir, targets.blue / n, state);
    const double fromRed = matchDepth(red, kRedShare * swir, targets.red / n, state);
    return 0.5 * (fromBlue + fromRed);
}

} // namespace atmosphere
