// Cropping radar images by pixel window and by longitude/latitude box on a simulated scene.
#include "AlgoFactory.h"
#include "s1_product.h"
#include "sar_parameter_file.h"
#include "simulated_scene.h"
#include "test_support.h"

#include <QDir>
#include <QTemporaryDir>

#include <cmath>
#include <regex>

using testsupport::StdoutCapture;

namespace
{

struct CropRun
{
    bool ok;
    std::string out;
    std::string message;
};

CropRun crop(const QString& input, const QString& output, const char* region)
{
    testsupport::RecordingResult result;
    StdoutCapture capture;
    CropRun run;
    run.ok = ExcuteAlgo_InSAR_SingleImageCrop(input.toUtf8().constData(), output.toUtf8().constData(), region,
                                              &result.record);
    run.out = capture.text();
    run.message = result.record.message;
    return run;
}

std::vector<int> reportedRegion(const std::string& out)
{
    std::smatch m;
    std::vector<int> v;
    if (std::regex_search(out, m, std::regex("InSAR_SingleImageCrop_Region=\"(-?\\d+)\\|(-?\\d+)\\|(-?\\d+)\\|(-?\\d+)\"")))
        for (int i = 1; i <= 4; ++i)
            v.push_back(std::stoi(m[size_t(i)].str()));
    return v;
}

} // namespace

TEST(SingleImageCrop, PixelWindowMovesTheGeometryWithIt)
{
    QTemporaryDir dir;
    const simscene::Scene scene = simscene::makeScene();
    const auto targets = simscene::targets(scene, 0.0);
    const QString image = dir.filePath("scene.tif");
    ASSERT_TRUE(simscene::writeScene(image, scene, targets));
    const QString output = dir.filePath("crop.tif");
    const CropRun run = crop(image, output, "100|299|50|249");
    ASSERT_TRUE(run.ok) << run.out << run.message;
    EXPECT_NE(run.out.find("[OUTPUT] InSAR_SingleImageCrop_images=\"" + output.toStdString() + "|" +
                           dir.filePath("crop.xml").toStdString() + "\""),
              std::string::npos)
        << run.out;
    const std::vector<double> source = testsupport::readBand(image, 1), cut = testsupport::readBand(output, 1);
    ASSERT_EQ(cut.size(), 200u * 200u);
    for (int y = 0; y < 200; y += 7)
        for (int x = 0; x < 200; x += 5)
            ASSERT_EQ(cut[size_t(y) * 200 + size_t(x)], source[size_t(y + 50) * 400 + size_t(x + 100)]);

    SarParameterRecord r;
    ASSERT_TRUE(ReadSarParameterFile(dir.filePath("crop.xml").toUtf8().constData(), r));
    EXPECT_EQ(r.numberOfColumns, 200);
    EXPECT_EQ(r.numberOfRows, 200);
    EXPECT_NEAR(r.startTime, scene.record.startTime + 50 * scene.record.azimuthLineTime, 1e-9);
    EXPECT_NEAR(r.nearSlantRange, scene.record.nearSlantRange + 100 * scene.record.slantRangeSpacing, 1e-6);
    // Every target keeps its place: truth in the full image minus the window's origin.
    const sargeo::RangeDoppler model = sargeo::rangeDopplerFromRecord(r);
    for (const simscene::Target& t : targets)
    {
        double line, pixel;
        ASSERT_TRUE(model.groundToImage(sargeo::geodeticToEcef(t.latitude, t.longitude, 0.0), &line, &pixel));
        EXPECT_NEAR(line, t.line - 50, 1e-3);
        EXPECT_NEAR(pixel, t.pixel - 100, 1e-3);
    }
    // The top-left corner lies at line 0, sample 0 of the window.
    double line, pixel;
    ASSERT_TRUE(simscene::truePosition(scene, r.sceneTopLeftLatitude, r.sceneTopLeftLongitude, 0.0, &line, &pixel));
    EXPECT_NEAR(line, 50.0, 0.01);
    EXPECT_NEAR(pixel, 100.0, 0.01);
}

TEST(SingleImageCrop, LongitudeLatitudeBoxAndRefusals)
{
    QTemporaryDir dir;
    const simscene::Scene scene = simscene::makeScene();
    const auto targets = simscene::targets(scene, 0.0);
    const QString image = dir.filePath("scene.tif");
    ASSERT_TRUE(simscene::writeScene(image, scene, targets));
    // A box around the central target.
    const simscene::Target& t = targets[4];
    const double west = t.longitude - 0.004, east = t.longitude + 0.004, south = t.latitude - 0.003,
                 north = t.latitude + 0.003;
    const QString region = QString("%1|%2|%3|%4").arg(west, 0, 'f', 6).arg(east, 0, 'f', 6).arg(south, 0, 'f', 6).arg(north, 0, 'f', 6);
    const CropRun run = crop(image, dir.filePath("box.tif"), region.toUtf8().constData());
    ASSERT_TRUE(run.ok) << run.out << run.message;
    const std::vector<int> got = reportedRegion(run.out);
    ASSERT_EQ(got.size(), 4u) << run.out;
    // Truth: the box's corners placed by the closed-form orbit.
    double c0 = 1e9, c1 = -1e9, r0 = 1e9, r1 = -1e9;
    for (double lat : {south, north})
        for (double lon : {west, east})
        {
            double line, pixel;
            ASSERT_TRUE(simscene::truePosition(scene, lat, lon, 0.0, &line, &pixel));
            c0 = std::min(c0, pixel), c1 = std::max(c1, pixel), r0 = std::min(r0, line), r1 = std::max(r1, line);
        }
    EXPECT_EQ(got[0], int(std::floor(c0)));
    EXPECT_EQ(got[1], int(std::ceil(c1)));
    EXPECT_EQ(got[2], int(std::floor(r0)));
    EXPECT_EQ(got[3], int(std::ceil(r1)));
    EXPECT_GT(t.pixel, got[0]);
    EXPECT_LT(t.pixel, got[1]);

    const QString bare = dir.filePath("bare.tif");
    ASSERT_TRUE(testsupport::makeRaster(bare, 20, 20, 1, GDT_Float32, [](int, int x, int y) { return x + y; }, "GTiff",
                                        false));
    struct Row
    {
        QString input;
        const char* region;
        std::string message;
    };
    const Row rows[] = {
        {image, "500|600|0|10", "the parameter Region (500|600|0|10) lies outside the image (400 x 500)!"},
        {image, "1|2|3", "the parameter Region (1|2|3) is not x0|x1|y0|y1 or west|east|south|north!"},
        {bare, "12.5|12.6|41.5|41.6", "is a longitude/latitude box but the image has no parameter file!"},
        {image, "100.5|101.5|-10|-9", "the parameter Region (100.5|101.5|-10|-9) cannot be placed in the image!"},
    };
    for (const Row& row : rows)
    {
        const QString output = dir.filePath("refused.tif");
        const CropRun refused = crop(row.input, output, row.region);
        EXPECT_FALSE(refused.ok);
        EXPECT_NE(refused.message.find(row.message), std::string::npos) << refused.message;
        EXPECT_FALSE(QFile::exists(output));
    }
}
