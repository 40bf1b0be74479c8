// Calibration and noise LUT evaluation; thin-plate splines.
#include "s1_radiometry.h"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace sargeo
{

void VectorLut::addRow(double line, std::vector<int> pixels, std::vector<double> values)
{
    if (pixels.empty() || pixels.size() != values.size())
        throw std::runtime_error("a look-up table row needs as many values as pixels");
    if (!m_lines.empty() && !(line > m_lines.back()))
        throw std::runtime_error("look-up table rows are not in ascending line order");
    for (size_t i = 1; i < pixels.size(); ++i)
        if (pixels[i] <= pixels[i - 1])
            throw std::runtime_error("look-up table pixels are not ascending");
    m_lines.push_back(line);
    m_pixels.push_back(std::move(pixels));
    m_values.push_back(std::move(values));
}

double VectorLut::rowAt(size_t row, double pixel) const
{
    const std::vector<int>& p = m_pixels[row];
    const std::vector<double>& v = m_values[row];
    if (pixel <= p.front())
        return v.front();
    if (pixel >= p.back())
        return v.back();
    const size_t i = size_t(std::upper_bound(p.begin(), p.end(), pixel) - p.begin()) - 1;
    const double f = (pixel - p[i]) / double(p[i + 1] - p[i]);
    return v[i] + f * (v[i + 1] - v[i]);
}

double VectorLut::at(double line, double pixel) const
{
    if (m_lines.empty())
        return 1.0;
    if (line <= m_lines.front())
        return rowAt(0, pixel);
    if (line >= m_lines.back())
        return rowAt(m_lines.size() - 1, pixel);
    const size_t i = size_t(std::upper_bound(m_lines.begin(), m_lines.end(), line) - m_lines.begin()) - 1;
    const double f = (line - m_lines[i]) / (m_lines[i + 1] - m_lines[i]);
    return (1 - f) * rowAt(i, pixel) + f * rowAt(i + 1, pixel);
}

VectorLut calibrationLut(const S1Calibration& calibration, CalibrationTarget target)
{
    VectorLut lut;
    for (const S1CalibrationVector& v : calibration.vectors)
        lut.addRow(v.line, v.pixel,
                   target == CalibrationTarget::Sigma0 ? v.sigmaNought
                                                       : target == CalibrationTarget::Beta0 ? v.betaNought : v.gamma);
    return lut;
}

NoiseLut::NoiseLut(const S1Noise& noise) : m_azimuth(noise.azimuth)
{
    for (const S1NoiseRangeVector& v : noise.range)
        m_range.addRow(v.line, v.pixel, v.lut);
}

double NoiseLut::at(double line, double pixel) const
{
    double azimuth = 1.0;
    for (const S1NoiseAzimuthBlock& b : m_azimuth)
        if (line >= b.firstAzimuthLine && line <= b.lastAzimuthLine && pixel >= b.firstRangeSample &&
            pixel <= b.lastRangeSample)
        {
            if (b.line.size() == 1 || line <= b.line.front())
                azimuth = b.lut.front();
            else if (line >= b.line.back())
                azimuth = b.lut.back();
            else
            {
                const size_t i = size_t(std::upper_bound(b.line.begin(), b.line.end(), line) - b.line.begin()) - 1;
                const double f = (line - b.line[i]) / double(b.line[i + 1] - b.line[i]);
                azimuth = b.lut[i] + f * (b.lut[i + 1] - b.lut[i]);
            }
            break;
        }
    return m_range.at(line, pixel) * azimuth;
}

ThinPlateSpline::ThinPlateSpline(const std::vector<double>& x, const std::vector<double>& y,
                                 const std::vector<double>& value)
{
    const size_t n = x.size();
    if (n < 3 || y.size() != n || value.size() != n)
        throw std::runtime_error("a thin-plate spline needs at least three points");
    for (size_t i = 0; i < n; ++i)
        m_x0 += x[i] / double(n), m_y0 += y[i] / double(n);
    m_scale = 0.0;
    for (size_t i = 0; i < n; ++i)
        m_scale = std::max({m_scale, std::abs(x[i] - m_x0), std::abs(y[i] - m_y0)});
    if (!(m_scale > 0.0))
        throw std::runtime_error("the points of a thin-plate spline coincide");
    for (size_t i = 0; i < n; ++i)
        m_px.push_back((x[i] - m_x0) / m_scale), m_py.push_back((y[i] - m_y0) / m_scale);
    const Eigen::Index m = Eigen::Index(n) + 3;
    Eigen::MatrixXd a = Eigen::MatrixXd::Zero(m, m);
    Eigen::VectorXd b = Eigen::VectorXd::Zero(m);
    for (size_t i = 0; i < n; ++i)
    {
        for (size_t j = 0; j < n; ++j)
        {
            const double r2 = (m_px[i] - m_px[j]) * (m_px[i] - m_px[j]) + (m_py[i] - m_py[j]) * (m_py[i] - m_py[j]);
            a(Eigen::Index(i), Eigen::Index(j)) = r2 > 0 ? 0.5 * r2 * std::log(r2) : 0.0;
        }
        const Eigen::Index row = Eigen::Index(i), last = Eigen::Index(n);
        a(row, last) = a(last, row) = 1.0;
        a(row, last + 1) = a(last + 1, row) = m_px[i];
        a(row, last + 2) = a(last + 2, row) = m_py[i];
        b(row) = value[i];
    }
    const Eigen::VectorXd solution = a.fullPivLu().solve(b);
    if (!solution.allFinite() || !(a * solution).isApprox(b, 1e-8))
        throw std::runtime_error("the thin-plate spline system is singular");
    m_w.assign(solution.data(), solution.data() + n);
    for (int k = 0; k < 3; ++k)
        m_a[k] = solution(Eigen::Index(n) + k);
}

double ThinPlateSpline::at(double x, double y) const
{
    const double u = (x - m_x0) / m_scale, v = (y - m_y0) / m_scale;
    double s = m_a[0] + m_a[1] * u + m_a[2] * v;
    for (size_t i = 0; i < m_w.size(); ++i)
    {
        const double r2 = (u - m_px[i]) * (u - m_px[i]) + (v - m_py[i]) * (v - m_py[i]);
        if (r2 > 0)
            s += m_w[i] * 0.5 * r2 * std::log(r2);
    }
    return s;
}

} // namespace sargeo
