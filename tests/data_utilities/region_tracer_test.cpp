// The row-pass polygoniser against areas worked out by hand and against GDAL's own polygoniser on random class
// maps: the same regions (count and area per value) and the same ground covered per value.
#include "region_tracer.h"

#include <gdal_alg.h>
#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <memory>
#include <random>

using namespace datautil;

namespace
{

double ringArea(const std::vector<Corner>& ring)
{
    double twice = 0;
    for (size_t i = 0; i + 1 < ring.size(); ++i)
        twice += double(ring[i].x) * ring[i + 1].y - double(ring[i + 1].x) * ring[i].y;
    return twice / 2;
}

std::vector<TracedRegion> trace(const std::vector<double>& pixels, int width, double skip = NAN)
{
    RegionTracer tracer(width);
    const int height = int(pixels.size()) / width;
    std::vector<uint8_t> valid(static_cast<size_t>(width));
    for (int y = 0; y < height; ++y)
    {
        const double* row = pixels.data() + size_t(y) * size_t(width);
        for (int x = 0; x < width; ++x)
            valid[size_t(x)] = row[x] != skip;
        tracer.addRow(row, valid.data());
    }
    std::vector<TracedRegion> regions;
    tracer.finish([&](TracedRegion& region) { regions.push_back(region); });
    return regions;
}

// Per value: (region count, area) with the outer ring counted positive and holes negative.
std::map<double, std::pair<int, double>> summary(const std::vector<TracedRegion>& regions)
{
    std::map<double, std::pair<int, double>> byValue;
    for (const TracedRegion& region : regions)
    {
        auto& entry = byValue[region.value];
        ++entry.first;
        for (const auto& ring : region.rings)
            entry.second += ringArea(ring);
    }
    return byValue;
}

} // namespace

TEST(RegionTracer, HandCountedRegionsHolesAndDiagonalTouches)
{
    // A 2 x 2 checkerboard: each value is one region of two pixels touching at the centre corner, one ring
    // through that corner twice (8 corners and the closing one).
    auto regions = trace({1, 2, 2, 1}, 2);
    ASSERT_EQ(regions.size(), 2u);
    for (const auto& region : regions)
    {
        ASSERT_EQ(region.rings.size(), 1u);
        EXPECT_EQ(region.rings[0].size(), 9u);
        EXPECT_DOUBLE_EQ(ringArea(region.rings[0]), 2.0);
    }

    // A ring of 5 around 7, with a skipped pixel (0) in the ring: 5 has one outer ring and one hole.
    // 5 5 5 5
    // 5 7 7 5
    // 5 7 0 5
    // 5 5 5 5
    regions = trace({5, 5, 5, 5, 5, 7, 7, 5, 5, 7, 0, 5, 5, 5, 5, 5}, 4, 0);
    auto byValue = summary(regions);
    ASSERT_EQ(byValue.size(), 2u);
    EXPECT_EQ(byValue[5].first, 1);
    EXPECT_DOUBLE_EQ(byValue[5].second, 12.0);
    EXPECT_EQ(byValue[7].first, 1);
    EXPECT_DOUBLE_EQ(byValue[7].second, 3.0);
    for (const auto& region : regions)
        if (region.value == 5)
        {
            ASSERT_EQ(region.rings.size(), 2u);
            EXPECT_DOUBLE_EQ(ringArea(region.rings[0]), 16.0); // outer first, corners only
            EXPECT_EQ(region.rings[0].size(), 5u);
            EXPECT_DOUBLE_EQ(ringArea(region.rings[1]), -4.0);
        }

    // A diagonal of 1 cuts the 0-free background into two 4-connected parts, yet 2 stays one region through the
    // corner it shares across the diagonal; a U shape joined only at a lower row (labels united late).
    // 1 2 2 3 2
    // 2 1 2 3 2
    // 2 2 1 3 2
    // 2 2 2 2 2
    byValue = summary(trace({1, 2, 2, 3, 2, 2, 1, 2, 3, 2, 2, 2, 1, 3, 2, 2, 2, 2, 2, 2}, 5));
    EXPECT_EQ(byValue[1], std::make_pair(1, 3.0));
    EXPECT_EQ(byValue[2], std::make_pair(1, 14.0));
    EXPECT_EQ(byValue[3], std::make_pair(1, 3.0));

    // NaN pixels form regions of their own; a row of nothing valid gives nothing.
    regions = trace({NAN, NAN, 4, NAN}, 2);
    ASSERT_EQ(regions.size(), 2u);
    for (const auto& region : regions)
        EXPECT_DOUBLE_EQ(ringArea(region.rings[0]), std::isnan(region.value) ? 3.0 : 1.0);
    EXPECT_EQ(summary(trace({0, 0, 0}, 3, 0)).size(), 0u);
}

