// RPC readers, bias correction and the orthorectification plug-ins: against GDAL's RPC transformer
// and gdalwarp, and a synthetic bias removed by control points.
#include "bias_correction.h"
#include "rpc_model.h"
#include "test_support.h"

#include <gdal_alg.h>
#include <gdal_utils.h>
#include <ogr_spatialref.h>

#include <QFile>
#include <QFileInfo>
#include <QTextStream>
#include <cmath>
#include <memory>

using namespace testsupport;
using optgeo::RpcModel;

namespace
{

// A small near-affine camera over 120 x 100 pixels at 10 E, 45 N, with some height parallax.
RpcModel syntheticRpc()
{
    RpcModel m;
    m.sampOff = 60;
    m.sampScale = 60;
    m.lineOff = 50;
    m.lineScale = 50;
    m.longOff = 10;
    m.longScale = 0.01;
    m.latOff = 45;
    m.latScale = 0.008;
    m.heightOff = 100;
    m.heightScale = 500;
    m.sampNum = {0.01, 1.0, 0.05, 0.03, 0.002, 0, 0, 0.001};
    m.sampDen = {1.0, 0.001, 0, 0, 0, 0, 0, 0, 0.0005};
    m.lineNum = {-0.02, 0.02, -1.0, 0.01, 0, 0.001, 0, 0, 0.002};
    m.lineDen = {1.0, 0, 0.002, 0, 0.0003};
    return m;
}

QString list(const std::array<double, 20>& v, const char* separator)
{
    QStringList items;
    for (double x : v)
        items << QString::number(x, 'e', 15);
    return items.join(separator);
}

QString rpbText(const RpcModel& m)
{
    QString t = "satId = \"XX\";\nbandId = \"P\";\nSpecId = \"RPC00B\";\nBEGIN_GROUP = IMAGE\n\terrBias = 1.0;\n\terrRand = 0.5;\n";
    const std::pair<const char*, double> s[] = {{"lineOffset", m.lineOff},   {"sampOffset", m.sampOff},
                                                {"latOffset", m.latOff},     {"longOffset", m.longOff},
                                                {"heightOffset", m.heightOff}, {"lineScale", m.lineScale},
                                                {"sampScale", m.sampScale},  {"latScale", m.latScale},
                                                {"longScale", m.longScale},  {"heightScale", m.heightScale}};
    for (const auto& kv : s)
        t += QString("\t%1 = %2;\n").arg(kv.first).arg(kv.second, 0, 'g', 17);
    t += "\tlineNumCoef = (\n\t\t\t" + list(m.lineNum, ",\n\t\t\t") + ");\n";
    t += "\tlineDenCoef = (\n\t\t\t" + list(m.lineDen, ",\n\t\t\t") + ");\n";
    t += "\tsampNumCoef = (\n\t\t\t" + list(m.sampNum, ",\n\t\t\t") + ");\n";
    t += "\tsampDenCoef = (\n\t\t\t" + list(m.sampDen, ",\n\t\t\t") + ");\n";
    return t + "END_GROUP = IMAGE\nEND;\n";
}

QString rpcTxtText(const RpcModel& m)
{
    QString t = QString("LINE_OFF: %1 pixels\nSAMP_OFF: %2 pixels\nLAT_OFF: %3 degrees\nLONG_OFF: %4 degrees\n"
                        "HEIGHT_OFF: %5 meters\nLINE_SCALE: %6 pixels\nSAMP_SCALE: %7 pixels\nLAT_SCALE: %8 degrees\n"
                        "LONG_SCALE: %9 degrees\n")
                    .arg(m.lineOff, 0, 'g', 17).arg(m.sampOff, 0, 'g', 17).arg(m.latOff, 0, 'g', 17)
                    .arg(m.longOff, 0, 'g', 17).arg(m.heightOff, 0, 'g', 17).arg(m.lineScale, 0, 'g', 17)
                    .arg(m.sampScale, 0, 'g', 17).arg(m.latScale, 0, 'g', 17).arg(m.longScale, 0, 'g', 17);
    t += QString("HEIGHT_SCALE: %1 meters\n").arg(m.heightScale, 0, 'g', 17);
    const std::pair<const char*, const std::array<double, 20>*> lists[] = {
        {"LINE_NUM_COEFF", &m.lineNum}, {"LINE_DEN_COEFF", &m.lineDen}, {"SAMP_NUM_COEFF", &m.sampNum}, {"SAMP_DEN_COEFF", &m.sampDen}};
    for (const auto& l : lists)
        for (int k = 0; k < 20; ++k)
            t += QString("%1_%2: %3\n").arg(l.first).arg(k + 1).arg((*l.second)[k], 0, 'e', 15);
    return t;
}

// GDAL's RPC metadata for a model, written independently of the plug-ins' own conversion.
CPLStringList gdalRpc(const RpcModel& m)
{
    CPLStringList md;
    auto num = [](double v) { return QString::number(v, 'g', 17).toStdString(); };
    md.SetNameValue("LINE_OFF", num(m.lineOff).c_str());
    md.SetNameValue("SAMP_OFF", num(m.sampOff).c_str());
    md.SetNameValue("LAT_OFF", num(m.latOff).c_str());
    md.SetNameValue("LONG_OFF", num(m.longOff).c_str());
    md.SetNameValue("HEIGHT_OFF", num(m.heightOff).c_str());
    md.SetNameValue("LINE_SCALE", num(m.lineScale).c_str());
    md.SetNameValue("SAMP_SCALE", num(m.sampScale).c_str());
    md.SetNameValue("LAT_SCALE", num(m.latScale).c_str());
    md.SetNameValue("LONG_SCALE", num(m.longScale).c_str());
    md.SetNameValue("HEIGHT_SCALE", num(m.heightScale).c_str());
    md.SetNameValue("LINE_NUM_COEFF", list(m.lineNum, " ").toUtf8().constData());
    md.SetNameValue("LINE_DEN_COEFF", list(m.lineDen, " ").toUtf8().constData());
    md.SetNameValue("SAMP_NUM_COEFF", list(m.sampNum, " ").toUtf8().constData());
    md.SetNameValue("SAMP_DEN_COEFF", list(m.sampDen, " ").toUtf8().constData());
    return md;
}

struct RpcTransformer
{
    explicit RpcTransformer(CSLConstList md, double height)
    {
        GDALRPCInfoV2 info{};
        GDALExtractRPCInfoV2(const_cast<char**>(md), &info);
        CPLStringList options;
        options.SetNameValue("RPC_HEIGHT", QString::number(height, 'g', 17).toUtf8().constData());
        handle = GDALCreateRPCTransformerV2(&info, FALSE, 0.01, options.List());
    }
    ~RpcTransformer() { GDALDestroyRPCTransformer(handle); }
    // image (GDAL convention) -> lon/lat, or back
    bool toGround(double* x, double* y) const
    {
        double z = 0;
        int ok = 0;
        GDALRPCTransform(handle, FALSE, 1, x, y, &z, &ok);
        return ok;
    }
    bool toImage(double* x, double* y) const
    {
        double z = 0;
        int ok = 0;
        GDALRPCTransform(handle, TRUE, 1, x, y, &z, &ok);
        return ok;
    }
    void* handle = nullptr;
};

void writeText(const QString& path, const QString& text)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text.toUtf8());
}

