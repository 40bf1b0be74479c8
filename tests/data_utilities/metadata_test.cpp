// Product metadata: the XML read back against the raster (sizes, corners worked out by hand and by a separate
// transformation, band statistics by brute force), the source's fields, extra elements, element paths set in place,
// lineage, and refusals that leave files as they were.
#include "data_utilities_fixtures.h"
#include "source_metadata.h"

#include <ogr_spatialref.h>

#include <QDir>
#include <QDomDocument>
#include <QFile>
#include <cmath>

using namespace testsupport;
using namespace datafixtures;

namespace
{

const char* kSource =
    "<?xml version=\"1.0\"?>\n<ProductMetaData><SatelliteID>GF1</SatelliteID><SensorID>PMS1</SensorID>"
    "<ReceiveTime>2020-01-02 03:04:05</ReceiveTime><CloudPercent> 7 </CloudPercent>"
    "<Extra><SatelliteID>not the first</SatelliteID></Extra></ProductMetaData>\n";

void writeText(const QString& path, const QByteArray& text)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text);
}

QDomDocument readXml(const QString& path)
{
    QDomDocument document;
    QFile file(path);
    if (file.open(QIODevice::ReadOnly))
        document.setContent(&file);
    return document;
}

// The text at a "/" path below the root.
QString textAt(const QDomDocument& document, const QString& path)
{
    QDomElement element = document.documentElement();
    for (const QString& part : path.split('/'))
        element = element.firstChildElement(part);
    return element.isNull() ? QStringLiteral("<absent>") : element.text();
}

double value(int band, int x, int y)
{
    return band == 0 && x == 0 && y == 0 ? 0.0 : 10.0 * band + x * x + 3.0 * y;
}

} // namespace

TEST(SourceMetadata, FirstKnownSpellingOfEachFieldWins)
{
    const datautil::SourceMetadata read = datautil::readSourceMetadata(kSource);
    ASSERT_TRUE(read.parsed);
    EXPECT_EQ(read.rootName, "ProductMetaData");
    EXPECT_EQ(read.value("Satellite"), "GF1");
    EXPECT_EQ(read.value("Sensor"), "PMS1");
    EXPECT_EQ(read.value("AcquisitionTime"), "2020-01-02 03:04:05");
    EXPECT_EQ(read.value("CloudCover"), "7");
    EXPECT_EQ(read.value("ProductId"), "");
    const datautil::SourceMetadata landsatLike = datautil::readSourceMetadata(
        "<a:meta "
        "xmlns:a=\"u\"><a:SPACECRAFT_ID>LANDSAT_8</a:SPACECRAFT_ID><a:CLOUD_COVER>12.5</a:CLOUD_COVER></a:meta>");
    EXPECT_EQ(landsatLike.value("Satellite"), "LANDSAT_8");
    EXPECT_EQ(landsatLike.value("CloudCover"), "12.5");
    for (const char* broken : {"", "<a><b></a>", "not xml", "<a>"})
    {
        const datautil::SourceMetadata bad = datautil::readSourceMetadata(broken);
        EXPECT_FALSE(bad.parsed) << broken;
        EXPECT_FALSE(bad.error.isEmpty());
    }
}

TEST(SourceMetadata, RealSentinel1Annotation)
{
    SKIP_WITHOUT_SHARED_DATA(
        "sentinel1/S1B_IW_GRDH_1SDV_20210401T052623_20210401T052648_026269_032297_ECC8.SAFE/annotation");
    const QString folder =
        sharedDataPath("sentinel1/S1B_IW_GRDH_1SDV_20210401T052623_20210401T052648_026269_032297_ECC8.SAFE/annotation");
    const QStringList names = QDir(folder).entryList({"*.xml"}, QDir::Files, QDir::Name);
    ASSERT_FALSE(names.isEmpty());
    QFile file(QDir(folder).filePath(names.front()));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const datautil::SourceMetadata read = datautil::readSourceMetadata(file.readAll());
    ASSERT_TRUE(read.parsed) << read.error.toStdString();
    EXPECT_EQ(read.value("Satellite"), "S1B");
    EXPECT_EQ(read.value("ProductLevel"), "GRD");
    EXPECT_EQ(read.value("AcquisitionTime"), "2021-04-01T05:26:23.794457");
    EXPECT_EQ(read.value("OrbitNumber"), "26269");
}

