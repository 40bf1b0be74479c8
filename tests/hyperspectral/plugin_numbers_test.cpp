// Plug-in numbers against independent computations: statistics, covariance and correlation images,
// entropy, sharpness, noise, GF-5 merge and calibration, and the real AVIRIS-NG chip.
#include "hys_fixtures.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <cmath>
#include <map>

using namespace testsupport;
using namespace hysfixture;

namespace
{

// Pixels of a band over a rectangle, from a value function.
std::vector<double> pixels(const std::function<double(int, int, int)>& f, int band, int x0, int y0, int w, int h)
{
    std::vector<double> values;
    for (int y = y0; y < y0 + h; ++y)
        for (int x = x0; x < x0 + w; ++x)
            values.push_back(f(band, x, y));
    return values;
}

double mean(const std::vector<double>& v)
{
    double s = 0;
    for (double x : v)
        s += x;
    return s / v.size();
}

double covariance(const std::vector<double>& a, const std::vector<double>& b)
{
    const double ma = mean(a), mb = mean(b);
    double s = 0;
    for (size_t i = 0; i < a.size(); ++i)
        s += (a[i] - ma) * (b[i] - mb);
    return s / (a.size() - 1);
}

// The report's row for a band: minimum, maximum, mean, standard deviation.
std::vector<double> reportRow(const QString& report, int band)
{
    const QRegularExpression row(QStringLiteral("\\n%1 +(\\S+) +(\\S+) +(\\S+) +(\\S+)").arg(band));
    const QRegularExpressionMatch match = row.match(report);
    if (!match.hasMatch())
        return {};
    return {match.captured(1).toDouble(), match.captured(2).toDouble(), match.captured(3).toDouble(),
            match.captured(4).toDouble()};
}

TEST(HyperspectralPlugins, StatisticsCovarianceAndCorrelation)
{
    QTemporaryDir dir;
    const QString input = dir.path() + "/cube.x.tif";
    // Band 3 is constant: its correlations are undefined and written as NaN.
    const auto f = [](int b, int x, int y) {
        return b == 2 ? 7.0 : 1000.0 + (b + 1) * x * 1.5 + ((x * 3 + y * 5 + b) % 7) - 0.25 * y * y;
    };
    ASSERT_TRUE(makeCube(input, 9, 7, 4, GDT_Float32, f, {450, 550, 650, 750}));
    StdoutCapture capture;
    RecordingResult result;
    ASSERT_TRUE(ExcuteAlgo_StatisticalAnalysis(input.toLocal8Bit(), "2|7|1|5", "", &result.record));
    const std::vector<std::string> out = lines(capture.text());
    ASSERT_EQ(out.size(), 5u);
    EXPECT_EQ(out[0], "[OUTPUT] OutTextFile=\"" + dir.path().toStdString() + "/cube-StatisticalText.txt\"");
    EXPECT_EQ(out[4], "start call algorithm plugin: StatisticalAnalysis");

    std::vector<std::vector<double>> bands;
    for (int b = 0; b < 4; ++b)
        bands.push_back(pixels(f, b, 2, 1, 6, 5));
    const std::vector<double> cov = readBand(dir.path() + "/cube-CovImageFile.tif", 1);
    const std::vector<double> cor = readBand(dir.path() + "/cube-CorCoeFile.tif", 1);
    ASSERT_EQ(cov.size(), 16u);
    ASSERT_EQ(cor.size(), 16u);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
        {
            const double c = covariance(bands[i], bands[j]);
            EXPECT_NEAR(cov[size_t(i * 4 + j)], c, 1e-9 * (1 + std::abs(c))) << i << "," << j;
            if (i == 2 || j == 2)
                EXPECT_TRUE(std::isnan(cor[size_t(i * 4 + j)])) << i << "," << j;
            else
                EXPECT_NEAR(cor[size_t(i * 4 + j)],
                            c / std::sqrt(covariance(bands[i], bands[i]) * covariance(bands[j], bands[j])), 1e-12);
        }
    const QString report = readText(dir.path() + "/cube-StatisticalText.txt");
    for (int b = 0; b < 4; ++b)
    {
        const std::vector<double> row = reportRow(report, b + 1);
        ASSERT_EQ(row.size(), 4u) << b;
        EXPECT_DOUBLE_EQ(row[0], *std::min_element(bands[b].begin(), bands[b].end()));
        EXPECT_DOUBLE_EQ(row[1], *std::max_element(bands[b].begin(), bands[b].end()));
        EXPECT_NEAR(row[2], mean(bands[b]), 1e-7 * std::abs(mean(bands[b])));
        EXPECT_NEAR(row[3], std::sqrt(covariance(bands[b], bands[b])), 1e-7 * (1 + row[3]));
    }
    EXPECT_TRUE(report.contains("written as nan"));
    expectReadableChart(dir.path() + "/cube-StatisticalPicture.png");
}

// NaN and no-data pixels: per-band statistics skip them; the covariance uses pixels valid in every band.
TEST(HyperspectralPlugins, StatisticsSkipMissingPixels)
{
    QTemporaryDir dir;
    const QString input = dir.path() + "/gaps.tif";
    const auto f = [](int b, int x, int y) {
        if (b == 0 && x == 1 && y == 1)
            return std::nan("");
        return double((x + 1) * (b + 2) + y * y);
    };
    ASSERT_TRUE(makeCube(input, 4, 3, 2, GDT_Float32, f));
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_StatisticalAnalysis(input.toLocal8Bit(), "", "", nullptr));
    capture.text();
    std::vector<double> a, b, allB;
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x)
        {
            allB.push_back(f(1, x, y));
            if (!std::isnan(f(0, x, y)))
            {
                a.push_back(f(0, x, y));
                b.push_back(f(1, x, y));
            }
        }
    const std::vector<double> cov = readBand(dir.path() + "/gaps-CovImageFile.tif", 1);
    ASSERT_EQ(cov.size(), 4u);
    EXPECT_NEAR(cov[1], covariance(a, b), 1e-9);
    const QString report = readText(dir.path() + "/gaps-StatisticalText.txt");
    EXPECT_NEAR(reportRow(report, 1)[2], mean(a), 1e-9);
    EXPECT_NEAR(reportRow(report, 2)[2], mean(allB), 1e-9);
}

