// Rendering to 8-bit pictures (the 2 % clip stretch against a sort of the pixels, transparency, colours, world
// files) and rewriting in another interleave (the raw layout read back byte by byte).
#include "data_utilities_fixtures.h"

#include <QFile>
#include <QTextStream>
#include <algorithm>
#include <cmath>

using namespace testsupport;
using namespace datafixtures;

namespace
{

// The value below which `share` of the sorted values lie, as a linear interpolation.
double percentile(const std::vector<double>& sorted, double share)
{
    const double position = share * double(sorted.size());
    const size_t index = std::min(sorted.size() - 1, size_t(position));
    return sorted[index];
}

} // namespace

TEST(RenderRaster, OneBandIsStretchedToGreyWithNodataTransparentAndAWorldFile)
{
    QTemporaryDir dir;
    const QString in = dir.filePath("dem.tif");
    auto value = [](int, int x, int y) { return x == 0 ? -9999.0 : 0.37 * x * x + 3.0 * y; };
    ASSERT_TRUE(makeGeoTiff(in, 60, 40, 1, GDT_Float32, value, {}, -9999.0));
    const QString out = dir.filePath("dem.png");
    const Outcome run = call([&](AlgoResult* r) { return ExcuteAlgo_RenderRaster(in.toUtf8(), out.toUtf8(), "", r); });
    ASSERT_TRUE(run.ok) << run.message;
    EXPECT_EQ(outputLine(run.printed, "OutputFile"), out.toStdString());
    EXPECT_EQ(outputLine(run.printed, "WorldFile"), dir.filePath("dem.wld").toStdString());

    std::vector<double> valid;
    for (int y = 0; y < 40; ++y)
        for (int x = 1; x < 60; ++x)
            valid.push_back(value(0, x, y));
    std::sort(valid.begin(), valid.end());
    const double low = percentile(valid, 0.02), high = percentile(valid, 0.98);
    // The GeoTIFF form maps alike and marks its second band as alpha.
    const QString tiff = dir.filePath("dem_picture.tif");
    ASSERT_TRUE(call([&](AlgoResult* r) { return ExcuteAlgo_RenderRaster(in.toUtf8(), tiff.toUtf8(), "", r); }).ok);
    for (const QString& picture : {out, tiff})
    {
        const std::vector<double> grey = readBand(picture, 1), alpha = readBand(picture, 2);
        ASSERT_EQ(grey.size(), 2400u);
        const double bucket = (valid.back() - valid.front()) / 1024.0;
        const double tolerance = 1.0 + 254.0 * 2.0 * bucket / (high - low);
        for (int y = 0; y < 40; ++y)
            for (int x = 0; x < 60; ++x)
            {
                const size_t i = size_t(y * 60 + x);
                if (x == 0)
                {
                    ASSERT_EQ(alpha[i], 0.0);
                    continue;
                }
                ASSERT_EQ(alpha[i], 255.0);
                const double expected = std::clamp(1.0 + (value(0, x, y) - low) / (high - low) * 254.0, 1.0, 255.0);
                ASSERT_NEAR(grey[i], expected, tolerance) << picture.toStdString() << " " << x << "," << y;
            }
    }
    GDALDataset* ds = GDALDataset::Open(tiff.toUtf8().constData());
    ASSERT_TRUE(ds);
    EXPECT_EQ(ds->GetRasterBand(2)->GetColorInterpretation(), GCI_AlphaBand);
    double gt[6];
    ds->GetGeoTransform(gt);
    EXPECT_EQ(gt[0], 500000.0);
    GDALClose(ds);

    QFile world(dir.filePath("dem.wld"));
    ASSERT_TRUE(world.open(QIODevice::ReadOnly | QIODevice::Text));
    QStringList lines = QTextStream(&world).readAll().split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 6);
    EXPECT_DOUBLE_EQ(lines[0].toDouble(), 30.0);
    EXPECT_DOUBLE_EQ(lines[3].toDouble(), -30.0);
    EXPECT_DOUBLE_EQ(lines[4].toDouble(), 500015.0) << "centre of the first pixel";
    EXPECT_DOUBLE_EQ(lines[5].toDouble(), 3999985.0);
}

