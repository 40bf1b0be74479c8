// Speckle filters over blocks of an intensity band (never dB): each output pixel from the window around it,
// pixels outside the image or without data (NaN) left out of every statistic.
#pragma once

#include "speckle_statistics.h"

#include <limits>
#include <vector>

namespace sar
{

enum class SpeckleFilter
{
    Boxcar,
    Median,
    Lee,        // Lee 1980: x = m + W (z - m), W = 1 - Cu^2 / Ci^2
    RefinedLee, // Lee 1981: the Lee estimate over the edge-aligned half window
    Frost,      // Frost 1982: weights exp(-K Ci^2 d), d the distance to the centre
    Kuan,       // Kuan 1985: W = (1 - Cu^2 / Ci^2) / (1 + Cu^2)
    GammaMap,   // Lopes et al. 1993: gamma-distributed scene, maximum a posteriori
    LeeSigma,   // Lee et al. 2009: improved sigma filter
    Idan        // Vasile et al. 2006: intensity-driven adaptive neighbourhood
};

// The filter names users write, in the order of SpeckleFilter.
extern const char* const kSpeckleFilterNames[9];

struct SpeckleSettings
{
    SpeckleFilter filter = SpeckleFilter::Lee;
    int window = 7;             // odd
    double looks = 1.0;         // equivalent number of looks of the intensity; Cu^2 = 1 / looks
    double frostDamping = 1.0;  // K of the Frost weights (Frost et al.'s own choice)
    double brightThreshold = std::numeric_limits<double>::infinity(); // sigma filter: 98th percentile of the scene
};

// Rows (and columns) of context each output pixel reads on either side.
int speckleHalo(const SpeckleSettings& settings);

// One block of intensity (`rows` x `width`, NaN = no data) holding output rows and their halo.
class SpeckleBlockFilter
{
public:
    SpeckleBlockFilter(const float* block, int width, int rows, const SpeckleSettings& settings);
    // Filters block rows [begin, end) into out (row `begin` first); safe to call from several threads.
    void filterRows(int begin, int end, float* out) const;

    struct Moments
    {
        int count = 0;
        double mean = 0.0;
        double variance = 0.0;
    };
    // Moments of the valid pixels of the (2 halfX + 1) x (2 halfY + 1) box around (x, y), clipped to the block.
    Moments box(int x, int y, int halfX, int halfY) const;

    // The pixels (block indices y * width + x) and weight of the filters whose estimate is linear in the
    // neighbours: mean of the pixels + weight (z - mean). Boxcar (weight 0), RefinedLee, LeeSigma, IDAN; the
    // polarimetric filters apply the choice made on the span to every matrix element.
    struct Neighbourhood
    {
        std::vector<int> pixels;
        double weight = 0.0;
    };
    void neighbourhood(int x, int y, Neighbourhood& chosen, std::vector<int>& marks) const;

private:
    float filterPixel(int x, int y, std::vector<float>& scratch, std::vector<int>& marks) const;
    float median(int x, int y, int half, std::vector<float>& scratch) const;
    void refinedLeeHalf(int x, int y, std::vector<int>& pixels) const;
    float frost(int x, int y, const Moments& local) const;
    float gammaMap(float z, const Moments& local) const;
    void leeSigma(int x, int y, Neighbourhood& chosen) const;
    void idan(int x, int y, Neighbourhood& chosen, std::vector<int>& marks) const;
    // Linear MMSE estimate of z from moments with speckle variance noise2 (Lee 1981's form).
    static float mmse(float z, double mean, double variance, double noise2);
    float at(int x, int y) const { return m_data[size_t(y) * m_width + x]; }

    const float* m_data;
    int m_width;
    int m_rows;
    SpeckleSettings m_settings;
    double m_cu2;
    std::vector<double> m_sum;     // integral images, (rows + 1) x (width + 1)
    std::vector<double> m_squares;
    std::vector<int> m_count;
    std::vector<float> m_frostDistance; // window x window
    std::vector<int> m_halves[8];       // refined Lee: offsets of the eight edge-aligned half windows
    SigmaRange m_sigma;                 // sigma filter and adaptive neighbourhood: the speckle range
};

} // namespace sar
