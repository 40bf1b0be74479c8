// What a GIS user reads about a band in QGIS or gdalinfo: its name, product band id, centre wavelength and unit.
#pragma once

#include "optical_products.h"

#include <gdal_priv.h>

#include <QString>

namespace radiometry
{

// "B4 (Red)" for Landsat band "4", "B8A (Narrow NIR)" for Sentinel-2 band "B8A".
QString bandLabel(const optical::BandCoefficients& band);

// Sets the description, the BAND_ID, wavelength and wavelength_units metadata items and the unit type.
void describeBand(GDALRasterBand* band, const optical::BandCoefficients& coefficients, const QString& unit);

} // namespace radiometry
