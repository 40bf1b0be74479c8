// The hyperspectral analysis plug-ins through their entries: pixel values against the references, output
// metadata, [OUTPUT] lines, refusals that leave nothing behind, and runs on the real AVIRIS-NG chip.
#include "references.h"
#include "test_support.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTextStream>
#include <cmath>
#include <functional>
#include <memory>

using namespace testsupport;
using namespace hysref;

namespace
{

using Value = std::function<double(int band, int x, int y)>;

struct Closer
{
    void operator()(GDALDataset* d) const { GDALClose(GDALDataset::ToHandle(d)); }
};
using Dataset = std::unique_ptr<GDALDataset, Closer>;

Dataset open(const QString& path)
{
    GDALAllRegister();
    return Dataset(GDALDataset::FromHandle(GDALOpen(path.toUtf8().constData(), GA_ReadOnly)));
}

// A cube with band wavelengths: GTiff band metadata, or for ENVI the header lists (with an optional bad-band list).
bool makeCube(const QString& path, int width, int height, const std::vector<double>& wavelengths, const Value& value,
              const std::vector<int>& bbl = {})
{
    const int bands = int(wavelengths.size());
    const bool envi = path.endsWith(".dat");
    if (!makeRaster(path, width, height, bands, GDT_Float32, value, envi ? "ENVI" : "GTiff"))
        return false;
    GDALDataset* dataset = GDALDataset::FromHandle(GDALOpen(path.toUtf8().constData(), GA_Update));
    QStringList list, bad;
    for (int b = 0; b < bands; ++b)
    {
        list << QString::number(wavelengths[size_t(b)], 'g', 10);
        if (!envi)
            dataset->GetRasterBand(b + 1)->SetMetadataItem("wavelength", list.back().toUtf8().constData());
        bad << QString::number(bbl.empty() ? 1 : bbl[size_t(b)]);
    }
    if (envi)
    {
        dataset->SetMetadataItem("wavelength", ("{" + list.join(",") + "}").toUtf8().constData(), "ENVI");
        dataset->SetMetadataItem("wavelength_units", "Nanometers", "ENVI");
        if (!bbl.empty())
            dataset->SetMetadataItem("bbl", ("{" + bad.join(",") + "}").toUtf8().constData(), "ENVI");
    }
    GDALClose(GDALDataset::ToHandle(dataset));
    return true;
}

// The spectrum of pixel (x, y) over the given 0-based bands.
std::vector<double> spectrum(const Value& f, const std::vector<int>& bands, int x, int y)
{
    std::vector<double> s;
    for (int b : bands)
        s.push_back(double(float(f(b, x, y)))); // as stored in Float32
    return s;
}

std::string message(const RecordingResult& result)
{
    return result.record.message;
}

std::string outputLine(const QString& key, const QString& value)
{
    return QStringLiteral("[OUTPUT] %1=\"%2\"").arg(key, value).toStdString();
}

TEST(HyperspectralAnalysisPlugins, ContinuumRemovalDividesByTheHullAndBlanksBadBands)
{
    QTemporaryDir dir;
    const QString input = dir.path() + "/cube.dat", output = dir.path() + "/removed.dat";
    const std::vector<double> wavelengths{400, 410, 425, 430, 470, 480, 520, 600, 610, 700};
    const std::vector<int> bbl{1, 1, 1, 1, 0, 1, 1, 1, 1, 1};
    const Value f = [](int b, int x, int y) { return 0.2 + 0.05 * ((b * 7 + x * 3 + y * 5) % 9) + 0.01 * b * x; };
    ASSERT_TRUE(makeCube(input, 6, 4, wavelengths, f, bbl));
    StdoutCapture capture;
    RecordingResult result;
    const bool ok = ExcuteAlgo_ContinuumRemoval(input.toLocal8Bit(), output.toLocal8Bit(), &result.record);
    const std::vector<std::string> printed = lines(capture.text());
    ASSERT_TRUE(ok) << message(result);
    EXPECT_EQ(printed.back(), outputLine("OutputFile", output));

    Dataset out = open(output);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->GetRasterCount(), 10);
    EXPECT_EQ(QString(out->GetRasterBand(7)->GetMetadataItem("wavelength")).toDouble(), 520.0);
    EXPECT_STREQ(out->GetMetadataItem("bbl", "ENVI"), "{1, 1, 1, 1, 0, 1, 1, 1, 1, 1}");
    int hasNoData = 0;
    EXPECT_TRUE(std::isnan(out->GetRasterBand(1)->GetNoDataValue(&hasNoData)) && hasNoData);
    const std::vector<int> good{0, 1, 2, 3, 5, 6, 7, 8, 9};
    std::vector<double> x;
    for (int b : good)
        x.push_back(wavelengths[size_t(b)]);
    for (int b = 0; b < 10; ++b)
    {
        const std::vector<double> values = readBand(output, b + 1);
        for (int py = 0; py < 4; ++py)
            for (int px = 0; px < 6; ++px)
            {
                const double v = values[size_t(py * 6 + px)];
                if (b == 4)
                {
                    EXPECT_TRUE(std::isnan(v));
                    continue;
                }
                const std::vector<double> s = spectrum(f, good, px, py);
                const size_t i = size_t(std::find(good.begin(), good.end(), b) - good.begin());
                EXPECT_NEAR(v, s[i] / bruteContinuum(x, s, i), 1e-6) << b << " " << px << " " << py;
            }
    }
}

