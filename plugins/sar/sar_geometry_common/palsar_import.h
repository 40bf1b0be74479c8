// The import shared by the ALOS PALSAR and PALSAR-2 plug-ins: a CEOS product folder (or zip) to one image per
// polarisation with its SAR parameter file.
#pragma once

#include "generic_params.h"

#include <functional>

namespace sargeo
{

// Reads InputDir and OutputDir from args, checks every file before the first output (leader, image descriptors,
// image files holding all their records), then writes <IMG name>.tif and .xml per polarisation: complex float
// samples for level 1.1, 16-bit detected samples for level 1.5. claim(path) is called before each file is created.
// Returns the paths written; throws algokit::AlgoError (refusals through args) on failure.
QStringList importPalsar(const algokit::GenericParams& args, const QString& sensor,
                         const std::function<void(double)>& progress, const std::function<void(const QString&)>& claim);

} // namespace sargeo