// Integer cubes: a tiled Int16 cube read in two windows, one whose shifted values fit 16 bits (summed as
// integers) and one with the type's extremes (summed in doubles), a no-data value met in band 1, and UInt16
// and Byte cubes, whole and over a rectangle cutting through tiles; every number against a two-pass
// computation in doubles.
TEST(HyperspectralPlugins, StatisticsOfIntegerCubes)
{
    const int width = 300, height = 20, bandCount = 3;
    const double noData = -9999;
    const auto f = [&](GDALDataType type, int b, int x, int y) -> double {
        if (type == GDT_Byte)
            return (x * 7 + y * 3 + b * 11) % 256;
        if (type == GDT_UInt16)
            return (x * 977 + y * 331 + b * 17) % 65536;
        if (b == 0 && (x + y) % 13 == 0)
            return noData;
        if (b == 1 && x >= 256 && y % 5 == 0)
            return x % 2 ? 32767 : -32768;
        return (x - 150) * (b + 3) + y * y - 40 * b;
    };
    for (GDALDataType type : {GDT_Int16, GDT_UInt16, GDT_Byte})
    {
        SCOPED_TRACE(GDALGetDataTypeName(type));
        QTemporaryDir dir;
        const QString input = dir.path() + "/int.tif";
        ASSERT_TRUE(makeGeoTiff(input, width, height, bandCount, type,
                                [&](int b, int x, int y) { return f(type, b, x, y); },
                                {"TILED=YES", "BLOCKXSIZE=16", "BLOCKYSIZE=16"},
                                type == GDT_Int16 ? noData : std::nan("")));
        // The whole cube, then a rectangle that starts and ends inside tiles (columns 5..290, rows 3..17).
        struct Region
        {
            const char* rect;
            int x0, x1, y0, y1;
        };
        for (const Region& region : {Region{"", 0, width - 1, 0, height - 1}, Region{"5|290|3|17", 5, 290, 3, 17}})
        {
            SCOPED_TRACE(region.rect);
            StdoutCapture capture;
            ASSERT_TRUE(ExcuteAlgo_StatisticalAnalysis(input.toLocal8Bit(), region.rect, "", nullptr));
            capture.text();

            std::vector<std::vector<double>> own(bandCount), complete(bandCount);
            for (int y = region.y0; y <= region.y1; ++y)
                for (int x = region.x0; x <= region.x1; ++x)
                {
                    const bool gap = type == GDT_Int16 && f(type, 0, x, y) == noData;
                    for (int b = 0; b < bandCount; ++b)
                    {
                        if (!(gap && b == 0))
                            own[b].push_back(f(type, b, x, y));
                        if (!gap)
                            complete[b].push_back(f(type, b, x, y));
                    }
                }
            const std::vector<double> cov = readBand(dir.path() + "/int-CovImageFile.tif", 1);
            ASSERT_EQ(cov.size(), 9u);
            for (int i = 0; i < bandCount; ++i)
                for (int j = 0; j < bandCount; ++j)
                {
                    const double c = covariance(complete[i], complete[j]);
                    EXPECT_NEAR(cov[size_t(i * 3 + j)], c, 1e-10 * std::abs(c)) << i << "," << j;
                }
            const QString report = readText(dir.path() + "/int-StatisticalText.txt");
            for (int b = 0; b < bandCount; ++b)
            {
                const std::vector<double> row = reportRow(report, b + 1);
                ASSERT_EQ(row.size(), 4u) << b;
                EXPECT_EQ(row[0], *std::min_element(own[b].begin(), own[b].end())) << b;
                EXPECT_EQ(row[1], *std::max_element(own[b].begin(), own[b].end())) << b;
                EXPECT_NEAR(row[2], mean(own[b]), 1e-9 * (1 + std::abs(row[2]))) << b;
                EXPECT_NEAR(row[3], std::sqrt(covariance(own[b], own[b])), 1e-9 * row[3]) << b;
            }
        }
    }
}

