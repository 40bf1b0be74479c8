// The SAR parameter record of a GF-3 channel image, filled from its product's meta.xml.
#pragma once

#include "sar_parameter_file.h"

#include <QString>

namespace sarimport
{

// Reads metaXmlPath and fills the record of the channel image ("HH", "HV", "VH", "VV") of width x height samples.
// Fields the product does not carry keep the file defaults. Throws AlgoError naming the file and element when the
// XML does not parse or a needed element is missing, empty or not a number.
SarParameterRecord gf3ParameterRecord(const QString& metaXmlPath, const QString& channel, int width, int height);

} // namespace sarimport
