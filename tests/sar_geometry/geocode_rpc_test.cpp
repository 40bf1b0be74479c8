// Geocoding and RPC generation through their entries, on simulated scenes whose targets sit at positions known
// from the closed-form orbit.
#include "AlgoFactory.h"
#include "sar_parameter_file.h"
#include "simulated_scene.h"
#include "test_support.h"

#include <gdal_alg.h>
#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cmath>
#include <regex>

using testsupport::StdoutCapture;

namespace
{

const std::string kJudged = "Judge the rationality of input paramenters sucessfully\n";

// A flat DEM in geographic coordinates over the simulated scenes, at `height` metres.
QString writeFlatDem(const QString& path, double height, double west = 12.70, double north = 41.70)
{
    GDALAllRegister();
    GDALDataset* ds = GetGDALDriverManager()->GetDriverByName("GTiff")->Create(path.toUtf8().constData(), 100, 100, 1,
                                                                             GDT_Float32, nullptr);
    const double transform[6] = {west, 0.002, 0, north, 0, -0.002};
    ds->SetGeoTransform(const_cast<double*>(transform));
    OGRSpatialReference wgs84;
    wgs84.importFromEPSG(4326);
    ds->SetSpatialRef(&wgs84);
    std::vector<float> values(100 * 100, float(height));
    if (ds->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, 100, 100, values.data(), 100, 100, GDT_Float32, 0, 0) != CE_None)
        return QString();
    GDALClose(ds);
    return path;
}

std::string outputValue(const std::string& out, const std::string& key)
{
    std::smatch match;
    const std::regex pattern("\\[OUTPUT\\] " + key + "=\"([^\"]*)\"");
    return std::regex_search(out, match, pattern) ? match[1].str() : std::string();
}

// The same in UTM zone 33 (a projected DEM: heights are looked up through a coordinate transformation).
QString writeFlatUtmDem(const QString& path, double height)
{
    GDALAllRegister();
    GDALDataset* ds = GetGDALDriverManager()->GetDriverByName("GTiff")->Create(path.toUtf8().constData(), 200, 200, 1,
                                                                             GDT_Float32, nullptr);
    // 12.8 E, 41.6 N lies near x = 316700, y = 4607400 in zone 33: a 20 km square around it.
    const double transform[6] = {306700, 100, 0, 4617400, 0, -100};
    ds->SetGeoTransform(const_cast<double*>(transform));
    OGRSpatialReference utm;
    utm.importFromEPSG(32633);
    ds->SetSpatialRef(&utm);
    std::vector<float> values(200 * 200, float(height));
    const bool ok = ds->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, 200, 200, values.data(), 200, 200, GDT_Float32, 0, 0) ==
                    CE_None;
    GDALClose(ds);
    return ok ? path : QString();
}

} // namespace

