// Orbit state vectors of a product into the SAR parameter record.
#include "orbit_vectors.h"

#include "sar_time.h"

#include <algorithm>
#include <cmath>

namespace sarimport
{

void setStateVectors(const std::vector<double>& times, const std::vector<StateVector>& vectors,
                     SarParameterRecord& record)
{
    const size_t available = std::min(times.size(), vectors.size());
    if (available == 0)
        return;
    size_t nearest = 0;
    for (size_t i = 0; i < available; ++i)
        if (std::abs(times[i] - record.centerTime) < std::abs(times[nearest] - record.centerTime))
            nearest = i;
    const size_t count = std::min(available, size_t(kMaxStateVectors));
    const size_t first = std::min(available - count, nearest > count / 2 ? nearest - count / 2 : 0);
    record.numStateVectors = int32_t(count);
    record.firstStateTime = times[first];
    record.stateVectorTimeSpacing = count > 1 ? times[first + 1] - times[first] : 0.0;
    for (size_t i = 0; i < count; ++i)
        record.stateVectors[i] = vectors[first + i];
    const StateVector& centre = vectors[nearest];
    record.sarToEarthCenter = std::sqrt(centre.xPosition * centre.xPosition + centre.yPosition * centre.yPosition +
                                        centre.zPosition * centre.zPosition);
    record.earthRadiusBelowSensor = ellipsoidRadiusBelow(centre.xPosition, centre.yPosition, centre.zPosition,
                                                         record.earthSemiMajorAxis, record.earthSemiMinorAxis);
}

} // namespace sarimport
