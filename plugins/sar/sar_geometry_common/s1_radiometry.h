// Sentinel-1 calibration and thermal-noise look-up tables evaluated at any (line, pixel), and the thin-plate
// splines that map a geolocation grid to image positions.
#pragma once

#include "s1_annotation.h"

#include <array>
#include <vector>

namespace sargeo
{

// Values given on rows (image lines), each row with its own ascending pixel positions; bilinear in between,
// held constant beyond the first and last row or pixel.
class VectorLut
{
public:
    void addRow(double line, std::vector<int> pixels, std::vector<double> values); // rows in ascending line order
    double at(double line, double pixel) const;
    bool empty() const { return m_lines.empty(); }

private:
    double rowAt(size_t row, double pixel) const;
    std::vector<double> m_lines;
    std::vector<std::vector<int>> m_pixels;
    std::vector<std::vector<double>> m_values;
};

enum class CalibrationTarget
{
    Sigma0,
    Beta0,
    Gamma0
};

VectorLut calibrationLut(const S1Calibration& calibration, CalibrationTarget target);

// Thermal noise power: the range vectors times the azimuth profile of the block holding (line, pixel)
// (1 where the product has no azimuth profile).
class NoiseLut
{
public:
    explicit NoiseLut(const S1Noise& noise);
    double at(double line, double pixel) const;

private:
    VectorLut m_range;
    std::vector<S1NoiseAzimuthBlock> m_azimuth;
};

// (|DN|^2 - noise) / A^2, floored at 0.
inline double calibrated(double dnSquared, double noise, double a)
{
    const double v = (dnSquared - noise) / (a * a);
    return v > 0.0 ? v : 0.0;
}

// A thin-plate spline through scattered values (exact at the points), on coordinates normalised by the data.
class ThinPlateSpline
{
public:
    // Throws std::runtime_error for fewer than three points or a singular system (e.g. all points in a line).
    ThinPlateSpline(const std::vector<double>& x, const std::vector<double>& y, const std::vector<double>& value);
    double at(double x, double y) const;

private:
    double m_x0 = 0, m_y0 = 0, m_scale = 1;
    std::vector<double> m_px, m_py, m_w;
    double m_a[3] = {0, 0, 0};
};

} // namespace sargeo
