// Pan-sharpening plug-ins through their entries: refusals, alignment through georeferencing, what
// the output carries, and the Landsat 8 sample against GDAL's own pan-sharpening.
#include "test_support.h"

#include <cpl_string.h>
#include <gdal_utils.h>

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonArray>
#include <cmath>

using namespace testsupport;

namespace
{

// Multispectral grid: origin (1000, 2000), 30 m. Pan: 15 m, origin half a pan pixel west and north
// of it (the Landsat layout), 44 x 40 pixels, so its last columns and rows lie beyond the multispectral.
const double kMsTransform[6] = {1000, 30, 0, 2000, 0, -30};
const double kPanTransform[6] = {992.5, 15, 0, 2007.5, 0, -15};
constexpr int kMsW = 20, kMsH = 18, kPanW = 44, kPanH = 40;

// Band values as linear functions of map position.
double plane(int band, double x, double y)
{
    const double a[] = {40, 70, 55}, bx[] = {1.5, -0.7, 0.4}, by[] = {0.3, 1.1, -0.9};
    return a[band] + bx[band] * (x - 1000) / 30 + by[band] * (2000 - y) / 30;
}
// Rank-one bands: offsets plus multiples of one plane (principal components: one).
double rankOne(int band, double x, double y)
{
    const double a[] = {40, 70, 55}, c[] = {1.0, 0.6, -0.4};
    return a[band] + c[band] * ((x - 1000) / 30 + 0.5 * (2000 - y) / 30);
}

void setTransform(const QString& path, const double* transform)
{
    GDALDataset* ds = GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_UPDATE | GDAL_OF_RASTER);
    ASSERT_NE(ds, nullptr);
    ds->SetGeoTransform(const_cast<double*>(transform));
    GDALClose(ds);
}

// Writes the multispectral file from f(band, map x, map y) at pixel centres, and the pan from g(x, y).
void makePair(const QString& ms, const QString& pan, const std::function<double(int, double, double)>& f,
              const std::function<double(double, double)>& g, int msBands = 3, GDALDataType msType = GDT_Float32)
{
    auto centreX = [](const double* t, int i) { return t[0] + t[1] * (i + 0.5); };
    auto centreY = [](const double* t, int j) { return t[3] + t[5] * (j + 0.5); };
    ASSERT_TRUE(makeRaster(ms, kMsW, kMsH, msBands, msType, [&](int b, int i, int j) {
        return f(b, centreX(kMsTransform, i), centreY(kMsTransform, j));
    }));
    ASSERT_TRUE(makeRaster(pan, kPanW, kPanH, 1, GDT_Float32, [&](int, int i, int j) {
        return g(centreX(kPanTransform, i), centreY(kPanTransform, j));
    }));
    setTransform(ms, kMsTransform);
    setTransform(pan, kPanTransform);
}

struct Outcome
{
    bool ok = false;
    std::string printed;
    std::string message;
};

Outcome run(const std::function<bool(AlgoResult*)>& call)
{
    RecordingResult recording;
    Outcome r;
    {
        StdoutCapture capture;
        r.ok = call(&recording.record);
        r.printed = capture.text();
    }
    r.message = recording.record.message;
    return r;
}

QJsonObject readJson(const QString& path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return QJsonDocument::fromJson(file.readAll()).object();
}

} // namespace

