// The conversion shared by the GF-3 import plug-ins: channel images plus meta.xml into platform images and SAR
// parameter files.
#pragma once

#include "records/sar_records.h"

#include <QString>
#include <QStringList>
#include <functional>
#include <vector>

namespace sarimport
{

struct Gf3ImportJob
{
    QString image;               // the channel tiff of the product
    QString metaXml;             // the product's meta.xml
    QString channel;             // "HH", "HV", "VH" or "VV"
    QString outputImage;
    QString outputParameterFile;
};

// Checks every job before the first pixel (inputs open, outputs differ from inputs and from each other, output
// folders can be made, every meta.xml yields a parameter record; with equalSizes all images must be of one size),
// then writes each output image and its parameter file in order. Paths are appended to *written as soon as they
// are created so that the caller can remove them after a failure. Throws AlgoError on failure.
SarImportResult importGf3Jobs(const std::vector<Gf3ImportJob>& jobs, const QString& format, bool equalSizes,
                              const std::function<void(double percent)>& progress, QStringList* written);

// The file suffix of an output format: ".tif" for GTiff, ".img" for ENVI and HFA.
QString suffixForFormat(const QString& format);

} // namespace sarimport
