// The radar batch entries end to end: refusals in check order, a batch that goes on past bad inputs, and each
// output's pixels, georeferencing and parameter file against direct computations; water on the real scene.
#include "kit/sar_parameter_file.h"
#include "test_support.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cmath>
#include <complex>
#include <functional>
#include <random>

using namespace testsupport;

namespace
{

struct EntryRun
{
    bool ok = false;
    std::string printed;
};

EntryRun capture(const std::function<bool()>& call)
{
    StdoutCapture out;
    EntryRun run;
    run.ok = call();
    run.printed = out.text();
    return run;
}

bool makeComplex(const QString& path, int width, int height, const std::function<std::complex<float>(int, int)>& value)
{
    GDALAllRegister();
    GDALDataset* dataset = GetGDALDriverManager()->GetDriverByName("GTiff")->Create(path.toUtf8().constData(), width,
                                                                                      height, 1, GDT_CFloat32, nullptr);
    if (!dataset)
        return false;
    std::vector<std::complex<float>> pixels(size_t(width) * height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            pixels[size_t(y) * width + x] = value(x, y);
    const bool ok = dataset->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, width, height, pixels.data(), width, height,
                                                        GDT_CFloat32, 0, 0) == CE_None;
    GDALClose(GDALDataset::ToHandle(dataset));
    return ok;
}

// Sets the unit and description of band 1 of an existing raster.
void describeBand(const QString& path, const char* unit, const char* description)
{
    GDALDataset* dataset = GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_RASTER | GDAL_OF_UPDATE);
    ASSERT_NE(dataset, nullptr);
    dataset->GetRasterBand(1)->SetUnitType(unit);
    dataset->GetRasterBand(1)->SetDescription(description);
    GDALClose(GDALDataset::ToHandle(dataset));
}

SarParameterRecord parameters(int azimuthLooks, int rangeLooks)
{
    SarParameterRecord record;
    record.azimuthLooks = azimuthLooks;
    record.rangeLooks = rangeLooks;
    record.slantRangeSpacing = 2.3;
    record.azimuthSpacing = 1.5;
    record.azimuthLineTime = 0.001;
    record.incidenceAngle = 30.0;
    record.numberOfColumns = 8;
    record.numberOfRows = 7;
    return record;
}

double intensityAt(int x, int y)
{
    return 1.0 + x + 10.0 * y;
}

} // namespace