TEST(FusionPlugins, RefusalsNameTheParameterAndLeaveNothing)
{
    QTemporaryDir dir;
    const QString ms = dir.filePath("ms.tif"), pan = dir.filePath("pan.tif"), one = dir.filePath("one.tif");
    const QString far = dir.filePath("far.tif"), plain = dir.filePath("plain.tif"), other = dir.filePath("other.tif");
    makePair(ms, pan, plane, [](double x, double y) { return plane(0, x, y); });
    ASSERT_TRUE(makeRaster(one, kMsW, kMsH, 1, GDT_Float32, [](int, int x, int y) { return x + y; }));
    setTransform(one, kMsTransform);
    ASSERT_TRUE(makeRaster(far, kMsW, kMsH, 3, GDT_Float32, [](int, int x, int y) { return x + y; }));
    const double farTransform[6] = {90000, 30, 0, 2000, 0, -30};
    setTransform(far, farTransform);
    ASSERT_TRUE(makeRaster(plain, kPanW, kPanH, 1, GDT_Float32, [](int, int x, int y) { return x; }, "GTiff", false));
    ASSERT_TRUE(makeRaster(other, kMsW, kMsH, 3, GDT_Float32, [](int, int x, int y) { return x + y; }));
    {
        GDALDataset* ds = GDALDataset::Open(other.toUtf8().constData(), GDAL_OF_UPDATE | GDAL_OF_RASTER);
        OGRSpatialReference srs;
        srs.importFromEPSG(32633);
        ds->SetSpatialRef(&srs);
        ds->SetGeoTransform(const_cast<double*>(kMsTransform));
        GDALClose(ds);
    }
    const QByteArray p = pan.toUtf8(), m = ms.toUtf8(), o = one.toUtf8(), f = far.toUtf8(), n = plain.toUtf8();
    const QByteArray t = other.toUtf8(), out = dir.filePath("out.tif").toUtf8();
    const struct
    {
        std::function<bool(AlgoResult*)> call;
        QString message;
    } rows[] = {
        {[&](AlgoResult* r) { return ExcuteAlgo_PansharpFuseAlg(p, o, out, 1, r); },
         "PansharpFuseAlg: the parameter MultiFile (" + one + ") has 1 band to fuse, and the method needs at least 2!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_PansharpFuseAlg(p, m, out, 5, r); },
         "PansharpFuseAlg: the parameter Method (5) must be between 0 and 4!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_PansharpFuseAlg(p, f, out, 0, r); },
         "PansharpFuseAlg: the parameter MultiFile (" + far + ") does not overlap the PanFile!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_PansharpFuseAlg(p, t, out, 0, r); },
         "PansharpFuseAlg: the parameter MultiFile (" + other + ") is not in the reference system of the PanFile!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_PansharpFuseAlgPCA(p, m, out, 1, "1|7", r); },
         "PansharpFusePCA: the parameter Bands (1|7) names a band that the MultiFile (3 bands) does not have!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_PansharpFuseAlgPCA(p, m, out, 1, "2", r); },
         "PansharpFusePCA: the parameter MultiFile (" + ms + ") has 1 band to fuse, and the method needs at least 2!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_FusionalgoSFIM(p, m, out, 3, "", r); },
         "FusionalgoSFIM: the parameter ResampleMethod (3) must be between 0 and 2!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_FusionalgoSFIM(n, m, out, 1, "", r); },
         "FusionalgoSFIM: the parameter PanFile (" + plain + ") has no georeferencing while the other image has!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_Fusionalgo(p, m, out, 1, "0|1", r); },
         "FusionalgoCNS: the parameter Bands (0|1) names a band that the MultiFile (3 bands) does not have!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_Fusionalgo(p, dir.filePath("none.tif").toUtf8(), out, 1, "", r); },
         "FusionalgoCNS: the parameter MultiFile (" + dir.filePath("none.tif") + ") is not an existing file!"},
    };
    for (const auto& row : rows)
    {
        const Outcome r = run(row.call);
        EXPECT_FALSE(r.ok) << row.message.toStdString();
        EXPECT_EQ(r.message, row.message.toStdString());
        EXPECT_EQ(r.printed.find("[OUTPUT]"), std::string::npos);
        EXPECT_FALSE(QFileInfo::exists(dir.filePath("out.tif"))) << row.message.toStdString();
        EXPECT_FALSE(QFileInfo::exists(dir.filePath("out_quality.json"))) << row.message.toStdString();
    }
}

