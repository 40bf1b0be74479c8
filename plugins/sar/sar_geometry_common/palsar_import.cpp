// ALOS PALSAR / PALSAR-2 CEOS import.
#include "palsar_import.h"

#include "ceos_reader.h"
#include "geodesy.h"
#include "orbit_vectors.h"
#include "record_geometry.h"
#include "s1_product.h"
#include "sar_parameter_file.h"

#include <cpl_string.h>
#include <cpl_vsi.h>

#include <QDate>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>

#include <cmath>
#include <cstring>

namespace sargeo
{

namespace
{

struct ImageJob
{
    QString path, name, polarisation;
    CeosImageDescriptor descriptor;
    QString output, parameterFile;
};

QStringList listFolder(const QString& folder)
{
    QStringList names;
    char** entries = VSIReadDir(folder.toUtf8().constData());
    for (char** entry = entries; entry && *entry; ++entry)
        names << QString::fromUtf8(*entry);
    CSLDestroy(entries);
    names.sort();
    return names;
}

vsi_l_offset fileSize(const QString& path)
{
    VSIStatBufL stat;
    return VSIStatL(path.toUtf8().constData(), &stat) == 0 ? vsi_l_offset(stat.st_size) : 0;
}

std::string readBytes(const QString& path, size_t count)
{
    VSILFILE* file = VSIFOpenL(path.toUtf8().constData(), "rb");
    if (!file)
        throw algokit::AlgoError(QStringLiteral("Cannot open %1").arg(path));
    std::string bytes(count, '\0');
    bytes.resize(VSIFReadL(&bytes[0], 1, count, file));
    VSIFCloseL(file);
    return bytes;
}

// The folder holding the product files: the folder itself, or the first folder inside a zip that holds a LED file.
QString productFolder(const QString& input)
{
    const QFileInfo info(input);
    if (info.isDir())
        return info.absoluteFilePath();
    if (info.suffix().compare("zip", Qt::CaseInsensitive) != 0)
        return QString();
    QStringList candidates{"/vsizip/" + info.absoluteFilePath()};
    for (const QString& entry : listFolder(candidates.front()))
        candidates << candidates.front() + "/" + entry;
    for (const QString& folder : candidates)
        for (const QString& name : listFolder(folder))
            if (name.startsWith("LED-"))
                return folder;
    return QString();
}

QDate dayOf(const CeosLinePrefix& prefix)
{
    return QDate(prefix.year, 1, 1).addDays(prefix.dayOfYear - 1);
}

bool plausibleTime(const CeosLinePrefix& prefix)
{
    return prefix.year >= 1990 && prefix.year <= 2100 && prefix.dayOfYear >= 1 && prefix.dayOfYear <= 366 &&
           prefix.millisecondOfDay >= 0 && prefix.millisecondOfDay < 86400000;
}

} // namespace

QStringList importPalsar(const algokit::GenericParams& args, const QString& sensor,
                         const std::function<void(double)>& progress, const std::function<void(const QString&)>& claim)
{
    const QString input = args.text("InputDir").required().existingPath();
    const QString outputDir = args.text("OutputDir").required();
    const QString folder = productFolder(input);
    if (folder.isEmpty())
        args.refuse("InputDir", input, QStringLiteral("is not a CEOS product folder or a zip of one"));
    QString leaderPath;
    std::vector<ImageJob> jobs;
    for (const QString& name : listFolder(folder))
    {
        if (name.startsWith("LED-"))
            leaderPath = folder + "/" + name;
        else if (name.startsWith("IMG-") && name.size() > 7)
        {
            ImageJob job;
            job.path = folder + "/" + name;
            job.name = name;
            job.polarisation = name.mid(4, 2);
            jobs.push_back(job);
        }
    }
    if (leaderPath.isEmpty() || jobs.empty())
        args.refuse("InputDir", input, QStringLiteral("holds no LED- leader or no IMG- image file"));

    CeosLeader leader;
    try
    {
        leader = readCeosLeader(readBytes(leaderPath, size_t(std::min<vsi_l_offset>(fileSize(leaderPath), 64u << 20))));
    }
    catch (const std::runtime_error& e)
    {
        args.refuse("InputDir", input, QStringLiteral("has an unreadable leader %1: %2").arg(leaderPath, e.what()));
    }
    if (leader.vectors.size() < 4)
        args.refuse("InputDir", input, QStringLiteral("has fewer than four state vectors in its leader"));
    for (ImageJob& job : jobs)
    {
        try
        {
            job.descriptor = readCeosImageDescriptor(readBytes(job.path, 720));
        }
        catch (const std::runtime_error& e)
        {
            args.refuse("InputDir", input, QStringLiteral("has an unreadable image file %1: %2").arg(job.name, e.what()));
        }
        const CeosImageDescriptor& d = job.descriptor;
        const vsi_l_offset expected = 720 + vsi_l_offset(d.records) * vsi_l_offset(d.recordLength);
        const vsi_l_offset size = fileSize(job.path);
        if (size < expected || d.records < d.lines)
            args.refuse("InputDir", input,
                        QStringLiteral("holds a cut image file %1: %2 of its %3 image records are present")
                            .arg(job.name)
                            .arg(size > 720 ? qint64((size - 720) / vsi_l_offset(d.recordLength)) : 0)
                            .arg(d.lines));
        job.output = QDir(outputDir).absoluteFilePath(job.name + ".tif");
        job.parameterFile = sarParameterFilePath(job.output);
    }
    if (!QDir().mkpath(outputDir))
        args.refuse("OutputDir", outputDir, QStringLiteral("cannot be created"));

    // State vectors on the time base of the first image line's day.
    const QDate vectorDay(leader.year, leader.month, leader.day);
    QStringList written;
    double done = 0.0, total = 0.0;
    for (const ImageJob& job : jobs)
        total += job.descriptor.lines;
    for (const ImageJob& job : jobs)
    {
        const CeosImageDescriptor& d = job.descriptor;
        const bool complex = d.isComplex();
        VSILFILE* file = VSIFOpenL(job.path.toUtf8().constData(), "rb");
        if (!file)
            throw algokit::AlgoError(QStringLiteral("Cannot open %1").arg(job.path));
        std::unique_ptr<VSILFILE, int (*)(VSILFILE*)> closer(file, VSIFCloseL);
        std::vector<unsigned char> record(size_t(d.recordLength));
        auto readRecord = [&](int index) {
            if (VSIFSeekL(file, 720 + vsi_l_offset(index) * vsi_l_offset(d.recordLength), SEEK_SET) != 0 ||
                VSIFReadL(record.data(), 1, record.size(), file) != record.size())
                throw algokit::AlgoError(QStringLiteral("Cannot read record %1 of %2").arg(index + 1).arg(job.path));
        };

        SarParameterRecord r;
        r.title = QFileInfo(job.name).fileName().toStdString();
        r.sensor = sensor.toStdString();
        r.polarizationType = job.polarisation.toStdString();
        r.polarizationMode = jobs.size() >= 4 ? "QUAD" : jobs.size() == 2 ? "DUAL" : "SINGLE";
        r.numberOfColumns = d.pixels;
        r.numberOfRows = d.lines;
        r.radarWavelength = leader.wavelength;
        r.radarCenterFrequency = kSpeedOfLight / leader.wavelength;
        r.adcSamplingRate = leader.rangeSamplingRate;
        r.earthSemiMajorAxis = leader.semiMajor;
        r.earthSemiMinorAxis = leader.semiMinor;
        r.sceneCenterLatitude = leader.centreLatitude;
        r.sceneCenterLongitude = leader.centreLongitude;
        QDate imageDay = vectorDay;
        if (complex && d.prefixBytes >= 124)
        {
            readRecord(0);
            const CeosLinePrefix first = readCeosLinePrefix(record.data(), size_t(d.prefixBytes));
            readRecord(d.lines - 1);
            const CeosLinePrefix last = readCeosLinePrefix(record.data(), size_t(d.prefixBytes));
            imageDay = QDate(first.year, 1, 1).addDays(first.dayOfYear - 1);
            r.startTime = first.millisecondOfDay * 1e-3;
            r.endTime = last.millisecondOfDay * 1e-3 + 86400.0 * QDate(first.year, 1, 1).addDays(first.dayOfYear - 1).daysTo(
                                                                QDate(last.year, 1, 1).addDays(last.dayOfYear - 1));
            r.azimuthLineTime = d.lines > 1 ? (r.endTime - r.startTime) / (d.lines - 1) : 1.0 / first.prf;
            r.pulseRepetitionFrequency = leader.prf > 0 ? leader.prf : first.prf;
            r.nearSlantRange = first.slantRangeFirst;
            r.slantRangeSpacing = kSpeedOfLight / (2.0 * leader.rangeSamplingRate);
            r.centerSlantRange = r.nearSlantRange + (d.pixels / 2) * r.slantRangeSpacing;
            r.farSlantRange = r.nearSlantRange + (d.pixels - 1) * r.slantRangeSpacing;
            r.imageDataType = "COMPLEX";
            r.imageGeometry = "SLANT_RANGE";
        }
        else
        {
            r.imageDataType = "DETECTED";
            r.imageGeometry = complex ? "SLANT_RANGE" : "GEOCODED";
            r.pulseRepetitionFrequency = leader.prf;
            // Level 1.5: the processed data records carry the acquisition year, day and millisecond at the
            // places the signal data records do; when they do not read as a date, the leader's scene centre time.
            bool fromRecords = false;
            if (d.prefixBytes >= 124 && d.lines > 0)
            {
                readRecord(0);
                const CeosLinePrefix first = readCeosLinePrefix(record.data(), size_t(d.prefixBytes));
                readRecord(d.lines - 1);
                const CeosLinePrefix last = readCeosLinePrefix(record.data(), size_t(d.prefixBytes));
                if (plausibleTime(first) && plausibleTime(last))
                {
                    imageDay = dayOf(first);
                    r.startTime = first.millisecondOfDay * 1e-3;
                    r.endTime = last.millisecondOfDay * 1e-3 + 86400.0 * double(imageDay.daysTo(dayOf(last)));
                    if (d.lines > 1 && r.endTime >= r.startTime)
                    {
                        r.azimuthLineTime = (r.endTime - r.startTime) / (d.lines - 1);
                        fromRecords = true;
                    }
                }
            }
            if (!fromRecords)
            {
                const QDateTime centre = QDateTime::fromString(QString::fromStdString(leader.sceneCentreTime.substr(0, 17)),
                                                               QStringLiteral("yyyyMMddHHmmsszzz"));
                if (centre.isValid())
                {
                    imageDay = centre.date();
                    r.startTime = r.endTime = centre.time().msecsSinceStartOfDay() * 1e-3;
                }
            }
        }
        r.rawDataStartTime = imageDay.toString("yyyy-MM-dd").toStdString();
        r.centerTime = 0.5 * (r.startTime + r.endTime);
        const double shift = 86400.0 * double(imageDay.daysTo(vectorDay));
        std::vector<double> times;
        std::vector<StateVector> vectors;
        for (size_t k = 0; k < leader.vectors.size(); ++k)
        {
            times.push_back(shift + leader.firstTime + double(k) * leader.interval);
            const CeosStateVector& v = leader.vectors[k];
            vectors.push_back({v.position[0], v.position[1], v.position[2], v.velocity[0], v.velocity[1], v.velocity[2]});
        }
        sarimport::setStateVectors(times, vectors, r);
        if (r.imageGeometry == "SLANT_RANGE" && r.azimuthLineTime > 0)
        {
            try
            {
                setCorners(r, rangeDopplerFromRecord(r), 0.0);
            }
            catch (const std::exception& e)
            {
                throw algokit::AlgoError(QStringLiteral("%1: %2").arg(job.name, e.what()));
            }
        }

        claim(job.output);
        const GDALDataType type = complex ? GDT_CFloat32 : GDT_UInt16;
        algokit::OutputRaster out(job.output, "GTiff", d.pixels, d.lines, 1, type, {"TILED=YES", "BIGTIFF=IF_SAFER"});
        out.band(0)->SetDescription(job.polarisation.toUtf8().constData());
        const int step = std::max(1, int((8u << 20) / size_t(d.recordLength)));
        std::vector<unsigned char> samples;
        for (int y0 = 0; y0 < d.lines; y0 += step)
        {
            const int rows = std::min(step, d.lines - y0);
            samples.resize(size_t(rows) * size_t(d.dataBytes));
            for (int r0 = 0; r0 < rows; ++r0)
            {
                readRecord(y0 + r0);
                unsigned char* to = samples.data() + size_t(r0) * size_t(d.dataBytes);
                std::memcpy(to, record.data() + d.prefixBytes, size_t(d.dataBytes));
                // CEOS samples are big-endian: 4-byte floats (complex) or 2-byte integers.
                const int word = complex ? 4 : 2;
                for (size_t i = 0; i + size_t(word) <= size_t(d.dataBytes); i += size_t(word))
                    std::reverse(to + i, to + i + word);
            }
            if (out.band(0)->RasterIO(GF_Write, 0, y0, d.pixels, rows, samples.data(), d.pixels, rows, type, 0, 0) !=
                CE_None)
                throw algokit::AlgoError(QStringLiteral("Write failed: %1").arg(job.output));
            progress(100.0 * (done + y0 + rows) / total);
        }
        out.commit();
        done += d.lines;
        claim(job.parameterFile);
        QString error;
        if (!WriteSarParameterFile(job.parameterFile, r, &error))
            throw algokit::AlgoError(error);
        written << job.output << job.parameterFile;
    }
    return written;
}

} // namespace sargeo
