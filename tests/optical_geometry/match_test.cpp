// Image-to-image registration: a georeferencing error of known rotation and sub-pixel shift undone on
// two crops of the Landsat 8 pan; the pan against band 4 gives the offset that phase correlation of the
// whole images gives; too few tie points are refused.
#include "test_support.h"

#include <gdal_utils.h>

#include <QFile>
#include <QFileInfo>
#include <QTextStream>
#include <cmath>

using namespace testsupport;

namespace
{

struct Tie
{
    double x, y, u, v;
};

// Inlier tie points of a CSV written by the plug-in: reference pixel, input pixel.
std::vector<Tie> readTies(const QString& path)
{
    std::vector<Tie> ties;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return ties;
    QTextStream in(&file);
    in.readLine();
    while (!in.atEnd())
    {
        const QStringList f = in.readLine().remove('"').split(',');
        if (f.size() == 11 && f[10] == "1")
            ties.push_back({f[3].toDouble(), f[4].toDouble(), f[5].toDouble(), f[6].toDouble()});
    }
    return ties;
}

QString translate(const QString& source, const QString& target, const QStringList& arguments)
{
    CPLStringList options;
    for (const QString& a : arguments)
        options.AddString(a.toUtf8().constData());
    GDALTranslateOptions* o = GDALTranslateOptionsNew(options.List(), nullptr);
    GDALDatasetH src = GDALOpen(source.toUtf8().constData(), GA_ReadOnly);
    GDALDatasetH out = GDALTranslate(target.toUtf8().constData(), src, o, nullptr);
    GDALTranslateOptionsFree(o);
    GDALClose(src);
    GDALClose(out);
    return target;
}

} // namespace

TEST(ImageMatching, ARotatedAndShiftedGeoreferencingIsUndone)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_B8.tif");
    GDALAllRegister();
    QTemporaryDir dir;
    const QString pan = sharedDataPath("landsat8/l8_B8.tif");
    const QString ref = translate(pan, dir.filePath("ref.tif"), {"-srcwin", "300", "300", "480", "480"});
    const QString in = translate(pan, dir.filePath("in.tif"), {"-srcwin", "250", "280", "600", "560"});
    // The input's georeferencing turned by 1 degree about its centre and moved by (0.37, -0.61) pixels.
    {
        GDALDataset* ds = GDALDataset::Open(in.toUtf8().constData(), GDAL_OF_UPDATE | GDAL_OF_RASTER);
        double t[6];
        ds->GetGeoTransform(t);
        const double a = 1.0 * M_PI / 180, c = std::cos(a), s = std::sin(a), px = t[1];
        const double cx = t[0] + px * 300, cy = t[3] - px * 280; // centre of the crop
        double r[6] = {0, px * c, -px * s, 0, -px * s, -px * c};
        // centre stays put, then the shift
        r[0] = cx - (r[1] * 300 + r[2] * 280) + 0.37 * px;
        r[3] = cy - (r[4] * 300 + r[5] * 280) + 0.61 * px;
        // (GeoTIFF rewrites its keys with a rotated transform: the reference system is set again.)
        OGRSpatialReference srs(*ds->GetSpatialRef());
        ds->SetGeoTransform(r);
        ds->SetSpatialRef(&srs);
        GDALClose(ds);
    }
    {
        // The error is real: by its georeferencing, the reference centre falls elsewhere in the input.
        double t[6], inv[6], rt[6];
        GDALDataset* ds = GDALDataset::Open(in.toUtf8().constData(), GDAL_OF_RASTER);
        ds->GetGeoTransform(t);
        GDALClose(ds);
        ds = GDALDataset::Open(ref.toUtf8().constData(), GDAL_OF_RASTER);
        ds->GetGeoTransform(rt);
        GDALClose(ds);
        ASSERT_TRUE(GDALInvGeoTransform(t, inv));
        const double x = rt[0] + rt[1] * 240, y = rt[3] + rt[5] * 240;
        const double u = inv[0] + inv[1] * x + inv[2] * y, v = inv[3] + inv[4] * x + inv[5] * y;
        EXPECT_GT(std::hypot(u - 290, v - 260), 0.5);
    }
    for (const char* method : {"PHASE", "NCC", "SIFT"})
    {
        const QString out = dir.filePath(QString("reg_%1.tif").arg(method)), csv = dir.filePath(QString("ties_%1.csv").arg(method));
        {
            StdoutCapture capture;
            ASSERT_TRUE(ExcuteAlgo_VYRMatch(ref.toUtf8(), in.toUtf8(), out.toUtf8(), method, "", csv.toUtf8(), 15, 0, 200, nullptr))
                << method;
            const std::string printed = capture.text();
            EXPECT_NE(printed.find("[OUTPUT] RMSE=\""), std::string::npos) << printed;
        }
        const std::vector<Tie> ties = readTies(csv);
        ASSERT_GE(ties.size(), 20u) << method;
        // Least-squares affine u = a0 + a1 x + a2 y (and v) from the tie points; the truth is u = x + 50,
        // v = y + 20 (both crops of one image).
        double sxx = 0, sxy = 0, syy = 0, sx = 0, sy = 0, su = 0, sv = 0, sxu = 0, syu = 0, sxv = 0, syv = 0;
        const double n = double(ties.size());
        for (const Tie& t : ties)
        {
            sx += t.x; sy += t.y; sxx += t.x * t.x; sxy += t.x * t.y; syy += t.y * t.y;
            su += t.u; sv += t.v; sxu += t.x * t.u; syu += t.y * t.u; sxv += t.x * t.v; syv += t.y * t.v;
        }
        // centred normal equations
        const double mx = sx / n, my = sy / n, mu = su / n, mv = sv / n;
        const double cxx = sxx / n - mx * mx, cxy = sxy / n - mx * my, cyy = syy / n - my * my;
        const double cxu = sxu / n - mx * mu, cyu = syu / n - my * mu, cxv = sxv / n - mx * mv, cyv = syv / n - my * mv;
        const double det = cxx * cyy - cxy * cxy;
        const double a1 = (cxu * cyy - cyu * cxy) / det, a2 = (cyu * cxx - cxu * cxy) / det;
        const double b1 = (cxv * cyy - cyv * cxy) / det, b2 = (cyv * cxx - cxv * cxy) / det;
        const double rotation = std::atan2(b1 - a2, a1 + b2) * 180 / M_PI;
        EXPECT_LT(std::fabs(rotation), 0.05) << method;
        // The mapping at the centre of the reference: (240, 240) -> (290, 260).
        const double u = mu + a1 * (240 - mx) + a2 * (240 - my), v = mv + b1 * (240 - mx) + b2 * (240 - my);
        EXPECT_NEAR(u, 290.0, 0.1) << method;
        EXPECT_NEAR(v, 260.0, 0.1) << method;
        // The registered image is the reference where both have data.
        const std::vector<double> a = readBand(ref, 1), b = readBand(out, 1);
        double diff = 0;
        size_t count = 0;
        for (int y = 20; y < 460; ++y)
            for (int x = 20; x < 460; ++x)
                if (b[y * 480 + x] > 0)
                {
                    diff += std::fabs(a[y * 480 + x] - b[y * 480 + x]);
                    ++count;
                }
        EXPECT_GT(count, 150000u) << method;
        EXPECT_LT(diff / count, 60.0) << method; // DN; the scene's own spread is in the thousands
    }
}