TEST(SarBatchEntries, RefuseInCheckOrder)
{
    QTemporaryDir dir;
    const QString d = dir.path(), out = d + "/out";
    ASSERT_TRUE(makeRaster(d + "/small.tif", 4, 4, 1, GDT_Float32, [](int, int, int) { return 1.0; }));
    ASSERT_TRUE(makeComplex(d + "/complex.tif", 8, 8, [](int, int) { return std::complex<float>(1, 1); }));
    const std::string missing = (d + "/missing.tif").toStdString(), small = (d + "/small.tif").toStdString(),
                      complex = (d + "/complex.tif").toStdString(), o = out.toStdString();
    const std::string both = small + "|" + complex;
    struct Row
    {
        const char* name;
        std::function<bool()> call;
        std::string expected;
    } rows[] = {
        {"filter: no inputs", [&] { return ExcuteAlgo_Batch_AdaptiveFilter("", o.c_str(), "Lee", 5, nullptr); },
         "[ERROR] Batch_AdaptiveFilter: the parameter InputFiles is empty!\n"},
        {"filter: no folder", [&] { return ExcuteAlgo_Batch_AdaptiveFilter(small.c_str(), "", "Lee", 5, nullptr); },
         "[ERROR] Batch_AdaptiveFilter: the parameter OutputDir is empty!\n"},
        {"filter: unknown word", [&] { return ExcuteAlgo_Batch_AdaptiveFilter(small.c_str(), o.c_str(), "lee", 5, nullptr); },
         "[ERROR] Batch_AdaptiveFilter: the parameter FilterType (lee) must be one of Boxcar, Median, Lee, RefinedLee, "
         "Frost, Kuan, GammaMAP, LeeSigma, IDAN!\n"},
        {"filter: even window", [&] { return ExcuteAlgo_Batch_AdaptiveFilter(small.c_str(), o.c_str(), "Lee", 4, nullptr); },
         "[ERROR] Batch_AdaptiveFilter: the parameter WindowSize (4) must be odd, from 3 to 51!\n"},
        {"filter: every input bad",
         [&] { return ExcuteAlgo_Batch_AdaptiveFilter((both + "|" + missing).c_str(), o.c_str(), "Frost", 5, nullptr); },
         "[ERROR] Batch_AdaptiveFilter: the input " + small + " is smaller than the 5 x 5 window!\n"
         "[ERROR] Batch_AdaptiveFilter: the input " + complex + " is complex: an intensity image is required!\n"
         "[ERROR] Batch_AdaptiveFilter: the input " + missing + " does not exist!\n"},
        {"convert: unknown word", [&] { return ExcuteAlgo_Batch_ComplexDataConvert(complex.c_str(), o.c_str(), "Magnitude", nullptr); },
         "[ERROR] Batch_ComplexDataConvert: the parameter Conversion (Magnitude) must be one of Amplitude, Intensity, "
         "Phase, Real, Imag, dB!\n"},
        {"convert: detected input", [&] { return ExcuteAlgo_Batch_ComplexDataConvert(small.c_str(), o.c_str(), "Phase", nullptr); },
         "[ERROR] Batch_ComplexDataConvert: the input " + small + " is not complex!\n"},
        {"multilook: one look count zero", [&] { return ExcuteAlgo_Batch_MultiLook(small.c_str(), o.c_str(), 0, 2, nullptr); },
         "[ERROR] Batch_MultiLook: the parameter RangeLooks (2) must be 0 together with AzimuthLooks (0)!\n"},
        {"multilook: negative", [&] { return ExcuteAlgo_Batch_MultiLook(small.c_str(), o.c_str(), -1, 2, nullptr); },
         "[ERROR] Batch_MultiLook: the parameter AzimuthLooks (-1) must be from 0 to 1000!\n"},
        {"multilook: square looks need the parameter file",
         [&] { return ExcuteAlgo_Batch_MultiLook(small.c_str(), o.c_str(), 0, 0, nullptr); },
         "[ERROR] Batch_MultiLook: the input " + small + " has no parameter file " + (d + "/small.xml").toStdString() +
             " to choose the looks from!\n"},
        {"dB: missing input", [&] { return ExcuteAlgo_Batch_TransformToDb(missing.c_str(), o.c_str(), nullptr); },
         "[ERROR] Batch_TransformToDb: the input " + missing + " does not exist!\n"},
        {"water: no input", [&] { return ExcuteAlgo_SAR_WaterExtraction("", (o + "/w.tif").c_str(), 0.0, nullptr); },
         "[ERROR] SAR_WaterExtraction: the parameter InputFile is empty!\n"},
        {"water: threshold", [&] { return ExcuteAlgo_SAR_WaterExtraction(small.c_str(), (o + "/w.tif").c_str(), 150.0, nullptr); },
         "[ERROR] SAR_WaterExtraction: the parameter Threshold (150) must be from -100 to 100 dB (0 chooses it)!\n"},
        {"water: complex", [&] { return ExcuteAlgo_SAR_WaterExtraction(complex.c_str(), (o + "/w.tif").c_str(), 0.0, nullptr); },
         "[ERROR] SAR_WaterExtraction: the parameter InputFile (" + complex +
             ") is complex: an intensity image is required!\n"},
    };
    for (const Row& row : rows)
    {
        const EntryRun run = capture(row.call);
        EXPECT_FALSE(run.ok) << row.name;
        EXPECT_EQ(run.printed, row.expected) << row.name;
    }
    EXPECT_TRUE(QDir(out).entryList(QDir::Files).isEmpty());
}

