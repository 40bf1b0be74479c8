// Compiles the polarimetric folder layout into the library from the source the plug-ins share, so the entries
// check folders exactly as the plug-ins read them.
#include "sar_processing/sar_common/polsar_layout.cpp"