TEST(RenderRaster, ClassImageInItsColoursAndThreeBandsAsJpeg)
{
    QTemporaryDir dir;
    const QString classes = dir.filePath("classes.tif");
    ASSERT_TRUE(makeRaster(classes, 9, 7, 1, GDT_Byte, [](int, int x, int y) { return (x + y) % 4; }));
    makeClassImage(classes, 4);
    const QString picture = dir.filePath("classes.tif.png");
    ASSERT_TRUE(
        call([&](AlgoResult* r) { return ExcuteAlgo_RenderRaster(classes.toUtf8(), picture.toUtf8(), "", r); }).ok);
    GDALDataset* ds = GDALDataset::Open(picture.toUtf8().constData());
    ASSERT_EQ(ds->GetRasterCount(), 3);
    GDALClose(ds);
    for (int band = 1; band <= 3; ++band)
    {
        const std::vector<double> pixels = readBand(picture, band);
        for (int y = 0; y < 7; ++y)
            for (int x = 0; x < 9; ++x)
                ASSERT_EQ(pixels[size_t(y * 9 + x)], 10.0 * band * ((x + y) % 4));
    }

    // With a nodata class, that class is transparent.
    const QString holes = dir.filePath("holes.tif"), holesPicture = dir.filePath("holes.png");
    ASSERT_TRUE(makeGeoTiff(
        holes, 9, 7, 1, GDT_Byte, [](int, int x, int y) { return (x + y) % 4; }, {}, 0.0));
    makeClassImage(holes, 4);
    const QStringList before = filesIn(dir.path());
    ASSERT_TRUE(
        call([&](AlgoResult* r) { return ExcuteAlgo_RenderRaster(holes.toUtf8(), holesPicture.toUtf8(), "", r); }).ok);
    EXPECT_EQ(filesIn(dir.path()).filter("holes.tif"), before.filter("holes.tif")) << "the input is left as it was";
    const std::vector<double> alpha = readBand(holesPicture, 4), green = readBand(holesPicture, 2);
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 9; ++x)
        {
            ASSERT_EQ(alpha[size_t(y * 9 + x)], (x + y) % 4 == 0 ? 0.0 : 255.0) << x << "," << y;
            ASSERT_EQ(green[size_t(y * 9 + x)], 20.0 * ((x + y) % 4));
        }

    const QString rgb = dir.filePath("rgb.tif");
    ASSERT_TRUE(makeRaster(rgb, 32, 32, 4, GDT_UInt16, [](int b, int x, int y) { return 1000 * b + 7 * x + y; }));
    const QString jpeg = dir.filePath("rgb.jpg");
    const Outcome run =
        call([&](AlgoResult* r) { return ExcuteAlgo_RenderRaster(rgb.toUtf8(), jpeg.toUtf8(), "4,3,2", r); });
    ASSERT_TRUE(run.ok) << run.message;
    ds = GDALDataset::Open(jpeg.toUtf8().constData());
    ASSERT_TRUE(ds);
    EXPECT_EQ(ds->GetRasterCount(), 3);
    EXPECT_EQ(ds->GetRasterBand(1)->GetRasterDataType(), GDT_Byte);
    GDALClose(ds);
    // Each band spans the same stretched ramp: dark in the top-left corner, bright in the bottom-right.
    const std::vector<double> red = readBand(jpeg, 1);
    EXPECT_LT(red.front(), 20.0);
    EXPECT_GT(red.back(), 235.0);
}

TEST(RenderRaster, Refusals)
{
    QTemporaryDir dir;
    const QString in = dir.filePath("in.tif");
    ASSERT_TRUE(makeRaster(in, 4, 4, 3, GDT_Byte, [](int, int x, int) { return x; }));
    const std::pair<std::pair<QString, const char*>, std::string> rows[] = {
        {{dir.filePath("a.bmp"), ""},
         "RenderRaster: the parameter OutputFile (" + dir.filePath("a.bmp").toStdString() +
             ") must end in .png, .jpg, .jpeg, .tif or .tiff!"},
        {{dir.filePath("a.png"), "1|2"}, "RenderRaster: the parameter Bands (1|2) must name one band or three!"},
        {{dir.filePath("a.png"), "1|2|4"},
         "RenderRaster: the parameter Bands (1|2|4) must name bands between 1 and 3!"},
    };
    for (const auto& row : rows)
    {
        const Outcome run = call([&](AlgoResult* r) {
            return ExcuteAlgo_RenderRaster(in.toUtf8(), row.first.first.toUtf8(), row.first.second, r);
        });
        EXPECT_FALSE(run.ok);
        EXPECT_EQ(run.message, row.second);
    }
    EXPECT_EQ(filesIn(dir.path()), QStringList{"in.tif"});
}

