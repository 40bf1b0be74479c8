// Sentinel-1 GRD: calibration and noise look-up on the real product's vectors checked by hand, and the fast
// orthorectification entry on a small GRD product built here with known calibration, noise and geolocation.
#include "AlgoFactory.h"
#include "s1_annotation.h"
#include "s1_product.h"
#include "s1_radiometry.h"
#include "test_support.h"

#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <QDir>
#include <QDomDocument>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>

#include <cmath>
#include <regex>

using testsupport::StdoutCapture;

namespace
{

const char* k5371 = "sentinel1/S1B_IW_GRDH_1SDV_20211223T051122_20211223T051147_030148_039993_5371.SAFE";

std::vector<double> numbers(const QDomElement& e)
{
    std::vector<double> v;
    for (const QString& s : e.text().split(' ', Qt::SkipEmptyParts))
        v.push_back(s.toDouble());
    return v;
}

} // namespace

TEST(S1Grd, CalibrationAndNoiseOfTheRealProductByHand)
{
    SKIP_WITHOUT_SHARED_DATA(k5371);
    const QString safe = testsupport::sharedDataPath(k5371);
    const QString stem = "s1b-iw-grd-vv-20211223t051122-20211223t051147-030148-039993-001.xml";
    const QString calibrationPath = safe + "/annotation/calibration/calibration-" + stem;
    const QString noisePath = safe + "/annotation/calibration/noise-" + stem;
    const sargeo::S1Calibration calibration =
        sargeo::readS1Calibration(sargeo::readVirtualFile(calibrationPath), 18984);
    const sargeo::S1Noise noise = sargeo::readS1Noise(sargeo::readVirtualFile(noisePath), 18984);
    const sargeo::VectorLut sigma = sargeo::calibrationLut(calibration, sargeo::CalibrationTarget::Sigma0);
    const sargeo::NoiseLut noiseLut(noise);

    // By hand from the XML: vectors 3 and 4, pixels 40 k and 40 (k + 1), weights 0.3 in line and 13/40 in pixel.
    QFile file(calibrationPath);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    QDomDocument doc;
    ASSERT_TRUE(doc.setContent(&file));
    const QDomNodeList vectors = doc.elementsByTagName("calibrationVector");
    const QDomElement v3 = vectors.at(3).toElement(), v4 = vectors.at(4).toElement();
    const double line3 = v3.firstChildElement("line").text().toDouble(), line4 = v4.firstChildElement("line").text().toDouble();
    const std::vector<double> s3 = numbers(v3.firstChildElement("sigmaNought")), s4 = numbers(v4.firstChildElement("sigmaNought"));
    for (const int k : {0, 17, 301})
    {
        const double line = line3 + 0.3 * (line4 - line3), pixel = 40.0 * k + 13.0;
        const double a = 0.7 * (s3[size_t(k)] * 27 / 40 + s3[size_t(k + 1)] * 13 / 40) +
                         0.3 * (s4[size_t(k)] * 27 / 40 + s4[size_t(k + 1)] * 13 / 40);
        EXPECT_NEAR(sigma.at(line, pixel), a, 1e-9 * a);
        EXPECT_DOUBLE_EQ(sargeo::calibrated(100.0 * 100.0, 0.0, a), 1e4 / (a * a));
    }
    EXPECT_EQ(sargeo::calibrated(1.0, 5.0, 2.0), 0.0); // negative results floored

    // Noise: the first range vector at one of its own pixels times the IW2 azimuth profile at its first line.
    QFile noiseFile(noisePath);
    ASSERT_TRUE(noiseFile.open(QIODevice::ReadOnly));
    QDomDocument noiseDoc;
    ASSERT_TRUE(noiseDoc.setContent(&noiseFile));
    const QDomElement range0 = noiseDoc.elementsByTagName("noiseRangeVector").at(0).toElement();
    const std::vector<double> rangePixels = numbers(range0.firstChildElement("pixel"));
    const std::vector<double> rangeLut = numbers(range0.firstChildElement("noiseRangeLut"));
    const QDomElement azimuth1 = noiseDoc.elementsByTagName("noiseAzimuthVector").at(1).toElement();
    const double firstSample = azimuth1.firstChildElement("firstRangeSample").text().toDouble();
    size_t j = 0;
    while (rangePixels[j] < firstSample)
        ++j;
    const double azimuth0 = numbers(azimuth1.firstChildElement("noiseAzimuthLut"))[0];
    EXPECT_NEAR(noiseLut.at(range0.firstChildElement("line").text().toDouble(), rangePixels[j]),
                rangeLut[j] * azimuth0, 1e-9 * rangeLut[j]);
}