TEST(SarGeocode, TargetsLandWithinHalfAPixelOfTheirMapCells)
{
    for (const double height : {0.0, 600.0, -300.0})
    {
        QTemporaryDir dir;
        const simscene::Scene scene = simscene::makeScene();
        const auto targets = simscene::targets(scene, height);
        const QString image = dir.filePath("scene.tif");
        ASSERT_TRUE(simscene::writeScene(image, scene, targets));
        const QString dem = height < 0 ? writeFlatUtmDem(dir.filePath("dem.tif"), height)
                                       : writeFlatDem(dir.filePath("dem.tif"), height);
        const QString out = dir.filePath("geo");
        StdoutCapture capture;
        const bool ok = ExcuteAlgo_Batch_SARGeocode(image.toUtf8().constData(), dem.toUtf8().constData(),
                                                    out.toUtf8().constData(), 10.0, nullptr);
        const std::string text = capture.text();
        ASSERT_TRUE(ok) << text;
        EXPECT_EQ(text.rfind(kJudged, 0), 0u) << text;
        const QString geo = out + "/scene_geo.tif";
        EXPECT_EQ(outputValue(text, "Batch_SARGeocode_images"),
                  (geo + "|" + out + "/scene_geo_lsmask.tif|" + out + "/scene_geo_lia.tif").toStdString());

        GDALDataset* ds = GDALDataset::Open(geo.toUtf8().constData(), GDAL_OF_RASTER);
        ASSERT_TRUE(ds);
        double gt[6];
        ds->GetGeoTransform(gt);
        EXPECT_DOUBLE_EQ(gt[1], 10.0);
        const OGRSpatialReference* srs = ds->GetSpatialRef();
        ASSERT_TRUE(srs);
        EXPECT_STREQ(srs->GetAuthorityCode(nullptr), "32633"); // 12.8 E lies in UTM zone 33
        const int w = ds->GetRasterXSize(), h = ds->GetRasterYSize();
        std::vector<float> values(size_t(w) * size_t(h));
        ASSERT_EQ(ds->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, w, h, values.data(), w, h, GDT_Float32, 0, 0), CE_None);
        GDALClose(ds);

        OGRSpatialReference wgs84, utm;
        wgs84.importFromEPSG(4326);
        utm.importFromEPSG(32633);
        wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        utm.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        std::unique_ptr<OGRCoordinateTransformation> toUtm(OGRCreateCoordinateTransformation(&wgs84, &utm));
        for (const simscene::Target& t : targets)
        {
            double x = t.longitude, y = t.latitude;
            ASSERT_TRUE(toUtm->Transform(1, &x, &y));
            // The blob's centroid (above the background) in a 9 x 9 window around the expected cell.
            const int c0 = int(std::floor((x - gt[0]) / gt[1])), r0 = int(std::floor((y - gt[3]) / gt[5]));
            double sum = 0, sx = 0, sy = 0;
            for (int r = r0 - 4; r <= r0 + 4; ++r)
                for (int c = c0 - 4; c <= c0 + 4; ++c)
                {
                    ASSERT_TRUE(r >= 0 && c >= 0 && r < h && c < w);
                    const double v = std::max(0.0, double(values[size_t(r) * size_t(w) + size_t(c)]) - 0.1);
                    sum += v, sx += v * (gt[0] + (c + 0.5) * gt[1]), sy += v * (gt[3] + (r + 0.5) * gt[5]);
                }
            ASSERT_GT(sum, 0.0);
            EXPECT_NEAR(sx / sum, x, 5.0) << "height " << height;
            EXPECT_NEAR(sy / sum, y, 5.0) << "height " << height;
        }
        // Flat terrain: no layover or shadow, local incidence equal to the ellipsoid incidence (30-45 degrees).
        const std::vector<double> mask = testsupport::readBand(out + "/scene_geo_lsmask.tif", 1);
        const std::vector<double> lia = testsupport::readBand(out + "/scene_geo_lia.tif", 1);
        int inside = 0;
        for (size_t i = 0; i < mask.size(); ++i)
            if (mask[i] != 255)
            {
                ++inside;
                EXPECT_EQ(mask[i], 0);
                EXPECT_GT(lia[i], 30.0);
                EXPECT_LT(lia[i], 50.0);
            }
        EXPECT_GT(inside, 1000);
    }
}