// A 2-band Float32 image whose pixels hold their own position (pixel, line of the centre), with a model.
void makeCoordinateImage(const QString& path, int width, int height, CSLConstList rpc)
{
    ASSERT_TRUE(makeRaster(path, width, height, 2, GDT_Float32,
                           [](int b, int x, int y) { return b == 0 ? x + 0.5 : y + 0.5; }, "GTiff", false));
    if (rpc)
    {
        GDALDataset* ds = GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_UPDATE | GDAL_OF_RASTER);
        ds->SetMetadata(const_cast<char**>(rpc), "RPC");
        GDALClose(ds);
    }
}

// Output pixel centres -> WGS 84 lon/lat.
struct OutputGrid
{
    explicit OutputGrid(GDALDataset* ds)
    {
        ds->GetGeoTransform(t);
        OGRSpatialReference wgs84;
        wgs84.SetWellKnownGeogCS("WGS84");
        wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        toLonLat.reset(OGRCreateCoordinateTransformation(ds->GetSpatialRef(), &wgs84));
    }
    void lonLat(int i, int j, double* lon, double* lat) const
    {
        *lon = t[0] + t[1] * (i + 0.5);
        *lat = t[3] + t[5] * (j + 0.5);
        toLonLat->Transform(1, lon, lat);
    }
    double t[6];
    std::unique_ptr<OGRCoordinateTransformation> toLonLat;
};

} // namespace

