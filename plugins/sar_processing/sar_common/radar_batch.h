// What the batch radar plug-ins share: the scale of a band (intensity, amplitude, dB), output naming,
// the parameter file that travels with an image, and the loop over inputs in which one failure spares the rest.
#pragma once

#include "raster_io.h"
#include "sar_parameter_file.h"

#include <QString>
#include <QStringList>
#include <complex>
#include <functional>
#include <vector>

namespace sar
{

enum class RadarScale
{
    Intensity,
    Amplitude,
    Decibel
};

// The scale of band1 of a detected image: the band's unit ("dB"), then words of its description or of the
// file name ("db", "amplitude", "amp"), then the parameter file's imageDataType; intensity otherwise.
RadarScale bandScale(GDALDataset* dataset, int band1, const QString& path);
const char* scaleName(RadarScale scale);

// Intensity from one sample of the given scale, and back; NaN stays NaN.
float toIntensity(float value, RadarScale scale);
float fromIntensity(float intensity, RadarScale scale);

// outputDir/<input file name without its last suffix>_<suffix>.tif
QString batchOutputPath(const QString& outputDir, const QString& input, const QString& suffix);

// Rows [row0, row0 + rows) of a band as complex samples.
void readComplexRows(GDALRasterBand* band, int row0, int rows, std::vector<std::complex<float>>& buffer);

// Rows [row0, row0 + rows) of band1 as float (complex bands as |z|^2), no-data values as NaN.
void readFloatRows(GDALRasterBand* band, int row0, int rows, std::vector<float>& buffer, bool complexToIntensity);

// A Float32 GeoTIFF like `source` (size unless given, georeferencing, band descriptions), NaN as no data.
algokit::OutputRaster createFloatOutput(const QString& path, GDALDataset* source, int bands, int width = 0,
                                        int height = 0);

// The parameter file of `input`, when there is one that reads.
bool readParameterFile(const QString& input, SarParameterRecord& record);
// Writes the parameter file of `output`; false (file left out) when it cannot be written.
bool writeParameterFile(const QString& output, const SarParameterRecord& record);

// The outcome of a batch: files written (in input order) and one "<input>: <reason>" per input that failed.
struct BatchOutcome
{
    QStringList written;
    QStringList failures;
};

// Runs work(input, report) for each input in turn; report(fraction of this input) drives progress(percent) over
// the input's share. An input whose work throws is recorded as failed (its outputs must clean up after
// themselves) and the next one runs; a stop request (any non-std exception) ends the batch.
// Throws the first failure's AlgoError when no input succeeded.
BatchOutcome runBatch(const QStringList& inputs,
                      const std::function<QStringList(const QString& input, const std::function<void(double)>& report)>& work,
                      const std::function<void(double percent)>& progress);

} // namespace sar
