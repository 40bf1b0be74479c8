// Footprints (nodata borders, GCPs, rotated grids) against their true valid areas; the footprint index of
// folders and products, its attributes and formats; the refusals of CreateImgIndex and GetImgEnv.
#include "catalogue_test_support.h"

#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cmath>
#include <functional>
#include <memory>

using namespace testsupport;
using namespace cataloguetest;

namespace
{

// A one-band Byte GeoTIFF; gt null: no geotransform; epsg 0: no reference system.
void makeImage(const QString& path, int w, int h, const std::function<int(int, int)>& value, const double* gt, int epsg,
               bool nodataZero, int bands = 1)
{
    GDALAllRegister();
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GTiff");
    std::unique_ptr<GDALDataset> ds(driver->Create(path.toUtf8().constData(), w, h, bands, GDT_Byte, nullptr));
    ASSERT_TRUE(ds);
    if (gt)
        ds->SetGeoTransform(const_cast<double*>(gt));
    if (epsg)
    {
        OGRSpatialReference srs;
        srs.importFromEPSG(epsg);
        ds->SetSpatialRef(&srs);
    }
    std::vector<unsigned char> row(w);
    for (int b = 1; b <= bands; ++b)
    {
        if (nodataZero)
            ds->GetRasterBand(b)->SetNoDataValue(0);
        for (int y = 0; y < h; ++y)
        {
            for (int x = 0; x < w; ++x)
                row[x] = (unsigned char)value(x, y);
            ASSERT_EQ(ds->GetRasterBand(b)->RasterIO(GF_Write, 0, y, w, 1, row.data(), w, 1, GDT_Byte, 0, 0), CE_None);
        }
    }
}

std::unique_ptr<OGRGeometry> geometryFromWkt(const QString& wkt)
{
    OGRGeometry* g = nullptr;
    const QByteArray text = wkt.toUtf8();
    OGRGeometryFactory::createFromWkt(text.constData(), nullptr, &g);
    return std::unique_ptr<OGRGeometry>(g);
}

std::unique_ptr<OGRGeometry> toUtm33(const OGRGeometry& lonLat)
{
    OGRSpatialReference wgs, utm;
    wgs.SetWellKnownGeogCS("WGS84");
    wgs.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    utm.importFromEPSG(32633);
    std::unique_ptr<OGRCoordinateTransformation> ct(OGRCreateCoordinateTransformation(&wgs, &utm));
    std::unique_ptr<OGRGeometry> g(lonLat.clone());
    g->transform(ct.get());
    return g;
}

double areaOf(const OGRGeometry& g)
{
    const OGRwkbGeometryType t = wkbFlatten(g.getGeometryType());
    return t == wkbPolygon ? g.toPolygon()->get_Area() : t == wkbMultiPolygon ? g.toMultiPolygon()->get_Area() : 0.0;
}

// A diamond of valid pixels in a 400 x 300 image, zeros (no-data) around it.
bool inDiamond(int x, int y)
{
    return std::abs(x + 0.5 - 200.0) / 190.0 + std::abs(y + 0.5 - 150.0) / 140.0 <= 1.0;
}
const double kUtmGrid[6] = {500000.0, 30.0, 0.0, 4600000.0, 0.0, -30.0};

struct Features
{
    int count = 0;
    std::vector<std::map<std::string, std::string>> rows;
};

Features readVector(const QString& path)
{
    Features f;
    std::unique_ptr<GDALDataset> ds(GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_VECTOR));
    if (!ds)
        return f;
    OGRLayer* layer = ds->GetLayer(0);
    for (auto& feature : *layer)
    {
        std::map<std::string, std::string> row;
        for (int i = 0; i < feature->GetFieldCount(); ++i)
            row[feature->GetFieldDefnRef(i)->GetNameRef()] =
                feature->IsFieldSetAndNotNull(i) ? feature->GetFieldAsString(i) : "";
        f.rows.push_back(row);
        ++f.count;
    }
    return f;
}

void writeText(const QString& path, const QByteArray& text)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text);
}