TEST(RpcText, BothLayoutsGiveTheModelAndItMapsLikeGdal)
{
    GDALAllRegister();
    const RpcModel m = syntheticRpc();
    RpcModel fromRpb, fromTxt, fromKeyList;
    std::string error;
    ASSERT_TRUE(optgeo::parseRpcText(rpbText(m).toStdString(), &fromRpb, &error)) << error;
    ASSERT_TRUE(optgeo::parseRpcText(rpcTxtText(m).toStdString(), &fromTxt, &error)) << error;
    // Key lists without the semicolons, line ends CR LF.
    ASSERT_TRUE(optgeo::parseRpcText(rpbText(m).remove(';').replace("\n", "\r\n").toStdString(), &fromKeyList, &error))
        << error;
    for (const RpcModel* r : {&fromRpb, &fromTxt, &fromKeyList})
    {
        EXPECT_DOUBLE_EQ(r->longScale, m.longScale);
        EXPECT_DOUBLE_EQ(r->heightOff, m.heightOff);
        for (int k = 0; k < 20; ++k)
        {
            EXPECT_DOUBLE_EQ(r->sampNum[k], m.sampNum[k]);
            EXPECT_DOUBLE_EQ(r->lineDen[k], m.lineDen[k]);
        }
    }
    EXPECT_DOUBLE_EQ(fromRpb.errBias, 1.0);
    // Ground to image against GDAL's transformer (which puts pixel centres at .5).
    const CPLStringList md = gdalRpc(m);
    for (double h : {-200.0, 100.0, 900.0})
    {
        const RpcTransformer gdal(md.List(), h);
        for (double lon : {9.992, 10.0, 10.007})
            for (double lat : {44.995, 45.003})
            {
                double s = 0, l = 0, x = lon, y = lat;
                optgeo::rpcGroundToImage(m, lon, lat, h, &s, &l);
                ASSERT_TRUE(gdal.toImage(&x, &y));
                EXPECT_NEAR(s + 0.5, x, 1e-6);
                EXPECT_NEAR(l + 0.5, y, 1e-6);
            }
    }
    const struct
    {
        QString text;
        const char* reason;
    } bad[] = {
        {rpbText(m).replace("sampScale", "sampScalf"), "the key sampscale is missing"},
        {rpcTxtText(m).remove(QRegExp("SAMP_DEN_COEFF_20:[^\n]*\n")), "the key sampdencoef does not hold 20 numbers"},
        {rpbText(m).replace("lineScale = 50", "lineScale = 0"), "a scale is zero"},
        {"", "the key lineoffset is missing"},
    };
    for (const auto& row : bad)
    {
        RpcModel out;
        EXPECT_FALSE(optgeo::parseRpcText(row.text.toStdString(), &out, &error));
        EXPECT_EQ(error, row.reason);
    }
}

TEST(RpcText, ControlPointLists)
{
    std::vector<optgeo::ControlPoint> points;
    std::string error;
    ASSERT_TRUE(optgeo::parseControlPoints("# pixel line lon lat h\n10.5, 20.5, 9.99, 45.01, 120\n\n3 4\t10.0 45.0\r\n",
                                           &points, &error));
    ASSERT_EQ(points.size(), 2u);
    EXPECT_DOUBLE_EQ(points[0].line, 20.5);
    EXPECT_TRUE(points[0].hasHeight);
    EXPECT_DOUBLE_EQ(points[0].height, 120);
    EXPECT_FALSE(points[1].hasHeight);
    EXPECT_DOUBLE_EQ(points[1].lat, 45.0);
    const std::pair<const char*, const char*> bad[] = {
        {"1 2 3\n", "line 1 has 3 values instead of pixel, line, longitude, latitude[, height]"},
        {"1 2 3 4\n1 2 x 4\n", "line 2 holds x, which is not a number"},
        {"1 2 200 4\n", "line 1 has a longitude or latitude out of range"},
    };
    for (const auto& row : bad)
    {
        EXPECT_FALSE(optgeo::parseControlPoints(row.first, &points, &error));
        EXPECT_EQ(error, row.second);
    }
}

