// The plain coefficient table of sensors whose deliveries carry no usable radiometric metadata (GF-1/2/6, ZY-3,
// HJ-1 and the like), as a plain struct.
//
// The text holds optional scene lines KEY = VALUE (SUN_ELEVATION, SUN_AZIMUTH in degrees, EARTH_SUN_DISTANCE
// in AU, DATE as YYYY-MM-DD) and one row per band, fields separated by blanks, tabs or commas:
//     [sensor] band gain offset esun [k1 k2]
// radiance = gain * DN + offset; esun in W/(m2 um) (0 when unknown); k1, k2 for thermal bands. A first field
// that is not a number names the sensor the row belongs to; rows without one fit any sensor. '#' starts a
// comment.
#pragma once

#include "optical_products.h"

#include <string>
#include <vector>

namespace optical
{

struct CoefficientRow
{
    std::string sensor; // upper case; empty: any sensor
    BandCoefficients coefficients;
};

struct CoefficientTable
{
    SunGeometry sun;
    AcquisitionDate date;
    std::vector<CoefficientRow> rows;

    // Sensor names that rows carry, in the order met.
    std::vector<std::string> sensors() const;
    // The rows of a sensor (plus the rows without sensor), in table order.
    std::vector<BandCoefficients> bandsOf(const std::string& sensor) const;
};

// Throws ProductError naming the line that is not a scene line or a row of 4 or 6 numbers, or when no row is found.
CoefficientTable parseCoefficientTable(const std::string& text);

} // namespace optical
