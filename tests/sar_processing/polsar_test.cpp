// Polarimetric folders: conversions against the Pauli and symmetrisation formulas by hand and round trips, the
// speckle filters on simulated Wishart samples (Hermitian, positive, span kept, looks raised), the entries'
// refusals, and the real T3 scene.
#include "polsar_matrix.h"
#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>

#include <Eigen/Eigenvalues>

#include <cmath>
#include <complex>
#include <functional>
#include <random>

using namespace testsupport;
using Complex = std::complex<double>;

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

// Writes a folder by hand: config.txt and one raw float file per name, floatsPerFile floats per pixel each.
void writeFolder(const QString& dir, const std::vector<std::string>& names, int floatsPerFile, int rows, int cols,
                 const std::function<void(int x, int y, std::vector<float>& floats)>& pixel)
{
    QDir().mkpath(dir);
    QFile config(dir + "/config.txt");
    ASSERT_TRUE(config.open(QIODevice::WriteOnly));
    config.write(QStringLiteral("Nrow\n%1\n---------\nNcol\n%2\n---------\nPolarCase\nmonostatic\n---------\nPolarType\nfull\n")
                     .arg(rows).arg(cols).toLatin1());
    std::vector<std::vector<float>> files(names.size());
    std::vector<float> floats;
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x)
        {
            floats.assign(names.size() * floatsPerFile, 0.0f);
            pixel(x, y, floats);
            for (size_t f = 0; f < names.size(); ++f)
                files[f].insert(files[f].end(), floats.begin() + f * floatsPerFile, floats.begin() + (f + 1) * floatsPerFile);
        }
    for (size_t f = 0; f < names.size(); ++f)
    {
        QFile file(dir + "/" + QString::fromStdString(names[f]));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(reinterpret_cast<const char*>(files[f].data()), qint64(files[f].size() * 4));
    }
}

std::vector<float> readFloats(const QString& path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    const QByteArray bytes = file.readAll();
    std::vector<float> values(size_t(bytes.size()) / 4);
    std::memcpy(values.data(), bytes.constData(), values.size() * 4);
    return values;
}

const std::vector<std::string> kT3 = {"T11.bin", "T12_real.bin", "T12_imag.bin", "T13_real.bin", "T13_imag.bin",
                                      "T22.bin", "T23_real.bin", "T23_imag.bin", "T33.bin"};

// Upper triangle of a 3 x 3 Hermitian matrix in T3 file order.
void upper3(const Eigen::Matrix3cd& m, std::vector<float>& floats)
{
    floats = {float(m(0, 0).real()), float(m(0, 1).real()), float(m(0, 1).imag()), float(m(0, 2).real()),
              float(m(0, 2).imag()), float(m(1, 1).real()), float(m(1, 2).real()), float(m(1, 2).imag()),
              float(m(2, 2).real())};
}

Eigen::Matrix3cd fromUpper3(const std::vector<float>& f, size_t p, size_t stride)
{
    Eigen::Matrix3cd m;
    const auto at = [&](int k) { return double(f[k * stride + p]); };
    m(0, 0) = at(0);
    m(0, 1) = Complex(at(1), at(2));
    m(0, 2) = Complex(at(3), at(4));
    m(1, 1) = at(5);
    m(1, 2) = Complex(at(6), at(7));
    m(2, 2) = at(8);
    m(1, 0) = std::conj(m(0, 1));
    m(2, 0) = std::conj(m(0, 2));
    m(2, 1) = std::conj(m(1, 2));
    return m;
}

// Single-look samples k k^H of a zero-mean circular Gaussian vector with covariance sigma (Wishart, one look).
struct WishartSampler
{
    explicit WishartSampler(const Eigen::Matrix3cd& sigma, unsigned seed) : lower(sigma.llt().matrixL()), random(seed) {}
    Eigen::Matrix3cd next()
    {
        Eigen::Vector3cd z;
        for (int i = 0; i < 3; ++i)
            z(i) = Complex(normal(random), normal(random)) / std::sqrt(2.0);
        const Eigen::Vector3cd k = lower * z;
        return k * k.adjoint();
    }
    Eigen::Matrix3cd lower;
    std::mt19937 random;
    std::normal_distribution<double> normal{0.0, 1.0};
};

} // namespace

