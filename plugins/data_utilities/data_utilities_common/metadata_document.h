// Product metadata XML of the metadata tools: the elements a raster gives (size, bands, type, reference system,
// corners in longitude and latitude, resolution, nodata, per-band statistics), the source product's identity, the
// lineage of a synthesis, extra elements from a JSON object, and element paths set in an existing document.
#pragma once

#include "generic_params.h"
#include "source_metadata.h"

#include <gdal_priv.h>

#include <QDomDocument>
#include <QJsonObject>
#include <QString>
#include <functional>

namespace datautil
{

constexpr const char* kMetadataRoot = "ProductMetaData";
constexpr const char* kImageInfo = "ImageInfo";

// Reads the metadata XML named by a path argument; refuses a missing file and a text that is not XML.
SourceMetadata readSourceFile(const algokit::GenericParams& args, const QString& key, const QString& path);

// The JSON object of extra elements in a text argument (empty text: none); refuses a text that is not an object.
QJsonObject jsonObjectArgument(const algokit::GenericParams& args, const QString& key);

// The <ImageInfo> element of a raster; reads every band once for its statistics (progress in percent).
QDomElement imageInfoElement(QDomDocument& document, GDALDataset* raster, const QString& path,
                             const std::function<void(double)>& progress);

// <tag> holding one child per field found in the source's metadata, and <MetadataFile>.
QDomElement sourceElement(QDomDocument& document, const QString& tag, const SourceMetadata& source,
                          const QString& path);

// Appends a child element with text.
QDomElement appendText(QDomDocument& document, QDomElement& parent, const QString& tag, const QString& text);

// Whether a text can be an element name (letters, digits, "_", "-", "." and not starting with a digit, "-" or ".").
bool isElementName(const QString& name);

// Appends one element per key of a JSON object (objects nest, arrays repeat the element, other values become
// text). Returns the first key that cannot be an element name, or empty.
QString appendJson(QDomDocument& document, QDomElement& parent, const QJsonObject& object);

// The element at a "/"-separated path below the root (a leading root name is allowed), created where absent.
QDomElement elementAt(QDomDocument& document, const QStringList& path);

// The current time in UTC, ISO 8601 with "Z".
QString utcNow();

// Writes the document (UTF-8, two-space indentation) through a temporary file renamed into place, so that a failure
// leaves any earlier file as it was. Throws AlgoError.
void saveDocument(const QDomDocument& document, const QString& path);

} // namespace datautil
