// Atmospheric-correction plug-ins: the Landsat 8 sample against the surface reflectance 6S gives for the same
// case, input kinds and no data, the dark-vegetation retrieval on a drawn scene and on the sample, refusals.
#include "band_correction.h"
#include "optical_fixtures.h"
#include "test_support.h"

#include <QFile>

#include <gdal_utils.h>

#include <algorithm>
#include <cmath>

using namespace testsupport;

namespace
{

constexpr double kDegree = M_PI / 180.0;
// From the sample's l8_MTL.txt: every reflective band rescales as 2.0E-05 * DN - 0.1.
constexpr double kSunElevation = 64.74360932, kSunAzimuth = 115.87210674;

double toaOfDn(double dn)
{
    return (2.0e-5 * dn - 0.1) / std::sin(kSunElevation * kDegree);
}

// 6S applies rho_s = y / (1 + S y), y = a rho_toa - b. Three of its outputs give a, b and S.
struct SixSMap
{
    double a = 0, b = 0, s = 0;
    SixSMap(const double toa[3], const double surface[3])
    {
        auto slopeGap = [&](double albedo, double* a0, double* b0) {
            double y[3];
            for (int i = 0; i < 3; ++i)
                y[i] = surface[i] / (1.0 - albedo * surface[i]);
            *a0 = (y[1] - y[0]) / (toa[1] - toa[0]);
            *b0 = *a0 * toa[0] - y[0];
            return (y[2] - y[0]) / (toa[2] - toa[0]) - *a0;
        };
        double lo = 0.0, hi = 0.6;
        for (int it = 0; it < 80; ++it)
        {
            const double mid = 0.5 * (lo + hi);
            (slopeGap(mid, &a, &b) * slopeGap(lo, &a, &b) > 0 ? lo : hi) = mid;
        }
        s = 0.5 * (lo + hi);
        slopeGap(s, &a, &b);
    }
    double operator()(double toa) const
    {
        const double y = a * toa - b;
        return y / (1.0 + s * y);
    }
};

// i.atcorr, geometry "25.256 115.87 0 0 8 4", atmosphere 2, aerosol 1, visibility 23 km (depth 0.2347), OLI
// band codes 116 (band 2) and 123 (band 7), TOA reflectance 0.10, 0.15, 0.30 (see atmosphere_kernels_test.cpp).
const double kToa[3] = {0.10, 0.15, 0.30};
const double kBlue[3] = {0.028298358, 0.095762998, 0.28907233};
const double kRed[3] = {0.086561352, 0.14655977, 0.32267109};
const double kSwir2[3] = {0.11231294, 0.16907042, 0.3389968};

struct CorrectionRun
{
    bool ok = false;
    std::vector<std::string> lines;
    std::string message;
};

CorrectionRun correct(const QString& input, const QString& output, const QString& meta, float visibility = 23.0f,
                      int month = 0, int sensor = 0, int atmosphere = 2, int aerosol = 1)
{
    RecordingResult result;
    CorrectionRun run;
    StdoutCapture capture;
    run.ok = ExcuteAlgo_AtmosphericCorrection(sensor, input.toUtf8(), output.toUtf8(), atmosphere, aerosol, visibility,
                                              month, meta.toUtf8(), &result.record);
    run.lines = lines(capture.text());
    run.message = result.record.message;
    return run;
}

CorrectionRun retrieve(const QString& input, const QString& output, const QString& meta)
{
    RecordingResult result;
    CorrectionRun run;
    StdoutCapture capture;
    run.ok = ExcuteAlgo_VYRAtmCorr(input.toUtf8(), meta.toUtf8(), output.toUtf8(), 0, 2, 1, 0, 0, &result.record);
    run.lines = lines(capture.text());
    run.message = result.record.message;
    return run;
}

// The value of an [OUTPUT] Key="value" line, or NaN.
double outputValue(const std::vector<std::string>& lines, const std::string& key)
{
    const std::string prefix = "[OUTPUT] " + key + "=\"";
    for (const std::string& line : lines)
        if (line.rfind(prefix, 0) == 0)
            return std::stod(line.substr(prefix.size()));
    return NAN;
}

// A Float32 TOA-reflectance raster as our calibration writes it: BAND_ID per band, CALIBRATION on the dataset.
void writeReflectanceStack(const QString& path, int width, int height, const std::vector<std::string>& ids,
                           const std::function<double(int band, int x, int y)>& value)
{
    ASSERT_TRUE(makeGeoTiff(path, width, height, int(ids.size()), GDT_Float32, value, {}, -9999.0));
    GDALDataset* ds = GDALDataset::Open(path.toUtf8().constData(), GDAL_OF_UPDATE);
    ds->SetMetadataItem("CALIBRATION", "TOA reflectance");
    for (size_t b = 0; b < ids.size(); ++b)
        ds->GetRasterBand(int(b) + 1)->SetMetadataItem("BAND_ID", ids[b].c_str());
    GDALClose(ds);
}

} // namespace

