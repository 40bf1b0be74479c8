// Reading a COSMO-SkyMed SLC product with the HDF5 C interface.
//
// Attribute names follow public readers of the format. Those not seen in them (the corner and centre coordinates
// "Top Left Geodetic Coordinates" and so on, "Line Spacing", "Azimuth Focusing Bandwidth") are read when present;
// without them the record keeps the file defaults.
#include "csk_product.h"

#include "orbit_vectors.h"
#include "plugin_base.h"
#include "sar_time.h"

#include <QFileInfo>
#include <cmath>

namespace sarimport
{

using algokit::AlgoError;

namespace
{

// Keeps the HDF5 library from printing its error stack; failures are reported by our own messages.
struct QuietHdf5
{
    QuietHdf5()
    {
        H5Eget_auto2(H5E_DEFAULT, &function, &data);
        H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    }
    ~QuietHdf5() { H5Eset_auto2(H5E_DEFAULT, function, data); }
    H5E_auto2_t function = nullptr;
    void* data = nullptr;
};

bool hasLink(hid_t location, const char* name)
{
    return H5Lexists(location, name, H5P_DEFAULT) > 0;
}

} // namespace

Hdf5Handle& Hdf5Handle::operator=(Hdf5Handle&& other) noexcept
{
    if (this != &other)
    {
        if (m_id >= 0 && m_close)
            m_close(m_id);
        m_id = other.m_id;
        m_close = other.m_close;
        other.m_id = -1;
    }
    return *this;
}

Hdf5Handle::~Hdf5Handle()
{
    if (m_id >= 0 && m_close)
        m_close(m_id);
}

CskProduct::CskProduct(const QString& path) : m_path(path)
{
    QuietHdf5 quiet;
    if (!QFileInfo(path).isFile())
        throw AlgoError(QStringLiteral("%1 is not a file").arg(path));
    m_file = Hdf5Handle(H5Fopen(path.toUtf8().constData(), H5F_ACC_RDONLY, H5P_DEFAULT), H5Fclose);
    if (!m_file.valid())
        throw AlgoError(QStringLiteral("%1 is not an HDF5 file").arg(path));
    for (int index = 1; index < 100; ++index)
    {
        const QString swath = QStringLiteral("S%1").arg(index, 2, 10, QChar('0'));
        const QByteArray image = (swath + "/SBI").toLatin1();
        if (!hasLink(m_file.id(), swath.toLatin1().constData()) || !hasLink(m_file.id(), image.constData()))
            break;
        m_swaths << swath;
    }
    if (m_swaths.isEmpty())
        throw AlgoError(QStringLiteral("%1 holds no image S01/SBI").arg(path));
}

CskProduct::ImageShape CskProduct::imageShape(const QString& swath) const
{
    QuietHdf5 quiet;
    Hdf5Handle dataset(H5Dopen2(m_file.id(), (swath + "/SBI").toLatin1().constData(), H5P_DEFAULT), H5Dclose);
    Hdf5Handle space(dataset.valid() ? H5Dget_space(dataset.id()) : -1, H5Sclose);
    Hdf5Handle type(dataset.valid() ? H5Dget_type(dataset.id()) : -1, H5Tclose);
    if (!space.valid() || !type.valid())
        throw AlgoError(QStringLiteral("%1: cannot read %2/SBI").arg(m_path, swath));
    hsize_t dims[3] = {0, 0, 0};
    const int rank = H5Sget_simple_extent_ndims(space.id());
    if (rank != 3 || H5Sget_simple_extent_dims(space.id(), dims, nullptr) != 3 || dims[2] != 2)
        throw AlgoError(QStringLiteral("%1: %2/SBI is not a lines x samples x 2 complex image").arg(m_path, swath));
    if (dims[0] == 0 || dims[1] == 0 || dims[0] > 1000000 || dims[1] > 1000000)
        throw AlgoError(QStringLiteral("%1: %2/SBI has an unusable size").arg(m_path, swath));
    const H5T_class_t typeClass = H5Tget_class(type.id());
    if (typeClass != H5T_INTEGER && typeClass != H5T_FLOAT)
        throw AlgoError(QStringLiteral("%1: %2/SBI does not hold numbers").arg(m_path, swath));
    ImageShape shape;
    shape.lines = int(dims[0]);
    shape.samples = int(dims[1]);
    shape.integerSamples = typeClass == H5T_INTEGER && H5Tget_size(type.id()) <= 2;
    return shape;
}

void CskProduct::readLines(const QString& swath, int line0, int lines, hid_t memoryType, void* buffer) const
{
    QuietHdf5 quiet;
    Hdf5Handle dataset(H5Dopen2(m_file.id(), (swath + "/SBI").toLatin1().constData(), H5P_DEFAULT), H5Dclose);
    Hdf5Handle fileSpace(dataset.valid() ? H5Dget_space(dataset.id()) : -1, H5Sclose);
    hsize_t dims[3] = {0, 0, 0};
    if (!fileSpace.valid() || H5Sget_simple_extent_dims(fileSpace.id(), dims, nullptr) != 3)
        throw AlgoError(QStringLiteral("%1: cannot read %2/SBI").arg(m_path, swath));
    const hsize_t start[3] = {hsize_t(line0), 0, 0};
    const hsize_t count[3] = {hsize_t(lines), dims[1], 2};
    Hdf5Handle memorySpace(H5Screate_simple(3, count, nullptr), H5Sclose);
    if (H5Sselect_hyperslab(fileSpace.id(), H5S_SELECT_SET, start, nullptr, count, nullptr) < 0 ||
        H5Dread(dataset.id(), memoryType, memorySpace.id(), fileSpace.id(), H5P_DEFAULT, buffer) < 0)
        throw AlgoError(QStringLiteral("%1: reading lines %2 to %3 of %4/SBI failed")
                            .arg(m_path)
                            .arg(line0)
                            .arg(line0 + lines - 1)
                            .arg(swath));
}

std::vector<double> CskProduct::numbers(hid_t object, const char* name) const
{
    if (H5Aexists(object, name) <= 0)
        return {};
    Hdf5Handle attribute(H5Aopen(object, name, H5P_DEFAULT), H5Aclose);
    Hdf5Handle space(attribute.valid() ? H5Aget_space(attribute.id()) : -1, H5Sclose);
    Hdf5Handle type(attribute.valid() ? H5Aget_type(attribute.id()) : -1, H5Tclose);
    if (!space.valid() || !type.valid())
        return {};
    const H5T_class_t typeClass = H5Tget_class(type.id());
    if (typeClass != H5T_INTEGER && typeClass != H5T_FLOAT)
        throw AlgoError(QStringLiteral("%1: attribute \"%2\" does not hold numbers").arg(m_path, name));
    const hssize_t count = H5Sget_simple_extent_npoints(space.id());
    if (count <= 0 || count > 1000000)
        return {};
    std::vector<double> values(static_cast<size_t>(count));
    if (H5Aread(attribute.id(), H5T_NATIVE_DOUBLE, values.data()) < 0)
        throw AlgoError(QStringLiteral("%1: attribute \"%2\" cannot be read").arg(m_path, name));
    for (double value : values)
        if (!std::isfinite(value))
            throw AlgoError(QStringLiteral("%1: attribute \"%2\" holds a value that is not finite").arg(m_path, name));
    return values;
}

double CskProduct::number(hid_t object, const char* name, const double* fallback) const
{
    const std::vector<double> values = numbers(object, name);
    if (!values.empty())
        return values.front();
    if (fallback)
        return *fallback;
    throw AlgoError(QStringLiteral("%1: the attribute \"%2\" is missing").arg(m_path, name));
}

QString CskProduct::text(hid_t object, const char* name) const
{
    if (H5Aexists(object, name) <= 0)
        return QString();
    Hdf5Handle attribute(H5Aopen(object, name, H5P_DEFAULT), H5Aclose);
    Hdf5Handle type(attribute.valid() ? H5Aget_type(attribute.id()) : -1, H5Tclose);
    if (!type.valid() || H5Tget_class(type.id()) != H5T_STRING)
        return QString();
    if (H5Tis_variable_str(type.id()) > 0)
    {
        char* value = nullptr;
        Hdf5Handle memoryType(H5Tcopy(H5T_C_S1), H5Tclose);
        H5Tset_size(memoryType.id(), H5T_VARIABLE);
        if (H5Aread(attribute.id(), memoryType.id(), &value) < 0 || !value)
            return QString();
        const QString result = QString::fromUtf8(value).trimmed();
        H5free_memory(value);
        return result;
    }
    const size_t size = H5Tget_size(type.id());
    QByteArray value(int(size) + 1, '\0');
    Hdf5Handle memoryType(H5Tcopy(H5T_C_S1), H5Tclose);
    H5Tset_size(memoryType.id(), size + 1);
    if (H5Aread(attribute.id(), memoryType.id(), value.data()) < 0)
        return QString();
    return QString::fromUtf8(value.constData()).trimmed();
}

SarParameterRecord CskProduct::parameterRecord(const QString& swath) const
{
    QuietHdf5 quiet;
    const hid_t root = m_file.id();
    Hdf5Handle group(H5Gopen2(root, swath.toLatin1().constData(), H5P_DEFAULT), H5Gclose);
    Hdf5Handle image(H5Dopen2(root, (swath + "/SBI").toLatin1().constData(), H5P_DEFAULT), H5Dclose);
    if (!group.valid() || !image.valid())
        throw AlgoError(QStringLiteral("%1: cannot open %2/SBI").arg(m_path, swath));
    const hid_t sbi = image.id();
    const ImageShape shape = imageShape(swath);

    SarParameterRecord record;
    record.title = QFileInfo(m_path).completeBaseName().toStdString();
    const QString satellite = text(root, "Satellite ID");
    if (!satellite.isEmpty())
        record.sensor = satellite.toStdString();
    const QString orbitDirection = text(root, "Orbit Direction").toUpper();
    if (orbitDirection.startsWith("ASC"))
        record.orbitDirection = "ASCENDING";
    if (text(root, "Look Side").toUpper().startsWith("LEFT"))
        record.lookDirection = "LEFT";
    const QString polarisation = text(group.id(), "Polarisation");
    if (!polarisation.isEmpty())
        record.polarizationType = polarisation.toStdString();

    // Times: seconds after midnight of the reference day; the product's times count from "Reference UTC".
    QDate day;
    double reference = 0.0;
    const QString referenceText = text(root, "Reference UTC");
    if (!parseDateTime(referenceText, &day, &reference))
        throw AlgoError(QStringLiteral("%1: the attribute \"Reference UTC\" is missing or not a date and time: \"%2\"")
                            .arg(m_path, referenceText));
    const double lineTime = number(sbi, "Line Time Interval");
    if (lineTime <= 0.0)
        throw AlgoError(QStringLiteral("%1: \"Line Time Interval\" must be positive").arg(m_path));
    const double firstAzimuth = number(sbi, "Zero Doppler Azimuth First Time");
    const double lastAzimuthFallback = firstAzimuth + (shape.lines - 1) * lineTime;
    record.startTime = reference + firstAzimuth;
    record.endTime = reference + number(sbi, "Zero Doppler Azimuth Last Time", &lastAzimuthFallback);
    record.centerTime = 0.5 * (record.startTime + record.endTime);
    record.rawDataStartTime = formatDateTime(day, record.startTime).toStdString();
    record.azimuthLineTime = lineTime;

    const double zero = 0.0;
    const double samplingRate = number(group.id(), "Sampling Rate", &zero);
    const double columnTime = number(sbi, "Column Time Interval", &zero);
    double spacing = columnTime > 0.0 ? kSpeedOfLight * columnTime / 2.0
                                      : (samplingRate > 0.0 ? kSpeedOfLight / (2.0 * samplingRate) : 0.0);
    spacing = number(sbi, "Column Spacing", &spacing);
    record.slantRangeSpacing = spacing;
    record.nearSlantRange = kSpeedOfLight * number(sbi, "Zero Doppler Range First Time") / 2.0;
    const double farFallback = 2.0 * (record.nearSlantRange + (shape.samples - 1) * spacing) / kSpeedOfLight;
    record.farSlantRange = kSpeedOfLight * number(sbi, "Zero Doppler Range Last Time", &farFallback) / 2.0;
    record.centerSlantRange = 0.5 * (record.nearSlantRange + record.farSlantRange);

    struct Corner
    {
        const char* name;
        double SarParameterRecord::*latitude;
        double SarParameterRecord::*longitude;
    };
    const Corner corners[] = {
        {"Scene Centre Geodetic Coordinates", &SarParameterRecord::sceneCenterLatitude,
         &SarParameterRecord::sceneCenterLongitude},
        {"Top Left Geodetic Coordinates", &SarParameterRecord::sceneTopLeftLatitude,
         &SarParameterRecord::sceneTopLeftLongitude},
        {"Top Right Geodetic Coordinates", &SarParameterRecord::sceneTopRightLatitude,
         &SarParameterRecord::sceneTopRightLongitude},
        {"Bottom Left Geodetic Coordinates", &SarParameterRecord::sceneBottomLeftLatitude,
         &SarParameterRecord::sceneBottomLeftLongitude},
        {"Bottom Right Geodetic Coordinates", &SarParameterRecord::sceneBottomRightLatitude,
         &SarParameterRecord::sceneBottomRightLongitude},
    };
    for (const Corner& corner : corners)
    {
        std::vector<double> values = numbers(sbi, corner.name);
        if (values.size() < 2)
            values = numbers(root, corner.name);
        if (values.size() >= 2)
        {
            record.*corner.latitude = values[0];
            record.*corner.longitude = values[1];
        }
    }
    record.headingAngle = bearingDegrees(0.5 * (record.sceneTopLeftLatitude + record.sceneTopRightLatitude),
                                         0.5 * (record.sceneTopLeftLongitude + record.sceneTopRightLongitude),
                                         0.5 * (record.sceneBottomLeftLatitude + record.sceneBottomRightLatitude),
                                         0.5 * (record.sceneBottomLeftLongitude + record.sceneBottomRightLongitude));
    record.incidenceAngle =
        0.5 * (number(sbi, "Near Incidence Angle", &zero) + number(sbi, "Far Incidence Angle", &zero));

    record.numberOfColumns = shape.samples;
    record.numberOfRows = shape.lines;
    record.imageDataType = "COMPLEX";
    record.radarWavelength = number(root, "Radar Wavelength");
    if (record.radarWavelength <= 0.0)
        throw AlgoError(QStringLiteral("%1: \"Radar Wavelength\" must be positive").arg(m_path));
    record.radarCenterFrequency = kSpeedOfLight / record.radarWavelength;
    record.adcSamplingRate = samplingRate;
    record.chirpBandWidth =
        std::abs(number(group.id(), "Range Chirp Rate", &zero) * number(group.id(), "Range Chirp Length", &zero));
    const double focusedPrf = 1.0 / lineTime;
    record.pulseRepetitionFrequency = number(group.id(), "PRF", &focusedPrf);
    record.azimuthProcBandwidth = number(group.id(), "Azimuth Focusing Bandwidth", &record.pulseRepetitionFrequency);
    const std::vector<double> doppler = numbers(root, "Centroid vs Range Time Polynomial");
    for (size_t i = 0; i < 4 && i < doppler.size(); ++i)
        record.dopplerCentroidCoefficients[i] = doppler[i];

    const std::vector<double> times = numbers(root, "State Vectors Times");
    const std::vector<double> positions = numbers(root, "ECEF Satellite Position");
    const std::vector<double> velocities = numbers(root, "ECEF Satellite Velocity");
    const size_t count = std::min(times.size(), std::min(positions.size(), velocities.size()) / 3);
    std::vector<double> vectorTimes;
    std::vector<StateVector> vectors;
    for (size_t i = 0; i < count; ++i)
    {
        vectorTimes.push_back(reference + times[i]);
        vectors.push_back({positions[3 * i], positions[3 * i + 1], positions[3 * i + 2], velocities[3 * i],
                           velocities[3 * i + 1], velocities[3 * i + 2]});
    }
    setStateVectors(vectorTimes, vectors, record);
    if (count > 0)
    {
        const double speed = std::sqrt(vectors[0].xVelocity * vectors[0].xVelocity +
                                       vectors[0].yVelocity * vectors[0].yVelocity +
                                       vectors[0].zVelocity * vectors[0].zVelocity);
        const double spacingFallback = speed * lineTime;
        record.azimuthSpacing = number(sbi, "Line Spacing", &spacingFallback);
    }
    else
        record.azimuthSpacing = number(sbi, "Line Spacing", &zero);
    return record;
}

} // namespace sarimport