TEST(PolsarMatrices, ConversionsFollowThePauliAndSymmetrisationFormulas)
{
    std::mt19937 random(3);
    std::normal_distribution<double> normal;
    for (int trial = 0; trial < 20; ++trial)
    {
        float s2[8];
        for (float& v : s2)
            v = float(normal(random));
        const Complex HH(s2[0], s2[1]), HV(s2[2], s2[3]), VH(s2[4], s2[5]), VV(s2[6], s2[7]);
        sar::PolCov c4;
        sar::matrixFromFloats(sar::PolMatrix::S2, s2, c4);
        // By hand: Pauli vector of the symmetrised scattering matrix, and the lexicographic one.
        const Complex x = (HV + VH) / 2.0, r = std::sqrt(2.0);
        const Complex pauli[3] = {(HH + VV) / r, (HH - VV) / r, 2.0 * x / r};
        const Complex lexi[3] = {HH, r * x, VV};
        const sar::PolCov t3 = sar::convertMatrix(sar::PolMatrix::S2, sar::PolMatrix::T3, c4);
        const sar::PolCov c3 = sar::convertMatrix(sar::PolMatrix::S2, sar::PolMatrix::C3, c4);
        const sar::PolCov c2 = sar::convertMatrix(sar::PolMatrix::S2, sar::PolMatrix::C2, c4);
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
            {
                EXPECT_LT(std::abs(t3(i, j) - pauli[i] * std::conj(pauli[j])), 1e-9);
                EXPECT_LT(std::abs(c3(i, j) - lexi[i] * std::conj(lexi[j])), 1e-9);
            }
        EXPECT_LT(std::abs(c2(0, 1) - HH * std::conj(x)), 1e-9);
        EXPECT_NEAR(c2(1, 1).real(), std::norm(x), 1e-9);
        // T4 by hand, and its span equal to the scattering matrix's total power.
        const Complex i(0, 1);
        const Complex pauli4[4] = {(HH + VV) / r, (HH - VV) / r, (HV + VH) / r, i * (HV - VH) / r};
        const sar::PolCov t4 = sar::convertMatrix(sar::PolMatrix::S2, sar::PolMatrix::T4, c4);
        for (int a = 0; a < 4; ++a)
            for (int b = 0; b < 4; ++b)
                EXPECT_LT(std::abs(t4(a, b) - pauli4[a] * std::conj(pauli4[b])), 1e-9);
        EXPECT_NEAR(sar::span(sar::PolMatrix::T4, t4), std::norm(HH) + std::norm(HV) + std::norm(VH) + std::norm(VV), 1e-9);
        // The bulk converter agrees with the step-by-step conversion for every pair it can make.
        for (int from = 0; from < 6; ++from)
            for (int to = 1; to < 6; ++to)
            {
                const sar::PolMatrix a = sar::PolMatrix(from), b = sar::PolMatrix(to);
                if (!sar::convertible(a, b))
                    continue;
                float in[16], bulk[16], stepwise[16];
                if (a == sar::PolMatrix::S2)
                    std::copy(s2, s2 + 8, in);
                else
                    sar::floatsFromMatrix(a, sar::convertMatrix(sar::PolMatrix::S2, a, c4), in);
                sar::PolCov source;
                sar::matrixFromFloats(a, in, source);
                sar::floatsFromMatrix(b, sar::convertMatrix(a, b, source), stepwise);
                sar::MatrixConverter(a, b).convert(in, bulk);
                for (int k = 0; k < sar::floatsPerPixel(b); ++k)
                    ASSERT_NEAR(bulk[k], stepwise[k], 1e-5 * (1.0 + std::fabs(stepwise[k]))) << from << " -> " << to;
            }
        // Round trips between the kinds of one side.
        for (auto [a, b] : {std::pair{sar::PolMatrix::T3, sar::PolMatrix::C3}, std::pair{sar::PolMatrix::T4, sar::PolMatrix::C4}})
        {
            const sar::PolCov start = sar::convertMatrix(sar::PolMatrix::S2, a, c4);
            const sar::PolCov back = sar::convertMatrix(b, a, sar::convertMatrix(a, b, start));
            EXPECT_LT((back - start).norm(), 1e-12 * start.norm());
        }
    }
    EXPECT_FALSE(sar::convertible(sar::PolMatrix::T3, sar::PolMatrix::T4));
    EXPECT_FALSE(sar::convertible(sar::PolMatrix::C2, sar::PolMatrix::C3));
    EXPECT_TRUE(sar::convertible(sar::PolMatrix::C4, sar::PolMatrix::C2));
}

