// Classification entries: every check in order with its exact words, the text rules, the ROI reader.
#include "class_fixtures.h"
#include "classification_text.h"
#include "roi_reader.h"

#include <QTemporaryDir>

using namespace classtest;

namespace
{

const char* const kIn = "/nonexistent/scene.tif";
const char* const kOut = "/nonexistent/classes.tif";

struct MessageRow
{
    const char* what;
    std::function<bool()> call;
    std::string expected; // exact standard output
};

void checkRows(const std::vector<MessageRow>& rows)
{
    for (const MessageRow& row : rows)
    {
        const Outcome outcome = capture(row.call);
        EXPECT_FALSE(outcome.ok) << row.what; // checks refuse, accepted rows fail on the missing input
        EXPECT_EQ(outcome.out, row.expected) << row.what;
    }
}

bool iso(const char* in, const char* out, const char* bands, int expected, int initial, int minSize, double sd,
         double distance, int pairs, int iterations)
{
    return ExcuteAlgo_ISODataClassification(in, out, bands, expected, initial, minSize, sd, distance, pairs, iterations,
                                            nullptr);
}

} // namespace

TEST(UnsupervisedEntries, IsodataChecksInOrder)
{
    const std::string started = pluginStart("ISODataClassification");
    checkRows({
        {"null input", [] { return iso(nullptr, nullptr, "0", 1, 1, 0, 0, 0, 0, 0); }, "ISODataClassificationDlg"},
        {"null output", [] { return iso(kIn, nullptr, "0", 1, 1, 0, 0, 0, 0, 0); }, "Please select the correct output file!"},
        {"same path in another case", [] { return iso("/data/A.TIF", "/data/a.tif", "0", 5, 5, 1, 1, 1, 1, 1); },
         "Input file matching output file!"},
        {"expected 1", [] { return iso(kIn, kOut, "0", 1, 5, 1, 1, 1, 1, 1); },
         "The expected number should be a positive integer from 1 to 255!"},
        {"expected 256", [] { return iso(kIn, kOut, "0", 256, 5, 1, 1, 1, 1, 1); },
         "The expected number should be a positive integer from 1 to 255!"},
        {"initial 1", [] { return iso(kIn, kOut, "0", 2, 1, 1, 1, 1, 1, 1); },
         "The initial number should be a positive integer from 1 to 255!"},
        {"minimal size 0", [] { return iso(kIn, kOut, "0", 2, 255, 0, 1, 1, 1, 1); },
         "Minimal number should be a positive integer!"},
        {"deviation 0", [] { return iso(kIn, kOut, "0", 2, 2, 1, 0, 1, 1, 1); },
         "The maximum standard deviation should be positive!"},
        {"deviation in exponent form", [] { return iso(kIn, kOut, "0", 2, 2, 1, 0.00001, 1, 1, 1); },
         "The maximum standard deviation should be positive!"},
        {"deviation of a million", [] { return iso(kIn, kOut, "0", 2, 2, 1, 1e6, 1, 1, 1); },
         "The maximum standard deviation should be positive!"},
        {"distance negative", [] { return iso(kIn, kOut, "0", 2, 2, 1, 0.0001, -3, 1, 1); },
         "The minimum class center distance should be positive!"},
        {"merge pairs 0", [] { return iso(kIn, kOut, "0", 2, 2, 1, 1, 999999, 0, 1); },
         "The maximum number of merged logarithms should be a positive integer!"},
        {"iterations 0", [] { return iso(kIn, kOut, "0", 2, 2, 1, 1, 1, 1, 0); },
         "The maximum number of iterations should be a positive integer!"},
        {"bounds accepted", [] { return iso(kIn, kOut, "0|1", 255, 2, 1, 0.0001, 0.0001, 1, 1); }, started},
        {"empty band text accepted", [] { return iso(kIn, kOut, "", 2, 2, 1, 1, 1, 1, 1); }, started},
    });
}

TEST(UnsupervisedEntries, KmeansAndNetworkChecks)
{
    auto kmeans = [](const char* in, const char* out, int classes, double threshold) {
        return [=] { return ExcuteAlgo_KmeansClassification(in, out, "0|1", classes, 7, threshold, nullptr); };
    };
    auto network = [](const char* in, const char* out, const char* bands, int classes) {
        return [=] { return ExcuteAlgo_NeuralNetworkCluster(in, out, bands, 0, classes, 0.5f, 2.f, 5, nullptr); };
    };
    const std::string invalid =
        "The input termination threshold is invalid. Please enter a valid value greater than 0 for less than 1!";
    checkRows({
        {"k-means null input", kmeans(nullptr, kOut, 5, 0.5), "ISODataClassificationDlg"},
        {"k-means null output", kmeans(kIn, nullptr, 5, 0.5), "Please select the correct output file!"},
        {"k-means same path", kmeans(kIn, "/NONEXISTENT/scene.tif", 5, 0.5), "Input file matching output file!"},
        {"k-means one class", kmeans(kIn, kOut, 1, 0.5), "The expected number should be a positive integer from 1 to 255!"},
        {"threshold in exponent form", kmeans(kIn, kOut, 5, 0.00001), "Please enter a termination threshold!"},
        {"threshold negative", kmeans(kIn, kOut, 5, -0.5), "Please enter a termination threshold!"},
        {"threshold 0", kmeans(kIn, kOut, 5, 0.0), invalid},
        {"threshold 1.5", kmeans(kIn, kOut, 5, 1.5), invalid},
        {"threshold 1", kmeans(kIn, kOut, 5, 1.0), pluginStart("KmeansClassification")},
        {"network null input", network(nullptr, kOut, "0|1", 3), "ISODataClassificationDlg"},
        {"network no class", network(kIn, kOut, "0|1", 0), "The number of Class can not be Zero!"},
        {"network one band", network(kIn, kOut, "3", 3), "The number of input bands can not be less than 2!"},
        {"network accepted", network(kIn, kOut, "3|4", 1), pluginStart("NeuralNetworkCluster")},
    });
}

