// Writing complex SLC images block by block: the sample type an output format keeps, and the copy of a channel
// image (one complex band, or the I and Q bands) into a one-band complex raster.
#pragma once

#include "raster_io.h"

#include <QString>
#include <functional>

namespace sarimport
{

// The complex type that keeps samples of elementType exactly in format ("GTiff", "ENVI", "HFA"): GTiff keeps
// complex integers; ENVI and HFA have none, so integers widen to complex floats, which hold them exactly.
GDALDataType complexTypeFor(const QString& format, GDALDataType elementType);

// The element type of a complex type (CInt16 -> Int16, ...), or the type itself.
GDALDataType elementTypeOf(GDALDataType type);

// Copies a channel image into outputPath as one complex band named channel. The source holds either one complex
// band or two real bands, I then Q. progress(fraction) is called once per block with fraction in [0, 1].
// The output is removed unless the copy completes; throws AlgoError on failure.
void copyChannelImage(GDALDataset* source, const QString& outputPath, const QString& format, const QString& channel,
                      const std::function<void(double)>& progress);

// A format name of the import records as a GDAL driver name; throws AlgoError for an unknown one.
QString driverForFormat(const QString& format);

} // namespace sarimport