TEST(BiasCorrection, AffineFitAndFoldedModelReproduceTheCorrection)
{
    const std::vector<optgeo::ImagePoint> predicted{{10, 10}, {100, 15}, {50, 90}, {80, 70}};
    std::vector<optgeo::ImagePoint> measured;
    for (const auto& p : predicted)
        measured.push_back({p.pixel + 3 + 0.01 * p.pixel - 0.02 * p.line, p.line - 2 + 0.005 * p.pixel});
    const optgeo::ImageBias bias = optgeo::fitImageBias(predicted, measured);
    EXPECT_TRUE(bias.affine);
    EXPECT_NEAR(bias.pixel[0], 3, 1e-9);
    EXPECT_NEAR(bias.pixel[2], -0.02, 1e-12);
    EXPECT_NEAR(bias.line[1], 0.005, 1e-12);
    const optgeo::ImageBias shift = optgeo::fitImageBias({{1, 1}, {5, 5}}, {{3, 0}, {8, 4}});
    EXPECT_FALSE(shift.affine);
    EXPECT_DOUBLE_EQ(shift.pixel[0], 2.5);
    EXPECT_DOUBLE_EQ(shift.line[0], -1.0);

    const RpcModel m = syntheticRpc();
    double worst = 1;
    const RpcModel folded = optgeo::foldBiasIntoModel(m, bias, 9.99, 10.01, 44.992, 45.008, -400, 600, &worst);
    EXPECT_LT(worst, 0.01);
    double s = 0, l = 0, s2 = 0, l2 = 0, cs = 0, cl = 0;
    optgeo::rpcGroundToImage(m, 10.004, 44.997, 250, &s, &l);
    optgeo::rpcGroundToImage(folded, 10.004, 44.997, 250, &s2, &l2);
    bias.apply(s + 0.5, l + 0.5, &cs, &cl);
    EXPECT_NEAR(s2 + 0.5, cs, 0.01);
    EXPECT_NEAR(l2 + 0.5, cl, 0.01);
}

TEST(Orthorectification, RefusalsNameTheParameterAndLeaveNothing)
{
    QTemporaryDir dir;
    const QString plain = dir.filePath("plain.tif"), rpb = dir.filePath("bad.rpb"), gcp = dir.filePath("bad.txt");
    const QString withRpc = dir.filePath("with_rpc.tif"), out = dir.filePath("out.tif");
    makeCoordinateImage(plain, 12, 10, nullptr);
    const CPLStringList md = gdalRpc(syntheticRpc());
    makeCoordinateImage(withRpc, 12, 10, md.List());
    writeText(rpb, "lineOffset = 1;\n");
    writeText(gcp, "1 2 3\n");
    const QByteArray o = out.toUtf8();
    const struct
    {
        std::function<bool(AlgoResult*)> call;
        QString message;
    } rows[] = {
        {[&](AlgoResult* r) { return ExcuteAlgo_VYROrtho(plain.toUtf8(), "", "", "", o, 0, "", 0, 0, 0, r); },
         "VYROrtho: the parameter InputFile (" + plain + ") has no RPC model, and no RPCFile is given!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_VYROrtho(plain.toUtf8(), "", rpb.toUtf8(), "", o, 0, "", 0, 0, 0, r); },
         "VYROrtho: the parameter RPCFile (" + rpb + ") is not an RPC file (the key sampoffset is missing)!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_VYROrtho(withRpc.toUtf8(), "", "", gcp.toUtf8(), o, 0, "", 0, 0, 0, r); },
         "VYROrtho: the parameter GCPFile (" + gcp + ") cannot be read: line 1 has 3 values instead of pixel, line, "
                                                   "longitude, latitude[, height]!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_VYROrtho(withRpc.toUtf8(), "", "", "", o, 0, "lanczos", 0, 0, 0, r); },
         "VYROrtho: the parameter ResampleMethod (lanczos) must be one of nearest, bilinear, cubic!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_VYROrtho(withRpc.toUtf8(), "", "", "", o, -2, "", 0, 0, 0, r); },
         "VYROrtho: the parameter Resolution (-2) must be at least 0!"},
        {[&](AlgoResult* r) {
             return ExcuteAlgo_HysOrthorectification(withRpc.toUtf8(), "", "", "", o, "", 9, 0, 0, 0, r); },
         "HysOrthorectification: the parameter OutputType (9) must be between 0 and 7!"},
    };
    for (const auto& row : rows)
    {
        RecordingResult recording;
        StdoutCapture capture;
        EXPECT_FALSE(row.call(&recording.record)) << row.message.toStdString();
        EXPECT_EQ(std::string(recording.record.message), row.message.toStdString());
        EXPECT_FALSE(QFileInfo::exists(out));
        EXPECT_FALSE(QFileInfo::exists(dir.filePath("out_gcp_residuals.csv")));
    }
}