TEST(SarBatchEntries, FilterGoesOnPastBadInputsAndWorksOnIntensityOfDbImages)
{
    QTemporaryDir dir;
    const QString d = dir.path(), out = d + "/out";
    std::mt19937 random(4);
    std::exponential_distribution<double> speckle(1.0);
    std::vector<double> decibels(30 * 20);
    for (double& v : decibels)
        v = 10.0 * std::log10(4.0 * speckle(random));
    ASSERT_TRUE(makeRaster(d + "/scene.tif", 30, 20, 1, GDT_Float32, [&](int, int x, int y) { return decibels[y * 30 + x]; }));
    describeBand(d + "/scene.tif", "dB", "VV");
    ASSERT_TRUE(makeRaster(d + "/plain.tif", 30, 20, 1, GDT_Float32, [](int, int x, int y) { return intensityAt(x, y); }));
    ASSERT_TRUE(WriteSarParameterFile(d + "/plain.xml", parameters(2, 2)));
    const std::string inputs = (d + "/scene.tif|" + d + "/missing.tif|" + d + "/plain.tif").toStdString();

    RecordingResult result;
    const EntryRun run = capture([&] { return ExcuteAlgo_Batch_AdaptiveFilter(inputs.c_str(), out.toLocal8Bit().constData(), "Boxcar", 3, &result.record); });
    ASSERT_TRUE(run.ok) << run.printed;
    const QString sceneOut = out + "/scene_Boxcar.tif", plainOut = out + "/plain_Boxcar.tif";
    EXPECT_EQ(run.printed, ("[ERROR] Batch_AdaptiveFilter: the input " + d + "/missing.tif does not exist!\n"
                            "Judge the rationality of input paramenters sucessfully\n"
                            "start call algorithm plugin: Batch_AdaptiveFilter\n"
                            "[OUTPUT] Batch_AdaptiveFilter_images=\"" + sceneOut + "|" + plainOut + "\"\n")
                               .toStdString() +
                               run.printed.substr(run.printed.find("[OUTPUT] Batch_AdaptiveFilter_ENL=")));
    // The parameter file's 2 x 2 looks for the second image; an estimate for the first (single-look speckle).
    const std::string enlLine = run.printed.substr(run.printed.find("_ENL=\"") + 6);
    EXPECT_EQ(enlLine.substr(enlLine.find('|'), 7), "|4.00\"\n");
    EXPECT_NEAR(std::stod(enlLine), 1.0, 0.6);
    EXPECT_TRUE(QFileInfo::exists(out + "/plain_Boxcar.xml"));
    EXPECT_FALSE(QFileInfo::exists(out + "/scene_Boxcar.xml"));
    for (size_t i = 1; i < result.progress.size(); ++i)
        EXPECT_GE(result.progress[i], result.progress[i - 1]);

    // dB in, dB out, the box mean taken over intensity.
    const std::vector<double> filtered = readBand(sceneOut, 1);
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 30; ++x)
        {
            double sum = 0.0;
            int n = 0;
            for (int v = std::max(0, y - 1); v <= std::min(19, y + 1); ++v)
                for (int u = std::max(0, x - 1); u <= std::min(29, x + 1); ++u, ++n)
                    sum += std::pow(10.0, decibels[v * 30 + u] / 10.0);
            ASSERT_NEAR(filtered[y * 30 + x], 10.0 * std::log10(sum / n), 1e-4) << x << "," << y;
        }
    GDALDataset* written = GDALDataset::Open(sceneOut.toUtf8().constData(), GDAL_OF_RASTER);
    ASSERT_NE(written, nullptr);
    EXPECT_STREQ(written->GetRasterBand(1)->GetUnitType(), "dB");
    EXPECT_STREQ(written->GetRasterBand(1)->GetDescription(), "VV");
    double transform[6];
    EXPECT_EQ(written->GetGeoTransform(transform), CE_None);
    EXPECT_EQ(transform[1], 30.0);
    GDALClose(GDALDataset::ToHandle(written));
}