TEST(PostClassificationEntries, ChecksInOrder)
{
    QTemporaryDir dir;
    const QString plain = dir.filePath("plain.img");
    const QString empty = dir.filePath("empty_table.img");
    const QString text = dir.filePath("not_a_raster.tif");
    ASSERT_TRUE(classtest::makeClassImage(plain, 4, 4, -1, [](int, int) { return 0; }));
    ASSERT_TRUE(classtest::makeClassImage(empty, 4, 4, 0, [](int, int) { return 0; }));
    writeText(text, "text");
    const QByteArray plainPath = plain.toUtf8(), textPath = text.toUtf8(), emptyPath = empty.toUtf8();
    const std::string out = dir.filePath("out.tif").toStdString();
    auto clump = [&](const char* in, const char* o) { return [=] { return ExcuteAlgo_ImgClassPostClump(in, o, 3, nullptr); }; };
    checkRows({
        {"clump empty input", clump("", out.c_str()), "Please correctly select input file!"},
        {"clump empty output", clump(plainPath.constData(), ""), "Select correct output file!"},
        {"clump not a raster", clump(textPath.constData(), out.c_str()), "Unsupported Raster format!"},
        {"clump without colour table", clump(plainPath.constData(), out.c_str()), "Select at least one class!"},
        {"clump with an empty colour table", clump(emptyPath.constData(), out.c_str()), "Select at least one class!"},
        {"sieve empty output", [&] { return ExcuteAlgo_ImgClassPostSieve(plainPath.constData(), nullptr, 2, 8, nullptr); },
         "Select correct output file!"},
        {"majority not a raster",
         [&] { return ExcuteAlgo_ImgClassPostMMA(textPath.constData(), out.c_str(), 3, 1, 0, nullptr); },
         "Unsupported Raster format!"},
        {"combination not a raster",
         [&] { return ExcuteAlgo_ImgClassPostComb(textPath.constData(), out.c_str(), "1|2", nullptr); },
         "Unsupported Raster format!"},
        {"combination without colour table",
         [&] { return ExcuteAlgo_ImgClassPostComb(plainPath.constData(), out.c_str(), "1|2", nullptr); },
         "The file is not a classification file, please reselect!"},
        {"statistics not a raster", [&] { return ExcuteAlgo_ImgClassPostSta(textPath.constData(), out.c_str(), nullptr); },
         "Unsupported Raster format!"},
        {"statistics without colour table",
         [&] { return ExcuteAlgo_ImgClassPostSta(plainPath.constData(), out.c_str(), nullptr); },
         "The file is not a classification file, please reselect!"},
        {"accuracy not a raster",
         [&] { return ExcuteAlgo_ImgClassPostPA(textPath.constData(), "", "NULL", "", "", out.c_str(), nullptr); },
         "Please correctly select input file!"},
        {"accuracy reference not a raster",
         [&] { return ExcuteAlgo_ImgClassPostPA(plainPath.constData(), textPath.constData(), "NULL", "", "", out.c_str(), nullptr); },
         "Unsupported Raster format!"},
        {"accuracy reference vector missing",
         [&] { return ExcuteAlgo_ImgClassPostPA(plainPath.constData(), "", "/nonexistent/ref.shp", "cls", "", out.c_str(), nullptr); },
         "Unsupported Raster format!"},
    });
}

TEST(SupervisedEntries, UnreadableInputReturnsFalseSilently)
{
    const Outcome distance = capture([] { return ExcuteAlgo_DistanceClassification(kIn, kOut, "/x.xml", "0", 0, nullptr); });
    const Outcome likelihood = capture([] { return ExcuteAlgo_MLClassification(nullptr, kOut, "/x.xml", "0", nullptr); });
    EXPECT_FALSE(distance.ok);
    EXPECT_FALSE(likelihood.ok);
    EXPECT_EQ(distance.out + likelihood.out, "");
}

