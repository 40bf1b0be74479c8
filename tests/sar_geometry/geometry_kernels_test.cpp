// The geometry kernels against independent references: PROJ for geodetic conversions, a closed-form orbit for
// interpolation and range-Doppler, hand-worked burst arithmetic, and GDAL's own RPC evaluator.
#include "geodesy.h"
#include "orbit.h"
#include "range_doppler.h"
#include "record_geometry.h"
#include "rpc_model.h"
#include "s1_product.h"
#include "simulated_scene.h"
#include "tops_deburst.h"
#include "utc_time.h"

#include <ogr_spatialref.h>

#include <gtest/gtest.h>

#include <cmath>

using namespace sargeo;

TEST(GeometryKernels, GeodeticConversionsAgreeWithProj)
{
    OGRSpatialReference geographic, geocentric;
    geographic.importFromEPSG(4979);
    geocentric.importFromEPSG(4978);
    geographic.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    geocentric.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    std::unique_ptr<OGRCoordinateTransformation> t(OGRCreateCoordinateTransformation(&geographic, &geocentric));
    ASSERT_TRUE(t);
    const double cases[][3] = {{41.9, 12.5, 50}, {-33.2, -70.6, 4200}, {89.5, 10, 0}, {0, 180, -30}, {65, -20, 700000}};
    for (const auto& c : cases)
    {
        double x = c[1], y = c[0], z = c[2];
        ASSERT_TRUE(t->Transform(1, &x, &y, &z));
        const Vec3 p = geodeticToEcef(c[0], c[1], c[2]);
        EXPECT_NEAR(p.x(), x, 1e-3);
        EXPECT_NEAR(p.y(), y, 1e-3);
        EXPECT_NEAR(p.z(), z, 1e-3);
        double lat, lon, h;
        ecefToGeodetic(Vec3(x, y, z), &lat, &lon, &h);
        EXPECT_NEAR(lat, c[0], 1e-9);
        EXPECT_NEAR(std::remainder(lon - c[1], 360.0), 0.0, 1e-9);
        EXPECT_NEAR(h, c[2], 1e-3);
    }
}

TEST(GeometryKernels, OrbitInterpolationAndRangeDopplerMatchTheClosedForm)
{
    const simscene::Scene scene = simscene::makeScene();
    const Orbit orbit = Orbit::fromRecord(scene.record);
    for (double t = -140.0; t <= 140.0; t += 7.3)
    {
        simscene::Vec3 truePosition, trueVelocity;
        scene.orbit.state(t, &truePosition, &trueVelocity);
        Vec3 p, v;
        orbit.at(simscene::kT0 + t, &p, &v);
        EXPECT_LT((p - truePosition).norm(), 1e-3) << t;
        EXPECT_LT((v - trueVelocity).norm(), 1e-5) << t;
    }

    const RangeDoppler model = rangeDopplerFromRecord(scene.record);
    for (const simscene::Target& target : simscene::targets(scene, 350.0, 4))
    {
        double line, pixel;
        ASSERT_TRUE(model.groundToImage(geodeticToEcef(target.latitude, target.longitude, target.height), &line, &pixel));
        EXPECT_NEAR(line, target.line, 1e-3);
        EXPECT_NEAR(pixel, target.pixel, 1e-3);
        // And back: the ground point at that image position and height is the target.
        Vec3 ground;
        ASSERT_TRUE(model.imageToGround(target.line, target.pixel, target.height, &ground));
        EXPECT_LT((ground - geodeticToEcef(target.latitude, target.longitude, target.height)).norm(), 0.01);
    }
    EXPECT_THROW(Orbit({OrbitState(), OrbitState()}), std::invalid_argument);
    SarParameterRecord noVectors = scene.record;
    noVectors.numStateVectors = 0;
    EXPECT_THROW(rangeDopplerFromRecord(noVectors), std::invalid_argument);
}

