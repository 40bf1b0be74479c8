// Cloud, cloud-shadow and snow tests over typed buffers, after Fmask (Zhu and Woodcock 2012, with the cirrus term
// of Zhu, Wang and Woodcock 2015): spectral tests for potential cloud, temperature and variability probabilities
// over clear land and water, and shadows found by projecting each cloud object along the sun's direction.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace radiometry
{

// Mask values written by cloud detection.
enum CloudClass : uint8_t
{
    kClear = 0,
    kCloud = 1,
    kShadow = 2,
    kSnow = 3,
    kNoDataClass = 255
};

// Per-pixel flags of the first pass.
enum CloudFlag : uint8_t
{
    kFlagPotentialCloud = 1,
    kFlagWater = 2,
    kFlagClearWater = 4,
    kFlagClearLand = 8,
    kFlagSnow = 16,
    kFlagNoData = 32,
    kFlagCloud = 64
};

// One block of top-of-atmosphere reflectances (and brightness temperature in degrees Celsius); cirrus and
// temperature may be null. NaN marks no data.
struct CloudBands
{
    const float* blue = nullptr;
    const float* green = nullptr;
    const float* red = nullptr;
    const float* nir = nullptr;
    const float* swir1 = nullptr; // null for four-band sensors
    const float* swir2 = nullptr;
    const float* cirrus = nullptr;
    const float* temperature = nullptr;
};

// A histogram over a fixed range for percentiles of values met block by block.
class Histogram
{
public:
    Histogram(double low, double high, int bins);
    void add(double value);
    void merge(const Histogram& other);
    long long count() const { return m_count; }
    // The value below which `percent` of the values lie (bin centre); `fallback` when empty.
    double percentile(double percent, double fallback) const;

private:
    double m_low, m_high;
    std::vector<long long> m_bins;
    long long m_count = 0;
};

// First pass: flags of each pixel, and the temperatures of clear land and clear water for the percentiles.
void cloudFirstPass(const CloudBands& bands, size_t count, uint8_t* flags, Histogram* landTemperature,
                    Histogram* waterTemperature);

// The scene's temperature statistics of the second pass.
struct CloudTemperatures
{
    bool thermal = false;
    double landLow = 0, landHigh = 0; // 17.5 and 82.5 percentiles over clear land
    double water = 0;                 // 82.5 percentile over clear water
};

// Second pass: land cloud probability of each pixel (kept for the scene threshold), cloud decided where it does
// not need that threshold (water probability, very high land probability, very cold), and the probabilities of
// clear land gathered.
void cloudSecondPass(const CloudBands& bands, size_t count, const CloudTemperatures& temperatures, uint8_t* flags,
                     float* landProbability, Histogram* clearLandProbability);

// Third pass: potential cloud over land above the scene threshold becomes cloud.
void cloudThirdPass(size_t count, double landThreshold, const float* landProbability, uint8_t* flags);

// Four-band sensors (blue, green, red, NIR): bright, white, hazy-optimised and not vegetated, after the spectral
// rules of Li et al. (2017).
void fourBandClouds(const CloudBands& bands, size_t count, uint8_t* flags);

// Fills the depressions of an image in place (priority flood): each pixel rises to the lowest level over which
// water would leave it toward the border. NaN pixels count as border.
void fillDepressions(float* image, int width, int height);

// Shadows: each 8-connected cloud object is moved away from the sun over cloud heights from minHeight to maxHeight
// (metres); the height whose footprint lies most on potential shadow (or other cloud) wins when that share
// exceeds minSimilarity, and the footprint there becomes shadow where it is not cloud. Returns the objects matched.
int matchCloudShadows(uint8_t* mask, const uint8_t* potentialShadow, int width, int height, double sunAzimuth,
                      double sunZenith, double pixelSize, double minHeight = 200, double maxHeight = 12000,
                      double minSimilarity = 0.3);

} // namespace radiometry