// Reference numbers: cv2.phaseCorrelate (Hanning window) between the pan area-averaged onto the band 4
// grid and band 4, 512 x 512 pixels from (50, 50): band 4 lies (+0.575, -1.261) band-4 pixels from
// where the georeferencing puts it (numpy and OpenCV 4.6, run once on ../shared/data/landsat8).
TEST(ImageMatching, LandsatPanAgainstBand4GivesThePhaseCorrelationOffset)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_B4.tif");
    QTemporaryDir dir;
    const QString out = dir.filePath("b4.tif"), csv = dir.filePath("b4.csv");
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_VYRMatch(sharedDataPath("landsat8/l8_B8.tif").toUtf8(), sharedDataPath("landsat8/l8_B4.tif").toUtf8(),
                                    out.toUtf8(), "SIFT", "", csv.toUtf8(), 10, 0.8, 400, nullptr));
    const std::vector<Tie> ties = readTies(csv);
    ASSERT_GE(ties.size(), 50u);
    double du = 0, dv = 0;
    for (const Tie& t : ties)
    {
        // where the georeferencing puts the reference pixel in band 4 (pan origin 7.5 m west and north)
        du += t.u - (t.x * 15 - 7.5) / 30;
        dv += t.v - (t.y * 15 - 7.5) / 30;
    }
    EXPECT_NEAR(du / ties.size(), 0.575, 0.15);
    EXPECT_NEAR(dv / ties.size(), -1.261, 0.15);
}

TEST(ImageMatching, RefusesTooFewTiePointsAndLeavesNothing)
{
    QTemporaryDir dir;
    const QString ref = dir.filePath("ref.tif"), flat = dir.filePath("flat.tif"), out = dir.filePath("out.tif");
    ASSERT_TRUE(makeRaster(ref, 200, 200, 1, GDT_Float32, [](int, int x, int y) { return std::sin(x / 7.0) * std::cos(y / 5.0) * 100; }));
    ASSERT_TRUE(makeRaster(flat, 200, 200, 1, GDT_Float32, [](int, int, int) { return 5.0; }));
    const struct
    {
        std::function<bool(AlgoResult*)> call;
        QString message;
    } rows[] = {
        {[&](AlgoResult* r) { return ExcuteAlgo_VYRMatch(ref.toUtf8(), flat.toUtf8(), out.toUtf8(), "NCC", "", "", 5, 0, 50, r); },
         "VYRMatch: the parameter InputFile (" + flat + ") gives 0 consistent tie points with the ReferenceFile, fewer than "
                                                          "the 3 that a polynomial of order 1 needs!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_VYRMatch(ref.toUtf8(), flat.toUtf8(), out.toUtf8(), "LSM", "", "", 5, 0, 50, r); },
         "VYRMatch: the parameter MatchMethod (LSM) must be one of SIFT, ORB, NCC, PHASE!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_VYRMatch(ref.toUtf8(), flat.toUtf8(), out.toUtf8(), "NCC", "", "", 5, 1.5, 50, r); },
         "VYRMatch: the parameter Threshold (1.5) must be between 0 and 1!"},
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