namespace
{

// A GRD product of 60 x 50 samples whose geolocation is lat = 41.6 + 1e-4 (25 - line), lon = 12.8 + 1.5e-4 pixel,
// calibration A = 100 + pixel + line, noise 50, DN = 200 + 2 pixel + line.
constexpr int kSamples = 60, kLines = 50;
double latitudeOf(double line) { return 41.6 + 1e-4 * (25.0 - line); }
double longitudeOf(double pixel) { return 12.8 + 1.5e-4 * pixel; }
double calibrationOf(double line, double pixel) { return 100.0 + pixel + line; }
double dnOf(int line, int pixel) { return 200.0 + 2.0 * pixel + line; }

QString makeGrdSafe(const QString& folder)
{
    const QString root = folder + "/S1A_IW_GRDH_1SSV_TEST.SAFE";
    QDir().mkpath(root + "/annotation/calibration");
    QDir().mkpath(root + "/measurement");
    auto write = [](const QString& path, const QString& text) {
        QFile f(path);
        f.open(QIODevice::WriteOnly);
        f.write(text.toUtf8());
    };
    write(root + "/manifest.safe", "<xfdu/>\n");
    const QString stem = "s1a-iw-grd-vv-20210401t110640-20210401t110641-000001-000001-001";
    QString grid;
    for (int line : {0, 12, 25, 37, 49})
        for (int pixel : {0, 12, 24, 36, 48, 59})
            grid += QString("<geolocationGridPoint><azimuthTime>2021-04-01T11:06:40.000000</azimuthTime>"
                            "<slantRangeTime>0.005</slantRangeTime><line>%1</line><pixel>%2</pixel>"
                            "<latitude>%3</latitude><longitude>%4</longitude><height>0</height>"
                            "<incidenceAngle>35</incidenceAngle></geolocationGridPoint>")
                        .arg(line)
                        .arg(pixel)
                        .arg(latitudeOf(line), 0, 'f', 9)
                        .arg(longitudeOf(pixel), 0, 'f', 9);
    write(root + "/annotation/" + stem + ".xml",
          "<product><adsHeader><missionId>S1A</missionId><productType>GRD</productType><polarisation>VV</polarisation>"
          "<mode>IW</mode><swath>IW</swath><startTime>2021-04-01T11:06:40.000000</startTime></adsHeader>"
          "<generalAnnotation><productInformation><pass>Descending</pass><platformHeading>-165</platformHeading>"
          "<rangeSamplingRate>6.4345e7</rangeSamplingRate><radarFrequency>5.405e9</radarFrequency>"
          "</productInformation></generalAnnotation><imageAnnotation><imageInformation>"
          "<productFirstLineUtcTime>2021-04-01T11:06:40.000000</productFirstLineUtcTime>"
          "<productLastLineUtcTime>2021-04-01T11:06:41.000000</productLastLineUtcTime>"
          "<slantRangeTime>0.005</slantRangeTime><rangePixelSpacing>10</rangePixelSpacing>"
          "<azimuthPixelSpacing>10</azimuthPixelSpacing><azimuthTimeInterval>0.0015</azimuthTimeInterval>"
          "<numberOfSamples>60</numberOfSamples><numberOfLines>50</numberOfLines></imageInformation></imageAnnotation>"
          "<geolocationGrid><geolocationGridPointList>" + grid + "</geolocationGridPointList></geolocationGrid></product>\n");
    QString calibration = "<calibration><calibrationVectorList>";
    QString noise = "<noise><noiseRangeVectorList>";
    for (int line : {0, 25, 49})
    {
        QStringList values;
        for (int pixel : {0, 20, 40, 59})
            values << QString::number(calibrationOf(line, pixel));
        calibration += QString("<calibrationVector><azimuthTime>2021-04-01T11:06:40.000000</azimuthTime><line>%1</line>"
                               "<pixel>0 20 40 59</pixel><sigmaNought>%2</sigmaNought><betaNought>%2</betaNought>"
                               "<gamma>%2</gamma><dn>%2</dn></calibrationVector>")
                           .arg(line)
                           .arg(values.join(' '));
        noise += QString("<noiseRangeVector><azimuthTime>2021-04-01T11:06:40.000000</azimuthTime><line>%1</line>"
                         "<pixel>0 59</pixel><noiseRangeLut>50 50</noiseRangeLut></noiseRangeVector>")
                     .arg(line);
    }
    write(root + "/annotation/calibration/calibration-" + stem + ".xml",
          calibration + "</calibrationVectorList></calibration>\n");
    write(root + "/annotation/calibration/noise-" + stem + ".xml", noise + "</noiseRangeVectorList></noise>\n");
    GDALAllRegister();
    testsupport::makeRaster(root + "/measurement/" + stem + ".tiff", kSamples, kLines, 1, GDT_UInt16,
                            [](int, int x, int y) { return dnOf(y, x); }, "GTiff", false);
    return root;
}

} // namespace