TEST(SarBatchEntries, ComplexConversionsAndDecibels)
{
    QTemporaryDir dir;
    const QString d = dir.path(), out = d + "/out";
    const auto sample = [](int x, int y) { return std::complex<float>(float(x) - 2.0f, 0.5f * float(y) - 1.0f); };
    ASSERT_TRUE(makeComplex(d + "/slc.tif", 6, 5, sample));
    const std::string slc = (d + "/slc.tif").toStdString(), o = out.toStdString();
    const struct
    {
        const char* word;
        std::function<double(std::complex<float>)> expected;
    } conversions[] = {
        {"Amplitude", [](std::complex<float> z) { return std::hypot(z.real(), z.imag()); }},
        {"Intensity", [](std::complex<float> z) { return double(z.real()) * z.real() + double(z.imag()) * z.imag(); }},
        {"Phase", [](std::complex<float> z) { return std::atan2(z.imag(), z.real()); }},
        {"Real", [](std::complex<float> z) { return z.real(); }},
        {"Imag", [](std::complex<float> z) { return z.imag(); }},
        {"dB", [](std::complex<float> z) {
             const double p = double(z.real()) * z.real() + double(z.imag()) * z.imag();
             return p > 0 ? 10.0 * std::log10(p) : NAN;
         }},
    };
    for (const auto& conversion : conversions)
    {
        const EntryRun run = capture([&] { return ExcuteAlgo_Batch_ComplexDataConvert(slc.c_str(), o.c_str(), conversion.word, nullptr); });
        ASSERT_TRUE(run.ok) << run.printed;
        const QString written = out + "/slc_" + conversion.word + ".tif";
        EXPECT_NE(run.printed.find("[OUTPUT] Batch_ComplexDataConvert_images=\"" + written.toStdString() + "\"\n"),
                  std::string::npos);
        const std::vector<double> values = readBand(written, 1);
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 6; ++x)
            {
                const double expected = conversion.expected(sample(x, y)), got = values[y * 6 + x];
                if (std::isnan(expected))
                    EXPECT_TRUE(std::isnan(got)) << conversion.word;
                else
                    EXPECT_NEAR(got, expected, 1e-5 * std::max(1.0, std::fabs(expected))) << conversion.word;
            }
    }

    // dB of detected images: 20 log10 for amplitude, 10 log10 for intensity, nodata at or below 0; an image
    // already in dB is reported and the others are written.
    ASSERT_TRUE(makeRaster(d + "/amp.tif", 4, 3, 1, GDT_Float32, [](int, int x, int y) { return x + y - 1.0; }));
    describeBand(d + "/amp.tif", "", "HH amplitude");
    ASSERT_TRUE(makeRaster(d + "/power.tif", 4, 3, 1, GDT_Float32, [](int, int x, int y) { return x + y - 1.0; }));
    ASSERT_TRUE(makeRaster(d + "/already.tif", 4, 3, 1, GDT_Float32, [](int, int, int) { return -3.0; }));
    describeBand(d + "/already.tif", "dB", "");
    const std::string list = (d + "/amp.tif|" + d + "/already.tif|" + d + "/power.tif").toStdString();
    const EntryRun run = capture([&] { return ExcuteAlgo_Batch_TransformToDb(list.c_str(), o.c_str(), nullptr); });
    ASSERT_TRUE(run.ok);
    EXPECT_NE(run.printed.find("[OUTPUT] Batch_TransformToDb_images=\"" + o + "/amp_dB.tif|" + o + "/power_dB.tif\"\n"),
              std::string::npos) << run.printed;
    EXPECT_NE(run.printed.find("[OUTPUT] Batch_TransformToDb_failed=\"" + d.toStdString() + "/already.tif: " +
                               d.toStdString() + "/already.tif band 1 is already in dB\"\n"),
              std::string::npos) << run.printed;
    const std::vector<double> amplitude = readBand(out + "/amp_dB.tif", 1), power = readBand(out + "/power_dB.tif", 1);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x)
        {
            const double v = x + y - 1.0;
            if (v <= 0)
            {
                EXPECT_TRUE(std::isnan(amplitude[y * 4 + x]) && std::isnan(power[y * 4 + x]));
                continue;
            }
            EXPECT_NEAR(amplitude[y * 4 + x], 20.0 * std::log10(v), 1e-5);
            EXPECT_NEAR(power[y * 4 + x], 10.0 * std::log10(v), 1e-5);
        }
}

