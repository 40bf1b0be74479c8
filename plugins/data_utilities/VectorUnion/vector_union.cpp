// Plug-in "VectorUnion": overlay union of two polygon layers (the second brought into the first's reference
// system) through OGR's layer union, with the attributes of both or those listed in Fields.
#include "gdal_progress.h"
#include "generic_params.h"
#include "plugin_base.h"
#include "vector_layers.h"

#include <ogr_spatialref.h>

#include <QFileInfo>
#include <QSet>

namespace
{

bool holdsPolygons(OGRLayer* layer)
{
    const OGRwkbGeometryType type = wkbFlatten(layer->GetGeomType());
    return type == wkbPolygon || type == wkbMultiPolygon || type == wkbUnknown;
}

// A name not yet taken: "<name>_2" (shortened to fit a shapefile's ten characters), then "_3", ...
QString freeName(const QString& name, const QSet<QString>& taken)
{
    for (int n = 2;; ++n)
    {
        const QString tail = QStringLiteral("_%1").arg(n);
        const QString candidate = name.left(10 - tail.size()) + tail;
        if (!taken.contains(candidate.toLower()))
            return candidate;
    }
}

class VectorUnion : public algokit::PluginBase
{
public:
    VectorUnion() : PluginBase(QStringLiteral("VectorUnion")) {}

protected:
    bool run() override
    {
        algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString path1 = args.text(QStringLiteral("InputFile1")).required();
        datautil::VectorInput first = datautil::openVectorItem(args, QStringLiteral("InputFile1"), path1);
        const QString path2 = args.text(QStringLiteral("InputFile2")).required();
        datautil::VectorInput second = datautil::openVectorItem(args, QStringLiteral("InputFile2"), path2);
        if (!holdsPolygons(first.layer))
            args.refuse(QStringLiteral("InputFile1"), path1, QStringLiteral("holds no polygons"));
        if (!holdsPolygons(second.layer))
            args.refuse(QStringLiteral("InputFile2"), path2, QStringLiteral("holds no polygons"));
        const QString output = args.text(QStringLiteral("OutputFile")).writableOutput();
        const QString driver = datautil::vectorDriverForPath(output);
        if (driver.isEmpty())
            args.refuse(QStringLiteral("OutputFile"), output,
                        QStringLiteral("must end in .shp, .geojson, .json, .gpkg or .kml"));
        if (!datautil::vectorPathFits(output))
            args.refuse(QStringLiteral("OutputFile"), output, QStringLiteral("is too long for a vector file"));
        for (const QString& input : {path1, path2})
            if (QFileInfo(output).absoluteFilePath() == QFileInfo(input).absoluteFilePath())
                args.refuse(QStringLiteral("OutputFile"), output, QStringLiteral("names an input file"));
        QString fieldText = args.text(QStringLiteral("Fields")).value();
        const QStringList fields =
            fieldText.replace(QLatin1Char(','), QLatin1Char('|')).split(QLatin1Char('|'), Qt::SkipEmptyParts);
        for (const QString& name : fields)
            if (first.layer->GetLayerDefn()->GetFieldIndex(name.trimmed().toUtf8().constData()) < 0 &&
                second.layer->GetLayerDefn()->GetFieldIndex(name.trimmed().toUtf8().constData()) < 0)
                args.refuse(QStringLiteral("Fields"), args.text(QStringLiteral("Fields")).value(),
                            QStringLiteral("names the field %1, which neither layer has").arg(name.trimmed()));
        QStringList wanted;
        for (const QString& name : fields)
            wanted << name.trimmed();

        const OGRSpatialReference* srs = first.layer->GetSpatialRef();
        std::unique_ptr<OGRCoordinateTransformation> transform;
        const OGRSpatialReference* srs2 = second.layer->GetSpatialRef();
        if (srs && srs2 && !srs->IsSame(srs2))
        {
            transform.reset(OGRCreateCoordinateTransformation(srs2, srs));
            if (!transform)
                args.refuse(QStringLiteral("InputFile2"), path2,
                            QStringLiteral("cannot be brought into the reference system of InputFile1"));
        }

        // Both layers in memory, with only the wanted fields and no clashing names, so that OGR's union builds
        // the result's fields from them as they are.
        GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("Memory");
        GDALDatasetUniquePtr scratch(memory->Create("", 0, 0, 0, GDT_Unknown, nullptr));
        QSet<QString> taken;
        OGRLayer* input = copyLayer(first.layer, scratch.get(), "input", srs, nullptr, wanted, &taken);
        progress(5.0);
        OGRLayer* method = copyLayer(second.layer, scratch.get(), "method", srs, transform.get(), wanted, &taken);
        progress(10.0);

        m_output = output;
        GDALDatasetUniquePtr out = datautil::createVectorOutput(output);
        OGRLayer* result =
            out->CreateLayer(QFileInfo(output).completeBaseName().toUtf8().constData(),
                             const_cast<OGRSpatialReference*>(srs), datautil::polygonLayerType(driver), nullptr);
        if (!result)
            throw algokit::AlgoError(
                QStringLiteral("Cannot create %1: %2").arg(output, QString::fromUtf8(CPLGetLastErrorMsg())));
        char** options = nullptr;
        if (datautil::polygonLayerType(driver) == wkbMultiPolygon)
            options = CSLSetNameValue(options, "PROMOTE_TO_MULTI", "YES");
        algokit::GdalProgress bridge([this](double percent) { progress(percent); }, 10.0, 99.0);
        CPLErrorReset();
        const OGRErr err = input->Union(method, result, options, algokit::GdalProgress::callback, &bridge);
        CSLDestroy(options);
        bridge.rethrowIfCancelled();
        if (err != OGRERR_NONE)
            throw algokit::AlgoError(
                QStringLiteral("The union failed: %1").arg(QString::fromUtf8(CPLGetLastErrorMsg())));
        out.reset();
        progress(100.0);
        return true;
    }

