// Compiles the burning of training areas into the library from the source the plug-ins share, so the entries
// count each class's pixels exactly as the plug-ins will find them.
#include "sar_processing/sar_common/roi_raster.cpp"
