// Geometric lookup tables: for each cell of a map grid, the 1-based sample and line of the swath pixel
// nearest to its centre (negated where the cell was filled from a neighbour; 0 for none).
#pragma once

#include <cstdint>
#include <vector>

namespace optgeo
{

struct GltGrid
{
    double originX = 0, originY = 0; // top-left corner of the grid
    double pixel = 1;                // cell size
    int width = 0, height = 0;
    std::vector<int32_t> sample, line; // width * height each
};

// Builds the table from the map positions (x, y: swath width * height, row after row; NaN for
// none) on a grid of cells `pixel` wide that covers them. A cell takes the nearest swath pixel whose
// position lies within 1.5 cells of its centre; one with none takes the negated indices of the nearest
// such cell within two cells.
GltGrid buildGlt(const std::vector<double>& x, const std::vector<double>& y, int swathWidth, int swathHeight, double pixel);

// Median distance between neighbouring swath positions, along and across the track together.
double medianSpacing(const std::vector<double>& x, const std::vector<double>& y, int swathWidth, int swathHeight);

} // namespace optgeo