TEST(PolsarMatrices, ConfigTextParses)
{
    sar::PolConfig config;
    EXPECT_TRUE(sar::parsePolConfig("Nrow\r\n900\r\n---------\r\nNcol\r\n1024\r\n", config));
    EXPECT_EQ(config.rows, 900);
    EXPECT_EQ(config.cols, 1024);
    EXPECT_TRUE(sar::parsePolConfig(sar::formatPolConfig(config), config));
    EXPECT_EQ(config.cols, 1024);
    EXPECT_FALSE(sar::parsePolConfig("Nrow\n-3\nNcol\n4\n", config));
    EXPECT_FALSE(sar::parsePolConfig("Nrow\n99999999999\nNcol\n4\n", config));
    EXPECT_FALSE(sar::parsePolConfig("Ncol\n4\n", config));
    EXPECT_FALSE(sar::parsePolConfig("", config));
}

TEST(PolsarEntries, ConvertThroughTheFolderLayoutAndBack)
{
    QTemporaryDir dir;
    const QString d = dir.path();
    const int rows = 5, cols = 7;
    std::mt19937 random(8);
    std::normal_distribution<double> normal;
    std::vector<float> s2(size_t(rows) * cols * 8);
    for (float& v : s2)
        v = float(normal(random));
    writeFolder(d + "/S2", {"s11.bin", "s12.bin", "s21.bin", "s22.bin"}, 2, rows, cols, [&](int x, int y, std::vector<float>& f) {
        for (int c = 0; c < 4; ++c)
            for (int k = 0; k < 2; ++k)
                f[c * 2 + k] = s2[(size_t(y) * cols + x) * 8 + c * 2 + k];
    });
    const std::string s2Dir = (d + "/S2").toStdString(), out = (d + "/out").toStdString();
    EntryRun run = capture([&] { return ExcuteAlgo_PolSAR_MatrixConvert(s2Dir.c_str(), out.c_str(), "T3", nullptr); });
    ASSERT_TRUE(run.ok) << run.printed;
    QStringList written;
    for (const std::string& name : kT3)
        written << d + "/out/T3/" + QString::fromStdString(name);
    EXPECT_EQ(run.printed, "Judge the rationality of input paramenters sucessfully\nstart call algorithm plugin: "
                           "PolSAR_MatrixConvert\n[OUTPUT] PolSAR_MatrixConvert_images=\"" +
                               written.join('|').toStdString() + "\"\n");
    std::vector<std::vector<float>> t3;
    for (const QString& path : written)
        t3.push_back(readFloats(path));
    for (size_t p = 0; p < size_t(rows) * cols; ++p)
    {
        const float* s = s2.data() + p * 8;
        const Complex hh(s[0], s[1]), x = (Complex(s[2], s[3]) + Complex(s[4], s[5])) / 2.0, vv(s[6], s[7]);
        const Complex k[3] = {(hh + vv) / std::sqrt(2.0), (hh - vv) / std::sqrt(2.0), std::sqrt(2.0) * x};
        std::vector<float> expected;
        Eigen::Matrix3cd t;
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                t(i, j) = k[i] * std::conj(k[j]);
        upper3(t, expected);
        for (size_t e = 0; e < 9; ++e)
            ASSERT_NEAR(t3[e][p], expected[e], 1e-5 * (1.0 + std::fabs(expected[e])));
    }
    // T3 -> C3 -> T3 through the files gives back the same floats (to float rounding).
    const std::string t3Dir = (d + "/out/T3").toStdString(), c3Out = (d + "/c3").toStdString(), back = (d + "/back").toStdString();
    ASSERT_TRUE(capture([&] { return ExcuteAlgo_PolSAR_MatrixConvert(t3Dir.c_str(), c3Out.c_str(), "C3", nullptr); }).ok);
    const std::string c3Dir = c3Out + "/C3";
    ASSERT_TRUE(capture([&] { return ExcuteAlgo_PolSAR_MatrixConvert(c3Dir.c_str(), back.c_str(), "T3", nullptr); }).ok);
    for (size_t e = 0; e < 9; ++e)
    {
        const std::vector<float> again = readFloats(d + "/back/T3/" + QString::fromStdString(kT3[e]));
        for (size_t p = 0; p < again.size(); ++p)
            ASSERT_NEAR(again[p], t3[e][p], 1e-5 * (1.0 + std::fabs(t3[e][p])));
    }
    // Multilooked on the way: 2 x 3 cells of the 5 x 7 scene (2 x 2 output), each the mean of its six T3.
    const std::string looked = (d + "/looked").toStdString();
    ASSERT_TRUE(capture([&] { return ExcuteAlgo_PolSAR_MatrixConvert(s2Dir.c_str(), looked.c_str(), "T3:2x3", nullptr); }).ok);
    for (size_t e = 0; e < 9; ++e)
    {
        const std::vector<float> cells = readFloats(d + "/looked/T3/" + QString::fromStdString(kT3[e]));
        ASSERT_EQ(cells.size(), 4u);
        for (int r = 0; r < 2; ++r)
            for (int c = 0; c < 2; ++c)
            {
                double sum = 0.0;
                for (int y = 2 * r; y < 2 * r + 2; ++y)
                    for (int x = 3 * c; x < 3 * c + 3; ++x)
                        sum += t3[e][size_t(y) * cols + x];
                EXPECT_NEAR(cells[size_t(r) * 2 + c], sum / 6.0, 1e-5 * (1.0 + std::fabs(sum)));
            }
    }
    QFile config(d + "/looked/T3/config.txt");
    ASSERT_TRUE(config.open(QIODevice::ReadOnly));
    EXPECT_TRUE(config.readAll().startsWith("Nrow\n2\n---------\nNcol\n2\n"));
    EXPECT_TRUE(QFile::exists(d + "/back/T3/T11.bin.hdr"));
    EXPECT_TRUE(QFile::exists(d + "/back/T3/config.txt"));
}

