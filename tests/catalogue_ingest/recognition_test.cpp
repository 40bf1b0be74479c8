// Product recognition from names and metadata, date normalisation, satellite matching, extents, date ranges
// and band measures, each against values worked out by hand.
#include "filter_rules.h"
#include "footprint.h"
#include "landsat_calibration.h"
#include "product_recognition.h"
#include "quality_measures.h"
#include "test_support.h"

#include <QFile>

#include <cmath>

using namespace catalogue;

namespace
{

QByteArray readShared(const QString& relative)
{
    QFile file(testsupport::sharedDataPath(relative));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

TEST(CatalogueRecognition, NamesOfEachMission)
{
    struct Row
    {
        const char* name;
        const char* satellite;
        const char* sensor;
        const char* acquisition;
        const char* level;
        const char* family;
    };
    // Real product names (from the format notes of the test data) with what their naming rules say.
    const Row rows[] = {
        {"LC80200392015216LGN00", "LANDSAT_8", "OLI_TIRS", "2015-08-04", "", "landsat"}, // day 216 of 2015
        {"LC08_L1TP_020039_20150804_20170226_01_T1_B4.TIF", "LANDSAT_8", "OLI_TIRS", "2015-08-04", "L1TP", "landsat"},
        {"LE07_L2SP_123032_20011231_20200917_02_T1", "LANDSAT_7", "ETM", "2001-12-31", "L2SP", "landsat"},
        {"LT05_L1GS_001002_19900101_20200101_02_T2", "LANDSAT_5", "TM", "1990-01-01", "L1GS", "landsat"},
        {"S1B_IW_GRDH_1SDV_20210401T052623_20210401T052648_026269_032297_ECC8.SAFE", "SENTINEL-1B", "C-SAR IW",
         "2021-04-01T05:26:23", "GRDH", "sentinel1"},
        {"S1A_IW_SLC__1SDH_20220414T102209_20220414T102236_042768_051AA4_E677.SAFE", "SENTINEL-1A", "C-SAR IW",
         "2022-04-14T10:22:09", "SLC", "sentinel1"},
        {"s1b-iw1-slc-vv-20210401t052624-20210401t052649-026269-032297-004.tiff", "SENTINEL-1B", "C-SAR IW1",
         "2021-04-01T05:26:24", "SLC", "sentinel1"},
        {"S2A_MSIL1C_20160112T155622_N0201_R054_T18SVG_20160112T155623.SAFE", "SENTINEL-2A", "MSI",
         "2016-01-12T15:56:22", "L1C", "sentinel2"},
        {"T18SVG_20160112T155622_B01.jp2", "SENTINEL-2", "MSI", "2016-01-12T15:56:22", "", "sentinel2"},
        {"GF3_SAY_QPSI_011102_E121.2_N31.2_20181025_L1A_AHV_L10003543018.meta.xml", "GF3", "QPSI", "2018-10-25", "L1A",
         "gf"},
        {"GF3_KAS_SL_005811_W95.1_N16.4_20170917_L1A_HH_L10002605023.tiff", "GF3", "SL", "2017-09-17", "L1A", "gf"},
        {"GF5_AHSI_E121.45_N31.31_20191228_008714_L10000071208_SW.geotiff", "GF5", "AHSI", "2019-12-28", "L1", "gf"},
        {"GF5B_AHSI_W102.8_N32.3_20220424_003345_L10000118222_SW.tif", "GF5B", "AHSI", "2022-04-24", "L1", "gf"},
        {"GF1_PMS1_E113.5_N34.8_20150607_L1A0000832093-MSS1.tiff", "GF1", "PMS1", "2015-06-07", "L1A", "gf"},
        {"GF2_PMS2_E116.4_N39.9_20160412_L1A0001515617", "GF2", "PMS2", "2016-04-12", "L1A", "gf"},
        {"GF6_WFV_E110.1_N33.2_20190630_L1A1119900001", "GF6", "WFV", "2019-06-30", "L1A", "gf"},
        {"ZY3_NAD_E116.3_N39.9_20120113_L1A0000350123", "ZY3", "NAD", "2012-01-13", "L1A", "zy3"},
        {"CSKS2_SCS_B_HI_09_HH_RA_SF_20110710033526_20110710033533.h5", "COSMO-SKYMED-2", "SAR-2000 HI",
         "2011-07-10T03:35:26", "SCS_B", "csk"},
        {"S1A__IW___A_20150309T173017_VV_grd_mli_geo_norm_db.tif", "SENTINEL-1A", "C-SAR IW", "2015-03-09T17:30:17", "",
         "sentinel1"},
        {"S2B_20200412T101559_ndvi.tif", "SENTINEL-2B", "MSI", "2020-04-12T10:15:59", "", "sentinel2"},
        {"logo.tif", "", "", "", "", ""},
        {"GF3_garbage", "", "", "", "", ""},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.name);
        const ProductInfo info = recogniseName(QString::fromLatin1(row.name));
        EXPECT_EQ(info.satellite.toStdString(), row.satellite);
        EXPECT_EQ(info.sensor.toStdString(), row.sensor);
        EXPECT_EQ(info.acquisition.toStdString(), row.acquisition);
        EXPECT_EQ(info.level.toStdString(), row.level);
        EXPECT_EQ(info.family.toStdString(), row.family);
    }
}

TEST(CatalogueRecognition, DatesAndSatelliteNames)
{
    const std::pair<const char*, const char*> dates[] = {
        {"20150804", "2015-08-04"},
        {"2015-08-04 16:19:21.7917421Z", "2015-08-04T16:19:21"},
        {"2018-10-25 10:11:12.123456", "2018-10-25T10:11:12"},
        {"2024060", "2024-02-29"}, // leap year: day 60 is 29 February
        {"2023366", ""},           // 2023 has 365 days
        {"20150231", ""},
        {"yesterday", ""},
        {"2015-08-04T25:00:00", "2015-08-04"},
    };
    for (const auto& d : dates)
        EXPECT_EQ(normaliseDateTime(d.first).toStdString(), d.second) << d.first;

    EXPECT_TRUE(satelliteMatches("LANDSAT_8", {"landsat8"}));
    EXPECT_TRUE(satelliteMatches("SENTINEL-2A", {"Sentinel 2"}));
    EXPECT_TRUE(satelliteMatches("GF3", {"gf1", " gf-3 "}));
    EXPECT_FALSE(satelliteMatches("LANDSAT_7", {"landsat8"}));
    EXPECT_FALSE(satelliteMatches("", {"gf1"}));
    EXPECT_TRUE(satelliteMatches("", {}));
}

TEST(CatalogueRecognition, MetadataOfRealProducts)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_MTL.txt");
    const ProductInfo landsat = readLandsatMtl(readShared("landsat8/l8_MTL.txt"));
    EXPECT_EQ(landsat.satellite, "LANDSAT_8");
    EXPECT_EQ(landsat.sensor, "OLI_TIRS");
    EXPECT_EQ(landsat.acquisition, "2015-08-04T16:19:21");
    EXPECT_EQ(landsat.level, "L1T");
    EXPECT_DOUBLE_EQ(landsat.cloudPercent, 11.08);

