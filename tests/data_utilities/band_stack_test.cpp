// Band combination and layer stacking: pixels band by band against the sources, grids, band descriptions and
// wavelengths, the .vrt form, and every refusal leaving no output behind.
#include "data_utilities_fixtures.h"

#include <ogr_spatialref.h>

#include <QFile>
#include <QFileInfo>

using namespace testsupport;
using namespace datafixtures;

namespace
{

double aValue(int band, int x, int y)
{
    return 100.0 * (band + 1) + x + 10.0 * y;
}
double bValue(int band, int x, int y)
{
    return 7.0 * (band + 1) + x;
}

struct TwoRasters
{
    QTemporaryDir dir;
    QString a = dir.filePath("a.tif");
    QString b = dir.filePath("b.tif");
    TwoRasters()
    {
        makeRaster(a, 6, 5, 3, GDT_UInt16, aValue);
        makeRaster(b, 6, 5, 2, GDT_Byte, bValue);
        GDALDataset* ds = GDALDataset::Open(a.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_UPDATE);
        for (int i = 1; i <= 3; ++i)
        {
            ds->GetRasterBand(i)->SetDescription(CPLSPrintf("blue%d", i));
            ds->GetRasterBand(i)->SetMetadataItem("wavelength", CPLSPrintf("%d", 480 + 80 * i));
        }
        GDALClose(ds);
    }
    QString inputs() const { return a + "|" + b; }
};

} // namespace

TEST(BandCombination, ChosenBandsInGroupOrderWithTheirDescriptionsAndWavelengths)
{
    TwoRasters in;
    const QString out = in.dir.filePath("out/combined.tif");
    const Outcome run = call(
        [&](AlgoResult* r) { return ExcuteAlgo_BandCombination(in.inputs().toUtf8(), out.toUtf8(), "3,1|2", 0, r); });
    ASSERT_TRUE(run.ok) << run.message << run.printed;
    EXPECT_EQ(outputLine(run.printed, "OutputFile"), out.toStdString());
    GDALDataset* ds = GDALDataset::Open(out.toUtf8().constData());
    ASSERT_TRUE(ds);
    ASSERT_EQ(ds->GetRasterCount(), 3);
    EXPECT_EQ(ds->GetRasterBand(1)->GetRasterDataType(), GDT_UInt16) << "widest of UInt16 and Byte";
    EXPECT_STREQ(ds->GetRasterBand(1)->GetDescription(), "blue3");
    EXPECT_STREQ(ds->GetRasterBand(2)->GetMetadataItem("wavelength"), "560");
    EXPECT_STREQ(ds->GetRasterBand(3)->GetDescription(), "b band 2") << "a band without a name is named by its source";
    double gt[6];
    ds->GetGeoTransform(gt);
    EXPECT_EQ(gt[0], 500000.0);
    GDALClose(ds);
    const std::pair<int, std::function<double(int, int)>> expected[] = {
        {1, [](int x, int y) { return aValue(2, x, y); }},
        {2, [](int x, int y) { return aValue(0, x, y); }},
        {3, [](int x, int y) { return bValue(1, x, y); }},
    };
    for (const auto& band : expected)
    {
        const std::vector<double> pixels = readBand(out, band.first);
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 6; ++x)
                ASSERT_EQ(pixels[size_t(y * 6 + x)], band.second(x, y)) << band.first << " " << x << "," << y;
    }
}

TEST(BandCombination, VrtOutputPointsAtTheSourcesWithTheChosenType)
{
    TwoRasters in;
    const QString out = in.dir.filePath("combined.vrt");
    const Outcome run = call([&](AlgoResult* r) {
        return ExcuteAlgo_BandCombination(in.inputs().toUtf8(), out.toUtf8(), "|1", GDT_Float32, r);
    });
    ASSERT_TRUE(run.ok) << run.message;
    QFile file(out);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray xml = file.readAll();
    EXPECT_TRUE(xml.startsWith("<VRTDataset")) << xml.constData();
    EXPECT_TRUE(xml.contains("a.tif") && xml.contains("b.tif"));
    EXPECT_LT(xml.size(), 8000) << "no pixels copied";
    GDALDataset* ds = GDALDataset::Open(out.toUtf8().constData());
    ASSERT_EQ(ds->GetRasterCount(), 4) << "empty first group: all three bands of a, then band 1 of b";
    EXPECT_EQ(ds->GetRasterBand(4)->GetRasterDataType(), GDT_Float32);
    GDALClose(ds);
    EXPECT_EQ(readBand(out, 4)[7], bValue(0, 1, 1));
    EXPECT_EQ(readBand(out, 2)[7], aValue(1, 1, 1));
}