// A small delivery in the shape of a Landsat collection product: its MTL text and two band files.
QString makeLandsatDelivery(const QString& folder)
{
    const QString stem = QDir(folder).filePath("LC08_L1TP_020039_20150804_20170226_01_T1");
    writeText(stem + "_MTL.txt", "GROUP = L1_METADATA_FILE\n  SPACECRAFT_ID = \"LANDSAT_8\"\n"
                                 "  SENSOR_ID = \"OLI_TIRS\"\n  DATE_ACQUIRED = 2015-08-04\n"
                                 "  SCENE_CENTER_TIME = \"16:19:21.79Z\"\n  CLOUD_COVER = 5.50\nEND_GROUP\nEND\n");
    const double gt[6] = {452475.0, 30.0, 0.0, 3408645.0, 0.0, -30.0};
    // Fill (0, undeclared) in the first 20 columns: the delivery's convention.
    for (const char* band : {"_B1.TIF", "_B2.TIF"})
        makeImage(
            stem + band, 60, 40, [](int x, int) { return x < 20 ? 0 : 100; }, gt, 32616, false);
    return stem + "_MTL.txt";
}

} // namespace

TEST(CatalogueFootprint, NodataBorderGivesTheValidAreaNotTheBox)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("diamond.tif");
    makeImage(
        path, 400, 300, [](int x, int y) { return inDiamond(x, y) ? 7 : 0; }, kUtmGrid, 32633, true);
    // The true valid area, counted pixel by pixel.
    double trueArea = 0.0;
    for (int y = 0; y < 300; ++y)
        for (int x = 0; x < 400; ++x)
            trueArea += inDiamond(x, y) ? 900.0 : 0.0;

    const EntryRun run = runJson(ExcuteAlgo_GetImgEnv, QJsonObject{{"InputFile", path}});
    ASSERT_TRUE(run.ok) << run.text;
    const auto footprint = geometryFromWkt(run.outputs.value("Footprint_WKT"));
    ASSERT_TRUE(footprint);
    const auto projected = toUtm33(*footprint);
    EXPECT_NEAR(areaOf(*projected) / trueArea, 1.0, 0.02);
    // The diamond's half-diagonals are 190 and 140 pixels: 2 * 190 * 140 pixels, 44 % of the box.
    EXPECT_NEAR(trueArea / 900.0 / (2.0 * 190.0 * 140.0), 1.0, 0.005);

    // The diamond drawn exactly, in map coordinates: what the footprint misses or adds is a thin edge.
    OGRLinearRing ring;
    for (auto p : {std::pair<double, double>{200, 10}, {390, 150}, {200, 290}, {10, 150}, {200, 10}})
        ring.addPoint(500000.0 + 30.0 * p.first, 4600000.0 - 30.0 * p.second);
    OGRPolygon diamond;
    diamond.addRing(&ring);
    std::unique_ptr<OGRGeometry> difference(projected->SymDifference(&diamond));
    EXPECT_LT(areaOf(*difference) / trueArea, 0.03);

    // The envelope in the image's own system stays within the grid and spans the diamond's 380 x 280 pixels.
    EXPECT_EQ(run.outputs.value("Envelope_SRS"), "EPSG:32633");
    const QStringList box = run.outputs.value("Envelope").split('|');
    ASSERT_EQ(box.size(), 4);
    EXPECT_NEAR(box[0].toDouble(), 500000.0 + 30.0 * 10, 30.0 * 2);
    EXPECT_NEAR(box[2].toDouble(), 500000.0 + 30.0 * 390, 30.0 * 2);
    EXPECT_TRUE(run.outputs.value("Footprint_GeoJSON").startsWith("{ \"type\": \"MultiPolygon\""));

    // A valid frame around a no-data hole, and a separate valid block: two polygons, one with a hole (the
    // general polygoniser rather than the row-run outline).
    const QString framed = dir.filePath("framed.tif");
    auto inFrame = [](int x, int y) {
        const bool frame = x >= 20 && x < 220 && y >= 20 && y < 220 && !(x >= 80 && x < 160 && y >= 80 && y < 160);
        const bool block = x >= 260 && x < 380 && y >= 40 && y < 100;
        return frame || block;
    };
    makeImage(
        framed, 400, 300, [&](int x, int y) { return inFrame(x, y) ? 3 : 0; }, kUtmGrid, 32633, true);
    const EntryRun frameRun = runJson(ExcuteAlgo_GetImgEnv, QJsonObject{{"InputFile", framed}});
    ASSERT_TRUE(frameRun.ok) << frameRun.text;
    const auto frameFootprint = geometryFromWkt(frameRun.outputs.value("Footprint_WKT"));
    ASSERT_TRUE(frameFootprint);
    ASSERT_EQ(wkbFlatten(frameFootprint->getGeometryType()), wkbMultiPolygon);
    const OGRMultiPolygon* parts = frameFootprint->toMultiPolygon();
    ASSERT_EQ(parts->getNumGeometries(), 2);
    int holes = 0;
    for (const OGRPolygon* part : *parts)
        holes += part->getNumInteriorRings();
    EXPECT_EQ(holes, 1);
    // 200 x 200 - 80 x 80 + 120 x 60 pixels of 30 m.
    const double frameArea = (200.0 * 200.0 - 80.0 * 80.0 + 120.0 * 60.0) * 900.0;
    EXPECT_NEAR(areaOf(*toUtm33(*frameFootprint)) / frameArea, 1.0, 0.01);
}

