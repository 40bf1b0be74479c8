// Segment features and polygons against direct computations on a small labelled image: counts, areas and
// perimeters by counting pixels and exposed edges (and by GEOS on the polygons), band statistics by hand.
#include "obia_fixtures.h"

#include <ogrsf_frmts.h>

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cmath>
#include <map>

using namespace obiatest;
using namespace testsupport;

namespace
{

constexpr int kW = 12, kH = 9;

// Segments: 1 an L shape, 2 a square with a hole holding 3, 4 the rest; 0 (no data) a strip at the bottom.
int segmentAt(int x, int y)
{
    if (y == kH - 1)
        return 0;
    if (x < 3 || (y < 2 && x < 6))
        return 1;
    if (x >= 7 && x <= 10 && y >= 2 && y <= 5)
        return (x == 8 || x == 9) && (y == 3 || y == 4) ? 3 : 2;
    return 4;
}

double imageValue(int band, int x, int y)
{
    return 10 * (band + 1) + segmentAt(x, y) * 7 + ((x * 3 + y * 5 + band) % 4);
}

struct Expected
{
    double count = 0, edges = 0;
    std::vector<double> sum = std::vector<double>(2, 0.0), squares = std::vector<double>(2, 0.0);
    std::vector<double> low = std::vector<double>(2, 1e9), high = std::vector<double>(2, -1e9);
};

std::map<int, Expected> expectedFeatures()
{
    std::map<int, Expected> out;
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x)
        {
            const int s = segmentAt(x, y);
            if (!s)
                continue;
            Expected& e = out[s];
            e.count += 1;
            const int neighbours[4][2] = {{x - 1, y}, {x + 1, y}, {x, y - 1}, {x, y + 1}};
            for (const auto& n : neighbours)
                if (n[0] < 0 || n[1] < 0 || n[0] >= kW || n[1] >= kH || segmentAt(n[0], n[1]) != s)
                    e.edges += 1;
            for (int b = 0; b < 2; ++b)
            {
                const double v = imageValue(b, x, y);
                e.sum[size_t(b)] += v;
                e.squares[size_t(b)] += v * v;
                e.low[size_t(b)] = std::min(e.low[size_t(b)], v);
                e.high[size_t(b)] = std::max(e.high[size_t(b)], v);
            }
        }
    return out;
}

bool makeLabels(const QString& labels, const QString& image)
{
    if (!makeRaster(image, kW, kH, 2, GDT_UInt16, imageValue) ||
        !makeRaster(labels, kW, kH, 1, GDT_UInt32, [](int, int x, int y) { return segmentAt(x, y); }))
        return false;
    GDALDatasetUniquePtr dataset(GDALDataset::Open(labels.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    dataset->GetRasterBand(1)->SetNoDataValue(0);
    return dataset->SetMetadataItem("SEGMENT_IMAGE", image.toUtf8().constData()) == CE_None;
}

} // namespace

TEST(Export, FeaturesMatchDirectComputationsAndPolygonGeometry)
{
    QTemporaryDir dir;
    const QString labels = dir.filePath("labels.tif"), image = dir.filePath("image.tif"), out = dir.filePath("segments.geojson");
    ASSERT_TRUE(makeLabels(labels, image));
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_MSS_Export(labels.toUtf8().constData(), out.toUtf8().constData(), 0.0f, 0.0, "", nullptr));
    EXPECT_EQ(outputValue(capture.text(), "SegmentCount"), "4");
    const std::map<int, Expected> expected = expectedFeatures();
    GDALDatasetUniquePtr vector(GDALDataset::Open(out.toUtf8().constData(), GDAL_OF_VECTOR));
    ASSERT_NE(vector, nullptr);
    int seen = 0;
    for (auto& feature : *vector->GetLayer(0))
    {
        const int s = int(feature->GetFieldAsInteger64("segment"));
        ASSERT_TRUE(expected.count(s)) << s;
        const Expected& e = expected.at(s);
        ++seen;
        const double area = e.count * 900.0, perimeter = e.edges * 30.0;
        EXPECT_EQ(feature->GetFieldAsInteger64("count"), e.count) << s;
        EXPECT_DOUBLE_EQ(feature->GetFieldAsDouble("area"), area) << s;
        EXPECT_DOUBLE_EQ(feature->GetFieldAsDouble("perimeter"), perimeter) << s;
        EXPECT_NEAR(feature->GetFieldAsDouble("compact"), 4 * M_PI * area / (perimeter * perimeter), 1e-9) << s;
        EXPECT_NEAR(feature->GetFieldAsDouble("shape_idx"), perimeter / (4 * std::sqrt(area)), 1e-9) << s;
        // The polygon itself (GEOS): same area, and its rings (outer and holes) as long as the counted edges.
        OGRPolygon* polygon = feature->GetGeometryRef()->toPolygon();
        EXPECT_DOUBLE_EQ(polygon->get_Area(), area) << s;
        double rings = polygon->getExteriorRing()->get_Length();
        for (int i = 0; i < polygon->getNumInteriorRings(); ++i)
            rings += polygon->getInteriorRing(i)->get_Length();
        EXPECT_DOUBLE_EQ(rings, perimeter) << s;
        double brightness = 0;
        for (int b = 0; b < 2; ++b)
        {
            const double mean = e.sum[size_t(b)] / e.count;
            brightness += mean / 2;
            const std::string n = std::to_string(b + 1);
            EXPECT_NEAR(feature->GetFieldAsDouble(("mean_" + n).c_str()), mean, 1e-9) << s;
            EXPECT_NEAR(feature->GetFieldAsDouble(("std_" + n).c_str()), std::sqrt(e.squares[size_t(b)] / e.count - mean * mean), 1e-9) << s;
            EXPECT_EQ(feature->GetFieldAsDouble(("min_" + n).c_str()), e.low[size_t(b)]) << s;
            EXPECT_EQ(feature->GetFieldAsDouble(("max_" + n).c_str()), e.high[size_t(b)]) << s;
        }
        EXPECT_NEAR(feature->GetFieldAsDouble("bright"), brightness, 1e-9) << s;
    }
    EXPECT_EQ(seen, 4);
}

