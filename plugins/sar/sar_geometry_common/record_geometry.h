// Keeping a SAR parameter record true to a new image grid: windows, corners and the terrain height they used.
#pragma once

#include "range_doppler.h"
#include "sar_parameter_file.h"

namespace sargeo
{

// The height at which the record's scene centre (latitude, longitude) falls on the centre column, found by
// bisection between -500 m and 9000 m; 0 when the model cannot say.
double cornerHeightOf(const SarParameterRecord& record, const RangeDoppler& model);

// Moves the record to the window [x0, x0 + width) x [y0, y0 + height) of its image: first line time, near range,
// sizes, centre and far range, and the corners and centre recomputed at `cornerHeight`. False when the model
// does not see a corner.
bool cropRecord(SarParameterRecord& record, const RangeDoppler& model, int x0, int y0, int width, int height,
                double cornerHeight);

// Sets the five scene coordinates from the model at `cornerHeight` for an image of the record's size.
bool setCorners(SarParameterRecord& record, const RangeDoppler& model, double cornerHeight);

} // namespace sargeo
