// Stacks of deliveries: the Landsat 8 sample folder into one 30 m raster (then calibrated from its own band
// metadata), and Sentinel-2 SAFE folders of both offset regimes at 20 and 60 m, checked pixel by pixel against
// the sample's DN.
#include "optical_fixtures.h"
#include "test_support.h"

#include <QDir>
#include <QFile>

#include <cpl_conv.h>

#include <cmath>

using namespace testsupport;

namespace
{

struct EntryRun
{
    bool ok = false;
    std::string out;
    std::string message;
};

EntryRun stackLandsat(const QString& input, const QString& output)
{
    RecordingResult result;
    EntryRun run;
    StdoutCapture capture;
    run.ok = ExcuteAlgo_BandCombination_LandSat(input.toUtf8(), output.toUtf8(), &result.record);
    run.out = capture.text();
    run.message = result.record.message;
    return run;
}

EntryRun stackSentinel2(const QString& input, const QString& output, const char* bands, int resolution, double scale,
                        int option)
{
    RecordingResult result;
    EntryRun run;
    StdoutCapture capture;
    run.ok = ExcuteAlgo_Sen2DataTransform2(input.toUtf8(), output.toUtf8(), bands, resolution, scale, option,
                                           &result.record);
    run.out = capture.text();
    run.message = result.record.message;
    return run;
}

std::string bandText(const QString& path, int band, const char* item = nullptr)
{
    GDALDataset* ds = GDALDataset::Open(path.toUtf8().constData());
    if (!ds)
        return "(no file)";
    const char* text = item ? ds->GetRasterBand(band)->GetMetadataItem(item) : ds->GetRasterBand(band)->GetDescription();
    const std::string value = text ? text : "(none)";
    GDALClose(ds);
    return value;
}

} // namespace

TEST(BandCombinationLandSat, StacksTheReflectiveBandsWithTheirCoefficients)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_MTL.txt");
    QTemporaryDir dir, elsewhere;
    ASSERT_TRUE(opticalfixtures::linkLandsatSample(dir.path()));
    const QString stack = elsewhere.filePath("stack.tif");
    const EntryRun run = stackLandsat(dir.path(), stack);
    ASSERT_TRUE(run.ok) << run.message;
    EXPECT_EQ(lines(run.out).back(), "[OUTPUT] OutputFile=\"" + stack.toStdString() + "\"");

    const char* files[] = {"l8_B1.tif", "l8_B2.tif", "l8_B3.tif", "l8_B4.tif", "l8_B5.tif", "l8_B6.tif", "l8_B7.tif", "l8_B9.tif"};
    const char* labels[] = {"B1 (Coastal aerosol)", "B2 (Blue)", "B3 (Green)", "B4 (Red)",
                            "B5 (NIR)",             "B6 (SWIR 1)", "B7 (SWIR 2)", "B9 (Cirrus)"};
    GDALDataset* ds = GDALDataset::Open(stack.toUtf8().constData());
    ASSERT_TRUE(ds);
    EXPECT_EQ(ds->GetRasterCount(), 8);
    EXPECT_EQ(ds->GetRasterBand(1)->GetRasterDataType(), GDT_UInt16);
    EXPECT_STREQ(ds->GetMetadataItem("SUN_ELEVATION"), "64.74360932");
    EXPECT_STREQ(ds->GetMetadataItem("SENSOR_ID"), "OLI_TIRS");
    GDALClose(ds);
    for (int b = 0; b < 8; ++b)
    {
        EXPECT_EQ(bandText(stack, b + 1), labels[b]);
        EXPECT_EQ(readBand(stack, b + 1), readBand(dir.filePath(files[b]), 1)) << files[b];
    }
    EXPECT_EQ(bandText(stack, 4, "RADIANCE_MULT"), "0.0097062");
    EXPECT_EQ(bandText(stack, 4, "REFLECTANCE_ADD"), "-0.1");
    EXPECT_EQ(bandText(stack, 8, "wavelength"), "1.373");

    // The stack carries what calibration needs: reflectance of band 4 as from the MTL.
    const QString reflectance = elsewhere.filePath("toa.tif");
    RecordingResult result;
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_VYRCalibration(stack.toUtf8(), reflectance.toUtf8(), 1, "", &result.record))
        << result.record.message;
    capture.text();
    const std::vector<double> dn = readBand(dir.filePath("l8_B4.tif"), 1), rho = readBand(reflectance, 4);
    const double sinElevation = std::sin(64.74360932 * M_PI / 180);
    for (size_t i = 0; i < dn.size(); i += 997)
        EXPECT_NEAR(rho[i], (2e-5 * dn[i] - 0.1) / sinElevation, 1e-6);
}