TEST(CreateMetaData, RasterFactsSourceFieldsAndExtraElements)
{
    QTemporaryDir dir;
    const QString raster = dir.filePath("scene.tif"), source = dir.filePath("scene_src.xml");
    ASSERT_TRUE(makeGeoTiff(raster, 5, 4, 2, GDT_UInt16, value, {}, 0.0));
    writeText(source, kSource);
    const Outcome run = call([&](AlgoResult* r) {
        return ExcuteAlgo_CreateMetaData(raster.toUtf8(), source.toUtf8(), "",
                                         "{\"Operator\":\"lee\",\"Quality\":{\"Grade\":\"A\"}}", r);
    });
    ASSERT_TRUE(run.ok) << run.message;
    const QString out = dir.filePath("scene_metadata.xml");
    EXPECT_EQ(outputLine(run.printed, "OutputXmlFile"), out.toStdString());
    const QDomDocument xml = readXml(out);
    EXPECT_EQ(xml.documentElement().tagName(), "ProductMetaData");
    EXPECT_EQ(textAt(xml, "ProductInfo/Satellite"), "GF1");
    EXPECT_EQ(textAt(xml, "ProductInfo/AcquisitionTime"), "2020-01-02 03:04:05");
    EXPECT_EQ(textAt(xml, "ProductInfo/CloudCover"), "7");
    EXPECT_EQ(textAt(xml, "Operator"), "lee");
    EXPECT_EQ(textAt(xml, "Quality/Grade"), "A");
    EXPECT_EQ(textAt(xml, "ImageInfo/Width"), "5");
    EXPECT_EQ(textAt(xml, "ImageInfo/Height"), "4");
    EXPECT_EQ(textAt(xml, "ImageInfo/BandCount"), "2");
    EXPECT_EQ(textAt(xml, "ImageInfo/DataType"), "UInt16");
    EXPECT_EQ(textAt(xml, "ImageInfo/ReferenceSystem/Code"), "EPSG:32650");
    EXPECT_EQ(textAt(xml, "ImageInfo/Resolution/X"), "30");
    EXPECT_EQ(textAt(xml, "ImageInfo/Resolution/Unit"), "metre");
    EXPECT_FALSE(textAt(xml, "ProductionTime").isEmpty());

    // Easting 500000 lies on zone 50's central meridian, 117 degrees east.
    EXPECT_NEAR(textAt(xml, "ImageInfo/Corners/UpperLeft/Longitude").toDouble(), 117.0, 1e-9);
    OGRSpatialReference utm, wgs84;
    utm.importFromEPSG(32650);
    wgs84.importFromEPSG(4326);
    wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    std::unique_ptr<OGRCoordinateTransformation> toLonLat(OGRCreateCoordinateTransformation(&utm, &wgs84));
    double x = 500000.0 + 5 * 30.0, y = 4000000.0 - 4 * 30.0;
    ASSERT_TRUE(toLonLat->Transform(1, &x, &y));
    EXPECT_NEAR(textAt(xml, "ImageInfo/Corners/LowerRight/Longitude").toDouble(), x, 1e-9);
    EXPECT_NEAR(textAt(xml, "ImageInfo/Corners/LowerRight/Latitude").toDouble(), y, 1e-9);

    // Band statistics by brute force; band 1's pixel (0,0) is nodata.
    for (int band = 0; band < 2; ++band)
    {
        double sum = 0, squares = 0, count = 0, low = 1e300, high = -1e300;
        for (int py = 0; py < 4; ++py)
            for (int px = 0; px < 5; ++px)
            {
                const double v = value(band, px, py);
                if (v == 0.0)
                    continue;
                sum += v, squares += v * v, count += 1, low = std::min(low, v), high = std::max(high, v);
            }
        QDomElement element =
            xml.documentElement().firstChildElement("ImageInfo").firstChildElement("Bands").firstChildElement("Band");
        for (int i = 0; i < band; ++i)
            element = element.nextSiblingElement("Band");
        EXPECT_EQ(element.attribute("index").toInt(), band + 1);
        EXPECT_EQ(element.firstChildElement("ValidPixels").text().toDouble(), count);
        EXPECT_EQ(element.firstChildElement("Minimum").text().toDouble(), low);
        EXPECT_EQ(element.firstChildElement("Maximum").text().toDouble(), high);
        EXPECT_NEAR(element.firstChildElement("Mean").text().toDouble(), sum / count, 1e-12);
        EXPECT_NEAR(element.firstChildElement("StdDev").text().toDouble(),
                    std::sqrt(squares / count - (sum / count) * (sum / count)), 1e-9);
    }
}