TEST(CatalogueFootprint, GcpAndRotatedImagesArePlacedThroughTheirTransformer)
{
    QTemporaryDir dir;
    // GCPs of an exactly affine placement: lon = 10 + 0.0015 x - 0.0005 y, lat = 45 + 0.0005 x - 0.0015 y.
    const QString gcpPath = dir.filePath("gcp.tif");
    makeImage(
        gcpPath, 200, 100, [](int x, int) { return x < 100 ? 0 : 50; }, nullptr, 0, true);
    {
        std::unique_ptr<GDALDataset> ds(GDALDataset::Open(gcpPath.toUtf8().constData(), GDAL_OF_UPDATE));
        GDAL_GCP gcps[4];
        GDALInitGCPs(4, gcps);
        const double corners[4][2] = {{0, 0}, {200, 0}, {0, 100}, {200, 100}};
        for (int i = 0; i < 4; ++i)
        {
            gcps[i].dfGCPPixel = corners[i][0];
            gcps[i].dfGCPLine = corners[i][1];
            gcps[i].dfGCPX = 10.0 + 0.0015 * corners[i][0] - 0.0005 * corners[i][1];
            gcps[i].dfGCPY = 45.0 + 0.0005 * corners[i][0] - 0.0015 * corners[i][1];
        }
        OGRSpatialReference wgs;
        wgs.importFromEPSG(4326);
        ds->SetGCPs(4, gcps, &wgs);
        GDALDeinitGCPs(4, gcps);
    }
    EntryRun run = runJson(ExcuteAlgo_GetImgEnv, QJsonObject{{"InputFile", gcpPath}});
    ASSERT_TRUE(run.ok) << run.text;
    // Valid half x in [100, 200]: its corners by hand.
    QStringList box = run.outputs.value("EnvelopeWGS84").split('|');
    ASSERT_EQ(box.size(), 4);
    EXPECT_NEAR(box[0].toDouble(), 10.1, 1e-7); // (100, 100)
    EXPECT_NEAR(box[1].toDouble(), 44.9, 1e-7); // (100, 100)
    EXPECT_NEAR(box[2].toDouble(), 10.3, 1e-7); // (200, 0)
    EXPECT_NEAR(box[3].toDouble(), 45.1, 1e-7); // (200, 0)
    EXPECT_EQ(run.outputs.value("Envelope_SRS"), "EPSG:4326");

    // A grid rotated by 30 degrees: the native envelope is that of the four transformed corners.
    const double c = 30.0 * std::cos(M_PI / 6), s = 30.0 * std::sin(M_PI / 6);
    const double rotated[6] = {500000.0, c, s, 4600000.0, s, -c};
    const QString rotPath = dir.filePath("rotated.tif");
    makeImage(
        rotPath, 120, 80, [](int, int) { return 9; }, rotated, 32633, false);
    run = runJson(ExcuteAlgo_GetImgEnv, QJsonObject{{"InputFile", rotPath}});
    ASSERT_TRUE(run.ok) << run.text;
    double minX = 1e300, maxX = -1e300, minY = 1e300, maxY = -1e300;
    for (auto p : {std::pair<double, double>{0, 0}, {120, 0}, {0, 80}, {120, 80}})
    {
        const double x = rotated[0] + p.first * rotated[1] + p.second * rotated[2];
        const double y = rotated[3] + p.first * rotated[4] + p.second * rotated[5];
        minX = std::min(minX, x), maxX = std::max(maxX, x), minY = std::min(minY, y), maxY = std::max(maxY, y);
    }
    box = run.outputs.value("Envelope").split('|');
    ASSERT_EQ(box.size(), 4);
    EXPECT_NEAR(box[0].toDouble(), minX, 1e-6);
    EXPECT_NEAR(box[1].toDouble(), minY, 1e-6);
    EXPECT_NEAR(box[2].toDouble(), maxX, 1e-6);
    EXPECT_NEAR(box[3].toDouble(), maxY, 1e-6);
}