TEST(Export, FieldsChooseTheFeaturesThresholdDropsSmallSegmentsAndRefusals)
{
    QTemporaryDir dir;
    const QString labels = dir.filePath("labels.tif"), image = dir.filePath("image.tif"), out = dir.filePath("segments.shp");
    ASSERT_TRUE(makeLabels(labels, image));
    StdoutCapture capture;
    // Segment 3 has 4 pixels (3600 m2): below 5000 m2 it goes.
    ASSERT_TRUE(ExcuteAlgo_MSS_Export(labels.toUtf8().constData(), out.toUtf8().constData(), 0.0f, 5000.0, "area|mean", nullptr));
    capture.text();
    GDALDatasetUniquePtr vector(GDALDataset::Open(out.toUtf8().constData(), GDAL_OF_VECTOR));
    ASSERT_NE(vector, nullptr);
    OGRLayer* layer = vector->GetLayer(0);
    EXPECT_EQ(layer->GetFeatureCount(), 3);
    const OGRFeatureDefn* definition = layer->GetLayerDefn();
    std::vector<std::string> fields;
    for (int i = 0; i < definition->GetFieldCount(); ++i)
        fields.push_back(definition->GetFieldDefn(i)->GetNameRef());
    EXPECT_EQ(fields, (std::vector<std::string>{"segment", "area", "mean_1", "mean_2"}));

    const QString plain = dir.filePath("plain.tif");
    ASSERT_TRUE(makeRaster(plain, kW, kH, 1, GDT_UInt32, [](int, int x, int) { return x + 1; }));
    const QString refused = dir.filePath("refused.gpkg");
    const struct
    {
        QString input;
        const char* fields;
        std::string message;
    } rows[] = {
        {labels, "area|colour", "MSS_Export: the parameter Fields (area|colour) names colour, not one of count, area, perimeter, compactness, shape_index, mean, std, min, max, brightness!"},
        {plain, "", "MSS_Export: the parameter InputFile (" + plain.toStdString() + ") does not name an existing segmented image in its metadata item SEGMENT_IMAGE!"},
    };
    for (const auto& row : rows)
    {
        RecordingResult result;
        StdoutCapture quiet;
        EXPECT_FALSE(ExcuteAlgo_MSS_Export(row.input.toUtf8().constData(), refused.toUtf8().constData(), 0.0f, 0.0, row.fields, &result.record));
        EXPECT_EQ(std::string(result.record.message), row.message);
        EXPECT_FALSE(QFile::exists(refused));
    }
}
