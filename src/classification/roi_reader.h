// ReadRoiAreas: the training regions of a ROI file (XML) as one RoiArea per class.
#pragma once

#include "sys_algo_classification.h"

#include <QString>
#include <vector>

namespace algofactory
{

// Fills `areas` from the file; leaves it empty when the file cannot be opened, is not XML or its first
// element is not "ROI". Does nothing when `areas` is not empty.
void ReadRoiAreas(const QString& path, std::vector<RoiArea>& areas);

// Vertices of the polygon that stands for an ellipse item.
constexpr int kEllipseVertices = 72;

} // namespace algofactory