TEST(BandCombinationLandSat, RefusesIncompleteDeliveries)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_MTL.txt");
    QTemporaryDir empty, partial;
    ASSERT_TRUE(opticalfixtures::linkLandsatSample(partial.path(), {"l8_MTL.txt", "l8_B1.tif", "l8_B2.tif", "l8_B3.tif", "l8_B4.tif"}));
    const struct
    {
        QString input;
        QString message;
    } rows[] = {
        {empty.path(), "BandCombination_LandSat: the parameter InputDir (" + empty.path() + ") holds no *_MTL.txt file!"},
        {partial.filePath("l8_MTL.txt"), "BandCombination_LandSat: the parameter InputDir (" + partial.filePath("l8_MTL.txt") +
                                             ") lacks the image of band 5 (LC80200392015216LGN00_B5.TIF)!"},
        {empty.filePath("none"), "BandCombination_LandSat: the parameter InputDir (" + empty.filePath("none") + ") does not exist!"},
    };
    for (const auto& row : rows)
    {
        const QString output = empty.filePath("out.tif");
        const EntryRun run = stackLandsat(row.input, output);
        EXPECT_FALSE(run.ok);
        EXPECT_EQ(run.message, row.message.toStdString());
        EXPECT_FALSE(QFile::exists(output));
    }
}

TEST(Sen2DataTransform2, OffsetOfEachBaselineAtNativeResolution)
{
    SKIP_WITHOUT_SHARED_DATA("sentinel2/s2_B05.jp2");
    const std::vector<double> b05 = readBand(sharedDataPath("sentinel2/s2_B05.jp2"), 1);
    const std::vector<double> b8a = readBand(sharedDataPath("sentinel2/s2_B8A.jp2"), 1);
    const struct
    {
        const char* level;
        const char* baseline;
        bool listed;
        double offset;
        const char* bands;
    } rows[] = {
        {"L1C", "04.00", true, -1000, "B05,B8A"},
        {"L1C", "02.01", false, 0, "5|8a"},
        {"L2A", "04.00", true, -1000, "B05 B8A"},
    };
    for (const auto& row : rows)
    {
        QTemporaryDir dir;
        const QString safe = opticalfixtures::makeSentinel2Safe(dir.path(), row.level, row.baseline, row.listed);
        ASSERT_FALSE(safe.isEmpty());
        const QString output = dir.filePath("s2.tif");
        const EntryRun run = stackSentinel2(safe, output, row.bands, 20, 1.0, 0);
        ASSERT_TRUE(run.ok) << run.message;
        EXPECT_EQ(lines(run.out).back(), "[OUTPUT] OutputFile=\"" + output.toStdString() + "\"");
        const std::vector<double> r05 = readBand(output, 1), r8a = readBand(output, 2);
        ASSERT_EQ(r05.size(), b05.size());
        for (size_t i = 0; i < b05.size(); i += 101)
        {
            EXPECT_NEAR(r05[i], b05[i] == 0 ? -9999 : (b05[i] + row.offset) / 10000, 1e-6) << row.baseline;
            EXPECT_NEAR(r8a[i], b8a[i] == 0 ? -9999 : (b8a[i] + row.offset) / 10000, 1e-6) << row.baseline;
        }
        EXPECT_EQ(bandText(output, 1), "B05 (Red edge 1)");
        EXPECT_EQ(bandText(output, 2, "wavelength"), "0.8647");
        EXPECT_EQ(bandText(output, 1, "RADIO_ADD_OFFSET"), row.offset == 0 ? "0" : "-1000");
    }
}

