// Wishart distances between 3 x 3 coherency matrices: the classifier's d(T, V) = ln|V| + tr(V^-1 T) (Lee et al.
// 1994) and the symmetric distance between two class centres used to merge classes.
#pragma once

#include <Eigen/Dense>

namespace sar
{

struct WishartCentre
{
    Eigen::Matrix3cd inverse;
    double logDeterminant = 0.0;
    bool usable = false; // false for an empty class or a singular centre
};

// The centre's inverse and log-determinant; a centre that is not positive definite is not usable.
WishartCentre wishartCentre(const Eigen::Matrix3cd& centre);

// ln|V| + tr(V^-1 T).
inline double wishartDistance(const WishartCentre& centre, const Eigen::Matrix3cd& t)
{
    double trace = 0.0;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            trace += (centre.inverse(i, j) * t(j, i)).real();
    return centre.logDeterminant + trace;
}

// (tr(A^-1 B) + tr(B^-1 A)) / 2 - 3: zero for equal centres, growing as they part.
double symmetricWishartDistance(const Eigen::Matrix3cd& a, const Eigen::Matrix3cd& b);

} // namespace sar
