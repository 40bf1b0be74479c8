// Geometric lookup tables from per-pixel map positions.
#include "glt.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace optgeo
{

double medianSpacing(const std::vector<double>& x, const std::vector<double>& y, int w, int h)
{
    std::vector<double> d;
    // A sample of at most about a million pairs is plenty for a median.
    const int step = std::max(1, int(std::sqrt(double(w) * h / 5e5)));
    for (int j = 0; j < h; j += step)
        for (int i = 0; i < w; i += step)
        {
            const size_t k = size_t(j) * w + i;
            if (i + 1 < w && std::isfinite(x[k]) && std::isfinite(x[k + 1]))
                d.push_back(std::hypot(x[k + 1] - x[k], y[k + 1] - y[k]));
            if (j + 1 < h && std::isfinite(x[k]) && std::isfinite(x[k + w]))
                d.push_back(std::hypot(x[k + w] - x[k], y[k + w] - y[k]));
        }
    if (d.empty())
        return 0.0;
    std::nth_element(d.begin(), d.begin() + d.size() / 2, d.end());
    return d[d.size() / 2];
}

GltGrid buildGlt(const std::vector<double>& x, const std::vector<double>& y, int w, int h, double pixel)
{
    GltGrid g;
    g.pixel = pixel;
    double minX = HUGE_VAL, maxX = -HUGE_VAL, minY = HUGE_VAL, maxY = -HUGE_VAL;
    for (size_t k = 0; k < x.size(); ++k)
        if (std::isfinite(x[k]) && std::isfinite(y[k]))
        {
            minX = std::min(minX, x[k]);
            maxX = std::max(maxX, x[k]);
            minY = std::min(minY, y[k]);
            maxY = std::max(maxY, y[k]);
        }
    if (!(maxX >= minX) || !(pixel > 0))
        return g;
    g.originX = minX - pixel / 2;
    g.originY = maxY + pixel / 2;
    g.width = int(std::ceil((maxX - minX) / pixel + 0.5 - 1e-9));
    g.height = int(std::ceil((maxY - minY) / pixel + 0.5 - 1e-9));
    const size_t cells = size_t(g.width) * g.height;
    g.sample.assign(cells, 0);
    g.line.assign(cells, 0);

    // Swath pixels bucketed by the cell they fall in.
    std::vector<int64_t> head(cells, -1), next(x.size(), -1);
    for (size_t k = 0; k < x.size(); ++k)
    {
        if (!std::isfinite(x[k]) || !std::isfinite(y[k]))
            continue;
        const int cx = std::min(g.width - 1, int((x[k] - g.originX) / pixel));
        const int cy = std::min(g.height - 1, int((g.originY - y[k]) / pixel));
        const size_t c = size_t(cy) * g.width + cx;
        next[k] = head[c];
        head[c] = int64_t(k);
    }
    const double reach = 1.5 * pixel;
    for (int cy = 0; cy < g.height; ++cy)
        for (int cx = 0; cx < g.width; ++cx)
        {
            const double px = g.originX + (cx + 0.5) * pixel, py = g.originY - (cy + 0.5) * pixel;
            double best = reach * reach;
            int64_t found = -1;
            for (int ny = std::max(0, cy - 2); ny <= std::min(g.height - 1, cy + 2); ++ny)
                for (int nx = std::max(0, cx - 2); nx <= std::min(g.width - 1, cx + 2); ++nx)
                    for (int64_t k = head[size_t(ny) * g.width + nx]; k >= 0; k = next[k])
                    {
                        const double d = (x[k] - px) * (x[k] - px) + (y[k] - py) * (y[k] - py);
                        // ties go to the lower index, so the result does not depend on bucket order
                        if (d < best || (d == best && found >= 0 && k < found))
                        {
                            best = d;
                            found = k;
                        }
                    }
            if (found >= 0 && best <= reach * reach)
            {
                g.sample[size_t(cy) * g.width + cx] = int32_t(found % w + 1);
                g.line[size_t(cy) * g.width + cx] = int32_t(found / w + 1);
            }
        }
    // Cells left empty: the nearest directly assigned cell within two cells, negated.
    const std::vector<int32_t> sample = g.sample, line = g.line;
    for (int cy = 0; cy < g.height; ++cy)
        for (int cx = 0; cx < g.width; ++cx)
        {
            const size_t c = size_t(cy) * g.width + cx;
            if (sample[c] > 0)
                continue;
            int bestD = std::numeric_limits<int>::max();
            size_t from = 0;
            for (int dy = -2; dy <= 2; ++dy)
                for (int dx = -2; dx <= 2; ++dx)
                {
                    const int nx = cx + dx, ny = cy + dy;
                    if (nx < 0 || ny < 0 || nx >= g.width || ny >= g.height)
                        continue;
                    const size_t n = size_t(ny) * g.width + nx;
                    if (sample[n] > 0 && dx * dx + dy * dy < bestD)
                    {
                        bestD = dx * dx + dy * dy;
                        from = n;
                    }
                }
            if (bestD != std::numeric_limits<int>::max())
            {
                g.sample[c] = -sample[from];
                g.line[c] = -line[from];
            }
        }
    return g;
}

} // namespace optgeo
