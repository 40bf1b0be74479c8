// Raster utilities: mask creation from a vector file and mask application, pixels checked.
#include "test_support.h"

using namespace testsupport;

namespace
{

// A GeoJSON rectangle in UTM 50N (the reference system of makeRaster's rasters).
QString writeRectangle(const QString& path, double x0, double y0, double x1, double y1)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return QString();
    file.write(QString("{\"type\":\"FeatureCollection\",\"crs\":{\"type\":\"name\",\"properties\":{\"name\":"
                       "\"urn:ogc:def:crs:EPSG::32650\"}},\"features\":[{\"type\":\"Feature\",\"properties\":{},"
                       "\"geometry\":{\"type\":\"Polygon\",\"coordinates\":[[[%1,%2],[%3,%2],[%3,%4],[%1,%4],[%1,%2]]]}}]}")
                   .arg(x0, 0, 'f', 1)
                   .arg(y0, 0, 'f', 1)
                   .arg(x1, 0, 'f', 1)
                   .arg(y1, 0, 'f', 1)
                   .toUtf8());
    return path;
}

// The grid of makeRaster: pixel (c, r) has its centre at (500000 + 30 c + 15, 4000000 - 30 r - 15).
bool centreInside(int c, int r, double x0, double y0, double x1, double y1)
{
    const double x = 500000 + 30.0 * c + 15, y = 4000000 - 30.0 * r - 15;
    return x > x0 && x < x1 && y > y0 && y < y1;
}

} // namespace

TEST(MaskCreation, BurnsInsideOrOutsideTheFeatures)
{
    QTemporaryDir dir;
    const QString image = dir.filePath("img.tif");
    ASSERT_TRUE(makeRaster(image, 20, 20, 1, GDT_UInt16, [](int, int x, int y) { return x + y; }));
    const double x0 = 500100, y0 = 3999500, x1 = 500400, y1 = 3999800;
    const QString region = writeRectangle(dir.filePath("region.geojson"), x0, y0, x1, y1);
    for (const char* flag : {"0", "1"})
    {
        const QString mask = dir.filePath(QString("mask%1.img").arg(flag));
        RecordingResult result;
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_MaskCreation(image.toUtf8(), mask.toUtf8(), region.toUtf8(), flag, &result.record));
        capture.text();
        const std::vector<double> values = readBand(mask, 1);
        ASSERT_EQ(values.size(), 400u);
        for (int r = 0; r < 20; ++r)
            for (int c = 0; c < 20; ++c)
            {
                const bool inside = centreInside(c, r, x0, y0, x1, y1);
                EXPECT_EQ(values[size_t(r * 20 + c)], (inside != (flag[0] == '1')) ? 1.0 : 0.0) << c << "," << r;
            }
    }
}

TEST(MaskCreation, DisjointExtentsMessage)
{
    QTemporaryDir dir;
    const QString image = dir.filePath("img.tif");
    ASSERT_TRUE(makeRaster(image, 20, 20, 1, GDT_Byte, [](int, int x, int) { return x; }));
    const QString far = writeRectangle(dir.filePath("far.geojson"), 600000, 3000000, 600100, 3000100);
    const QString mask = dir.filePath("mask.tif");
    RecordingResult result;
    StdoutCapture capture;
    EXPECT_FALSE(ExcuteAlgo_MaskCreation(image.toUtf8(), mask.toUtf8(), far.toUtf8(), "0", &result.record));
    EXPECT_EQ(capture.text(), "The input file and the attribute file is not-intersect!");
    EXPECT_FALSE(QFile::exists(mask));
}

TEST(MaskCreation, FeaturesInAnotherReferenceSystemAreReprojected)
{
    SKIP_WITHOUT_SHARED_DATA("gdal/lux.shp");
    SKIP_WITHOUT_SHARED_DATA("gdal/elev.tif");
    QTemporaryDir dir;
    const QString mask = dir.filePath("lux_mask.tif");
    RecordingResult result;
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_MaskCreation(sharedDataPath("gdal/elev.tif").toUtf8(), mask.toUtf8(),
                                        sharedDataPath("gdal/lux.shp").toUtf8(), "0", &result.record));
    capture.text();
    // The country's polygons cover the elevation model's valid pixels: wherever elev has data the mask is 1.
    const std::vector<double> elev = readBand(sharedDataPath("gdal/elev.tif"), 1), values = readBand(mask, 1);
    ASSERT_EQ(elev.size(), values.size());
    size_t dataOutside = 0, ones = 0;
    for (size_t i = 0; i < elev.size(); ++i)
    {
        ones += values[i] == 1.0;
        dataOutside += elev[i] != -32768.0 && values[i] == 0.0;
    }
    EXPECT_GT(ones, elev.size() / 3);
    EXPECT_LT(dataOutside, elev.size() / 50) << "only edge pixels whose centre lies outside the border";
}

TEST(MaskApplication, KeepsMaskedPixelsOnTheSameAndAnotherGrid)
{
    QTemporaryDir dir;
    const QString image = dir.filePath("img.tif");
    ASSERT_TRUE(makeRaster(image, 20, 20, 2, GDT_Int16, [](int b, int x, int y) { return 100 * b + x + y; }));
    const QString sameGrid = dir.filePath("mask.tif");
    ASSERT_TRUE(makeRaster(sameGrid, 20, 20, 1, GDT_Byte, [](int, int x, int) { return x < 10 ? 1 : 0; }));
    const QString output = dir.filePath("out.tif");
    RecordingResult result;
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_MaskApplication(image.toUtf8(), sameGrid.toUtf8(), output.toUtf8(), -1, &result.record));
    for (int b = 1; b <= 2; ++b)
    {
        const std::vector<double> values = readBand(output, b);
        for (int y : {0, 19})
            for (int x : {0, 9, 10, 19})
                EXPECT_EQ(values[size_t(y * 20 + x)], x < 10 ? 100.0 * (b - 1) + x + y : -1.0) << b << x << y;
    }
    GDALDataset* ds = GDALDataset::Open(output.toUtf8().constData());
    EXPECT_EQ(ds->GetRasterBand(2)->GetNoDataValue(), -1.0);
    GDALClose(ds);

    // A 10 x 10 mask of 60 m pixels over the same extent: 1 in its left half again.
    const QString coarse = dir.filePath("coarse.tif");
    ASSERT_TRUE(makeRaster(coarse, 10, 10, 1, GDT_Byte, [](int, int x, int) { return x < 5 ? 1 : 0; }));
    {
        GDALDataset* m = GDALDataset::Open(coarse.toUtf8().constData(), GDAL_OF_UPDATE);
        double gt[6] = {500000.0, 60.0, 0.0, 4000000.0, 0.0, -60.0};
        m->SetGeoTransform(gt);
        GDALClose(m);
    }
    const QString output2 = dir.filePath("out2.img");
    ASSERT_TRUE(ExcuteAlgo_MaskApplication(image.toUtf8(), coarse.toUtf8(), output2.toUtf8(), 0, &result.record));
    capture.text();
    const std::vector<double> values = readBand(output2, 1);
    for (int x : {0, 9, 10, 19})
        EXPECT_EQ(values[size_t(5 * 20 + x)], x < 10 ? x + 5.0 : 0.0) << x;
}