TEST(HyperspectralAnalysisPlugins, SpectralDerivativesByCentralDifferencesOverScaledWavelengths)
{
    QTemporaryDir dir;
    const QString input = dir.path() + "/cube.tif";
    const std::vector<double> wavelengths{450, 460, 475, 480, 500, 505, 530, 560, 565};
    const Value f = [](int b, int x, int y) { return 100.0 + 3.0 * b * b + 7.0 * x - y * b + (b * x % 4); };
    ASSERT_TRUE(makeCube(input, 3, 2, wavelengths, f));
    struct Case
    {
        int order, gap;
        double scale;
    };
    for (const Case& c : {Case{1, 2, 0.001}, Case{2, 1, 1.0}, Case{2, 3, 0.001}})
    {
        const QString output = dir.path() + QStringLiteral("/d%1_%2.tif").arg(c.order).arg(c.gap);
        StdoutCapture capture;
        RecordingResult result;
        const bool ok = ExcuteAlgo_HysSpectralDifferential(input.toLocal8Bit(), output.toLocal8Bit(), c.order, c.gap,
                                                           c.scale, &result.record);
        capture.text();
        ASSERT_TRUE(ok) << message(result);
        Dataset out = open(output);
        ASSERT_EQ(out->GetRasterCount(), 9);
        EXPECT_STREQ(out->GetRasterBand(5)->GetMetadataItem("wavelength"), "500");
        for (int b = 0; b < 9; ++b)
        {
            const std::vector<double> values = readBand(output, b + 1);
            for (int p = 0; p < 6; ++p)
            {
                const int px = p % 3, py = p / 3;
                if (b < c.gap || b >= 9 - c.gap)
                {
                    EXPECT_TRUE(std::isnan(values[size_t(p)])) << b;
                    continue;
                }
                const double span = c.scale * (wavelengths[size_t(b + c.gap)] - wavelengths[size_t(b - c.gap)]);
                const double up = f(b + c.gap, px, py), down = f(b - c.gap, px, py), centre = f(b, px, py);
                const double expected =
                    c.order == 1 ? (up - down) / span : (up - 2 * centre + down) / ((span / 2) * (span / 2));
                EXPECT_NEAR(values[size_t(p)], expected, 1e-5 * std::abs(expected) + 1e-6) << c.order << " band " << b;
            }
        }
    }
}

// Pixels of a cube as columns (x fastest), over every band.
Eigen::MatrixXd columns(const Value& f, int bands, int width, int height)
{
    Eigen::MatrixXd data(bands, width * height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int b = 0; b < bands; ++b)
                data(b, y * width + x) = double(float(f(b, x, y)));
    return data;
}

