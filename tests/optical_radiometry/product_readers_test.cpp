// The product readers: Landsat MTL (pre-collection, Collection 2, TM from ranges), Sentinel-2 product and tile
// XML of both offset regimes, the coefficient table; values checked against the texts by hand.
#include "coefficient_table.h"
#include "landsat_mtl.h"
#include "optical_fixtures.h"
#include "scene_metadata.h"
#include "sentinel2_mtd.h"
#include "test_support.h"

#include <QFile>

#include <cmath>

using namespace optical;

namespace
{

std::string sampleMtl()
{
    QFile file(testsupport::sharedDataPath(QStringLiteral("landsat8/l8_MTL.txt")));
    return file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : std::string();
}

// The message of the ProductError a parse throws, or "no error".
template <typename F> std::string errorOf(F parse)
{
    try
    {
        parse();
    }
    catch (const ProductError& error)
    {
        return error.what();
    }
    return "no error";
}

const char* kCollection2Mtl = R"(GROUP = LANDSAT_METADATA_FILE
  GROUP = PRODUCT_CONTENTS
    COLLECTION_NUMBER = 02
    FILE_NAME_BAND_4 = "LC09_L1TP_020039_20220101_20220101_02_T1_B4.TIF"
    FILE_NAME_BAND_10 = "LC09_L1TP_020039_20220101_20220101_02_T1_B10.TIF"
    FILE_NAME_QUALITY_L1_PIXEL = "LC09_L1TP_020039_20220101_20220101_02_T1_QA_PIXEL.TIF"
  END_GROUP = PRODUCT_CONTENTS
  GROUP = IMAGE_ATTRIBUTES
    SPACECRAFT_ID = "LANDSAT_9"
    SENSOR_ID = "OLI_TIRS"
    DATE_ACQUIRED = 2022-01-01
    SUN_AZIMUTH = 150.5
    SUN_ELEVATION = 35.25
    EARTH_SUN_DISTANCE = 0.9833
  END_GROUP = IMAGE_ATTRIBUTES
  GROUP = LEVEL2_SURFACE_REFLECTANCE_PARAMETERS
    REFLECTANCE_MULT_BAND_4 = 2.75E-05
    REFLECTANCE_ADD_BAND_4 = -0.2
  END_GROUP = LEVEL2_SURFACE_REFLECTANCE_PARAMETERS
  GROUP = LEVEL1_RADIOMETRIC_RESCALING
    RADIANCE_MULT_BAND_4 = 1.0E-02
    RADIANCE_ADD_BAND_4 = -50.0
    RADIANCE_MULT_BAND_10 = 3.8E-04
    RADIANCE_ADD_BAND_10 = 0.1
    REFLECTANCE_MULT_BAND_4 = 2.0E-05
    REFLECTANCE_ADD_BAND_4 = -0.1
  END_GROUP = LEVEL1_RADIOMETRIC_RESCALING
  GROUP = LEVEL1_THERMAL_CONSTANTS
    K1_CONSTANT_BAND_10 = 799.0283
    K2_CONSTANT_BAND_10 = 1329.2405
  END_GROUP = LEVEL1_THERMAL_CONSTANTS
END_GROUP = LANDSAT_METADATA_FILE
END
)";

// A TM scene with ranges only (no MULT/ADD, no distance, no K1/K2): the older layout.
const char* kTmRangesMtl = R"(GROUP = L1_METADATA_FILE
  SPACECRAFT_ID = "LANDSAT_5"
  SENSOR_ID = "TM"
  DATE_ACQUIRED = 2010-07-04
  SUN_ELEVATION = 60.0
  RADIANCE_MAXIMUM_BAND_3 = 264.0
  RADIANCE_MINIMUM_BAND_3 = -1.17
  QUANTIZE_CAL_MAX_BAND_3 = 255
  QUANTIZE_CAL_MIN_BAND_3 = 1
  RADIANCE_MAXIMUM_BAND_6 = 15.303
  RADIANCE_MINIMUM_BAND_6 = 1.238
  QUANTIZE_CAL_MAX_BAND_6 = 255
  QUANTIZE_CAL_MIN_BAND_6 = 1
END_GROUP = L1_METADATA_FILE
)";

} // namespace

