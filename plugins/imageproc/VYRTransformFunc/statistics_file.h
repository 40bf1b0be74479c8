// The statistics file that the forward PCA and MNF write and the inverse transforms read back: band means,
// covariance, (MNF) noise covariance, eigenvalues, the forward matrix and its inverse, as plain text.
#pragma once

#include "linear_algebra.h"

#include <QString>

namespace transform
{

struct TransformStatistics
{
    QString kind;                 // "PCA" or "MNF"
    int bands = 0;
    QString sourceType;           // GDAL type name of the input
    std::vector<double> mean;
    Matrix covariance;
    Matrix noiseCovariance;       // MNF only
    std::vector<double> eigenvalues;
    Matrix forward;               // component = forward * (x - mean), one row per component
    Matrix inverse;               // x = inverse * component + mean
};

void writeStatistics(const QString& path, const TransformStatistics& statistics);
// Throws AlgoError naming the path when the file is missing, of another kind, or malformed.
TransformStatistics readStatistics(const QString& path, const QString& expectedKind);

} // namespace transform