TEST(HyperspectralAnalysisPlugins, RxScoresEqualTheDenseComputationForEveryMethod)
{
    QTemporaryDir dir;
    const QString input = dir.path() + "/cube.tif";
    const int width = 9, height = 8, bands = 4;
    // Correlated bands with a planted anomaly at (6, 2).
    const Value f = [](int b, int x, int y) {
        const double t = std::sin(1.3 * x + 0.7 * y) + 0.3 * ((x * 5 + y * 3) % 7);
        const double u = std::cos(0.9 * x * y + b);
        double v = 50.0 + 10.0 * t * (b + 1) + 3.0 * u + 0.5 * ((x * 7 + y * 11 + b * 5 + x * y * b) % 13);
        if (x == 6 && y == 2)
            v += b % 2 ? 12.0 : -12.0;
        return v;
    };
    ASSERT_TRUE(makeCube(input, width, height, {500, 600, 700, 800}, f));
    const Eigen::MatrixXd data = columns(f, bands, width, height);
    Eigen::VectorXd globalMean;
    const Eigen::MatrixXd globalCovariance = shrunkCovariance(data, &globalMean);

    // Background of (x, y): the window of radius `outer` less the guard of radius `guard`, clipped to the image.
    auto annulus = [&](int x, int y, int outer, int guard) {
        std::vector<int> indices;
        for (int r = std::max(0, y - outer); r <= std::min(height - 1, y + outer); ++r)
            for (int c = std::max(0, x - outer); c <= std::min(width - 1, x + outer); ++c)
                if (std::abs(r - y) > guard || std::abs(c - x) > guard)
                    indices.push_back(r * width + c);
        Eigen::MatrixXd background(bands, Eigen::Index(indices.size()));
        for (size_t j = 0; j < indices.size(); ++j)
            background.col(Eigen::Index(j)) = data.col(indices[j]);
        return background;
    };
    struct Case
    {
        int method, window, guard;
    };
    for (const Case& c : {Case{0, 0, 0}, Case{1, 5, 0}, Case{1, 7, 1}, Case{2, 7, 1}})
    {
        const QString output = dir.path() + QStringLiteral("/rx%1_%2.tif").arg(c.method).arg(c.window);
        StdoutCapture capture;
        RecordingResult result;
        const bool ok = ExcuteAlgo_RXAnomalyDetection(input.toLocal8Bit(), output.toLocal8Bit(), c.method, c.window,
                                                      &result.record);
        capture.text();
        ASSERT_TRUE(ok) << message(result);
        ASSERT_FALSE(result.progress.empty());
        EXPECT_TRUE(std::is_sorted(result.progress.begin(), result.progress.end()));
        const std::vector<double> scores = readBand(output, 1);
        ASSERT_EQ(scores.size(), size_t(width * height));
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
            {
                const Eigen::VectorXd pixel = data.col(y * width + x);
                double expected = 0.0;
                if (c.method == 0)
                    expected = denseRx(data, pixel);
                else if (c.method == 1)
                    expected = denseRx(annulus(x, y, c.window / 2, c.guard), pixel);
                else
                {
                    const Eigen::VectorXd d = pixel - annulus(x, y, c.window / 2, c.guard).rowwise().mean();
                    expected = d.dot(globalCovariance.fullPivLu().solve(d));
                }
                EXPECT_NEAR(scores[size_t(y * width + x)], expected, 1e-4 * expected + 1e-5)
                    << "method " << c.method << " window " << c.window << " at " << x << "," << y;
            }
        if (c.method != 1)
        {
            EXPECT_EQ(std::max_element(scores.begin(), scores.end()) - scores.begin(), 2 * width + 6) << c.method;
        }
    }
}

