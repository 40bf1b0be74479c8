// The HTML report (every image present, pictures embedded, measures computed independently) and automatic
// ingest of a delivery folder with a damaged product among good ones.
#include "catalogue_test_support.h"

#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>

using namespace testsupport;
using namespace cataloguetest;

namespace
{

void makeUtmImage(const QString& path, int w, int h, int bands, double (*value)(int band, int x, int y), double pixel = 10.0)
{
    GDALAllRegister();
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GTiff");
    std::unique_ptr<GDALDataset> ds(driver->Create(path.toUtf8().constData(), w, h, bands, GDT_UInt16, nullptr));
    ASSERT_TRUE(ds);
    double gt[6] = {500000.0, pixel, 0.0, 4600000.0, 0.0, -pixel};
    ds->SetGeoTransform(gt);
    OGRSpatialReference srs;
    srs.importFromEPSG(32633);
    ds->SetSpatialRef(&srs);
    std::vector<unsigned short> data(size_t(w) * h);
    for (int b = 0; b < bands; ++b)
    {
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                data[size_t(y) * w + x] = (unsigned short)value(b, x, y);
        ASSERT_EQ(ds->GetRasterBand(b + 1)->RasterIO(GF_Write, 0, 0, w, h, data.data(), w, h, GDT_UInt16, 0, 0),
                  CE_None);
    }
}

double ramp(int band, int x, int y)
{
    return 100.0 * (band + 1) + x + 2 * y;
}

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

TEST(CatalogueReport, EveryImageWithEmbeddedPicturesAndMeasures)
{
    QTemporaryDir dir;
    const QString a = dir.filePath("first_scene.tif"), b = dir.filePath("second <scene>.tif");
    makeUtmImage(a, 40, 30, 3, ramp);
    makeUtmImage(b, 20, 20, 1, [](int, int x, int) { return double(x % 2); });
    const QString report = dir.filePath("report/inspection.html");
    const EntryRun run =
        runJson(ExcuteAlgo_ExporttoTaIReport, QJsonObject{{"InputFiles", a + "|" + b}, {"report_html", report}});
    ASSERT_TRUE(run.ok) << run.text;
    EXPECT_EQ(run.outputs.value("report_html"), report);
    const QString html = QString::fromUtf8(readAll(report));
    EXPECT_TRUE(html.startsWith("<!DOCTYPE html>"));
    EXPECT_EQ(html.count("<section>"), 2);
    EXPECT_TRUE(html.contains("<h2>first_scene.tif</h2>"));
    EXPECT_TRUE(html.contains("<h2>second &lt;scene&gt;.tif</h2>")); // names are escaped
    // One overview map, then a thumbnail and a footprint map per image; nothing is linked from outside.
    EXPECT_EQ(html.count("src=\"data:image/png;base64,"), 5);
    EXPECT_FALSE(html.contains("src=\"http"));
    EXPECT_FALSE(html.contains("src=\"file"));
    // The first embedded picture decodes as PNG.
    const int start = html.indexOf("base64,") + 7;
    const QByteArray png = QByteArray::fromBase64(html.mid(start, html.indexOf('"', start) - start).toLatin1());
    EXPECT_FALSE(QImage::fromData(png, "PNG").isNull());

    // Band 1 of the ramp: mean of 100 + x + 2y over 40 x 30 = 100 + 19.5 + 29 = 148.5; min 100, max 197.
    EXPECT_TRUE(html.contains("<tr><td>1</td><td style=\"text-align:left\"></td><td>100</td><td>100</td><td>197</td>"
                              "<td>148.5</td>"))
        << html.toStdString().substr(0, 0);
    // The stripes of the second image: mean 0.5, standard deviation 0.5, one bit of entropy, gradient 1/sqrt(2).
    EXPECT_TRUE(html.contains("<td>0</td><td>1</td><td>0.5</td><td>0.5</td><td>1</td><td>1</td><td>0.707107</td>"));

    const EntryRun bad = runJson(ExcuteAlgo_ExporttoTaIReport, QJsonObject{{"InputFiles", dir.filePath("none.tif")},
                                                                           {"report_html", dir.filePath("r2.html")}});
    EXPECT_FALSE(bad.ok);
    EXPECT_NE(bad.text.find("[ERROR] ExportReport: the parameter InputFiles"), std::string::npos) << bad.text;
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("r2.html")));
}

