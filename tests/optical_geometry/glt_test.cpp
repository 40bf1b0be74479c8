// Geometric lookup tables: a synthetic swath of known rotation and scale through BuildGLT and UsingGlt,
// checked cell by cell against a brute-force nearest-pixel search.
#include "test_support.h"

#include <ogr_spatialref.h>

#include <QFileInfo>
#include <cmath>
#include <memory>

using namespace testsupport;

namespace
{

constexpr int kW = 40, kH = 56;

// Swath pixel centres in UTM 33N: 30 m pixels, rotated by `degrees`, and their WGS 84 positions written
// to lat.tif and lon.tif; the image holds 1 + sample + 1000 * line.
struct Swath
{
    std::vector<double> x, y;
    QString lat, lon, image;
};

Swath makeSwath(const QTemporaryDir& dir, double degrees)
{
    Swath s;
    const double a = degrees * M_PI / 180;
    for (int j = 0; j < kH; ++j)
        for (int i = 0; i < kW; ++i)
        {
            s.x.push_back(500000 + 30 * (std::cos(a) * (i + 0.5) - std::sin(a) * (j + 0.5)));
            s.y.push_back(5000000 - 30 * (std::sin(a) * (i + 0.5) + std::cos(a) * (j + 0.5)));
        }
    OGRSpatialReference utm, wgs84;
    utm.importFromEPSG(32633);
    wgs84.SetWellKnownGeogCS("WGS84");
    utm.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    std::unique_ptr<OGRCoordinateTransformation> t(OGRCreateCoordinateTransformation(&utm, &wgs84));
    std::vector<double> lon = s.x, lat = s.y;
    t->Transform(int(lon.size()), lon.data(), lat.data());
    s.lat = dir.filePath(QString("lat%1.tif").arg(degrees));
    s.lon = dir.filePath(QString("lon%1.tif").arg(degrees));
    s.image = dir.filePath(QString("swath%1.tif").arg(degrees));
    makeRaster(s.lat, kW, kH, 1, GDT_Float64, [&](int, int i, int j) { return lat[j * kW + i]; }, "GTiff", false);
    makeRaster(s.lon, kW, kH, 1, GDT_Float64, [&](int, int i, int j) { return lon[j * kW + i]; }, "GTiff", false);
    makeRaster(s.image, kW, kH, 2, GDT_Float32, [](int b, int i, int j) { return (b + 1) * (1 + i + 1000 * j); }, "GTiff", false);
    return s;
}

} // namespace