TEST(Sen2DataTransform2, CoarseningAveragesByMapCoordinates)
{
    SKIP_WITHOUT_SHARED_DATA("sentinel2/s2_B05.jp2");
    QTemporaryDir dir;
    const QString safe = opticalfixtures::makeSentinel2Safe(dir.path(), "L1C", "04.00", true);
    const QString output = dir.filePath("s2_60.tif");
    // The 60 m grid is B01's, whose top edge lies one 20 m row above B05's.
    const EntryRun run = stackSentinel2(safe + "/MTD_MSIL1C.xml", output, "B01,B05", 60, 10000.0, 0);
    ASSERT_TRUE(run.ok) << run.message;
    const std::vector<double> b01 = readBand(sharedDataPath("sentinel2/s2_B01.jp2"), 1);
    const std::vector<double> b05 = readBand(sharedDataPath("sentinel2/s2_B05.jp2"), 1);
    const std::vector<double> out01 = readBand(output, 1), out05 = readBand(output, 2);
    ASSERT_EQ(out01.size(), b01.size()); // 322 x 324
    const int width60 = 322, width20 = 967;
    for (const auto& [i, j] : std::vector<std::pair<int, int>>{{0, 1}, {5, 7}, {100, 200}, {321, 300}})
    {
        EXPECT_NEAR(out01[size_t(j * width60 + i)], b01[size_t(j * width60 + i)] - 1000, 1e-3);
        double sum = 0;
        for (int r = 3 * j - 1; r <= 3 * j + 1; ++r)
            for (int c = 3 * i; c < 3 * i + 3; ++c)
                sum += b05[size_t(r * width20 + c)];
        EXPECT_NEAR(out05[size_t(j * width60 + i)], sum / 9 - 1000, 1e-2) << i << "," << j;
    }
}

TEST(Sen2DataTransform2, ReadsAZippedProduct)
{
    SKIP_WITHOUT_SHARED_DATA("sentinel2/s2_B05.jp2");
    QTemporaryDir dir;
    const QString safe = opticalfixtures::makeSentinel2Safe(dir.path(), "L1C", "02.01", false);
    const QString zip = dir.filePath("S2A_MSI_TEST.zip");
    void* archive = CPLCreateZip(zip.toUtf8().constData(), nullptr);
    ASSERT_TRUE(archive);
    const QString granule = "GRANULE/L1C_T18SVG_A002939_20160112T155852/";
    for (const QString& name : {QString("MTD_MSIL1C.xml"), granule + "MTD_TL.xml",
                                granule + "IMG_DATA/T18SVG_20160112T155852_B8A.jp2"})
    {
        QFile file(safe + "/" + name);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        ASSERT_EQ(CPLCreateFileInZip(archive, ("S2A_MSI_TEST.SAFE/" + name).toUtf8().constData(), nullptr), CE_None);
        ASSERT_EQ(CPLWriteFileInZip(archive, bytes.constData(), bytes.size()), CE_None);
        ASSERT_EQ(CPLCloseFileInZip(archive), CE_None);
    }
    ASSERT_EQ(CPLCloseZip(archive), CE_None);
    const QString output = dir.filePath("from_zip.tif");
    const EntryRun run = stackSentinel2(zip, output, "B8A", 20, 10000, 0);
    ASSERT_TRUE(run.ok) << run.message;
    const std::vector<double> dn = readBand(sharedDataPath("sentinel2/s2_B8A.jp2"), 1), out = readBand(output, 1);
    ASSERT_EQ(out.size(), dn.size());
    for (size_t i = 0; i < dn.size(); i += 997)
        EXPECT_NEAR(out[i], dn[i] == 0 ? -9999 : dn[i], 1e-3); // baseline 02.01: no offset; Scale 10000
}

