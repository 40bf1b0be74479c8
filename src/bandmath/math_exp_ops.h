// The meaning of each band-math operation on doubles, shared by constant folding and the block evaluator.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace bandmath
{

constexpr double kPi = 3.141592653589793;
constexpr double kRadiansPerDegree = kPi / 180.0;
constexpr double kDegreesPerRadian = 180.0 / kPi;

// Truncation toward zero to a 32-bit integer, saturating out of range; NaN reads as 0 so that the
// logical operators never meet undefined behaviour.
inline std::int32_t truncate32(double x)
{
    if (!(x == x))
        return 0;
    if (x >= 2147483647.0)
        return std::numeric_limits<std::int32_t>::max();
    if (x <= -2147483648.0)
        return std::numeric_limits<std::int32_t>::min();
    return std::int32_t(x);
}

// "truncate32(x) != 0" without a conversion, so that the logical loops vectorise.
inline bool truncatesToNonZero(double x)
{
    return std::fabs(x) >= 1.0;
}

// Binary operators take the left operand first.
inline double opAdd(double l, double r) { return l + r; }
inline double opSub(double l, double r) { return l - r; }
inline double opMul(double l, double r) { return l * r; }
inline double opDiv(double l, double r) { return l / r; }
inline double opPow(double l, double r) { return std::pow(l, r); }
inline double opGreater(double l, double r) { return l > r ? 1.0 : 0.0; }
inline double opLess(double l, double r) { return l < r ? 1.0 : 0.0; }
inline double opGreaterEqual(double l, double r) { return l >= r ? 1.0 : 0.0; }
inline double opLessEqual(double l, double r) { return l <= r ? 1.0 : 0.0; }
inline double opEqual(double l, double r) { return l == r ? 1.0 : 0.0; }
inline double opNotEqual(double l, double r) { return l != r ? 1.0 : 0.0; }
inline double opAnd(double l, double r) { return (truncatesToNonZero(l) & truncatesToNonZero(r)) ? 1.0 : 0.0; }
inline double opOr(double l, double r) { return (truncatesToNonZero(l) | truncatesToNonZero(r)) ? 1.0 : 0.0; }
inline double opXor(double l, double r) { return double(truncate32(l) ^ truncate32(r)); }
// A NaN argument makes max and min NaN, whatever its place in the list.
inline double opMax(double a, double b) { return ((a > b) | (a != a)) ? a : b; }
inline double opMin(double a, double b) { return ((a < b) | (a != a)) ? a : b; }

inline double opNot(double x) { return truncatesToNonZero(x) ? 0.0 : 1.0; }
inline double opComplement(double x) { return double(~truncate32(x)); }
inline double opNegate(double x) { return -x; }
inline double opSin(double x) { return std::sin(x * kRadiansPerDegree); }
inline double opArcsin(double x) { return std::asin(x) * kDegreesPerRadian; }
inline double opCos(double x) { return std::cos(x * kRadiansPerDegree); }
inline double opArccos(double x) { return std::acos(x) * kDegreesPerRadian; }
inline double opTan(double x) { return std::tan(x * kRadiansPerDegree); }
inline double opArctan(double x) { return std::atan(x) * kDegreesPerRadian; }
inline double opCtg(double x) { return 1.0 / std::tan(x * kRadiansPerDegree); }
inline double opArcctg(double x) { return std::atan(1.0 / x) * kDegreesPerRadian; }
inline double opLg(double x) { return std::log10(x); }
inline double opLn(double x) { return std::log(x); }
inline double opExp(double x) { return std::exp(x); }
// Half away from zero, written with trunc so that it vectorises where the machine can truncate in vectors.
inline double opRound(double x)
{
    const double t = std::trunc(x);
    const double fraction = x - t;
    return t + (fraction >= 0.5 ? 1.0 : 0.0) - (fraction <= -0.5 ? 1.0 : 0.0);
}
inline double opSqrt(double x) { return std::sqrt(x); }
inline double opAbs(double x) { return std::fabs(x); }

// log takes its operand slots in compiled order: ln(slot 0) / ln(slot 1).
inline double opLog(double slot0, double slot1) { return std::log(slot0) / std::log(slot1); }

} // namespace bandmath
