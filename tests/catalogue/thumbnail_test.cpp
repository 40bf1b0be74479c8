// Thumbnails: the size rules, the folder and output lines, the rendering's stretch and transparency.
#include "catalogue/thumbnail_size.h"
#include "sys_display.h"
#include "test_support.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QRegularExpression>
#include <cmath>

using namespace testsupport;

namespace
{

std::string thumbJson(const QStringList& paths, int edge, bool keepRatio)
{
    QString list;
    for (const QString& path : paths)
        list += (list.isEmpty() ? "\"" : ",\"") + path + "\"";
    return QStringLiteral("{\"imagePaths\":[%1],\"maxHeight\":%2,\"keepRatio\":%3}")
        .arg(list)
        .arg(edge)
        .arg(keepRatio ? "true" : "false")
        .toStdString();
}

} // namespace

TEST(ThumbnailSize, HalvesOnlyLargeImages)
{
    struct Row
    {
        int w, h, renderW, renderH;
    } rows[] = {
        {4000, 3000, 2000, 1500}, {2000, 2000, 2000, 2000}, {2001, 100, 1001, 50},
        {2000, 2001, 1000, 1001}, {1999, 1000, 1999, 1000}, {10, 5, 10, 5},
    };
    for (const Row& row : rows)
        EXPECT_EQ(algofactory::thumbRenderSize(row.w, row.h), QSize(row.renderW, row.renderH)) << row.w << "x" << row.h;
}

TEST(ThumbnailSize, ReadsNoMoreThanTwiceTheThumbnail)
{
    const QSize rendered(2000, 1500);
    const QSize final = algofactory::thumbFinalSize(rendered, 256, true);
    EXPECT_EQ(final, QSize(256, 192));
    EXPECT_EQ(algofactory::thumbReadSize(rendered, final), QSize(512, 384));
    EXPECT_EQ(algofactory::thumbFinalSize(QSize(400, 200), 64, false), QSize(64, 64));
    // A small image is read whole, never enlarged.
    EXPECT_EQ(algofactory::thumbReadSize(QSize(100, 50), QSize(256, 128)), QSize(100, 50));
}

TEST(SysDisplay, StretchesBetweenPercentilesAndHidesNoData)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("ramp.tif");
    // Band 1 rises with x, band 2 falls; band 3 rises. 100 rows of 0..99: the 2nd percentile is 2, the 98th 97.
    // 255 is no-data; band 2 has it at (5, 5).
    ASSERT_TRUE(makeGeoTiff(path, 100, 100, 3, GDT_Byte,
                            [](int b, int x, int y) { return b == 1 ? (x == 5 && y == 5 ? 255 : 99 - x) : x; }, {},
                            255));
    auto dataset = SysDataSource::DatasetFactory::Instance()->OpenRaster(path);
    ASSERT_TRUE(dataset);
    const QImage image = SysDisplay::RenderRaster(dataset.get(), 100, 100);
    ASSERT_EQ(image.size(), QSize(100, 100));
    auto expected = [](double v) { return int(std::lround(std::min(255.0, std::max(0.0, (v - 2.0) * 255.0 / 95.0)))); };
    for (int x : {1, 2, 50, 97, 99})
    {
        const QRgb pixel = image.pixel(x, 40);
        EXPECT_EQ(qRed(pixel), expected(x)) << x;
        EXPECT_EQ(qGreen(pixel), expected(99 - x)) << x;
        EXPECT_EQ(qBlue(pixel), expected(x)) << x;
        EXPECT_EQ(qAlpha(pixel), 255);
    }
    EXPECT_EQ(qAlpha(image.pixel(5, 5)), 0) << "no-data in one band hides the pixel";
}

