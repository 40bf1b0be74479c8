// Published tasselled-cap coefficients, rows brightness, greenness, wetness (yellowness for MSS), fourth...
#pragma once

#include "linear_algebra.h"

namespace transform
{

// 0: Landsat 4/5 TM bands 1-5, 7 (Crist and Cicone 1984); 1: Landsat MSS bands 4-7 (Kauth and Thomas 1976);
// 2: Landsat 7 ETM+ bands 1-5, 7, at-satellite reflectance (Huang et al. 2002). Throws for other sensors.
const Matrix& tasselledCapCoefficients(int sensor);

} // namespace transform
