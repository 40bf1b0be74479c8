// The spectral axis of a cube (wavelengths, units, bad bands) and the Float32 cube outputs that carry it on.
#pragma once

#include "generic_params.h"
#include "raster_io.h"

#include <QString>
#include <QStringList>
#include <vector>

namespace hysa
{

struct SpectralAxis
{
    std::vector<double> wavelengths; // band centres, or the band numbers 1..N when the metadata has none
    bool fromMetadata = false;
    QString units;            // "wavelength_units" as given; empty when absent
    std::vector<double> fwhm; // empty when absent
    std::vector<char> good;   // 0 for bands flagged bad by the "bbl" list, 1 otherwise
    QStringList names;        // band descriptions
    int size() const { return int(wavelengths.size()); }
};

// Reads band wavelengths ("wavelength" on every band, or the ENVI header list), units, FWHM and the bad-band list.
SpectralAxis readSpectralAxis(GDALDataset* dataset);

// The axis of the 0-based bands `bands`, in that order.
SpectralAxis selectBands(const SpectralAxis& axis, const std::vector<int>& bands);

// The record without the numeric `keys` whose value is 0. The entries pass every number, and the JSON route passes
// an absent one as 0; for keys where 0 is never a valid value this lets the plug-in's default apply instead.
GenericAlgoRecord withoutZeros(const GenericAlgoRecord& record, const QStringList& keys);

// Opens the raster named by `key` as a cube of real samples with at least minBands bands; otherwise refuses,
// naming the key and the path.
algokit::DatasetPtr openCube(const algokit::GenericParams& args, const QString& key, int minBands);

// A Float32 output of the axis's bands (no-data NaN; band names, wavelengths, FWHM and bad-band list as in the
// axis), georeferenced as `source` moved to its pixel (x0, y0). GeoTIFF outputs are band-interleaved strips, so
// that row blocks of every band are written without holding tiles.
algokit::OutputRaster createCube(const QString& path, GDALDataset* source, int x0, int y0, int width, int height,
                                 const SpectralAxis& axis);

// Writes rows [row0, row0 + rows) of every band from a band-sequential buffer (band pitch width * rows), and
// drops them from GDAL's cache.
void writeCubeRows(GDALDataset* output, int row0, int rows, const float* data);

// Drops an input's cached blocks once a top-to-bottom pass is past them, so that streaming a cube keeps about one
// row of blocks per band in GDAL's cache whatever its size; blocks that the next rows still need stay.
class PassedBlocks
{
public:
    PassedBlocks(GDALDataset* dataset, const std::vector<int>& bands);
    // Rows above `row` will not be read again in this pass.
    void doneAbove(int row);
    // Starts a new pass from the top.
    void restart() { m_next = 0; }

private:
    GDALDataset* m_dataset;
    std::vector<int> m_bands;
    int m_blockWidth = 1, m_blockHeight = 1, m_next = 0;
};

// Rows per block so that one block of `bands` doubles per pixel holds about `bytes`.
int blockRowsFor(int width, int bands, size_t bytes = 24u << 20);

} // namespace hysa