TEST(AtmosphericCorrection, LandsatSampleAgreesWithSixS)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_MTL.txt");
    QTemporaryDir dir;
    const QString mtl = sharedDataPath("landsat8/l8_MTL.txt");
    const struct
    {
        const char* file;
        const double* figures;
        const char* description;
    } bands[] = {
        {"l8_B2.tif", kBlue, "B2 (Blue)"}, {"l8_B4.tif", kRed, "B4 (Red)"}, {"l8_B7.tif", kSwir2, "B7 (SWIR 2)"}};
    for (const auto& band : bands)
    {
        const QString input = sharedDataPath(QStringLiteral("landsat8/") + band.file);
        const QString output = dir.filePath(QStringLiteral("sr_") + band.file);
        const CorrectionRun run = correct(input, output, mtl);
        ASSERT_TRUE(run.ok) << run.message;
        // i.atcorr reports 0.2347 for 23 km.
        EXPECT_NEAR(outputValue(run.lines, "AerosolOpticalDepth"), 0.2347, 0.002);
        EXPECT_NE(std::find(run.lines.begin(), run.lines.end(), "[OUTPUT] OutputFile=\"" + output.toStdString() + "\""),
                  run.lines.end());

        const SixSMap sixS(kToa, band.figures);
        const std::vector<double> dn = readBand(input, 1), surface = readBand(output, 1);
        double worst = 0.0;
        size_t checked = 0;
        for (size_t i = 0; i < dn.size(); ++i)
        {
            if (dn[i] == 0)
            {
                EXPECT_EQ(surface[i], -9999.0);
                continue;
            }
            worst = std::max(worst, std::fabs(surface[i] - sixS(toaOfDn(dn[i]))));
            ++checked;
        }
        EXPECT_GT(checked, 1000u);
        // Measured over every pixel: 0.0012 (blue), 0.0024 (red), 0.0041 (SWIR 2); the target is 0.02.
        EXPECT_LT(worst, 0.01) << band.file;

        GDALDataset* ds = GDALDataset::Open(output.toUtf8().constData());
        ASSERT_NE(ds, nullptr);
        EXPECT_STREQ(ds->GetRasterBand(1)->GetDescription(), band.description);
        EXPECT_EQ(ds->GetRasterBand(1)->GetNoDataValue(), -9999.0);
        EXPECT_NE(ds->GetProjectionRef()[0], '\0');
        GDALClose(ds);
    }
}