TEST(S1Grd, FastOrthoCalibratesAndPlacesEveryCell)
{
    QTemporaryDir dir;
    const QString safe = makeGrdSafe(dir.path());
    const QString out = dir.filePath("out");
    StdoutCapture capture;
    const bool ok = ExcuteAlgo_Batch_S1_GRD_FastOrthoCorrection(safe.toUtf8().constData(), "", out.toUtf8().constData(),
                                                                 10.0, nullptr);
    const std::string text = capture.text();
    ASSERT_TRUE(ok) << text;
    const QString image = out + "/s1a-iw-grd-vv-20210401t110640-20210401t110641-000001-000001-001_sigma0_geo.tif";
    EXPECT_NE(text.find("[OUTPUT] Batch_S1_GRD_FastOrthoCorrection_images=\"" + image.toStdString() + "\""),
              std::string::npos)
        << text;
    GDALDataset* ds = GDALDataset::Open(image.toUtf8().constData(), GDAL_OF_RASTER);
    ASSERT_TRUE(ds);
    EXPECT_STREQ(ds->GetRasterBand(1)->GetDescription(), "Sigma0_VV");
    double gt[6];
    ds->GetGeoTransform(gt);
    OGRSpatialReference utm;
    utm.importFromEPSG(32633);
    OGRSpatialReference wgs84;
    wgs84.importFromEPSG(4326);
    utm.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    std::unique_ptr<OGRCoordinateTransformation> toLonLat(OGRCreateCoordinateTransformation(&utm, &wgs84));
    const int w = ds->GetRasterXSize(), h = ds->GetRasterYSize();
    std::vector<float> values(size_t(w) * size_t(h));
    ASSERT_EQ(ds->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, w, h, values.data(), w, h, GDT_Float32, 0, 0), CE_None);
    GDALClose(ds);
    int checked = 0;
    for (int r = 0; r < h; ++r)
        for (int c = 0; c < w; ++c)
        {
            double lon = gt[0] + (c + 0.5) * gt[1], lat = gt[3] + (r + 0.5) * gt[5];
            ASSERT_TRUE(toLonLat->Transform(1, &lon, &lat));
            const double line = 25.0 - (lat - 41.6) / 1e-4, pixel = (lon - 12.8) / 1.5e-4;
            if (line < 1 || pixel < 1 || line > kLines - 2 || pixel > kSamples - 2)
                continue;
            // Calibrate the four neighbours by the formula, then interpolate.
            const int l0 = int(line), p0 = int(pixel);
            double expected = 0.0;
            for (int dy = 0; dy < 2; ++dy)
                for (int dx = 0; dx < 2; ++dx)
                {
                    const double dn = dnOf(l0 + dy, p0 + dx), a = calibrationOf(l0 + dy, p0 + dx);
                    expected += (dy ? line - l0 : 1 - (line - l0)) * (dx ? pixel - p0 : 1 - (pixel - p0)) *
                                std::max(0.0, (dn * dn - 50.0) / (a * a));
                }
            const float got = values[size_t(r) * size_t(w) + size_t(c)];
            ASSERT_TRUE(std::isfinite(got)) << r << "," << c;
            EXPECT_NEAR(got, expected, 2e-3 * expected) << r << "," << c;
            ++checked;
        }
    EXPECT_GT(checked, 1000);
}

TEST(S1Grd, RealZipWithoutMeasurementsIsRefused)
{
    const char* zipPath = "sentinel1/S1A_IW_GRDH_1SDV_20150203T043109_20150203T043134_004454_00574F_6D00.zip";
    SKIP_WITHOUT_SHARED_DATA(zipPath);
    QTemporaryDir dir;
    testsupport::RecordingResult result;
    StdoutCapture capture;
    EXPECT_FALSE(ExcuteAlgo_Batch_S1_GRD_FastOrthoCorrection(testsupport::sharedDataPath(zipPath).toUtf8().constData(), "",
                                                              dir.filePath("out").toUtf8().constData(), 100.0,
                                                              &result.record));
    EXPECT_NE(std::string(result.record.message).find("holds no GRD image with its measurement and calibration!"),
              std::string::npos)
        << result.record.message;
    EXPECT_FALSE(QDir(dir.filePath("out")).exists());
}

TEST(S1Grd, RefusesSlcProductsAndUncoveredDems)
{
    QTemporaryDir dir;
    const QString safe = makeGrdSafe(dir.path());
    const QString dem = dir.filePath("dem.tif");
    ASSERT_TRUE(testsupport::makeGeoTiff(dem, 10, 10, 1, GDT_Float32, [](int, int, int) { return 5.0; }, {}));
    const QString out = dir.filePath("out");
    testsupport::RecordingResult result;
    StdoutCapture capture;
    EXPECT_FALSE(ExcuteAlgo_Batch_S1_GRD_FastOrthoCorrection(safe.toUtf8().constData(), dem.toUtf8().constData(),
                                                              out.toUtf8().constData(), 10.0, &result.record));
    EXPECT_NE(std::string(result.record.message).find("the parameter DEMFile (" + dem.toStdString() + ")"),
              std::string::npos)
        << result.record.message;
    EXPECT_FALSE(QDir(out).exists() && !QDir(out).entryList(QDir::Files).isEmpty());
    EXPECT_FALSE(ExcuteAlgo_Batch_S1_GRD_FastOrthoCorrection(dir.path().toUtf8().constData(), "",
                                                              out.toUtf8().constData(), 10.0, &result.record));
    EXPECT_NE(std::string(result.record.message).find("is not a Sentinel-1 SAFE folder"), std::string::npos);
}