TEST(CreateThumb, WritesPngAndJpegInATimeStampedFolder)
{
    QTemporaryDir dir;
    const QString wide = dir.filePath("wide.tif");
    ASSERT_TRUE(makeRaster(wide, 400, 200, 1, GDT_UInt16, [](int, int x, int y) { return x * 3 + y; }));
    const QDateTime before = QDateTime::currentDateTime();
    StdoutCapture capture;
    const bool ok = ExcuteAlgo_CreateThumb(thumbJson({wide}, 64, true).c_str());
    const std::vector<std::string> out = lines(capture.text());
    const QDateTime after = QDateTime::currentDateTime();
    ASSERT_TRUE(ok);
    ASSERT_EQ(out.size(), 2u);

    const QRegularExpression line("^\\[OUTPUT\\] thumbImage=\"(.*)/(\\d{17})/wide\\.png\"$");
    const QRegularExpressionMatch match = line.match(QString::fromStdString(out[0]));
    ASSERT_TRUE(match.hasMatch()) << out[0];
    EXPECT_EQ(match.captured(1), QFileInfo(wide).absolutePath());
    const QDateTime stamp = QDateTime::fromString(match.captured(2), "yyyyMMddhhmmsszzz");
    EXPECT_TRUE(stamp >= before.addMSecs(-1) && stamp <= after) << match.captured(2).toStdString();
    const QString folder = match.captured(1) + "/" + match.captured(2) + "/";
    EXPECT_EQ(out[1], "[OUTPUT] thumbjpgImage=\"" + (folder + "wide.jpg").toStdString() + "\"");
    EXPECT_EQ(QImage(folder + "wide.png").size(), QSize(64, 32));
    EXPECT_FALSE(QImage(folder + "wide.png").hasAlphaChannel()) << "nothing is transparent in a raster without no-data";
    EXPECT_EQ(QImage(folder + "wide.jpg").size(), QSize(64, 32));

    StdoutCapture square;
    ASSERT_TRUE(ExcuteAlgo_CreateThumb(thumbJson({wide}, 48, false).c_str()));
    const QString png = QString::fromStdString(lines(square.text()).at(0)).section('"', 1, 1);
    EXPECT_EQ(QImage(png).size(), QSize(48, 48)) << "keepRatio false stretches a 2:1 image to the square box";
}

TEST(CreateThumb, FolderEntriesExpandAndUnreadableFilesAreSkipped)
{
    QTemporaryDir dir;
    QDir(dir.path()).mkdir("scenes");
    const QString scenes = dir.filePath("scenes");
    for (const char* name : {"a.tif", "b.tif", "c.tif"})
        ASSERT_TRUE(makeRaster(scenes + "/" + name, 30, 20, 3, GDT_Byte, [](int b, int x, int y) { return b * 40 + x + y; }));
    QFile notes(scenes + "/notes.txt");
    ASSERT_TRUE(notes.open(QIODevice::WriteOnly));
    notes.write("not a raster");
    notes.close();

    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_CreateThumb(thumbJson({scenes, dir.filePath("missing.tif")}, 16, true).c_str()));
    const std::vector<std::string> out = lines(capture.text());
    ASSERT_EQ(out.size(), 6u);
    QStringList names;
    for (size_t i = 0; i < out.size(); i += 2)
    {
        // Each raster's two lines stay together even though the rasters are rendered concurrently.
        const QString png = QString::fromStdString(out[i]).section('"', 1, 1);
        const QString jpg = QString::fromStdString(out[i + 1]).section('"', 1, 1);
        EXPECT_EQ(QFileInfo(png).completeBaseName(), QFileInfo(jpg).completeBaseName());
        EXPECT_TRUE(QFileInfo::exists(png) && QFileInfo::exists(jpg));
        names << QFileInfo(png).completeBaseName();
    }
    names.sort();
    EXPECT_EQ(names, QStringList({"a", "b", "c"}));
}

TEST(CreateThumb, NothingToDoIsFalse)
{
    for (const char* json : {"{\"maxHeight\":64,\"keepRatio\":true}", "{\"imagePaths\":[]}", "not json"})
    {
        StdoutCapture capture;
        EXPECT_FALSE(ExcuteAlgo_CreateThumb(json)) << json;
        EXPECT_EQ(capture.text(), "") << json;
    }
}

TEST(CreateThumb, SampleSceneHasTransparentCollar)
{
    SKIP_WITHOUT_SHARED_DATA("gdal/RGB.byte.tif");
    QTemporaryDir dir;
    const QString scene = dir.filePath("RGB.byte.tif");
    ASSERT_TRUE(QFile::copy(sharedDataPath("gdal/RGB.byte.tif"), scene));
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_CreateThumb(thumbJson({scene}, 256, true).c_str()));
    const QString png = QString::fromStdString(lines(capture.text()).at(0)).section('"', 1, 1);
    const QImage image(png);
    // 791 x 718 into 256: the height is 718 * 256 / 791 in integers.
    EXPECT_EQ(image.size(), QSize(256, 718 * 256 / 791));
    EXPECT_TRUE(image.hasAlphaChannel());
    EXPECT_EQ(qAlpha(image.pixel(0, 0)), 0) << "the scene's no-data corner";
    EXPECT_EQ(qAlpha(image.pixel(128, 116)), 255);
}