    SKIP_WITHOUT_SHARED_DATA("sentinel1");
    LonLatRing ring;
    const ProductInfo s1 = readSafeManifest(
        readShared("sentinel1/S1A_IW_SLC__1SDV_20220104T170557_20220104T170624_041314_04E951_F1F1.SAFE/manifest.safe"),
        &ring);
    EXPECT_EQ(s1.satellite, "SENTINEL-1A");
    EXPECT_EQ(s1.sensor, "C-SAR IW");
    EXPECT_EQ(s1.level, "SLC");
    EXPECT_EQ(s1.acquisition, "2022-01-04T17:05:57");
    // gml:coordinates "42.517532,10.701735 42.916557,13.808706 ..." are latitude,longitude pairs.
    ASSERT_EQ(ring.size(), 4u);
    EXPECT_DOUBLE_EQ(ring[0].first, 10.701735);
    EXPECT_DOUBLE_EQ(ring[0].second, 42.517532);

    // The pixel spacing of an annotation: the coarser of range and azimuth; nothing usable gives -1.
    EXPECT_DOUBLE_EQ(readSentinel1PixelSpacing(readShared("sentinel1/S1B_IW_GRDH_1SDV_20210401T052623_20210401T052648_026269_"
                                                          "032297_ECC8.SAFE/annotation/s1b-iw-grd-vv-20210401t052623-"
                                                          "20210401t052648-026269-032297-001.xml")),
                     10.0);
    const QByteArray slc = "<product><imageAnnotation><imageInformation><rangePixelSpacing>2.329562e+00</rangePixelSpacing>"
                           "<azimuthPixelSpacing>1.392830e+01</azimuthPixelSpacing></imageInformation>";
    EXPECT_DOUBLE_EQ(readSentinel1PixelSpacing(slc), 13.9283); // cut short after the element: still read
    EXPECT_DOUBLE_EQ(readSentinel1PixelSpacing("<a><rangePixelSpacing>5</rangePixelSpacing></a>"), 5.0);
    for (const char* bad : {"", "<a>", "<a><rangePixelSpacing>-3</rangePixelSpacing><azimuthPixelSpacing>nan</azimuthPixelSpacing></a>",
                            "<a><azimuthPixelSpacing>1e300</azimuthPixelSpacing><rangePixelSpacing>ten</rangePixelSpacing></a>"})
        EXPECT_DOUBLE_EQ(readSentinel1PixelSpacing(bad), -1.0) << bad;
}