// The sample image's RPC with a DEM made here: every output pixel must hold (to half a pixel) the
// image position that gdalwarp -rpc -to RPC_DEM=... puts there on the same grid.
TEST(Orthorectification, AgreesWithGdalwarpOnTheSameGrid)
{
    SKIP_WITHOUT_SHARED_DATA("gdal/RGB.byte.rpc.vrt");
    GDALAllRegister();
    QTemporaryDir dir;
    GDALDataset* sample = GDALDataset::Open(sharedDataPath("gdal/RGB.byte.rpc.vrt").toUtf8().constData(), GDAL_OF_RASTER);
    ASSERT_NE(sample, nullptr);
    const QString coords = dir.filePath("coords.tif"), dem = dir.filePath("dem.tif"), out = dir.filePath("ortho.tif");
    makeCoordinateImage(coords, 791, 718, sample->GetMetadata("RPC"));
    GDALClose(sample);
    ASSERT_TRUE(makeRaster(dem, 200, 150, 1, GDT_Float32,
                           [](int, int x, int y) { return 200 + 80 * std::sin(x / 15.0) + 60 * std::cos(y / 11.0); },
                           "GTiff", false));
    {
        GDALDataset* ds = GDALDataset::Open(dem.toUtf8().constData(), GDAL_OF_UPDATE | GDAL_OF_RASTER);
        double t[6] = {-123.8, 0.005, 0, 49.8, 0, -0.005};
        ds->SetGeoTransform(t);
        OGRSpatialReference srs;
        srs.importFromEPSG(4326);
        ds->SetSpatialRef(&srs);
        GDALClose(ds);
    }
    {
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_VYROrtho(coords.toUtf8(), dem.toUtf8(), "", "", out.toUtf8(), 0, "bilinear", 0, 0, 0, nullptr));
    }
    GDALDataset* ours = GDALDataset::Open(out.toUtf8().constData(), GDAL_OF_RASTER);
    ASSERT_NE(ours, nullptr);
    const OGRSpatialReference* srs = ours->GetSpatialRef();
    ASSERT_NE(srs, nullptr);
    EXPECT_EQ(srs->GetUTMZone(), 10);
    double t[6];
    ours->GetGeoTransform(t);
    const int w = ours->GetRasterXSize(), h = ours->GetRasterYSize();
    CPLStringList options;
    for (const char* o : {"-rpc", "-r", "bilinear", "-t_srs", "EPSG:32610", "-dstnodata", "0"})
        options.AddString(o);
    options.AddString("-to");
    options.AddString(("RPC_DEM=" + dem).toUtf8().constData());
    options.AddString("-te");
    for (double v : {t[0], t[3] + t[5] * h, t[0] + t[1] * w, t[3]})
        options.AddString(QString::number(v, 'f', 6).toUtf8().constData());
    options.AddString("-ts");
    options.AddString(QString::number(w).toUtf8().constData());
    options.AddString(QString::number(h).toUtf8().constData());
    GDALWarpAppOptions* warpOptions = GDALWarpAppOptionsNew(options.List(), nullptr);
    GDALDatasetH src = GDALOpen(coords.toUtf8().constData(), GA_ReadOnly);
    GDALDatasetH peer = GDALWarp(dir.filePath("peer.tif").toUtf8().constData(), nullptr, 1, &src, warpOptions, nullptr);
    GDALWarpAppOptionsFree(warpOptions);
    GDALClose(src);
    ASSERT_NE(peer, nullptr);
    GDALClose(peer);
    double worst = 0, total = 0;
    size_t both = 0, onlyOne = 0;
    for (int band = 1; band <= 2; ++band)
    {
        const std::vector<double> a = readBand(out, band), b = readBand(dir.filePath("peer.tif"), band);
        for (size_t i = 0; i < a.size(); ++i)
        {
            if ((a[i] > 0) != (b[i] > 0))
                ++onlyOne;
            if (a[i] > 1 && b[i] > 1 && a[i] < (band == 1 ? 790 : 717) && b[i] < (band == 1 ? 790 : 717))
            {
                worst = std::max(worst, std::fabs(a[i] - b[i]));
                total += std::fabs(a[i] - b[i]);
                ++both;
            }
        }
    }
    GDALClose(ours);
    ASSERT_GT(both, 300000u);
    EXPECT_LT(worst, 0.5);
    EXPECT_LT(total / both, 0.05);
    EXPECT_LT(double(onlyOne) / both, 0.01);
}