// When the pan is what the bands predict at its resolution, every method must give back the bands
// interpolated at the pan's pixel centres; a grid off by the half-pixel shift would not.
TEST(FusionPlugins, EveryMethodReturnsTheBandsWhereThePanAddsNoDetail)
{
    QTemporaryDir dir;
    const QString ms = dir.filePath("ms.tif"), pan = dir.filePath("pan.tif");
    const QString ms1 = dir.filePath("ms1.tif"), pan1 = dir.filePath("pan1.tif"), pan12 = dir.filePath("pan12.tif");
    const double w[] = {0.2, 0.3, 0.5};
    auto mix = [&](double x, double y) { return w[0] * plane(0, x, y) + w[1] * plane(1, x, y) + w[2] * plane(2, x, y); };
    makePair(ms, pan, plane, mix);
    makePair(ms1, pan1, rankOne, [](double x, double y) { return 7 + 3 * ((x - 1000) / 30 + 0.5 * (2000 - y) / 30); });
    makePair(ms, pan12, plane, [](double x, double y) { return (plane(0, x, y) + plane(1, x, y)) / 2; });

    struct Case
    {
        const char* label;
        std::function<bool(const QByteArray&)> call;
        std::function<double(int, double, double)> expected;
        int margin; // pan pixels left out at the edges (kernels reaching past the image)
    };
    const QByteArray p = pan.toUtf8(), m = ms.toUtf8();
    std::vector<Case> cases;
    const char* names[] = {"Brovey", "GIHS", "Gram-Schmidt", "HPF", "MTF-GLP"};
    for (int method = 0; method < 5; ++method)
        cases.push_back({names[method], [=](const QByteArray& out) { return ExcuteAlgo_PansharpFuseAlg(p, m, out, method, nullptr); },
                         plane, 5});
    cases.push_back({"SFIM", [=](const QByteArray& out) { return ExcuteAlgo_FusionalgoSFIM(p, m, out, 1, "", nullptr); }, plane, 4});
    cases.push_back({"PCA", [&](const QByteArray& out) {
                         return ExcuteAlgo_PansharpFuseAlgPCA(pan1.toUtf8(), ms1.toUtf8(), out, 1, "", nullptr); },
                     rankOne, 3});
    cases.push_back({"CNS", [&](const QByteArray& out) {
                         return ExcuteAlgo_Fusionalgo(pan12.toUtf8(), m, out, 1, "1|2", nullptr); },
                     plane, 3});
    for (const Case& c : cases)
    {
        const QString out = dir.filePath(QString("%1.tif").arg(c.label));
        StdoutCapture capture;
        ASSERT_TRUE(c.call(out.toUtf8())) << c.label;
        const std::string printed = capture.text();
        EXPECT_NE(printed.find("[OUTPUT] OutputFile=\"" + out.toStdString() + "\"\n"), std::string::npos) << printed;
        const QString quality = dir.filePath(QString("%1_quality.json").arg(c.label));
        EXPECT_NE(printed.find("[OUTPUT] QualityFile=\"" + quality.toStdString() + "\"\n"), std::string::npos) << printed;
        for (int band = 0; band < 3; ++band)
        {
            const std::vector<double> values = readBand(out, band + 1);
            ASSERT_EQ(values.size(), size_t(kPanW * kPanH));
            for (int j = c.margin; j < kPanH - c.margin; ++j)
                for (int i = c.margin; i < kPanW - c.margin; ++i)
                {
                    const double x = kPanTransform[0] + 15 * (i + 0.5), y = kPanTransform[3] - 15 * (j + 0.5);
                    if (x > 1600 - 45 || y < 2000 - 18 * 30 + 45)
                        continue; // within reach of the multispectral edge
                    ASSERT_NEAR(values[j * kPanW + i], c.expected(band, x, y), 2e-3)
                        << c.label << " band " << band + 1 << " at " << i << "," << j;
                }
            // Pan pixels whose centres lie beyond the multispectral image are no-data.
            EXPECT_EQ(values[5 * kPanW + kPanW - 1], 0.0) << c.label;
        }
        const QJsonObject report = readJson(quality);
        EXPECT_EQ(report["ratio"].toDouble(), 2.0) << c.label;
        EXPECT_TRUE(report["reduced_scale"].toObject().contains("ERGAS")) << c.label;
    }
    // The Brovey weights found are the pan's own mix.
    const QJsonArray weights = readJson(dir.filePath("Brovey_quality.json"))["intensity_weights"].toArray();
    ASSERT_EQ(weights.size(), 3);
    for (int b = 0; b < 3; ++b)
        EXPECT_NEAR(weights[b].toDouble(), w[b], 1e-3);
}

