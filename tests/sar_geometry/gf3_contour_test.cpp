// GF-3 footprint shapefile: the polygon's vertices are the meta.xml corners, the attributes its fields.
#include "AlgoFactory.h"
#include "test_support.h"

#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cmath>

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

// The valid data of the test image: a parallelogram in pixel corner coordinates (sample, line), clockwise on screen.
const double kValid[4][2] = {{60, 20}, {380, 50}, {340, 280}, {20, 250}};

bool insideValid(double sample, double line)
{
    for (int i = 0; i < 4; ++i)
    {
        const double* a = kValid[i];
        const double* b = kValid[(i + 1) % 4];
        if ((b[0] - a[0]) * (line - a[1]) - (b[1] - a[1]) * (sample - a[0]) < 0)
            return false;
    }
    return true;
}

// Distance of a pixel position to the parallelogram's outline.
double distanceToValidOutline(double sample, double line)
{
    double best = 1e300;
    for (int i = 0; i < 4; ++i)
    {
        const double ax = kValid[i][0], ay = kValid[i][1], bx = kValid[(i + 1) % 4][0], by = kValid[(i + 1) % 4][1];
        const double t = std::clamp(((sample - ax) * (bx - ax) + (line - ay) * (by - ay)) /
                                        ((bx - ax) * (bx - ax) + (by - ay) * (by - ay)),
                                    0.0, 1.0);
        best = std::min(best, std::hypot(sample - ax - t * (bx - ax), line - ay - t * (by - ay)));
    }
    return best;
}

// A 400 x 300 complex image whose pixels outside the parallelogram are zero, as GF-3 images pad their collar.
void writeCollaredImage(const QString& path)
{
    GDALAllRegister();
    std::unique_ptr<GDALDataset> ds(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
        path.toUtf8().constData(), 400, 300, 1, GDT_CInt16, nullptr));
    std::vector<int16_t> row(2 * 400);
    for (int line = 0; line < 300; ++line)
    {
        for (int sample = 0; sample < 400; ++sample)
        {
            const bool valid = insideValid(sample + 0.5, line + 0.5);
            row[2 * sample] = valid ? 120 : 0;
            row[2 * sample + 1] = valid ? -7 : 0;
        }
        ASSERT_EQ(ds->GetRasterBand(1)->RasterIO(GF_Write, 0, line, 400, 1, row.data(), 400, 1, GDT_CInt16, 0, 0,
                                                 nullptr),
                  CE_None);
    }
}

// A linear RPC: sample = 200 + 200 L, line = 150 + 150 (0.1 L - P), with L = (lon - 103.4) / 0.2 and
// P = (lat - 31) / 0.15, so one pixel is 0.001 degree of longitude and the lines are sheared in latitude.
void writeLinearRpc(const QString& path)
{
    auto list = [](int term, double value) {
        QString s = "(";
        for (int i = 0; i < 20; ++i)
            s += QString::number(i == term ? value : 0.0) + (i < 19 ? ",\n" : ")");
        return s;
    };
    auto twoTerms = [](double l, double p) {
        QString s = "(0,\n" + QString::number(l) + ",\n" + QString::number(p);
        for (int i = 3; i < 20; ++i)
            s += ",\n0";
        return s + ")";
    };
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(QString("satId = \"GF3\";\nbandId = \"P\";\nSpecId = \"RPC00B\";\nBEGIN_GROUP = IMAGE\n"
                       "\terrBias = 1.0;\n\terrRand = 0.0;\n\tlineOffset = 150;\n\tsampOffset = 200;\n"
                       "\tlatOffset = 31;\n\tlongOffset = 103.4;\n\theightOffset = 500;\n\tlineScale = 150;\n"
                       "\tsampScale = 200;\n\tlatScale = 0.15;\n\tlongScale = 0.2;\n\theightScale = 500;\n"
                       "\tlineNumCoef = %1;\n\tlineDenCoef = %2;\n\tsampNumCoef = %3;\n\tsampDenCoef = %2;\n"
                       "END_GROUP = IMAGE\nEND;\n")
                   .arg(twoTerms(0.1, -1.0), list(0, 1.0), list(1, 1.0))
                   .toUtf8());
}

} // namespace

TEST(Gf3ContourShp, FootprintFromTheRpcFollowsTheValidDataNotTheCornerBox)
{
    // Once with the .RPB that GDAL reads, once with the product's own .rpc that the plug-in reads.
    for (const char* rpcSuffix : {".rpb", ".rpc"})
    {
        SCOPED_TRACE(rpcSuffix);
        QTemporaryDir dir;
        const QString meta = writeMeta(dir.filePath("GF3_KAS_FSI_014480_E103.4_N31.0_20190511_L1A_HHHV_L10003992720.meta.xml"), true);
        writeCollaredImage(dir.filePath("GF3_KAS_FSI_014480_E103.4_N31.0_20190511_L1A_HH_L10003992720.tiff"));
        writeLinearRpc(dir.filePath(QString("GF3_KAS_FSI_014480_E103.4_N31.0_20190511_L1A_HH_L10003992720") + rpcSuffix));
        const QString shp = dir.filePath("footprint.shp");
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_GF3_ContourShp(meta.toUtf8().constData(), shp.toUtf8().constData(), nullptr))
            << capture.text();

        std::unique_ptr<GDALDataset> ds(GDALDataset::Open(shp.toUtf8().constData(), GDAL_OF_VECTOR));
        ASSERT_TRUE(ds);
        std::unique_ptr<OGRFeature> feature(ds->GetLayer(0)->GetNextFeature());
        ASSERT_TRUE(feature);
        EXPECT_STREQ(feature->GetFieldAsString("Outline"), "valid data through RPC");
        const OGRPolygon* polygon = feature->GetGeometryRef()->toPolygon();
        // Parallelogram area by the shoelace formula, times the Jacobian of the RPC's inverse
        // (d lon / d sample = 0.001, d lat / d line = -0.001, so |det| = 1e-6 square degree per pixel).
        double pixelArea = 0.0;
        for (int i = 0; i < 4; ++i)
            pixelArea += kValid[i][0] * kValid[(i + 1) % 4][1] - kValid[(i + 1) % 4][0] * kValid[i][1];
        const double truth = 0.5 * std::abs(pixelArea) * 1e-6;
        EXPECT_NEAR(polygon->get_Area(), truth, 0.02 * truth);
        // The image's full extent is a third larger: the collar is not in the footprint.
        EXPECT_LT(polygon->get_Area(), 400 * 300 * 1e-6 * 0.8);
        // Every vertex, carried back to the image by the inverse written out by hand, lies on the outline
        // (RPC lines and samples count from pixel centres, hence the half pixel).
        const OGRLinearRing* ring = polygon->getExteriorRing();
        EXPECT_GE(ring->getNumPoints(), 5);
        for (int i = 0; i < ring->getNumPoints(); ++i)
        {
            const double L = (ring->getX(i) - 103.4) / 0.2, P = (ring->getY(i) - 31.0) / 0.15;
            const double sample = 200 + 200 * L + 0.5, line = 150 + 150 * (0.1 * L - P) + 0.5;
            EXPECT_LT(distanceToValidOutline(sample, line), 1.5) << sample << " " << line;
        }
    }
}

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
    EXPECT_STREQ(feature->GetFieldAsString("Outline"), "meta.xml corners");
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