TEST(LandsatMtl, SampleSceneMatchesItsText)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_MTL.txt");
    const LandsatMetadata meta = parseLandsatMtl(sampleMtl());
    EXPECT_EQ(meta.spacecraft, "LANDSAT_8");
    EXPECT_EQ(meta.spacecraftNumber, 8);
    EXPECT_EQ(meta.sensor, "OLI_TIRS");
    EXPECT_EQ(meta.date.year * 10000 + meta.date.month * 100 + meta.date.day, 20150804);
    EXPECT_DOUBLE_EQ(meta.sun.elevation, 64.74360932);
    EXPECT_DOUBLE_EQ(meta.sun.azimuth, 115.87210674);
    EXPECT_DOUBLE_EQ(meta.sun.earthSunDistance, 1.0145544);
    EXPECT_EQ(meta.qualityFile, "LC80200392015216LGN00_BQA.TIF");
    ASSERT_EQ(meta.bands.size(), 11u);
    std::string order;
    for (const BandCoefficients& b : meta.bands)
        order += b.id + " ";
    EXPECT_EQ(order, "1 2 3 4 5 6 7 8 9 10 11 ");
    const BandCoefficients& red = *meta.band("4");
    EXPECT_DOUBLE_EQ(red.radianceMult, 9.7062E-03);
    EXPECT_DOUBLE_EQ(red.radianceAdd, -48.53088);
    EXPECT_DOUBLE_EQ(red.reflectanceMult, 2.0E-05);
    EXPECT_DOUBLE_EQ(red.reflectanceAdd, -0.1);
    EXPECT_EQ(red.name, "Red");
    EXPECT_DOUBLE_EQ(red.wavelengthUm, 0.655);
    EXPECT_FALSE(red.thermal);
    EXPECT_EQ(red.fileName, "LC80200392015216LGN00_B4.TIF");
    const BandCoefficients& tirs = *meta.band("10");
    EXPECT_TRUE(tirs.thermal);
    EXPECT_DOUBLE_EQ(tirs.k1, 774.8853);
    EXPECT_DOUBLE_EQ(tirs.k2, 1321.0789);
    EXPECT_FALSE(tirs.hasReflectance());
}

TEST(LandsatMtl, Collection2TakesLevel1FactorsNotLevel2)
{
    const LandsatMetadata meta = parseLandsatMtl(kCollection2Mtl);
    EXPECT_EQ(meta.collection, 2);
    EXPECT_EQ(meta.spacecraftNumber, 9);
    EXPECT_EQ(meta.qualityFile, "LC09_L1TP_020039_20220101_20220101_02_T1_QA_PIXEL.TIF");
    ASSERT_EQ(meta.bands.size(), 2u);
    EXPECT_DOUBLE_EQ(meta.band("4")->reflectanceMult, 2.0E-05);
    EXPECT_DOUBLE_EQ(meta.band("4")->reflectanceAdd, -0.1);
    EXPECT_DOUBLE_EQ(meta.band("10")->k1, 799.0283);
    EXPECT_DOUBLE_EQ(meta.sun.earthSunDistance, 0.9833);
}

TEST(LandsatMtl, OlderTmLayoutDerivesWhatItLacks)
{
    const LandsatMetadata meta = parseLandsatMtl(kTmRangesMtl);
    const BandCoefficients& red = *meta.band("3");
    // gain = (264 + 1.17) / 254, offset = -1.17 - gain.
    EXPECT_NEAR(red.radianceMult, 265.17 / 254.0, 1e-12);
    EXPECT_NEAR(red.radianceAdd, -1.17 - 265.17 / 254.0, 1e-12);
    EXPECT_DOUBLE_EQ(red.esun, 1536.0);
    const BandCoefficients& thermal = *meta.band("6");
    EXPECT_TRUE(thermal.thermal);
    EXPECT_DOUBLE_EQ(thermal.k1, 607.76);
    EXPECT_DOUBLE_EQ(thermal.k2, 1260.56);
    // 4 July is two days after aphelion: 1.0167 AU within the approximation's error.
    EXPECT_NEAR(meta.sun.earthSunDistance, 1.0167, 2e-4);
}

