// The geodetic transformation models of the application's data folder and their lookup by datum.
#include "transform_model.h"

#include "sys_utility.h"

#include <ogr_spatialref.h>

#include <QDomDocument>
#include <QFile>

namespace algofactory
{

namespace
{

bool readSrs(const QString& text, OGRSpatialReference* srs)
{
    if (text.trimmed().isEmpty())
        return false;
    CPLPushErrorHandler(CPLQuietErrorHandler);
    const OGRErr error = srs->SetFromUserInput(text.toUtf8().constData());
    CPLPopErrorHandler();
    return error == OGRERR_NONE;
}

double childNumber(const QDomElement& element, const char* name)
{
    return element.firstChildElement(QLatin1String(name)).text().trimmed().toDouble();
}

} // namespace

QString transformModelFile()
{
    return SysUtility::ApplicationDirPath() + QStringLiteral("/../data/Geograpic transformation model/geotranforms.xml");
}

QString datumKey(const OGRSpatialReference& srs)
{
    const char* datum = srs.GetAttrValue("DATUM");
    if (!datum)
        return QString();
    QString key;
    for (QChar c : QString::fromUtf8(datum).toUpper())
        if (c.isLetterOrNumber())
            key += c;
    // The names EPSG, ESRI and older WKT give the four datums users of the platform meet.
    struct Alias
    {
        const char* fragment;
        const char* key;
    };
    static const Alias aliases[] = {
        {"WGS1984", "WGS84"}, {"WGS84", "WGS84"}, {"WORLDGEODETICSYSTEM1984", "WGS84"},
        {"CHINA2000", "CGCS2000"}, {"CGCS2000", "CGCS2000"}, {"CHINAGEODETICCOORDINATESYSTEM2000", "CGCS2000"},
        {"BEIJING1954", "Beijing1954"}, {"XIAN1980", "Xian1980"},
    };
    for (const Alias& alias : aliases)
        if (key.contains(QLatin1String(alias.fragment)))
            return QString::fromLatin1(alias.key);
    return key;
}

bool findTransformModel(const QString& modelFile, const QString& sourceSrs, const QString& targetSrs,
                        TransformModel* model, QString* why)
{
    auto refuse = [why](const QString& reason) {
        if (why)
            *why = reason;
        return false;
    };
    OGRSpatialReference source, target;
    if (!readSrs(sourceSrs, &source))
        return refuse(QStringLiteral("the input has no readable reference system"));
    if (!readSrs(targetSrs, &target))
        return refuse(QStringLiteral("the target is not a reference system: %1").arg(targetSrs));
    const QString from = datumKey(source);
    const QString to = datumKey(target);
    if (from.isEmpty() || to.isEmpty())
        return refuse(QStringLiteral("a reference system without a datum"));

    QFile file(modelFile);
    QDomDocument document;
    if (!file.open(QIODevice::ReadOnly) || !document.setContent(&file))
        return refuse(QStringLiteral("cannot read the transformation models %1").arg(modelFile));

    QDomElement found;
    QDomNodeList entries = document.elementsByTagName(QStringLiteral("GeoTransformsModel"));
    for (int i = 0; i < entries.count(); ++i)
    {
        const QDomElement entry = entries.at(i).toElement();
        const QString srccs = entry.firstChildElement(QStringLiteral("srccs")).text().trimmed();
        const QString destcs = entry.firstChildElement(QStringLiteral("destcs")).text().trimmed();
        if (srccs == from && destcs == to)
        {
            found = entry;
            break;
        }
        if (from == to && srccs == QLatin1String("SameDatum") && destcs == QLatin1String("SameDatum") && found.isNull())
            found = entry;
    }
    if (found.isNull())
        return refuse(QStringLiteral("no transformation model from %1 to %2").arg(from, to));
    model->name = found.firstChildElement(QStringLiteral("modelname")).text().trimmed();
    model->source = from;
    model->target = to;
    model->xShift = childNumber(found, "dx");
    model->yShift = childNumber(found, "dy");
    model->zShift = childNumber(found, "dz");
    model->xRotation = childNumber(found, "rx");
    model->yRotation = childNumber(found, "ry");
    model->zRotation = childNumber(found, "rz");
    return true;
}

} // namespace algofactory
