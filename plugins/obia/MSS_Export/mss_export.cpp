// Segments to polygons with per-segment features: the label raster polygonised, each polygon given the count,
// area, perimeter, compactness, shape index and per-band statistics of its segment over the segmented image.
#include "class_map.h"
#include "classification_io.h"
#include "date_pair.h"
#include "generic_params.h"
#include "records/generic_record.h"
#include "segment_features.h"

#include "gdal_progress.h"

#include <gdal_alg.h>
#include <ogrsf_frmts.h>

#include <QFileInfo>
#include <cmath>

using namespace algokit;

namespace
{

const QStringList kFeatures = {"count", "area", "perimeter", "compactness", "shape_index", "mean", "std", "min", "max", "brightness"};

class MssExport : public PluginBase
{
public:
    MssExport() : PluginBase(QStringLiteral("MSS_Export")) {}

protected:
    bool run() override;
};

QString vectorDriverFor(const GenericParams& args, const QString& path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix == QLatin1String("shp"))
        return QStringLiteral("ESRI Shapefile");
    if (suffix == QLatin1String("gpkg"))
        return QStringLiteral("GPKG");
    if (suffix == QLatin1String("geojson") || suffix == QLatin1String("json"))
        return QStringLiteral("GeoJSON");
    args.refuse(QStringLiteral("OutputFile"), path, QStringLiteral("must end in .shp, .gpkg, .geojson or .json"));
}

