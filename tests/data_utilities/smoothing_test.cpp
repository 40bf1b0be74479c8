// Boundary smoothing: Douglas-Peucker and Chaikin worked by hand, and two polygons sharing a zigzag boundary that
// neither overlap nor part after smoothing (while smoothing each ring alone would make them overlap).
#include "arc_smoothing.h"
#include "data_utilities_fixtures.h"

#include <ogrsf_frmts.h>

#include <QFile>
#include <algorithm>

using namespace testsupport;
using namespace datafixtures;
using datautil::Point;
using datautil::Polyline;

namespace
{

const Polyline kRingA = {{0, 0}, {2, 0}, {2.3, 1}, {1.8, 2}, {2.2, 3}, {2, 4}, {0, 4}, {0, 0}};
const Polyline kRingB = {{2, 0}, {4, 0}, {4, 4}, {2, 4}, {2.2, 3}, {1.8, 2}, {2.3, 1}, {2, 0}};

std::unique_ptr<OGRPolygon> polygonOf(const Polyline& ring)
{
    auto linear = std::make_unique<OGRLinearRing>();
    for (const Point& p : ring)
        linear->addPoint(p.x, p.y);
    auto polygon = std::make_unique<OGRPolygon>();
    polygon->addRingDirectly(linear.release());
    return polygon;
}

std::string wktOf(const Polyline& ring)
{
    char* text = nullptr;
    polygonOf(ring)->exportToWkt(&text);
    std::string wkt = text;
    CPLFree(text);
    return wkt;
}

// Area shared by two shapes (whatever geometry type their intersection has).
double overlap(const OGRGeometry& a, const OGRGeometry& b)
{
    std::unique_ptr<OGRGeometry> both(a.Intersection(&b));
    return both && both->getDimension() == 2 ? OGR_G_Area(OGRGeometry::ToHandle(both.get())) : 0.0;
}

} // namespace

TEST(Smoothing, DouglasPeuckerAndChaikinByHand)
{
    const Polyline zigzag = {{0, 0}, {1, 0.1}, {2, 0}, {3, 0.1}, {4, 0}};
    EXPECT_EQ(datautil::simplifyDouglasPeucker(zigzag, 0.2), (Polyline{{0, 0}, {4, 0}}));
    EXPECT_EQ(datautil::simplifyDouglasPeucker(zigzag, 0.05), zigzag);
    EXPECT_EQ(datautil::simplifyDouglasPeucker(zigzag, 0.0), zigzag);

    EXPECT_EQ(datautil::cutCorners({{0, 0}, {4, 0}, {4, 4}}, 1, false), (Polyline{{0, 0}, {3, 0}, {4, 1}, {4, 4}}));
    const Polyline square = {{0, 0}, {4, 0}, {4, 4}, {0, 4}, {0, 0}};
    const Polyline cut = datautil::cutCorners(square, 1, true);
    EXPECT_EQ(cut, (Polyline{{1, 0}, {3, 0}, {4, 1}, {4, 3}, {3, 4}, {1, 4}, {0, 3}, {0, 1}, {1, 0}}));
    EXPECT_DOUBLE_EQ(polygonOf(cut)->get_Area(), 14.0) << "four corner triangles of 1/2 cut off";
}

