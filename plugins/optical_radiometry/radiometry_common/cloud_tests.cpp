// Fmask-style cloud, shadow and snow tests.
#include "cloud_tests.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

namespace radiometry
{

namespace
{

constexpr double kPi = 3.14159265358979323846;

inline double ratio(double a, double b)
{
    const double sum = a + b;
    return sum != 0 ? (a - b) / sum : 0.0;
}

inline bool missing(const CloudBands& b, size_t i)
{
    bool bad = std::isnan(b.blue[i]) || std::isnan(b.green[i]) || std::isnan(b.red[i]) || std::isnan(b.nir[i]);
    if (b.swir1)
        bad = bad || std::isnan(b.swir1[i]) || std::isnan(b.swir2[i]);
    if (b.temperature)
        bad = bad || std::isnan(b.temperature[i]);
    return bad;
}

inline double whitenessOf(double blue, double green, double red)
{
    const double mean = (blue + green + red) / 3.0;
    return mean > 0 ? (std::fabs(blue - mean) + std::fabs(green - mean) + std::fabs(red - mean)) / mean : 1e9;
}

inline double cirrusTerm(const CloudBands& b, size_t i)
{
    return b.cirrus && !std::isnan(b.cirrus[i]) ? std::max(0.0, double(b.cirrus[i])) / 0.04 : 0.0;
}

} // namespace

Histogram::Histogram(double low, double high, int bins) : m_low(low), m_high(high), m_bins(size_t(bins), 0) {}

void Histogram::add(double value)
{
    if (std::isnan(value))
        return;
    const double t = (value - m_low) / (m_high - m_low);
    const int bin = std::clamp(int(t * double(m_bins.size())), 0, int(m_bins.size()) - 1);
    ++m_bins[size_t(bin)];
    ++m_count;
}

void Histogram::merge(const Histogram& other)
{
    for (size_t i = 0; i < m_bins.size() && i < other.m_bins.size(); ++i)
        m_bins[i] += other.m_bins[i];
    m_count += other.m_count;
}

double Histogram::percentile(double percent, double fallback) const
{
    if (m_count == 0)
        return fallback;
    const double wanted = percent / 100.0 * double(m_count);
    long long seen = 0;
    const double width = (m_high - m_low) / double(m_bins.size());
    for (size_t i = 0; i < m_bins.size(); ++i)
    {
        seen += m_bins[i];
        if (double(seen) >= wanted)
            return m_low + (double(i) + 0.5) * width;
    }
    return m_high;
}

void cloudFirstPass(const CloudBands& b, size_t count, uint8_t* flags, Histogram* landTemperature,
                    Histogram* waterTemperature)
{
    for (size_t i = 0; i < count; ++i)
    {
        if (missing(b, i))
        {
            flags[i] = kFlagNoData;
            continue;
        }
        const double blue = b.blue[i], green = b.green[i], red = b.red[i], nir = b.nir[i];
        const double swir1 = b.swir1[i], swir2 = b.swir2[i];
        const double ndvi = ratio(nir, red), ndsi = ratio(green, swir1);
        const double t = b.temperature ? double(b.temperature[i]) : -100.0;
        const bool basic = swir2 > 0.03 && t < 27.0 && ndsi < 0.8 && ndvi < 0.8;
        const bool white = whitenessOf(blue, green, red) < 0.7;
        const bool hot = blue - 0.5 * red - 0.08 > 0;
        const bool nirSwir = swir1 > 0 && nir / swir1 > 0.75;
        const bool water = (ndvi < 0.01 && nir < 0.11) || (ndvi < 0.1 && ndvi > 0 && nir < 0.05);
        uint8_t f = 0;
        if (basic && white && hot && nirSwir)
            f |= kFlagPotentialCloud;
        if (water)
            f |= kFlagWater;
        if (water && swir2 < 0.03)
        {
            f |= kFlagClearWater;
            if (b.temperature)
                waterTemperature->add(t);
        }
        if (!(f & kFlagPotentialCloud) && !water)
        {
            f |= kFlagClearLand;
            if (b.temperature)
                landTemperature->add(t);
        }
        if (ndsi > 0.15 && t < 9.85 && nir > 0.11 && green > 0.1)
            f |= kFlagSnow;
        flags[i] = f;
    }
}

void cloudSecondPass(const CloudBands& b, size_t count, const CloudTemperatures& temps, uint8_t* flags,
                     float* landProbability, Histogram* clearLandProbability)
{
    const double span = (temps.landHigh + 4.0) - (temps.landLow - 4.0);
    for (size_t i = 0; i < count; ++i)
    {
        uint8_t& f = flags[i];
        if (f & kFlagNoData)
        {
            landProbability[i] = 0;
            continue;
        }
        const double green = b.green[i], red = b.red[i], nir = b.nir[i], swir1 = b.swir1[i];
        const double whiteness = whitenessOf(b.blue[i], green, red);
        const double variability =
            1.0 - std::max({std::fabs(ratio(nir, red)), std::fabs(ratio(green, swir1)), whiteness});
        const double t = b.temperature ? double(b.temperature[i]) : 0.0;
        const double landTemp = temps.thermal && span > 0 ? (temps.landHigh + 4.0 - t) / span : 1.0;
        const double cirrus = cirrusTerm(b, i);
        const double land = landTemp * variability + cirrus;
        landProbability[i] = float(land);
        if (f & kFlagClearLand)
            clearLandProbability->add(land);
        const bool water = f & kFlagWater;
        if (water && (f & kFlagPotentialCloud))
        {
            const double waterTemp = temps.thermal ? (temps.water - t) / 4.0 : 1.0;
            const double brightness = std::min(swir1, 0.11) / 0.11;
            if (waterTemp * brightness + cirrus > 0.5)
                f |= kFlagCloud;
        }
        if ((land > 0.99 && !water && (f & kFlagPotentialCloud)) ||
            (temps.thermal && t < temps.landLow - 35.0))
            f |= kFlagCloud;
    }
}

void cloudThirdPass(size_t count, double landThreshold, const float* landProbability, uint8_t* flags)
{
    for (size_t i = 0; i < count; ++i)
    {
        uint8_t& f = flags[i];
        if ((f & kFlagPotentialCloud) && !(f & kFlagWater) && !(f & kFlagNoData) && landProbability[i] > landThreshold)
            f |= kFlagCloud;
    }
}

void fourBandClouds(const CloudBands& b, size_t count, uint8_t* flags)
{
    for (size_t i = 0; i < count; ++i)
    {
        if (missing(b, i))
        {
            flags[i] = kFlagNoData;
            continue;
        }
        const double blue = b.blue[i], green = b.green[i], red = b.red[i], nir = b.nir[i];
        const double brightness = (blue + green + red + nir) / 4.0;
        const double ndvi = ratio(nir, red);
        const bool bright = brightness > 0.2 && blue > 0.15;
        const bool white = whitenessOf(blue, green, red) < 0.7;
        const bool hot = blue - 0.5 * red - 0.08 > 0;
        const bool water = ndvi < 0.01 && nir < 0.11;
        uint8_t f = 0;
        if (bright && white && hot && ndvi < 0.4)
            f |= kFlagPotentialCloud | kFlagCloud;
        if (water)
            f |= kFlagWater;
        flags[i] = f;
    }
}

void fillDepressions(float* image, int width, int height)
{
    // Priority flood with a bucket queue over 65536 levels of the image's range: linear in the pixels; a pixel
    // may rise up to one level step (range / 65535) short of or past its exact fill.
    const size_t count = size_t(width) * size_t(height);
    float low = std::numeric_limits<float>::max(), high = -std::numeric_limits<float>::max();
    for (size_t i = 0; i < count; ++i)
        if (!std::isnan(image[i]))
        {
            low = std::min(low, image[i]);
            high = std::max(high, image[i]);
        }
    if (low > high)
        return;
    constexpr int kLevels = 65536;
    const double perLevel = high > low ? (kLevels - 1) / double(high - low) : 0.0;
    const auto levelOf = [&](float v) { return std::clamp(int((double(v) - low) * perLevel), 0, kLevels - 1); };
    std::vector<std::vector<int>> buckets(kLevels);
    std::vector<uint8_t> closed(count, 0);
    const auto seed = [&](size_t i) {
        if (closed[i])
            return;
        closed[i] = 1;
        if (std::isnan(image[i]))
            image[i] = low; // no data drains like the border
        buckets[size_t(levelOf(image[i]))].push_back(int(i));
    };
    for (int x = 0; x < width; ++x)
    {
        seed(size_t(x));
        seed(size_t(height - 1) * size_t(width) + size_t(x));
    }
    for (int y = 0; y < height; ++y)
    {
        seed(size_t(y) * size_t(width));
        seed(size_t(y) * size_t(width) + size_t(width - 1));
    }
    for (size_t i = 0; i < count; ++i)
        if (std::isnan(image[i]))
            seed(i);
    static const int dx[] = {-1, 0, 1, -1, 1, -1, 0, 1}, dy[] = {-1, -1, -1, 0, 0, 1, 1, 1};
    for (int level = 0; level < kLevels; ++level)
    {
        std::vector<int>& bucket = buckets[size_t(level)];
        while (!bucket.empty())
        {
            const int index = bucket.back();
            bucket.pop_back();
            const float value = image[index];
            const int x = index % width, y = index / width;
            for (int k = 0; k < 8; ++k)
            {
                const int nx = x + dx[k], ny = y + dy[k];
                if (nx < 0 || ny < 0 || nx >= width || ny >= height)
                    continue;
                const size_t n = size_t(ny) * size_t(width) + size_t(nx);
                if (closed[n])
                    continue;
                closed[n] = 1;
                image[n] = std::max(image[n], value);
                buckets[size_t(std::max(level, levelOf(image[n])))].push_back(int(n));
            }
        }
        std::vector<int>().swap(bucket);
    }
}

int matchCloudShadows(uint8_t* mask, const uint8_t* potentialShadow, int width, int height, double sunAzimuth,
                      double sunZenith, double pixelSize, double minHeight, double maxHeight, double minSimilarity)
{
    cv::Mat cloud = cv::Mat(height, width, CV_8U, mask) == kCloud;
    cv::Mat labels;
    const int objects = cv::connectedComponents(cloud, labels, 8, CV_32S);
    if (objects <= 1 || !(sunZenith > 0 && sunZenith < 89))
        return 0;
    // The pixels of each object, a sample of at most kSample of them for the similarity.
    std::vector<std::vector<int>> members(static_cast<size_t>(objects));
    const int* label = labels.ptr<int>();
    for (int i = 0; i < width * height; ++i)
        if (label[i] > 0)
            members[size_t(label[i])].push_back(i);
    constexpr size_t kSample = 4000;
    // Away from the sun: east for a sun in the west; rows grow southward.
    const double azimuth = sunAzimuth * kPi / 180.0;
    const double ux = -std::sin(azimuth), uy = std::cos(azimuth);
    const double perMetre = std::tan(sunZenith * kPi / 180.0) / pixelSize;
    const double step = 1.0 / std::max(perMetre, 1e-9); // one pixel of shift
    std::vector<uint8_t> shadow(size_t(width) * size_t(height), 0);
    int matched = 0;
    for (int object = 1; object < objects; ++object)
    {
        const std::vector<int>& pixels = members[size_t(object)];
        if (pixels.size() < 9)
            continue;
        const size_t stride = std::max<size_t>(1, pixels.size() / kSample);
        double best = 0, bestHeight = 0, previous = 0;
        for (double h = minHeight; h <= maxHeight; h += step)
        {
            const double shift = h * perMetre;
            const int sx = int(std::lround(ux * shift)), sy = int(std::lround(uy * shift));
            size_t inside = 0, onShadow = 0;
            for (size_t k = 0; k < pixels.size(); k += stride)
            {
                const int x = pixels[k] % width + sx, y = pixels[k] / width + sy;
                if (x < 0 || y < 0 || x >= width || y >= height)
                    continue;
                const int n = y * width + x;
                if (label[n] == object)
                    continue;
                ++inside;
                if (potentialShadow[n] || mask[n] == kCloud)
                    ++onShadow;
            }
            const double similarity = inside ? double(onShadow) / double(inside) : 0.0;
            if (similarity > best)
            {
                best = similarity;
                bestHeight = h;
            }
            // Past a clear peak the footprint is leaving the shadow.
            if (best > minSimilarity && similarity < 0.95 * best && previous >= similarity)
                break;
            previous = similarity;
        }
        if (best <= minSimilarity)
            continue;
        ++matched;
        const double shift = bestHeight * perMetre;
        const int sx = int(std::lround(ux * shift)), sy = int(std::lround(uy * shift));
        for (int p : pixels)
        {
            const int x = p % width + sx, y = p / width + sy;
            if (x >= 0 && y >= 0 && x < width && y < height)
                shadow[size_t(y * width + x)] = 1;
        }
    }
    for (size_t i = 0; i < shadow.size(); ++i)
        if (shadow[i] && mask[i] != kCloud && mask[i] != kNoDataClass)
            mask[i] = kShadow;
    return matched;
}

} // namespace radiometry
