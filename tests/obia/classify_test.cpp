// Segment classification on parcels of three separable classes: samples against direct feature computations,
// every classifier reaches full cross-validated accuracy, the model file round-trips and classifies the parcels
// no sample touched; refusals of a bad classifier word, a missing class field and a model that does not fit.
#include "obia_fixtures.h"

#include <ogrsf_frmts.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTextStream>

#include <cmath>

using namespace obiatest;
using namespace testsupport;

namespace
{

// 8 x 6 parcels of 20 x 20 pixels; parcel (i, j) is segment j * 8 + i + 1 and of class 1 + (i + 2 j) % 3.
constexpr int kParcel = 20, kColumns = 8, kRows = 6, kW = kColumns * kParcel, kH = kRows * kParcel;

int classOfParcel(int i, int j)
{
    return 1 + (i + 2 * j) % 3;
}

double parcelPixel(int band, int x, int y)
{
    static const double spectra[3][3] = {{40, 90, 30}, {120, 60, 140}, {200, 180, 90}};
    return spectra[classOfParcel(x / kParcel, y / kParcel) - 1][band] + 20 * (noise(x, y, band, 4) - 0.5);
}

// Image, segments (with SEGMENT_IMAGE) and training polygons over the parcels of even column, inset 2 pixels.
struct Scene
{
    QString image, segments, samples;
};

Scene makeScene(const QTemporaryDir& dir, int bands = 3)
{
    Scene s{dir.filePath(QString("image%1.tif").arg(bands)), dir.filePath(QString("segments%1.tif").arg(bands)), dir.filePath("samples.geojson")};
    EXPECT_TRUE(makeRaster(s.image, kW, kH, bands, GDT_Byte, parcelPixel));
    EXPECT_TRUE(makeRaster(s.segments, kW, kH, 1, GDT_UInt32, [](int, int x, int y) { return (y / kParcel) * kColumns + x / kParcel + 1; }));
    QFile file(s.samples);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    QTextStream out(&file);
    out << R"({"type":"FeatureCollection","crs":{"type":"name","properties":{"name":"EPSG:32650"}},"features":[)";
    bool first = true;
    for (int j = 0; j < kRows; ++j)
        for (int i = 0; i < kColumns; i += 2)
        {
            const double x0 = 500000 + 30.0 * (i * kParcel + 2), x1 = 500000 + 30.0 * ((i + 1) * kParcel - 2);
            const double y0 = 4000000 - 30.0 * (j * kParcel + 2), y1 = 4000000 - 30.0 * ((j + 1) * kParcel - 2);
            out << (first ? "" : ",") << R"({"type":"Feature","properties":{"cls":)" << classOfParcel(i, j)
                << R"(},"geometry":{"type":"Polygon","coordinates":[[[)" << qSetRealNumberPrecision(12) << x0 << "," << y0 << "],[" << x1 << "," << y0
                << "],[" << x1 << "," << y1 << "],[" << x0 << "," << y1 << "],[" << x0 << "," << y0 << "]]]}}";
            first = false;
        }
    out << "]}";
    return s;
}

std::string message(const AlgoResult& record)
{
    return record.message;
}

} // namespace

TEST(Classify, SamplesHoldTheFeaturesOfTheSampledSegments)
{
    QTemporaryDir dir;
    const Scene scene = makeScene(dir);
    const QString table = dir.filePath("samples.csv");
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_MSS_Sample(scene.image.toUtf8().constData(), scene.segments.toUtf8().constData(), scene.samples.toUtf8().constData(),
                                      table.toUtf8().constData(), "cls", "mean|area", 0.0, 0.0, 0, nullptr));
    const std::string text = capture.text();
    EXPECT_EQ(outputValue(text, "SampleCount"), "24");
    EXPECT_EQ(outputValue(text, "ClassCount"), "3");
    QFile file(table);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 25);
    EXPECT_EQ(lines[0], "segment,class,class_name,mean_1,mean_2,mean_3,area");
    for (const QString& line : lines.mid(1))
    {
        const QStringList v = line.split(',');
        const int segment = v[0].toInt(), i = (segment - 1) % kColumns, j = (segment - 1) / kColumns;
        EXPECT_EQ(i % 2, 0) << segment;
        EXPECT_EQ(v[1].toInt(), classOfParcel(i, j));
        EXPECT_EQ(v[2], QString("\"Class_%1\"").arg(classOfParcel(i, j)));
        for (int b = 0; b < 3; ++b)
        {
            double sum = 0;
            for (int y = j * kParcel; y < (j + 1) * kParcel; ++y)
                for (int x = i * kParcel; x < (i + 1) * kParcel; ++x)
                    sum += std::round(parcelPixel(b, x, y)); // stored as Byte
            EXPECT_NEAR(v[3 + b].toDouble(), sum / (kParcel * kParcel), 1e-4) << segment;
        }
        EXPECT_DOUBLE_EQ(v[6].toDouble(), kParcel * kParcel * 900.0);
    }
    // SampleCount caps each class: 2 per class.
    StdoutCapture again;
    ASSERT_TRUE(ExcuteAlgo_MSS_Sample(scene.image.toUtf8().constData(), scene.segments.toUtf8().constData(), scene.samples.toUtf8().constData(),
                                      table.toUtf8().constData(), "cls", "", 0.0, 0.0, 2, nullptr));
    EXPECT_EQ(outputValue(again.text(), "SampleCount"), "6");
}

