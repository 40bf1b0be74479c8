// Class statistics report byte for byte, and the confusion-matrix export against hand-computed matrices.
#include "class_fixtures.h"
#include "class_statistics_report.h"

#include <ogrsf_frmts.h>

#include <QFile>
#include <QTemporaryDir>
#include <QTextCodec>

#include <algorithm>

using namespace classtest;

namespace
{

std::string pad(const std::string& text, size_t width)
{
    return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

const std::string kTitle = pad("分类统计报告", 20) + "\r\n\r\n";
const std::string kHeader = pad("类别", 18) + pad("分类点数", 16) + pad("百分比(%)", 17) + pad("面积", 18) + "\r\n\r\n";

std::string numberedLine(int number, const char* count, const char* percent, const char* area)
{
    return "class_" + pad(std::to_string(number), 20) + pad(count, 20) + pad(percent, 20) + pad(area, 20) + "\r\n";
}

std::string totalLine(const char* count, const char* percent, const char* area)
{
    return pad("总计", 18) + pad(count, 20) + pad(percent, 20) + pad(area, 20);
}

// 25 pixels of class 0 on the first rows and 75 of class 1, 10 x 10.
int quarterSplit(int x, int y)
{
    return y * 10 + x < 25 ? 0 : 1;
}

} // namespace

TEST(ClassStatisticsReport, TenByTenExampleByteForByte)
{
    QTemporaryDir dir;
    const QString image = dir.filePath("classes.img");
    ASSERT_TRUE(makeClassImage(image, 10, 10, 2, quarterSplit));
    // 30 m pixels: 90000 m2 in all.
    const std::string expected = kTitle + kHeader + numberedLine(1, "25", "25.00", "22500.00") +
                                 numberedLine(2, "75", "75.00", "67500.00") + totalLine("100", "100.00", "90000.00");
    for (const char* name : {"report.txt", "REPORT.TXT"})
    {
        const Outcome outcome = capture([&] {
            return ExcuteAlgo_ImgClassPostSta(image.toUtf8().constData(), dir.filePath(name).toUtf8().constData(), nullptr);
        });
        EXPECT_TRUE(outcome.ok);
        EXPECT_EQ(outcome.out, "Save Finish!");
        EXPECT_EQ(readText(dir.filePath(name)), expected) << name;
    }
    const Outcome other = capture([&] {
        return ExcuteAlgo_ImgClassPostSta(image.toUtf8().constData(), dir.filePath("report.img").toUtf8().constData(), nullptr);
    });
    EXPECT_TRUE(other.ok);
    EXPECT_EQ(readText(dir.filePath("report.img.txt")), expected);
    const Outcome empty = capture([&] { return ExcuteAlgo_ImgClassPostSta(image.toUtf8().constData(), "", nullptr); });
    EXPECT_FALSE(empty.ok);
    EXPECT_EQ(empty.out, "Input file is empty!");
}

TEST(ClassStatisticsReport, WideNamesNarrowTheirColumn)
{
    QTextCodec* saved = QTextCodec::codecForLocale();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    std::string report = "old text";
    algofactory::WriteClassStatisticsReport(report, {3, 1}, 2, {0.75, 0.25}, {7.5, 2.5}, {"水体", "Forest"});
    QTextCodec::setCodecForLocale(saved);
    // "水体": 6 bytes, 2 characters -> width 20 - (6 - 2) / 2 = 18 bytes; "Forest" keeps 20.
    const std::string expected = kTitle + kHeader + pad("水体", 18) + pad("3", 20) + pad("75.00", 20) + pad("7.50", 20) +
                                 "\r\n" + pad("Forest", 20) + pad("1", 20) + pad("25.00", 20) + pad("2.50", 20) + "\r\n" +
                                 totalLine("4", "100.00", "10.00");
    EXPECT_EQ(report, expected);
}

TEST(ClassStatisticsReport, DegreesAndValuesBeyondTheTable)
{
    QTemporaryDir dir;
    // 0.0001 degree pixels count as 11.1 m: 100 pixels cover 12321 m2.
    const QString geographic = dir.filePath("geographic.img");
    ASSERT_TRUE(makeClassImage(geographic, 10, 10, 2, quarterSplit, {}, 0.0001));
    capture([&] {
        return ExcuteAlgo_ImgClassPostSta(geographic.toUtf8().constData(), dir.filePath("g").toUtf8().constData(), nullptr);
    });
    EXPECT_EQ(readText(dir.filePath("g.txt")), kTitle + kHeader + numberedLine(1, "25", "25.00", "3080.25") +
                                                 numberedLine(2, "75", "75.00", "9240.75") +
                                                 totalLine("100", "100.00", "12321.00"));

    // Values 2 and 7 lie beyond a two-entry table and are not counted; a one-entry table has one line.
    const QString beyond = dir.filePath("beyond.img");
    ASSERT_TRUE(makeClassImage(beyond, 10, 10, 2, [](int x, int) { return x < 5 ? 1 : (x < 8 ? 2 : 7); }));
    capture([&] {
        return ExcuteAlgo_ImgClassPostSta(beyond.toUtf8().constData(), dir.filePath("b.txt").toUtf8().constData(), nullptr);
    });
    EXPECT_EQ(readText(dir.filePath("b.txt")), kTitle + kHeader + numberedLine(1, "0", "0.00", "0.00") +
                                                 numberedLine(2, "50", "50.00", "45000.00") +
                                                 totalLine("50", "50.00", "45000.00"));
    const QString single = dir.filePath("single.img");
    ASSERT_TRUE(makeClassImage(single, 10, 10, 1, [](int, int) { return 0; }));
    capture([&] {
        return ExcuteAlgo_ImgClassPostSta(single.toUtf8().constData(), dir.filePath("s.txt").toUtf8().constData(), nullptr);
    });
    EXPECT_EQ(readText(dir.filePath("s.txt")),
              kTitle + kHeader + numberedLine(1, "100", "100.00", "90000.00") + totalLine("100", "100.00", "90000.00"));
}

TEST(ConfusionMatrix, RasterReferenceAgainstHandComputedMatrix)
{
    QTemporaryDir dir;
    const int classes[16] = {0, 0, 1, 1, 0, 0, 1, 1, 2, 2, 2, 1, 2, 2, 0, 0};
    const int reference[16] = {0, 0, 1, 1, 0, 1, 1, 1, 2, 2, 2, 2, 2, 0, 0, 0};
    const QString classFile = dir.filePath("classes.img");
    const QString referenceFile = dir.filePath("reference.img");
    ASSERT_TRUE(makeClassImage(classFile, 4, 4, 3, [&](int x, int y) { return classes[y * 4 + x]; }));
    ASSERT_TRUE(makeClassImage(referenceFile, 4, 4, 3, [&](int x, int y) { return reference[y * 4 + x]; }, {"a", "b", "c"}));
    const Outcome outcome = capture([&] {
        return ExcuteAlgo_ImgClassPostPA(classFile.toUtf8().constData(), referenceFile.toUtf8().constData(), "NULL", "",
                                         "1|1,2|2,3|3", dir.filePath("matrix").toUtf8().constData(), nullptr);
    });
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.out, "Save Finish!\n");
    // Rows: classification, columns: reference. 13 of 16 agree; chance (6*6 + 5*5 + 5*5) / 256.
    EXPECT_EQ(readText(dir.filePath("matrix.txt")), "Class\ta\tb\tc\tTotal\tUser's Accuracy(%)\t\n"
                                                    "Class_1\t5\t1\t0\t6\t83.33\t\n"
                                                    "Class_2\t0\t4\t1\t5\t80.00\t\n"
                                                    "Class_3\t1\t0\t4\t5\t80.00\t\n"
                                                    "Total\t6\t5\t5\t16\t\n"
                                                    "Producer's Accuracy(%)\t83.33\t80.00\t80.00\t\n"
                                                    "Overall Accuracy(%)\t81.25\t\n"
                                                    "Kappa\t0.7176\t\n");