// Entropy: Byte bands by value, others in 256 bins over the band's range; values counted independently.
TEST(HyperspectralPlugins, EntropyBits)
{
    QTemporaryDir dir;
    const QString input = dir.path() + "/e.tif";
    // Band 1: 8 values in equal numbers (3 bits); band 2: counts 1/2, 1/4, 1/4 (1.5 bits).
    const auto f = [](int b, int x, int y) {
        const int i = y * 8 + x;
        return b == 0 ? (i % 8) * 1000.0 - 3000.0 : (i % 4 == 0 || i % 4 == 1) ? 5.0 : (i % 4 == 2 ? 6.0 : 9.5);
    };
    ASSERT_TRUE(makeCube(input, 8, 4, 2, GDT_Float32, f));
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_InformationEntropy(input.toLocal8Bit(), "", "", dir.path().toLocal8Bit(), nullptr));
    capture.text();
    const QStringList text = readText(dir.path() + "/e_inforentropy.txt").split('\n');
    ASSERT_GE(text.size(), 3);
    EXPECT_EQ(text[1], "1          3");
    EXPECT_EQ(text[2], "2          1.5");
    expectReadableChart(dir.path() + "/e_inforentropy.png");
}

TEST(HyperspectralPlugins, SharpnessMeasures)
{
    QTemporaryDir dir;
    const QString input = dir.path() + "/s.tif";
    const int w = 7, h = 5;
    const auto f = [](int, int x, int y) { return double(x * x + 3 * y); };
    ASSERT_TRUE(makeCube(input, w, h, 1, GDT_Float32, f));
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_HysSharpness(input.toLocal8Bit(), "", "", dir.path().toLocal8Bit(), 0, nullptr));
    capture.text();
    double average = 0, energy = 0, brenner = 0;
    for (int y = 0; y + 1 < h; ++y)
        for (int x = 0; x + 1 < w; ++x)
        {
            const double dx = f(0, x + 1, y) - f(0, x, y), dy = f(0, x, y + 1) - f(0, x, y);
            average += std::sqrt((dx * dx + dy * dy) / 2) / ((w - 1) * (h - 1));
            energy += (dx * dx + dy * dy) / ((w - 1) * (h - 1));
        }
    for (int y = 0; y < h; ++y)
        for (int x = 0; x + 2 < w; ++x)
            brenner += std::pow(f(0, x + 2, y) - f(0, x, y), 2) / ((w - 2) * h);
    const std::vector<double> all = pixels(f, 0, 0, 0, w, h);
    const double variance = covariance(all, all) * (all.size() - 1) / all.size();
    const QStringList fields = readText(dir.path() + "/s_HysSharpness.txt").split('\n')[1].split(' ', Qt::SkipEmptyParts);
    ASSERT_EQ(fields.size(), 5);
    EXPECT_NEAR(fields[1].toDouble(), average, 1e-8);
    EXPECT_NEAR(fields[2].toDouble(), brenner, 1e-8);
    EXPECT_NEAR(fields[3].toDouble(), energy, 1e-8);
    EXPECT_NEAR(fields[4].toDouble(), variance, 1e-8);
    expectReadableChart(dir.path() + "/s_HysSharpness.png");
}

