// Plug-in "GetImgEnv": the envelope of one image or product - its valid-data footprint and its bounding box,
// in the image's own reference system and in WGS 84, as WKT and GeoJSON [OUTPUT] lines.
#include "generic_params.h"
#include "image_index.h"
#include "plugin_base.h"

#include <cpl_conv.h>

namespace
{

QString toWkt(const OGRGeometry& geometry)
{
    return QString::fromStdString(geometry.exportToWkt());
}

QString toGeoJson(const OGRGeometry& geometry)
{
    char* json = geometry.exportToJson();
    const QString text = QString::fromUtf8(json ? json : "");
    CPLFree(json);
    return text;
}

catalogue::GeometryPtr boxOf(const OGRGeometry& geometry)
{
    OGREnvelope e;
    geometry.getEnvelope(&e);
    auto ring = std::make_unique<OGRLinearRing>();
    ring->addPoint(e.MinX, e.MinY);
    ring->addPoint(e.MaxX, e.MinY);
    ring->addPoint(e.MaxX, e.MaxY);
    ring->addPoint(e.MinX, e.MaxY);
    ring->addPoint(e.MinX, e.MinY);
    auto polygon = std::make_unique<OGRPolygon>();
    polygon->addRingDirectly(ring.release());
    return polygon;
}

QString boxText(const OGRGeometry& geometry)
{
    OGREnvelope e;
    geometry.getEnvelope(&e);
    return QStringLiteral("%1|%2|%3|%4")
        .arg(e.MinX, 0, 'g', 15)
        .arg(e.MinY, 0, 'g', 15)
        .arg(e.MaxX, 0, 'g', 15)
        .arg(e.MaxY, 0, 'g', 15);
}

class GetImgEnv : public algokit::PluginBase
{
public:
    GetImgEnv() : PluginBase(QStringLiteral("GetImgEnv")) {}

protected:
    bool run() override
    {
        const auto& record = params<GenericAlgoRecord>();
        algokit::GenericParams args(record, GetName());
        const QString input = args.text("InputFile").existingPath();
        catalogue::FootprintOptions options;
        options.maskSize = args.integer("MaskSize").orDefault(256).range(16, 4096);

        const catalogue::CatalogueItem item = catalogue::itemForPath(input);
        progress(10.0);
        const catalogue::IndexEntry entry = catalogue::describeItem(item, options);
        if (!entry.footprint)
            args.refuse("InputFile", input, entry.error);
        progress(90.0);

        // Without a reference system of its own (GCPs, RPC), the image's envelope is the WGS 84 one.
        const OGRGeometry& native = entry.native ? *entry.native : *entry.footprint;
        const QString nativeSrs = entry.native ? entry.srs : QStringLiteral("EPSG:4326");
        const catalogue::GeometryPtr box = boxOf(*entry.footprint);
        algokit::GenericOutputs outputs;
        outputs.add("Footprint_WKT", toWkt(*entry.footprint))
            .add("Footprint_GeoJSON", toGeoJson(*entry.footprint))
            .add("Envelope", boxText(native))
            .add("Envelope_SRS", nativeSrs)
            .add("Envelope_WKT", toWkt(*boxOf(native)))
            .add("EnvelopeWGS84", boxText(*entry.footprint))
            .add("EnvelopeWGS84_WKT", toWkt(*box))
            .add("EnvelopeWGS84_GeoJSON", toGeoJson(*box))
            .add("Satellite", entry.info.satellite)
            .add("Sensor", entry.info.sensor)
            .add("AcquisitionTime", entry.info.acquisition);
        progress(100.0);
        setResult(outputs.result());
        return true;
    }
};

} // namespace

ALGO_PLUGIN_FACTORY(GetImgEnv)
