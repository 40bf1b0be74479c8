// Per-segment features from a label raster and its image, accumulated block by block: pixel count, area,
// perimeter, compactness, shape index, and per band mean, standard deviation, minimum and maximum, brightness.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace obia
{

class SegmentFeatures
{
public:
    // pixelWidth, pixelHeight: the size of a pixel in map units (1 without georeferencing).
    SegmentFeatures(int bands, double pixelWidth, double pixelHeight);

    // One block of rows: labels (0 is no segment) and pixel-interleaved band values; previousRow is the label row
    // just above the block (empty for the first block), so that edges between blocks are counted once.
    void addRows(const uint32_t* labels, const float* pixels, int width, int rows, const std::vector<uint32_t>& previousRow);
    // Closes the outline of the last block's bottom row.
    void finish(const uint32_t* lastRow, int width);

    uint32_t largestLabel() const { return uint32_t(m_count.size()) - 1; }
    double count(uint32_t s) const { return m_count[s]; }
    double area(uint32_t s) const { return m_count[s] * m_pixelArea; }
    double perimeter(uint32_t s) const { return m_perimeter[s]; }
    // 4 pi area / perimeter^2: 1 for a disc, smaller for ragged or elongated segments.
    double compactness(uint32_t s) const;
    // perimeter / (4 sqrt(area)): 1 for a square, larger for ragged ones.
    double shapeIndex(uint32_t s) const;
    double mean(uint32_t s, int band) const { return m_sum[index(s, band)] / m_count[s]; }
    double standardDeviation(uint32_t s, int band) const;
    double minimum(uint32_t s, int band) const { return m_min[index(s, band)]; }
    double maximum(uint32_t s, int band) const { return m_max[index(s, band)]; }
    // Mean of the band means.
    double brightness(uint32_t s) const;

private:
    size_t index(uint32_t s, int band) const { return size_t(s) * size_t(m_bands) + size_t(band); }
    void grow(uint32_t label);
    int m_bands;
    double m_edgeX; // length of an edge between horizontal neighbours (a pixel's height)
    double m_edgeY; // length of an edge between vertical neighbours (a pixel's width)
    double m_pixelArea;
    std::vector<double> m_count, m_perimeter, m_sum, m_squares, m_min, m_max;
};

} // namespace obia