TEST(CatalogueIndex, FolderIndexHasOneEntryPerProductInEveryFormat)
{
    QTemporaryDir dir;
    const QString data = dir.filePath("delivery");
    QDir().mkpath(data + "/sub/landsat");
    makeImage(
        data + "/diamond.tif", 400, 300, [](int x, int y) { return inDiamond(x, y) ? 7 : 0; }, kUtmGrid, 32633, true);
    const double geographic[6] = {12.0, 0.01, 0.0, 42.0, 0.0, -0.01};
    makeImage(
        data + "/sub/geo.tif", 50, 50, [](int, int) { return 3; }, geographic, 4326, false);
    makeImage(
        data + "/sub/no_georef.tif", 20, 20, [](int, int) { return 3; }, nullptr, 0, false);
    writeText(data + "/sub/readme.txt", "not an image");
    const QString mtl = makeLandsatDelivery(data + "/sub/landsat");

    for (const char* suffix : {"gpkg", "shp", "geojson"})
    {
        SCOPED_TRACE(suffix);
        const QString index = dir.filePath(QStringLiteral("out/index.%1").arg(suffix));
        const EntryRun run =
            runJson(ExcuteAlgo_CreateImgIndex, QJsonObject{{"InputFiles", data}, {"OutputFile", index}});
        ASSERT_TRUE(run.ok) << run.text;
        EXPECT_EQ(run.outputs.value("OutputFile"), index);
        EXPECT_EQ(run.outputs.value("ImageCount"), "3");
        EXPECT_TRUE(run.outputs.value("SkippedFiles").endsWith("no_georef.tif"));
        const Features features = readVector(index);
        ASSERT_EQ(features.count, 3);
        int landsat = 0;
        for (const auto& row : features.rows)
            if (row.at("satellite") == "LANDSAT_8")
            {
                ++landsat;
                EXPECT_EQ(QFileInfo(QString::fromStdString(row.at("path"))).fileName(), QFileInfo(mtl).fileName());
                EXPECT_EQ(row.at("sensor"), "OLI_TIRS");
                // The GeoJSON reader turns the text into a date-time of its own format.
                QString when = QString::fromStdString(row.at("acq_time"));
                when.replace('/', '-').replace(' ', 'T');
                EXPECT_EQ(when, "2015-08-04T16:19:21");
                EXPECT_EQ(row.at("bands"), "2");
                EXPECT_DOUBLE_EQ(std::stod(row.at("cloud_pct")), 5.5);
                EXPECT_DOUBLE_EQ(std::stod(row.at("res_m")), 30.0);
                EXPECT_EQ(row.at("srs"), "EPSG:32616");
            }
        EXPECT_EQ(landsat, 1);
    }

    // The Landsat fill columns (0 without a declared no-data) are outside its footprint: 40 of 60 columns.
    const QString one = dir.filePath("landsat.geojson");
    ASSERT_TRUE(runJson(ExcuteAlgo_CreateImgIndex, QJsonObject{{"InputFiles", mtl}, {"OutputFile", one}}).ok);
    std::unique_ptr<GDALDataset> ds(GDALDataset::Open(one.toUtf8().constData(), GDAL_OF_VECTOR));
    ASSERT_TRUE(ds);
    std::unique_ptr<OGRFeature> feature(ds->GetLayer(0)->GetNextFeature());
    ASSERT_TRUE(feature && feature->GetGeometryRef());
    OGRSpatialReference wgs, utm;
    wgs.SetWellKnownGeogCS("WGS84");
    wgs.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    utm.importFromEPSG(32616);
    std::unique_ptr<OGRCoordinateTransformation> ct(OGRCreateCoordinateTransformation(&wgs, &utm));
    std::unique_ptr<OGRGeometry> g(feature->GetGeometryRef()->clone());
    g->transform(ct.get());
    EXPECT_NEAR(areaOf(*g) / (40.0 * 40.0 * 900.0), 1.0, 0.01);
}

