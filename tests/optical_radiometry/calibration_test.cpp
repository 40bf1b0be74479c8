// Calibration: radiance, reflectance and brightness temperature of the Landsat 8 sample against the MTL's
// formulas evaluated here, a coefficient table with solar irradiance, and every refusal.
#include "optical_fixtures.h"
#include "test_support.h"

#include <QDir>
#include <QFile>

#include <cmath>

using namespace testsupport;

namespace
{

constexpr double kDegree = M_PI / 180.0;
// From the sample's l8_MTL.txt.
constexpr double kSunElevation = 64.74360932;

struct CalibrationRun
{
    bool ok = false;
    std::string out;
    std::string message;
};

CalibrationRun calibrate(const QString& input, const QString& output, int type, const QString& calibrationFile)
{
    RecordingResult result;
    CalibrationRun run;
    StdoutCapture capture;
    run.ok = ExcuteAlgo_VYRCalibration(input.toUtf8(), output.toUtf8(), type, calibrationFile.toUtf8(),
                                       &result.record);
    run.out = capture.text();
    run.message = result.record.message;
    return run;
}

std::string bandText(const QString& path)
{
    GDALDataset* ds = GDALDataset::Open(path.toUtf8().constData());
    const std::string text = ds ? ds->GetRasterBand(1)->GetDescription() : "(no file)";
    if (ds)
        GDALClose(ds);
    return text;
}

double mean(const std::vector<double>& values)
{
    double sum = 0;
    for (double v : values)
        sum += v;
    return sum / double(values.size());
}

} // namespace

TEST(Calibration, LandsatSampleFollowsTheMtlFormulas)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_MTL.txt");
    QTemporaryDir dir;
    const QString mtl = sharedDataPath("landsat8/l8_MTL.txt");
    const QString red = sharedDataPath("landsat8/l8_B4.tif");
    const QString thermal = sharedDataPath("landsat8/l8_B10.tif");
    const std::vector<double> dnRed = readBand(red, 1), dnThermal = readBand(thermal, 1);

    const struct
    {
        QString input;
        int type;
        std::function<double(double)> formula; // from the MTL's numbers, as USGS states them
        double meanAtMeanDn;                   // the published check values of the sample
        const char* unit;
    } rows[] = {
        {red, 0, [](double q) { return 9.7062E-03 * q - 48.53088; }, 31.5618, "W/(m2 sr um)"},
        {red, 1, [](double q) { return (2.0E-05 * q - 0.1) / std::sin(kSunElevation * kDegree); }, 0.071908, ""},
        {thermal, 2, [](double q) { return 1321.0789 / std::log(774.8853 / (3.3420E-04 * q + 0.1) + 1.0); }, 0, "K"},
    };
    for (const auto& row : rows)
    {
        const QString output = dir.filePath(QStringLiteral("cal%1.tif").arg(row.type));
        const CalibrationRun run = calibrate(row.input, output, row.type, mtl);
        ASSERT_TRUE(run.ok) << run.message;
        EXPECT_EQ(lines(run.out).back(), "[OUTPUT] OutputFile=\"" + output.toStdString() + "\"");
        const std::vector<double> got = readBand(output, 1);
        const std::vector<double>& dn = row.type == 2 ? dnThermal : dnRed;
        ASSERT_EQ(got.size(), dn.size());
        double worst = 0;
        for (size_t i = 0; i < dn.size(); ++i)
            worst = std::max(worst, std::fabs(got[i] - row.formula(dn[i])) / std::max(1.0, std::fabs(row.formula(dn[i]))));
        EXPECT_LT(worst, 1e-6) << row.type; // float32 rounding
        if (row.meanAtMeanDn > 0) // linear: the mean maps onto the mean
        {
            EXPECT_NEAR(mean(got), row.meanAtMeanDn, 1e-4 * row.meanAtMeanDn) << row.type;
        }

        GDALDataset* ds = GDALDataset::Open(output.toUtf8().constData());
        ASSERT_TRUE(ds);
        GDALRasterBand* band = ds->GetRasterBand(1);
        EXPECT_EQ(band->GetRasterDataType(), GDT_Float32);
        EXPECT_STREQ(band->GetDescription(), row.type == 2 ? "B10 (TIRS 1)" : "B4 (Red)");
        EXPECT_STREQ(band->GetMetadataItem("wavelength"), row.type == 2 ? "10.895" : "0.655");
        EXPECT_STREQ(band->GetUnitType(), row.unit);
        int hasNoData = 0;
        EXPECT_EQ(band->GetNoDataValue(&hasNoData), -9999.0);
        EXPECT_TRUE(hasNoData);
        double gt[6];
        ds->GetGeoTransform(gt);
        EXPECT_EQ(gt[0], 452475.0);
        EXPECT_EQ(gt[3], 3408645.0);
        GDALClose(ds);
    }
}