TEST(SarBatchEntries, MultiLookAveragesCellsAndUpdatesTheParameterFile)
{
    QTemporaryDir dir;
    const QString d = dir.path(), out = d + "/out";
    ASSERT_TRUE(makeRaster(d + "/scene.tif", 8, 7, 1, GDT_Float32, [](int, int x, int y) { return intensityAt(x, y); }));
    ASSERT_TRUE(WriteSarParameterFile(d + "/scene.xml", parameters(1, 1)));
    ASSERT_TRUE(makeComplex(d + "/slc.tif", 8, 7, [](int x, int y) { return std::complex<float>(float(x), float(y)); }));
    const std::string inputs = (d + "/scene.tif|" + d + "/slc.tif").toStdString(), o = out.toStdString();
    // 3 azimuth (rows) x 2 range (columns) looks: 4 x 2 cells, the last row and no column left over.
    const EntryRun run = capture([&] { return ExcuteAlgo_Batch_MultiLook(inputs.c_str(), o.c_str(), 3, 2, nullptr); });
    ASSERT_TRUE(run.ok) << run.printed;
    EXPECT_NE(run.printed.find("[OUTPUT] Batch_MultiLook_images=\"" + o + "/scene_ML.tif|" + o + "/slc_ML.tif\"\n"),
              std::string::npos) << run.printed;
    const std::vector<double> detected = readBand(out + "/scene_ML.tif", 1), slc = readBand(out + "/slc_ML.tif", 1);
    ASSERT_EQ(detected.size(), 8u);
    for (int r = 0; r < 2; ++r)
        for (int c = 0; c < 4; ++c)
        {
            double sum = 0.0, power = 0.0;
            for (int y = 3 * r; y < 3 * r + 3; ++y)
                for (int x = 2 * c; x < 2 * c + 2; ++x)
                {
                    sum += intensityAt(x, y);
                    power += x * x + y * y;
                }
            EXPECT_NEAR(detected[r * 4 + c], sum / 6.0, 1e-4);
            EXPECT_NEAR(slc[r * 4 + c], power / 6.0, 1e-4);
        }
    GDALDataset* written = GDALDataset::Open((out + "/scene_ML.tif").toUtf8().constData(), GDAL_OF_RASTER);
    double transform[6];
    ASSERT_EQ(written->GetGeoTransform(transform), CE_None);
    EXPECT_EQ(transform[1], 60.0);
    EXPECT_EQ(transform[5], -90.0);
    GDALClose(GDALDataset::ToHandle(written));
    SarParameterRecord record;
    ASSERT_TRUE(ReadSarParameterFile((out + "/scene_ML.xml").toLocal8Bit().constData(), record));
    EXPECT_EQ(record.azimuthLooks, 3);
    EXPECT_EQ(record.rangeLooks, 2);
    EXPECT_DOUBLE_EQ(record.azimuthSpacing, 4.5);
    EXPECT_DOUBLE_EQ(record.slantRangeSpacing, 4.6);
    EXPECT_DOUBLE_EQ(record.azimuthLineTime, 0.003);
    EXPECT_EQ(record.numberOfColumns, 4);
    EXPECT_EQ(record.numberOfRows, 2);

    // 0 and 0: slant spacing 2.3 m at 30 degrees is 4.6 m on the ground, azimuth 1.5 m: three azimuth looks.
    const std::string one = (d + "/scene.tif").toStdString();
    const EntryRun square = capture([&] { return ExcuteAlgo_Batch_MultiLook(one.c_str(), (o + "/sq").c_str(), 0, 0, nullptr); });
    ASSERT_TRUE(square.ok) << square.printed;
    ASSERT_TRUE(ReadSarParameterFile((out + "/sq/scene_ML.xml").toLocal8Bit().constData(), record));
    EXPECT_EQ(record.azimuthLooks, 3);
    EXPECT_EQ(record.rangeLooks, 1);
}