    // A reference of another size is refused by the host algorithm, through the result record.
    const QString small = dir.filePath("small.img");
    ASSERT_TRUE(makeClassImage(small, 3, 3, 3, [](int, int) { return 0; }));
    testsupport::RecordingResult result;
    const Outcome refused = capture([&] {
        return ExcuteAlgo_ImgClassPostPA(classFile.toUtf8().constData(), small.toUtf8().constData(), "NULL", "", "",
                                         dir.filePath("refused.txt").toUtf8().constData(), &result.record);
    });
    EXPECT_FALSE(refused.ok);
    EXPECT_EQ(refused.out, "");
    EXPECT_NE(result.record.code, 0);
    EXPECT_NE(std::string(result.record.message).find("3 x 3"), std::string::npos) << result.record.message;
    EXPECT_EQ(readText(dir.filePath("refused.txt")), "<missing>");
}

TEST(ConfusionMatrix, VectorReferenceField)
{
    QTemporaryDir dir;
    const QString classFile = dir.filePath("classes.img");
    ASSERT_TRUE(makeClassImage(classFile, 4, 2, 2, [](int x, int) { return x < 2 ? 0 : 1; }));
    // Same grid as the raster (UTM 50N, 30 m from 500000, 4000000): "water" over columns 0-1, "forest" over
    // column 2, nothing over column 3 (unclassified, left out of the matrix).
    const QString shapes = dir.filePath("reference.shp");
    {
        GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("ESRI Shapefile");
        GDALDataset* vector = driver->Create(shapes.toUtf8().constData(), 0, 0, 0, GDT_Unknown, nullptr);
        ASSERT_NE(vector, nullptr);
        OGRSpatialReference srs;
        srs.importFromEPSG(32650);
        OGRLayer* layer = vector->CreateLayer("reference", &srs, wkbPolygon, nullptr);
        OGRFieldDefn field("cls", OFTString);
        layer->CreateField(&field);
        const std::pair<const char*, const char*> features[] = {
            {"water", "POLYGON((500000 4000000,500060 4000000,500060 3999940,500000 3999940,500000 4000000))"},
            {"forest", "POLYGON((500060 4000000,500090 4000000,500090 3999940,500060 3999940,500060 4000000))"},
            {"water", "POLYGON((500000 4000000,500001 4000000,500001 3999999,500000 4000000))"}};
        for (const auto& item : features)
        {
            OGRFeature feature(layer->GetLayerDefn());
            feature.SetField("cls", item.first);
            OGRGeometry* geometry = nullptr;
            OGRGeometryFactory::createFromWkt(item.second, nullptr, &geometry);
            feature.SetGeometryDirectly(geometry);
            ASSERT_EQ(layer->CreateFeature(&feature), OGRERR_NONE);
        }
        GDALClose(GDALDataset::ToHandle(vector));
    }
    const Outcome outcome = capture([&] {
        return ExcuteAlgo_ImgClassPostPA(classFile.toUtf8().constData(), "", shapes.toUtf8().constData(), "cls", "1|2,2|3",
                                         dir.filePath("matrix.txt").toUtf8().constData(), nullptr);
    });
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(readText(dir.filePath("matrix.txt")), "Class\twater\tforest\tTotal\tUser's Accuracy(%)\t\n"
                                                    "Class_1\t4\t0\t4\t100.00\t\n"
                                                    "Class_2\t0\t2\t2\t100.00\t\n"
                                                    "Total\t4\t2\t6\t\n"
                                                    "Producer's Accuracy(%)\t100.00\t100.00\t\n"
                                                    "Overall Accuracy(%)\t100.00\t\n"
                                                    "Kappa\t1.0000\t\n");
}

TEST(ClassStatisticsReport, RealPalettedLandCover)
{
    SKIP_WITHOUT_SHARED_DATA("gdal/lc.tif");
    QTemporaryDir dir;
    // Copy with its side-car so the category names come along.
    for (const char* name : {"lc.tif", "lc.tif.aux.xml"})
        QFile::copy(testsupport::sharedDataPath(QStringLiteral("gdal/") + name), dir.filePath(name));
    const Outcome outcome = capture([&] {
        return ExcuteAlgo_ImgClassPostSta(dir.filePath("lc.tif").toUtf8().constData(),
                                          dir.filePath("lc_report").toUtf8().constData(), nullptr);
    });
    EXPECT_TRUE(outcome.ok);
    const std::string report = readText(dir.filePath("lc_report.txt"));
    // 256 colour entries give 256 class lines; every one of the 84 x 46 pixels is counted once.
    EXPECT_EQ(std::count(report.begin(), report.end(), '\n'), 2 + 2 + 256);
    const std::string total = report.substr(report.rfind('\n') + 1);
    EXPECT_EQ(total.substr(0, pad("总计", 18).size() + 4), pad("总计", 18) + "3864");
    EXPECT_NE(total.find("100.00"), std::string::npos);
}