TEST(Classify, SamplesAsPolygonsCarryTheParcelOutlinesAndFeatures)
{
    QTemporaryDir dir;
    const Scene scene = makeScene(dir);
    for (const char* name : {"samples.gpkg", "samples.shp"})
    {
        const QString layerPath = dir.filePath(name);
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_MSS_Sample(scene.image.toUtf8().constData(), scene.segments.toUtf8().constData(),
                                          scene.samples.toUtf8().constData(), layerPath.toUtf8().constData(), "cls", "mean|area", 0.0,
                                          0.0, 0, nullptr))
            << name;
        EXPECT_EQ(outputValue(capture.text(), "SampleCount"), "24") << name;
        GDALDatasetUniquePtr layerFile(GDALDataset::Open(layerPath.toUtf8().constData(), GDAL_OF_VECTOR));
        ASSERT_NE(layerFile, nullptr) << name;
        OGRLayer* layer = layerFile->GetLayer(0);
        ASSERT_NE(layer->GetSpatialRef(), nullptr) << name;
        EXPECT_EQ(layer->GetFeatureCount(), 24) << name;
        int seen = 0;
        for (auto& feature : *layer)
        {
            // Segment s is parcel (i, j): its outline is the parcel's square on the 30 m grid from (500000, 4000000).
            const int segment = int(feature->GetFieldAsInteger64("segment")), i = (segment - 1) % kColumns, j = (segment - 1) / kColumns;
            EXPECT_EQ(feature->GetFieldAsInteger("class"), classOfParcel(i, j)) << name << " " << segment;
            EXPECT_STREQ(feature->GetFieldAsString("class_name"), QString("Class_%1").arg(classOfParcel(i, j)).toUtf8().constData());
            OGREnvelope box;
            feature->GetGeometryRef()->getEnvelope(&box);
            EXPECT_DOUBLE_EQ(box.MinX, 500000 + 30.0 * i * kParcel) << name << " " << segment;
            EXPECT_DOUBLE_EQ(box.MaxY, 4000000 - 30.0 * j * kParcel) << name << " " << segment;
            EXPECT_DOUBLE_EQ(feature->GetGeometryRef()->toPolygon()->get_Area(), kParcel * kParcel * 900.0);
            EXPECT_DOUBLE_EQ(feature->GetFieldAsDouble("area"), kParcel * kParcel * 900.0);
            double sum = 0;
            for (int y = j * kParcel; y < (j + 1) * kParcel; ++y)
                for (int x = i * kParcel; x < (i + 1) * kParcel; ++x)
                    sum += std::round(parcelPixel(1, x, y));
            EXPECT_NEAR(feature->GetFieldAsDouble("mean_2"), sum / (kParcel * kParcel), 1e-4) << name << " " << segment;
            ++seen;
        }
        EXPECT_EQ(seen, 24) << name;
    }
    // A suffix that is neither a table nor a vector layer is refused before anything is written.
    const QString text = dir.filePath("samples.txt");
    RecordingResult result;
    EXPECT_FALSE(ExcuteAlgo_MSS_Sample(scene.image.toUtf8().constData(), scene.segments.toUtf8().constData(),
                                       scene.samples.toUtf8().constData(), text.toUtf8().constData(), "cls", "", 0.0, 0.0, 0,
                                       &result.record));
    EXPECT_EQ(message(result.record), "MSS_Sample: the parameter OutputFile (" + text.toStdString() +
                                          ") must end in .csv, .gpkg, .shp or .geojson!");
    EXPECT_FALSE(QFile::exists(text));
}