TEST(PolsarEntries, RefuseInCheckOrder)
{
    QTemporaryDir dir;
    const QString d = dir.path();
    writeFolder(d + "/T3", kT3, 1, 6, 5, [](int, int, std::vector<float>& f) { f[0] = f[5] = f[8] = 1.0f; });
    writeFolder(d + "/short", kT3, 1, 6, 5, [](int, int, std::vector<float>& f) { f[0] = 1.0f; });
    QFile::resize(d + "/short/T22.bin", 10);
    writeFolder(d + "/S2", {"s11.bin", "s12.bin", "s21.bin", "s22.bin"}, 2, 6, 5, [](int, int, std::vector<float>& f) { f[0] = 1.0f; });
    QDir().mkpath(d + "/empty");
    const std::string t3 = (d + "/T3").toStdString(), s2 = (d + "/S2").toStdString(), shortDir = (d + "/short").toStdString(),
                      empty = (d + "/empty").toStdString(), out = (d + "/out").toStdString();
    struct Row
    {
        const char* name;
        std::function<bool()> call;
        std::string expected;
    } rows[] = {
        {"no input", [&] { return ExcuteAlgo_PolSAR_MatrixConvert("", out.c_str(), "C3", nullptr); },
         "[ERROR] PolSAR_MatrixConvert: the parameter InputDir is empty!\n"},
        {"no config", [&] { return ExcuteAlgo_PolSAR_MatrixConvert(empty.c_str(), out.c_str(), "C3", nullptr); },
         "[ERROR] PolSAR_MatrixConvert: the parameter InputDir (" + empty + ") has no config.txt!\n"},
        {"short element", [&] { return ExcuteAlgo_PolSAR_MatrixConvert(shortDir.c_str(), out.c_str(), "C3", nullptr); },
         "[ERROR] PolSAR_MatrixConvert: the parameter InputDir (" + shortDir + ") has T22.bin shorter than Nrow x Ncol samples!\n"},
        {"unknown target", [&] { return ExcuteAlgo_PolSAR_MatrixConvert(t3.c_str(), out.c_str(), "t3", nullptr); },
         "[ERROR] PolSAR_MatrixConvert: the parameter TargetMatrix (t3) must be one of S2, C2, C3, T3, C4, T4, optionally with looks such as T3:4x1!\n"},
        {"looks for S2", [&] { return ExcuteAlgo_PolSAR_MatrixConvert(s2.c_str(), out.c_str(), "S2:2x2", nullptr); },
         "[ERROR] PolSAR_MatrixConvert: the parameter TargetMatrix (S2:2x2) must be one of S2, C2, C3, T3, C4, T4, optionally with looks such as T3:4x1!\n"},
        {"too many looks", [&] { return ExcuteAlgo_PolSAR_MatrixConvert(t3.c_str(), out.c_str(), "C3:7x1", nullptr); },
         "[ERROR] PolSAR_MatrixConvert: the parameter TargetMatrix (C3:7x1) asks for more looks than the image has lines or columns!\n"},
        {"target out of reach", [&] { return ExcuteAlgo_PolSAR_MatrixConvert(t3.c_str(), out.c_str(), "T4", nullptr); },
         "[ERROR] PolSAR_MatrixConvert: the parameter TargetMatrix (T4) cannot be made from T3!\n"},
        {"onto itself", [&] { return ExcuteAlgo_PolSAR_MatrixConvert(t3.c_str(), d.toStdString().c_str(), "T3", nullptr); },
         "[ERROR] PolSAR_MatrixConvert: the parameter OutputDir (" + d.toStdString() + ") would overwrite the input folder!\n"},
        {"filter word", [&] { return ExcuteAlgo_PolSAR_Filter(t3.c_str(), out.c_str(), "Lee", 5, nullptr); },
         "[ERROR] PolSAR_Filter: the parameter FilterType (Lee) must be one of Boxcar, RefinedLee, IDAN!\n"},
        {"filter of S2", [&] { return ExcuteAlgo_PolSAR_Filter(s2.c_str(), out.c_str(), "Boxcar", 3, nullptr); },
         "[ERROR] PolSAR_Filter: the parameter InputDir (" + s2 + ") holds scattering matrices (S2): convert them to C3 or T3 first!\n"},
        {"even window", [&] { return ExcuteAlgo_PolSAR_Filter(t3.c_str(), out.c_str(), "IDAN", 4, nullptr); },
         "[ERROR] PolSAR_Filter: the parameter WindowSize (4) must be odd, from 3 to 51!\n"},
        {"window too large", [&] { return ExcuteAlgo_PolSAR_STANFilter(t3.c_str(), out.c_str(), 7, nullptr); },
         "[ERROR] PolSAR_STANFilter: the parameter WindowSize (7) is larger than the image!\n"},
    };
    for (const Row& row : rows)
    {
        const EntryRun run = capture(row.call);
        EXPECT_FALSE(run.ok) << row.name;
        EXPECT_EQ(run.printed, row.expected) << row.name;
    }
    EXPECT_FALSE(QDir(d + "/out").exists());
}

