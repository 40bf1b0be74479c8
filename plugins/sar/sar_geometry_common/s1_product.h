// A Sentinel-1 SAFE product on disk (folder, manifest.safe or zip): its annotation, calibration, noise and
// measurement files per swath and polarisation, read through GDAL's virtual file systems.
#pragma once

#include "range_doppler.h"
#include "s1_annotation.h"
#include "sar_parameter_file.h"

#include <QString>
#include <QStringList>
#include <vector>

namespace sargeo
{

struct S1ImageFiles
{
    QString stem;        // e.g. s1b-iw1-slc-vv-20210401t052624-...-004
    QString swath;       // upper case, e.g. "IW1"
    QString polarisation; // upper case, e.g. "VV"
    QString productType; // upper case, e.g. "SLC", "GRD"
    QString annotation;
    QString calibration; // empty when the product lacks it
    QString noise;       // empty when the product lacks it
    QString measurement; // empty when the product lacks it
};

class S1Product
{
public:
    // Throws std::runtime_error when path is not a SAFE folder, its manifest.safe or a zip holding one.
    explicit S1Product(const QString& path);

    const QString& root() const { return m_root; }  // folder of manifest.safe (a /vsizip/ path for a zip)
    const QString& name() const { return m_name; }  // product name without ".SAFE"
    const std::vector<S1ImageFiles>& images() const { return m_images; }
    QStringList swaths() const;
    QStringList polarisations() const;

private:
    QString m_root;
    QString m_name;
    std::vector<S1ImageFiles> m_images;
};

// The whole text of a (possibly virtual) file; throws std::runtime_error naming it when it cannot be read.
std::string readVirtualFile(const QString& path, size_t maxBytes = 64u << 20);

// The SAR parameter record of a zero-Doppler slant-range image of `lines` x `samples` whose line 0 is at
// firstLineTime, from its annotation. Corners and centre come from the range-Doppler model at the mean height of
// the geolocation grid. Throws std::runtime_error when the orbit is unusable.
SarParameterRecord s1ParameterRecord(const S1Annotation& annotation, const QString& productName, int polarisationCount,
                                     double firstLineTime, int lines, int samples);

// The range-Doppler model described by a parameter record (orbit, grid, ellipsoid).
RangeDoppler rangeDopplerFromRecord(const SarParameterRecord& record);

} // namespace sargeo