TEST(CatalogueRecognition, MetadataXmlAndHostileTexts)
{
    const QByteArray gf = "<ProductMetaData><SatelliteID>GF1</SatelliteID><SensorID>PMS1</SensorID>"
                          "<ReceiveTime>2015-06-07 03:00:00</ReceiveTime><CenterTime>2015-06-07 03:12:45</CenterTime>"
                          "<ProductLevel>LEVEL1A</ProductLevel><CloudPercent>7</CloudPercent></ProductMetaData>";
    const ProductInfo info = readMetadataXml(gf);
    EXPECT_EQ(info.satellite, "GF1");
    EXPECT_EQ(info.sensor, "PMS1");
    EXPECT_EQ(info.acquisition, "2015-06-07T03:12:45"); // the centre time is preferred to the receiving time
    EXPECT_EQ(info.level, "LEVEL1A");
    EXPECT_DOUBLE_EQ(info.cloudPercent, 7.0);

    EXPECT_FALSE(readMetadataXml("<a><SatelliteID>").recognised());
    EXPECT_FALSE(readLandsatMtl("= = =\n\0\0SPACECRAFT_ID").recognised());
    LonLatRing ring;
    readSafeManifest("<x><coordinates>91,10 1,2 3,4</coordinates></x>", &ring);
    EXPECT_TRUE(ring.empty()); // a latitude of 91 is no footprint
    EXPECT_EQ(readMetadataXml("<a><CloudPercent>250</CloudPercent></a>").cloudPercent, -1.0);
}

TEST(CatalogueRecognition, ExtentsAndDateRanges)
{
    QString error;
    GeometryPtr box = parseExtent("10|40|12|42", &error);
    ASSERT_TRUE(box) << error.toStdString();
    OGREnvelope e;
    box->getEnvelope(&e);
    EXPECT_EQ(e.MinX, 10.0);
    EXPECT_EQ(e.MaxY, 42.0);
    EXPECT_TRUE(parseExtent("POLYGON((0 0,1 0,1 1,0 0))", &error));
    EXPECT_TRUE(parseExtent(R"({"type":"Point","coordinates":[11,41]})", &error));
    EXPECT_TRUE(
        parseExtent(R"({"type":"Feature","properties":{},"geometry":{"type":"Point","coordinates":[1,2]}})", &error));
    EXPECT_FALSE(parseExtent("", &error));
    EXPECT_TRUE(error.isEmpty());
    for (const char* bad :
         {"10|40|12", "12|40|10|42", "POLYGON((0 0", "{\"type\":\"Nothing\"}", "a|b|c|d", "POINT(500 10)"})
    {
        EXPECT_FALSE(parseExtent(bad, &error)) << bad;
        EXPECT_FALSE(error.isEmpty()) << bad;
    }

    DateRange range;
    ASSERT_TRUE(parseDateRange("2015-08-01|2015-08-04", &range));
    EXPECT_TRUE(range.contains("2015-08-04T16:19:21")); // a bare end date includes its whole day
    EXPECT_TRUE(range.contains("2015-08-01"));
    EXPECT_FALSE(range.contains("2015-08-05T00:00:00"));
    EXPECT_FALSE(range.contains("2015-07-31T23:59:59"));
    EXPECT_FALSE(range.contains(""));
    ASSERT_TRUE(parseDateRange("|20160101", &range));
    EXPECT_TRUE(range.contains("1999-01-01"));
    EXPECT_FALSE(parseDateRange("2016-01-01|2015-01-01", &range));
    EXPECT_FALSE(parseDateRange("soon|", &range));
    EXPECT_FALSE(parseDateRange("2015", &range));
}