TEST(Calibration, FindsTheMtlBesideTheImage)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_MTL.txt");
    QTemporaryDir dir;
    ASSERT_TRUE(opticalfixtures::linkLandsatSample(dir.path(), {"l8_B10.tif", "l8_MTL.txt"}));
    const QString output = dir.filePath("bt.tif");
    const CalibrationRun run = calibrate(dir.filePath("l8_B10.tif"), output, 2, QString());
    ASSERT_TRUE(run.ok) << run.message;
    const std::vector<double> dn = readBand(dir.filePath("l8_B10.tif"), 1), got = readBand(output, 1);
    for (size_t i : {size_t(0), dn.size() / 2, dn.size() - 1})
        EXPECT_NEAR(got[i], 1321.0789 / std::log(774.8853 / (3.3420E-04 * dn[i] + 0.1) + 1.0), 1e-3);
}

TEST(Calibration, CoefficientTableRadianceAndReflectance)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("GF1_WFV1_E116.5_N39.9_20200103.tif");
    // DN 0 is the image's no data.
    ASSERT_TRUE(makeGeoTiff(input, 20, 10, 2, GDT_UInt16, [](int b, int x, int y) { return x == 0 ? 0 : 100 * (b + 1) + x * 7 + y; },
                            {}, 0.0));
    const QString table = dir.filePath("coefficients.txt");
    ASSERT_TRUE(opticalfixtures::writeText(table, "SUN_ELEVATION = 50\nEARTH_SUN_DISTANCE = 1.01\n"
                                                  "GF1_WFV1 1 0.2 1.5 1900\nGF1_WFV1 2 0.25 0 1800\n"
                                                  "ZY3_MUX 1 9 9 9\n"));
    const QString radiance = dir.filePath("l.tif"), reflectance = dir.filePath("r.tif");
    ASSERT_TRUE(calibrate(input, radiance, 0, table).ok);
    const CalibrationRun run = calibrate(input, reflectance, 1, table);
    ASSERT_TRUE(run.ok) << run.message;
    const double gain[] = {0.2, 0.25}, offset[] = {1.5, 0}, esun[] = {1900, 1800};
    for (int b = 0; b < 2; ++b)
    {
        const std::vector<double> dn = readBand(input, b + 1), l = readBand(radiance, b + 1), r = readBand(reflectance, b + 1);
        for (size_t i = 0; i < dn.size(); ++i)
        {
            if (dn[i] == 0)
            {
                EXPECT_EQ(l[i], -9999.0);
                EXPECT_EQ(r[i], -9999.0);
                continue;
            }
            const double expectL = gain[b] * dn[i] + offset[b];
            EXPECT_NEAR(l[i], expectL, 1e-4);
            EXPECT_NEAR(r[i], M_PI * expectL * 1.01 * 1.01 / (esun[b] * std::sin(50 * kDegree)), 1e-6);
        }
    }
}

