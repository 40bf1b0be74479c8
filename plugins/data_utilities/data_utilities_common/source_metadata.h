// The identity of a source product read from its metadata XML, whatever its schema: the first element (in document
// order) whose name is one of the known spellings of each field.
#pragma once

#include <QByteArray>
#include <QString>
#include <utility>
#include <vector>

namespace datautil
{

struct SourceMetadata
{
    bool parsed = false;
    QString error;    // why the text is not XML (with its line), when !parsed
    QString rootName; // the root element's name
    // Field name -> value, in the order of kSourceFields, only those found (text trimmed, never empty).
    std::vector<std::pair<QString, QString>> fields;
    QString value(const QString& field) const;
};

// The fields looked for: Satellite, Sensor, AcquisitionTime, CloudCover, ProductId, ProductLevel, SunElevation,
// SunAzimuth, OrbitNumber.
const std::vector<QString>& sourceFieldNames();

// Parses the XML text. Element names are compared without case and without namespace prefix.
SourceMetadata readSourceMetadata(const QByteArray& xml);

} // namespace datautil
