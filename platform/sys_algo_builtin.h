// Constructors of the host algorithms that AlgoFactory knows by name.
#pragma once

#include "sys_algo.h"

namespace SysAlgo
{
Algorithm* createRoiStatistics();
Algorithm* createImgClassPostPA();
} // namespace SysAlgo