TEST(AtmosphericCorrection, Sentinel2BandsOfTheSampleProductAgreeWithSixS)
{
    SKIP_WITHOUT_SHARED_DATA("sentinel2/s2_B05.jp2");
    QTemporaryDir dir;
    const QString safe = opticalfixtures::makeSentinel2Safe(dir.path(), "L1C", "04.00", true);
    ASSERT_FALSE(safe.isEmpty());
    // i.atcorr, geometry "60 160 0 0 1 12" (the fixture's tile XML: sun zenith 60, azimuth 160), atmosphere 3
    // (mid-latitude winter), aerosol 1, 23 km; band codes 174 (B8A) and 178 (B12); TOA 0.10, 0.15, 0.30.
    const struct
    {
        const char* band;
        double figures[3];
    } rows[] = {{"B8A", {0.092749886, 0.15028879, 0.32083145}}, {"B12", {0.11112912, 0.16772157, 0.33715591}}};
    for (const auto& row : rows)
    {
        const QString input =
            safe + "/GRANULE/L1C_T18SVG_A002939_20160112T155852/IMG_DATA/T18SVG_20160112T155852_" + row.band + ".jp2";
        const QString output = dir.filePath(QStringLiteral("sr_%1.tif").arg(row.band));
        const CorrectionRun run = correct(input, output, safe + "/MTD_MSIL1C.xml", 23.0f, 0, 2, 3, 1);
        ASSERT_TRUE(run.ok) << run.message;
        const SixSMap sixS(kToa, row.figures);
        const std::vector<double> dn = readBand(input, 1), surface = readBand(output, 1);
        double worst = 0.0;
        for (size_t i = 0; i < dn.size(); ++i)
            if (dn[i] != 0)
                worst = std::max(worst, std::fabs(surface[i] - sixS((dn[i] - 1000) / 10000)));
        // Measured over every pixel: 0.0041 (B8A), 0.0096 (B12, at the brightest pixels).
        EXPECT_LT(worst, 0.015) << row.band;
    }
}

TEST(AtmosphericCorrection, FourBandCameraWithACoefficientTable)
{
    QTemporaryDir dir;
    const QString table = dir.filePath("coefficients.txt"), input = dir.filePath("GF1_WFV1_scene.tif");
    QFile file(table);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(
        "SUN_ELEVATION = 50\nSUN_AZIMUTH = 150\nDATE = 2020-01-15\n"
        "GF1_WFV1 1 0.2 0 1968.65\nGF1_WFV1 2 0.17 0 1849.41\nGF1_WFV1 3 0.16 0 1570.6\nGF1_WFV1 4 0.13 0 1079.0\n");
    file.close();
    ASSERT_TRUE(makeGeoTiff(input, 6, 4, 4, GDT_UInt16,
                            [](int b, int x, int y) { return 200 + 40 * x + 10 * y + 30 * b; }, {}));
    const QString output = dir.filePath("sr.tif");
    const CorrectionRun run = correct(input, output, table, 23.0f, 0, 3);
    ASSERT_TRUE(run.ok) << run.message;

    // pi L d^2 / (ESUN cos(zenith)), d on 15 January from 1 - 0.01672 cos(0.9856 (day - 4)) (within 2e-4 AU).
    const double gain[] = {0.2, 0.17, 0.16, 0.13}, esun[] = {1968.65, 1849.41, 1570.6, 1079.0};
    const double edges[][2] = {{0.45, 0.52}, {0.52, 0.59}, {0.63, 0.69}, {0.77, 0.89}};
    const double d = 1 - 0.01672 * std::cos(0.9856 * (15 - 4) * kDegree);
    atmosphere::AtmosphereState state;
    state.geometry.sunZenithDeg = 40;
    state.geometry.relativeAzimuthDeg = 150;
    state.aerosolDepth550 = 0.2347;
    for (int b = 0; b < 4; ++b)
    {
        const atmosphere::BandCorrection c = atmosphere::bandCorrection({edges[b][0], edges[b][1]}, state);
        const std::vector<double> dn = readBand(input, b + 1), surface = readBand(output, b + 1);
        for (size_t i = 0; i < dn.size(); ++i)
        {
            const double toa = M_PI * gain[b] * dn[i] * d * d / (esun[b] * std::cos(40 * kDegree));
            EXPECT_NEAR(surface[i], c.surfaceReflectance(toa), 2e-3) << b << " " << i;
        }
    }
    // The retrieval needs a 2.1 um band, which such cameras lack.
    const CorrectionRun dark = retrieve(input, dir.filePath("dark.tif"), table);
    EXPECT_FALSE(dark.ok);
    EXPECT_NE(dark.message.find("lacks the blue, red, near-infrared or 2.1 um band"), std::string::npos)
        << dark.message;
}

