// Pan-sharpening models: statistics fitted at the multispectral scale, then applied pixel by pixel
// at the pan scale. Invalid pixels are NaN throughout.
#pragma once

#include <cstddef>
#include <vector>

namespace optgeo
{

enum class FusionMethod
{
    Brovey,      // weighted Brovey: MS * P / I
    GIHS,        // generalised IHS: MS + (P' - I)
    GramSchmidt, // Gram-Schmidt in its adaptive form: MS + g (P' - I), g = cov(MS, I) / var(I)
    HPF,         // high-pass filter injection: MS + g (P - box(P))
    MTFGLP,      // MTF-matched generalised Laplacian: MS + g (P - gauss(P))
    PCA,         // principal-component substitution: MS + v1 (P' - PC1)
    CNS,         // colour-normalised spectral sharpening of the bands in the pan's range
    SFIM         // smoothing-filter-based intensity modulation: MS * P / box(P)
};

// Modulation transfer at the multispectral Nyquist frequency assumed for the MTF-matched low-pass.
constexpr double kNyquistGain = 0.3;

struct FusionModel
{
    FusionMethod method = FusionMethod::Brovey;
    int bands = 0;
    // Intensity I = sum(weights[i] * MS[i]) + intensityOffset (Brovey, GIHS, Gram-Schmidt, PCA).
    std::vector<double> weights;
    double intensityOffset = 0.0;
    // Pan matched to the intensity in mean and deviation: P' = panGain * P + panOffset.
    double panGain = 1.0;
    double panOffset = 0.0;
    // Detail injection gain of each band.
    std::vector<double> gains;
    // CNS: whether each band lies in the pan's spectral range.
    std::vector<char> inGroup;
    // Low-pass of the pan: box of boxSize pixels (HPF, SFIM) or Gaussian of gaussSigma (MTF-GLP).
    int boxSize = 0;
    double gaussSigma = 0.0;

    bool needsLowPass() const { return boxSize > 0 || gaussSigma > 0.0; }
    // Rows of pan needed above and below a block for its low-pass.
    int lowPassRadius() const;
};

// Fits the model of `method` for a resolution ratio (multispectral pixel / pan pixel) from the pan
// degraded to the multispectral grid and the multispectral bands on that grid, `count` pixels each.
// cnsGroup: CNS only, one flag per band.
FusionModel fitFusionModel(FusionMethod method, double ratio, const float* panLow, const std::vector<const float*>& ms,
                           size_t count, const std::vector<char>& cnsGroup = {});

// Low-pass of the pan as the model wants it (rows x cols, edge repeated).
void lowPassPan(const FusionModel& model, const float* pan, int cols, int rows, float* dst);

// Fuses `count` pixels: pan, its low-pass (null unless needsLowPass()), the multispectral bands
// resampled onto the pan grid; writes one buffer per band. NaN in any input gives NaN.
void fusePixels(const FusionModel& model, const float* pan, const float* panLow, const std::vector<const float*>& ms,
                size_t count, const std::vector<float*>& out);

} // namespace optgeo