TEST(Smoothing, SharedBoundaryIsSmoothedOnceAndStaysShared)
{
    const std::vector<Polyline> smooth = datautil::smoothSharedArcs({kRingA, kRingB}, {true, true}, 0.0, 3);
    const auto a = polygonOf(smooth[0]), b = polygonOf(smooth[1]);
    EXPECT_GT(smooth[0].size(), kRingA.size()) << "corners were cut";
    EXPECT_LT(overlap(*a, *b), 1e-9);
    std::unique_ptr<OGRGeometry> both(a->Union(b.get()));
    EXPECT_NEAR(both->toPolygon()->get_Area(), a->get_Area() + b->get_Area(), 1e-9) << "no gap: one polygon, no hole";
    EXPECT_EQ(both->toPolygon()->getNumInteriorRings(), 0);
    // The points where three boundaries meet stay in both rings; smoothed each on its own, the rings would cut
    // them off differently and open notches between the neighbours.
    for (const Point& node : {Point{2, 0}, Point{2, 4}})
    {
        EXPECT_NE(std::find(smooth[0].begin(), smooth[0].end(), node), smooth[0].end());
        EXPECT_NE(std::find(smooth[1].begin(), smooth[1].end(), node), smooth[1].end());
        const Polyline alone = datautil::cutCorners(kRingA, 3, true);
        EXPECT_EQ(std::find(alone.begin(), alone.end(), node), alone.end());
    }

    // An island and the hole around it are one ring seen from both sides.
    const Polyline outer = {{-5, -5}, {10, -5}, {10, 10}, {-5, 10}, {-5, -5}};
    const Polyline island = {{0, 0}, {3, 0}, {3, 3}, {0, 3}, {0, 0}};
    const Polyline hole(island.rbegin(), island.rend());
    const std::vector<Polyline> rings = datautil::smoothSharedArcs({outer, hole, island}, {true, true, true}, 0.0, 2);
    Polyline back(rings[1].rbegin(), rings[1].rend());
    auto islandShape = polygonOf(rings[2]), holeShape = polygonOf(back);
    EXPECT_NEAR(islandShape->get_Area(), holeShape->get_Area(), 1e-12);
    EXPECT_LT(islandShape->get_Area(), 9.0);
}

TEST(VectorSmooth, NeighboursInAShapefileStayWithoutGapOrOverlap)
{
    QTemporaryDir dir;
    const QString in = dir.filePath("fields.shp"), out = dir.filePath("smooth.gpkg");
    ASSERT_TRUE(makeVector(in, 32650, {"id"}, {{wktOf(kRingA), {1}, "a"}, {wktOf(kRingB), {2}, "b"}}));
    const Outcome run =
        call([&](AlgoResult* r) { return ExcuteAlgo_VectorSmooth(in.toUtf8(), 0.1, 3.0, out.toUtf8(), r); });
    ASSERT_TRUE(run.ok) << run.message;
    EXPECT_EQ(outputLine(run.printed, "OutputFile"), out.toStdString());
    GDALDataset* ds = GDALDataset::Open(out.toUtf8().constData(), GDAL_OF_VECTOR);
    ASSERT_TRUE(ds);
    OGRLayer* layer = ds->GetLayer(0);
    ASSERT_EQ(layer->GetFeatureCount(), 2);
    std::unique_ptr<OGRFeature> first(layer->GetNextFeature()), second(layer->GetNextFeature());
    EXPECT_STREQ(second->GetFieldAsString("name"), "b");
    const OGRGeometry* a = first->GetGeometryRef();
    const OGRGeometry* b = second->GetGeometryRef();
    EXPECT_LT(overlap(*a, *b), 1e-9);
    std::unique_ptr<OGRGeometry> both(a->Union(b));
    EXPECT_EQ(wkbFlatten(both->getGeometryType()), wkbPolygon);
    GDALClose(ds);

    const Outcome half =
        call([&](AlgoResult* r) { return ExcuteAlgo_VectorSmooth(in.toUtf8(), 0.0, 1.5, out.toUtf8(), r); });
    EXPECT_FALSE(half.ok);
    EXPECT_EQ(half.message, "VectorSmooth: the parameter Iterations (1.5) is not a whole number!");
    const Outcome negative =
        call([&](AlgoResult* r) { return ExcuteAlgo_VectorSmooth(in.toUtf8(), -1.0, 1.0, out.toUtf8(), r); });
    EXPECT_EQ(negative.message, "VectorSmooth: the parameter Tolerance (-1) must be at least 0!");
}