TEST(CreateMetaData, RefusalsLeaveNoFile)
{
    QTemporaryDir dir;
    const QString raster = dir.filePath("scene.tif"), source = dir.filePath("src.xml"),
                  broken = dir.filePath("broken.xml");
    ASSERT_TRUE(makeRaster(raster, 3, 3, 1, GDT_Byte, [](int, int x, int) { return x; }));
    writeText(source, kSource);
    writeText(broken, "<a><b></a>");
    const QString out = dir.filePath("meta.xml");
    struct Row
    {
        QString xml, otherKey, otherValue;
        std::string message;
    };
    const Row rows[] = {
        {broken, out, "",
         "CreateMetaData: the parameter InputXmlFile (" + broken.toStdString() + ") is not well-formed XML (line 1: "},
        {dir.filePath("none.xml"), out, "",
         "CreateMetaData: the parameter InputXmlFile (" + dir.filePath("none.xml").toStdString() +
             ") is not a readable file!"},
        {source, out, "[1,2]", "CreateMetaData: the parameter OtherValue ([1,2]) is not a JSON object!"},
        {source, out, "{\"1st\":2}",
         "CreateMetaData: the parameter OtherValue ({\"1st\":2}) holds the key 1st, which cannot be an element name!"},
        {source, source, "",
         "CreateMetaData: the parameter OtherKey (" + source.toStdString() + ") names an input file!"},
    };
    for (const Row& row : rows)
    {
        const Outcome run = call([&](AlgoResult* r) {
            return ExcuteAlgo_CreateMetaData(raster.toUtf8(), row.xml.toUtf8(), row.otherKey.toUtf8(),
                                             row.otherValue.toUtf8(), r);
        });
        EXPECT_FALSE(run.ok);
        EXPECT_EQ(run.message.substr(0, row.message.size()), row.message);
        EXPECT_FALSE(QFile::exists(out));
    }
    EXPECT_EQ(filesIn(dir.path()), (QStringList{"broken.xml", "scene.tif", "src.xml"}));
}

// Through the dispatcher, with the labels it prints for the four arguments.
TEST(CreateMetaData, ThroughTheDispatcherWithItsLabels)
{
    QTemporaryDir dir;
    const QString raster = dir.filePath("scene.tif"), source = dir.filePath("src.xml"), out = dir.filePath("o.xml");
    ASSERT_TRUE(makeRaster(raster, 3, 3, 1, GDT_Byte, [](int, int x, int) { return x; }));
    writeText(source, kSource);
    const std::string json = "{\"InputFile\":\"" + raster.toStdString() + "\",\"InputXmlFile\":\"" +
                             source.toStdString() + "\",\"OtherKey\":\"" + out.toStdString() +
                             "\",\"OtherValue\":\"\"}";
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo("CreateMetaData_PaInv", json.c_str(), nullptr));
    const std::string printed = capture.text();
    EXPECT_NE(printed.find("InputFilePath:" + raster.toStdString() + "\n"), std::string::npos) << printed;
    EXPECT_NE(printed.find("InputFilePath:" + source.toStdString() + "\n"), std::string::npos);
    EXPECT_NE(printed.find("OtherKey path in Algofactory: " + out.toStdString() + "\n"), std::string::npos);
    EXPECT_EQ(outputLine(printed, "OutputXmlFile"), out.toStdString());
    EXPECT_EQ(textAt(readXml(out), "ProductInfo/Sensor"), "PMS1");
}