TEST(SarWaterExtraction, FindsTheThresholdBetweenWaterAndLandAndDropsSpeckles)
{
    QTemporaryDir dir;
    const QString d = dir.path();
    const int width = 200, height = 160;
    std::mt19937 random(21);
    std::normal_distribution<double> land(-8.0, 2.0), lake(-22.0, 1.5);
    std::vector<double> db(size_t(width) * height);
    std::vector<unsigned char> truth(db.size());
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
        {
            const bool isWater = std::hypot(x - 120.0, y - 80.0) < 45.0;
            truth[y * width + x] = isWater;
            db[y * width + x] = isWater ? lake(random) : land(random);
        }
    // Lone dark pixels on land: below any threshold, but patches of one pixel.
    for (int k = 0; k < 20; ++k)
        db[size_t(10 + k * 7) * width + 15] = -30.0;
    ASSERT_TRUE(makeRaster(d + "/db.tif", width, height, 1, GDT_Float32, [&](int, int x, int y) { return db[y * width + x]; }));
    describeBand(d + "/db.tif", "dB", "VV");
    const std::string input = (d + "/db.tif").toStdString(), output = (d + "/water.tif").toStdString();
    const EntryRun run = capture([&] { return ExcuteAlgo_SAR_WaterExtraction(input.c_str(), output.c_str(), 0.0, nullptr); });
    ASSERT_TRUE(run.ok) << run.printed;
    const size_t at = run.printed.find("SAR_WaterExtraction_threshold=\"");
    ASSERT_NE(at, std::string::npos) << run.printed;
    const double threshold = std::stod(run.printed.substr(at + 31));
    EXPECT_GT(threshold, -18.0);
    EXPECT_LT(threshold, -12.0);
    const std::vector<double> classes = readBand(d + "/water.tif", 1);
    long long wrong = 0, water = 0;
    for (size_t i = 0; i < classes.size(); ++i)
    {
        wrong += classes[i] != truth[i];
        water += classes[i] == 1;
    }
    EXPECT_LT(wrong, 10); // the lone pixels are gone; the two normals overlap by less than 1e-4
    // 30 m pixels: the reported area is the water pixel count times 900 m2.
    EXPECT_NE(run.printed.find("[OUTPUT] SAR_WaterExtraction_water_pixels=\"" + std::to_string(water) + "\"\n"), std::string::npos);
    char area[64];
    std::snprintf(area, sizeof area, "%.4f", water * 900.0 / 1e6);
    EXPECT_NE(run.printed.find(std::string("[OUTPUT] SAR_WaterExtraction_area_km2=\"") + area + "\"\n"), std::string::npos);
    GDALDataset* written = GDALDataset::Open(output.c_str(), GDAL_OF_RASTER);
    ASSERT_NE(written, nullptr);
    ASSERT_NE(written->GetRasterBand(1)->GetColorTable(), nullptr);
    char** names = written->GetRasterBand(1)->GetCategoryNames();
    ASSERT_NE(names, nullptr);
    EXPECT_STREQ(names[0], "Non-water");
    EXPECT_STREQ(names[1], "Water");
    GDALClose(GDALDataset::ToHandle(written));

    // A given threshold is used as given.
    const EntryRun fixed = capture([&] { return ExcuteAlgo_SAR_WaterExtraction(input.c_str(), output.c_str(), -15.5, nullptr); });
    EXPECT_NE(fixed.printed.find("SAR_WaterExtraction_threshold=\"-15.50\""), std::string::npos) << fixed.printed;
}

TEST(SarWaterExtraction, RealSentinel1Backscatter)
{
    const char* relative = "sentinel1/S1A__IW___A_20150309T173017_VV_grd_mli_geo_norm_db.tif";
    SKIP_WITHOUT_SHARED_DATA(relative);
    QTemporaryDir dir;
    const std::string input = sharedDataPath(relative).toStdString(), output = (dir.path() + "/water.tif").toStdString();
    const EntryRun run = capture([&] { return ExcuteAlgo_SAR_WaterExtraction(input.c_str(), output.c_str(), 0.0, nullptr); });
    ASSERT_TRUE(run.ok) << run.printed;
    const double threshold = std::stod(run.printed.substr(run.printed.find("_threshold=\"") + 12));
    const std::vector<double> classes = readBand(dir.path() + "/water.tif", 1);
    double water = 0;
    for (double c : classes)
        water += c == 1;
    // Dark patches of the scene: 9.6 % of its pixels lie at or below -20 dB, 25 % at or below -15 dB. The whole
    // scene is bimodal, so the quadtree search stops at its root (Otsu of the scene: -14.00 dB, 28.2 % water).
    EXPECT_GT(threshold, -22.0);
    EXPECT_LT(threshold, -13.5);
    EXPECT_GT(water / classes.size(), 0.05);
    EXPECT_LT(water / classes.size(), 0.30);
    std::printf("real scene: threshold %.2f dB, water %.1f %%\n", threshold, 100.0 * water / classes.size());
}