TEST(Sen2DataTransform2, SceneClassificationOfAnL2AProduct)
{
    SKIP_WITHOUT_SHARED_DATA("sentinel2/s2_B05.jp2");
    GDALAllRegister(); // the fixture is opened here, before any entry has registered GDAL's drivers
    QTemporaryDir dir;
    const QString safe = opticalfixtures::makeSentinel2Safe(dir.path(), "L2A", "04.00", true);
    // A scene classification on B05's grid: class (x + y) % 12.
    const QString scl = safe + "/GRANULE/L1C_T18SVG_A002939_20160112T155852/IMG_DATA/R20m/T18SVG_20160112T155852_SCL_20m.jp2";
    GDALDataset* b05 = GDALDataset::Open(sharedDataPath("sentinel2/s2_B05.jp2").toUtf8().constData());
    ASSERT_TRUE(b05);
    const int width = b05->GetRasterXSize(), height = b05->GetRasterYSize();
    double gt[6];
    b05->GetGeoTransform(gt);
    GDALDataset* classes = GetGDALDriverManager()->GetDriverByName("GTiff")->Create(scl.toUtf8().constData(), width, height, 1, GDT_Byte, nullptr);
    ASSERT_TRUE(classes);
    classes->SetGeoTransform(gt);
    classes->SetSpatialRef(b05->GetSpatialRef());
    std::vector<uint8_t> values(size_t(width) * size_t(height));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            values[size_t(y) * size_t(width) + size_t(x)] = uint8_t((x + y) % 12);
    ASSERT_EQ(classes->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, width, height, values.data(), width, height, GDT_Byte, 0, 0), CE_None);
    GDALClose(classes);
    GDALClose(b05);

    const QString output = dir.filePath("l2a.tif");
    const EntryRun run = stackSentinel2(safe, output, "B05", 20, 1.0, 1);
    ASSERT_TRUE(run.ok) << run.message;
    EXPECT_EQ(bandText(output, 2), "SCL (scene classification)");
    const std::vector<double> out = readBand(output, 2);
    ASSERT_EQ(out.size(), values.size());
    for (size_t i = 1; i < values.size(); i += 499)
        EXPECT_EQ(out[i], values[i] == 0 ? -9999.0 : double(values[i])) << i; // class 0 is no data
}

TEST(Sen2DataTransform2, AllBandsOfAResolutionAndRefusals)
{
    SKIP_WITHOUT_SHARED_DATA("sentinel2/s2_B05.jp2");
    QTemporaryDir dir;
    const QString safe = opticalfixtures::makeSentinel2Safe(dir.path(), "L1C", "04.00", true);
    const QString all = dir.filePath("all20.tif");
    ASSERT_TRUE(stackSentinel2(safe, all, "", 20, 1.0, 0).ok);
    std::string names;
    for (int b = 1; b <= 6; ++b)
        names += bandText(all, b, "BAND_ID") + " ";
    EXPECT_EQ(names, "B05 B06 B07 B8A B11 B12 ");

    QTemporaryDir l2aDir, plain;
    const QString l2a = opticalfixtures::makeSentinel2Safe(l2aDir.path(), "L2A", "04.00", true);
    const QString output = dir.filePath("out.tif");
    const struct
    {
        QString input;
        const char* bands;
        int resolution;
        double scale;
        int option;
        QString message;
    } rows[] = {
        {safe, "B02", 20, 1, 0, "Sen2DataTransform2: the parameter Bands (B02) asks for band B02, which the product does not hold!"},
        {safe, "", 10, 1, 0, "Sen2DataTransform2: the parameter InputFile (" + safe + ") asks for band B02, which the product does not hold!"},
        {safe, "B05,B13", 20, 1, 0, "Sen2DataTransform2: the parameter Bands (B05,B13) names B13, which is not a Sentinel-2 band!"},
        {safe, "", 30, 1, 0, "Sen2DataTransform2: the parameter Resolution (30) must be one of 10, 20, 60!"},
        {safe, "", 20, 0, 0, "Sen2DataTransform2: the parameter Scale (0) must be greater than 0!"},
        {safe, "", 20, 1, 1, "Sen2DataTransform2: the parameter Option (1) adds the scene classification, which only an L2A product has!"},
        {l2a, "B05", 20, 1, 1, "Sen2DataTransform2: the parameter Option (1) needs the scene classification (SCL), which the product does not hold!"},
        {plain.path(), "", 20, 1, 0, "Sen2DataTransform2: the parameter InputFile (" + plain.path() + ") is not a Sentinel-2 product (no MTD_MSIL1C.xml or MTD_MSIL2A.xml found)!"},
    };
    for (const auto& row : rows)
    {
        const EntryRun run = stackSentinel2(row.input, output, row.bands, row.resolution, row.scale, row.option);
        EXPECT_FALSE(run.ok);
        EXPECT_EQ(run.message, row.message.toStdString());
        EXPECT_FALSE(QFile::exists(output));
    }
}
