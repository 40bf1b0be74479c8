// Charts of the hyperspectral statistics and quality measures, rendered off screen and saved as PNG,
// and the entropy text file.
#pragma once

#include "hyperspectral_input.h"
#include "records/hyperspectral_records.h"

#include <QString>

namespace algofactory
{

// The four statistics of the filled record against wavelength (or band position); true when saved.
bool ExportStatisticalChart(const Wavelengths& wavelengths, const StatisticalAnalysisParam& record);

// The entropy chart, then the entropy text file; prints its own messages.
bool ExportEntropyResult(const Wavelengths& wavelengths, int bandCount, const InformationEntropyParam& record,
                         const QString& textPath, const QString& picturePath);

// The sharpness chart of the given type (0 normalized four measures, 1-4 one measure each).
bool ExportSharpnessChart(const Wavelengths& wavelengths, int bandCount, const HysSharpnessParam& record,
                          const QString& textPath, const QString& picturePath, int chartType);

// The noise chart read from the noise text file ("band value" lines).
bool ExportNoiseChart(const QString& textPath, const QString& picturePath);

} // namespace algofactory