TEST(ModifyMetaData, SetsOrCreatesTheElementAndRefreshesTheRasterFacts)
{
    QTemporaryDir dir;
    const QString raster = dir.filePath("scene.tif"), source = dir.filePath("src.xml"), xml = dir.filePath("meta.xml");
    ASSERT_TRUE(makeRaster(raster, 3, 3, 1, GDT_Byte, [](int, int x, int) { return x; }));
    writeText(source, kSource);
    ASSERT_TRUE(call([&](AlgoResult* r) {
                    return ExcuteAlgo_CreateMetaData(raster.toUtf8(), source.toUtf8(), xml.toUtf8(), "", r);
                }).ok);
    // The raster is replaced by a larger one: the modified XML must describe the new one.
    QFile::remove(raster);
    ASSERT_TRUE(makeRaster(raster, 7, 2, 1, GDT_Byte, [](int, int x, int) { return x; }));

    const Outcome set = call([&](AlgoResult* r) {
        return ExcuteAlgo_ModifyMetaData(raster.toUtf8(), xml.toUtf8(), "ProductInfo/CloudCover", "12", r);
    });
    ASSERT_TRUE(set.ok) << set.message;
    EXPECT_EQ(outputLine(set.printed, "OutputXmlFile"), xml.toStdString());
    ASSERT_TRUE(call([&](AlgoResult* r) {
                    return ExcuteAlgo_ModifyMetaData(raster.toUtf8(), xml.toUtf8(), "ProductMetaData/Review/Grade", "B",
                                                     r);
                }).ok);
    const QDomDocument document = readXml(xml);
    EXPECT_EQ(textAt(document, "ProductInfo/CloudCover"), "12");
    EXPECT_EQ(textAt(document, "ProductInfo/Satellite"), "GF1");
    EXPECT_EQ(textAt(document, "Review/Grade"), "B");
    EXPECT_EQ(textAt(document, "ImageInfo/Width"), "7");
    EXPECT_EQ(document.documentElement().elementsByTagName("ImageInfo").size(), 1);
    EXPECT_FALSE(textAt(document, "ModificationTime").isEmpty());

    QFile before(xml);
    ASSERT_TRUE(before.open(QIODevice::ReadOnly));
    const QByteArray original = before.readAll();
    before.close();
    const std::pair<const char*, std::string> rows[] = {
        {"", "ModifyMetaData: the parameter OtherKey () is empty!"},
        {"//", "ModifyMetaData: the parameter OtherKey (//) names no element!"},
        {"ProductInfo/a b",
         "ModifyMetaData: the parameter OtherKey (ProductInfo/a b) holds a b, which cannot be an element name!"},
        {"ProductMetaData", "ModifyMetaData: the parameter OtherKey (ProductMetaData) names the root element!"},
    };
    for (const auto& row : rows)
    {
        const Outcome run = call(
            [&](AlgoResult* r) { return ExcuteAlgo_ModifyMetaData(raster.toUtf8(), xml.toUtf8(), row.first, "x", r); });
        EXPECT_FALSE(run.ok);
        EXPECT_EQ(run.message, row.second);
    }
    QFile after(xml);
    ASSERT_TRUE(after.open(QIODevice::ReadOnly));
    EXPECT_EQ(after.readAll(), original) << "a refused change leaves the file as it was";
}

TEST(CreateMetaDataSynthesis, LineageOfEverySourceAndTheirSatellites)
{
    QTemporaryDir dir;
    const QString raster = dir.filePath("mosaic.tif"), a = dir.filePath("a.xml"), b = dir.filePath("b.xml");
    ASSERT_TRUE(makeRaster(raster, 4, 4, 1, GDT_Byte, [](int, int x, int) { return x; }));
    writeText(a, kSource);
    writeText(b, "<meta><Satellite>GF2</Satellite><Sensor>PMS1</Sensor><ProductID>42</ProductID></meta>");
    const QString out = dir.filePath("mosaic.xml");
    const Outcome run = call([&](AlgoResult* r) {
        return ExcuteAlgo_CreateMetaDataSynthesis(raster.toUtf8(), (a + "|" + b).toUtf8(), out.toUtf8(), "Mosaic", "",
                                                  "", "2024-05-06T07:08:09Z", "lab", "made for a test", r);
    });
    ASSERT_TRUE(run.ok) << run.message;
    EXPECT_EQ(outputLine(run.printed, "OutputXmlFile"), out.toStdString());
    const QDomDocument xml = readXml(out);
    EXPECT_EQ(textAt(xml, "ProductInfo/ProductType"), "Mosaic");
    EXPECT_EQ(textAt(xml, "ProductInfo/Satellite"), "GF1,GF2");
    EXPECT_EQ(textAt(xml, "ProductInfo/Sensor"), "PMS1");
    EXPECT_EQ(textAt(xml, "ProductInfo/ProduceTime"), "2024-05-06T07:08:09Z");
    EXPECT_EQ(textAt(xml, "OtherInfo"), "made for a test");
    EXPECT_EQ(textAt(xml, "ImageInfo/Width"), "4");
    const QDomElement lineage = xml.documentElement().firstChildElement("Lineage");
    EXPECT_EQ(lineage.attribute("count"), "2");
    const QDomElement second = lineage.firstChildElement("Source").nextSiblingElement("Source");
    EXPECT_EQ(second.attribute("index"), "2");
    EXPECT_EQ(second.firstChildElement("MetadataFile").text(), "b.xml");
    EXPECT_EQ(second.firstChildElement("ProductId").text(), "42");
}
