// Polarimetric signatures.
#include "polarimetric_signature.h"

#include "polsar_matrix.h"

#include <algorithm>
#include <cmath>

namespace sar
{

PolarimetricSignatures polarimetricSignatures(const Eigen::Matrix3cd& c3)
{
    PolarimetricSignatures signatures;
    const size_t cells = size_t(signatures.orientations) * signatures.ellipticities;
    signatures.copolar.resize(cells);
    signatures.crosspolar.resize(cells);
    const double r = std::sqrt(2.0);
    const auto power = [&](const Eigen::RowVector3cd& w) { return std::max(0.0, (w * c3 * w.adjoint())(0, 0).real()); };
    for (int row = 0; row < signatures.ellipticities; ++row)
        for (int column = 0; column < signatures.orientations; ++column)
        {
            const Eigen::Matrix2cd basis = polarisationBasis(column - 90.0, row - 45.0);
            const std::complex<double> e1 = basis(0, 0), e2 = basis(1, 0), o1 = basis(0, 1), o2 = basis(1, 1);
            // u^T S u and u_orth^T S u as rows acting on (HH, sqrt2 HV, VV).
            const Eigen::RowVector3cd co(e1 * e1, r * e1 * e2, e2 * e2);
            const Eigen::RowVector3cd cross(o1 * e1, (o1 * e2 + o2 * e1) / r, o2 * e2);
            signatures.copolar[size_t(row) * signatures.orientations + column] = power(co);
            signatures.crosspolar[size_t(row) * signatures.orientations + column] = power(cross);
        }
    for (std::vector<double>* grid : {&signatures.copolar, &signatures.crosspolar})
    {
        const double top = *std::max_element(grid->begin(), grid->end());
        if (top > 0.0)
            for (double& v : *grid)
                v /= top;
    }
    return signatures;
}

} // namespace sar