// The raw file of each ENVI interleave read back with the layout written out by hand.
TEST(BandTransform, EnviInterleaveBySuffixWithNamesAndNodataKept)
{
    QTemporaryDir dir;
    const QString in = dir.filePath("cube.tif");
    auto value = [](int b, int x, int y) { return 1000.0 * b + 10.0 * y + x; };
    ASSERT_TRUE(makeGeoTiff(in, 5, 3, 4, GDT_Int16, value, {}, -1.0));
    GDALDataset* ds = GDALDataset::Open(in.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_UPDATE);
    for (int b = 1; b <= 4; ++b)
        ds->GetRasterBand(b)->SetDescription(CPLSPrintf("B%d", b));
    GDALClose(ds);
    const int w = 5, h = 3, bands = 4;
    for (const char* suffix : {"bsq", "bil", "bip"})
    {
        const QString out = dir.filePath(QStringLiteral("cube.%1").arg(suffix));
        const Outcome run = call([&](AlgoResult* r) { return ExcuteAlgo_BandTransform(in.toUtf8(), out.toUtf8(), r); });
        ASSERT_TRUE(run.ok) << run.message;
        EXPECT_EQ(outputLine(run.printed, "OutputFile"), out.toStdString());
        QFile raw(out);
        ASSERT_TRUE(raw.open(QIODevice::ReadOnly));
        const QByteArray bytes = raw.readAll();
        ASSERT_EQ(bytes.size(), w * h * bands * 2);
        const auto* pixels = reinterpret_cast<const std::int16_t*>(bytes.constData());
        for (int b = 0; b < bands; ++b)
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x)
                {
                    const std::string order = suffix;
                    const int index = order == "bsq"   ? (b * h + y) * w + x
                                      : order == "bil" ? (y * bands + b) * w + x
                                                       : (y * w + x) * bands + b;
                    ASSERT_EQ(pixels[index], value(b, x, y)) << suffix;
                }
        ds = GDALDataset::Open(out.toUtf8().constData());
        ASSERT_TRUE(ds);
        EXPECT_STREQ(ds->GetRasterBand(3)->GetDescription(), "B3");
        EXPECT_EQ(ds->GetRasterBand(1)->GetNoDataValue(), -1.0);
        double gt[6];
        ds->GetGeoTransform(gt);
        EXPECT_EQ(gt[0], 500000.0);
        GDALClose(ds);
    }
}

TEST(BandTransform, OtherFormatsBySuffixAndTheSameFileRefused)
{
    QTemporaryDir dir;
    const QString in = dir.filePath("a.tif");
    ASSERT_TRUE(makeRaster(in, 6, 6, 2, GDT_Float32, [](int b, int x, int y) { return b + x * 0.25 + y; }));
    const QString img = dir.filePath("a.img");
    ASSERT_TRUE(call([&](AlgoResult* r) { return ExcuteAlgo_BandTransform(in.toUtf8(), img.toUtf8(), r); }).ok);
    GDALDataset* ds = GDALDataset::Open(img.toUtf8().constData());
    ASSERT_TRUE(ds);
    EXPECT_STREQ(ds->GetDriver()->GetDescription(), "HFA");
    GDALClose(ds);
    EXPECT_EQ(readBand(img, 2), readBand(in, 2));
    const Outcome same = call([&](AlgoResult* r) { return ExcuteAlgo_BandTransform(in.toUtf8(), in.toUtf8(), r); });
    EXPECT_FALSE(same.ok);
    EXPECT_EQ(same.message,
              ("BandTransform: the parameter OutputFile (" + in + ") names an input file!").toStdString());
}