namespace
{

// Three bursts of 10 lines, 8 samples; lines 0-1 and 8-9 of every burst invalid; bursts 7 lines apart.
S1Annotation threeBursts(int stride = 7)
{
    S1Annotation a;
    a.azimuthTimeInterval = 0.01;
    a.linesPerBurst = 10;
    a.samplesPerBurst = 8;
    for (int k = 0; k < 3; ++k)
    {
        S1Burst b;
        b.azimuthTime = 100.0 + k * stride * 0.01 + 1e-5; // a little jitter, as in products
        b.firstValidSample.assign(10, 1);
        b.lastValidSample.assign(10, 6);
        for (int line : {0, 1, 8, 9})
            b.firstValidSample[size_t(line)] = b.lastValidSample[size_t(line)] = -1;
        a.bursts.push_back(b);
    }
    return a;
}

} // namespace

TEST(GeometryKernels, SquintedModelMatchesTheClosedFormAndSurvivesACrop)
{
    simscene::Scene scene = simscene::makeScene();
    simscene::squint(scene, 250.0, 4e6);
    const RangeDoppler model = rangeDopplerFromRecord(scene.record);
    ASSERT_TRUE(model.grid().squinted());
    // A window whose near range moves by 120 samples: the centroid polynomial must be re-expanded about it.
    SarParameterRecord cropped = scene.record;
    ASSERT_TRUE(cropRecord(cropped, model, 120, 40, 200, 300, 0.0));
    const RangeDoppler croppedModel = rangeDopplerFromRecord(cropped);
    for (const simscene::Target& t : simscene::targets(scene, 700.0))
    {
        const Vec3 p = simscene::ecef(t.latitude, t.longitude, t.height);
        double line, pixel;
        ASSERT_TRUE(model.groundToImage(p, &line, &pixel));
        EXPECT_NEAR(line, t.line, 1e-3);
        EXPECT_NEAR(pixel, t.pixel, 1e-3);
        Vec3 back;
        ASSERT_TRUE(model.imageToGround(t.line, t.pixel, t.height, &back));
        EXPECT_LT((back - p).norm(), 0.05);
        ASSERT_TRUE(croppedModel.groundToImage(p, &line, &pixel));
        EXPECT_NEAR(line, t.line - 40, 1e-3);
        EXPECT_NEAR(pixel, t.pixel - 120, 1e-3);
    }
    // Deskewed images stay zero-Doppler whatever centroid they carry.
    scene.record.azimuthDeskew = "ON";
    EXPECT_FALSE(rangeDopplerFromRecord(scene.record).grid().squinted());
}

TEST(GeometryKernels, DeburstCutsAtMidOverlapAndKeepsGaps)
{
    // Valid lines on the common axis: burst 0 2..7, burst 1 9..14, burst 2 16..21: a gap of one line each time.
    DeburstPlan gap = planDeburst(threeBursts(7));
    EXPECT_EQ(gap.lines, 20);
    EXPECT_EQ(gap.samples, 8);
    ASSERT_EQ(gap.pieces.size(), 3u);
    EXPECT_EQ(gap.pieces[1].outputLine, 7);
    EXPECT_EQ(gap.pieces[1].firstLine, 2);
    EXPECT_NEAR(gap.firstLineTime, 100.02 + 1e-5, 1e-9);

    // Bursts 4 lines apart: valid 2..7, 6..11, 10..15; overlaps 6..7 and 10..11 cut in their middle.
    DeburstPlan overlap = planDeburst(threeBursts(4));
    EXPECT_EQ(overlap.lines, 14);
    ASSERT_EQ(overlap.pieces.size(), 3u);
    EXPECT_EQ(overlap.pieces[0].firstLine, 2);
    EXPECT_EQ(overlap.pieces[0].lineCount, 5);  // 2..6
    EXPECT_EQ(overlap.pieces[1].firstLine, 3);  // common line 7
    EXPECT_EQ(overlap.pieces[1].lineCount, 4);  // 7..10
    EXPECT_EQ(overlap.pieces[1].outputLine, 5);
    EXPECT_EQ(overlap.pieces[2].firstLine, 3); // common line 11
    EXPECT_EQ(overlap.pieces[2].outputLine, 9);

    S1Annotation empty = threeBursts();
    empty.bursts[1].firstValidSample.assign(10, -1);
    EXPECT_THROW(planDeburst(empty), std::runtime_error);
    S1Annotation backwards = threeBursts();
    std::swap(backwards.bursts[0], backwards.bursts[2]);
    EXPECT_THROW(planDeburst(backwards), std::runtime_error);
}

