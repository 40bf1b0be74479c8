// Class merging on a classification image (values, names, colours) and on a vector layer's class field.
#include "obia_fixtures.h"

#include <ogrsf_frmts.h>

#include <QFile>
#include <QTemporaryDir>

using namespace obiatest;
using namespace testsupport;

TEST(CategoryUnion, MergesRasterClassesAndRebuildsNamesAndColours)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("classes.tif"), out = dir.filePath("merged.tif");
    ASSERT_TRUE(makeRaster(input, 12, 6, 1, GDT_Byte, [](int, int x, int) { return x / 2; }));
    {
        GDALDatasetUniquePtr dataset(GDALDataset::Open(input.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
        GDALColorTable table;
        const char* names[] = {"Unclassified", "Water", "Wetland", "Forest", "Grass", "Crop", nullptr};
        for (short i = 0; i < 6; ++i)
        {
            const GDALColorEntry entry{short(i * 40), short(200 - i * 30), short(i * 10), 255};
            table.SetColorEntry(i, &entry);
        }
        dataset->GetRasterBand(1)->SetColorTable(&table);
        dataset->GetRasterBand(1)->SetCategoryNames(const_cast<char**>(names));
    }
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_CategoryUnion(input.toUtf8().constData(), out.toUtf8().constData(), "", "1,2->1;3,4,5->3", nullptr));
    capture.text();
    const std::vector<double> values = readBand(out, 1);
    const int expected[] = {0, 1, 1, 3, 3, 3};
    for (int x = 0; x < 12; ++x)
        EXPECT_EQ(values[size_t(x)], expected[x / 2]) << x;
    // Values above the largest new class are gone; a value that lost its class keeps a default name.
    const std::vector<std::string> names = categoryNames(out);
    EXPECT_EQ(names, (std::vector<std::string>{"Unclassified", "Water + Wetland", "Class_3", "Forest + Grass + Crop"}));
    GDALDatasetUniquePtr merged(GDALDataset::Open(out.toUtf8().constData(), GDAL_OF_RASTER));
    // A merged class keeps the colour its own value had.
    const GDALColorEntry* forest = merged->GetRasterBand(1)->GetColorTable()->GetColorEntry(3);
    EXPECT_EQ(forest->c1, 120);
    EXPECT_EQ(forest->c2, 110);
}

TEST(CategoryUnion, MergesTheClassFieldOfAVectorLayer)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("parcels.geojson"), out = dir.filePath("merged.gpkg");
    QFile file(input);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(R"({"type":"FeatureCollection","features":[
        {"type":"Feature","properties":{"id":1,"cls":1},"geometry":{"type":"Point","coordinates":[0,0]}},
        {"type":"Feature","properties":{"id":2,"cls":2},"geometry":{"type":"Point","coordinates":[1,0]}},
        {"type":"Feature","properties":{"id":3,"cls":7},"geometry":{"type":"Point","coordinates":[2,0]}}]})");
    file.close();
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_CategoryUnion(input.toUtf8().constData(), out.toUtf8().constData(), "cls", "1,2->5", nullptr)) << capture.text();
    GDALDatasetUniquePtr merged(GDALDataset::Open(out.toUtf8().constData(), GDAL_OF_VECTOR));
    ASSERT_NE(merged, nullptr);
    std::vector<long long> classes;
    for (auto& feature : *merged->GetLayer(0))
        classes.push_back(feature->GetFieldAsInteger64("cls"));
    EXPECT_EQ(classes, (std::vector<long long>{5, 5, 7}));
}

TEST(CategoryUnion, RefusesABadRuleAndAMissingField)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("classes.tif"), out = dir.filePath("merged.tif");
    ASSERT_TRUE(makeRaster(input, 4, 4, 1, GDT_Byte, [](int, int x, int) { return x; }));
    const QString vector = dir.filePath("v.geojson");
    QFile file(vector);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(R"({"type":"FeatureCollection","features":[{"type":"Feature","properties":{"id":1},"geometry":{"type":"Point","coordinates":[0,0]}}]})");
    file.close();
    const struct
    {
        QString input;
        const char* field;
        const char* rule;
        std::string message;
    } rows[] = {
        {input, "", "1,2=>1", "CategoryUnion: the parameter UnionRule (1,2=>1) has a group without one \"->\": 1,2=>1!"},
        {input, "", "", "CategoryUnion: the parameter UnionRule () is empty!"},
        {vector, "cls", "1->2", "CategoryUnion: the parameter ClassField (cls) is not a field of InputFile!"},
    };
    for (const auto& row : rows)
    {
        RecordingResult result;
        StdoutCapture capture;
        EXPECT_FALSE(ExcuteAlgo_CategoryUnion(row.input.toUtf8().constData(), out.toUtf8().constData(), row.field, row.rule, &result.record));
        capture.text();
        EXPECT_EQ(std::string(result.record.message), row.message);
        EXPECT_FALSE(QFile::exists(out));
    }
}