TEST(CatalogueIndex, RefusalsLeaveNothingBehind)
{
    QTemporaryDir dir;
    const QString image = dir.filePath("a.tif");
    makeImage(
        image, 10, 10, [](int, int) { return 1; }, kUtmGrid, 32633, false);
    const QString bare = dir.filePath("bare.tif");
    makeImage(
        bare, 10, 10, [](int, int) { return 1; }, nullptr, 0, false);
    const QString empty = dir.filePath("empty");
    QDir().mkpath(empty);
    writeText(empty + "/notes.txt", "nothing");
    const QString out = dir.filePath("new/folder/index.gpkg");
    struct Row
    {
        QString inputs, output, message;
    };
    const Row rows[] = {
        {image, dir.filePath("index.txt"),
         "[ERROR] CreateImgIndex: the parameter OutputFile (" + dir.filePath("index.txt") +
             ") does not end in .gpkg, .shp, .geojson or .json!"},
        {dir.filePath("missing.tif"), out,
         "[ERROR] CreateImgIndex: the parameter InputFiles (" + dir.filePath("missing.tif") +
             ") is neither a raster, a product nor a folder holding one!"},
        {image + "|" + bare, out,
         "[ERROR] CreateImgIndex: the parameter InputFiles (" + bare +
             ") has no georeferencing (geotransform, GCPs, RPC or geolocation arrays)!"},
        {empty, out,
         "[ERROR] CreateImgIndex: the parameter InputFiles (" + empty +
             ") is neither a raster, a product nor a folder holding one!"},
    };
    for (const Row& row : rows)
    {
        const EntryRun run =
            runJson(ExcuteAlgo_CreateImgIndex, QJsonObject{{"InputFiles", row.inputs}, {"OutputFile", row.output}});
        EXPECT_FALSE(run.ok);
        EXPECT_NE(run.text.find(row.message.toStdString()), std::string::npos) << run.text;
        EXPECT_EQ(run.text.find("[OUTPUT]"), std::string::npos) << run.text;
        EXPECT_FALSE(QFileInfo::exists(row.output));
        EXPECT_FALSE(QFileInfo::exists(dir.filePath("new"))); // nor the folders made for it
    }
    const EntryRun env = runJson(ExcuteAlgo_GetImgEnv, QJsonObject{{"InputFile", bare}});
    EXPECT_FALSE(env.ok);
    EXPECT_NE(env.text.find(("[ERROR] GetImgEnv: the parameter InputFile (" + bare +
                             ") has no georeferencing (geotransform, GCPs, RPC or geolocation arrays)!")
                                .toStdString()),
              std::string::npos)
        << env.text;
}

