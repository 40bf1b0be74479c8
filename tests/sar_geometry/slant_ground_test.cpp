// Slant range to ground range on a simulated scene: targets keep their place through the written polynomials,
// the spacing is the ground size of a slant sample, and ground-range input is refused.
#include "AlgoFactory.h"
#include "sar_parameter_file.h"
#include "simulated_scene.h"
#include "test_support.h"

#include <QFile>
#include <QTemporaryDir>

#include <cmath>

using testsupport::StdoutCapture;

namespace
{

double evaluate(const std::array<double, 6>& c, double g)
{
    double r = 0.0;
    for (int k = 5; k >= 0; --k)
        r = r * g + c[size_t(k)];
    return r;
}

} // namespace

TEST(Slant2Ground, TargetsRoundTripThroughTheGroundRangePolynomial)
{
    QTemporaryDir dir;
    const simscene::Scene scene = simscene::makeScene();
    const auto targets = simscene::targets(scene, 0.0);
    const QString image = dir.filePath("scene.tif");
    ASSERT_TRUE(simscene::writeScene(image, scene, targets));
    const QString output = dir.filePath("ground.tif");
    StdoutCapture capture;
    const bool ok = ExcuteAlgo_InSAR_Slant2Ground(image.toUtf8().constData(),
                                                  sarParameterFilePath(image).toUtf8().constData(),
                                                  output.toUtf8().constData(), nullptr);
    const std::string text = capture.text();
    ASSERT_TRUE(ok) << text;
    EXPECT_NE(text.find("[OUTPUT] InSAR_Slant2Ground_images=\"" + output.toStdString() + "|" +
                        dir.filePath("ground.xml").toStdString() + "\""),
              std::string::npos)
        << text;
    SarParameterRecord r;
    ASSERT_TRUE(ReadSarParameterFile(dir.filePath("ground.xml").toUtf8().constData(), r));
    EXPECT_EQ(r.imageGeometry, "GROUND_RANGE");
    EXPECT_NEAR(evaluate(r.firstSlantRangePolynomial, 0.0), scene.record.nearSlantRange, 0.05);

    // The ground size of one 10 m slant sample at the scene centre, from the closed-form orbit.
    simscene::Vec3 s, v;
    scene.orbit.state(scene.record.centerTime - simscene::kT0, &s, &v);
    const simscene::Vec3 p = simscene::ecef(scene.centreLatitude, scene.centreLongitude, 0.0);
    const double cosIncidence = p.normalized().dot((s - p).normalized()); // geocentric normal: close enough here
    EXPECT_NEAR(r.slantRangeSpacing, 10.0 / std::sqrt(1 - cosIncidence * cosIncidence), 0.05);

    const std::vector<double> ground = testsupport::readBand(output, 1);
    const int w = r.numberOfColumns;
    ASSERT_EQ(ground.size(), size_t(w) * 500u);
    for (const simscene::Target& t : targets)
    {
        const int line = int(std::lround(t.line));
        // The blob's centroid along its output line, mapped back to slant range by the centre polynomial
        // (the scene is short: the three polynomials agree to well under a sample).
        double sum = 0, weighted = 0;
        for (int j = 0; j < w; ++j)
        {
            const double value = std::max(0.0, ground[size_t(line) * size_t(w) + size_t(j)] - 0.1);
            const double slantPixel = (evaluate(r.centerSlantRangePolynomial, j * r.slantRangeSpacing) -
                                       scene.record.nearSlantRange) / scene.record.slantRangeSpacing;
            if (std::abs(slantPixel - t.pixel) < 8)
                sum += value, weighted += value * j;
        }
        ASSERT_GT(sum, 0.0);
        const double back = (evaluate(r.centerSlantRangePolynomial, weighted / sum * r.slantRangeSpacing) -
                             scene.record.nearSlantRange) / scene.record.slantRangeSpacing;
        EXPECT_NEAR(back, t.pixel, 0.15);
    }

    // The output is no longer slant range: a second conversion is refused with the platform's words.
    testsupport::RecordingResult result;
    StdoutCapture again;
    EXPECT_FALSE(ExcuteAlgo_InSAR_Slant2Ground(output.toUtf8().constData(), dir.filePath("ground.xml").toUtf8().constData(),
                                               dir.filePath("twice.tif").toUtf8().constData(), &result.record));
    EXPECT_STREQ(result.record.message, "Input data should be slant-range radar coordinate !");
    EXPECT_FALSE(QFile::exists(dir.filePath("twice.tif")));
}
