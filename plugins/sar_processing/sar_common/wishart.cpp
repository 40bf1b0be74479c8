// Wishart distances.
#include "wishart.h"

#include <cmath>

namespace sar
{

WishartCentre wishartCentre(const Eigen::Matrix3cd& centre)
{
    WishartCentre result;
    const Eigen::LLT<Eigen::Matrix3cd> factor(centre);
    if (factor.info() != Eigen::Success || !centre.allFinite())
        return result;
    const Eigen::Matrix3cd lower = factor.matrixL();
    double logDeterminant = 0.0;
    for (int i = 0; i < 3; ++i)
    {
        const double d = lower(i, i).real();
        if (!(d > 0.0))
            return result;
        logDeterminant += 2.0 * std::log(d);
    }
    result.inverse = factor.solve(Eigen::Matrix3cd::Identity());
    result.logDeterminant = logDeterminant;
    result.usable = std::isfinite(logDeterminant) && result.inverse.allFinite();
    return result;
}

double symmetricWishartDistance(const Eigen::Matrix3cd& a, const Eigen::Matrix3cd& b)
{
    const Eigen::Matrix3cd ab = a.ldlt().solve(b), ba = b.ldlt().solve(a);
    return 0.5 * (ab.trace().real() + ba.trace().real()) - 3.0;
}

} // namespace sar