TEST(HyperspectralAnalysisPlugins, SavitzkyGolayFitsEachWindowOverTheListedBandsOfTheRegion)
{
    QTemporaryDir dir;
    const QString input = dir.path() + "/cube.tif", output = dir.path() + "/sg.tif";
    std::vector<double> wavelengths;
    for (int b = 0; b < 12; ++b)
        wavelengths.push_back(400 + 10 * b);
    const Value f = [](int b, int x, int y) { return std::sin(0.5 * b + x) * 10 + y + 0.3 * ((b * 3 + x) % 4); };
    ASSERT_TRUE(makeCube(input, 5, 4, wavelengths, f));
    StdoutCapture capture;
    RecordingResult result;
    const bool ok = ExcuteAlgo_SavitzkyGolayFiltering(input.toLocal8Bit(), output.toLocal8Bit(), "2|4|5|6|7|8|9|11",
                                                      "1|3|2|3", 5, 2, 1, &result.record);
    const std::vector<std::string> printed = lines(capture.text());
    ASSERT_TRUE(ok) << message(result);
    EXPECT_EQ(printed.back(), outputLine("OutputFile", output));
    Dataset in = open(input), out = open(output);
    ASSERT_EQ(out->GetRasterXSize(), 3);
    ASSERT_EQ(out->GetRasterYSize(), 2);
    ASSERT_EQ(out->GetRasterCount(), 8);
    double gtIn[6], gtOut[6];
    in->GetGeoTransform(gtIn);
    out->GetGeoTransform(gtOut);
    EXPECT_DOUBLE_EQ(gtOut[0], gtIn[0] + 1 * gtIn[1]);
    EXPECT_DOUBLE_EQ(gtOut[3], gtIn[3] + 2 * gtIn[5]);
    EXPECT_STREQ(out->GetRasterBand(3)->GetMetadataItem("wavelength"), "440");
    const std::vector<int> bands{1, 3, 4, 5, 6, 7, 8, 10};
    for (int k = 0; k < 8; ++k)
    {
        const std::vector<double> values = readBand(output, k + 1);
        for (int p = 0; p < 6; ++p)
        {
            const std::vector<double> s = spectrum(f, bands, 1 + p % 3, 2 + p / 3);
            const int start = k < 2 ? 0 : k >= 6 ? 3 : k - 2;
            EXPECT_NEAR(values[size_t(p)], fittedDerivative(s, start, 5, 2, 1, k - start), 1e-4) << k << " " << p;
        }
    }
}

// Spectra for the unmixing test: four of the USGS library when it is there (the first with no missing values
// and no two closer than 0.15 rad), otherwise four made-up absorption spectra.
std::vector<std::vector<double>> librarySpectra(int& bands)
{
    std::vector<std::vector<double>> chosen;
    const QString library = sharedDataPath("hyperspectral/s06av95a_envi.sli");
    QFile file(library);
    if (!library.isEmpty() && file.open(QIODevice::ReadOnly))
    {
        bands = 224;
        const QByteArray all = file.readAll();
        const double* values = reinterpret_cast<const double*>(all.constData());
        const int count = int(all.size() / (224 * sizeof(double)));
        for (int s = 0; s < count && chosen.size() < 4; ++s)
        {
            std::vector<double> candidate(values + size_t(s) * 224, values + size_t(s + 1) * 224);
            if (*std::min_element(candidate.begin(), candidate.end()) < 0.01 ||
                *std::max_element(candidate.begin(), candidate.end()) > 1.0)
                continue;
            bool distinct = true;
            for (const auto& other : chosen)
            {
                const Eigen::Map<const Eigen::VectorXd> a(candidate.data(), 224), b(other.data(), 224);
                distinct = distinct && std::acos(std::min(1.0, a.dot(b) / a.norm() / b.norm())) > 0.15;
            }
            if (distinct)
                chosen.push_back(candidate);
        }
        if (chosen.size() == 4)
            return chosen;
        chosen.clear();
    }
    bands = 60;
    for (int e = 0; e < 4; ++e)
    {
        std::vector<double> s;
        for (int b = 0; b < bands; ++b)
            s.push_back(0.3 + 0.1 * e + 0.004 * b * (e % 2 ? 1 : -0.5) -
                        0.25 * std::exp(-0.5 * std::pow((b - 10.0 - 12.0 * e) / 3.0, 2)));
        chosen.push_back(s);
    }
    return chosen;
}