// A checkerboard gives every 4x4 block the deviation a * sqrt(4/15); flat blocks give 0 and are the
// most homogeneous, so a ratio that takes only them reports 0.
TEST(HyperspectralPlugins, NoiseFromHomogeneousBlocks)
{
    QTemporaryDir dir;
    const QString input = dir.path() + "/n.tif";
    const auto f = [](int b, int x, int y) { return (b == 1 && x < 4) ? 50.0 : 50.0 + ((x + y) % 2) * 3.0 * (b + 1); };
    ASSERT_TRUE(makeCube(input, 9, 8, 2, GDT_Int16, f));
    for (const auto& [ratio, second] : {std::pair<double, double>{1.0, 6.0 * std::sqrt(4.0 / 15.0) / 2},
                                        std::pair<double, double>{0.5, 0.0}})
    {
        StdoutCapture capture;
        ASSERT_TRUE(ExcuteAlgo_NoiseEstimation(input.toLocal8Bit(), dir.path().toLocal8Bit(), ratio, nullptr));
        const std::string text = capture.text();
        EXPECT_NE(text.find("[OUTPUT] noiseEstimationPNG=\"" + dir.path().toStdString() + "/n_NoiseEstimation.png\""),
                  std::string::npos);
        EXPECT_NE(text.find("NoiseEstimation: Export image successfully!\n"), std::string::npos);
        const QStringList rows = readText(dir.path() + "/n_NoiseEstimation.txt").split('\n', Qt::SkipEmptyParts);
        ASSERT_EQ(rows.size(), 2);
        EXPECT_NEAR(rows[0].split(' ')[1].toDouble(), 3.0 * std::sqrt(4.0 / 15.0), 1e-6);
        EXPECT_NEAR(rows[1].split(' ')[1].toDouble(), second, 1e-6) << ratio;
        expectReadableChart(dir.path() + "/n_NoiseEstimation.png");
    }
}

// The solar irradiance table laid out beside the build's bin/: ESUN by detector and band.
std::map<std::pair<QString, int>, double> esunTable()
{
    std::map<std::pair<QString, int>, double> table;
    for (const QString& line : readText(buildBinDir() + "/../data/HypSpectral/GF5_AHSI_SpeRes_ESUN.txt").split('\n'))
    {
        const QStringList f = line.split(' ', Qt::SkipEmptyParts);
        if (f.size() == 6 && !line.startsWith('#'))
            table[{f[1], f[2].toInt()}] = f[5].toDouble();
    }
    return table;
}

TEST(HyperspectralPlugins, EsunTableCoversEveryAhsiBand)
{
    const auto table = esunTable();
    ASSERT_EQ(table.size(), 330u);
    // E-490 peaks near 450-500 nm at about 2000 W/(m2 um) and falls to about 50 at 2.5 um.
    EXPECT_GT(table.at({"VNIR", 20}), 1600.0);
    EXPECT_LT(table.at({"SWIR", 180}), 80.0);
}