    void discardOutputs() override { datautil::removeVectorFiles(m_output); }

private:
    OGRLayer* copyLayer(OGRLayer* from, GDALDataset* into, const char* name, const OGRSpatialReference* srs,
                        OGRCoordinateTransformation* transform, const QStringList& wanted, QSet<QString>* taken)
    {
        OGRLayer* layer = into->CreateLayer(name, const_cast<OGRSpatialReference*>(srs), wkbUnknown, nullptr);
        OGRFeatureDefn* definition = from->GetLayerDefn();
        std::vector<int> sources;
        for (int i = 0; i < definition->GetFieldCount(); ++i)
        {
            OGRFieldDefn field(definition->GetFieldDefn(i));
            const QString fieldName = QString::fromUtf8(field.GetNameRef());
            if (!wanted.isEmpty() && !wanted.contains(fieldName, Qt::CaseInsensitive))
                continue;
            const QString own = taken->contains(fieldName.toLower()) ? freeName(fieldName, *taken) : fieldName;
            taken->insert(own.toLower());
            field.SetName(own.toUtf8().constData());
            layer->CreateField(&field);
            sources.push_back(i);
        }
        from->ResetReading();
        for (auto& feature : *from)
        {
            OGRFeature copy(layer->GetLayerDefn());
            for (size_t i = 0; i < sources.size(); ++i)
                copy.SetField(int(i), feature->GetRawFieldRef(sources[i]));
            if (OGRGeometry* geometry = feature->StealGeometry())
            {
                if (transform && geometry->transform(transform) != OGRERR_NONE)
                {
                    delete geometry;
                    throw algokit::AlgoError(QStringLiteral("A feature of the second layer cannot be reprojected"));
                }
                copy.SetGeometryDirectly(geometry);
            }
            if (layer->CreateFeature(&copy) != OGRERR_NONE)
                throw algokit::AlgoError(
                    QStringLiteral("Copying a layer failed: %1").arg(QString::fromUtf8(CPLGetLastErrorMsg())));
        }
        return layer;
    }

    QString m_output;
};

} // namespace

ALGO_PLUGIN_FACTORY(VectorUnion)