TEST(PolsarEntries, FiltersKeepMatricesHermitianPositiveAndTheSpan)
{
    QTemporaryDir dir;
    const QString d = dir.path();
    // Two fields of single-look Wishart samples, a forest-like and a surface-like covariance (T3), split at x = 40.
    Eigen::Matrix3cd forest, surface;
    forest << 2.0, Complex(0.1, 0.05), 0.0, Complex(0.1, -0.05), 1.5, 0.0, 0.0, 0.0, 1.2;
    surface << 4.0, Complex(0.8, 0.2), 0.0, Complex(0.8, -0.2), 0.6, 0.0, 0.0, 0.0, 0.1;
    WishartSampler forestSamples(forest, 1), surfaceSamples(surface, 2);
    const int rows = 60, cols = 80;
    writeFolder(d + "/T3", kT3, 1, rows, cols, [&](int x, int, std::vector<float>& f) {
        upper3(x < 40 ? forestSamples.next() : surfaceSamples.next(), f);
    });
    const std::string input = (d + "/T3").toStdString();
    for (const char* filter : {"Boxcar", "RefinedLee", "IDAN", "STAN"})
    {
        const std::string out = (d + "/" + filter).toStdString();
        const EntryRun run = capture([&] {
            return std::string(filter) == "STAN" ? ExcuteAlgo_PolSAR_STANFilter(input.c_str(), out.c_str(), 7, nullptr)
                                                 : ExcuteAlgo_PolSAR_Filter(input.c_str(), out.c_str(), filter, 7, nullptr);
        });
        ASSERT_TRUE(run.ok) << filter << run.printed;
        std::vector<float> all;
        for (const std::string& name : kT3)
        {
            const std::vector<float> element = readFloats(QString::fromStdString(out) + "/T3/" + QString::fromStdString(name));
            all.insert(all.end(), element.begin(), element.end());
        }
        const size_t n = size_t(rows) * cols;
        double spanOut = 0.0, t11Sum = 0.0, t11Squares = 0.0;
        int counted = 0;
        for (size_t p = 0; p < n; ++p)
        {
            const Eigen::Matrix3cd t = fromUpper3(all, p, n);
            const Eigen::Vector3d eigen = Eigen::SelfAdjointEigenSolver<Eigen::Matrix3cd>(t).eigenvalues();
            ASSERT_GE(eigen.minCoeff(), -1e-5 * t.trace().real()) << filter << " pixel " << p;
            spanOut += t.trace().real();
            const int x = int(p % cols), y = int(p / cols);
            if (x >= 5 && x < 35 && y >= 5 && y < rows - 5) // inside the forest field
            {
                t11Sum += all[p];
                t11Squares += double(all[p]) * all[p];
                ++counted;
            }
        }
        double inSpan = 0.0;
        for (const std::string& name : {kT3[0], kT3[5], kT3[8]})
            for (float v : readFloats(d + "/T3/" + QString::fromStdString(name)))
                inSpan += v;
        // One ENL for the scene while the two fields' spans differ in looks (about 2.9 and 1.3): the sigma range
        // and the grown regions cut their tails a little differently, within 3 %.
        EXPECT_NEAR(spanOut / inSpan, 1.0, 0.03) << filter;
        const double mean = t11Sum / counted, enl = mean * mean / (t11Squares / counted - mean * mean);
        EXPECT_GT(enl, 5.0) << filter; // single look in
        std::printf("%-10s span ratio %.4f, ENL of T11 in the forest field %.1f\n", filter, spanOut / inSpan, enl);
    }
}

