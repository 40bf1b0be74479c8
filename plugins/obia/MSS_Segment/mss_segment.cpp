// Multi-resolution segmentation: region merging by the Baatz-Schaepe criterion over tiles, the segments that meet
// at tile seams merged again by the same criterion, written as a UInt32 label raster (0 no data) and, for a vector
// suffix, as polygons.
#include "class_map.h"
#include "date_pair.h"
#include "generic_params.h"
#include "records/generic_record.h"
#include "region_merging.h"

#include "gdal_progress.h"

#include <gdal_alg.h>
#include <ogrsf_frmts.h>

#include <QFileInfo>
#include <cmath>
#include <map>

using namespace algokit;

namespace
{

// Tile side: a tile starts as one segment per pixel, about 200 bytes each.
constexpr int kTile = 512;

class MssSegment : public PluginBase
{
public:
    MssSegment() : PluginBase(QStringLiteral("MSS_Segment")) {}

protected:
    bool run() override;
};

QString vectorDriver(const QString& path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix == QLatin1String("shp"))
        return QStringLiteral("ESRI Shapefile");
    if (suffix == QLatin1String("gpkg"))
        return QStringLiteral("GPKG");
    if (suffix == QLatin1String("geojson") || suffix == QLatin1String("json"))
        return QStringLiteral("GeoJSON");
    return QString();
}

// Stats with a bounding box moved from tile to image coordinates.
obia::SegmentStats shifted(obia::SegmentStats s, int dx, int dy)
{
    s.x0 += dx, s.x1 += dx, s.y0 += dy, s.y1 += dy;
    return s;
}

