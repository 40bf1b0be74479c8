// Co- and cross-polarised signatures (van Zyl, Zebker and Elachi 1987) of a 3 x 3 lexicographic covariance
// matrix C3 (HH, sqrt2 HV, VV): received power over transmit orientation and ellipticity, normalised to its maximum.
#pragma once

#include <Eigen/Dense>

#include <vector>

namespace sar
{

struct PolarimetricSignatures
{
    int orientations = 181;  // -90..90 degrees, 1 degree apart: the columns
    int ellipticities = 91;  // -45..45 degrees, 1 degree apart: the rows
    std::vector<double> copolar;   // ellipticities x orientations, row after row, maximum 1
    std::vector<double> crosspolar;
};

// Co-polarised: |u^T S u|^2, u the transmitted Jones vector; cross-polarised: |u_orth^T S u|^2; as expectations
// w C3 w^H over the covariance.
PolarimetricSignatures polarimetricSignatures(const Eigen::Matrix3cd& c3);

} // namespace sar