TEST(CatalogueIndex, SharedProductsAreRecognisedOncePerProduct)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_MTL.txt");
    SKIP_WITHOUT_SHARED_DATA("sentinel1");
    QTemporaryDir dir;
    const QString index = dir.filePath("shared.gpkg");
    const QString inputs = sharedDataPath("landsat8") + "|" + sharedDataPath("sentinel1");
    const EntryRun run = runJson(ExcuteAlgo_CreateImgIndex, QJsonObject{{"InputFiles", inputs}, {"OutputFile", index}});
    ASSERT_TRUE(run.ok) << run.text;
    // One Landsat delivery (13 band files), five SAFE folders and the geocoded backscatter image.
    EXPECT_EQ(run.outputs.value("ImageCount"), "7");
    const Features features = readVector(index);
    int safe = 0;
    for (const auto& row : features.rows)
    {
        if (row.at("satellite") == "LANDSAT_8")
        {
            EXPECT_EQ(row.at("acq_time"), "2015-08-04T16:19:21");
            EXPECT_EQ(row.at("cloud_pct"), "11.08");
            EXPECT_EQ(row.at("level"), "L1T");
            EXPECT_EQ(row.at("bands"), "12"); // the MTL's bands: B1-B11 and BQA
        }
        if (QString::fromStdString(row.at("path")).endsWith(".SAFE"))
        {
            ++safe;
            EXPECT_EQ(row.at("satellite").rfind("SENTINEL-1", 0), 0u);
            // The annotations' spacings (grep rangePixelSpacing/azimuthPixelSpacing): GRDH 10 x 10 m, IW SLC
            // 2.33 m in slant range by 13.93-13.95 m in azimuth, the coarser one is the resolution.
            const double resolution = std::stod(row.at("res_m"));
            if (QString::fromStdString(row.at("path")).contains("_GRDH_"))
                EXPECT_DOUBLE_EQ(resolution, 10.0) << row.at("path");
            else
                EXPECT_TRUE(resolution >= 13.928 && resolution <= 13.95) << row.at("path") << " " << resolution;
        }
    }
    EXPECT_EQ(safe, 5);

    // The Landsat crop lies inside the corners of the full scene that its MTL states.
    const EntryRun env =
        runJson(ExcuteAlgo_GetImgEnv, QJsonObject{{"InputFile", sharedDataPath("landsat8/l8_MTL.txt")}});
    ASSERT_TRUE(env.ok) << env.text;
    const QStringList box = env.outputs.value("EnvelopeWGS84").split('|');
    ASSERT_EQ(box.size(), 4);
    EXPECT_GT(box[0].toDouble(), -88.22);
    EXPECT_LT(box[2].toDouble(), -85.80);
    EXPECT_GT(box[1].toDouble(), 29.23);
    EXPECT_LT(box[3].toDouble(), 31.36);
    EXPECT_EQ(env.outputs.value("Satellite"), "LANDSAT_8");
}

TEST(CatalogueFootprint, RealImageByGeotransformAndByItsGcps)
{
    SKIP_WITHOUT_SHARED_DATA("gdal/RGB.byte.gcp.vrt");
    // RGB.byte.tif (UTM 18N, no-data 0 around a slanted scene) and a VRT of the same pixels placed only by four
    // GCPs in longitude/latitude (beside an identity geotransform, which does not count as georeferencing).
    const EntryRun byGrid =
        runJson(ExcuteAlgo_GetImgEnv, QJsonObject{{"InputFile", sharedDataPath("gdal/RGB.byte.tif")}});
    const EntryRun byGcps =
        runJson(ExcuteAlgo_GetImgEnv, QJsonObject{{"InputFile", sharedDataPath("gdal/RGB.byte.gcp.vrt")}});
    ASSERT_TRUE(byGrid.ok && byGcps.ok) << byGrid.text << byGcps.text;
    EXPECT_EQ(byGcps.outputs.value("Envelope_SRS"), "EPSG:4326");

    // The valid area in pixels, from the geotransformed footprint (the tif's grid, read with GDAL here).
    std::unique_ptr<GDALDataset> tif(GDALDataset::Open(sharedDataPath("gdal/RGB.byte.tif").toUtf8().constData()));
    ASSERT_TRUE(tif);
    double gt[6];
    tif->GetGeoTransform(gt);
    const auto native = geometryFromWkt(byGrid.outputs.value("Envelope_WKT"));
    ASSERT_TRUE(native);
    // The first-order polynomial GDAL fits to four GCPs, by least squares, worked out by hand: on a rectangle of
    // GCPs it is the mean gradient along each axis through the mean point.
    const double p[4] = {0.5, 7448.5, 0.5, 7448.5}, l[4] = {11521.5, 11521.5, 0.5, 0.5};
    const double lon[4] = {-123.6185142818, -122.8802747778, -123.4809665720, -122.7345733675};
    const double lat[4] = {48.99561141949, 48.91210259316, 49.52809729107, 49.44455878005};
    auto fit = [&](const double* v, double x, double y) {
        const double dp = ((v[1] - v[0]) + (v[3] - v[2])) / 2.0 / 7448.0;
        const double dl = ((v[0] - v[2]) + (v[1] - v[3])) / 2.0 / 11521.0;
        const double mean = (v[0] + v[1] + v[2] + v[3]) / 4.0;
        return mean + dp * (x - (p[0] + p[1] + p[2] + p[3]) / 4.0) + dl * (y - (l[0] + l[1] + l[2] + l[3]) / 4.0);
    };
    // Every vertex of the UTM footprint, back to pixels and through the fitted polynomial, lies within the
    // GCP-placed footprint's envelope, and the envelopes agree.
    const auto footprint = geometryFromWkt(byGrid.outputs.value("Footprint_WKT"));
    ASSERT_TRUE(footprint);
    const QStringList box = byGcps.outputs.value("EnvelopeWGS84").split('|');
    ASSERT_EQ(box.size(), 4);
    OGRSpatialReference utm, wgs;
    utm.importFromEPSG(32618);
    wgs.SetWellKnownGeogCS("WGS84");
    wgs.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    std::unique_ptr<OGRCoordinateTransformation> toUtm(OGRCreateCoordinateTransformation(&wgs, &utm));
    std::unique_ptr<OGRGeometry> projected(footprint->clone());
    projected->transform(toUtm.get());
    OGREnvelope expected;
    const OGRPolygon* ring0 = wkbFlatten(projected->getGeometryType()) == wkbMultiPolygon
                                  ? projected->toMultiPolygon()->getGeometryRef(0)
                                  : projected->toPolygon();
    for (const OGRPoint& point : *ring0->getExteriorRing())
    {
        const double det = gt[1] * gt[5] - gt[2] * gt[4];
        const double dx = point.getX() - gt[0], dy = point.getY() - gt[3];
        const double px = (gt[5] * dx - gt[2] * dy) / det, py = (-gt[4] * dx + gt[1] * dy) / det;
        OGREnvelope one;
        one.MinX = one.MaxX = fit(lon, px, py);
        one.MinY = one.MaxY = fit(lat, px, py);
        expected.Merge(one);
    }
    EXPECT_NEAR(box[0].toDouble(), expected.MinX, 1e-6);
    EXPECT_NEAR(box[1].toDouble(), expected.MinY, 1e-6);
    EXPECT_NEAR(box[2].toDouble(), expected.MaxX, 1e-6);
    EXPECT_NEAR(box[3].toDouble(), expected.MaxY, 1e-6);
}

