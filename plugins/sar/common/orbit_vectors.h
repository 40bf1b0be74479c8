// Orbit state vectors of a product into the SAR parameter record (at most 255, centred on the scene).
#pragma once

#include "sar_parameter_file.h"

#include <vector>

namespace sarimport
{

// Stores vectors sampled at times (seconds on the record's time base, evenly spaced) into record: at most 255 of
// them, the window centred on record.centerTime; also the sensor's distance to the Earth's centre and the
// ellipsoid radius below it at the vector nearest the centre time. Leaves the record alone without vectors.
void setStateVectors(const std::vector<double>& times, const std::vector<StateVector>& vectors,
                     SarParameterRecord& record);

} // namespace sarimport