TEST(FusionPlugins, OutputKeepsTypeNamesWavelengthsAndNoDataOnThePanGrid)
{
    QTemporaryDir dir;
    const QString ms = dir.filePath("ms.tif"), pan = dir.filePath("pan.tif"), out = dir.filePath("fused.tif");
    makePair(ms, pan, [](int b, double x, double y) { return 100 + 50 * b + std::fmod(x + 2 * y, 97.0); },
             [](double x, double y) { return 300 + std::fmod(3 * x + y, 113.0); }, 3, GDT_UInt16);
    {
        GDALDataset* ds = GDALDataset::Open(ms.toUtf8().constData(), GDAL_OF_UPDATE | GDAL_OF_RASTER);
        const char* names[] = {"Blue", "Green", "Red"};
        const char* wavelengths[] = {"0.48", "0.56", "0.655"};
        for (int b = 0; b < 3; ++b)
        {
            ds->GetRasterBand(b + 1)->SetDescription(names[b]);
            ds->GetRasterBand(b + 1)->SetMetadataItem("wavelength", wavelengths[b]);
            ds->GetRasterBand(b + 1)->SetNoDataValue(65535);
        }
        GDALClose(ds);
    }
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_PansharpFuseAlg(pan.toUtf8(), ms.toUtf8(), out.toUtf8(), 2, nullptr));
    GDALDataset* ds = GDALDataset::Open(out.toUtf8().constData(), GDAL_OF_RASTER);
    ASSERT_NE(ds, nullptr);
    EXPECT_EQ(ds->GetRasterXSize(), kPanW);
    EXPECT_EQ(ds->GetRasterCount(), 3);
    double t[6];
    ds->GetGeoTransform(t);
    for (int k = 0; k < 6; ++k)
        EXPECT_DOUBLE_EQ(t[k], kPanTransform[k]);
    EXPECT_EQ(ds->GetRasterBand(1)->GetRasterDataType(), GDT_UInt16);
    EXPECT_STREQ(ds->GetRasterBand(3)->GetDescription(), "Red");
    EXPECT_STREQ(ds->GetRasterBand(2)->GetMetadataItem("wavelength"), "0.56");
    int has = 0;
    EXPECT_EQ(ds->GetRasterBand(1)->GetNoDataValue(&has), 65535);
    EXPECT_TRUE(has);
    EXPECT_EQ(ds->GetRasterBand(1)->GetMetadataItem("wavelength"), std::string("0.48"));
    uint16_t corner = 0;
    ASSERT_EQ(ds->GetRasterBand(1)->RasterIO(GF_Read, kPanW - 1, kPanH - 1, 1, 1, &corner, 1, 1, GDT_UInt16, 0, 0, nullptr), CE_None);
    EXPECT_EQ(corner, 65535);
    GDALClose(ds);
}

