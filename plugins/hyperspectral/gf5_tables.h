// Text tables of GF-5 AHSI products and of this system: radiometric calibration ("gain,offset" per band),
// spectral response ("centre nm,FWHM nm" per band) and the solar irradiance table; and band metadata.
#pragma once

#include "plugin_base.h"

#include <gdal_priv.h>

#include <QFile>
#include <QStringList>
#include <QTextStream>
#include <algorithm>
#include <utility>
#include <vector>

namespace gf5
{

// Lines of two comma-separated numbers; throws AlgoError when the file cannot be read or a line is not
// two numbers.
inline std::vector<std::pair<double, double>> readPairs(const QString& path, const char* what)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        throw algokit::AlgoError(QStringLiteral("The %1 file %2 cannot be read.").arg(what, path));
    std::vector<std::pair<double, double>> rows;
    QTextStream in(&file);
    int lineNumber = 0;
    while (!in.atEnd())
    {
        const QString line = in.readLine().trimmed();
        ++lineNumber;
        if (line.isEmpty())
            continue;
        const QStringList fields = line.split(',');
        bool ok1 = false, ok2 = false;
        const double first = fields.size() >= 2 ? fields[0].trimmed().toDouble(&ok1) : 0.0;
        const double second = fields.size() >= 2 ? fields[1].trimmed().toDouble(&ok2) : 0.0;
        if (!ok1 || !ok2)
            throw algokit::AlgoError(
                QStringLiteral("Line %1 of the %2 file %3 is not two numbers.").arg(lineNumber).arg(what, path));
        rows.emplace_back(first, second);
    }
    if (rows.empty())
        throw algokit::AlgoError(QStringLiteral("The %1 file %2 is empty.").arg(what, path));
    return rows;
}

// One row of the solar irradiance table.
struct EsunRow
{
    QString detector; // VNIR or SWIR
    int band = 0;     // band of the detector, 1-based
    double centre = 0.0;
    double fwhm = 0.0;
    double esun = 0.0;
};

inline std::vector<EsunRow> readEsunTable(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        throw algokit::AlgoError(QStringLiteral("The solar irradiance table %1 cannot be read.").arg(path));
    std::vector<EsunRow> rows;
    QTextStream in(&file);
    while (!in.atEnd())
    {
        const QString line = in.readLine().trimmed();
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        const QStringList fields = line.split(' ', Qt::SkipEmptyParts);
        if (fields.size() < 6)
            continue;
        rows.push_back({fields[1], fields[2].toInt(), fields[3].toDouble(), fields[4].toDouble(), fields[5].toDouble()});
    }
    if (rows.empty())
        throw algokit::AlgoError(QStringLiteral("The solar irradiance table %1 holds no band.").arg(path));
    return rows;
}

// Irradiance at a wavelength, linear between the table's band centres, clamped at its ends.
inline double esunAt(std::vector<EsunRow> rows, double wavelength)
{
    std::sort(rows.begin(), rows.end(), [](const EsunRow& a, const EsunRow& b) { return a.centre < b.centre; });
    if (wavelength <= rows.front().centre)
        return rows.front().esun;
    for (size_t i = 1; i < rows.size(); ++i)
        if (wavelength <= rows[i].centre)
        {
            const double t = (wavelength - rows[i - 1].centre) / (rows[i].centre - rows[i - 1].centre);
            return rows[i - 1].esun + t * (rows[i].esun - rows[i - 1].esun);
        }
    return rows.back().esun;
}

// Writes band wavelengths (nm) and FWHM (when known, else empty) into the band metadata and, for ENVI,
// into the header's "wavelength"/"fwhm" lists so that other ENVI readers see them too.
inline void writeWavelengths(GDALDataset* dataset, const std::vector<double>& centres, const std::vector<double>& fwhm)
{
    QStringList centreList, fwhmList;
    for (size_t k = 0; k < centres.size() && int(k) < dataset->GetRasterCount(); ++k)
    {
        GDALRasterBand* band = dataset->GetRasterBand(int(k) + 1);
        band->SetMetadataItem("wavelength", QByteArray::number(centres[k], 'g', 8).constData());
        band->SetMetadataItem("wavelength_units", "Nanometers");
        centreList << QString::number(centres[k], 'g', 8);
        if (k < fwhm.size())
        {
            band->SetMetadataItem("fwhm", QByteArray::number(fwhm[k], 'g', 8).constData());
            fwhmList << QString::number(fwhm[k], 'g', 8);
        }
    }
    if (QString::fromUtf8(dataset->GetDriver()->GetDescription()) != "ENVI" || centreList.isEmpty())
        return;
    dataset->SetMetadataItem("wavelength", ("{" + centreList.join(", ") + "}").toUtf8().constData(), "ENVI");
    dataset->SetMetadataItem("wavelength_units", "Nanometers", "ENVI");
    if (fwhmList.size() == centreList.size())
        dataset->SetMetadataItem("fwhm", ("{" + fwhmList.join(", ") + "}").toUtf8().constData(), "ENVI");
}

// Copies the RPC domain (read by GDAL from a ".rpb" beside the image) so the output keeps its geometry.
inline void copyRpc(GDALDataset* source, GDALDataset* target)
{
    if (char** rpc = source->GetMetadata("RPC"))
        target->SetMetadata(rpc, "RPC");
}

} // namespace gf5