bool MssSegment::run()
{
    const auto& record = params<GenericAlgoRecord>();
    GenericParams args(record, GetName());
    const QString inputPath = args.text("InputFile").existingFile();
    DatasetPtr input = args.text("InputFile").openRaster();
    obia::MergeCriterion criterion;
    criterion.scale = args.integer("Scale").orDefault(30).atLeast(1);
    const double shapeWeight = args.real("ShapeWeight").orDefault(0.1).range(0.0, 0.9);
    const double spectralWeight = args.real("SpectralWeight").orDefault(0.0).range(0.0, 1.0);
    criterion.colourWeight = spectralWeight > 0.0 ? spectralWeight / (spectralWeight + shapeWeight) : 1.0 - shapeWeight;
    criterion.compactWeight = args.real("CompactWeight").orDefault(0.5).range(0.0, 1.0);
    const double bandWeight = args.real("BandWeights").orDefault(1.0).atLeast(0.0);
    criterion.maxMeanDistance = args.real("Threshold").orDefault(0.0).atLeast(0.0);
    const int minSize = args.integer("MinSize").orDefault(0).atLeast(0);
    const int passes = args.integer("Iterations").orDefault(0).atLeast(0);
    const int bands = input->GetRasterCount();
    if (bands < 1)
        args.refuse(QStringLiteral("InputFile"), inputPath, QStringLiteral("has no band"));
    criterion.bandWeights.assign(size_t(bands), bandWeight > 0.0 ? bandWeight : 1.0);
    const QString outputPath = args.text("OutputFile").writableOutput();
    obia::refuseSameFile(args, QStringLiteral("OutputFile"), outputPath, QStringLiteral("InputFile"), inputPath);
    const QString polygonDriver = vectorDriver(outputPath);
    const QFileInfo outputInfo(outputPath);
    const QString labelPath = polygonDriver.isEmpty() ? outputPath : outputInfo.path() + QLatin1Char('/') + outputInfo.completeBaseName() + QStringLiteral("_labels.tif");
    const QString labelDriver = obia::rasterDriverFor(args, QStringLiteral("OutputFile"), labelPath);
    obia::refuseSameFile(args, QStringLiteral("OutputFile"), labelPath, QStringLiteral("InputFile"), inputPath);

    const int width = input->GetRasterXSize(), height = input->GetRasterYSize();
    OutputRaster labels(labelPath, labelDriver, width, height, 1, GDT_UInt32,
                        labelDriver == QLatin1String("GTiff") ? QStringList{"TILED=YES", "COMPRESS=DEFLATE", "BIGTIFF=IF_SAFER"} : QStringList());
    labels.copyGeoreferencing(input.get());
    labels.band(0)->SetNoDataValue(0);
    labels.band(0)->SetDescription("segment");
    labels.get()->SetMetadataItem("SEGMENT_IMAGE", QFileInfo(inputPath).absoluteFilePath().toUtf8().constData());
    labels.get()->SetMetadataItem("SEGMENT_SCALE", CPLSPrintf("%g", criterion.scale));
    labels.get()->SetMetadataItem("SEGMENT_SHAPE_WEIGHT", CPLSPrintf("%g", 1.0 - criterion.colourWeight));
    labels.get()->SetMetadataItem("SEGMENT_COMPACT_WEIGHT", CPLSPrintf("%g", criterion.compactWeight));

    // Pass 1: each tile on its own; segments touching an inner seam keep their statistics for the seam merge.
    const int tilesX = (width + kTile - 1) / kTile, tilesY = (height + kTile - 1) / kTile;
    std::vector<int> bandList(static_cast<size_t>(bands));
    for (int b = 0; b < bands; ++b)
        bandList[size_t(b)] = b + 1;
    std::map<uint32_t, obia::SegmentStats> seamSegments;
    uint32_t next = 0;
    std::vector<int> bands0(static_cast<size_t>(bands));
    for (int b = 0; b < bands; ++b)
        bands0[size_t(b)] = b;
    // One row of tiles at a time: read in turn, segmented on every core, written in turn.
    struct Tile
    {
        int x0 = 0, y0 = 0, w = 0, h = 0;
        std::vector<float> pixels;
        std::vector<unsigned char> valid;
        std::vector<uint32_t> labels;
        std::vector<obia::SegmentStats> stats;
    };
    std::vector<Tile> row(static_cast<size_t>(tilesX));
    for (int ty = 0; ty < tilesY; ++ty)
    {
        for (int tx = 0; tx < tilesX; ++tx)
        {
            Tile& tile = row[size_t(tx)];
            tile.x0 = tx * kTile, tile.y0 = ty * kTile;
            tile.w = std::min(kTile, width - tile.x0), tile.h = std::min(kTile, height - tile.y0);
            tile.pixels.resize(size_t(tile.w) * tile.h * bands);
            if (input->RasterIO(GF_Read, tile.x0, tile.y0, tile.w, tile.h, tile.pixels.data(), tile.w, tile.h, GDT_Float32, bands,
                                bandList.data(), GSpacing(sizeof(float)) * bands, GSpacing(sizeof(float)) * bands * tile.w,
                                sizeof(float), nullptr) != CE_None)
                throw AlgoError(QStringLiteral("MSS_Segment: reading %1 failed: %2").arg(inputPath, QString::fromUtf8(CPLGetLastErrorMsg())));
            tile.valid.assign(size_t(tile.w) * tile.h, 1);
            obia::markNoData(input.get(), bands0, tile.pixels, tile.valid);
        }
        parallelFor(tilesX, [&](int begin, int end) {
            for (int tx = begin; tx < end; ++tx)
            {
                Tile& tile = row[size_t(tx)];
                tile.stats = obia::segmentWindow(criterion, tile.pixels.data(), tile.valid.data(), tile.w, tile.h, bands, passes,
                                                 double(minSize), tile.labels);
                tile.pixels = std::vector<float>();
            }
        });
        for (int tx = 0; tx < tilesX; ++tx)
        {
            Tile& tile = row[size_t(tx)];
            for (uint32_t& label : tile.labels)
                if (label)
                    label += next;
            for (size_t i = 0; i < tile.stats.size(); ++i)
            {
                const obia::SegmentStats& s = tile.stats[i];
                const bool onSeam = (s.x0 == 0 && tx > 0) || (s.y0 == 0 && ty > 0) || (s.x1 == tile.w && tx + 1 < tilesX) ||
                                    (s.y1 == tile.h && ty + 1 < tilesY);
                if (onSeam)
                    seamSegments.emplace(next + uint32_t(i) + 1, shifted(s, tile.x0, tile.y0));
            }
            next += uint32_t(tile.stats.size());
            if (labels.band(0)->RasterIO(GF_Write, tile.x0, tile.y0, tile.w, tile.h, tile.labels.data(), tile.w, tile.h, GDT_UInt32, 0, 0) != CE_None)
                throw AlgoError(QStringLiteral("MSS_Segment: writing %1 failed: %2").arg(labelPath, QString::fromUtf8(CPLGetLastErrorMsg())));
            tile.stats = std::vector<obia::SegmentStats>();
        }
        progress(70.0 * (ty + 1) / tilesY);
    }

    // Pass 2: the graph of the segments that meet across seams, merged by the same criterion.
    std::vector<uint32_t> finalLabel(size_t(next) + 1);
    for (uint32_t id = 0; id <= next; ++id)
        finalLabel[id] = id;
    if (!seamSegments.empty())
    {
        obia::RegionGraph graph(criterion);
        std::map<uint32_t, int> nodeOf;
        std::vector<uint32_t> idOf;
        for (auto& [id, stats] : seamSegments)
        {
            nodeOf[id] = graph.addSegment(stats);
            idOf.push_back(id);
        }
        std::vector<uint32_t> first, second;
        auto readLine = [&](int x0, int y0, int w, int h, std::vector<uint32_t>& line) {
            line.resize(size_t(w) * h);
            if (labels.band(0)->RasterIO(GF_Read, x0, y0, w, h, line.data(), w, h, GDT_UInt32, 0, 0) != CE_None)
                throw AlgoError(QStringLiteral("MSS_Segment: reading back %1 failed.").arg(labelPath));
        };
        auto link = [&](const std::vector<uint32_t>& a, const std::vector<uint32_t>& b) {
            for (size_t i = 0; i < a.size(); ++i)
                if (a[i] && b[i] && a[i] != b[i])
                    graph.addBoundary(nodeOf.at(a[i]), nodeOf.at(b[i]), 1.0);
        };
        for (int tx = 1; tx < tilesX; ++tx)
        {
            readLine(tx * kTile - 1, 0, 1, height, first);
            readLine(tx * kTile, 0, 1, height, second);
            link(first, second);
        }
        for (int ty = 1; ty < tilesY; ++ty)
        {
            readLine(0, ty * kTile - 1, width, 1, first);
            readLine(0, ty * kTile, width, 1, second);
            link(first, second);
        }
        graph.mergePasses(passes);
        for (int node = 0; node < graph.size(); ++node)
            finalLabel[idOf[size_t(node)]] = idOf[size_t(graph.root(node))];
    }
    progress(75.0);
    // Consecutive labels 1..k.
    std::vector<uint32_t> compact(size_t(next) + 1, 0);
    uint32_t count = 0;
    for (uint32_t id = 1; id <= next; ++id)
        if (finalLabel[id] == id)
            compact[id] = ++count;
    for (uint32_t id = 1; id <= next; ++id)
        finalLabel[id] = compact[finalLabel[id]];

    // Pass 3: labels rewritten through the table.
    const int step = std::max(kTile, rowsPerBlock(labels.get(), 4));
    std::vector<uint32_t> rows;
    forEachRowBlock(height, step, [&](int row0, int n) {
        readRows(labels.band(0), row0, n, rows);
        for (uint32_t& label : rows)
            label = finalLabel[label];
        writeRows(labels.band(0), row0, n, rows);
        progress(75.0 + (polygonDriver.isEmpty() ? 25.0 : 10.0) * (row0 + n) / height);
    });

    GenericOutputs outputs;
    if (!polygonDriver.isEmpty())
    {
        GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(polygonDriver.toUtf8().constData());
        if (QFileInfo::exists(outputPath))
            deleteRasterFiles(outputPath);
        claimOutput(outputPath);
        DatasetPtr vector(driver->Create(outputPath.toUtf8().constData(), 0, 0, 0, GDT_Unknown, nullptr));
        if (!vector)
            throw AlgoError(QStringLiteral("MSS_Segment: cannot create %1: %2").arg(outputPath, QString::fromUtf8(CPLGetLastErrorMsg())));
        OGRLayer* layer = vector->CreateLayer("segments", const_cast<OGRSpatialReference*>(input->GetSpatialRef()), wkbPolygon, nullptr);
        OGRFieldDefn field("segment", OFTInteger64);
        if (!layer || layer->CreateField(&field) != OGRERR_NONE)
            throw AlgoError(QStringLiteral("MSS_Segment: cannot create the segment layer in %1.").arg(outputPath));
        GdalProgress bridge([&](double percent) { progress(85.0 + 0.15 * percent); });
        vector->StartTransaction();
        if (GDALPolygonize(labels.band(0), labels.band(0)->GetMaskBand(), layer, 0, nullptr, GdalProgress::callback, &bridge) != CE_None)
        {
            bridge.rethrowIfCancelled();
            throw AlgoError(QStringLiteral("MSS_Segment: polygonising the segments failed: %1").arg(QString::fromUtf8(CPLGetLastErrorMsg())));
        }
        vector->CommitTransaction();
        vector.reset();
        outputs.add(QStringLiteral("LabelFile"), labelPath);
    }
    labels.commit();
    outputs.add(QStringLiteral("SegmentCount"), QString::number(count));
    setResult(outputs.result());
    return true;
}

} // namespace

ALGO_PLUGIN_FACTORY(MssSegment)
