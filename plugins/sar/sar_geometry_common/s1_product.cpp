// Sentinel-1 SAFE layout and the parameter record of its images.
#include "s1_product.h"

#include "orbit_vectors.h"
#include "utc_time.h"

#include <cpl_string.h>
#include <cpl_vsi.h>

#include <QFileInfo>

#include <cmath>
#include <memory>
#include <stdexcept>

namespace sargeo
{

namespace
{

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

bool isFile(const QString& path)
{
    VSIStatBufL stat;
    return VSIStatL(path.toUtf8().constData(), &stat) == 0 && VSI_ISREG(stat.st_mode);
}

} // namespace

std::string readVirtualFile(const QString& path, size_t maxBytes)
{
    VSILFILE* file = VSIFOpenL(path.toUtf8().constData(), "rb");
    if (!file)
        throw std::runtime_error("cannot open " + path.toStdString());
    std::string text;
    char buffer[65536];
    size_t got;
    while ((got = VSIFReadL(buffer, 1, sizeof buffer, file)) > 0)
    {
        text.append(buffer, got);
        if (text.size() > maxBytes)
        {
            VSIFCloseL(file);
            throw std::runtime_error(path.toStdString() + " is too large for an annotation file");
        }
    }
    VSIFCloseL(file);
    return text;
}

S1Product::S1Product(const QString& path)
{
    const QFileInfo info(path);
    QString root;
    if (info.isDir())
        root = info.absoluteFilePath();
    else if (info.fileName().compare("manifest.safe", Qt::CaseInsensitive) == 0)
        root = info.absolutePath();
    else if (info.suffix().compare("zip", Qt::CaseInsensitive) == 0)
    {
        const QString zip = "/vsizip/" + info.absoluteFilePath();
        for (const QString& entry : listFolder(zip))
            if (entry.endsWith(".SAFE", Qt::CaseInsensitive))
                root = zip + "/" + entry;
        if (root.isEmpty() && isFile(zip + "/manifest.safe"))
            root = zip;
    }
    if (root.isEmpty() || !isFile(root + "/manifest.safe"))
        throw std::runtime_error("is not a Sentinel-1 SAFE folder, manifest.safe or zip of one");
    m_root = root;
    m_name = QFileInfo(root).fileName();
    if (m_name.endsWith(".SAFE", Qt::CaseInsensitive))
        m_name.chop(5);

    const QStringList measurements = listFolder(root + "/measurement");
    const QStringList calibrations = listFolder(root + "/annotation/calibration");
    for (const QString& file : listFolder(root + "/annotation"))
    {
        if (!file.endsWith(".xml", Qt::CaseInsensitive))
            continue;
        const QString stem = file.left(file.size() - 4);
        const QStringList parts = stem.split('-');
        if (parts.size() < 4)
            continue;
        S1ImageFiles image;
        image.stem = stem;
        image.swath = parts[1].toUpper();
        image.productType = parts[2].toUpper();
        image.polarisation = parts[3].toUpper();
        image.annotation = root + "/annotation/" + file;
        if (calibrations.contains("calibration-" + file))
            image.calibration = root + "/annotation/calibration/calibration-" + file;
        if (calibrations.contains("noise-" + file))
            image.noise = root + "/annotation/calibration/noise-" + file;
        for (const QString& m : measurements)
            if (m.startsWith(stem + ".", Qt::CaseInsensitive))
                image.measurement = root + "/measurement/" + m;
        m_images.push_back(image);
    }
    if (m_images.empty())
        throw std::runtime_error("holds no annotation file");
}

QStringList S1Product::swaths() const
{
    QStringList list;
    for (const S1ImageFiles& image : m_images)
        if (!list.contains(image.swath))
            list << image.swath;
    return list;
}

QStringList S1Product::polarisations() const
{
    QStringList list;
    for (const S1ImageFiles& image : m_images)
        if (!list.contains(image.polarisation))
            list << image.polarisation;
    return list;
}

RangeDoppler rangeDopplerFromRecord(const SarParameterRecord& record)
{
    Ellipsoid ellipsoid;
    if (record.earthSemiMajorAxis > 6e6 && record.earthSemiMinorAxis > 6e6)
        ellipsoid = Ellipsoid{record.earthSemiMajorAxis, record.earthSemiMinorAxis};
    return RangeDoppler(Orbit::fromRecord(record), radarGridFromRecord(record), ellipsoid);
}

SarParameterRecord s1ParameterRecord(const S1Annotation& a, const QString& productName, int polarisationCount,
                                     double firstLineTime, int lines, int samples)
{
    SarParameterRecord r;
    r.title = productName.toStdString();
    r.sensor = a.missionId.size() == 3 ? "Sentinel-1" + a.missionId.substr(2) : a.missionId;
    std::string start = formatUtc(a.referenceDay, firstLineTime);
    start[10] = ' ';
    r.rawDataStartTime = start;
    r.orbitDirection = (a.pass == "Ascending" || a.pass == "ASCENDING") ? "ASCENDING" : "DESCENDING";
    r.lookDirection = "RIGHT";
    r.imageGeometry = "SLANT_RANGE";
    r.polarizationMode = polarisationCount >= 4 ? "QUAD" : polarisationCount == 2 ? "DUAL" : "SINGLE";
    r.polarizationType = a.polarisation;
    const double dt = a.azimuthTimeInterval;
    r.startTime = firstLineTime;
    r.endTime = firstLineTime + (lines - 1) * dt;
    r.centerTime = 0.5 * (r.startTime + r.endTime);
    r.azimuthLineTime = dt;
    const double spacing = kSpeedOfLight / (2.0 * a.rangeSamplingRate);
    r.nearSlantRange = a.slantRangeTime * kSpeedOfLight / 2.0;
    r.centerSlantRange = r.nearSlantRange + spacing * (samples / 2);
    r.farSlantRange = r.nearSlantRange + spacing * (samples - 1);
    r.incidenceAngle = a.incidenceAngleMidSwath;
    r.headingAngle = std::fmod(a.platformHeading + 360.0, 360.0);
    r.numberOfColumns = samples;
    r.numberOfRows = lines;
    r.azimuthLooks = 1;
    r.rangeLooks = 1;
    r.slantRangeSpacing = spacing;
    r.azimuthSpacing = a.azimuthPixelSpacing;
    r.imageDataType = a.productType == "SLC" ? "COMPLEX" : "DETECTED";
    r.azimuthDeskew = "ON";
    r.radarCenterFrequency = a.radarFrequency;
    r.radarWavelength = kSpeedOfLight / a.radarFrequency;
    r.adcSamplingRate = a.rangeSamplingRate;
    r.chirpBandWidth = a.rangeBandwidth;
    r.pulseRepetitionFrequency = a.prf;
    r.azimuthProcBandwidth = a.azimuthBandwidth;
    for (size_t i = 0; i < 3; ++i)
        r.dopplerCentroidCoefficients[i] = a.dopplerCentroid[i];
    r.earthSemiMajorAxis = a.ellipsoidSemiMajor;
    r.earthSemiMinorAxis = a.ellipsoidSemiMinor;

    if (a.orbit.size() < 4)
        throw std::runtime_error("the annotation holds fewer than four orbit state vectors");
    const double step = a.orbit[1].time - a.orbit[0].time;
    std::vector<double> times;
    std::vector<StateVector> vectors;
    for (size_t i = 0; i < a.orbit.size(); ++i)
    {
        if (std::abs(a.orbit[i].time - (a.orbit[0].time + double(i) * step)) > 1e-3 || !(step > 0.0))
            throw std::runtime_error("the annotation's orbit state vectors are not evenly spaced in time");
        times.push_back(a.orbit[i].time);
        const OrbitState& s = a.orbit[i];
        vectors.push_back({s.position.x(), s.position.y(), s.position.z(), s.velocity.x(), s.velocity.y(),
                           s.velocity.z()});
    }
    sarimport::setStateVectors(times, vectors, r);

    // Corners from the orbit at the mean terrain height of the geolocation grid.
    double meanHeight = 0.0;
    for (const S1GridPoint& p : a.geolocationGrid)
        meanHeight += p.height / double(a.geolocationGrid.size());
    const RangeDoppler model = rangeDopplerFromRecord(r);
    auto corner = [&](double line, double pixel, double* latitude, double* longitude) {
        Vec3 p;
        if (!model.imageToGround(line, pixel, meanHeight, &p))
            throw std::runtime_error("the orbit does not see the image corners");
        double h;
        ecefToGeodetic(p, latitude, longitude, &h, model.ellipsoid());
    };
    corner(0.5 * (lines - 1), 0.5 * (samples - 1), &r.sceneCenterLatitude, &r.sceneCenterLongitude);
    corner(0, 0, &r.sceneTopLeftLatitude, &r.sceneTopLeftLongitude);
    corner(0, samples - 1, &r.sceneTopRightLatitude, &r.sceneTopRightLongitude);
    corner(lines - 1, 0, &r.sceneBottomLeftLatitude, &r.sceneBottomLeftLongitude);
    corner(lines - 1, samples - 1, &r.sceneBottomRightLatitude, &r.sceneBottomRightLongitude);
    return r;
}

} // namespace sargeo