TEST(AtmosphericCorrection, TakesReflectanceInputAndKeepsNoData)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_MTL.txt");
    QTemporaryDir dir;
    const QString input = dir.filePath("toa.tif"), output = dir.filePath("sr.tif");
    writeReflectanceStack(input, 7, 5, {"2", "4"}, [](int, int x, int) { return x == 0 ? -9999.0 : 0.15; });
    const CorrectionRun run = correct(input, output, sharedDataPath("landsat8/l8_MTL.txt"));
    ASSERT_TRUE(run.ok) << run.message;
    const std::vector<double> blue = readBand(output, 1), red = readBand(output, 2);
    for (size_t i = 0; i < blue.size(); ++i)
    {
        if (i % 7 == 0)
        {
            EXPECT_EQ(blue[i], -9999.0);
            EXPECT_EQ(red[i], -9999.0);
            continue;
        }
        EXPECT_NEAR(blue[i], kBlue[1], 0.005);
        EXPECT_NEAR(red[i], kRed[1], 0.005);
    }
}

TEST(AtmosphericCorrection, RefusesBadArgumentsAndLeavesNothing)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_MTL.txt");
    QTemporaryDir dir;
    const QString mtl = sharedDataPath("landsat8/l8_MTL.txt");
    const QString blue = sharedDataPath("landsat8/l8_B2.tif");
    const QString output = dir.filePath("sr.tif");
    const QString garbage = dir.filePath("garbage.txt");
    QFile file(garbage);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("not metadata\n");
    file.close();
    const struct
    {
        CorrectionRun run;
        std::string expected;
    } rows[] = {
        {correct(blue, output, mtl, 0.0f), "the parameter Visibility (0) must be between 1 and 1000"},
        {correct(blue, output, mtl, 23.0f, 13), "the parameter Month (13) must be between 0 and 12"},
        {correct(blue, output, mtl, 23.0f, 0, 2), "the parameter SensorType (2) does not match MetaFile, which is a "
                                                  "Landsat MTL"},
        {correct(blue, output, mtl, 23.0f, 0, 3), "the parameter SensorType (3) does not match MetaFile"},
        {correct(blue, output, mtl, 23.0f, 0, 0, 7), "the parameter AtmosphereModel (7) must be between 0 and 6"},
        {correct(blue, output, mtl, 23.0f, 0, 0, 2, 5), "the parameter AerosolModel (5) must be between 0 and 4"},
        {correct(blue, output, garbage), "the parameter MetaFile (" + garbage.toStdString() + ") cannot be used"},
        {correct(sharedDataPath("landsat8/l8_B10.tif"), output, mtl), "holds the thermal band 10"},
        {correct(blue, blue, mtl), "must differ from the input"},
    };
    for (const auto& row : rows)
    {
        EXPECT_FALSE(row.run.ok) << row.expected;
        EXPECT_NE(row.run.message.find(row.expected), std::string::npos) << row.run.message;
        EXPECT_FALSE(QFile::exists(output)) << row.expected;
    }
}