TEST(LandsatMtl, RefusesWhatCannotBeUsed)
{
    const struct
    {
        std::string text;
        std::string message;
    } rows[] = {
        {"GROUP = L1_METADATA_FILE\nSUN_ELEVATION = 40\nEND_GROUP = L1_METADATA_FILE\n",
         "the MTL names no SPACECRAFT_ID"},
        {"GROUP = L1_METADATA_FILE\nSPACECRAFT_ID = \"LANDSAT_8\"\nRADIANCE_MULT_BAND_1 = 1\nRADIANCE_ADD_BAND_1 = 0\n",
         "the MTL has no valid SUN_ELEVATION"},
        {"GROUP = L1_METADATA_FILE\nSPACECRAFT_ID = \"LANDSAT_8\"\nSUN_ELEVATION = 95\n",
         "the MTL has no valid SUN_ELEVATION"},
        {"GROUP = L1_METADATA_FILE\nSPACECRAFT_ID = \"LANDSAT_8\"\nSUN_ELEVATION = 40\nRADIANCE_MULT_BAND_1 = x\n",
         "the MTL has no band with radiance rescaling"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(errorOf([&] { parseLandsatMtl(row.text); }), row.message) << row.text;
}

TEST(Sentinel2Xml, OffsetFollowsTheProcessingBaseline)
{
    const struct
    {
        const char* level;
        const char* baseline;
        bool listed;
        double offset;
    } rows[] = {
        {"L1C", "02.01", false, 0.0},    {"L1C", "04.00", true, -1000.0}, {"L1C", "04.00", false, -1000.0},
        {"L1C", "05.09", true, -1000.0}, {"L2A", "04.00", true, -1000.0}, {"L2A", "02.14", false, 0.0},
    };
    for (const auto& row : rows)
    {
        const Sentinel2Metadata meta = parseSentinel2ProductXml(
            opticalfixtures::sentinel2ProductXml(row.level, row.baseline, row.listed));
        EXPECT_EQ(meta.level, row.level);
        ASSERT_EQ(meta.bands.size(), 13u);
        for (const Sentinel2Band& band : meta.bands)
        {
            EXPECT_EQ(band.offset, row.offset) << row.level << " " << row.baseline << " " << band.coefficients.id;
            // reflectance of DN 2500
            EXPECT_NEAR(2500 * band.coefficients.reflectanceMult + band.coefficients.reflectanceAdd,
                        (2500 + row.offset) / 10000.0, 1e-12);
        }
    }
}

TEST(Sentinel2Xml, BandsFilesAndClassification)
{
    const Sentinel2Metadata l1c = parseSentinel2ProductXml(opticalfixtures::sentinel2ProductXml("L1C", "04.00", true));
    EXPECT_EQ(l1c.spacecraft, "Sentinel-2A");
    EXPECT_DOUBLE_EQ(l1c.baseline, 4.0);
    EXPECT_DOUBLE_EQ(l1c.quantification, 10000);
    EXPECT_EQ(l1c.date.day, 12);
    EXPECT_EQ(l1c.bands[8].coefficients.id, "B8A");
    EXPECT_DOUBLE_EQ(l1c.bands[8].coefficients.wavelengthUm, 0.8647);
    EXPECT_DOUBLE_EQ(l1c.bands[8].coefficients.esun, 955.32);
    EXPECT_EQ(l1c.bands[8].imageFile, "GRANULE/L1C_T18SVG_A002939_20160112T155852/IMG_DATA/T18SVG_20160112T155852_B8A");
    EXPECT_TRUE(l1c.classificationFile.empty());
    ASSERT_EQ(l1c.granules.size(), 1u);

    const Sentinel2Metadata l2a = parseSentinel2ProductXml(opticalfixtures::sentinel2ProductXml("L2A", "04.00", true));
    // Each band at its own pixel size although the product lists coarser copies.
    EXPECT_EQ(l2a.band("B02")->imageFile.substr(l2a.band("B02")->imageFile.size() - 8), "_B02_10m");
    EXPECT_EQ(l2a.band("B05")->imageFile.substr(l2a.band("B05")->imageFile.size() - 8), "_B05_20m");
    EXPECT_EQ(l2a.band("B01")->imageFile.substr(l2a.band("B01")->imageFile.size() - 8), "_B01_60m");
    EXPECT_EQ(l2a.classificationFile.substr(l2a.classificationFile.size() - 8), "_SCL_20m");

    for (const auto& [text, id] : std::vector<std::pair<std::string, std::string>>{
             {"B1", "B01"}, {"b8a", "B8A"}, {"12", "B12"}, {"B13", ""}, {"B0", ""}, {"x", ""}, {"8 ", "B08"}})
        EXPECT_EQ(normalSentinel2BandId(text), id) << text;
}

TEST(Sentinel2Xml, TileGivesSunAndRadiance)
{
    Sentinel2Metadata meta = parseSentinel2ProductXml(opticalfixtures::sentinel2ProductXml("L1C", "04.00", true));
    addSentinel2TileXml(opticalfixtures::sentinel2TileXml(30.0, 150.0), &meta);
    EXPECT_DOUBLE_EQ(meta.sun.elevation, 60.0);
    EXPECT_DOUBLE_EQ(meta.sun.azimuth, 150.0);
    EXPECT_NEAR(meta.sun.earthSunDistance, 1.0 / std::sqrt(1.03411047670495), 1e-12);
    // L = rho * E * cos(30 deg) * U / pi for B04 (E 1512.06), rho = (DN - 1000) / 10000.
    const BandCoefficients& red = meta.band("B04")->coefficients;
    const double dn = 3000;
    const double expected = (dn - 1000) / 10000 * 1512.06 * std::cos(M_PI / 6) * 1.03411047670495 / M_PI;
    EXPECT_NEAR(red.radianceMult * dn + red.radianceAdd, expected, 1e-9);
}

TEST(Sentinel2Xml, RefusesWhatCannotBeUsed)
{
    std::string noQuantification = opticalfixtures::sentinel2ProductXml("L1C", "04.00", true);
    noQuantification.replace(noQuantification.find(">10000<"), 7, ">0<");
    EXPECT_EQ(errorOf([&] { parseSentinel2ProductXml(noQuantification); }),
              "the product XML has no positive quantification value");
    EXPECT_EQ(errorOf([&] { parseSentinel2ProductXml("<a><b></a>"); }).substr(0, 26), "the XML is not well formed");
    EXPECT_EQ(errorOf([&] { parseSentinel2ProductXml(opticalfixtures::sentinel2TileXml(30, 100)); }),
              "the XML is not a Sentinel-2 product description (its root is Level-1C_Tile_ID)");
    Sentinel2Metadata meta;
    EXPECT_EQ(errorOf([&] { addSentinel2TileXml("<Level-1C_Tile_ID/>", &meta); }),
              "the tile XML has no valid mean sun zenith angle");
}

TEST(CoefficientTable, RowsSettingsAndSensors)
{
    const CoefficientTable table = parseCoefficientTable("# GF-1 and ZY-3 gains\n"
                                                         "SUN_ELEVATION = 52.5\n"
                                                         "DATE = 2020-01-03\n"
                                                         "GF1_WFV1, 1, 0.1709, 0, 1968.65\n"
                                                         "GF1_WFV1  2  0.1398  0  1849.41  # green\n"
                                                         "ZY3_MUX 1 0.2322 0.0 1958.5\n"
                                                         "3\t0.5\t-1.0\t0\t774.9\t1321.1\n");
    EXPECT_DOUBLE_EQ(table.sun.elevation, 52.5);
    EXPECT_NEAR(table.sun.earthSunDistance, 0.9833, 2e-4); // perihelion
    EXPECT_EQ(table.sensors(), (std::vector<std::string>{"GF1_WFV1", "ZY3_MUX"}));
    const std::vector<BandCoefficients> gf1 = table.bandsOf("gf1_wfv1");
    ASSERT_EQ(gf1.size(), 3u); // two rows of its own plus the row for any sensor
    EXPECT_DOUBLE_EQ(gf1[1].radianceMult, 0.1398);
    EXPECT_DOUBLE_EQ(gf1[1].esun, 1849.41);
    EXPECT_TRUE(gf1[2].thermal);
    EXPECT_DOUBLE_EQ(gf1[2].k2, 1321.1);
    EXPECT_FALSE(optical::known(gf1[2].esun));

    const struct
    {
        const char* text;
        const char* message;
    } rows[] = {
        {"", "the coefficient table has no band row"},
        {"1 0.1 0\n", "line 1 of the coefficient table is not \"[sensor] band gain offset esun [k1 k2]\""},
        {"\n1 0.1 x 1900\n", "line 2 of the coefficient table holds a field that is not a number or a band number"},
        {"0 0.1 0 1900\n", "line 1 of the coefficient table holds a field that is not a number or a band number"},
        {"SUN_ELEVATION = 100\n1 0.1 0 1900\n",
         "line 1 of the coefficient table has an unknown or invalid setting: SUN_ELEVATION = 100"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(errorOf([&] { parseCoefficientTable(row.text); }), row.message) << row.text;
}