TEST(HyperspectralAnalysisPlugins, VcaRecoversTheEndmembersAndAbundancesOfALinearMixture)
{
    QTemporaryDir dir;
    int bands = 0;
    const std::vector<std::vector<double>> truth = librarySpectra(bands);
    const int width = 24, height = 20, q = 4;
    // Abundances from a fixed generator, normalised to one; four pure pixels; a little noise.
    std::vector<std::array<double, 4>> abundances(size_t(width * height));
    unsigned state = 12345;
    auto next = [&state] { return (state = state * 1103515245u + 12345u) / 4294967296.0; };
    for (auto& a : abundances)
    {
        double sum = 0;
        for (double& v : a)
            sum += (v = std::pow(next(), 2.0));
        for (double& v : a)
            v /= sum;
    }
    for (int e = 0; e < q; ++e)
    {
        abundances[size_t(3 + e * 5 + (2 + e * 4) * width)] = {0, 0, 0, 0};
        abundances[size_t(3 + e * 5 + (2 + e * 4) * width)][size_t(e)] = 1.0;
    }
    const Value f = [&](int b, int x, int y) {
        double v = 0;
        for (int e = 0; e < q; ++e)
            v += abundances[size_t(y * width + x)][size_t(e)] * truth[size_t(e)][size_t(b)];
        return v + 0.0005 * (((x * 7 + y * 13 + b * 3) % 11) - 5) / 5.0;
    };
    std::vector<double> wavelengths;
    for (int b = 0; b < bands; ++b)
        wavelengths.push_back(0.4 + 0.01 * b);
    const QString input = dir.path() + "/mix.tif", library = dir.path() + "/em.sli";
    ASSERT_TRUE(makeCube(input, width, height, wavelengths, f));
    StdoutCapture capture;
    RecordingResult result;
    const bool ok = ExcuteAlgo_VertexComponentAnalysis(input.toLocal8Bit(), library.toLocal8Bit(), q, &result.record);
    const std::vector<std::string> out = lines(capture.text());
    ASSERT_TRUE(ok) << message(result);
    const QString header = dir.path() + "/em.hdr", csv = dir.path() + "/em.csv", map = dir.path() + "/em_abundance.tif";
    ASSERT_EQ(out.size(), 5u);
    EXPECT_EQ(out[1], outputLine("OutputFile", library));
    EXPECT_EQ(out[2], outputLine("LibraryHeader", header));
    EXPECT_EQ(out[3], outputLine("EndmemberCsv", csv));
    EXPECT_EQ(out[4], outputLine("AbundanceFile", map));

    // The library: q spectra of Float32 samples; the header names and places them.
    QFile sli(library);
    ASSERT_TRUE(sli.open(QIODevice::ReadOnly));
    const QByteArray raw = sli.readAll();
    ASSERT_EQ(raw.size(), qsizetype(q * bands * 4));
    const float* found = reinterpret_cast<const float*>(raw.constData());
    QFile headerFile(header);
    ASSERT_TRUE(headerFile.open(QIODevice::ReadOnly | QIODevice::Text));
    const QString headerText = headerFile.readAll();
    EXPECT_TRUE(headerText.startsWith("ENVI\n"));
    EXPECT_TRUE(headerText.contains("file type = ENVI Spectral Library\n"));
    EXPECT_TRUE(headerText.contains(QStringLiteral("samples = %1\nlines = 4\n").arg(bands)));
    EXPECT_TRUE(headerText.contains("spectra names = {Endmember 1 at x"));
    EXPECT_TRUE(headerText.contains("wavelength = {0.4, 0.41, 0.42,"));
    QFile csvFile(csv);
    ASSERT_TRUE(csvFile.open(QIODevice::ReadOnly | QIODevice::Text));
    const QStringList rows = QString(csvFile.readAll()).split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(rows.size(), bands + 1);
    EXPECT_TRUE(rows[0].startsWith("band,wavelength,Endmember 1 at x"));
    EXPECT_EQ(rows[1].split(',').size(), 2 + q);

    // Every true endmember within 0.05 rad of one found; its abundance map within 0.02 of the truth.
    for (int e = 0; e < q; ++e)
    {
        const Eigen::Map<const Eigen::VectorXd> t(truth[size_t(e)].data(), bands);
        double bestAngle = 10.0;
        int match = -1;
        for (int i = 0; i < q; ++i)
        {
            const Eigen::VectorXd s =
                Eigen::Map<const Eigen::VectorXf>(found + size_t(i) * bands, bands).cast<double>();
            const double angle = std::acos(std::min(1.0, s.dot(t) / s.norm() / t.norm()));
            if (angle < bestAngle)
                bestAngle = angle, match = i;
        }
        EXPECT_LT(bestAngle, 0.05) << "endmember " << e;
        const std::vector<double> estimated = readBand(map, match + 1);
        ASSERT_EQ(estimated.size(), size_t(width * height));
        double worst = 0.0;
        for (size_t p = 0; p < estimated.size(); ++p)
            worst = std::max(worst, std::abs(estimated[p] - abundances[p][size_t(e)]));
        EXPECT_LT(worst, 0.02) << "endmember " << e;
    }
    double sumError = 0.0;
    std::vector<std::vector<double>> maps;
    for (int i = 0; i < q; ++i)
        maps.push_back(readBand(map, i + 1));
    for (size_t p = 0; p < maps[0].size(); ++p)
        sumError = std::max(sumError, std::abs(maps[0][p] + maps[1][p] + maps[2][p] + maps[3][p] - 1.0));
    EXPECT_LT(sumError, 1e-5);
}

