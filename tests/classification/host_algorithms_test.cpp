// The host algorithm "ROIStatistics" against sums taken here, and the regularised class models.
#include "class_fixtures.h"
#include "supervised_models.h"
#include "sys_algo.h"
#include "sys_algo_classification.h"

#include <QTemporaryDir>

namespace
{

double pixelValue(int band, int x, int y)
{
    return 100.0 * band + 3.0 * x + 7.0 * y + ((x * y + band) % 4);
}

} // namespace

TEST(RoiStatistics, MeanAndCovarianceOfThePixelsInside)
{
    QTemporaryDir dir;
    const QString image = dir.filePath("scene.tif");
    ASSERT_TRUE(testsupport::makeRaster(image, 12, 9, 3, GDT_Float32, pixelValue));
    stROIStatisticsInfo info;
    info.inputFile = image;
    info.bands = {3, 1}; // 1-based, in this order
    info.bandCount = 2;
    RoiArea area;
    area.name = "rectangle";
    // Pixel centres inside (1,1)-(4,3): columns 1..3, rows 1..2; the second polygon adds column 8, rows 5..7.
    area.geometries.emplace_back(std::vector<SysGeometry::Point>{{1, 1}, {4, 1}, {4, 3}, {1, 3}});
    area.geometries.emplace_back(std::vector<SysGeometry::Point>{{8, 5}, {9, 5}, {9, 8}, {8, 8}});
    info.areas.push_back(area);

    SysAlgo::AlgoFactory* factory = SysAlgo::AlgoFactory::Instance();
    EXPECT_FALSE(factory->CreateAlgorithm("NoSuchAlgorithm"));
    SysUtility::_ptr_t<SysAlgo::Algorithm> algorithm = factory->CreateAlgorithm("ROIStatistics");
    ASSERT_TRUE(algorithm);
    algorithm->SetParameter(info);
    ASSERT_TRUE(factory->ExecuteAlgorithm(algorithm.get()));
    const auto* result = boost::any_cast<stROIStatisticsInfo>(&algorithm->GetResult());
    ASSERT_NE(result, nullptr);
    ASSERT_EQ(result->statistics.size(), 1u);

    std::vector<std::array<double, 2>> pixels;
    for (int y = 1; y <= 2; ++y)
        for (int x = 1; x <= 3; ++x)
            pixels.push_back({pixelValue(2, x, y), pixelValue(0, x, y)});
    for (int y = 5; y <= 7; ++y)
        pixels.push_back({pixelValue(2, 8, y), pixelValue(0, 8, y)});
    const double n = double(pixels.size());
    double mean[2] = {0, 0};
    for (const auto& p : pixels)
        mean[0] += p[0] / n, mean[1] += p[1] / n;
    const RoiClassStatistics& statistics = result->statistics[0];
    EXPECT_EQ(statistics.pixelCount, 9);
    EXPECT_NEAR(statistics.mean[0], mean[0], 1e-9);
    EXPECT_NEAR(statistics.mean[1], mean[1], 1e-9);
    for (int i = 0; i < 2; ++i)
        for (int j = 0; j < 2; ++j)
        {
            double covariance = 0.0;
            for (const auto& p : pixels)
                covariance += (p[i] - mean[i]) * (p[j] - mean[j]) / (n - 1.0);
            EXPECT_NEAR(statistics.covariance[size_t(i * 2 + j)], covariance, 1e-9) << i << "," << j;
        }

    // A class that covers no pixel is an error, with its name.
    info.areas[0].geometries = {SysGeometry::Polygon({{50, 50}, {60, 50}, {60, 60}})};
    algorithm->SetParameter(info);
    EXPECT_FALSE(factory->ExecuteAlgorithm(algorithm.get()));
    int code = 0;
    QString message;
    algorithm->GetError(&code, &message);
    EXPECT_NE(code, 0);
    EXPECT_TRUE(message.contains("rectangle")) << message.toStdString();
}

TEST(GaussianClass, InverseAndRegularisedSingularCovariance)
{
    const double mean[2] = {1.0, 2.0};
    const double covariance[4] = {4.0, 2.0, 2.0, 3.0}; // determinant 8, inverse (3 -2; -2 4) / 8
    const algokit::GaussianClass model = algokit::gaussianClass(mean, covariance, 2);
    EXPECT_NEAR(model.logDeterminant, std::log(8.0), 1e-12);
    const double inverse[4] = {3.0 / 8, -2.0 / 8, -2.0 / 8, 4.0 / 8};
    for (int i = 0; i < 4; ++i)
        EXPECT_NEAR(model.inverse[size_t(i)], inverse[i], 1e-12);
    const float x[2] = {3.f, 3.f}; // d = (2, 1): (3*4 - 2*2*2*1 + 4*1) / 8 = 1
    double scratch[2];
    EXPECT_NEAR(algokit::mahalanobis(model, x, 2, scratch), 1.0, 1e-12);

    // One pixel, or two identical bands: singular, made positive definite by the ridge.
    for (const std::array<double, 4>& singular : {std::array<double, 4>{0, 0, 0, 0}, std::array<double, 4>{5, 5, 5, 5}})
    {
        const algokit::GaussianClass regularised = algokit::gaussianClass(mean, singular.data(), 2);
        EXPECT_TRUE(std::isfinite(regularised.logDeterminant));
        EXPECT_TRUE(std::isfinite(algokit::mahalanobis(regularised, x, 2, scratch)));
    }
}
