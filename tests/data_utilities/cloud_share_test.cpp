// Cloud share in the quality report: band roles told from wavelengths and sensor numberings, a planted cloud
// counted by hand, the reasons given when it is not estimated, and a real Landsat 8 scene against the cloud bits
// of its own quality band.
#include "cloud_share.h"
#include "data_utilities_fixtures.h"

#include <gdal_utils.h>

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <cmath>

using namespace testsupport;
using namespace datafixtures;
using datautil::Sensor;

TEST(CloudShare, RolesFromWavelengthsElseTheSensorsBandNames)
{
    using Roles = std::array<int, datautil::kSpectralRoles>;
    const double none = NAN;
    // Wavelengths in micrometres, out of order, one too far from any role (0.74: red edge).
    EXPECT_EQ(datautil::spectralRoles({{0.865, ""}, {0.49, ""}, {0.74, ""}, {0.56, ""}, {0.665, ""}}, Sensor::Unknown),
              (Roles{1, 3, 4, 0, -1, -1, -1}));
    // Names count only with a known sensor, and mean different bands for each.
    const std::vector<datautil::BandLabel> numbered = {{none, "B1"}, {none, "B2"}, {none, "B3"}, {none, "B4"},
                                                       {none, "B5"}, {none, "B6"}, {none, "B7"}, {none, "B9"}};
    EXPECT_EQ(datautil::spectralRoles(numbered, Sensor::Unknown), (Roles{-1, -1, -1, -1, -1, -1, -1}));
    EXPECT_EQ(datautil::spectralRoles(numbered, Sensor::LandsatOli), (Roles{1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(datautil::spectralRoles(numbered, Sensor::LandsatTm), (Roles{0, 1, 2, 3, 4, 6, -1}));
    // Sentinel-2 names with zeros and labels; B8 stands in for a missing B8A.
    EXPECT_EQ(datautil::spectralRoles({{none, "B02"}, {none, "B03 (Green)"}, {none, "band 4"}, {none, "B08"},
                                       {none, "B11"}, {none, "B12"}, {none, "B10"}},
                                      Sensor::Sentinel2),
              (Roles{0, 1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(datautil::spectralRoles({{none, "B8"}, {none, "B8A"}}, Sensor::Sentinel2)[datautil::kRoleNir], 1);

    EXPECT_EQ(datautil::sensorNamed("LANDSAT_8 OLI_TIRS"), Sensor::LandsatOli);
    EXPECT_EQ(datautil::sensorNamed("Landsat_7 ETM"), Sensor::LandsatTm);
    EXPECT_EQ(datautil::sensorNamed("Sentinel-2A"), Sensor::Sentinel2);
    EXPECT_EQ(datautil::sensorNamed("GF1 PMS1"), Sensor::Unknown);
}

namespace
{

std::string report(const QString& input, const QString& path)
{
    const Outcome run =
        call([&](AlgoResult* r) { return ExcuteAlgo_QualityInspection(input.toUtf8(), "", path.toUtf8(), 0, r); });
    EXPECT_TRUE(run.ok) << run.printed;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QString text = QString::fromUtf8(file.readAll());
    const QRegularExpressionMatch line = QRegularExpression(QStringLiteral("^Cloud share: .*$"),
                                                            QRegularExpression::MultilineOption)
                                             .match(text);
    return line.captured(0).toStdString();
}

void describe(const QString& path, const std::vector<double>& nanometres)
{
    GDALDatasetUniquePtr ds(GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    for (size_t b = 0; b < nanometres.size(); ++b)
    {
        ds->GetRasterBand(int(b) + 1)->SetMetadataItem("wavelength", CPLSPrintf("%g", nanometres[b]));
        ds->GetRasterBand(int(b) + 1)->SetMetadataItem("wavelength_units", "Nanometers");
    }
}

} // namespace

TEST(CloudShare, PlantedCloudCountedOverTheValidPixelsOrTheReasonWhyNot)
{
    QTemporaryDir dir;
    // 20 x 10 reflectances: a white cloud over the five left columns, vegetation elsewhere, the last row no data
    // (-1): 45 cloudy of 180 valid pixels.
    const double cloud[4] = {0.5, 0.5, 0.5, 0.5}, vegetation[4] = {0.04, 0.07, 0.05, 0.35};
    const QString input = dir.filePath("scene.tif");
    ASSERT_TRUE(makeGeoTiff(
        input, 20, 10, 4, GDT_Float32,
        [&](int b, int x, int y) { return y == 9 ? -1.0 : x < 5 ? cloud[b] : vegetation[b]; }, {}, -1.0));
    describe(input, {490, 560, 665, 842});
    EXPECT_EQ(report(input, dir.filePath("scene.txt")),
              "Cloud share: 25.00 % of the valid pixels (four-band cloud rules of blue, green, red and NIR)");

    // The same values as integers (reflectance x 10000) need a scale: without one nothing is estimated, with the
    // band's scale the share is the same.
    const QString integers = dir.filePath("integers.tif");
    ASSERT_TRUE(makeGeoTiff(
        integers, 20, 10, 4, GDT_UInt16,
        [&](int b, int x, int y) { return y == 9 ? 0.0 : 10000 * (x < 5 ? cloud[b] : vegetation[b]); }, {}, 0.0));
    describe(integers, {490, 560, 665, 842});
    EXPECT_EQ(report(integers, dir.filePath("integers.txt")),
              "Cloud share: not estimated (band 1 holds integers with no scale to reflectance)");
    {
        GDALDatasetUniquePtr ds(GDALDataset::Open(integers.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
        for (int b = 1; b <= 4; ++b)
            ds->GetRasterBand(b)->SetScale(1e-4);
    }
    EXPECT_EQ(report(integers, dir.filePath("scaled.txt")),
              "Cloud share: 25.00 % of the valid pixels (four-band cloud rules of blue, green, red and NIR)");

    // Bands nothing tells apart.
    const QString plain = dir.filePath("plain.tif");
    ASSERT_TRUE(makeGeoTiff(plain, 8, 8, 4, GDT_Float32, [](int, int x, int) { return 0.1 * x; }, {}));
    EXPECT_EQ(report(plain, dir.filePath("plain.txt")),
              "Cloud share: not estimated (the bands cannot be told to be blue, green, red and NIR (no wavelengths, "
              "no Landsat or Sentinel-2 band names))");
}

TEST(CloudShare, RealLandsatSceneLiesBetweenTheHighAndMediumConfidenceCloudOfItsQualityBand)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_BQA.tif");
    QTemporaryDir dir;
    // Bands 2-7 and 9 named as Landsat 8 numbers them, as top-of-atmosphere reflectance through the MTL's
    // reflectance factors (2e-5 x DN - 0.1) over sin(sun elevation 64.7436 degrees).
    GDALAllRegister(); // the stack is built here, before any entry has registered GDAL's drivers
    const QString stack = dir.filePath("l8.vrt");
    std::vector<QByteArray> names;
    for (int b : {2, 3, 4, 5, 6, 7, 9})
        names.push_back(sharedDataPath(QStringLiteral("landsat8/l8_B%1.tif").arg(b)).toUtf8());
    std::vector<const char*> sources;
    for (const QByteArray& name : names)
        sources.push_back(name.constData());
    const char* options[] = {"-separate", nullptr};
    GDALBuildVRTOptions* vrtOptions = GDALBuildVRTOptionsNew(const_cast<char**>(options), nullptr);
    GDALDatasetH vrt = GDALBuildVRT(stack.toUtf8().constData(), int(sources.size()), nullptr, sources.data(),
                                    vrtOptions, nullptr);
    GDALBuildVRTOptionsFree(vrtOptions);
    ASSERT_TRUE(vrt);
    const double sine = std::sin(64.74360932 * M_PI / 180.0);
    int b = 1;
    for (int number : {2, 3, 4, 5, 6, 7, 9})
    {
        GDALRasterBandH band = GDALGetRasterBand(vrt, b++);
        GDALSetDescription(band, CPLSPrintf("B%d", number));
        GDALSetRasterScale(band, 2e-5 / sine);
        GDALSetRasterOffset(band, -0.1 / sine);
    }
    GDALSetMetadataItem(vrt, "SPACECRAFT_ID", "LANDSAT_8", nullptr);
    GDALClose(vrt);

    const std::string line = report(stack, dir.filePath("l8.txt"));
    const QRegularExpressionMatch share =
        QRegularExpression(QStringLiteral("^Cloud share: ([0-9.]+) % .*and cirrus, no thermal band\\)$"))
            .match(QString::fromStdString(line));
    ASSERT_TRUE(share.hasMatch()) << line;
    // The quality band's cloud confidence (bits 14-15): high 3, medium 2.
    double high = 0, medium = 0;
    const std::vector<double> quality = readBand(sharedDataPath("landsat8/l8_BQA.tif"), 1);
    for (double q : quality)
    {
        high += (int(q) >> 14) == 3;
        medium += (int(q) >> 14) >= 2;
    }
    const double percent = share.captured(1).toDouble();
    EXPECT_GT(percent, 100 * high / quality.size());
    EXPECT_LT(percent, 100 * medium / quality.size());
}