TEST(Calibration, RefusalsNameTheParameterAndLeaveNothing)
{
    QTemporaryDir dir;
    const QString plain = dir.filePath("plain.tif");
    ASSERT_TRUE(makeRaster(plain, 8, 8, 3, GDT_UInt16, [](int, int x, int) { return x + 1; }));
    const QString gf1 = dir.filePath("GF1_WFV1_scene.tif");
    ASSERT_TRUE(makeRaster(gf1, 8, 8, 3, GDT_UInt16, [](int, int x, int) { return x + 1; }));
    const QString table = dir.filePath("table.txt"), noSun = dir.filePath("nosun.txt"), badMtl = dir.filePath("sub/x_MTL.txt");
    QDir(dir.path()).mkdir("sub");
    ASSERT_TRUE(opticalfixtures::writeText(table, "SUN_ELEVATION = 40\nDATE = 2020-06-01\nGF1_WFV1 1 0.2 0 1900\nGF1_WFV1 2 0.2 0 1800\n"));
    ASSERT_TRUE(opticalfixtures::writeText(noSun, "1 0.2 0 1900\n2 0.2 0 1800\n3 0.2 0 1700\n"));
    ASSERT_TRUE(opticalfixtures::writeText(badMtl, "GROUP = L1_METADATA_FILE\nSPACECRAFT_ID = \"LANDSAT_8\"\n"));
    const QString mtl = sharedDataPath("landsat8/l8_MTL.txt");
    const QString red = sharedDataPath("landsat8/l8_B4.tif"), thermal = sharedDataPath("landsat8/l8_B10.tif");
    const QString missing = dir.filePath("none.txt");

    struct Row
    {
        QString input;
        int type;
        QString file;
        QString message;
        bool needsSample;
    };
    const std::vector<Row> rows = {
        {plain, 3, table, "Calibration: the parameter CalibrationType (3) must be one of 0, 1, 2!", false},
        {plain, 1, missing, "Calibration: the parameter CalibrationFile (" + missing + ") is not an existing file!", false},
        {plain, 1, QString(),
         "Calibration: the parameter InputFile (" + plain +
             ") has no MTL or Sentinel-2 product XML beside it and no CalibrationFile was given!",
         false},
        {plain, 1, badMtl,
         "Calibration: the parameter CalibrationFile (" + badMtl + ") cannot be used: the MTL has no valid SUN_ELEVATION!",
         false},
        {plain, 1, table,
         "Calibration: the parameter CalibrationFile (" + table +
             ") cannot be used: the coefficient table knows no sensor of plain.tif (it lists GF1_WFV1)!",
         false},
        {gf1, 1, table,
         "Calibration: the parameter CalibrationFile (" + table + ") does not tell which of its bands is band 3 of the input!",
         false},
        {plain, 1, noSun,
         "Calibration: the parameter CalibrationFile (" + noSun +
             ") cannot be used: the sun elevation needed for reflectance is unknown!",
         false},
        {plain, 2, noSun,
         "Calibration: the parameter CalibrationFile (" + noSun +
             ") cannot be used: band 1 has no thermal constants K1/K2, which brightness temperature needs!",
         false},
        {red, 2, mtl,
         "Calibration: the parameter CalibrationFile (" + mtl +
             ") cannot be used: band 4 has no thermal constants K1/K2, which brightness temperature needs!",
         true},
        {thermal, 1, mtl,
         "Calibration: the parameter CalibrationFile (" + mtl +
             ") cannot be used: band 10 is a thermal band and has no reflectance!",
         true},
    };
    for (const Row& row : rows)
    {
        if (row.needsSample && mtl.isEmpty())
            continue;
        const QString output = dir.filePath("out.tif");
        const CalibrationRun run = calibrate(row.input, output, row.type, row.file);
        EXPECT_FALSE(run.ok);
        EXPECT_EQ(run.message, row.message.toStdString());
        EXPECT_FALSE(QFile::exists(output)) << row.message.toStdString();
    }
}

TEST(Calibration, Sentinel2BandFromItsProduct)
{
    SKIP_WITHOUT_SHARED_DATA("sentinel2/s2_B05.jp2");
    QTemporaryDir dir;
    const QString safe = opticalfixtures::makeSentinel2Safe(dir.path(), "L1C", "04.00", true);
    ASSERT_FALSE(safe.isEmpty());
    // The band inside the product: its XML is found three folders up, the tile XML (sun zenith 60) beside it.
    const QString band = safe + "/GRANULE/L1C_T18SVG_A002939_20160112T155852/IMG_DATA/T18SVG_20160112T155852_B05.jp2";
    const QString reflectance = dir.filePath("rho.tif"), radiance = dir.filePath("l.tif");
    CalibrationRun run = calibrate(band, reflectance, 1, QString());
    ASSERT_TRUE(run.ok) << run.message;
    run = calibrate(band, radiance, 0, QString());
    ASSERT_TRUE(run.ok) << run.message;
    const std::vector<double> dn = readBand(band, 1), rho = readBand(reflectance, 1), l = readBand(radiance, 1);
    // B05: E = 1424.64 W/(m2 um), U = 1.03411047670495 in the fixture's XML.
    const double toRadiance = 1424.64 * std::cos(60 * kDegree) * 1.03411047670495 / M_PI;
    for (size_t i = 0; i < dn.size(); i += 7)
    {
        if (dn[i] == 0)
        {
            EXPECT_EQ(rho[i], -9999.0);
            continue;
        }
        EXPECT_NEAR(rho[i], (dn[i] - 1000) / 10000, 1e-6);
        EXPECT_NEAR(l[i], (dn[i] - 1000) / 10000 * toRadiance, 1e-4 * std::max(1.0, std::fabs(l[i])));
    }
    EXPECT_EQ(bandText(reflectance), "B05 (Red edge 1)");
}