TEST(BandCombination2, CoarserClassImageIsTakenOntoTheFirstGridByNearest)
{
    QTemporaryDir dir;
    const QString fine = dir.filePath("fine.tif"), coarse = dir.filePath("coarse.tif");
    ASSERT_TRUE(makeRaster(fine, 8, 8, 1, GDT_Float32, [](int, int x, int y) { return x * 0.5 + y; }));
    ASSERT_TRUE(makeRaster(coarse, 4, 4, 1, GDT_Byte, [](int, int x, int y) { return (x + 4 * y) % 5; }));
    setGrid(fine, 1000.0, 2000.0, 10.0);
    setGrid(coarse, 1000.0, 2000.0, 20.0);
    makeClassImage(coarse, 5);
    const QString out = dir.filePath("pair.img");
    const Outcome run = call([&](AlgoResult* r) {
        return ExcuteAlgo_BandCombination2((fine + "|" + coarse).toUtf8(), out.toUtf8(), "", r);
    });
    ASSERT_TRUE(run.ok) << run.message;
    const std::vector<double> classes = readBand(out, 2);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            ASSERT_EQ(classes[size_t(y * 8 + x)], double((x / 2 + 4 * (y / 2)) % 5)) << x << "," << y;
    EXPECT_EQ(readBand(out, 1)[9], 1 * 0.5 + 1);
}

// A raster in the next UTM zone covering the first one is warped onto the first grid.
TEST(BandCombination2, RasterInAnotherSystemIsWarpedOntoTheFirstGrid)
{
    QTemporaryDir dir;
    const QString first = dir.filePath("first.tif"), other = dir.filePath("other.tif");
    ASSERT_TRUE(makeRaster(first, 10, 10, 1, GDT_Byte, [](int, int x, int) { return x; }));
    OGRSpatialReference zone50, zone51;
    zone50.importFromEPSG(32650);
    zone51.importFromEPSG(32651);
    zone50.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    zone51.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    std::unique_ptr<OGRCoordinateTransformation> to51(OGRCreateCoordinateTransformation(&zone50, &zone51));
    double x = 500000.0, y = 4000000.0; // the first raster's top-left corner
    ASSERT_TRUE(to51->Transform(1, &x, &y));
    ASSERT_TRUE(makeRaster(other, 60, 60, 1, GDT_Float32, [](int, int, int) { return 42.5; }));
    setGrid(other, x - 600.0, y + 600.0, 30.0, 32651); // 1800 m square around the 300 m of the first
    const QString out = dir.filePath("pair.tif");
    const Outcome run = call([&](AlgoResult* r) {
        return ExcuteAlgo_BandCombination2((first + "|" + other).toUtf8(), out.toUtf8(), "", r);
    });
    ASSERT_TRUE(run.ok) << run.message;
    const std::vector<double> warped = readBand(out, 2);
    ASSERT_EQ(warped.size(), 100u);
    for (double v : warped)
        ASSERT_EQ(v, 42.5);
    const Outcome virtualOut = call([&](AlgoResult* r) {
        return ExcuteAlgo_BandCombination2((first + "|" + other).toUtf8(), dir.filePath("pair.vrt").toUtf8(), "", r);
    });
    EXPECT_FALSE(virtualOut.ok);
    EXPECT_EQ(virtualOut.message,
              ("BandCombination2: the parameter InputFiles (" + other +
               ") is in another reference system than the first raster, which a .vrt output cannot resample!")
                  .toStdString());
}

TEST(BandCombination, RefusalsNameTheParameterAndLeaveNothing)
{
    TwoRasters in;
    const QString far = in.dir.filePath("far.tif");
    makeRaster(far, 4, 4, 1, GDT_Byte, [](int, int, int) { return 1; });
    setGrid(far, 0.0, 100.0, 30.0);
    const QString shapefile = in.dir.filePath("zones.shp");
    ASSERT_TRUE(makeVector(shapefile, 32650, {"id"}, {{"POLYGON((0 0,1 0,1 1,0 0))", {1}, "x"}}));
    const QString out = in.dir.filePath("out.tif");
    struct Row
    {
        QString inputs, bands;
        int type;
        QString output;
        std::string message;
    };
    const std::string a = in.a.toStdString(), b = in.b.toStdString();
    const Row rows[] = {
        {in.inputs(), "1|2|3", 0, out, "BandCombination: the parameter Bands (1|2|3) has 3 groups for 2 input files!"},
        {in.inputs(), "4|", 0, out,
         "BandCombination: the parameter Bands (4|) asks for band 4 of " + a + ", which has 3 bands!"},
        {in.inputs(), "1;2", 0, out, "BandCombination: the parameter Bands (1;2) \"1;2\" is not a band number!"},
        {in.inputs(), "", 12, out, "BandCombination: the parameter DataType (12) must be between 0 and 11!"},
        {in.a + "|" + in.dir.filePath("none.tif"), "", 0, out,
         "BandCombination: the parameter InputFiles (" + in.dir.filePath("none.tif").toStdString() +
             ") does not exist!"},
        {in.a + "|" + shapefile, "", 0, out,
         "BandCombination: the parameter InputFiles (" + shapefile.toStdString() + ") cannot be opened as a raster!"},
        {in.a + "|" + far, "", 0, out,
         "BandCombination: the parameter InputFiles (" + far.toStdString() + ") does not overlap the first raster!"},
        {in.inputs(), "", 0, in.b, "BandCombination: the parameter OutputFile (" + b + ") names an input file!"},
    };
    for (const Row& row : rows)
    {
        const Outcome run = call([&](AlgoResult* r) {
            return ExcuteAlgo_BandCombination(row.inputs.toUtf8(), row.output.toUtf8(), row.bands.toUtf8(), row.type,
                                              r);
        });
        EXPECT_FALSE(run.ok);
        EXPECT_EQ(run.message, row.message);
        EXPECT_EQ(outputLine(run.printed, "OutputFile"), "");
        EXPECT_FALSE(QFile::exists(out)) << row.message;
    }
    EXPECT_TRUE(QFile::exists(in.b)) << "an input named as output is left alone";
}