TEST(VYRAtmCorr, RetrievesTheDepthOfADrawnScene)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_MTL.txt");
    // Left: dark dense vegetation (2.1 um 0.05, so blue 0.0125 and red 0.025); right: bright soil. TOA
    // reflectance through the kernel's forward model at depth 0.35 for the sample's sun.
    atmosphere::AtmosphereState state;
    state.aerosolDepth550 = 0.35;
    state.geometry.sunZenithDeg = 90.0 - kSunElevation;
    state.geometry.relativeAzimuthDeg = kSunAzimuth;
    const std::vector<std::string> ids = {"2", "3", "4", "5", "6", "7"};
    const double vegetation[] = {0.0125, 0.05, 0.025, 0.30, 0.15, 0.05};
    std::vector<atmosphere::BandCorrection> forward;
    for (const std::string& id : ids)
        forward.push_back(atmosphere::bandCorrection(atmosphere::spectralBand("OLI_TIRS", id, 0), state));
    QTemporaryDir dir;
    const QString input = dir.filePath("toa.tif"), output = dir.filePath("sr.tif");
    writeReflectanceStack(input, 40, 30, ids, [&](int b, int x, int) {
        return forward[size_t(b)].topOfAtmosphere(x < 20 ? vegetation[b] : 0.25);
    });
    const CorrectionRun run = retrieve(input, output, sharedDataPath("landsat8/l8_MTL.txt"));
    ASSERT_TRUE(run.ok) << run.message;
    EXPECT_NEAR(outputValue(run.lines, "AerosolOpticalDepth"), 0.35, 0.02);
    EXPECT_EQ(outputValue(run.lines, "DarkTargets"), 600.0);
    const std::vector<double> blue = readBand(output, 1), nir = readBand(output, 4);
    EXPECT_NEAR(blue[0], 0.0125, 0.003);
    EXPECT_NEAR(nir[0], 0.30, 0.005);
    EXPECT_NEAR(blue[39], 0.25, 0.01);

    // Without vegetation there is nothing to retrieve from.
    writeReflectanceStack(input, 40, 30, ids,
                          [&](int b, int, int) { return forward[size_t(b)].topOfAtmosphere(0.25); });
    const QString bareOutput = dir.filePath("bare_sr.tif");
    const CorrectionRun bare = retrieve(input, bareOutput, sharedDataPath("landsat8/l8_MTL.txt"));
    EXPECT_FALSE(bare.ok);
    EXPECT_NE(bare.message.find("has too little dark dense vegetation (0 pixels)"), std::string::npos) << bare.message;
    EXPECT_FALSE(QFile::exists(bareOutput));
}

TEST(VYRAtmCorr, RunsOnTheLandsatSample)
{
    SKIP_WITHOUT_SHARED_DATA("landsat8/l8_MTL.txt");
    QTemporaryDir dir;
    GDALAllRegister();
    // Bands 1-7 stacked, tied to the MTL by their BAND_ID.
    QStringList sources;
    for (int b = 1; b <= 7; ++b)
        sources << sharedDataPath(QStringLiteral("landsat8/l8_B%1.tif").arg(b));
    std::vector<QByteArray> names;
    std::vector<const char*> pointers;
    for (const QString& s : sources)
        names.push_back(s.toUtf8());
    for (const QByteArray& n : names)
        pointers.push_back(n.constData());
    const char* options[] = {"-separate", nullptr};
    GDALBuildVRTOptions* vrtOptions = GDALBuildVRTOptionsNew(const_cast<char**>(options), nullptr);
    const QString stack = dir.filePath("l8_stack.vrt"), output = dir.filePath("l8_sr.tif");
    GDALDatasetH vrt =
        GDALBuildVRT(stack.toUtf8().constData(), int(pointers.size()), nullptr, pointers.data(), vrtOptions, nullptr);
    GDALBuildVRTOptionsFree(vrtOptions);
    ASSERT_NE(vrt, nullptr);
    for (int b = 1; b <= 7; ++b)
        GDALSetMetadataItem(GDALGetRasterBand(vrt, b), "BAND_ID", std::to_string(b).c_str(), nullptr);
    GDALClose(vrt);

    const CorrectionRun run = retrieve(stack, output, sharedDataPath("landsat8/l8_MTL.txt"));
    ASSERT_TRUE(run.ok) << run.message;
    const double depth = outputValue(run.lines, "AerosolOpticalDepth");
    EXPECT_GT(depth, 0.0);
    EXPECT_LT(depth, 1.5);
    EXPECT_GT(outputValue(run.lines, "DarkTargets"), 100.0);
    // With that depth the visibility-driven correction gives the same image.
    const double visibility = outputValue(run.lines, "Visibility");
    const QString direct = dir.filePath("l8_sr_direct.tif");
    ASSERT_TRUE(correct(stack, direct, sharedDataPath("landsat8/l8_MTL.txt"), float(visibility)).ok);
    const std::vector<double> a = readBand(output, 4), b = readBand(direct, 4);
    for (size_t i = 0; i < a.size(); i += 97)
        EXPECT_NEAR(a[i], b[i], 2e-3);
}
