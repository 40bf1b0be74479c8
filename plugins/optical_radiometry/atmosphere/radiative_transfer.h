// Scalar radiative transfer in a plane-parallel atmosphere of molecules and aerosols over a black surface, by
// successive orders of scattering (Lenoble et al. 2007): path reflectance, total transmittances and spherical
// albedo, the terms of the Lambertian-surface equation of 6S (Vermote et al. 1997).
#pragma once

namespace atmosphere
{

struct Geometry
{
    double sunZenithDeg = 30.0;
    double viewZenithDeg = 0.0;
    double relativeAzimuthDeg = 0.0; // sun azimuth minus view azimuth
};

// Monochromatic optical state of the column. Molecules and aerosols are spread with exponential profiles of
// scale heights 8 km and 2 km.
struct ColumnOptics
{
    double rayleighDepth = 0.0;
    double aerosolDepth = 0.0;
    double aerosolAlbedo = 1.0;
    double forwardAsymmetry = 0.7;
    double backwardAsymmetry = 0.3;
    double forwardWeight = 0.95;
};

// Scattering terms of the surface equation (gases excluded):
//   rho_toa = rho_path + T_down * T_up * rho_s / (1 - S * rho_s)
struct ScatteringTerms
{
    double pathReflectance = 0.0;
    double downTransmittance = 1.0; // direct plus diffuse, sun direction
    double upTransmittance = 1.0;   // direct plus diffuse, view direction
    double sphericalAlbedo = 0.0;
};

ScatteringTerms scatteringTerms(const ColumnOptics& column, const Geometry& geometry);

} // namespace atmosphere