TEST(HyperspectralPlugins, CalibrationWithRealGF5BTables)
{
    SKIP_WITHOUT_SHARED_DATA("gf5/GF5B_AHSI_RadCal_SWIR.raw");
    QTemporaryDir dir;
    const QString input = dir.path() + "/sw.tif";
    const auto dn = [](int b, int x, int y) { return double(1000 + 10 * b + x + 2 * y); };
    ASSERT_TRUE(makeCube(input, 3, 2, 180, GDT_UInt16, dn));
    writeText(dir.path() + "/meta.xml",
              "<ProductMetaData><StartTime>2021-07-04 03:01:02</StartTime><SolarZenith>30.0</SolarZenith></ProductMetaData>");
    const QString cal = sharedDataPath("gf5/GF5B_AHSI_RadCal_SWIR.raw");
    const QString response = sharedDataPath("gf5/GF5B_AHSI_Spectralresponse_SWIR.raw");
    const QStringList gains = readText(cal).split('\n', Qt::SkipEmptyParts);
    const auto table = esunTable();
    const double d = 1 - 0.01672 * std::cos(0.9856 * (185 - 4) * M_PI / 180); // 4 July: day 185

    const QString reflectance = dir.path() + "/out/refl.dat";
    StdoutCapture capture;
    RecordingResult result;
    ASSERT_TRUE(ExcuteAlgo_HypGF5RadiometricCalibrate(input.toLocal8Bit(), cal.toLocal8Bit(), response.toLocal8Bit(),
                                                      (dir.path() + "/meta.xml").toLocal8Bit(), 1, 1, 0,
                                                      reflectance.toLocal8Bit(), &result.record))
        << result.record.message;
    for (int band : {1, 60, 180})
    {
        const QStringList gainOffset = gains[band - 1].split(',');
        const double radiance = gainOffset[0].toDouble() * dn(band - 1, 2, 1) + gainOffset[1].toDouble();
        const double expected = M_PI * radiance * d * d / (table.at({"SWIR", band}) * std::cos(M_PI / 6));
        EXPECT_NEAR(readBand(reflectance, band)[5], expected, 1e-5 * std::abs(expected) + 1e-7) << band;
    }
    GDALDataset* out = GDALDataset::FromHandle(GDALOpen(reflectance.toUtf8().constData(), GA_ReadOnly));
    ASSERT_NE(out, nullptr);
    EXPECT_STREQ(out->GetRasterBand(5)->GetMetadataItem("wavelength"), "1042.667");
    GDALClose(GDALDataset::ToHandle(out));

    // Radiance in uW/(cm2 sr nm), scaled by 100.
    const QString radiance = dir.path() + "/rad.tif";
    ASSERT_TRUE(ExcuteAlgo_HypGF5RadiometricCalibrate(input.toLocal8Bit(), cal.toLocal8Bit(), "", "", 0, 100, 1,
                                                      radiance.toLocal8Bit(), nullptr));
    const QStringList first = gains[0].split(',');
    EXPECT_NEAR(readBand(radiance, 1)[0], 100 * 0.1 * (first[0].toDouble() * dn(0, 0, 0) + first[1].toDouble()), 1e-3);

    // An unreadable calibration file and a missing metadata file are plug-in errors, and nothing is left.
    const QString failed = dir.path() + "/failed.tif";
    RecordingResult noCal;
    EXPECT_FALSE(ExcuteAlgo_HypGF5RadiometricCalibrate(input.toLocal8Bit(), (dir.path() + "/none.raw").toLocal8Bit(),
                                                       "", "", 0, 0, 0, failed.toLocal8Bit(), &noCal.record));
    EXPECT_NE(std::string(noCal.record.message).find("cannot be read"), std::string::npos);
    RecordingResult noMeta;
    EXPECT_FALSE(ExcuteAlgo_HypGF5RadiometricCalibrate(input.toLocal8Bit(), cal.toLocal8Bit(), response.toLocal8Bit(),
                                                       (dir.path() + "/none.xml").toLocal8Bit(), 1, 0, 0,
                                                       failed.toLocal8Bit(), &noMeta.record));
    EXPECT_NE(std::string(noMeta.record.message).find("metadata file"), std::string::npos);
    EXPECT_FALSE(QFileInfo::exists(failed));
    capture.text();
}