TEST(CatalogueIndex, Gf3ProductIsOneEntryWithItsMetadata)
{
    QTemporaryDir dir;
    const QString product = dir.filePath("GF3_SAY_QPSI_011102_E121.2_N31.2_20181025_L1A_AHV_L10003543018");
    QDir().mkpath(product);
    writeText(product + "/GF3_SAY_QPSI_011102_E121.2_N31.2_20181025_L1A_AHV_L10003543018.meta.xml",
              "<product><segmentID>1</segmentID><sceneID>2</sceneID><satellite>GF3</satellite>"
              "<sensor><sensorID>SAR</sensorID><imagingMode>QPSI</imagingMode></sensor>"
              "<platform><CenterTime>2018-10-25 22:10:45.500000</CenterTime></platform>"
              "<productinfo><productLevel>1</productLevel></productinfo></product>");
    const double gt[6] = {121.0, 0.001, 0.0, 31.4, 0.0, -0.001};
    for (const char* channel : {"HH", "HV", "VH", "VV"})
        makeImage(
            product + QString("/GF3_SAY_QPSI_011102_E121.2_N31.2_20181025_L1A_%1_L10003543018.tiff").arg(channel), 40,
            30, [](int, int) { return 5; }, gt, 4326, false);
    const QString index = dir.filePath("gf3.geojson");
    const EntryRun run =
        runJson(ExcuteAlgo_CreateImgIndex, QJsonObject{{"InputFiles", dir.path()}, {"OutputFile", index}});
    ASSERT_TRUE(run.ok) << run.text;
    const Features features = readVector(index);
    ASSERT_EQ(features.count, 1);
    const auto& row = features.rows.front();
    EXPECT_EQ(row.at("satellite"), "GF3");
    EXPECT_EQ(row.at("sensor"), "QPSI");
    QString when = QString::fromStdString(row.at("acq_time"));
    when.replace('/', '-').replace(' ', 'T');
    EXPECT_EQ(when, "2018-10-25T22:10:45"); // the metadata's centre time, finer than the name's date
    EXPECT_EQ(row.at("bands"), "4");
    EXPECT_TRUE(QString::fromStdString(row.at("path")).endsWith(".meta.xml"));
}
