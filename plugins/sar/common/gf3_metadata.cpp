// Filling the SAR parameter record of a GF-3 channel image from its product's meta.xml.
//
// Element paths follow the published outline of GF-3 L1A meta.xml files (root "product"); no real file was at hand,
// so the unconfirmed parts (units of RangeLookBandWidth, d0..d3 as the Doppler polynomial in Hz, GPSParam's
// TimeStamp form) are read as documented in the outline and fall back to the file defaults when absent.
#include "gf3_metadata.h"

#include "orbit_vectors.h"
#include "plugin_base.h"
#include "sar_time.h"

#include <QFileInfo>

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace sarimport
{

namespace
{

using boost::property_tree::ptree;
using algokit::AlgoError;

// Reads the element texts of one meta.xml, naming the file and the element in every complaint.
class MetaReader
{
public:
    MetaReader(const QString& path) : m_path(path)
    {
        try
        {
            boost::property_tree::read_xml(path.toLocal8Bit().toStdString(), m_tree);
        }
        catch (const boost::property_tree::xml_parser_error& error)
        {
            throw AlgoError(QStringLiteral("Cannot read the GF-3 meta.xml %1: %2")
                                .arg(path, QString::fromLocal8Bit(error.what())));
        }
        if (!m_tree.get_child_optional("product"))
            throw AlgoError(QStringLiteral("%1 has no root element \"product\"").arg(path));
    }

    boost::optional<QString> optionalText(const std::string& key) const
    {
        if (boost::optional<std::string> value = m_tree.get_optional<std::string>("product." + key))
            return QString::fromStdString(*value).trimmed();
        return boost::none;
    }
    QString text(const std::string& key) const
    {
        boost::optional<QString> value = optionalText(key);
        if (!value || value->isEmpty())
            throw AlgoError(QStringLiteral("%1: element %2 is missing or empty").arg(m_path, elementName(key)));
        return *value;
    }
    double number(const std::string& key) const { return toNumber(key, text(key)); }
    // An absent element gives fallback; a present one must hold a number.
    double number(const std::string& key, double fallback) const
    {
        boost::optional<QString> value = optionalText(key);
        return value ? toNumber(key, *value) : fallback;
    }
    // Text of the first element of that name anywhere in the document (as the import entries look it up).
    QString firstElementText(const std::string& name) const
    {
        const ptree* found = findFirst(m_tree, name);
        return found ? QString::fromStdString(found->data()).trimmed() : QString();
    }
    const ptree& tree() const { return m_tree; }
    double toNumber(const std::string& key, const QString& text) const
    {
        bool ok = false;
        const double value = text.toDouble(&ok);
        if (!ok || !std::isfinite(value))
            throw AlgoError(
                QStringLiteral("%1: element %2 does not hold a number: \"%3\"").arg(m_path, elementName(key), text));
        return value;
    }

private:
    static QString elementName(const std::string& key) { return QString::fromStdString(key).replace('.', '/'); }
    static const ptree* findFirst(const ptree& node, const std::string& name)
    {
        for (const ptree::value_type& child : node)
        {
            if (child.first == name)
                return &child.second;
            if (const ptree* found = findFirst(child.second, name))
                return found;
        }
        return nullptr;
    }

    QString m_path;
    ptree m_tree;
};

std::string polarizationModeOf(const QString& productPolarization)
{
    if (productPolarization == "AHV")
        return "QUAD";
    if (productPolarization == "HHHV" || productPolarization == "VHVV" || productPolarization == "HVHH" ||
        productPolarization == "VVVH")
        return "DUAL";
    return "SINGLE";
}

// The product polarisation text: the last child element of "productinfo".
QString productPolarizationOf(const ptree& tree)
{
    QString last;
    if (boost::optional<const ptree&> info = tree.get_child_optional("product.productinfo"))
        for (const ptree::value_type& child : *info)
            if (child.first != "<xmlattr>" && child.first != "<xmlcomment>")
                last = QString::fromStdString(child.second.data()).trimmed();
    return last;
}

void fillStateVectors(const MetaReader& meta, const QDate& day, SarParameterRecord& record)
{
    std::vector<double> times;
    std::vector<StateVector> vectors;
    if (boost::optional<const ptree&> gps = meta.tree().get_child_optional("product.GPS"))
        for (const ptree::value_type& child : *gps)
        {
            if (child.first != "GPSParam")
                continue;
            auto value = [&](const char* key) {
                const QString text = QString::fromStdString(child.second.get<std::string>(key, "")).trimmed();
                return meta.toNumber(std::string("GPS.GPSParam.") + key, text);
            };
            times.push_back(secondsAfter(day, QString::fromStdString(child.second.get<std::string>("TimeStamp", "")),
                                         "GPS/GPSParam/TimeStamp"));
            vectors.push_back({value("xPosition"), value("yPosition"), value("zPosition"), value("xVelocity"),
                               value("yVelocity"), value("zVelocity")});
        }
    setStateVectors(times, vectors, record);
}

} // namespace

SarParameterRecord gf3ParameterRecord(const QString& metaXmlPath, const QString& channel, int width, int height)
{
    const MetaReader meta(metaXmlPath);
    SarParameterRecord record;
    QString title = QFileInfo(metaXmlPath).fileName();
    if (title.endsWith(".meta.xml"))
        title.chop(int(sizeof(".meta.xml")) - 1);
    record.title = title.toStdString();
    record.sensor = meta.optionalText("satellite").value_or(QStringLiteral("GF3")).toStdString();
    record.rawDataStartTime = meta.text("imageinfo.imagingTime.start").toStdString();
    const QString direction = meta.optionalText("Direction").value_or(QString());
    if (direction.startsWith("ASC", Qt::CaseInsensitive))
        record.orbitDirection = "ASCENDING";
    const QString look = meta.optionalText("sensor.lookDirection").value_or(QStringLiteral("R"));
    record.lookDirection = look.startsWith('L', Qt::CaseInsensitive) ? "LEFT" : "RIGHT";
    record.polarizationMode = polarizationModeOf(productPolarizationOf(meta.tree()));
    record.polarizationType = channel.toStdString();

    // Times are seconds after midnight of the scene centre's day.
    const QString centreText = meta.firstElementText("CenterTime");
    QDate day;
    double centreSeconds = 0.0;
    if (!parseDateTime(centreText, &day, &centreSeconds))
        throw AlgoError(QStringLiteral("%1: CenterTime is not a date and time: \"%2\"").arg(metaXmlPath, centreText));
    record.centerTime = centreSeconds;
    record.startTime = secondsAfter(day, record.rawDataStartTime.c_str(), "imageinfo/imagingTime/start");
    record.endTime = secondsAfter(day, meta.text("imageinfo.imagingTime.end"), "imageinfo/imagingTime/end");

    const double prf = meta.number("imageinfo.eqvPRF");
    const double samplingRate = meta.number("imageinfo.eqvFs") * 1e6; // MHz in the file
    if (prf <= 0.0 || samplingRate <= 0.0)
        throw AlgoError(QStringLiteral("%1: eqvPRF and eqvFs must be positive").arg(metaXmlPath));
    record.azimuthLineTime = 1.0 / prf;
    record.slantRangeSpacing = kSpeedOfLight / (2.0 * samplingRate);
    record.nearSlantRange = meta.number("imageinfo.nearRange");
    record.farSlantRange = record.nearSlantRange + (width - 1) * record.slantRangeSpacing;
    record.centerSlantRange = record.nearSlantRange + 0.5 * (width - 1) * record.slantRangeSpacing;

    record.sceneCenterLatitude = meta.number("imageinfo.center.latitude");
    record.sceneCenterLongitude = meta.number("imageinfo.center.longitude");
    record.sceneTopLeftLatitude = meta.number("imageinfo.corner.topLeft.latitude");
    record.sceneTopLeftLongitude = meta.number("imageinfo.corner.topLeft.longitude");
    record.sceneTopRightLatitude = meta.number("imageinfo.corner.topRight.latitude");
    record.sceneTopRightLongitude = meta.number("imageinfo.corner.topRight.longitude");
    record.sceneBottomLeftLatitude = meta.number("imageinfo.corner.bottomLeft.latitude");
    record.sceneBottomLeftLongitude = meta.number("imageinfo.corner.bottomLeft.longitude");
    record.sceneBottomRightLatitude = meta.number("imageinfo.corner.bottomRight.latitude");
    record.sceneBottomRightLongitude = meta.number("imageinfo.corner.bottomRight.longitude");
    record.incidenceAngle = 0.5 * (meta.number("processinfo.incidenceAngleNearRange", 0.0) +
                                   meta.number("processinfo.incidenceAngleFarRange", 0.0));
    // The track runs from the first line (top) to the last (bottom).
    record.headingAngle = bearingDegrees(0.5 * (record.sceneTopLeftLatitude + record.sceneTopRightLatitude),
                                         0.5 * (record.sceneTopLeftLongitude + record.sceneTopRightLongitude),
                                         0.5 * (record.sceneBottomLeftLatitude + record.sceneBottomRightLatitude),
                                         0.5 * (record.sceneBottomLeftLongitude + record.sceneBottomRightLongitude));

    record.numberOfColumns = width;
    record.numberOfRows = height;
    record.azimuthLooks = int32_t(meta.number("processinfo.MultilookAzimuth", 1.0));
    record.rangeLooks = int32_t(meta.number("processinfo.MultilookRange", 1.0));
    record.azimuthSpacing = meta.number("platform.satVelocity", 0.0) / prf;
    record.imageDataType = "COMPLEX";

    record.radarWavelength = meta.number("sensor.lamda");
    record.radarCenterFrequency =
        meta.number("sensor.RadarCenterFrequency", kSpeedOfLight / record.radarWavelength * 1e-9) * 1e9; // GHz
    record.adcSamplingRate = samplingRate;
    const double rangeBandwidth = meta.number("processinfo.RangeLookBandWidth", 0.0);
    record.chirpBandWidth = rangeBandwidth < 1e4 ? rangeBandwidth * 1e6 : rangeBandwidth; // MHz when small
    record.pulseRepetitionFrequency = prf;
    record.azimuthProcBandwidth = meta.number("processinfo.TotalProcessedAzimuthBandWidth", 0.0);
    for (int i = 0; i < 4; ++i)
        record.dopplerCentroidCoefficients[size_t(i)] =
            meta.number("processinfo.DopplerCentroidCoefficients.d" + std::to_string(i), 0.0);
    const std::string calibrationKey = "processinfo.CalibrationConst." + channel.toStdString();
    const QString calibration = meta.optionalText(calibrationKey).value_or(QString());
    if (!calibration.isEmpty() && calibration != "NULL")
        record.calibrationGain = meta.toNumber(calibrationKey, calibration);

    fillStateVectors(meta, day, record);
    return record;
}

} // namespace sarimport
