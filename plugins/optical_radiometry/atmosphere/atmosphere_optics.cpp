// Tables and closed forms of the clear atmosphere's optics.
#include "atmosphere_optics.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

namespace atmosphere
{
namespace
{

// Piecewise-linear interpolation in a table of (x, y) rows sorted by x, constant beyond the ends.
template <size_t N> double interpolate(const double (&table)[N][2], double x)
{
    if (x <= table[0][0])
        return table[0][1];
    for (size_t i = 1; i < N; ++i)
        if (x <= table[i][0])
        {
            const double t = (x - table[i - 1][0]) / (table[i][0] - table[i - 1][0]);
            return table[i - 1][1] + t * (table[i][1] - table[i - 1][1]);
        }
    return table[N - 1][1];
}

// Ozone absorption coefficient (per cm-atm), Chappuis and Wulf bands, shape of the table below scaled to a peak
// cross-section of 5.2e-21 cm2 at 602 nm.
constexpr double kOzoneScale = 1.12;
const double kOzone[][2] = {{0.40, 0.0003}, {0.44, 0.003}, {0.46, 0.0065}, {0.48, 0.014}, {0.50, 0.032},
                            {0.52, 0.046},  {0.54, 0.070}, {0.56, 0.090},  {0.58, 0.111}, {0.60, 0.125},
                            {0.62, 0.107},  {0.64, 0.076}, {0.66, 0.055},  {0.68, 0.043}, {0.70, 0.023},
                            {0.75, 0.011},  {0.80, 0.008}, {0.90, 0.0016}, {1.00, 0.0}};

} // namespace

double rayleighOpticalDepth(double wavelengthUm, double pressureHpa)
{
    const double l2 = wavelengthUm * wavelengthUm;
    const double depth =
        0.0021520 * (1.0455996 - 341.29061 / l2 - 0.90230850 * l2) / (1.0 + 0.0027059889 / l2 - 85.968563 * l2);
    return depth * pressureHpa / kSeaLevelPressure;
}

double pressureAtElevation(double elevationM)
{
    return kSeaLevelPressure * std::pow(1.0 - 2.25577e-5 * std::max(elevationM, -500.0), 5.25588);
}

namespace
{
constexpr double kVisibilitySlope = 3.494, kCleanAirDepth = 0.0818;
}

double aerosolDepthFromVisibility(double visibilityKm)
{
    return kVisibilitySlope / visibilityKm + kCleanAirDepth;
}

double visibilityFromAerosolDepth(double depth550)
{
    if (depth550 <= kCleanAirDepth)
        return std::numeric_limits<double>::infinity();
    return kVisibilitySlope / (depth550 - kCleanAirDepth);
}

AerosolOptics aerosolOptics(AerosolKind kind, double wavelengthUm)
{
    // Angstrom exponents flatten towards the short-wave infrared where the coarse mode dominates; albedo and
    // asymmetry after the WMO (1986) components the 6S models mix (d'Almeida et al. 1991).
    struct Model
    {
        double angstromVisible, angstromInfrared, albedo550, albedoSlope, asymmetry;
    };
    static const Model models[] = {
        {0.0, 0.0, 1.0, 0.0, 0.0},       // none
        {1.15, 0.75, 0.89, -0.04, 0.64}, // continental
        {0.25, 0.10, 0.99, -0.01, 0.75}, // maritime
        {1.30, 0.90, 0.65, -0.10, 0.60}, // urban
        {0.25, 0.10, 0.88, 0.06, 0.73},  // desert
    };
    const Model& m = models[std::clamp(int(kind), 0, 4)];
    AerosolOptics out;
    const double x = std::log(wavelengthUm / 0.55);
    const double alpha = wavelengthUm <= 0.55 ? m.angstromVisible
                                              : m.angstromVisible + (m.angstromInfrared - m.angstromVisible) *
                                                                        std::min(x / std::log(2.2 / 0.55), 1.0);
    out.extinctionRatio = std::exp(-alpha * x);
    out.singleScatteringAlbedo = std::clamp(m.albedo550 + m.albedoSlope * x, 0.3, 1.0);
    out.forwardWeight = 0.96;
    out.backwardAsymmetry = 0.5;
    out.forwardAsymmetry = (m.asymmetry + (1.0 - out.forwardWeight) * out.backwardAsymmetry) / out.forwardWeight;
    return out;
}

GasColumns gasColumns(StandardAtmosphere atmosphere)
{
    static const GasColumns columns[] = {{0.0, 0.0},    {4.12, 0.247},  {2.93, 0.319}, {0.853, 0.395},
                                         {2.10, 0.480}, {0.419, 0.480}, {1.42, 0.344}};
    return columns[std::clamp(int(atmosphere), 0, 6)];
}

namespace
{
// Water vapour: transmittance exp(-a (u m)^0.55) with u the column (g/cm2) and m the air mass; a per micrometre
// of wavelength over the windows and bands of the solar spectrum.
const double kWater[][2] = {{0.40, 0.0},   {0.50, 0.0},   {0.55, 0.0006}, {0.59, 0.003}, {0.62, 0.0015}, {0.65, 0.002},
                            {0.68, 0.001}, {0.69, 0.004}, {0.70, 0.012},  {0.72, 0.045}, {0.74, 0.012},  {0.76, 0.004},
                            {0.79, 0.010}, {0.82, 0.050}, {0.84, 0.010},  {0.86, 0.004}, {0.88, 0.006},  {0.90, 0.040},
                            {0.93, 0.20},  {0.96, 0.15},  {0.99, 0.02},   {1.03, 0.003}, {1.07, 0.005},  {1.10, 0.05},
                            {1.13, 0.20},  {1.16, 0.08},  {1.20, 0.010},  {1.25, 0.004}, {1.30, 0.030},  {1.35, 0.50},
                            {1.40, 1.00},  {1.45, 0.30},  {1.50, 0.040},  {1.55, 0.012}, {1.60, 0.009},  {1.65, 0.010},
                            {1.70, 0.012}, {1.75, 0.040}, {1.80, 0.20},   {1.85, 0.80},  {1.90, 1.00},   {1.95, 0.50},
                            {2.00, 0.10},  {2.05, 0.040}, {2.10, 0.022},  {2.15, 0.018}, {2.20, 0.020},  {2.25, 0.028},
                            {2.30, 0.042}, {2.35, 0.060}, {2.40, 0.10},   {2.45, 0.25},  {2.50, 0.50}};
// Uniformly mixed gases at sea-level pressure: transmittance exp(-a m^0.55): O2 A and B bands, CO2 at 1.6, 2.0
// and 2.06 um, CH4 beyond 2.2 um.
const double kMixed[][2] = {{0.40, 0.0},    {0.68, 0.0},   {0.687, 0.03}, {0.70, 0.0},   {0.755, 0.0},  {0.762, 0.12},
                            {0.77, 0.0},    {1.25, 0.0},   {1.268, 0.01}, {1.28, 0.0},   {1.55, 0.0},   {1.575, 0.010},
                            {1.605, 0.012}, {1.65, 0.004}, {1.70, 0.002}, {1.95, 0.003}, {2.00, 0.10},  {2.03, 0.03},
                            {2.06, 0.08},   {2.10, 0.017}, {2.15, 0.016}, {2.20, 0.018}, {2.25, 0.024}, {2.30, 0.035},
                            {2.35, 0.04},   {2.40, 0.03},  {2.50, 0.02}};
} // namespace

double gaseousTransmittance(double wavelengthUm, const GasColumns& columns, double airMass, double pressureHpa)
{
    const double ozone = std::exp(-kOzoneScale * interpolate(kOzone, wavelengthUm) * columns.ozone * airMass);
    const double water = columns.water > 0
                             ? std::exp(-interpolate(kWater, wavelengthUm) * std::pow(columns.water * airMass, 0.55))
                             : 1.0;
    const double mixed =
        columns.water > 0 || columns.ozone > 0
            ? std::exp(-interpolate(kMixed, wavelengthUm) * std::pow(airMass * pressureHpa / kSeaLevelPressure, 0.55))
            : 1.0;
    return ozone * water * mixed;
}

} // namespace atmosphere