TEST(HyperspectralAnalysisPlugins, ThresholdSplitGivenOrByOtsuKeepsNoDataAndNamesTheClasses)
{
    QTemporaryDir dir;
    const QString input = dir.path() + "/band.tif";
    // Band 2: two modes around 40 and 160, with no-data (-1) on one column.
    const Value f = [](int b, int x, int y) {
        if (x == 7)
            return -1.0;
        return b == 0 ? 5.0 : ((x + y) % 3 == 0 ? 150.0 + (x * y) % 23 : 30.0 + (x * 7 + y) % 19);
    };
    ASSERT_TRUE(makeGeoTiff(input, 16, 10, 2, GDT_Int16, f, {}, -1.0));
    std::vector<int> values;
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 16; ++x)
            if (x != 7)
                values.push_back(int(f(1, x, y)));
    // Otsu by brute force over every split of the raw values.
    double best = -1.0;
    int split = 0;
    for (int t = 1; t <= 200; ++t)
    {
        double n0 = 0, n1 = 0, s0 = 0, s1 = 0;
        for (int v : values)
            (v < t ? n0 : n1) += 1, (v < t ? s0 : s1) += v;
        if (n0 > 0 && n1 > 0 && n0 * n1 * std::pow(s0 / n0 - s1 / n1, 2) > best + 1e-9)
            best = n0 * n1 * std::pow(s0 / n0 - s1 / n1, 2), split = t;
    }
    for (const double threshold : {std::nan(""), 100.0})
    {
        const QString output = dir.path() + (std::isnan(threshold) ? "/otsu.tif" : "/fixed.tif");
        StdoutCapture capture;
        RecordingResult result;
        const bool ok =
            ExcuteAlgo_ThresholdSplit(input.toLocal8Bit(), 2, threshold, output.toLocal8Bit(), &result.record);
        const std::vector<std::string> out = lines(capture.text());
        ASSERT_TRUE(ok) << message(result);
        ASSERT_EQ(out.size(), 3u);
        EXPECT_EQ(out[1], outputLine("OutputFile", output));
        const double used = QString::fromStdString(out[2]).section('"', 1, 1).toDouble();
        EXPECT_EQ(out[2].rfind("[OUTPUT] Threshold=\"", 0), 0u);
        if (!std::isnan(threshold))
        {
            EXPECT_EQ(used, 100.0);
        }
        const double effective = std::isnan(threshold) ? split : 100.0;
        // Every value below the brute-force split is below the reported threshold, every other at or above.
        for (int v : values)
            EXPECT_EQ(v >= used, v >= effective) << v;
        const std::vector<double> classes = readBand(output, 1);
        for (int y = 0; y < 10; ++y)
            for (int x = 0; x < 16; ++x)
                EXPECT_EQ(classes[size_t(y * 16 + x)], x == 7 ? 255.0 : f(1, x, y) >= effective ? 1.0 : 0.0);
        Dataset split = open(output);
        GDALRasterBand* band = split->GetRasterBand(1);
        EXPECT_EQ(band->GetRasterDataType(), GDT_Byte);
        EXPECT_EQ(band->GetNoDataValue(), 255.0);
        ASSERT_NE(band->GetColorTable(), nullptr);
        // GeoTIFF pads the table to 256 entries; the two classes are black and white.
        EXPECT_EQ(band->GetColorTable()->GetColorEntry(0)->c1, 0);
        EXPECT_EQ(band->GetColorTable()->GetColorEntry(1)->c1, 255);
        char** names = band->GetCategoryNames();
        ASSERT_EQ(CSLCount(names), 2);
        EXPECT_STREQ(names[0], "Below threshold");
        EXPECT_STREQ(names[1], "At or above threshold");
    }
}

