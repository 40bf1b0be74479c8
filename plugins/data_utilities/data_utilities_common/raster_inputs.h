// Opening the rasters named in a list argument, each refusal naming the key and the one path at fault.
#pragma once

#include "generic_params.h"

#include <QString>
#include <vector>

namespace datautil
{

// Opens one path of a list argument as a raster; refuses "<Name>: the parameter <key> (<path>) ...!".
algokit::DatasetPtr openRasterItem(const algokit::GenericParams& args, const QString& key, const QString& path);

// Every path of the "|"-separated list argument key, opened; refuses an empty list.
std::vector<algokit::DatasetPtr> openRasterList(const algokit::GenericParams& args, const QString& key);

// Refuses an output path that names one of the inputs.
void refuseOverwritingInput(const algokit::GenericParams& args, const QString& outputKey, const QString& output,
                            const QStringList& inputs);

} // namespace datautil