TEST(SarGeocode, RefusalsLeaveNothingBehind)
{
    QTemporaryDir dir;
    const simscene::Scene scene = simscene::makeScene(60, 60);
    const QString image = dir.filePath("scene.tif");
    ASSERT_TRUE(simscene::writeScene(image, scene, {}));
    const QString farDem = writeFlatDem(dir.filePath("far.tif"), 0.0, 20.0, 50.0);
    const QString dem = writeFlatDem(dir.filePath("dem.tif"), 0.0);
    const QString bare = dir.filePath("bare.tif");
    ASSERT_TRUE(QFile::copy(image, bare));
    const QString noVectors = dir.filePath("novectors.tif");
    ASSERT_TRUE(QFile::copy(image, noVectors));
    SarParameterRecord withoutOrbit = scene.record;
    withoutOrbit.numStateVectors = 0;
    ASSERT_TRUE(WriteSarParameterFile(sarParameterFilePath(noVectors), withoutOrbit));
    struct Row
    {
        QString input, dem;
        double resolution;
        std::string message;
    };
    const QString out = dir.filePath("out");
    const Row rows[] = {
        {image, farDem, 10, "DEMFile (" + farDem.toStdString() + ") does not cover the scene"},
        {bare, dem, 10, "InputFiles (" + bare.toStdString() + ") has a SAR parameter file " +
                            QString(bare).replace(".tif", ".xml").toStdString() + " that does not exist!"},
        {noVectors, dem, 10, "InputFiles (" + noVectors.toStdString() + ") has a SAR parameter file " +
                                 QString(noVectors).replace(".tif", ".xml").toStdString() +
                                 " that holds 0 state vectors, fewer than 4!"},
        {image, dem, -5, "Resolution (-5) must be greater than 0"},
    };
    for (const Row& row : rows)
    {
        testsupport::RecordingResult result;
        StdoutCapture capture;
        const bool ok = ExcuteAlgo_Batch_SARGeocode(row.input.toUtf8().constData(), row.dem.toUtf8().constData(),
                                                    out.toUtf8().constData(), row.resolution, &result.record);
        const std::string text = capture.text();
        EXPECT_FALSE(ok) << text;
        EXPECT_NE(std::string(result.record.message).find(row.message), std::string::npos)
            << result.record.message << " / " << row.message;
        EXPECT_EQ(text.find("[OUTPUT]"), std::string::npos);
        // The pattern's lines: the entry's own refusals come before the checks-passed line; otherwise the checks
        // pass, the plug-in runs and its refusal comes back as one "[ERROR] " line.
        const bool byEntry = row.message.find("has a SAR parameter file") != std::string::npos ||
                             row.message.rfind("Resolution", 0) == 0;
        EXPECT_EQ(text, (byEntry ? std::string() : kJudged + "start call algorithm plugin: Batch_SARGeocode\n") +
                            "[ERROR] " + std::string(result.record.message) + "\n");
        EXPECT_TRUE(QDir(out).entryList(QDir::Files).isEmpty());
    }
    // Without an AlgoResult the refusal is printed all the same; an empty required path stops before the run.
    StdoutCapture capture;
    EXPECT_FALSE(ExcuteAlgo_Batch_SARGeocode(image.toUtf8().constData(), farDem.toUtf8().constData(),
                                             out.toUtf8().constData(), 10.0, nullptr));
    EXPECT_FALSE(ExcuteAlgo_Batch_SARGeocode("", dem.toUtf8().constData(), out.toUtf8().constData(), 10.0, nullptr));
    const std::string text = capture.text();
    EXPECT_NE(text.find("[ERROR] Batch_SARGeocode: the parameter DEMFile (" + farDem.toStdString()), std::string::npos);
    EXPECT_NE(text.find("[ERROR] Batch_SARGeocode: the parameter InputFiles is empty!\n"), std::string::npos) << text;
}