TEST(PolsarEntries, RealCoherencyScene)
{
    SKIP_WITHOUT_SHARED_DATA("polsar/T3/config.txt");
    QTemporaryDir dir;
    const std::string input = sharedDataPath("polsar/T3").toStdString(), out = dir.path().toStdString();
    ASSERT_TRUE(capture([&] { return ExcuteAlgo_PolSAR_MatrixConvert(input.c_str(), out.c_str(), "C3", nullptr); }).ok);
    const std::string c3 = out + "/C3", back = out + "/back";
    ASSERT_TRUE(capture([&] { return ExcuteAlgo_PolSAR_MatrixConvert(c3.c_str(), back.c_str(), "T3", nullptr); }).ok);
    double worst = 0.0;
    const std::vector<float> t11 = readFloats(sharedDataPath("polsar/T3/T11.bin"));
    for (const std::string& name : kT3)
    {
        const std::vector<float> original = readFloats(sharedDataPath("polsar/T3/" + QString::fromStdString(name)));
        const std::vector<float> again = readFloats(QString::fromStdString(back) + "/T3/" + QString::fromStdString(name));
        ASSERT_EQ(original.size(), again.size());
        for (size_t p = 0; p < original.size(); p += 7)
            worst = std::max(worst, std::fabs(double(again[p]) - original[p]) / (std::fabs(double(t11[p])) + 1e-12));
    }
    EXPECT_LT(worst, 1e-5);
    const EntryRun run = capture([&] { return ExcuteAlgo_PolSAR_Filter(input.c_str(), (out + "/f").c_str(), "RefinedLee", 7, nullptr); });
    ASSERT_TRUE(run.ok) << run.printed;
    std::printf("real T3 round trip: worst relative difference %.2g; %s", worst, run.printed.substr(run.printed.find("[OUTPUT] PolSAR_Filter_ENL")).c_str());
}

