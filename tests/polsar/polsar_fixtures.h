// Small polarimetric fixtures: complex channel images, T3 folders and H/A/Alpha/Lambda image sets.
#pragma once

#include "PolSAR_Decomposition/ha_alpha_kernel.h"

#include <QString>
#include <array>
#include <complex>
#include <functional>
#include <string>

namespace polsartest
{

using Cf = std::complex<double>;

// HH, HV, VH, VV as four single-band CFloat32 GeoTIFFs in dir; returns "hh|hv|vh|vv".
QString writeChannels(const QString& dir, int width, int height,
                      const std::function<std::array<Cf, 4>(int x, int y)>& scattering);

// A T3 folder (config.txt and nine raw Float32 grids, no headers).
void writeT3(const QString& dir, int width, int height, const std::function<polsarkernel::Coherency(int x, int y)>& t);

// Entropy, anisotropy, alpha and lambda Float32 GeoTIFFs named <dir>/<stem>_entropy.tif etc.
struct FourImages
{
    QString entropy, anisotropy, alpha, lambda;
};
FourImages writeFourImages(const QString& dir, const QString& stem, int width, int height,
                           const std::function<std::array<double, 4>(int x, int y)>& values);

// What an entry printed and returned.
struct EntryRun
{
    bool ok = false;
    std::string printed;
};
EntryRun runClassification(const FourImages& images, const char* method, const QString& outputDir);
EntryRun runDecomposition(const QString& input, const QString& outputDir, const char* method, int windowSize);

} // namespace polsartest
