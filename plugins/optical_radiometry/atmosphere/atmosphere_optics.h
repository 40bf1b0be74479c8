// Optical properties of the clear atmosphere: molecular (Rayleigh) optical depth, pressure at a height, aerosol
// optical depth from visibility, the aerosol models, the standard atmospheres and their gaseous transmittance.
#pragma once

namespace atmosphere
{

constexpr double kSeaLevelPressure = 1013.25; // hPa

// Rayleigh optical depth of the whole atmosphere at wavelength (micrometres) and surface pressure (hPa), after
// Bodhaine et al. (1999), their equation (30) scaled by pressure.
double rayleighOpticalDepth(double wavelengthUm, double pressureHpa);

// Surface pressure (hPa) at an elevation (metres) in the standard atmosphere.
double pressureAtElevation(double elevationM);

// Aerosol optical depth at 550 nm for a horizontal visibility (km): a / V + b fitted to the figures of 6S's
// continental profile (5 km 0.780, 10 km 0.432, 23 km 0.235, 50 km 0.152, 100 km 0.115).
double aerosolDepthFromVisibility(double visibilityKm);
// The inverse, for reporting a retrieved depth as a visibility (km); infinite below the depth of clean air.
double visibilityFromAerosolDepth(double depth550);

enum class AerosolKind
{
    None = 0,
    Continental = 1,
    Maritime = 2,
    Urban = 3,
    Desert = 4
};

// Bulk optics of an aerosol model: spectral extinction relative to 550 nm, single-scattering albedo and a
// two-term Henyey-Greenstein phase function (forward lobe g1 with weight w, backward lobe -g2).
struct AerosolOptics
{
    double extinctionRatio = 1.0; // tau(lambda) / tau(550 nm)
    double singleScatteringAlbedo = 1.0;
    double forwardAsymmetry = 0.7;
    double backwardAsymmetry = 0.3;
    double forwardWeight = 0.95;
};
AerosolOptics aerosolOptics(AerosolKind kind, double wavelengthUm);

enum class StandardAtmosphere
{
    NoAbsorption = 0,
    Tropical = 1,
    MidLatitudeSummer = 2,
    MidLatitudeWinter = 3,
    SubarcticSummer = 4,
    SubarcticWinter = 5,
    UsStandard1962 = 6
};

// Columns of the standard atmospheres (McClatchey et al. 1972): precipitable water (g/cm2) and ozone (cm-atm).
struct GasColumns
{
    double water = 0.0;
    double ozone = 0.0;
};
GasColumns gasColumns(StandardAtmosphere atmosphere);

// Transmittance of ozone, water vapour and the uniformly mixed gases (O2, CO2, CH4, N2O) at one wavelength
// along a path of relative air mass `airMass` (sun plus view), for surface pressure in hPa.
double gaseousTransmittance(double wavelengthUm, const GasColumns& columns, double airMass, double pressureHpa);

} // namespace atmosphere