TEST(GeometricLookupTable, RotatedSwathRoundTripsThroughBuildAndUse)
{
    QTemporaryDir dir;
    for (double degrees : {0.0, 23.0})
    {
        const Swath s = makeSwath(dir, degrees);
        const QString glt = dir.filePath(QString("glt%1.tif").arg(degrees)), out = dir.filePath(QString("geo%1.tif").arg(degrees));
        {
            StdoutCapture capture;
            ASSERT_TRUE(ExcuteAlgo_BuildGLT(s.image.toUtf8(), s.lat.toUtf8(), s.lon.toUtf8(), glt.toUtf8(), nullptr));
            ASSERT_TRUE(ExcuteAlgo_UsingGlt(s.image.toUtf8(), glt.toUtf8(), out.toUtf8(), "", 0, nullptr));
        }
        GDALDataset* ds = GDALDataset::Open(glt.toUtf8().constData(), GDAL_OF_RASTER);
        ASSERT_NE(ds, nullptr);
        ASSERT_EQ(ds->GetSpatialRef()->GetUTMZone(), 33);
        double t[6];
        ds->GetGeoTransform(t);
        EXPECT_NEAR(t[1], 30.0, 0.05);
        const int gw = ds->GetRasterXSize(), gh = ds->GetRasterYSize();
        EXPECT_STREQ(ds->GetRasterBand(1)->GetDescription(), "GLT Sample Lookup");
        GDALClose(ds);
        const std::vector<double> sample = readBand(glt, 1), line = readBand(glt, 2);
        const std::vector<double> v1 = readBand(out, 1), v2 = readBand(out, 2);
        ASSERT_EQ(v1.size(), size_t(gw) * gh);
        size_t direct = 0;
        for (int cy = 0; cy < gh; ++cy)
            for (int cx = 0; cx < gw; ++cx)
            {
                const size_t c = size_t(cy) * gw + cx;
                const double px = t[0] + t[1] * (cx + 0.5), py = t[3] + t[5] * (cy + 0.5);
                double best = HUGE_VAL;
                int nearest = -1;
                for (int k = 0; k < kW * kH; ++k)
                {
                    const double d = std::hypot(s.x[k] - px, s.y[k] - py);
                    if (d < best)
                    {
                        best = d;
                        nearest = k;
                    }
                }
                if (sample[c] > 0)
                {
                    ++direct;
                    ASSERT_LE(best, 1.5 * t[1]);
                    ASSERT_EQ(sample[c], nearest % kW + 1) << cx << "," << cy;
                    ASSERT_EQ(line[c], nearest / kW + 1) << cx << "," << cy;
                }
                else if (sample[c] == 0)
                {
                    ASSERT_EQ(v1[c], 0.0);
                    ASSERT_GT(best, 1.5 * t[1] - 1e-6) << cx << "," << cy;
                }
                if (sample[c] != 0)
                {
                    const int i = int(std::fabs(sample[c])) - 1, j = int(std::fabs(line[c])) - 1;
                    ASSERT_EQ(v1[c], 1 + i + 1000 * j);
                    ASSERT_EQ(v2[c], 2 * (1 + i + 1000 * j));
                }
            }
        if (degrees == 0.0)
        {
            // Unrotated: the grid is the swath's own, every cell its pixel.
            EXPECT_EQ(gw, kW);
            EXPECT_EQ(gh, kH);
            EXPECT_EQ(direct, size_t(kW * kH));
            for (int k = 0; k < kW * kH; ++k)
                ASSERT_EQ(v1[k], 1 + k % kW + 1000 * (k / kW));
        }
        else
            EXPECT_GT(direct, size_t(kW * kH) * 8 / 10);
    }
}

TEST(GeometricLookupTable, RefusesWhatIsNotALookupTableAndLeavesNothing)
{
    QTemporaryDir dir;
    const Swath s = makeSwath(dir, 10);
    const QString out = dir.filePath("out.tif");
    const struct
    {
        std::function<bool(AlgoResult*)> call;
        QString message;
    } rows[] = {
        {[&](AlgoResult* r) { return ExcuteAlgo_UsingGlt(s.image.toUtf8(), s.lat.toUtf8(), out.toUtf8(), "", 0, r); },
         "UsingGlt: the parameter GltFile (" + s.lat + ") is not a lookup table (two Int32 bands of samples and lines)!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_UsingGlt(s.image.toUtf8(), s.lat.toUtf8(), out.toUtf8(), "3", 0, r); },
         "UsingGlt: the parameter Bands (3) names a band that the InputFile (2 bands) does not have!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_BuildGLT(s.image.toUtf8(), "", "", out.toUtf8(), r); },
         "BuildGLT: the parameter InputFile (" + s.image + ") has no geolocation arrays, and LatFile and LonFile are empty!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_BuildGLT(s.image.toUtf8(), s.lat.toUtf8(), "", out.toUtf8(), r); },
         "BuildGLT: the parameter LonFile () is empty!"},
    };
    for (const auto& row : rows)
    {
        RecordingResult recording;
        StdoutCapture capture;
        EXPECT_FALSE(row.call(&recording.record));
        EXPECT_EQ(std::string(recording.record.message), row.message.toStdString());
        EXPECT_FALSE(QFileInfo::exists(out));
    }
}