TEST(PolsarEntries, BasisChangeKeepsSpanAndEigenvaluesAndTurnsReflectorsAsTheTextbookSays)
{
    QTemporaryDir dir;
    const QString d = dir.path();
    // S2: a trihedral (S = I) in column 0, a dihedral (S = diag(1, -1)) in column 1.
    writeFolder(d + "/S2", {"s11.bin", "s12.bin", "s21.bin", "s22.bin"}, 2, 1, 2, [](int x, int, std::vector<float>& f) {
        f[0] = 1.0f;
        f[6] = x == 0 ? 1.0f : -1.0f;
    });
    const std::string s2 = (d + "/S2").toStdString(), out = (d + "/circ").toStdString();
    const EntryRun run = capture([&] { return ExcuteAlgo_PolSAR_BasisChange(s2.c_str(), out.c_str(), "circular", nullptr); });
    ASSERT_TRUE(run.ok) << run.printed;
    std::vector<std::vector<float>> s;
    for (const char* name : {"s11.bin", "s12.bin", "s21.bin", "s22.bin"})
        s.push_back(readFloats(d + "/circ/S2/" + name));
    const auto power = [&](int channel, int pixel) { return std::hypot(s[size_t(channel)][2 * pixel], s[size_t(channel)][2 * pixel + 1]); };
    // Circular basis: the trihedral answers in the opposite sense only, the dihedral in the same sense only.
    EXPECT_NEAR(power(0, 0), 0.0, 1e-6);
    EXPECT_NEAR(power(3, 0), 0.0, 1e-6);
    EXPECT_NEAR(power(1, 0), 1.0, 1e-6);
    EXPECT_NEAR(power(0, 1), 1.0, 1e-6);
    EXPECT_NEAR(power(3, 1), 1.0, 1e-6);
    EXPECT_NEAR(power(1, 1), 0.0, 1e-6);

    // T3 of Wishart samples in an elliptical basis: span and eigenvalues of every pixel stay.
    Eigen::Matrix3cd sigma;
    sigma << 3.0, Complex(0.5, 0.2), Complex(0.1, 0.0), Complex(0.5, -0.2), 1.0, Complex(0.0, 0.3), Complex(0.1, 0.0),
        Complex(0.0, -0.3), 0.5;
    WishartSampler samples(sigma, 4);
    std::vector<Eigen::Matrix3cd> matrices;
    writeFolder(d + "/T3", kT3, 1, 4, 5, [&](int, int, std::vector<float>& f) {
        Eigen::Matrix3cd t = Eigen::Matrix3cd::Zero();
        for (int l = 0; l < 4; ++l)
            t += samples.next() / 4.0;
        upper3(t, f);
        matrices.push_back(fromUpper3(f, 0, 1));
    });
    const std::string t3 = (d + "/T3").toStdString(), ell = (d + "/ell").toStdString();
    ASSERT_TRUE(capture([&] { return ExcuteAlgo_PolSAR_BasisChange(t3.c_str(), ell.c_str(), "elliptical:30,10", nullptr); }).ok);
    std::vector<float> all;
    for (const std::string& name : kT3)
    {
        const std::vector<float> element = readFloats(d + "/ell/T3/" + QString::fromStdString(name));
        all.insert(all.end(), element.begin(), element.end());
    }
    double largestChange = 0.0;
    for (size_t p = 0; p < matrices.size(); ++p)
    {
        const Eigen::Matrix3cd changed = fromUpper3(all, p, matrices.size());
        const Eigen::Vector3d before = Eigen::SelfAdjointEigenSolver<Eigen::Matrix3cd>(matrices[p]).eigenvalues();
        const Eigen::Vector3d after = Eigen::SelfAdjointEigenSolver<Eigen::Matrix3cd>(changed).eigenvalues();
        EXPECT_NEAR(changed.trace().real(), matrices[p].trace().real(), 1e-5 * matrices[p].trace().real());
        EXPECT_LT((after - before).norm(), 1e-5 * before.norm());
        largestChange = std::max(largestChange, (changed - matrices[p]).norm() / matrices[p].norm());
    }
    EXPECT_GT(largestChange, 0.05); // the matrices themselves did change

    const EntryRun bad = capture([&] { return ExcuteAlgo_PolSAR_BasisChange(t3.c_str(), ell.c_str(), "30,60", nullptr); });
    EXPECT_FALSE(bad.ok);
    EXPECT_EQ(bad.printed, "[ERROR] PolSAR_BasisChange: the parameter Basis (30,60) must be linear, circular or "
                           "orientation,ellipticity in degrees!\n");
}