TEST(CatalogueRecognition, BandMeasuresByHand)
{
    // 3 x 2 grid, the last cell invalid:  1 2 4 / 3 5 X
    const double values[] = {1, 2, 4, 3, 5, 99};
    const unsigned char valid[] = {1, 1, 1, 1, 1, 0};
    const BandMeasures m = measureBand(values, valid, 3, 2);
    EXPECT_EQ(m.validCount, 5u);
    EXPECT_DOUBLE_EQ(m.mean, 3.0);
    EXPECT_DOUBLE_EQ(m.stdDev, std::sqrt(2.0)); // deviations -2 -1 1 0 2: squares 10 / 5
    EXPECT_DOUBLE_EQ(m.minimum, 1.0);
    EXPECT_DOUBLE_EQ(m.maximum, 5.0);
    EXPECT_NEAR(m.entropyBits, std::log2(5.0), 1e-12); // five distinct values, one per bin
    // Gradient cells: (0,0): dx 1, dy 2 -> sqrt(2.5); (1,0): dx 2, dy 3 -> sqrt(6.5)
    EXPECT_NEAR(m.meanGradient, (std::sqrt(2.5) + std::sqrt(6.5)) / 2.0, 1e-12);
}

TEST(CatalogueRecognition, RowRunOutlines)
{
    // Shoelace area of a closed ring.
    auto area = [](const std::vector<std::pair<double, double>>& ring) {
        double twice = 0.0;
        for (size_t i = 0; i + 1 < ring.size(); ++i)
            twice += ring[i].first * ring[i + 1].second - ring[i + 1].first * ring[i].second;
        return std::abs(twice) / 2.0;
    };
    std::vector<std::pair<double, double>> ring;
    const unsigned char slanted[] = {0, 1, 1, 0, 0, //
                                     1, 1, 1, 1, 0, //
                                     0, 1, 1, 1, 1, //
                                     0, 0, 0, 0, 0};
    ASSERT_TRUE(rowRunOutline(slanted, 5, 4, ring));
    EXPECT_EQ(ring.front(), ring.back());
    EXPECT_DOUBLE_EQ(area(ring), 10.0); // 2 + 4 + 4 valid cells
    EXPECT_EQ(ring.front(), std::make_pair(1.0, 0.0));

    const unsigned char twoRuns[] = {1, 0, 1, 1, 1, 1};
    EXPECT_FALSE(rowRunOutline(twoRuns, 3, 2, ring));
    const unsigned char gap[] = {1, 1, 0, 0, 1, 1};
    EXPECT_FALSE(rowRunOutline(gap, 2, 3, ring));
    const unsigned char diagonal[] = {1, 0, 0, 1}; // rows touching at a corner only
    EXPECT_FALSE(rowRunOutline(diagonal, 2, 2, ring));
    const unsigned char none[] = {0, 0, 0, 0};
    EXPECT_FALSE(rowRunOutline(none, 2, 2, ring));
}

TEST(CatalogueRecognition, LandsatTopOfAtmosphere)
{
    const LandsatCalibration c = readLandsatCalibration("    SUN_ELEVATION = 30.0\n"
                                                        "    REFLECTANCE_MULT_BAND_4 = 2.0000E-05\n"
                                                        "    REFLECTANCE_ADD_BAND_4 = -0.100000\n"
                                                        "    RADIANCE_MULT_BAND_10 = 3.3420E-04\n"
                                                        "    RADIANCE_ADD_BAND_10 = 0.10000\n"
                                                        "    K1_CONSTANT_BAND_10 = 774.8853\n"
                                                        "    K2_CONSTANT_BAND_10 = 1321.0789\n"
                                                        "    RADIANCE_MULT_BAND_11 = oops\n");
    EXPECT_DOUBLE_EQ(c.sunElevationDegrees, 30.0);
    ASSERT_EQ(c.bands.count(4), 1u);
    EXPECT_TRUE(c.bands.at(4).hasReflectance());
    EXPECT_TRUE(c.bands.at(10).hasTemperature());
    EXPECT_EQ(c.bands.count(11), 0u);

    const uint16_t dn[] = {0, 10000, 25000};
    float out[3];
    ASSERT_TRUE(calibrateLandsatRow(dn, out, 3, c.bands.at(4), c.sunElevationDegrees, -9999.0f));
    EXPECT_EQ(out[0], -9999.0f);                  // fill
    EXPECT_NEAR(out[1], (0.2 - 0.1) / 0.5, 1e-6); // sin(30 degrees) = 1/2
    EXPECT_NEAR(out[2], (0.5 - 0.1) / 0.5, 1e-6);
    ASSERT_TRUE(calibrateLandsatRow(dn, out, 3, c.bands.at(10), c.sunElevationDegrees, -9999.0f));
    // L = 3.342e-4 * 25000 + 0.1 = 8.455; T = 1321.0789 / ln(774.8853 / 8.455 + 1)
    EXPECT_NEAR(out[2], 1321.0789 / std::log(774.8853 / 8.455 + 1.0), 1e-3);
    EXPECT_FALSE(calibrateLandsatRow(dn, out, 3, LandsatBandCalibration(), 30.0, -9999.0f));
}
