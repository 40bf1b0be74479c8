// The identity of a source product read from its metadata XML.
#include "source_metadata.h"

#include <QXmlStreamReader>
#include <map>

namespace datautil
{

namespace
{

struct FieldSpellings
{
    QString field;
    std::vector<const char*> names; // lower case
};

// Spellings of the same facts in the metadata of the usual optical and radar products.
const std::vector<FieldSpellings>& spellings()
{
    static const std::vector<FieldSpellings> table = {
        {"Satellite",
         {"satelliteid", "satellite", "satellitename", "spacecraftid", "spacecraft_id", "spacecraft_name", "platform",
          "platformname", "mission", "missionid", "spacecraft", "familyname"}},
        {"Sensor",
         {"sensorid", "sensor", "sensorname", "sensor_id", "instrument", "instrumentname", "instrumentid",
          "imagingmode"}},
        {"AcquisitionTime",
         {"acquisitiontime", "imagingstarttime", "starttime", "scenestarttime", "imagingtime", "receivetime",
          "date_acquired", "sensing_time", "sensingtime", "product_start_time", "datatakesensingstart",
          "acquisitionstarttime", "firstlinetime", "productfirstlineutc"}},
        {"CloudCover",
         {"cloudpercent", "cloudcover", "cloud_cover", "cloud_coverage_assessment", "cloudcoverpercentage",
          "cloudpercentage", "cloudcoverage"}},
        {"ProductId",
         {"productid", "product_id", "landsat_product_id", "product_uri", "productidentifier", "productname", "sceneid",
          "scene_id", "landsat_scene_id"}},
        {"ProductLevel", {"productlevel", "processing_level", "processinglevel", "level", "data_type", "producttype"}},
        {"SunElevation", {"sunelevation", "sun_elevation", "solarelevation"}},
        {"SunAzimuth", {"sunazimuth", "sun_azimuth", "solarazimuth"}},
        {"OrbitNumber", {"orbitid", "orbitnumber", "orbit_number", "absoluteorbitnumber", "sensing_orbit_number"}},
    };
    return table;
}

} // namespace

const std::vector<QString>& sourceFieldNames()
{
    static const std::vector<QString> names = [] {
        std::vector<QString> all;
        for (const FieldSpellings& entry : spellings())
            all.push_back(entry.field);
        return all;
    }();
    return names;
}

QString SourceMetadata::value(const QString& field) const
{
    for (const auto& item : fields)
        if (item.first == field)
            return item.second;
    return QString();
}

SourceMetadata readSourceMetadata(const QByteArray& xml)
{
    // Spelling -> field index, for one lookup per element.
    static const std::map<QString, size_t> lookup = [] {
        std::map<QString, size_t> map;
        for (size_t i = 0; i < spellings().size(); ++i)
            for (const char* name : spellings()[i].names)
                map.emplace(QString::fromLatin1(name), i);
        return map;
    }();

    SourceMetadata result;
    std::vector<QString> found(spellings().size());
    QXmlStreamReader reader(xml);
    QString pending; // the field of the element being read, when it is one
    size_t pendingIndex = 0;
    QString text;
    int depth = 0;
    while (!reader.atEnd())
    {
        switch (reader.readNext())
        {
        case QXmlStreamReader::StartElement: {
            if (depth++ == 0)
                result.rootName = reader.name().toString();
            const auto it = lookup.find(reader.name().toString().toLower());
            pending.clear();
            text.clear();
            if (it != lookup.end() && found[it->second].isEmpty())
            {
                pending = spellings()[it->second].field;
                pendingIndex = it->second;
            }
            break;
        }
        case QXmlStreamReader::Characters:
            if (!pending.isEmpty() && text.size() < 4096)
                text += reader.text();
            break;
        case QXmlStreamReader::EndElement:
            --depth;
            if (!pending.isEmpty() && !text.trimmed().isEmpty())
                found[pendingIndex] = text.trimmed();
            pending.clear();
            break;
        default:
            break;
        }
    }
    if (reader.hasError() || result.rootName.isEmpty())
    {
        result.error = reader.hasError()
                           ? QStringLiteral("line %1: %2").arg(reader.lineNumber()).arg(reader.errorString())
                           : QStringLiteral("no root element");
        result.fields.clear();
        return result;
    }
    result.parsed = true;
    for (size_t i = 0; i < found.size(); ++i)
        if (!found[i].isEmpty())
            result.fields.emplace_back(spellings()[i].field, found[i]);
    return result;
}

} // namespace datautil