// GDAL's own weighted Brovey (a pan-sharpened VRT with the same weights and cubic resampling) on
// the Landsat 8 sample; interior pixels must agree to within rounding. (On the files as they are,
// GDAL's result is shifted by the 7.5 m offset between the pan and multispectral grids.)
TEST(FusionPlugins, LandsatBroveyAgreesWithGdalsPansharpening)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_B8.tif");
    GDALAllRegister();
    QTemporaryDir dir;
    const QString pan = sharedDataPath("landsat8/l8_B8.tif");
    QStringList bands;
    for (int b : {2, 3, 4, 5})
        bands << sharedDataPath(QString("landsat8/l8_B%1.tif").arg(b));
    const QString ms = dir.filePath("ms.vrt");
    {
        CPLStringList sources, options;
        for (const QString& b : bands)
            sources.AddString(b.toUtf8().constData());
        options.AddString("-separate");
        GDALBuildVRTOptions* vrtOptions = GDALBuildVRTOptionsNew(options.List(), nullptr);
        GDALDatasetH vrt = GDALBuildVRT(ms.toUtf8().constData(), sources.size(), nullptr, sources.List(), vrtOptions, nullptr);
        GDALBuildVRTOptionsFree(vrtOptions);
        ASSERT_NE(vrt, nullptr);
        // GDAL stretches the multispectral extent onto the pan's; give both the same extent so that
        // the comparison is of the fusion, not of the half-pixel offset that GDAL leaves out.
        double transform[6] = {452467.5, 1254 * 15.0 / 627, 0, 3408652.5, 0, -1207 * 15.0 / 603};
        GDALSetGeoTransform(vrt, transform);
        GDALClose(vrt);
    }
    const QString out = dir.filePath("brovey.tif");
    {
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_PansharpFuseAlg(pan.toUtf8(), ms.toUtf8(), out.toUtf8(), 0, nullptr));
    }
    const QJsonObject report = readJson(dir.filePath("brovey_quality.json"));
    QStringList weights;
    for (const QJsonValue& v : report["intensity_weights"].toArray())
        weights << QString::number(v.toDouble(), 'g', 17);
    QString xml = "<VRTDataset subClass=\"VRTPansharpenedDataset\"><PansharpeningOptions>"
                  "<Algorithm>WeightedBrovey</Algorithm><AlgorithmOptions><Weights>" + weights.join(',') +
                  "</Weights></AlgorithmOptions><Resampling>Cubic</Resampling>"
                  "<PanchroBand><SourceFilename>" + pan + "</SourceFilename><SourceBand>1</SourceBand></PanchroBand>";
    for (int b = 0; b < 4; ++b)
        xml += QString("<SpectralBand dstBand=\"%1\"><SourceFilename>%2</SourceFilename><SourceBand>1</SourceBand>"
                       "</SpectralBand>").arg(b + 1).arg(bands[b]);
    xml += "</PansharpeningOptions></VRTDataset>";
    GDALDataset* gdal = GDALDataset::Open(xml.toUtf8().constData(), GDAL_OF_RASTER);
    ASSERT_NE(gdal, nullptr);
    ASSERT_EQ(gdal->GetRasterXSize(), 1254);
    size_t compared = 0;
    double worst = 0, total = 0;
    for (int b = 1; b <= 4; ++b)
    {
        std::vector<double> peer(size_t(1254) * 1207);
        ASSERT_EQ(gdal->GetRasterBand(b)->RasterIO(GF_Read, 0, 0, 1254, 1207, peer.data(), 1254, 1207, GDT_Float64, 0, 0,
                                                   nullptr), CE_None);
        const std::vector<double> ours = readBand(out, b);
        for (int y = 8; y < 1207 - 8; ++y)
            for (int x = 8; x < 1254 - 8; ++x)
            {
                const double d = std::fabs(ours[size_t(y) * 1254 + x] - peer[size_t(y) * 1254 + x]);
                worst = std::max(worst, d);
                total += d;
                ++compared;
            }
    }
    GDALClose(gdal);
    // GDAL rounds the resampled bands to the input type before fusing: a unit or two apart at most.
    EXPECT_LE(worst, 2.0);
    EXPECT_LT(total / compared, 0.5);
    const QJsonObject reduced = report["reduced_scale"].toObject();
    EXPECT_GT(reduced["Q2n"].toDouble(), 0.5);
    EXPECT_LT(reduced["ERGAS"].toDouble(), 5.0);
}

