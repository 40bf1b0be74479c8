// Continuum removal by the upper convex hull.
#include "continuum.h"

#include <cmath>
#include <limits>

namespace hysa
{

void removeContinuum(const double* x, const double* y, int n, double* out, int* hull)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    int top = 0;
    for (int i = 0; i < n; ++i)
    {
        if (std::isnan(y[i]))
            continue;
        if (top > 0 && x[hull[top - 1]] == x[i])
        {
            // Of samples at one abscissa only the highest can be on the upper hull.
            if (y[i] <= y[hull[top - 1]])
                continue;
            --top;
        }
        // Drop the last vertex while it lies on or below the chord from the one before it to sample i.
        while (top >= 2)
        {
            const int a = hull[top - 2], b = hull[top - 1];
            const double cross = (x[b] - x[a]) * (y[i] - y[a]) - (y[b] - y[a]) * (x[i] - x[a]);
            if (cross < 0.0)
                break;
            --top;
        }
        hull[top++] = i;
    }
    int segment = 0;
    for (int i = 0; i < n; ++i)
    {
        if (std::isnan(y[i]))
        {
            out[i] = nan;
            continue;
        }
        while (segment + 1 < top - 1 && x[hull[segment + 1]] < x[i])
            ++segment;
        double continuum = y[hull[0]];
        if (top >= 2)
        {
            const int a = hull[segment], b = hull[segment + 1];
            const double t = (x[i] - x[a]) / (x[b] - x[a]);
            continuum = y[a] + t * (y[b] - y[a]);
        }
        out[i] = continuum != 0.0 ? y[i] / continuum : nan;
    }
}

} // namespace hysa