TEST(Classify, EveryClassifierSeparatesTheClassesAndTheModelRoundTrips)
{
    QTemporaryDir dir;
    const Scene scene = makeScene(dir);
    for (const char* kind : {"RF", "SVM", "KNN", "GBT", "BAYES", "MLP"})
    {
        const QString model = dir.filePath(QString("model_%1.yml").arg(kind));
        RecordingResult result;
        StdoutCapture capture;
        const bool trained = ExcuteAlgo_MSS_Classify_TrainModel(scene.image.toUtf8().constData(), scene.segments.toUtf8().constData(),
                                                                scene.samples.toUtf8().constData(), model.toUtf8().constData(), "cls", "mean",
                                                                kind, kind == std::string("KNN") ? "k=3" : "", "", &result.record);
        const std::string text = capture.text();
        ASSERT_TRUE(trained) << kind << ": " << result.record.message;
        EXPECT_EQ(outputValue(text, "OverallAccuracy"), "1.0000") << kind;
        EXPECT_EQ(outputValue(text, "Kappa"), "1.0000") << kind;
        const QString classes = dir.filePath(QString("classes_%1.tif").arg(kind));
        StdoutCapture apply;
        const bool applied = ExcuteAlgo_MSS_ClassifyByModel(scene.image.toUtf8().constData(), scene.segments.toUtf8().constData(),
                                                            model.toUtf8().constData(), classes.toUtf8().constData(), "landcover", "", "", "", "",
                                                            &result.record);
        const std::string applyText = apply.text();
        ASSERT_TRUE(applied) << kind << ": " << result.record.message;
        EXPECT_EQ(outputValue(applyText, "PolygonFile"), dir.filePath(QString("classes_%1_segments.gpkg").arg(kind)).toStdString());
        // Every parcel, sampled or not, gets its class.
        const std::vector<double> values = readBand(classes, 1);
        int wrong = 0;
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x)
                wrong += values[size_t(y) * kW + x] != classOfParcel(x / kParcel, y / kParcel);
        EXPECT_EQ(wrong, 0) << kind;
    }
    EXPECT_EQ(categoryNames(dir.filePath("classes_RF.tif")), (std::vector<std::string>{"Unclassified", "Class_1", "Class_2", "Class_3"}));
    GDALDatasetUniquePtr polygons(GDALDataset::Open(dir.filePath("classes_RF_segments.gpkg").toUtf8().constData(), GDAL_OF_VECTOR));
    ASSERT_NE(polygons, nullptr);
    int features = 0;
    for (auto& feature : *polygons->GetLayer(0))
    {
        const int segment = int(feature->GetFieldAsInteger64("segment"));
        EXPECT_EQ(feature->GetFieldAsInteger("landcover"), classOfParcel((segment - 1) % kColumns, (segment - 1) / kColumns));
        ++features;
    }
    EXPECT_EQ(features, kColumns * kRows);
}

TEST(Classify, TrainAndApplyInOneCallFromASampleTable)
{
    QTemporaryDir dir;
    const Scene scene = makeScene(dir);
    const QString table = dir.filePath("samples.csv"), out = dir.filePath("classes.gpkg"), model = dir.filePath("model.yml");
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_MSS_Sample(scene.image.toUtf8().constData(), scene.segments.toUtf8().constData(), scene.samples.toUtf8().constData(),
                                      table.toUtf8().constData(), "cls", "", 0.0, 0.0, 0, nullptr));
    ASSERT_TRUE(ExcuteAlgo_MSS_Classify(scene.image.toUtf8().constData(), scene.segments.toUtf8().constData(), table.toUtf8().constData(),
                                        out.toUtf8().constData(), "cls", "", "RF", model.toUtf8().constData(), "trees=50", nullptr));
    const std::string text = capture.text();
    EXPECT_EQ(outputValue(text, "ClassImageFile"), dir.filePath("classes_classes.tif").toStdString());
    EXPECT_EQ(outputValue(text, "ModelFile"), model.toStdString());
    EXPECT_EQ(outputValue(text, "OverallAccuracy"), "1.0000");
    const std::vector<double> values = readBand(dir.filePath("classes_classes.tif"), 1);
    for (int j = 0; j < kRows; ++j)
        for (int i = 0; i < kColumns; ++i)
            EXPECT_EQ(values[size_t(j * kParcel + 5) * kW + i * kParcel + 5], classOfParcel(i, j));
}