TEST(CatalogueIngest, DeliveryWithADamagedProduct)
{
    QTemporaryDir dir;
    const QString in = dir.filePath("delivery");
    QDir().mkpath(in + "/packed");
    makeUtmImage(in + "/plain.tif", 30, 20, 1, ramp);
    // A damaged raster: the first 300 bytes of a good one.
    makeUtmImage(dir.filePath("whole.tif"), 30, 20, 1, ramp);
    {
        QFile cut(in + "/damaged.tif");
        ASSERT_TRUE(cut.open(QIODevice::WriteOnly));
        cut.write(readAll(dir.filePath("whole.tif")).left(300));
    }
    // An archive holding a raster, and an archive that is not one.
    makeUtmImage(in + "/packed/inner.tif", 16, 16, 2, ramp);
    ASSERT_EQ(QProcess::execute("tar", {"-czf", in + "/scene.tar.gz", "-C", in + "/packed", "inner.tif"}), 0);
    QFile::remove(in + "/packed/inner.tif");
    {
        QFile junk(in + "/broken.zip");
        ASSERT_TRUE(junk.open(QIODevice::WriteOnly));
        junk.write("this is not a zip archive");
    }

    const QString out = dir.filePath("ready");
    RecordingResult result;
    std::string text;
    bool ok = false;
    {
        StdoutCapture capture;
        ok = ExcuteAlgo_DataAutoMagic(in.toUtf8().constData(), out.toUtf8().constData(), "{\"index\": true}",
                                      &result.record);
        text = capture.text();
    }
    ASSERT_TRUE(ok) << text << result.record.message;
    const auto outputs = outputLines(text);
    EXPECT_EQ(outputs.value("OutputDir"), out);
    EXPECT_EQ(outputs.value("ProductCount"), "2");
    EXPECT_EQ(outputs.value("RefusedCount"), "2");
    const QJsonObject manifest = QJsonDocument::fromJson(readAll(out + "/manifest.json")).object();
    QStringList refused;
    for (const QJsonValue& v : manifest.value("refused").toArray())
        refused << QFileInfo(v.toObject().value("source").toString()).fileName() + ": " +
                       v.toObject().value("reason").toString();
    refused.sort();
    ASSERT_EQ(refused.size(), 2);
    EXPECT_TRUE(refused[0].startsWith("broken.zip: broken.zip could not be unpacked")) << refused[0].toStdString();
    // Cut inside its georeferencing keys or its pixels: either way refused, with the reason.
    EXPECT_TRUE(refused[1].startsWith("damaged.tif: ")) << refused[1].toStdString();
    EXPECT_FALSE(QFileInfo::exists(out + "/damaged.tif"));
    // The analysis-ready copies hold the pixels of their sources.
    EXPECT_EQ(readBand(out + "/plain.tif", 1), readBand(in + "/plain.tif", 1));
    const std::vector<double> inner = readBand(out + "/inner.tif", 2);
    ASSERT_EQ(inner.size(), 256u);
    EXPECT_EQ(inner[17], ramp(1, 1, 1));
    EXPECT_TRUE(QFileInfo::exists(out + "/thumbnails/plain.png"));
    EXPECT_TRUE(QFileInfo::exists(out + "/index.gpkg"));

    // Nothing recognisable: refused before anything is written.
    const QString empty = dir.filePath("empty");
    QDir().mkpath(empty);
    {
        StdoutCapture capture;
        EXPECT_FALSE(ExcuteAlgo_DataAutoMagic(empty.toUtf8().constData(), dir.filePath("none").toUtf8().constData(), "",
                                              &result.record));
    }
    EXPECT_STREQ(result.record.message,
                 ("DataAutoMagic: the parameter InputDir (" + empty + ") holds no raster, product or archive!")
                     .toUtf8()
                     .constData());
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("none")));
    {
        StdoutCapture capture;
        EXPECT_FALSE(ExcuteAlgo_DataAutoMagic(in.toUtf8().constData(), dir.filePath("none").toUtf8().constData(),
                                              "{\"thumbnail\": false}", &result.record));
    }
    EXPECT_NE(std::string(result.record.message).find("has an unknown or mistyped member \"thumbnail\""),
              std::string::npos);
}