TEST(RdGenerateRpc, CheckPointsWithinFiveHundredthsOfAPixelAndGdalAgrees)
{
    QTemporaryDir dir;
    const simscene::Scene scene = simscene::makeScene();
    const QString image = dir.filePath("scene.tif");
    ASSERT_TRUE(simscene::writeScene(image, scene, {}));
    const QString rpc = dir.filePath("scene.rpc");
    StdoutCapture capture;
    const bool ok = ExcuteAlgo_RD_GenerateRPC(image.toUtf8().constData(),
                                              sarParameterFilePath(image).toUtf8().constData(),
                                              rpc.toUtf8().constData(), nullptr);
    const std::string text = capture.text();
    ASSERT_TRUE(ok) << text;
    EXPECT_EQ(outputValue(text, "RD_GenerateRPC_images"), (rpc + "|" + dir.filePath("scene_RPC.TXT")).toStdString());
    EXPECT_LT(std::stod(outputValue(text, "RD_GenerateRPC_CheckMax")), 0.05);
    EXPECT_LT(std::stod(outputValue(text, "RD_GenerateRPC_FitRMS")), 0.05);

    QFile group(rpc);
    ASSERT_TRUE(group.open(QIODevice::ReadOnly));
    const QByteArray groupText = group.readAll();
    for (const char* key : {"errBias", "lineOffset", "sampOffset", "latOffset", "longOffset", "heightOffset",
                            "lineScale", "sampScale", "latScale", "longScale", "heightScale", "lineNumCoef",
                            "lineDenCoef", "sampNumCoef", "sampDenCoef"})
        EXPECT_TRUE(groupText.contains(QByteArray("\t") + key + " = ")) << key;

    // GDAL finds scene_RPC.TXT beside the image and maps the targets through it on its own.
    GDALDataset* ds = GDALDataset::Open(image.toUtf8().constData(), GDAL_OF_RASTER);
    ASSERT_TRUE(ds);
    char** metadata = ds->GetMetadata("RPC");
    ASSERT_TRUE(metadata);
    GDALRPCInfoV2 info;
    ASSERT_TRUE(GDALExtractRPCInfoV2(metadata, &info));
    void* transformer = GDALCreateRPCTransformerV2(&info, FALSE, 0.0, nullptr);
    for (const double height : {-200.0, 900.0, 2500.0})
        for (const simscene::Target& t : simscene::targets(scene, height, 5))
        {
            double x = t.longitude, y = t.latitude, z = t.height;
            int done = 0;
            GDALRPCTransform(transformer, TRUE, 1, &x, &y, &z, &done);
            ASSERT_TRUE(done);
            EXPECT_NEAR(x - 0.5, t.pixel, 0.05);
            EXPECT_NEAR(y - 0.5, t.line, 0.05);
        }
    GDALDestroyRPCTransformer(transformer);
    GDALClose(ds);
}

TEST(RdGenerateRpc, SquintedSceneFollowsTheDopplerCentroid)
{
    QTemporaryDir dir;
    simscene::Scene scene = simscene::makeScene();
    // About 300 Hz at the centre: the targets sit some sixty lines from where zero Doppler would put them.
    simscene::squint(scene, 250.0, 4e6);
    const QString image = dir.filePath("squint.tif");
    ASSERT_TRUE(simscene::writeScene(image, scene, {}));
    const QString rpc = dir.filePath("squint.rpc");
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_RD_GenerateRPC(image.toUtf8().constData(), sarParameterFilePath(image).toUtf8().constData(),
                                          rpc.toUtf8().constData(), nullptr))
        << capture.text();
    EXPECT_LT(std::stod(outputValue(capture.text(), "RD_GenerateRPC_CheckMax")), 0.05);

    simscene::Scene unsquinted = simscene::makeScene();
    GDALDataset* ds = GDALDataset::Open(image.toUtf8().constData(), GDAL_OF_RASTER);
    ASSERT_TRUE(ds);
    GDALRPCInfoV2 info;
    ASSERT_TRUE(GDALExtractRPCInfoV2(ds->GetMetadata("RPC"), &info));
    void* transformer = GDALCreateRPCTransformerV2(&info, FALSE, 0.0, nullptr);
    for (const double height : {0.0, 1500.0})
        for (const simscene::Target& t : simscene::targets(scene, height, 4))
        {
            double x = t.longitude, y = t.latitude, z = t.height;
            int done = 0;
            GDALRPCTransform(transformer, TRUE, 1, &x, &y, &z, &done);
            ASSERT_TRUE(done);
            EXPECT_NEAR(x - 0.5, t.pixel, 0.05);
            EXPECT_NEAR(y - 0.5, t.line, 0.05);
            double zeroLine, zeroPixel;
            ASSERT_TRUE(simscene::truePosition(unsquinted, t.latitude, t.longitude, t.height, &zeroLine, &zeroPixel));
            EXPECT_GT(std::abs(t.line - zeroLine), 30.0);
        }
    GDALDestroyRPCTransformer(transformer);
    GDALClose(ds);
}