TEST(ClassificationText, BandsPairsAndNumbers)
{
    using namespace algofactory;
    EXPECT_EQ(splitBandText("0|1|2", 0), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(splitBandText("0|1|2", 1), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(splitBandText("", 0), (std::vector<int>{0}));
    EXPECT_EQ(splitBandText("", 1), (std::vector<int>{1}));
    EXPECT_EQ(splitBandText("4||x|07", 0), (std::vector<int>{4, 0, 0, 7}));
    EXPECT_EQ(splitPairText("1|2,3|2", 0), (std::vector<std::pair<int, int>>{{1, 2}, {3, 2}}));
    EXPECT_EQ(splitPairText("1|1, 2|3,", -1), (std::vector<std::pair<int, int>>{{0, 0}, {1, 2}}));
    EXPECT_EQ(doubleText(0.0001).toStdString(), "0.0001");
    EXPECT_EQ(doubleText(0.00001).toStdString(), "1e-05");
    EXPECT_EQ(doubleText(999999).toStdString(), "999999");
    EXPECT_EQ(doubleText(1e6).toStdString(), "1e+06");
    for (const char* good : {"1", "0.5", ".5", "5.", "0010"})
        EXPECT_TRUE(IsPlainDecimalText(QString::fromLatin1(good))) << good;
    for (const char* bad : {"", ".", "1.2.3", "-1", "+1", "1e-05", "nan", "inf", " 1"})
        EXPECT_FALSE(IsPlainDecimalText(QString::fromLatin1(bad))) << bad;
    EXPECT_EQ(classNamesOrDefault({}, 3), (QStringList{"Class_1", "Class_2", "Class_3"}));
    EXPECT_EQ(classNamesOrDefault({"a"}, 3), QStringList{"a"});
}

TEST(RoiReader, ItemsAreasAndRefusals)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("roi.xml");
    writeText(path, R"(<?xml version="1.0" encoding="UTF-8"?>
<ROI>
  <AREA><name>water</name><color>0, 0,255</color>
    <item><ID>1</ID><type>type_Ploygon</type><points>0,0,4,0,4,2</points></item>
    <item><ID>2</ID><type>type_Rect</type><points>10,10,12,10,12,12,10,12</points></item>
    <item><ID>3</ID><type>type_Ploygon</type><points>1,2,3</points></item>
    <item><ID>4</ID><type>type_Ploygon</type><points></points></item>
    <item><ID>5</ID><type>type_Circle</type><points>1,1,2,2</points></item>
  </AREA>
  <AREA><name>forest</name><color>0,128,0</color>
    <item><ID>1</ID><type>type_Ellipse</type><points>2,4,10,8</points></item>
  </AREA>
  <AREA><name>empty</name><color>9,9,9</color></AREA>
</ROI>)");
    std::vector<RoiArea> areas;
    algofactory::ReadRoiAreas(path, areas);
    ASSERT_EQ(areas.size(), 3u);
    EXPECT_EQ(areas[0].name, "water");
    EXPECT_EQ(areas[0].color, QColor(0, 0, 255, 255));
    ASSERT_EQ(areas[0].geometries.size(), 2u); // odd, empty and unknown items add nothing
    EXPECT_EQ(areas[0].geometries[0].Ring().size(), 3u);
    EXPECT_DOUBLE_EQ(areas[0].geometries[0].Ring()[1].x, 4.0);
    EXPECT_DOUBLE_EQ(areas[0].geometries[1].Ring()[2].y, 12.0);
    // The ellipse fills the rectangle spanned by its two points: centre (6, 6), radii 4 and 2.
    ASSERT_EQ(areas[1].geometries.size(), 1u);
    const SysGeometry::Envelope ellipse = areas[1].geometries[0].GetEnvelope();
    EXPECT_NEAR(ellipse.GetXMin(), 2.0, 1e-9);
    EXPECT_NEAR(ellipse.GetXMax(), 10.0, 1e-9);
    EXPECT_NEAR(ellipse.GetYMin(), 4.0, 0.01);
    EXPECT_NEAR(ellipse.GetYMax(), 8.0, 0.01);
    for (const SysGeometry::Point& p : areas[1].geometries[0].Ring())
        EXPECT_NEAR(std::pow((p.x - 6) / 4, 2) + std::pow((p.y - 6) / 2, 2), 1.0, 1e-9);
    EXPECT_TRUE(areas[2].geometries.empty());

    // A list that already holds areas is left alone.
    std::vector<RoiArea> filled(1);
    algofactory::ReadRoiAreas(path, filled);
    EXPECT_EQ(filled.size(), 1u);

    for (const std::string& bad : {std::string("not xml at all"), std::string("<AREAS><AREA><name>a</name></AREA></AREAS>"),
                                   std::string("<ROI><AREA><name>a</name>")})
    {
        writeText(path, bad);
        std::vector<RoiArea> none;
        algofactory::ReadRoiAreas(path, none);
        EXPECT_TRUE(none.empty()) << bad;
    }
    std::vector<RoiArea> missing;
    algofactory::ReadRoiAreas(dir.filePath("missing.xml"), missing);
    EXPECT_TRUE(missing.empty());
}