TEST(Classify, RefusalsNameTheParameterAndLeaveNothingBehind)
{
    QTemporaryDir dir;
    const Scene scene = makeScene(dir);
    const Scene twoBands = makeScene(dir, 2);
    const QString model = dir.filePath("model.yml");
    {
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_MSS_Classify_TrainModel(scene.image.toUtf8().constData(), scene.segments.toUtf8().constData(),
                                                       scene.samples.toUtf8().constData(), model.toUtf8().constData(), "cls", "mean", "RF", "",
                                                       "", nullptr));
    }
    const QString refused = dir.filePath("refused.yml");
    RecordingResult result;
    StdoutCapture quiet;
    EXPECT_FALSE(ExcuteAlgo_MSS_Classify_TrainModel(scene.image.toUtf8().constData(), scene.segments.toUtf8().constData(),
                                                    scene.samples.toUtf8().constData(), refused.toUtf8().constData(), "cls", "", "XGB", "", "",
                                                    &result.record));
    EXPECT_EQ(message(result.record), "MSS_TrainModel: the parameter Classifier (XGB) must be one of RF, SVM, KNN, GBT, BAYES, MLP!");
    EXPECT_FALSE(ExcuteAlgo_MSS_Classify_TrainModel(scene.image.toUtf8().constData(), scene.segments.toUtf8().constData(),
                                                    scene.samples.toUtf8().constData(), refused.toUtf8().constData(), "label", "", "RF", "", "",
                                                    &result.record));
    EXPECT_EQ(message(result.record), "MSS_TrainModel: the parameter ClassField (label) is not a field of SampleFile!");
    EXPECT_FALSE(QFile::exists(refused));
    const QString classes = dir.filePath("refused.tif");
    EXPECT_FALSE(ExcuteAlgo_MSS_ClassifyByModel(twoBands.image.toUtf8().constData(), twoBands.segments.toUtf8().constData(),
                                                model.toUtf8().constData(), classes.toUtf8().constData(), "", "", "", "", "", &result.record));
    EXPECT_EQ(message(result.record), "MSS_ClassifyByModel: the parameter ModelFile (" + model.toStdString() +
                                          ") was trained on the feature mean_3, which InputFile (2 bands) cannot give!");
    EXPECT_FALSE(ExcuteAlgo_MSS_ClassifyByModel(scene.image.toUtf8().constData(), scene.segments.toUtf8().constData(),
                                                scene.samples.toUtf8().constData(), classes.toUtf8().constData(), "", "", "", "", "", &result.record));
    EXPECT_EQ(message(result.record), "MSS_ClassifyByModel: the parameter ModelFile (" + scene.samples.toStdString() +
                                          ") is not a segment classifier model file!");
    EXPECT_FALSE(QFile::exists(classes));
    EXPECT_FALSE(QFile::exists(dir.filePath("refused_segments.gpkg")));
}

TEST(Classify, AProjectGivesTheClassNamesAndColoursAndItsArea)
{
    QTemporaryDir dir;
    const Scene scene = makeScene(dir);
    const QString project = dir.filePath("project.json"), model = dir.filePath("model.yml"), classes = dir.filePath("classes.tif");
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_CreateClassifyProject(scene.image.toUtf8().constData(), project.toUtf8().constData(), "parcels",
                                                 "Water|Forest|Urban", 0, 0, 0, 0, nullptr));
    QFile file(project);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QJsonObject json = QJsonDocument::fromJson(file.readAll()).object();
    EXPECT_EQ(json["name"].toString(), "parcels");
    // All zero: the image's extent, 160 x 120 pixels of 30 m from (500000, 4000000).
    const QJsonObject area = json["area"].toObject();
    EXPECT_EQ(area["minX"].toDouble(), 500000.0);
    EXPECT_EQ(area["maxX"].toDouble(), 500000.0 + kW * 30.0);
    EXPECT_EQ(area["minY"].toDouble(), 4000000.0 - kH * 30.0);
    EXPECT_EQ(json["classes"].toArray().size(), 3);
    ASSERT_TRUE(ExcuteAlgo_MSS_Classify_TrainModel(scene.image.toUtf8().constData(), scene.segments.toUtf8().constData(),
                                                   scene.samples.toUtf8().constData(), model.toUtf8().constData(), "cls", "", "RF", "",
                                                   project.toUtf8().constData(), nullptr));
    ASSERT_TRUE(ExcuteAlgo_MSS_ClassifyByModel(scene.image.toUtf8().constData(), scene.segments.toUtf8().constData(), model.toUtf8().constData(),
                                               classes.toUtf8().constData(), "", "", "", "", "", nullptr));
    capture.text();
    EXPECT_EQ(categoryNames(classes), (std::vector<std::string>{"Unclassified", "Water", "Forest", "Urban"}));
    GDALDatasetUniquePtr image(GDALDataset::Open(classes.toUtf8().constData(), GDAL_OF_RASTER));
    const QJsonArray colour = json["classes"].toArray()[1].toObject()["colour"].toArray();
    const GDALColorEntry* forest = image->GetRasterBand(1)->GetColorTable()->GetColorEntry(2);
    EXPECT_EQ(forest->c1, colour[0].toInt());
    EXPECT_EQ(forest->c3, colour[2].toInt());

    RecordingResult result;
    StdoutCapture quiet;
    EXPECT_FALSE(ExcuteAlgo_CreateClassifyProject(scene.image.toUtf8().constData(), dir.filePath("far.json").toUtf8().constData(), "far",
                                                  "A|B", 0, 0, 100, 100, &result.record));
    EXPECT_EQ(message(result.record), "CreateClassifyProject: the parameter MinX (0) and the other corners give an area outside InputFile!");
    EXPECT_FALSE(QFile::exists(dir.filePath("far.json")));
}
