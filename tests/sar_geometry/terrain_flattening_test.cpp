// Terrain flattening on flat terrain equals the ellipsoid correction: gamma0 = beta0 tan(theta) = sigma0 / cos(theta).
#include "AlgoFactory.h"
#include "sar_parameter_file.h"
#include "simulated_scene.h"
#include "test_support.h"

#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <QFile>
#include <QTemporaryDir>

#include <cmath>

using testsupport::StdoutCapture;

namespace
{

QString constantImage(const QString& path, const simscene::Scene& scene, double value, const char* description)
{
    if (!testsupport::makeRaster(path, scene.record.numberOfColumns, scene.record.numberOfRows, 1, GDT_Float32,
                                 [&](int, int, int) { return value; }, "GTiff", false))
        return QString();
    GDALDataset* ds = GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_UPDATE);
    ds->GetRasterBand(1)->SetDescription(description);
    GDALClose(ds);
    return WriteSarParameterFile(sarParameterFilePath(path), scene.record) ? path : QString();
}

QString flatDem(const QString& path, double height)
{
    GDALAllRegister();
    GDALDataset* ds = GetGDALDriverManager()->GetDriverByName("GTiff")->Create(path.toUtf8().constData(), 300, 300, 1,
                                                                             GDT_Float32, nullptr);
    const double transform[6] = {12.65, 0.001, 0, 41.75, 0, -0.001};
    ds->SetGeoTransform(const_cast<double*>(transform));
    OGRSpatialReference wgs84;
    wgs84.importFromEPSG(4326);
    ds->SetSpatialRef(&wgs84);
    std::vector<float> values(300 * 300, float(height));
    const bool ok = ds->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, 300, 300, values.data(), 300, 300, GDT_Float32, 0, 0) ==
                    CE_None;
    GDALClose(ds);
    return ok ? path : QString();
}

} // namespace

TEST(TerrainFlattening, FlatTerrainGivesTheEllipsoidCorrection)
{
    QTemporaryDir dir;
    const simscene::Scene scene = simscene::makeScene(120, 150);
    const QString dem = flatDem(dir.filePath("dem.tif"), 0.0);
    ASSERT_FALSE(dem.isEmpty());
    struct Case
    {
        const char* description;
        double value;
    };
    for (const Case& c : {Case{"Beta0_VV", 1.0}, Case{"Sigma0_VV", 0.5}})
    {
        const QString input = constantImage(dir.filePath(QString("in_%1.tif").arg(c.description)), scene, c.value,
                                            c.description);
        const QString output = dir.filePath(QString("gamma_%1.tif").arg(c.description));
        StdoutCapture capture;
        const bool ok = ExcuteAlgo_TerrainRadiometricCorrection(input.toUtf8().constData(), dem.toUtf8().constData(),
                                                                output.toUtf8().constData(), nullptr);
        const std::string text = capture.text();
        ASSERT_TRUE(ok) << text;
        const std::vector<double> gamma = testsupport::readBand(output, 1);
        const std::vector<double> mask = testsupport::readBand(dir.filePath(QString("gamma_%1_lsmask.tif").arg(c.description)), 1);
        for (const auto& offset : {std::make_pair(0.0, 0.0), std::make_pair(0.004, -0.003), std::make_pair(-0.004, 0.003)})
        {
            simscene::Target t{scene.centreLatitude + offset.first, scene.centreLongitude + offset.second, 0.0, 0, 0};
            ASSERT_TRUE(simscene::truePosition(scene, t.latitude, t.longitude, 0.0, &t.line, &t.pixel));
            ASSERT_TRUE(t.line > 2 && t.pixel > 2 && t.line < 147 && t.pixel < 117) << t.line << " " << t.pixel;
            // The incidence at the target from the closed-form orbit at its zero-Doppler time.
            simscene::Vec3 s, v;
            scene.orbit.state(scene.record.startTime + t.line * scene.record.azimuthLineTime - simscene::kT0, &s, &v);
            const simscene::Vec3 p = simscene::ecef(t.latitude, t.longitude, 0.0);
            const double phi = t.latitude * M_PI / 180, lambda = t.longitude * M_PI / 180;
            const simscene::Vec3 up(std::cos(phi) * std::cos(lambda), std::cos(phi) * std::sin(lambda), std::sin(phi));
            const double theta = std::acos(up.dot((s - p).normalized()));
            const double expected = c.value == 1.0 ? std::tan(theta) : c.value / std::cos(theta);
            const size_t i = size_t(std::lround(t.line)) * 120u + size_t(std::lround(t.pixel));
            EXPECT_NEAR(gamma[i], expected, 0.01 * expected) << c.description;
            EXPECT_EQ(mask[i], 0);
        }
    }
}

TEST(TerrainFlattening, RefusesUnknownRadiometryAndUncoveredDem)
{
    QTemporaryDir dir;
    const simscene::Scene scene = simscene::makeScene(40, 40);
    const QString unknown = constantImage(dir.filePath("amp.tif"), scene, 1.0, "Amplitude");
    const QString beta = constantImage(dir.filePath("beta.tif"), scene, 1.0, "Beta0");
    const QString dem = flatDem(dir.filePath("dem.tif"), 0.0);
    const QString far = dir.filePath("far.tif");
    ASSERT_TRUE(testsupport::makeGeoTiff(far, 10, 10, 1, GDT_Float32, [](int, int, int) { return 1.0; }, {}));
    struct Row
    {
        QString input, dem;
        std::string message;
    };
    const Row rows[] = {
        {unknown, dem, "has a band described \"Amplitude\", neither beta0 nor sigma0!"},
        {beta, far, "the parameter DEMFile (" + far.toStdString() + ") does not cover the scene!"},
    };
    for (const Row& row : rows)
    {
        testsupport::RecordingResult result;
        StdoutCapture capture;
        const QString output = dir.filePath("out.tif");
        EXPECT_FALSE(ExcuteAlgo_TerrainRadiometricCorrection(row.input.toUtf8().constData(), row.dem.toUtf8().constData(),
                                                             output.toUtf8().constData(), &result.record));
        EXPECT_NE(std::string(result.record.message).find(row.message), std::string::npos) << result.record.message;
        EXPECT_FALSE(QFile::exists(output));
    }
}