namespace
{

// A random class map: blobs from a coarse grid with salt, values 0 (skipped) to classes - 1.
std::vector<double> randomClasses(int width, int height, int classes, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> cls(0, classes - 1);
    std::uniform_real_distribution<double> unit(0, 1);
    const int cell = 1 + int(seed % 4);
    std::vector<int> coarse(size_t((width / cell + 1) * (height / cell + 1)));
    for (int& c : coarse)
        c = cls(rng);
    std::vector<double> pixels(size_t(width) * size_t(height));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            pixels[size_t(y) * size_t(width) + size_t(x)] =
                unit(rng) < 0.15 ? cls(rng) : coarse[size_t((y / cell) * (width / cell + 1) + x / cell)];
    return pixels;
}

struct ValueGeometry
{
    int count = 0;
    double area = 0;
    std::unique_ptr<OGRGeometry> cover;
};

void addPolygon(ValueGeometry& entry, const OGRGeometry& polygon)
{
    ++entry.count;
    entry.area += polygon.toPolygon()->get_Area();
    std::unique_ptr<OGRGeometry> valid(polygon.MakeValid());
    ASSERT_TRUE(valid);
    entry.cover.reset(entry.cover ? entry.cover->Union(valid.get()) : valid.release());
}

} // namespace

TEST(RegionTracer, SameRegionsAndCoverAsGdalsPolygoniserOnRandomClassMaps)
{
    GDALAllRegister();
    for (unsigned seed = 1; seed <= 6; ++seed)
    {
        const int width = 23 + int(seed) * 5, height = 17 + int(seed) * 3, classes = 2 + int(seed % 3);
        const std::vector<double> pixels = randomClasses(width, height, classes, seed);
        // A grid with a rotation term, so corners go through the whole transform.
        const double transform[6] = {500000, 30, 2, 4000000, 1, -30};

        GDALDriver* mem = GetGDALDriverManager()->GetDriverByName("MEM");
        GDALDatasetUniquePtr raster(mem->Create("", width, height, 1, GDT_Int32, nullptr));
        raster->SetGeoTransform(const_cast<double*>(transform));
        GDALRasterBand* band = raster->GetRasterBand(1);
        band->SetNoDataValue(0);
        ASSERT_EQ(band->RasterIO(GF_Write, 0, 0, width, height, const_cast<double*>(pixels.data()), width, height,
                                 GDT_Float64, 0, 0),
                  CE_None);
        GDALDatasetUniquePtr vectors(
            GetGDALDriverManager()->GetDriverByName("Memory")->Create("", 0, 0, 0, GDT_Unknown, nullptr));
        ASSERT_TRUE(vectors);
        OGRLayer* layer = vectors->CreateLayer("peer", nullptr, wkbPolygon, nullptr);
        OGRFieldDefn field("value", OFTInteger);
        layer->CreateField(&field);
        char** options = CSLSetNameValue(nullptr, "8CONNECTED", "8");
        ASSERT_EQ(GDALPolygonize(band, band->GetMaskBand(), OGRLayer::ToHandle(layer), 0, options, nullptr, nullptr),
                  CE_None);
        CSLDestroy(options);
        std::map<int, ValueGeometry> peer, ours;
        for (auto& feature : *layer)
            addPolygon(peer[feature->GetFieldAsInteger(0)], *feature->GetGeometryRef());

        for (const TracedRegion& region : trace(pixels, width, 0))
        {
            OGRPolygon polygon;
            ASSERT_FALSE(region.rings.empty());
            EXPECT_GT(ringArea(region.rings[0]), 0) << "seed " << seed;
            for (size_t r = 0; r < region.rings.size(); ++r)
            {
                if (r > 0)
                {
                    EXPECT_LT(ringArea(region.rings[r]), 0) << "seed " << seed << ": one outer ring per region";
                }
                OGRLinearRing ring;
                for (const Corner& c : region.rings[r])
                    ring.addPoint(transform[0] + c.x * transform[1] + c.y * transform[2],
                                  transform[3] + c.x * transform[4] + c.y * transform[5]);
                polygon.addRing(&ring);
            }
            addPolygon(ours[int(region.value)], polygon);
        }

        ASSERT_EQ(ours.size(), peer.size()) << "seed " << seed;
        for (auto& [value, expected] : peer)
        {
            ValueGeometry& got = ours[value];
            EXPECT_EQ(got.count, expected.count) << "seed " << seed << " value " << value;
            EXPECT_NEAR(got.area, expected.area, 1e-6 * expected.area) << "seed " << seed << " value " << value;
            std::unique_ptr<OGRGeometry> difference(got.cover->SymDifference(expected.cover.get()));
            ASSERT_TRUE(difference);
            EXPECT_LT(difference->IsEmpty() ? 0.0 : OGR_G_Area(OGRGeometry::ToHandle(difference.get())), 1e-6)
                << "seed " << seed << " value " << value;
        }
    }
}