// An RPC off by several pixels (shift and scale) is corrected by control points measured with the true
// model; at every output pixel the image position must then be the true model's to within 0.2 pixel.
TEST(Orthorectification, ControlPointsRemoveASyntheticBias)
{
    QTemporaryDir dir;
    const RpcModel truth = syntheticRpc();
    RpcModel biased = truth;
    biased.sampOff += 4.3;
    biased.lineOff -= 3.1;
    biased.sampScale *= 1.004;
    const QString image = dir.filePath("coords.tif"), rpb = dir.filePath("biased.rpb"), gcp = dir.filePath("gcp.txt");
    const QString out = dir.filePath("ortho.tif");
    makeCoordinateImage(image, 120, 100, nullptr);
    writeText(rpb, rpbText(biased));
    const CPLStringList trueMd = gdalRpc(truth);
    const double groundHeight = 250;
    const RpcTransformer trueAtGround(trueMd.List(), groundHeight);
    QString points;
    for (double p : {10.5, 60.5, 110.5})
        for (double l : {8.5, 90.5})
        {
            double x = p, y = l;
            ASSERT_TRUE(trueAtGround.toGround(&x, &y));
            points += QString("%1, %2, %3, %4, %5\n").arg(p).arg(l).arg(x, 0, 'g', 17).arg(y, 0, 'g', 17).arg(groundHeight);
        }
    writeText(gcp, points);
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_VYROrtho(image.toUtf8(), "", rpb.toUtf8(), gcp.toUtf8(), out.toUtf8(), 5, "bilinear", 0,
                                    float(groundHeight), 0, nullptr));
    const std::string printed = capture.text();
    const QString residuals = dir.filePath("ortho_gcp_residuals.csv");
    EXPECT_NE(printed.find("[OUTPUT] GCPResidualFile=\"" + residuals.toStdString() + "\"\n"), std::string::npos) << printed;
    EXPECT_NE(printed.find("[OUTPUT] GCPModel=\"affine\"\n"), std::string::npos) << printed;
    const size_t at = printed.find("[OUTPUT] GCPRMSE=\"");
    ASSERT_NE(at, std::string::npos);
    EXPECT_LT(std::stod(printed.substr(at + 18)), 0.01);
    QFile csv(residuals);
    ASSERT_TRUE(csv.open(QIODevice::ReadOnly));
    EXPECT_EQ(QString(csv.readAll()).count('\n'), 7);

    GDALDataset* ds = GDALDataset::Open(out.toUtf8().constData(), GDAL_OF_RASTER);
    ASSERT_NE(ds, nullptr);
    double t[6];
    ds->GetGeoTransform(t);
    EXPECT_DOUBLE_EQ(t[1], 5.0);
    const OutputGrid grid(ds);
    const int w = ds->GetRasterXSize(), h = ds->GetRasterYSize();
    GDALClose(ds);
    const std::vector<double> px = readBand(out, 1), ln = readBand(out, 2);
    double worst = 0;
    size_t checked = 0;
    for (int j = 0; j < h; ++j)
        for (int i = 0; i < w; ++i)
        {
            const size_t k = size_t(j) * w + i;
            if (px[k] < 1.5 || ln[k] < 1.5 || px[k] > 118.5 || ln[k] > 98.5)
                continue;
            double x = 0, y = 0;
            grid.lonLat(i, j, &x, &y);
            ASSERT_TRUE(trueAtGround.toImage(&x, &y));
            worst = std::max({worst, std::fabs(px[k] - x), std::fabs(ln[k] - y)});
            ++checked;
        }
    EXPECT_GT(checked, 1000u);
    EXPECT_LT(worst, 0.2);

    // Stopped by the host after the residuals were written: neither they nor the image stay.
    RecordingResult stop;
    stop.answer = -1;
    const QString stopped = dir.filePath("stopped.tif");
    bool ok = true;
    {
        StdoutCapture quiet;
        ok = ExcuteAlgo_VYROrtho(image.toUtf8(), "", rpb.toUtf8(), gcp.toUtf8(), stopped.toUtf8(), 5, "bilinear", 0,
                                 float(groundHeight), 0, &stop.record);
    }
    EXPECT_FALSE(ok);
    EXPECT_EQ(stop.record.code, -2);
    EXPECT_FALSE(QFileInfo::exists(stopped));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("stopped_gcp_residuals.csv")));
}

