// Plug-in "VectorSmooth": Douglas-Peucker simplification at Tolerance, then Iterations of Chaikin corner cutting,
// with every boundary shared by neighbouring polygons smoothed once so that it stays shared.
#include "arc_smoothing.h"
#include "generic_params.h"
#include "plugin_base.h"
#include "vector_layers.h"

#include <QFileInfo>
#include <cmath>

namespace
{

using datautil::Point;
using datautil::Polyline;

// Where each part of each feature sits in the flat list of parts, to put the smoothed parts back.
struct PartSlot
{
    size_t feature = 0;
    int polygon = -1; // -1 for a line
    int ring = 0;     // 0 exterior, then interiors; for lines the line index
};

Polyline pointsOf(const OGRSimpleCurve* curve)
{
    Polyline points(size_t(curve->getNumPoints()));
    for (int i = 0; i < curve->getNumPoints(); ++i)
        points[size_t(i)] = {curve->getX(i), curve->getY(i)};
    return points;
}

template <typename Curve> void setPoints(Curve* curve, const Polyline& points)
{
    curve->setNumPoints(int(points.size()), FALSE);
    for (size_t i = 0; i < points.size(); ++i)
        curve->setPoint(int(i), points[i].x, points[i].y);
}

class VectorSmooth : public algokit::PluginBase
{
public:
    VectorSmooth() : PluginBase(QStringLiteral("VectorSmooth")) {}

protected:
    bool run() override
    {
        algokit::GenericParams args(params<GenericAlgoRecord>(), GetName());
        const QString inputPath = args.text(QStringLiteral("InputFile")).required();
        datautil::VectorInput input = datautil::openVectorItem(args, QStringLiteral("InputFile"), inputPath);
        const double tolerance = args.real(QStringLiteral("Tolerance")).orDefault(0.0).atLeast(0.0);
        if (!std::isfinite(tolerance))
            args.refuse(QStringLiteral("Tolerance"), QString::number(tolerance),
                        QStringLiteral("is not a finite number"));
        const double iterationsValue = args.real(QStringLiteral("Iterations")).orDefault(2.0).range(0.0, 8.0);
        if (iterationsValue != std::floor(iterationsValue))
            args.refuse(QStringLiteral("Iterations"), QString::number(iterationsValue),
                        QStringLiteral("is not a whole number"));
        const int iterations = int(iterationsValue);
        const QString output = args.text(QStringLiteral("OutputFile")).writableOutput();
        const QString driver = datautil::vectorDriverForPath(output);
        if (driver.isEmpty())
            args.refuse(QStringLiteral("OutputFile"), output,
                        QStringLiteral("must end in .shp, .geojson, .json, .gpkg or .kml"));
        if (!datautil::vectorPathFits(output))
            args.refuse(QStringLiteral("OutputFile"), output, QStringLiteral("is too long for a vector file"));
        if (QFileInfo(output).absoluteFilePath() == QFileInfo(inputPath).absoluteFilePath())
            args.refuse(QStringLiteral("OutputFile"), output, QStringLiteral("names an input file"));

        // Every ring and line of the layer, in one list, so that shared arcs are found across features.
        std::vector<std::unique_ptr<OGRFeature>> features;
        std::vector<Polyline> parts;
        std::vector<bool> closed;
        std::vector<PartSlot> places;
        for (auto& feature : *input.layer)
        {
            const size_t index = features.size();
            features.emplace_back(feature.release());
            OGRGeometry* geometry = features.back()->GetGeometryRef();
            if (!geometry)
                continue;
            const OGRwkbGeometryType type = wkbFlatten(geometry->getGeometryType());
            std::vector<OGRPolygon*> polygons;
            std::vector<OGRLineString*> lines;
            if (type == wkbPolygon)
                polygons.push_back(geometry->toPolygon());
            else if (type == wkbMultiPolygon)
                for (OGRPolygon* polygon : *geometry->toMultiPolygon())
                    polygons.push_back(polygon);
            else if (type == wkbLineString)
                lines.push_back(geometry->toLineString());
            else if (type == wkbMultiLineString)
                for (OGRLineString* line : *geometry->toMultiLineString())
                    lines.push_back(line);
            for (size_t p = 0; p < polygons.size(); ++p)
                for (int r = 0; r <= polygons[p]->getNumInteriorRings(); ++r)
                {
                    const OGRLinearRing* ring =
                        r == 0 ? polygons[p]->getExteriorRing() : polygons[p]->getInteriorRing(r - 1);
                    if (!ring)
                        continue;
                    parts.push_back(pointsOf(ring));
                    closed.push_back(true);
                    places.push_back({index, int(p), r});
                }
            for (size_t l = 0; l < lines.size(); ++l)
            {
                parts.push_back(pointsOf(lines[l]));
                closed.push_back(false);
                places.push_back({index, -1, int(l)});
            }
        }
        progress(20.0);
        const std::vector<Polyline> smooth = datautil::smoothSharedArcs(parts, closed, tolerance, iterations);
        progress(60.0);

        // Back into the geometries they came from.
        for (size_t i = 0; i < places.size(); ++i)
        {
            OGRGeometry* geometry = features[places[i].feature]->GetGeometryRef();
            const OGRwkbGeometryType type = wkbFlatten(geometry->getGeometryType());
            if (places[i].polygon >= 0)
            {
                OGRPolygon* polygon = type == wkbPolygon
                                          ? geometry->toPolygon()
                                          : geometry->toMultiPolygon()->getGeometryRef(places[i].polygon);
                OGRLinearRing* ring =
                    places[i].ring == 0 ? polygon->getExteriorRing() : polygon->getInteriorRing(places[i].ring - 1);
                setPoints(ring, smooth[i]);
            }
            else
            {
                OGRLineString* line = type == wkbLineString
                                          ? geometry->toLineString()
                                          : geometry->toMultiLineString()->getGeometryRef(places[i].ring);
                setPoints(line, smooth[i]);
            }
        }

        m_output = output;
        GDALDatasetUniquePtr out = datautil::createVectorOutput(output);
        OGRLayer* layer = out->CreateLayer(
            QFileInfo(output).completeBaseName().toUtf8().constData(), input.layer->GetSpatialRef(),
            // Shapefiles mix single and multi parts in one type; elsewhere say nothing.
            driver == QLatin1String("ESRI Shapefile") ? input.layer->GetGeomType() : wkbUnknown, nullptr);
        if (!layer)
            throw algokit::AlgoError(
                QStringLiteral("Cannot create %1: %2").arg(output, QString::fromUtf8(CPLGetLastErrorMsg())));
        const std::vector<int> fields = datautil::copyFields(input.layer->GetLayerDefn(), layer);
        const bool inTransaction = layer->StartTransaction() == OGRERR_NONE;
        for (size_t f = 0; f < features.size(); ++f)
        {
            OGRFeature result(layer->GetLayerDefn());
            for (size_t i = 0; i < fields.size(); ++i)
                result.SetField(int(i), features[f]->GetRawFieldRef(fields[i]));
            result.SetGeometry(features[f]->GetGeometryRef());
            if (layer->CreateFeature(&result) != OGRERR_NONE)
                throw algokit::AlgoError(
                    QStringLiteral("Writing %1 failed: %2").arg(output, QString::fromUtf8(CPLGetLastErrorMsg())));
            if (f % 1024 == 0)
                progress(60.0 + 39.0 * double(f) / double(features.size()));
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

ALGO_PLUGIN_FACTORY(VectorSmooth)