TEST(CatalogueIngest, Sentinel2Level2ABandsNamedByResolution)
{
    // Level-2A keeps bands in R10m, R20m and R60m, most of them at several resolutions, named <tile>_<time>_B<n>_<r>m:
    // each band is indexed and stacked once, at its finest resolution (B02 at 10 m, not at 20 or 60 m).
    QTemporaryDir dir;
    const QString in = dir.filePath("delivery"), product = "S2B_MSIL2A_20220414T102209_N0400_R065_T33TWF_20220414T121000";
    const QString images = in + "/" + product + ".SAFE/GRANULE/L2A_T33TWF_A026722_20220414T102209/IMG_DATA/";
    const QString prefix = "T33TWF_20220414T102209_";
    for (const char* folder : {"R10m", "R20m", "R60m"})
        QDir().mkpath(images + folder);
    {
        // A manifest that says nothing: the product is known by its folder name.
        QFile manifest(in + "/" + product + ".SAFE/manifest.safe");
        ASSERT_TRUE(manifest.open(QIODevice::WriteOnly));
        manifest.write("<?xml version=\"1.0\"?><xfdu:XFDU xmlns:xfdu=\"urn:ccsds:schema:xfdu:1\"/>");
    }
    auto level = [](int band, int, int) { return 0.0 + band; };
    for (const char* band : {"B02", "B03", "B04"})
        makeUtmImage(images + "R10m/" + prefix + band + "_10m.tif", 24, 24, 1, ramp, 10.0);
    for (const char* band : {"B02", "B05", "B8A", "SCL"})
        makeUtmImage(images + "R20m/" + prefix + band + "_20m.tif", 12, 12, 1, band == QString("B05") ? ramp : +level, 20.0);
    for (const char* band : {"B01", "B02", "B05"})
        makeUtmImage(images + "R60m/" + prefix + band + "_60m.tif", 4, 4, 1, ramp, 60.0);

    const EntryRun index =
        runJson(ExcuteAlgo_CreateImgIndex, QJsonObject{{"InputFiles", in}, {"OutputFile", dir.filePath("index.gpkg")}});
    ASSERT_TRUE(index.ok) << index.text;
    EXPECT_EQ(index.outputs.value("ImageCount"), "1");
    {
        std::unique_ptr<GDALDataset> indexFile(GDALDataset::Open(dir.filePath("index.gpkg").toUtf8().constData(), GDAL_OF_VECTOR));
        ASSERT_TRUE(indexFile);
        std::unique_ptr<OGRFeature> entry(indexFile->GetLayer(0)->GetNextFeature());
        ASSERT_TRUE(entry);
        EXPECT_EQ(entry->GetFieldAsInteger("bands"), 6); // B01 B02 B03 B04 B05 B8A
        EXPECT_STREQ(entry->GetFieldAsString("satellite"), "SENTINEL-2B");
    }

    const QString out = dir.filePath("ready");
    RecordingResult result;
    std::string text;
    bool ok = false;
    {
        StdoutCapture capture;
        ok = ExcuteAlgo_DataAutoMagic(in.toUtf8().constData(), out.toUtf8().constData(), "{\"index\": false}", &result.record);
        text = capture.text();
    }
    ASSERT_TRUE(ok) << text << result.record.message;
    const QJsonObject manifest = QJsonDocument::fromJson(readAll(out + "/manifest.json")).object();
    ASSERT_EQ(manifest.value("products").toArray().size(), 1);
    std::map<QString, int> bandsOf;
    for (const QJsonValue& stack : manifest.value("products").toArray()[0].toObject().value("stacks").toArray())
        bandsOf[QFileInfo(stack.toObject().value("file").toString()).fileName()] = stack.toObject().value("bands").toInt();
    // The footprint band (B01) decides the unsuffixed grid; the others are named by pixel size.
    EXPECT_EQ(bandsOf, (std::map<QString, int>{{product + ".tif", 1}, {product + "_10m.tif", 3}, {product + "_20m.tif", 2}}));
    // The 20 m stack holds B05 then B8A, read from their own files (B8A is the constant 0 of the `level` pattern).
    EXPECT_EQ(readBand(out + "/" + product + "_20m.tif", 1), readBand(images + "R20m/" + prefix + "B05_20m.tif", 1));
    const std::vector<double> b8a = readBand(out + "/" + product + "_20m.tif", 2);
    EXPECT_EQ(b8a, std::vector<double>(144, 0.0));
}

TEST(CatalogueIngest, StoppedRunLeavesNothing)
{
    QTemporaryDir dir;
    const QString in = dir.filePath("in");
    QDir().mkpath(in);
    for (const char* name : {"a.tif", "b.tif", "c.tif"})
        makeUtmImage(in + "/" + name, 30, 20, 2, ramp);
    const QString out = dir.filePath("out");
    RecordingResult result;
    result.answer = -1; // the host asks to stop at the first progress report
    {
        StdoutCapture capture;
        EXPECT_FALSE(ExcuteAlgo_DataAutoMagic(in.toUtf8().constData(), out.toUtf8().constData(), "", &result.record));
    }
    EXPECT_EQ(result.record.code, -2);
    EXPECT_FALSE(QFileInfo::exists(out)) << QDir(out).entryList().join(",").toStdString();
    // Progress reached the host in increasing order.
    ASSERT_FALSE(result.progress.empty());
    EXPECT_TRUE(std::is_sorted(result.progress.begin(), result.progress.end()));
}

