// The geodetic transformation models of the application's data folder and their lookup by datum.
#pragma once

#include <QString>

class OGRSpatialReference;

namespace algofactory
{

struct TransformModel
{
    QString name;
    QString source;   // datum key the parameters transform from
    QString target;   // datum key they transform to
    double xShift = 0.0, xRotation = 0.0;
    double yShift = 0.0, yRotation = 0.0;
    double zShift = 0.0, zRotation = 0.0;
};

// The model file: application directory + "/../data/Geograpic transformation model/geotranforms.xml".
QString transformModelFile();

// The datum of a reference system as the model file names it ("WGS84", "CGCS2000", "Beijing1954",
// "Xian1980"), or the datum's own name in upper case without punctuation; empty without a datum.
QString datumKey(const OGRSpatialReference& srs);

// Finds the model from the datum of sourceSrs to that of targetSrs (texts GDAL reads: WKT, EPSG:n, PROJ).
// Two references on one datum match the file's "SameDatum" entry unless the datum has an entry of its own.
// False when a text is not a reference system, a datum is missing, the file is unreadable or has no entry.
bool findTransformModel(const QString& modelFile, const QString& sourceSrs, const QString& targetSrs,
                        TransformModel* model, QString* why = nullptr);

} // namespace algofactory
