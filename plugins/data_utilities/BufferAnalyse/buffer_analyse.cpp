// Plug-in "BufferAnalyse": every feature of a layer buffered by a distance in layer units (negative shrinks
// polygons), attributes kept, written in the format of the output's suffix.
#include "gdal_progress.h"
#include "generic_params.h"
#include "plugin_base.h"
#include "vector_layers.h"

#include <QFileInfo>
#include <cmath>

namespace
{

class BufferAnalyse : public algokit::PluginBase
{
public:
    BufferAnalyse() : PluginBase(QStringLiteral("BufferAnalyse")) {}

protected:
    bool run() override
    {
        algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString inputPath = args.text(QStringLiteral("InputFile")).required();
        datautil::VectorInput input = datautil::openVectorItem(args, QStringLiteral("InputFile"), inputPath);
        const QString output = args.text(QStringLiteral("OutputFile")).writableOutput();
        const QString driver = datautil::vectorDriverForPath(output);
        if (driver.isEmpty())
            args.refuse(QStringLiteral("OutputFile"), output,
                        QStringLiteral("must end in .shp, .geojson, .json, .gpkg or .kml"));
        if (!datautil::vectorPathFits(output))
            args.refuse(QStringLiteral("OutputFile"), output, QStringLiteral("is too long for a vector file"));
        if (QFileInfo(output).absoluteFilePath() == QFileInfo(inputPath).absoluteFilePath())
            args.refuse(QStringLiteral("OutputFile"), output, QStringLiteral("names an input file"));
        const double distance = args.real(QStringLiteral("Distance"));
        if (!std::isfinite(distance))
            args.refuse(QStringLiteral("Distance"), QString::number(distance),
                        QStringLiteral("is not a finite number"));

        m_output = output;
        GDALDatasetUniquePtr out = datautil::createVectorOutput(output);
        OGRLayer* layer = out->CreateLayer(QFileInfo(output).completeBaseName().toUtf8().constData(),
                                           input.layer->GetSpatialRef(), datautil::polygonLayerType(driver), nullptr);
        if (!layer)
            throw algokit::AlgoError(
                QStringLiteral("Cannot create %1: %2").arg(output, QString::fromUtf8(CPLGetLastErrorMsg())));
        const std::vector<int> fields = datautil::copyFields(input.layer->GetLayerDefn(), layer);
        const bool multi = datautil::polygonLayerType(driver) == wkbMultiPolygon;

        const GIntBig total = std::max<GIntBig>(1, input.layer->GetFeatureCount());
        GIntBig done = 0;
        const bool inTransaction = layer->StartTransaction() == OGRERR_NONE; // faster where the format has them
        input.layer->ResetReading();
        for (auto& feature : *input.layer)
        {
            ++done;
            const OGRGeometry* geometry = feature->GetGeometryRef();
            if (!geometry)
                continue;
            std::unique_ptr<OGRGeometry> buffered(geometry->Buffer(distance));
            if (!buffered || buffered->IsEmpty())
                continue; // shrunk away: nothing of it remains
            if (multi)
                buffered.reset(OGRGeometryFactory::forceToMultiPolygon(buffered.release()));
            OGRFeature result(layer->GetLayerDefn());
            for (size_t i = 0; i < fields.size(); ++i)
                result.SetField(int(i), feature->GetRawFieldRef(fields[i]));
            result.SetGeometryDirectly(buffered.release());
            if (layer->CreateFeature(&result) != OGRERR_NONE)
                throw algokit::AlgoError(
                    QStringLiteral("Writing %1 failed: %2").arg(output, QString::fromUtf8(CPLGetLastErrorMsg())));
            if (done % 256 == 0)
                progress(95.0 * double(done) / double(total));
        }
        if (inTransaction && layer->CommitTransaction() != OGRERR_NONE)
            throw algokit::AlgoError(
                QStringLiteral("Writing %1 failed: %2").arg(output, QString::fromUtf8(CPLGetLastErrorMsg())));
        out.reset();
        progress(100.0);
        return true;
    }

    void discardOutputs() override { datautil::removeVectorFiles(m_output); }

private:
    QString m_output;
};

} // namespace

ALGO_PLUGIN_FACTORY(BufferAnalyse)