TEST(CatalogueIngest, SharedSampleProducts)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_MTL.txt");
    SKIP_WITHOUT_SHARED_DATA("sentinel1");
    QTemporaryDir dir;
    const QString in = dir.filePath("in");
    QDir().mkpath(in);
    // Copies of the Landsat delivery and of one SAFE folder, and a damaged SAFE (no manifest footprint, no
    // measurement).
    ASSERT_EQ(QProcess::execute("cp", {"-r", sharedDataPath("landsat8"), in + "/landsat8"}), 0);
    const QString safe = "S1A_IW_SLC__1SDV_20220104T170557_20220104T170624_041314_04E951_F1F1.SAFE";
    ASSERT_EQ(QProcess::execute("cp", {"-r", sharedDataPath("sentinel1/" + safe), in + "/" + safe}), 0);
    QDir().mkpath(in + "/S1A_IW_GRDH_1SDV_20200101T000000_20200101T000025_000001_000001_DEAD.SAFE");
    QFile manifest(in + "/S1A_IW_GRDH_1SDV_20200101T000000_20200101T000025_000001_000001_DEAD.SAFE/manifest.safe");
    ASSERT_TRUE(manifest.open(QIODevice::WriteOnly));
    manifest.write("<broken");
    manifest.close();

    const QString out = dir.filePath("out");
    RecordingResult result;
    std::string text;
    bool ok = false;
    {
        StdoutCapture capture;
        ok = ExcuteAlgo_DataAutoMagic(in.toUtf8().constData(), out.toUtf8().constData(), "", &result.record);
        text = capture.text();
    }
    ASSERT_TRUE(ok) << text << result.record.message;
    const auto outputs = outputLines(text);
    EXPECT_EQ(outputs.value("ProductCount"), "2");
    EXPECT_EQ(outputs.value("RefusedCount"), "1");
    // The Landsat stack: the numbered bands on the 30 m grid (not the QA band), B1 first.
    std::unique_ptr<GDALDataset> stack(GDALDataset::Open((out + "/l8.tif").toUtf8().constData(), GDAL_OF_RASTER));
    ASSERT_TRUE(stack);
    EXPECT_EQ(stack->GetRasterCount(), 10);
    EXPECT_STREQ(stack->GetRasterBand(1)->GetDescription(), "l8_B1");
    EXPECT_EQ(readBand(out + "/l8.tif", 4), readBand(sharedDataPath("landsat8/l8_B4.tif"), 1));
    // Top-of-atmosphere values, checked against the values worked out from the MTL in the data's notes: the
    // mean DN 8251.708 of band 4 gives reflectance 0.071908; band 10 (the 9th of the stack) follows
    // T = K2 / ln(K1 / (3.342e-4 DN + 0.1) + 1) with K1 = 774.8853, K2 = 1321.0789.
    const std::vector<double> red = readBand(out + "/l8_toa.tif", 4);
    double sum = 0.0;
    size_t count = 0;
    for (double v : red)
        if (v != -9999.0)
            sum += v, ++count;
    ASSERT_EQ(count, red.size()); // no fill pixel in this crop
    EXPECT_NEAR(sum / count, 0.071908, 2e-6);
    const std::vector<double> thermal = readBand(out + "/l8_toa.tif", 9);
    const std::vector<double> dn10 = readBand(sharedDataPath("landsat8/l8_B10.tif"), 1);
    ASSERT_EQ(thermal.size(), dn10.size());
    for (size_t i : {size_t(0), dn10.size() / 2, dn10.size() - 1})
        EXPECT_NEAR(thermal[i], 1321.0789 / std::log(774.8853 / (3.342e-4 * dn10[i] + 0.1) + 1.0), 1e-3);
    EXPECT_EQ(outputs.value("Rasters").split('|').first(), out + "/l8_toa.tif");

    int hasNoData = 0;
    EXPECT_EQ(stack->GetRasterBand(1)->GetNoDataValue(&hasNoData), 0.0);
    EXPECT_TRUE(hasNoData); // Landsat fill is 0
    EXPECT_TRUE(outputs.value("Rasters").split('|').contains(out + "/l8_15m.tif"));
    EXPECT_EQ(outputs.value("Thumbnails").split('|').size(), 2);
    // The 15 m pan band is a stack of its own grid.
    EXPECT_EQ(readBand(out + "/l8_15m.tif", 1), readBand(sharedDataPath("landsat8/l8_B8.tif"), 1));
    // The radar product is imported as a VRT over its measurement, with its GCPs.
    std::unique_ptr<GDALDataset> radar(
        GDALDataset::Open((out + "/" + safe.chopped(5) + ".vrt").toUtf8().constData(), GDAL_OF_RASTER));
    ASSERT_TRUE(radar);
    EXPECT_EQ(radar->GetRasterXSize(), 22694);
    EXPECT_EQ(radar->GetGCPCount(), 210);
}