TEST(PolsarEntries, SignaturesOfTrihedralAndDihedralHaveTheirTextbookExtremes)
{
    QTemporaryDir dir;
    const QString d = dir.path();
    // Trihedral (S = I) in columns 0-2, dihedral (S = diag(1, -1)) in columns 3-5.
    writeFolder(d + "/S2", {"s11.bin", "s12.bin", "s21.bin", "s22.bin"}, 2, 2, 6, [](int x, int, std::vector<float>& f) {
        f[0] = 1.0f;
        f[6] = x < 3 ? 1.0f : -1.0f;
    });
    const std::string input = (d + "/S2").toStdString();
    const auto grids = [&](const char* region, const char* out) {
        const std::string target = (d + "/" + out).toStdString();
        const EntryRun run = capture([&] { return ExcuteAlgo_PolSAR_PolSignatures(input.c_str(), target.c_str(), region, nullptr); });
        EXPECT_TRUE(run.ok) << run.printed;
        EXPECT_NE(run.printed.find(".png\"\n"), std::string::npos) << run.printed;
        return std::make_pair(readBand(d + "/" + out + "/S2_copol.tif", 1), readBand(d + "/" + out + "/S2_crosspol.tif", 1));
    };
    // Cell of orientation psi and ellipticity chi (degrees).
    const auto at = [](const std::vector<double>& grid, int psi, int chi) { return grid[size_t(chi + 45) * 181 + psi + 90]; };
    const auto trihedral = grids("0|2|0|1", "tri");
    for (int psi = -90; psi <= 90; psi += 15)
    {
        EXPECT_NEAR(at(trihedral.first, psi, 0), 1.0, 1e-6) << psi;   // every linear polarisation comes back
        EXPECT_NEAR(at(trihedral.first, psi, 45), 0.0, 1e-6) << psi;  // circular comes back in the other sense
        EXPECT_NEAR(at(trihedral.second, psi, 0), 0.0, 1e-6) << psi;
        EXPECT_NEAR(at(trihedral.second, psi, -45), 1.0, 1e-6) << psi;
    }
    const auto dihedral = grids("3|5|0|1", "di");
    EXPECT_NEAR(at(dihedral.first, 0, 0), 1.0, 1e-6);
    EXPECT_NEAR(at(dihedral.first, 90, 0), 1.0, 1e-6);
    EXPECT_NEAR(at(dihedral.first, 45, 0), 0.0, 1e-6);
    EXPECT_NEAR(at(dihedral.first, -45, 0), 0.0, 1e-6);
    EXPECT_NEAR(at(dihedral.first, 20, 45), 1.0, 1e-6);
    EXPECT_NEAR(at(dihedral.second, 45, 0), 1.0, 1e-6);
    EXPECT_NEAR(at(dihedral.second, 0, 0), 0.0, 1e-6);
    // One cell by hand: |u^T S u|^2 for the dihedral, u of orientation 30 and ellipticity 10 degrees.
    const double psi = 30 * M_PI / 180, chi = 10 * M_PI / 180;
    const Complex u1(std::cos(psi) * std::cos(chi), -std::sin(psi) * std::sin(chi)),
        u2(std::sin(psi) * std::cos(chi), std::cos(psi) * std::sin(chi));
    EXPECT_NEAR(at(dihedral.first, 30, 10), std::norm(u1 * u1 - u2 * u2), 1e-6); // the maximum is 1

    // The charts are surfaces coloured by power over a white page: the ridge at power 1 (red) and the floor at
    // power 0 (dark blue) of the trihedral both show, in each chart.
    for (const char* chart : {"/tri/S2_copol.png", "/tri/S2_crosspol.png"})
    {
        const QImage image(d + chart);
        ASSERT_EQ(image.size(), QSize(960, 720)) << chart;
        int red = 0, blue = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
            {
                const QColor c = image.pixelColor(x, y);
                red += c.red() > 170 && c.green() < 70 && c.blue() < 70;
                blue += c.blue() > 120 && c.red() < 50 && c.green() < 90;
            }
        EXPECT_GT(red, 500) << chart;
        EXPECT_GT(blue, 500) << chart;
    }

    const EntryRun outside = capture([&] { return ExcuteAlgo_PolSAR_PolSignatures(input.c_str(), (d + "/x").toStdString().c_str(), "0|6|0|1", nullptr); });
    EXPECT_FALSE(outside.ok);
    EXPECT_EQ(outside.printed, "[ERROR] PolSAR_PolSignatures: the parameter Region (0|6|0|1) is not inside the 6 x 2 image!\n");
}
