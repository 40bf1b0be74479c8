// gdal_translate with its pixels computed on every core: GDAL builds the translation as a virtual raster (its rules
// for sizes, resampling kernels and metadata), one handle per thread reads row stripes of it, and the stripes are
// written in order into the output. Pixels and metadata are those of GDALTranslate itself.
#pragma once

#include "gdal_progress.h"
#include "raster_io.h"

#include <cpl_string.h>

#include <QString>

namespace resample
{

// Translates `source` into `path` with gdal_translate arguments `argv` (which must name the format with -of and may
// carry -co options). Formats that are not created band by band (PNG, JPEG...) and rasters with per-dataset masks go
// through GDALTranslate on one core. Throws AlgoError on failure and Cancelled on a stop; the caller removes `path`.
void translateOnAllCores(GDALDataset* source, const QString& path, const CPLStringList& argv,
                         algokit::GdalProgress* progress);

} // namespace resample