// Two rasters overlapping in part, at 2 m and 4 m: the stack covers their common extent at 2 m; the class image is
// taken by nearest, the continuous band lands on its own pixels.
TEST(LayerStack, CommonExtentAtTheFinestResolution)
{
    QTemporaryDir dir;
    const QString fine = dir.filePath("fine.tif"), coarse = dir.filePath("coarse.tif");
    ASSERT_TRUE(makeRaster(fine, 10, 10, 1, GDT_Float32, [](int, int x, int y) { return x + 100.0 * y; }));
    ASSERT_TRUE(makeRaster(coarse, 5, 4, 1, GDT_Byte, [](int, int x, int y) { return (x + 5 * y) % 7; }));
    setGrid(fine, 0.0, 20.0, 2.0);   // x 0..20, y 0..20
    setGrid(coarse, 4.0, 16.0, 4.0); // x 4..24, y 0..16
    makeClassImage(coarse, 7);
    const QString out = dir.filePath("stack.tif");
    const Outcome run =
        call([&](AlgoResult* r) { return ExcuteAlgo_LayerStack((fine + "|" + coarse).toUtf8(), out.toUtf8(), r); });
    ASSERT_TRUE(run.ok) << run.message;
    EXPECT_EQ(outputLine(run.printed, "OutputFile"), out.toStdString());
    GDALDataset* ds = GDALDataset::Open(out.toUtf8().constData());
    ASSERT_TRUE(ds);
    EXPECT_EQ(ds->GetRasterXSize(), 8); // x 4..20
    EXPECT_EQ(ds->GetRasterYSize(), 8); // y 0..16
    double gt[6];
    ds->GetGeoTransform(gt);
    EXPECT_DOUBLE_EQ(gt[0], 4.0);
    EXPECT_DOUBLE_EQ(gt[3], 16.0);
    EXPECT_DOUBLE_EQ(gt[1], 2.0);
    EXPECT_DOUBLE_EQ(gt[5], -2.0);
    EXPECT_EQ(ds->GetRasterCount(), 2);
    GDALClose(ds);
    const std::vector<double> continuous = readBand(out, 1), classes = readBand(out, 2);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
        {
            ASSERT_DOUBLE_EQ(continuous[size_t(y * 8 + x)], (x + 2) + 100.0 * (y + 2)) << x << "," << y;
            ASSERT_EQ(classes[size_t(y * 8 + x)], double((x / 2 + 5 * (y / 2)) % 7)) << x << "," << y;
        }
}

TEST(LayerStack, RastersThatDoNotOverlapAreRefused)
{
    QTemporaryDir dir;
    const QString a = dir.filePath("a.tif"), b = dir.filePath("b.tif");
    ASSERT_TRUE(makeRaster(a, 4, 4, 1, GDT_Byte, [](int, int, int) { return 1; }));
    ASSERT_TRUE(makeRaster(b, 4, 4, 1, GDT_Byte, [](int, int, int) { return 2; }));
    setGrid(b, 0.0, 100.0, 10.0);
    const QString out = dir.filePath("stack.tif");
    const Outcome run =
        call([&](AlgoResult* r) { return ExcuteAlgo_LayerStack((a + "|" + b).toUtf8(), out.toUtf8(), r); });
    EXPECT_FALSE(run.ok);
    EXPECT_EQ(run.message,
              ("LayerStack: the parameter InputFiles (" + a + "|" + b + ") names rasters that do not overlap!")
                  .toStdString());
    EXPECT_EQ(filesIn(dir.path()), (QStringList{"a.tif", "b.tif"}));
}

// A real Landsat 7 scene stacked with itself band by band: the stack equals its sources.
TEST(LayerStack, RealSceneBandsAgreeWithTheSource)
{
    SKIP_WITHOUT_SHARED_DATA("gdal/L7_ETMs.tif");
    const QString scene = sharedDataPath("gdal/L7_ETMs.tif");
    QTemporaryDir dir;
    const QString out = dir.filePath("stack.tif");
    const Outcome run =
        call([&](AlgoResult* r) { return ExcuteAlgo_LayerStack((scene + "|" + scene).toUtf8(), out.toUtf8(), r); });
    ASSERT_TRUE(run.ok) << run.message;
    for (int band = 1; band <= 6; ++band)
    {
        EXPECT_EQ(readBand(out, band), readBand(scene, band)) << band;
        EXPECT_EQ(readBand(out, band + 6), readBand(scene, band)) << band;
    }
}