TEST(HyperspectralAnalysisPlugins, BadInputIsRefusedWithOneMessageAndNothingLeftBehind)
{
    QTemporaryDir dir;
    const QString single = dir.path() + "/single.tif", cube = dir.path() + "/cube.tif", flat = dir.path() + "/flat.tif";
    ASSERT_TRUE(makeRaster(single, 7, 6, 1, GDT_Float32, [](int, int x, int y) { return x + y; }));
    ASSERT_TRUE(
        makeCube(cube, 7, 6, {500, 550, 600, 650}, [](int b, int x, int y) { return b * x + y * y + (x * y % 5); }));
    ASSERT_TRUE(makeCube(flat, 7, 6, {500, 550, 600}, [](int b, int, int) { return 3.0 + b; }));
    const QString out = dir.path() + "/out.tif";
    const QByteArray o = out.toLocal8Bit(), s = single.toLocal8Bit(), c = cube.toLocal8Bit(), z = flat.toLocal8Bit();
    struct Row
    {
        std::function<bool(AlgoResult*)> call;
        QString message;
    };
    const std::vector<Row> rows = {
        {[&](AlgoResult* r) { return ExcuteAlgo_ContinuumRemoval(s, o, r); },
         "ContinuumRemoval: the parameter InputFile (" + single + ") must have at least 2 bands, it has 1!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_HysSpectralDifferential(c, o, 3, 1, 1.0, r); },
         "HysSpectralDifferential: the parameter Order (3) must be one of 1, 2!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_HysSpectralDifferential(c, o, 1, 2, 1.0, r); },
         "HysSpectralDifferential: the parameter Interval (2) must be at most 1!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_RXAnomalyDetection(c, o, 1, 4, r); },
         "RXAnomalyDetection: the parameter WindowSize (4) must be odd!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_RXAnomalyDetection(c, o, 2, 7, r); },
         "RXAnomalyDetection: the parameter WindowSize (7) must not exceed the image's 7 x 6 pixels!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_RXAnomalyDetection(z, o, 0, 0, r); },
         "RXAnomalyDetection: the parameter InputFile (" + flat +
             ") has a singular covariance (a band is constant or a combination of others)!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_SavitzkyGolayFiltering(c, o, "", "", 3, 3, 0, r); },
         "SavitzkyGolayFiltering: the parameter PolyOrder (3) must be less than WindowSize (3)!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_SavitzkyGolayFiltering(c, o, "1|2|9", "", 3, 1, 0, r); },
         "SavitzkyGolayFiltering: the parameter Bands (1|2|9) must list bands between 1 and 4, not 9!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_SavitzkyGolayFiltering(c, o, "", "0|9|0|2", 3, 1, 0, r); },
         "SavitzkyGolayFiltering: the parameter Region (0|9|0|2) must be x0|x1|y0|y1 with 0 <= x0 <= x1 < 7 and "
         "0 <= y0 <= y1 < 6!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_SavitzkyGolayFiltering(c, o, "1|2|3", "", 5, 1, 0, r); },
         "SavitzkyGolayFiltering: the parameter WindowSize (5) must not exceed the 3 bands filtered!"},
        {[&](AlgoResult* r) {
             return ExcuteAlgo_VertexComponentAnalysis(c, (dir.path() + "/em.sli").toLocal8Bit(), 5, r);
         },
         "VertexComponentAnalysis: the parameter EndmemberCount (5) must not exceed the 4 bands of the image that "
         "are not flagged bad!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_VertexComponentAnalysis(c, o, 3, r); },
         "VertexComponentAnalysis: the parameter OutputFile (" + out +
             ") must name the spectral library (.sli), not a "
             ".tif file!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_ThresholdSplit(c, 5, 1.0, o, r); },
         "ThresholdSplit: the parameter Band (5) must be between 1 and 4!"},
        {[&](AlgoResult* r) { return ExcuteAlgo_ThresholdSplit(flat.toLocal8Bit(), 2, std::nan(""), o, r); },
         "ThresholdSplit: the parameter Band (2) holds the single value 4 in " + flat +
             ", so Otsu's threshold is undefined!"},
    };
    for (const Row& row : rows)
    {
        StdoutCapture capture;
        RecordingResult result;
        const bool ok = row.call(&result.record);
        const std::string printed = capture.text();
        EXPECT_FALSE(ok) << row.message.toStdString();
        EXPECT_EQ(message(result), row.message.toStdString());
        EXPECT_NE(result.record.code, 0);
        EXPECT_EQ(printed.find("[OUTPUT]"), std::string::npos) << row.message.toStdString();
        EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files).size(), 3) << row.message.toStdString();
    }
}