TEST(Orthorectification, HyperspectralCubeKeepsItsBandMetadataAndTakesTheOutputType)
{
    QTemporaryDir dir;
    const QString cube = dir.filePath("cube.tif"), out = dir.filePath("cube_ortho.img");
    ASSERT_TRUE(makeRaster(cube, 40, 30, 5, GDT_Int16, [](int b, int x, int y) { return 100 * b + x + y; }, "GTiff", false));
    {
        GDALDataset* ds = GDALDataset::Open(cube.toUtf8().constData(), GDAL_OF_UPDATE | GDAL_OF_RASTER);
        const CPLStringList md = gdalRpc(syntheticRpc());
        ds->SetMetadata(const_cast<char**>(md.List()), "RPC");
        for (int b = 1; b <= 5; ++b)
        {
            ds->GetRasterBand(b)->SetMetadataItem("wavelength", QString::number(400 + 10 * b).toUtf8().constData());
            ds->GetRasterBand(b)->SetMetadataItem("fwhm", "9.5");
            ds->GetRasterBand(b)->SetDescription(QString("Band %1").arg(b).toUtf8().constData());
        }
        GDALClose(ds);
    }
    // A DEM far from the scene: a note, and the default height everywhere.
    const QString dem = dir.filePath("elsewhere.tif");
    ASSERT_TRUE(makeRaster(dem, 20, 20, 1, GDT_Float32, [](int, int, int) { return 3000.0; }));
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_HysOrthorectification(cube.toUtf8(), dem.toUtf8(), "", "", out.toUtf8(), "nearest", 6, 10, 100, 0,
                                                 nullptr));
    EXPECT_NE(capture.text().find("[INFO] HysOrthorectification: the DEMFile does not cover the whole scene; DefaultHeight "
                                  "(100) is used where it has no height\n"),
              std::string::npos);
    GDALDataset* ds = GDALDataset::Open(out.toUtf8().constData(), GDAL_OF_RASTER);
    ASSERT_NE(ds, nullptr);
    EXPECT_EQ(ds->GetRasterCount(), 5);
    EXPECT_EQ(ds->GetRasterBand(1)->GetRasterDataType(), GDT_Float32);
    EXPECT_STREQ(ds->GetRasterBand(4)->GetMetadataItem("wavelength"), "440");
    EXPECT_STREQ(ds->GetRasterBand(4)->GetMetadataItem("fwhm"), "9.5");
    double t[6];
    ds->GetGeoTransform(t);
    EXPECT_DOUBLE_EQ(t[1], 10.0);
    // Nearest neighbour keeps the band offsets: every valid pixel of band 4 minus band 1 is 300.
    const std::vector<double> b1 = readBand(out, 1), b4 = readBand(out, 4);
    size_t valid = 0;
    for (size_t i = 0; i < b1.size(); ++i)
        if (b1[i] != 0)
        {
            ++valid;
            ASSERT_EQ(b4[i] - b1[i], 300.0);
        }
    EXPECT_GT(valid, 100u);
    GDALClose(ds);
}
