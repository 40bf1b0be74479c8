// Band-averaged correction terms and their per-pixel application.
#include "band_correction.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace atmosphere
{
namespace
{

// Relative solar spectral irradiance: a 5800 K black body (only ratios across one band matter).
double solarWeight(double wavelengthUm)
{
    const double x = 14387.77 / (wavelengthUm * 5800.0);
    return 1.0 / (std::pow(wavelengthUm, 5) * (std::exp(x) - 1.0));
}

} // namespace

SpectralBand spectralBand(const std::string& sensor, const std::string& bandId, double centreUm)
{
    using Edges = std::map<std::string, SpectralBand>;
    // Landsat 8/9 OLI, Landsat 7 ETM+ and Landsat 4/5 TM (USGS band designations), Sentinel-2 MSI (ESA centre
    // wavelengths and bandwidths).
    static const Edges oli = {{"1", {0.435, 0.451}}, {"2", {0.452, 0.512}}, {"3", {0.533, 0.590}},
                              {"4", {0.636, 0.673}}, {"5", {0.851, 0.879}}, {"6", {1.566, 1.651}},
                              {"7", {2.107, 2.294}}, {"8", {0.503, 0.676}}, {"9", {1.363, 1.384}}};
    static const Edges etm = {{"1", {0.441, 0.514}}, {"2", {0.519, 0.601}}, {"3", {0.631, 0.692}},
                              {"4", {0.772, 0.898}}, {"5", {1.547, 1.749}}, {"7", {2.064, 2.345}},
                              {"8", {0.515, 0.896}}};
    static const Edges tm = {{"1", {0.45, 0.52}}, {"2", {0.52, 0.60}}, {"3", {0.63, 0.69}},
                             {"4", {0.76, 0.90}}, {"5", {1.55, 1.75}}, {"7", {2.08, 2.35}}};
    static const Edges msi = {{"B01", {0.433, 0.453}}, {"B02", {0.458, 0.523}}, {"B03", {0.543, 0.578}},
                              {"B04", {0.650, 0.680}}, {"B05", {0.698, 0.713}}, {"B06", {0.733, 0.748}},
                              {"B07", {0.773, 0.793}}, {"B08", {0.785, 0.900}}, {"B8A", {0.855, 0.875}},
                              {"B09", {0.935, 0.955}}, {"B10", {1.360, 1.390}}, {"B11", {1.565, 1.655}},
                              {"B12", {2.100, 2.280}}};
    // Bands 1-4 of the four-band cameras whose deliveries come with a coefficient table (GF-1/2/6 WFV and PMS,
    // ZY-3 MUX, HJ-1 CCD): blue, green, red and near infrared at about these edges.
    static const Edges fourBand = {{"1", {0.45, 0.52}}, {"2", {0.52, 0.59}}, {"3", {0.63, 0.69}}, {"4", {0.77, 0.89}}};
    const Edges* table = sensor == "OLI_TIRS" || sensor == "OLI" ? &oli
                         : sensor == "ETM"                       ? &etm
                         : sensor == "TM"                        ? &tm
                         : sensor == "MSI"                       ? &msi
                         : sensor == kFourBandCamera             ? &fourBand
                                                                 : nullptr;
    if (table)
    {
        const auto it = table->find(bandId);
        if (it != table->end())
            return it->second;
    }
    if (!(centreUm > 0))
        return {};
    return {centreUm - 0.03, centreUm + 0.03};
}

BandCorrection bandCorrection(const SpectralBand& band, const AtmosphereState& state)
{
    constexpr double kDeg = M_PI / 180.0;
    const double pressure = pressureAtElevation(state.elevationM);
    const GasColumns gases = gasColumns(state.atmosphere);
    const double airMass = 1.0 / std::cos(state.geometry.sunZenithDeg * kDeg) +
                           1.0 / std::max(std::cos(state.geometry.viewZenithDeg * kDeg), 1e-3);
    const double width = std::max(band.highUm - band.lowUm, 1e-4);

    // Gases vary line by line: a fine sampling. Scattering varies smoothly: the band's edges and middle.
    double gas = 0.0, weights = 0.0;
    constexpr int kGasSamples = 41;
    for (int i = 0; i < kGasSamples; ++i)
    {
        const double wl = band.lowUm + width * (i + 0.5) / kGasSamples;
        const double w = solarWeight(wl);
        gas += w * gaseousTransmittance(wl, gases, airMass, pressure);
        weights += w;
    }
    BandCorrection out;
    out.gasTransmittance = gas / weights;

    out.pathReflectance = out.transmittance = out.sphericalAlbedo = 0.0;
    weights = 0.0;
    constexpr int kScatterSamples = 3;
    for (int i = 0; i < kScatterSamples; ++i)
    {
        const double wl = band.lowUm + width * (i + 0.5) / kScatterSamples;
        const double w = solarWeight(wl);
        const AerosolOptics aerosol = aerosolOptics(state.aerosol, wl);
        ColumnOptics column;
        column.rayleighDepth = rayleighOpticalDepth(wl, pressure);
        column.aerosolDepth =
            state.aerosol == AerosolKind::None ? 0.0 : state.aerosolDepth550 * aerosol.extinctionRatio;
        column.aerosolAlbedo = aerosol.singleScatteringAlbedo;
        column.forwardAsymmetry = aerosol.forwardAsymmetry;
        column.backwardAsymmetry = aerosol.backwardAsymmetry;
        column.forwardWeight = aerosol.forwardWeight;
        const ScatteringTerms terms = scatteringTerms(column, state.geometry);
        out.pathReflectance += w * terms.pathReflectance;
        out.transmittance += w * terms.downTransmittance * terms.upTransmittance;
        out.sphericalAlbedo += w * terms.sphericalAlbedo;
        weights += w;
    }
    out.pathReflectance /= weights;
    out.transmittance /= weights;
    out.sphericalAlbedo /= weights;
    return out;
}

void applyCorrection(const BandCorrection& correction, const float* toa, size_t count, float noData, float* out)
{
    const double a = 1.0 / (correction.gasTransmittance * correction.transmittance);
    const double b = correction.pathReflectance / correction.transmittance;
    const double s = correction.sphericalAlbedo;
    for (size_t i = 0; i < count; ++i)
    {
        if (toa[i] == noData || !std::isfinite(toa[i]))
        {
            out[i] = noData;
            continue;
        }
        const double y = a * toa[i] - b;
        out[i] = float(y / (1.0 + s * y));
    }
}

} // namespace atmosphere