TEST(HyperspectralAnalysisPlugins, AStoppedUnmixingLeavesNoFileBehind)
{
    QTemporaryDir dir;
    const QString input = dir.path() + "/cube.tif";
    ASSERT_TRUE(makeCube(input, 20, 300, {500, 550, 600, 650, 700},
                         [](int b, int x, int y) { return 1.0 + ((b + 1) * x * 7 + y * (5 - b)) % 13; }));
    // The host asks to stop once the abundances are being written, after the library and CSV exist.
    AlgoResult result{};
    double last = 0.0;
    result.userData = &last;
    result.callback = [](double progress, const char*, void* data) {
        *static_cast<double*>(data) = progress;
        return progress > 60.0 ? -1 : 0;
    };
    StdoutCapture capture;
    const bool ok =
        ExcuteAlgo_VertexComponentAnalysis(input.toLocal8Bit(), (dir.path() + "/em.sli").toLocal8Bit(), 3, &result);
    capture.text();
    EXPECT_FALSE(ok);
    EXPECT_EQ(result.code, -2);
    EXPECT_GT(last, 60.0);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"cube.tif"});
}

TEST(HyperspectralAnalysisPlugins, RealAvirisNgChip)
{
    SKIP_WITHOUT_SHARED_DATA("hyperspectral/ang20150420t182808_corr_v1e_img_4200-4210_70-80.img");
    const QString chip = sharedDataPath("hyperspectral/ang20150420t182808_corr_v1e_img_4200-4210_70-80.img");
    QTemporaryDir dir;
    const QString removed = dir.path() + "/removed.tif", rx = dir.path() + "/rx.tif", sli = dir.path() + "/em.sli";
    RecordingResult result;
    auto quietly = [](const std::function<bool()>& call) {
        StdoutCapture capture;
        return call();
    };
    ASSERT_TRUE(quietly([&] {
        return ExcuteAlgo_ContinuumRemoval(chip.toLocal8Bit(), removed.toLocal8Bit(), &result.record);
    })) << message(result);
    // 432 bands, 59 flagged bad (1-7 and the water bands): no-data there; elsewhere 0 < value <= 1, with the
    // hull's end points exactly 1.
    Dataset in = open(chip), out = open(removed);
    ASSERT_EQ(out->GetRasterCount(), 432);
    EXPECT_STREQ(out->GetRasterBand(100)->GetMetadataItem("wavelength"), "842.1579078");
    const QString bbl = in->GetMetadataItem("bbl", "ENVI");
    const QStringList flags = bbl.mid(1, bbl.size() - 2).split(',');
    ASSERT_EQ(flags.size(), 432);
    int bad = 0, first = -1, last = -1;
    for (int b = 0; b < 432; ++b)
    {
        const bool good = flags[b].trimmed().toDouble() != 0.0;
        bad += !good;
        if (good)
            last = b, first = first < 0 ? b : first;
    }
    EXPECT_EQ(bad, 59);
    for (int b : {0, 6, first, 200, last})
    {
        const std::vector<double> values = readBand(removed, b + 1);
        for (double v : values)
        {
            if (!(flags[b].trimmed().toDouble() != 0.0))
                EXPECT_TRUE(std::isnan(v));
            else if (b == first || b == last)
                EXPECT_NEAR(v, 1.0, 1e-6);
            else
                EXPECT_TRUE(v > 0.0 && v <= 1.0 + 1e-6) << v;
        }
    }
    ASSERT_TRUE(quietly([&] {
        return ExcuteAlgo_RXAnomalyDetection(chip.toLocal8Bit(), rx.toLocal8Bit(), 0, 0, &result.record);
    })) << message(result);
    for (double v : readBand(rx, 1))
        EXPECT_TRUE(std::isfinite(v) && v >= 0.0);
    ASSERT_TRUE(quietly([&] {
        return ExcuteAlgo_VertexComponentAnalysis(chip.toLocal8Bit(), sli.toLocal8Bit(), 3, &result.record);
    })) << message(result);
    EXPECT_EQ(QFileInfo(sli).size(), 3 * 432 * 4);
}

} // namespace