// Each method on the Landsat 8 sample (bands 2-4) at reduced scale: finite figures and Q2n within
// (0, 1]; the figures are printed for the record.
TEST(FusionPlugins, LandsatReducedScaleFigures)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_B8.tif");
    GDALAllRegister();
    QTemporaryDir dir;
    const QByteArray pan = sharedDataPath("landsat8/l8_B8.tif").toUtf8();
    const QString ms = dir.filePath("ms.vrt");
    {
        CPLStringList sources, options;
        for (int b : {2, 3, 4})
            sources.AddString(sharedDataPath(QString("landsat8/l8_B%1.tif").arg(b)).toUtf8().constData());
        options.AddString("-separate");
        GDALBuildVRTOptions* vrtOptions = GDALBuildVRTOptionsNew(options.List(), nullptr);
        GDALClose(GDALBuildVRT(ms.toUtf8().constData(), sources.size(), nullptr, sources.List(), vrtOptions, nullptr));
        GDALBuildVRTOptionsFree(vrtOptions);
    }
    const QByteArray m = ms.toUtf8();
    const struct
    {
        const char* name;
        std::function<bool(const QByteArray&)> call;
    } methods[] = {
        {"Brovey", [&](const QByteArray& o) { return ExcuteAlgo_PansharpFuseAlg(pan, m, o, 0, nullptr); }},
        {"GIHS", [&](const QByteArray& o) { return ExcuteAlgo_PansharpFuseAlg(pan, m, o, 1, nullptr); }},
        {"GS", [&](const QByteArray& o) { return ExcuteAlgo_PansharpFuseAlg(pan, m, o, 2, nullptr); }},
        {"HPF", [&](const QByteArray& o) { return ExcuteAlgo_PansharpFuseAlg(pan, m, o, 3, nullptr); }},
        {"MTFGLP", [&](const QByteArray& o) { return ExcuteAlgo_PansharpFuseAlg(pan, m, o, 4, nullptr); }},
        {"PCA", [&](const QByteArray& o) { return ExcuteAlgo_PansharpFuseAlgPCA(pan, m, o, 2, "", nullptr); }},
        {"CNS", [&](const QByteArray& o) { return ExcuteAlgo_Fusionalgo(pan, m, o, 2, "", nullptr); }},
        {"SFIM", [&](const QByteArray& o) { return ExcuteAlgo_FusionalgoSFIM(pan, m, o, 2, "", nullptr); }},
    };
    for (const auto& method : methods)
    {
        const QString out = dir.filePath(QString("%1.tif").arg(method.name));
        {
            StdoutCapture capture;
            ASSERT_TRUE(method.call(out.toUtf8())) << method.name;
        }
        const QJsonObject q = readJson(dir.filePath(QString("%1_quality.json").arg(method.name)))["reduced_scale"].toObject();
        std::printf("%-7s ERGAS %.3f SAM %.3f Q2n %.4f (interpolated: ERGAS %.3f SAM %.3f Q2n %.4f)\n", method.name,
                    q["ERGAS"].toDouble(), q["SAM_degrees"].toDouble(), q["Q2n"].toDouble(),
                    q["interpolated_ERGAS"].toDouble(), q["interpolated_SAM_degrees"].toDouble(),
                    q["interpolated_Q2n"].toDouble());
        EXPECT_TRUE(std::isfinite(q["ERGAS"].toDouble()) && std::isfinite(q["SAM_degrees"].toDouble())) << method.name;
        EXPECT_GT(q["Q2n"].toDouble(), 0.0) << method.name;
        EXPECT_LE(q["Q2n"].toDouble(), 1.0) << method.name;
        QFile::remove(out);
    }
}

TEST(FusionPlugins, AStoppedRunLeavesNothingAndProgressIsMonotonic)
{
    QTemporaryDir dir;
    const QString ms = dir.filePath("ms.tif"), pan = dir.filePath("pan.tif"), out = dir.filePath("out.tif");
    makePair(ms, pan, plane, [](double x, double y) { return plane(0, x, y) + plane(2, x, y); });
    {
        RecordingResult recording;
        bool ok = false;
        {
            StdoutCapture capture;
            ok = ExcuteAlgo_PansharpFuseAlg(pan.toUtf8(), ms.toUtf8(), out.toUtf8(), 3, &recording.record);
        }
        ASSERT_TRUE(ok);
        ASSERT_FALSE(recording.progress.empty());
        EXPECT_TRUE(std::is_sorted(recording.progress.begin(), recording.progress.end()));
        EXPECT_EQ(recording.progress.back(), 100.0);
    }
    QFile::remove(out);
    QFile::remove(dir.filePath("out_quality.json"));
    RecordingResult recording;
    recording.answer = -1; // a negative answer asks the plug-in to stop
    bool ok = true;
    {
        StdoutCapture capture;
        ok = ExcuteAlgo_PansharpFuseAlg(pan.toUtf8(), ms.toUtf8(), out.toUtf8(), 3, &recording.record);
    }
    EXPECT_FALSE(ok);
    EXPECT_EQ(recording.record.code, -2);
    EXPECT_FALSE(QFileInfo::exists(out));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("out_quality.json")));
}