bool MssExport::run()
{
    const auto& record = params<GenericAlgoRecord>();
    GenericParams args(record, GetName());
    const QString labelPath = args.text("InputFile").existingFile();
    DatasetPtr labels = args.text("InputFile").openRaster();
    const double tolerance = args.real("Scale").orDefault(0.0).atLeast(0.0);
    const double minArea = args.real("Threshold").orDefault(0.0).atLeast(0.0);
    const TextParam fieldsText = args.text("Fields");
    QStringList wanted;
    for (const QString& item : fieldsText.list())
    {
        const int i = kFeatures.indexOf(item.toLower());
        if (i < 0)
            args.refuse(QStringLiteral("Fields"), fieldsText.value(), QStringLiteral("names %1, not one of %2").arg(item, kFeatures.join(QStringLiteral(", "))));
        wanted << kFeatures[i];
    }
    if (wanted.isEmpty())
        wanted = kFeatures;
    GDALRasterBand* labelBand = labels->GetRasterBand(1);
    const GDALDataType labelType = labelBand->GetRasterDataType();
    if (labels->GetRasterCount() != 1 || GDALDataTypeIsFloating(labelType) || GDALDataTypeIsComplex(labelType))
        args.refuse(QStringLiteral("InputFile"), labelPath, QStringLiteral("is not a segment label raster (one integer band)"));
    const char* imageName = labels->GetMetadataItem("SEGMENT_IMAGE");
    if (!imageName || !pathExists(QString::fromUtf8(imageName), false, true))
        args.refuse(QStringLiteral("InputFile"), labelPath,
                    QStringLiteral("does not name an existing segmented image in its metadata item SEGMENT_IMAGE"));
    const QString imagePath = QString::fromUtf8(imageName);
    DatasetPtr image = openRaster(imagePath);
    if (image->GetRasterXSize() != labels->GetRasterXSize() || image->GetRasterYSize() != labels->GetRasterYSize())
        args.refuse(QStringLiteral("InputFile"), labelPath, QStringLiteral("is not the size of its image %1").arg(imagePath));
    const QString outputPath = args.text("OutputFile").writableOutput();
    const QString driverName = vectorDriverFor(args, outputPath);
    obia::refuseSameFile(args, QStringLiteral("OutputFile"), outputPath, QStringLiteral("InputFile"), labelPath);

    // Pass 1: features of every segment.
    const int width = labels->GetRasterXSize(), height = labels->GetRasterYSize(), bands = image->GetRasterCount();
    double transform[6] = {0, 1, 0, 0, 0, 1};
    labels->GetGeoTransform(transform);
    obia::SegmentFeatures features(bands, std::hypot(transform[1], transform[4]), std::hypot(transform[2], transform[5]));
    std::vector<int> bands0(static_cast<size_t>(bands));
    for (int b = 0; b < bands; ++b)
        bands0[size_t(b)] = b;
    std::vector<uint32_t> rows, previous;
    std::vector<float> pixels;
    forEachRowBlock(height, rowsPerBlock(image.get(), size_t(4) * (bands + 1)), [&](int row0, int count) {
        readRows(labelBand, row0, count, rows);
        readPixels(image.get(), bands0, row0, count, pixels);
        features.addRows(rows.data(), pixels.data(), width, count, previous);
        previous.assign(rows.end() - width, rows.end());
        progress(40.0 * (row0 + count) / height);
    });
    if (!previous.empty())
        features.finish(previous.data(), width);

    // Pass 2: polygons of the segments into memory, then out with their features.
    GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("Memory");
    DatasetPtr scratch(memory->Create("", 0, 0, 0, GDT_Unknown, nullptr));
    OGRSpatialReference* srs = labels->GetSpatialRef() ? labels->GetSpatialRef()->Clone() : nullptr;
    OGRLayer* polygons = scratch->CreateLayer("segments", srs, wkbPolygon, nullptr);
    OGRFieldDefn segmentField("segment", OFTInteger64);
    polygons->CreateField(&segmentField);
    GdalProgress bridge([&](double percent) { progress(40.0 + 0.3 * percent); });
    CPLErrorReset();
    if (GDALPolygonize(labelBand, labelBand->GetMaskBand(), polygons, 0, nullptr, GdalProgress::callback, &bridge) != CE_None)
    {
        bridge.rethrowIfCancelled();
        throw AlgoError(QStringLiteral("MSS_Export: polygonising %1 failed: %2").arg(labelPath, QString::fromUtf8(CPLGetLastErrorMsg())));
    }
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(driverName.toUtf8().constData());
    if (QFileInfo::exists(outputPath))
        deleteRasterFiles(outputPath);
    claimOutput(outputPath);
    DatasetPtr output(driver->Create(outputPath.toUtf8().constData(), 0, 0, 0, GDT_Unknown, nullptr));
    if (!output)
        throw AlgoError(QStringLiteral("MSS_Export: cannot create %1: %2").arg(outputPath, QString::fromUtf8(CPLGetLastErrorMsg())));
    OGRLayer* layer = output->CreateLayer("segments", srs, wkbPolygon, nullptr);
    if (srs)
        srs->Release();
    if (!layer)
        throw AlgoError(QStringLiteral("MSS_Export: cannot create a layer in %1.").arg(outputPath));
    QStringList names = {"segment"};
    for (const QString& feature : wanted)
    {
        if (feature == "mean" || feature == "std" || feature == "min" || feature == "max")
            for (int b = 1; b <= bands; ++b)
                names << QStringLiteral("%1_%2").arg(feature).arg(b);
        else
            names << (feature == "compactness" ? QStringLiteral("compact") : feature == "shape_index" ? QStringLiteral("shape_idx")
                      : feature == "brightness" ? QStringLiteral("bright") : feature);
    }
    for (const QString& name : names)
    {
        OGRFieldDefn field(name.toUtf8().constData(), name == "segment" || name == "count" ? OFTInteger64 : OFTReal);
        if (layer->CreateField(&field) != OGRERR_NONE)
            throw AlgoError(QStringLiteral("MSS_Export: cannot create the field %1 in %2.").arg(name, outputPath));
    }
    const double pixelSize = std::sqrt(std::fabs(transform[1] * transform[5] - transform[2] * transform[4]));
    const GIntBig total = std::max<GIntBig>(1, polygons->GetFeatureCount());
    GIntBig done = 0, written = 0;
    output->StartTransaction();
    polygons->ResetReading();
    for (auto& polygon : *polygons)
    {
        const GIntBig id = polygon->GetFieldAsInteger64(0);
        if (++done % 1000 == 0)
            progress(70.0 + 30.0 * double(done) / double(total));
        if (id <= 0 || uint64_t(id) > features.largestLabel() || features.count(uint32_t(id)) <= 0)
            continue;
        const uint32_t s = uint32_t(id);
        if (features.area(s) < minArea)
            continue;
        OGRFeature out(layer->GetLayerDefn());
        OGRGeometry* geometry = polygon->GetGeometryRef();
        if (tolerance > 0.0 && geometry)
        {
            std::unique_ptr<OGRGeometry> simple(geometry->SimplifyPreserveTopology(tolerance * pixelSize));
            out.SetGeometry(simple && !simple->IsEmpty() ? simple.get() : geometry);
        }
        else
            out.SetGeometry(geometry);
        int field = 0;
        out.SetField(field++, GIntBig(s));
        for (const QString& feature : wanted)
        {
            if (feature == "count")
                out.SetField(field++, GIntBig(features.count(s)));
            else if (feature == "area")
                out.SetField(field++, features.area(s));
            else if (feature == "perimeter")
                out.SetField(field++, features.perimeter(s));
            else if (feature == "compactness")
                out.SetField(field++, features.compactness(s));
            else if (feature == "shape_index")
                out.SetField(field++, features.shapeIndex(s));
            else if (feature == "brightness")
                out.SetField(field++, features.brightness(s));
            else
                for (int b = 0; b < bands; ++b)
                    out.SetField(field++, feature == "mean" ? features.mean(s, b) : feature == "std" ? features.standardDeviation(s, b)
                                          : feature == "min" ? features.minimum(s, b) : features.maximum(s, b));
        }
        if (layer->CreateFeature(&out) != OGRERR_NONE)
            throw AlgoError(QStringLiteral("MSS_Export: writing to %1 failed: %2").arg(outputPath, QString::fromUtf8(CPLGetLastErrorMsg())));
        ++written;
    }
    output->CommitTransaction();
    output.reset();
    setResult(GenericOutputs().add(QStringLiteral("SegmentCount"), QString::number(written)).result());
    return true;
}

} // namespace

ALGO_PLUGIN_FACTORY(MssExport)
