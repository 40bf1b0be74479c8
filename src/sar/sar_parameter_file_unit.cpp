// Compiles the SAR parameter file reader and writer into the library from the source the plug-ins share,
// so the radar entries and the import plug-ins read and write one and the same format.
#include "kit/sar_parameter_file.cpp"
