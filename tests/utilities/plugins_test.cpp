// Raster utilities: pyramids, the no-data value and its check.
#include "test_support.h"

using namespace testsupport;

TEST(ImagePyramidBuild, LevelsUntilTheOverviewFitsAndAveragedPixels)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("big.tif");
    ASSERT_TRUE(makeRaster(path, 1000, 600, 1, GDT_Float32, [](int, int x, int y) { return x + 3.0 * y; }));
    RecordingResult result;
    ASSERT_TRUE(ExcuteAlgo_ImagePyramidBuild(path.toUtf8(), &result.record));
    EXPECT_EQ(result.progress.back(), 100.0);
    GDALDataset* ds = GDALDataset::Open(path.toUtf8().constData());
    ASSERT_TRUE(ds);
    GDALRasterBand* band = ds->GetRasterBand(1);
    // 1000 x 600: level 2 is 500 x 300, level 4 (250 x 150) is the first to fit 256 x 256.
    ASSERT_EQ(band->GetOverviewCount(), 2);
    EXPECT_EQ(band->GetOverview(0)->GetXSize(), 500);
    EXPECT_EQ(band->GetOverview(0)->GetYSize(), 300);
    EXPECT_EQ(band->GetOverview(1)->GetXSize(), 250);
    float pixel = 0;
    ASSERT_EQ(band->GetOverview(0)->RasterIO(GF_Read, 10, 20, 1, 1, &pixel, 1, 1, GDT_Float32, 0, 0), CE_None);
    // Mean of x in {20, 21} and y in {40, 41}.
    EXPECT_FLOAT_EQ(pixel, 20.5f + 3.0f * 40.5f);
    GDALClose(ds);
}

TEST(SetNodata, EveryBandTakesTheValue)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("a.img");
    ASSERT_TRUE(makeRaster(path, 8, 8, 3, GDT_Int16, [](int, int x, int) { return x; }, "HFA"));
    RecordingResult result;
    ASSERT_TRUE(ExcuteAlgo_SetNodata(path.toUtf8(), -9999, &result.record));
    GDALDataset* ds = GDALDataset::Open(path.toUtf8().constData());
    ASSERT_TRUE(ds);
    for (int b = 1; b <= 3; ++b)
    {
        int has = 0;
        EXPECT_EQ(ds->GetRasterBand(b)->GetNoDataValue(&has), -9999.0);
        EXPECT_TRUE(has);
    }
    GDALClose(ds);
}

TEST(SetNodata, ThroughTheJsonRouteTheValueIsAnInteger)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("b.tif");
    ASSERT_TRUE(makeRaster(path, 4, 4, 1, GDT_Float32, [](int, int x, int) { return x; }));
    const std::string json = "{\"InputFile\":\"" + path.toStdString() + "\",\"NoDataValue\":-32768}";
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo("SetNodata", json.c_str(), nullptr));
    capture.text();
    EXPECT_EQ(readBand(path, 1).size(), 16u);
    GDALDataset* ds = GDALDataset::Open(path.toUtf8().constData());
    EXPECT_EQ(ds->GetRasterBand(1)->GetNoDataValue(), -32768.0);
    GDALClose(ds);
}

TEST(SetNodata, UnsupportedRasterMessage)
{
    QTemporaryDir dir;
    QFile text(dir.filePath("notes.tif"));
    ASSERT_TRUE(text.open(QIODevice::WriteOnly));
    text.write("not a raster");
    text.close();
    for (const QString& path : {dir.filePath("missing.tif"), text.fileName()})
    {
        RecordingResult result;
        StdoutCapture capture;
        EXPECT_FALSE(ExcuteAlgo_SetNodata(path.toUtf8(), 0, &result.record));
        EXPECT_EQ(capture.text(), "Unsupported Raster format!") << "no line end, nothing else";
        EXPECT_EQ(result.record.code, 0) << "the runner never ran";
    }
}
