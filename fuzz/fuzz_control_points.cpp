// Fuzz target: control point lists (pixel, line, longitude, latitude[, height] per line).
#include "rpc_model.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<optgeo::ControlPoint> points;
    std::string error;
    optgeo::parseControlPoints(std::string(reinterpret_cast<const char*>(data), size), &points, &error);
    return 0;
}
