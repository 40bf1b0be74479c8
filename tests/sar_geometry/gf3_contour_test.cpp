// GF-3 footprint shapefile: the polygon's vertices are the meta.xml corners, the attributes its fields.
#include "AlgoFactory.h"
#include "test_support.h"

#include <ogrsf_frmts.h>

#include <QFile>
#include <QTemporaryDir>

using testsupport::StdoutCapture;

namespace
{

QString writeMeta(const QString& path, bool withBottomRight)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(QString("<product><segmentID>1</segmentID><sceneID>2</sceneID><satellite>GF3</satellite>"
                       "<Direction>DEC</Direction><productID>3992720</productID>"
                       "<sensor><imagingMode>FSI</imagingMode></sensor>"
                       "<productinfo><productLevel>1</productLevel><productPolarization>HHHV</productPolarization></productinfo>"
                       "<imageinfo><imagingTime><start>2019-05-11 22:33:40.000000</start><end>2019-05-11 22:33:49.000000</end>"
                       "</imagingTime><corner><topLeft><latitude>31.2</latitude><longitude>103.2</longitude></topLeft>"
                       "<topRight><latitude>31.25</latitude><longitude>103.6</longitude></topRight>%1"
                       "<bottomLeft><latitude>30.8</latitude><longitude>103.15</longitude></bottomLeft></corner></imageinfo></product>\n")
                   .arg(withBottomRight ? "<bottomRight><latitude>30.85</latitude><longitude>103.55</longitude></bottomRight>" : "")
                   .toUtf8());
    return path;
}

} // namespace

TEST(Gf3ContourShp, FootprintPolygonCarriesTheCornersAndFields)
{
    QTemporaryDir dir;
    const QString meta = writeMeta(dir.filePath("GF3_KAS_FSI_014480_E103.4_N31.0_20190511_L1A_HHHV_L10003992720.meta.xml"), true);
    const QString shp = dir.filePath("footprint.shp");
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_GF3_ContourShp(meta.toUtf8().constData(), shp.toUtf8().constData(), nullptr));
    const std::string text = capture.text();
    EXPECT_NE(text.find("[OUTPUT] GF3_ContourShp_images=\"" + shp.toStdString() + "|"), std::string::npos) << text;

    GDALAllRegister();
    std::unique_ptr<GDALDataset> ds(GDALDataset::Open(shp.toUtf8().constData(), GDAL_OF_VECTOR));
    ASSERT_TRUE(ds);
    OGRLayer* layer = ds->GetLayer(0);
    ASSERT_EQ(layer->GetFeatureCount(), 1);
    EXPECT_TRUE(layer->GetSpatialRef()->IsGeographic());
    std::unique_ptr<OGRFeature> feature(layer->GetNextFeature());
    EXPECT_STREQ(feature->GetFieldAsString("Satellite"), "GF3");
    EXPECT_STREQ(feature->GetFieldAsString("Mode"), "FSI");
    EXPECT_STREQ(feature->GetFieldAsString("Polar"), "HHHV");
    EXPECT_STREQ(feature->GetFieldAsString("StartTime"), "2019-05-11 22:33:40.000000");
    const OGRPolygon* polygon = feature->GetGeometryRef()->toPolygon();
    const OGRLinearRing* ring = polygon->getExteriorRing();
    ASSERT_EQ(ring->getNumPoints(), 5);
    const double corners[4][2] = {{103.2, 31.2}, {103.6, 31.25}, {103.55, 30.85}, {103.15, 30.8}};
    for (const auto& c : corners)
    {
        bool found = false;
        for (int i = 0; i < 4; ++i)
            found |= std::abs(ring->getX(i) - c[0]) < 1e-9 && std::abs(ring->getY(i) - c[1]) < 1e-9;
        EXPECT_TRUE(found) << c[0] << " " << c[1];
    }
    // The area of the quadrilateral by the shoelace formula, in square degrees.
    EXPECT_NEAR(polygon->get_Area(), 0.5 * std::abs((103.2 * 31.25 - 103.6 * 31.2) + (103.6 * 30.85 - 103.55 * 31.25) +
                                                    (103.55 * 30.8 - 103.15 * 30.85) + (103.15 * 31.2 - 103.2 * 30.8)),
                1e-9);
}

TEST(Gf3ContourShp, RefusesAMetaXmlWithoutCornersAndOtherSuffixes)
{
    QTemporaryDir dir;
    const QString meta = writeMeta(dir.filePath("product.meta.xml"), false);
    testsupport::RecordingResult result;
    StdoutCapture capture;
    EXPECT_FALSE(ExcuteAlgo_GF3_ContourShp(meta.toUtf8().constData(), dir.filePath("f.shp").toUtf8().constData(),
                                           &result.record));
    EXPECT_NE(std::string(result.record.message).find("has no usable imageinfo.corner.bottomRight latitude and longitude!"),
              std::string::npos)
        << result.record.message;
    EXPECT_FALSE(QFile::exists(dir.filePath("f.shp")));
    const QString good = writeMeta(dir.filePath("good.meta.xml"), true);
    EXPECT_FALSE(ExcuteAlgo_GF3_ContourShp(good.toUtf8().constData(), dir.filePath("f.tif").toUtf8().constData(),
                                           &result.record));
    EXPECT_NE(std::string(result.record.message).find("must end in .shp!"), std::string::npos);
}