TEST(GeometryKernels, UtcTextsRoundTrip)
{
    UtcTime t;
    ASSERT_TRUE(parseUtc("2021-04-01T05:26:24.209990", &t));
    EXPECT_NEAR(t.seconds, 5 * 3600 + 26 * 60 + 24.20999, 1e-9);
    UtcTime y2k;
    ASSERT_TRUE(parseUtc("2000-01-01 00:00:00", &y2k));
    EXPECT_EQ(y2k.day, 10957); // days from 1970-01-01, as `date -d 2000-01-01 +%s` / 86400 gives
    EXPECT_EQ(formatUtc(t.day, t.seconds + 86400.5), "2021-04-02T05:26:24.709990");
    for (const char* bad : {"", "2021-04-01", "2021-13-01T00:00:00", "2021-04-01T05:26:24.2x", "abcd-01-01T00:00:00"})
        EXPECT_FALSE(parseUtc(bad, &t)) << bad;
}

TEST(GeometryKernels, RpcFitReproducesTheModelBetweenItsNodes)
{
    const simscene::Scene scene = simscene::makeScene();
    const RangeDoppler model = rangeDopplerFromRecord(scene.record);
    std::vector<RpcPoint> fit;
    for (int k = 0; k < 5; ++k)
        for (int i = 0; i < 15; ++i)
            for (int j = 0; j < 15; ++j)
            {
                RpcPoint p;
                p.line = i * 499.0 / 14, p.sample = j * 399.0 / 14, p.height = -500 + 1000.0 * k;
                Vec3 g;
                ASSERT_TRUE(model.imageToGround(p.line, p.sample, p.height, &g));
                double h;
                ecefToGeodetic(g, &p.latitude, &p.longitude, &h);
                fit.push_back(p);
            }
    const RpcModel rpc = fitRpc(fit);
    EXPECT_LT(rpcResiduals(rpc, fit).max, 0.01);

    // Points between the fitting nodes and layers.
    for (const simscene::Target& t : simscene::targets(scene, 800.0))
    {
        double line, sample;
        rpc.project(t.latitude, t.longitude, t.height, &line, &sample);
        EXPECT_NEAR(line, t.line, 0.02);
        EXPECT_NEAR(sample, t.pixel, 0.02);
    }
    EXPECT_THROW(fitRpc(std::vector<RpcPoint>(fit.begin(), fit.begin() + 20)), std::runtime_error);

    // The .rpc text reads back to the same model (16 significant digits written), and a cut list is refused.
    const std::string text = formatRpcGroupText(rpc, "GF3");
    const RpcModel again = parseRpcGroupText(text);
    for (size_t i = 0; i < 20; ++i)
    {
        EXPECT_NEAR(again.lineNum[i], rpc.lineNum[i], 1e-14 * std::abs(rpc.lineNum[i]));
        EXPECT_NEAR(again.sampDen[i], rpc.sampDen[i], 1e-14 * std::abs(rpc.sampDen[i]));
    }
    EXPECT_NEAR(again.lonOffset, rpc.lonOffset, 1e-12);
    EXPECT_NEAR(again.heightScale, rpc.heightScale, 1e-12);
    const size_t cut = text.find(");", text.find("sampNumCoef"));
    const size_t lastComma = text.rfind(',', cut);
    EXPECT_THROW(parseRpcGroupText(text.substr(0, lastComma) + text.substr(cut)), std::runtime_error);
    EXPECT_THROW(parseRpcGroupText("lineOffset = 1;"), std::runtime_error);
}