TEST(HyperspectralPlugins, GF5MergeDropsBandsAndCalibrates)
{
    QTemporaryDir dir;
    const QString name = dir.path() + "/GF5_AHSI_E116.50_N39.78_20190101_000001_L10000000001";
    const auto dn = [](int b, int x, int y) { return double(100 + b + 3 * x + y); };
    ASSERT_TRUE(makeCube(name + "_VN.geotiff", 3, 2, 150, GDT_UInt16, dn));
    ASSERT_TRUE(makeCube(name + "_SW.geotiff", 3, 2, 180, GDT_UInt16, dn));
    QString vnirCal, swirCal;
    for (int b = 0; b < 150; ++b)
        vnirCal += QStringLiteral("%1,%2\n").arg(0.01 * (b + 1)).arg(0.5);
    for (int b = 0; b < 180; ++b)
        swirCal += QStringLiteral("%1,%2\n").arg(0.002 * (b + 1)).arg(-0.25);
    writeText(dir.path() + "/GF5_AHSI_VNIR_RadCal_a.raw", vnirCal);
    writeText(dir.path() + "/GF5_AHSI_SWIR_RadCal_a.raw", swirCal);
    StdoutCapture capture;
    RecordingResult result;
    ASSERT_TRUE(ExcuteAlgo_GF5PreProcessing((name + ".xml").toLocal8Bit(), 1, 1, (dir.path() + "/out").toLocal8Bit(),
                                            ".dat", &result.record))
        << result.record.message;
    capture.text();
    const QString output = dir.path() + "/out/" + QFileInfo(name).fileName() + ".dat";
    GDALDataset* merged = GDALDataset::FromHandle(GDALOpen(output.toUtf8().constData(), GA_ReadOnly));
    ASSERT_NE(merged, nullptr);
    EXPECT_EQ(merged->GetRasterCount(), 146 + 151);
    EXPECT_STREQ(merged->GetRasterBand(1)->GetMetadataItem("wavelength"), "387.0453");
    EXPECT_STREQ(merged->GetRasterBand(147)->GetMetadataItem("wavelength"), "1042.667"); // SWIR band 5
    GDALClose(GDALDataset::ToHandle(merged));
    EXPECT_NEAR(readBand(output, 146)[4], 0.01 * 146 * dn(145, 1, 1) + 0.5, 1e-3);       // VNIR band 146
    EXPECT_NEAR(readBand(output, 147)[4], 0.002 * 5 * dn(4, 1, 1) - 0.25, 1e-4);          // SWIR band 5
    EXPECT_NEAR(readBand(output, 297)[0], 0.002 * 180 * dn(179, 0, 0) - 0.25, 1e-3);      // SWIR band 180
    EXPECT_NEAR(readBand(output, 184)[0], 0.002 * 42 * dn(41, 0, 0) - 0.25, 1e-4);        // SWIR 42, then 51
    EXPECT_NEAR(readBand(output, 185)[0], 0.002 * 51 * dn(50, 0, 0) - 0.25, 1e-4);
}

// The real AVIRIS-NG chip: statistics of three explicitly listed bands and the wavelength axis.
TEST(HyperspectralPlugins, RealAvirisChip)
{
    SKIP_WITHOUT_SHARED_DATA("hyperspectral/ang20150420t182808_corr_v1e_img_4200-4210_70-80.img");
    QTemporaryDir dir;
    const QString source = sharedDataPath("hyperspectral/ang20150420t182808_corr_v1e_img_4200-4210_70-80.img");
    const QString input = dir.path() + "/chip.img";
    QFile::copy(source, input);
    QFile::copy(QString(source).replace(".img", ".hdr"), dir.path() + "/chip.hdr");
    StdoutCapture capture;
    ASSERT_TRUE(ExcuteAlgo_StatisticalAnalysis(input.toLocal8Bit(), "", "9|99|299", nullptr));
    capture.text();
    const QString report = readText(dir.path() + "/chip-StatisticalText.txt");
    std::vector<std::vector<double>> bands;
    for (int band : {10, 100, 300})
    {
        bands.push_back(readBand(input, band));
        const std::vector<double> row = reportRow(report, band);
        ASSERT_EQ(row.size(), 4u) << band;
        EXPECT_NEAR(row[2], mean(bands.back()), 1e-7);
        EXPECT_NEAR(row[3], std::sqrt(covariance(bands.back(), bands.back())), 1e-7);
    }
    const std::vector<double> cor = readBand(dir.path() + "/chip-CorCoeFile.tif", 1);
    ASSERT_EQ(cor.size(), 9u);
    EXPECT_NEAR(cor[1], covariance(bands[0], bands[1]) /
                            std::sqrt(covariance(bands[0], bands[0]) * covariance(bands[1], bands[1])), 1e-9);
    expectReadableChart(dir.path() + "/chip-StatisticalPicture.png");

    StdoutCapture again;
    ASSERT_TRUE(ExcuteAlgo_InformationEntropy(input.toLocal8Bit(), "", "", dir.path().toLocal8Bit(), nullptr));
    again.text();
    const QStringList text = readText(dir.path() + "/chip_inforentropy.txt").split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(text.size(), 433);
    EXPECT_TRUE(text[0].startsWith("Wavelength")); // nm wavelengths in the header
    const double entropy = text[1].split("          ")[1].toDouble();
    EXPECT_GT(entropy, 4.0); // 100 distinct reflectances in 256 bins
    EXPECT_LE(entropy, std::log2(100.0) + 1e-9);
}

} // namespace
