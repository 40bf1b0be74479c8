// The correction of one sensor band: the scattering and gaseous terms averaged over the band's response and
// solar spectrum, kept as three numbers applied to each pixel's top-of-atmosphere reflectance.
#pragma once

#include "atmosphere_optics.h"
#include "radiative_transfer.h"

#include <cstddef>
#include <string>

namespace atmosphere
{

// A band's spectral response, taken as flat between its edges (micrometres).
struct SpectralBand
{
    double lowUm = 0.0, highUm = 0.0;
};

// Sensor name of the four-band cameras delivered with a coefficient table.
constexpr const char* kFourBandCamera = "FOUR_BAND";

// The edges of a known band ("OLI_TIRS" / "ETM" / "TM" band ids "1" ... "7", "MSI" "B01" ... "B12",
// kFourBandCamera "1" ... "4"), else 60 nm centred on the wavelength given; empty (both edges 0) when neither.
SpectralBand spectralBand(const std::string& sensor, const std::string& bandId, double centreUm);

// Everything the terms depend on but the band.
struct AtmosphereState
{
    StandardAtmosphere atmosphere = StandardAtmosphere::MidLatitudeSummer;
    AerosolKind aerosol = AerosolKind::Continental;
    double aerosolDepth550 = 0.235;
    double elevationM = 0.0;
    Geometry geometry;
};

// rho_toa = Tg * (rho_path + T * rho_s / (1 - S * rho_s)), T the product of both total transmittances.
struct BandCorrection
{
    double pathReflectance = 0.0;
    double transmittance = 1.0;
    double sphericalAlbedo = 0.0;
    double gasTransmittance = 1.0;

    double surfaceReflectance(double toa) const
    {
        const double y = (toa / gasTransmittance - pathReflectance) / transmittance;
        return y / (1.0 + sphericalAlbedo * y);
    }
    double topOfAtmosphere(double surface) const
    {
        return gasTransmittance * (pathReflectance + transmittance * surface / (1.0 - sphericalAlbedo * surface));
    }
};

BandCorrection bandCorrection(const SpectralBand& band, const AtmosphereState& state);

// Surface reflectance of `count` TOA reflectances; values equal to noData stay so.
void applyCorrection(const BandCorrection& correction, const float* toa, size_t count, float noData, float* out);

} // namespace atmosphere
