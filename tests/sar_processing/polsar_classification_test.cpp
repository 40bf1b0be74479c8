// The H/alpha-Wishart classification on simulated nine-look Wishart fields of known coherency matrices, and class
// merging by pairs and by Wishart centres, every pixel kept.
#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <Eigen/Dense>

#include <complex>
#include <functional>
#include <map>
#include <set>
#include <random>

using namespace testsupport;
using Complex = std::complex<double>;

namespace
{

std::string run(const std::function<bool()>& call, bool* ok)
{
    StdoutCapture out;
    *ok = call();
    return out.text();
}

// A T3 folder of `looks`-look Wishart samples: field(x, y) picks the coherency matrix of each pixel.
void writeWishartFolder(const QString& dir, int rows, int cols, int looks, const std::vector<Eigen::Matrix3cd>& fields,
                        const std::function<int(int, int)>& field, unsigned seed)
{
    static const char* const kNames[9] = {"T11.bin", "T12_real.bin", "T12_imag.bin", "T13_real.bin", "T13_imag.bin",
                                          "T22.bin", "T23_real.bin", "T23_imag.bin", "T33.bin"};
    std::mt19937 random(seed);
    std::normal_distribution<double> normal;
    std::vector<Eigen::Matrix3cd> lower;
    for (const Eigen::Matrix3cd& t : fields)
        lower.push_back(t.llt().matrixL());
    std::vector<std::vector<float>> elements(9);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x)
        {
            Eigen::Matrix3cd sum = Eigen::Matrix3cd::Zero();
            for (int l = 0; l < looks; ++l)
            {
                Eigen::Vector3cd z;
                for (int i = 0; i < 3; ++i)
                    z(i) = Complex(normal(random), normal(random)) / std::sqrt(2.0);
                const Eigen::Vector3cd k = lower[size_t(field(x, y))] * z;
                sum += k * k.adjoint();
            }
            const Eigen::Matrix3cd t = sum / double(looks);
            const double v[9] = {t(0, 0).real(), t(0, 1).real(), t(0, 1).imag(), t(0, 2).real(), t(0, 2).imag(),
                                 t(1, 1).real(), t(1, 2).real(), t(1, 2).imag(), t(2, 2).real()};
            for (int e = 0; e < 9; ++e)
                elements[size_t(e)].push_back(float(v[e]));
        }
    QDir().mkpath(dir);
    QFile config(dir + "/config.txt");
    ASSERT_TRUE(config.open(QIODevice::WriteOnly));
    config.write(QStringLiteral("Nrow\n%1\n---------\nNcol\n%2\n").arg(rows).arg(cols).toLatin1());
    for (int e = 0; e < 9; ++e)
    {
        QFile file(dir + "/" + kNames[e]);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(reinterpret_cast<const char*>(elements[size_t(e)].data()), qint64(elements[size_t(e)].size() * 4));
    }
}

// Share of pixels whose class's majority field is their own field.
double purity(const std::vector<double>& classes, int cols, const std::function<int(int, int)>& field, int* classesUsed)
{
    std::map<int, std::map<int, long long>> table;
    for (size_t p = 0; p < classes.size(); ++p)
        ++table[int(classes[p])][field(int(p % cols), int(p / cols))];
    long long agreeing = 0;
    for (const auto& row : table)
    {
        long long best = 0;
        for (const auto& cell : row.second)
            best = std::max(best, cell.second);
        agreeing += best;
    }
    *classesUsed = int(table.size());
    return double(agreeing) / double(classes.size());
}

} // namespace

TEST(PolsarWishart, SeparatesSimulatedFieldsAndMergesBackToThem)
{
    QTemporaryDir dir;
    const QString d = dir.path();
    // Surface (odd bounce), dihedral (even bounce) and volume scattering, in three vertical stripes.
    Eigen::Matrix3cd surface, dihedral, volume;
    surface << 5.0, Complex(0.6, 0.1), 0.0, Complex(0.6, -0.1), 0.5, 0.0, 0.0, 0.0, 0.1;
    dihedral << 0.5, Complex(0.3, 0.0), 0.0, Complex(0.3, 0.0), 4.0, 0.0, 0.0, 0.0, 0.2;
    volume << 1.0, 0.0, 0.0, 0.0, 0.9, 0.0, 0.0, 0.0, 0.8;
    const int rows = 60, cols = 90;
    const auto field = [](int x, int) { return x / 30; };
    writeWishartFolder(d + "/T3", rows, cols, 9, {surface, dihedral, volume}, field, 17);
    const std::string input = (d + "/T3").toStdString(), out = (d + "/out").toStdString();
    bool ok = false;
    const std::string printed = run([&] { return ExcuteAlgo_PolSAR_WishartUnsupervisedClassification(input.c_str(), out.c_str(), 8, 10, nullptr); }, &ok);
    ASSERT_TRUE(ok) << printed;
    const QString image = d + "/out/T3_Wishart8.tif";
    EXPECT_NE(printed.find("[OUTPUT] PolSAR_WishartUnsupervisedClassification_images=\"" + image.toStdString() + "\"\n"),
              std::string::npos) << printed;
    const std::vector<double> classes = readBand(image, 1);
    int used = 0;
    const double eightClassPurity = purity(classes, cols, field, &used);
    const int eightUsed = used;
    EXPECT_GT(eightClassPurity, 0.97);
    EXPECT_GE(used, 3);
    for (double c : classes)
        ASSERT_TRUE(c >= 1 && c <= 8);

    // Merged down to three classes by their Wishart centres: one class per field.
    const std::string merged = (d + "/merged.tif").toStdString();
    const std::string said = run([&] { return ExcuteAlgo_PolSAR_ClassMerge(image.toStdString().c_str(), merged.c_str(), "3", nullptr); }, &ok);
    ASSERT_TRUE(ok) << said;
    EXPECT_NE(said.find("[OUTPUT] PolSAR_ClassMerge_classes=\"3\"\n"), std::string::npos) << said;
    const std::vector<double> three = readBand(QString::fromStdString(merged), 1);
    int remaining = 0;
    const double threeClassPurity = purity(three, cols, field, &remaining);
    EXPECT_EQ(remaining, 3);
    EXPECT_GT(threeClassPurity, 0.97);
    // Merging moves pixels between classes and never loses one: each merged class is a union of old ones.
    std::map<int, std::set<int>> sources;
    for (size_t p = 0; p < classes.size(); ++p)
        sources[int(classes[p])].insert(int(three[p]));
    for (const auto& entry : sources)
        EXPECT_EQ(entry.second.size(), 1u) << "class " << entry.first << " was split";

    // Sixteen classes: each class split by anisotropy.
    const std::string printed16 = run([&] { return ExcuteAlgo_PolSAR_WishartUnsupervisedClassification(input.c_str(), out.c_str(), 16, 10, nullptr); }, &ok);
    ASSERT_TRUE(ok) << printed16;
    const std::vector<double> sixteen = readBand(d + "/out/T3_Wishart16.tif", 1);
    EXPECT_GT(purity(sixteen, cols, field, &used), 0.97);
    for (double c : sixteen)
        ASSERT_TRUE(c >= 1 && c <= 16);
    GDALDataset* written = GDALDataset::Open((d + "/out/T3_Wishart16.tif").toUtf8().constData(), GDAL_OF_RASTER);
    ASSERT_NE(written, nullptr);
    ASSERT_NE(written->GetRasterBand(1)->GetColorTable(), nullptr);
    EXPECT_EQ(CSLCount(written->GetRasterBand(1)->GetCategoryNames()), 17);
    EXPECT_STREQ(written->GetRasterBand(1)->GetCategoryNames()[2], "Z1 high entropy multiple scattering, anisotropy >= 0.5");
    GDALClose(GDALDataset::ToHandle(written));
    std::printf("Wishart on three simulated 9-look fields: purity %.4f (8 classes, %d used), %.4f merged to 3\n",
                eightClassPurity, eightUsed, threeClassPurity);
}

TEST(PolsarClassMerge, MergesByPairsKeepingEveryPixel)
{
    QTemporaryDir dir;
    const QString d = dir.path();
    ASSERT_TRUE(makeRaster(d + "/classes.tif", 10, 6, 1, GDT_Byte, [](int, int x, int y) { return 1 + (x + y) % 5; }));
    const std::string input = (d + "/classes.tif").toStdString(), output = (d + "/merged.tif").toStdString();
    bool ok = false;
    // 3 -> 1, 5 -> 4 -> 2 (a chain).
    std::string said = run([&] { return ExcuteAlgo_PolSAR_ClassMerge(input.c_str(), output.c_str(), "3|1,5|4, 4|2", nullptr); }, &ok);
    ASSERT_TRUE(ok) << said;
    const std::vector<double> before = readBand(d + "/classes.tif", 1), after = readBand(d + "/merged.tif", 1);
    ASSERT_EQ(before.size(), after.size());
    const int expected[6] = {0, 1, 2, 1, 2, 2};
    for (size_t p = 0; p < before.size(); ++p)
        ASSERT_EQ(after[p], expected[int(before[p])]);
    EXPECT_NE(said.find("[OUTPUT] PolSAR_ClassMerge_classes=\"2\"\n"), std::string::npos) << said;

    struct Row
    {
        const char* pairs;
        const char* output;
        std::string expected;
    } rows[] = {
        {"3-1", "m.tif", "[ERROR] PolSAR_ClassMerge: the parameter MergePairs (3-1) must be pairs such as 3|1,5|2 or a class count!\n"},
        {"3|1", "", "[ERROR] PolSAR_ClassMerge: the parameter OutputFile is empty!\n"},
        {"3|1", "classes.tif", "[ERROR] PolSAR_ClassMerge: the parameter OutputFile (" + input + ") is the input file!\n"},
    };
    for (const Row& row : rows)
    {
        const std::string target = *row.output ? (d + "/" + row.output).toStdString() : std::string();
        said = run([&] { return ExcuteAlgo_PolSAR_ClassMerge(input.c_str(), target.c_str(), row.pairs, nullptr); }, &ok);
        EXPECT_FALSE(ok) << row.pairs;
        EXPECT_EQ(said, row.expected);
    }
    // Refused by the plug-in: a cycle, and a class count on an image without Wishart centres; nothing written.
    RecordingResult result;
    said = run([&] { return ExcuteAlgo_PolSAR_ClassMerge(input.c_str(), (d + "/cycle.tif").toStdString().c_str(), "1|2,2|1", &result.record); }, &ok);
    EXPECT_FALSE(ok);
    EXPECT_STREQ(result.record.message, "PolSAR_ClassMerge: the parameter MergePairs (1|2,2|1) holds a cycle through class 1!");
    said = run([&] { return ExcuteAlgo_PolSAR_ClassMerge(input.c_str(), (d + "/count.tif").toStdString().c_str(), "2", &result.record); }, &ok);
    EXPECT_FALSE(ok);
    EXPECT_STREQ(result.record.message, "PolSAR_ClassMerge: the parameter MergePairs (2) asks for merging by Wishart centres, and class 1 of the image has none!");
    EXPECT_FALSE(QFile::exists(d + "/cycle.tif"));
    EXPECT_FALSE(QFile::exists(d + "/count.tif"));
}

TEST(PolsarWishart, SupervisedByTrainingAreasWithItsConfusionMatrix)
{
    QTemporaryDir dir;
    const QString d = dir.path();
    Eigen::Matrix3cd surface, dihedral, volume;
    surface << 5.0, Complex(0.6, 0.1), 0.0, Complex(0.6, -0.1), 0.5, 0.0, 0.0, 0.0, 0.1;
    dihedral << 0.5, Complex(0.3, 0.0), 0.0, Complex(0.3, 0.0), 4.0, 0.0, 0.0, 0.0, 0.2;
    volume << 1.0, 0.0, 0.0, 0.0, 0.9, 0.0, 0.0, 0.0, 0.8;
    const int rows = 40, cols = 60;
    const auto field = [](int x, int) { return x / 20; };
    writeWishartFolder(d + "/T3", rows, cols, 4, {surface, dihedral, volume}, field, 23);
    // One 8 x 8 training square inside each field (corners at pixel edges: 64 pixel centres each); a fourth,
    // tiny class for the refusal.
    const auto roi = [&](bool withTiny) {
        QString text = "<?xml version=\"1.0\"?>\n<ROI>\n";
        const char* names[3] = {"surface", "dihedral", "volume"};
        for (int c = 0; c < 3; ++c)
            text += QStringLiteral("<AREA><name>%1</name><color>%2,%3,0</color><item><type>type_Rect</type>"
                                   "<points>%4,10,%5,10,%5,18,%4,18</points></item></AREA>\n")
                        .arg(names[c]).arg(80 * c).arg(200 - 80 * c).arg(20 * c + 6).arg(20 * c + 14);
        if (withTiny)
            text += "<AREA><name>tiny</name><color>1,2,3</color><item><type>type_Rect</type>"
                    "<points>30,30,32,30,32,32,30,32</points></item></AREA>\n";
        QFile file(d + (withTiny ? "/tiny.xml" : "/roi.xml"));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write((text + "</ROI>\n").toUtf8());
        return (d + (withTiny ? "/tiny.xml" : "/roi.xml")).toStdString();
    };
    const std::string input = (d + "/T3").toStdString(), out = (d + "/out").toStdString(), good = roi(false), tiny = roi(true);
    bool ok = false;
    const std::string printed = run([&] { return ExcuteAlgo_WishartSupervisedClassification(input.c_str(), good.c_str(), out.c_str(), nullptr); }, &ok);
    ASSERT_TRUE(ok) << printed;
    const QString image = d + "/out/T3_WishartSupervised.tif";
    EXPECT_NE(printed.find("[OUTPUT] WishartSupervisedClassification_images=\"" + image.toStdString() + "|" + d.toStdString() +
                           "/out/T3_WishartSupervised_confusion.txt\"\n"), std::string::npos) << printed;
    const std::vector<double> classes = readBand(image, 1);
    long long right = 0;
    for (size_t p = 0; p < classes.size(); ++p)
        right += int(classes[p]) == field(int(p % cols), int(p / cols)) + 1;
    const double accuracy = double(right) / double(classes.size());
    EXPECT_GT(accuracy, 0.97);
    // Training accuracy from the confusion matrix: 3 x 64 training pixels.
    QFile confusion(d + "/out/T3_WishartSupervised_confusion.txt");
    ASSERT_TRUE(confusion.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(confusion.readAll());
    long long trainingRight = 0;
    for (int c = 0; c < 3; ++c)
        for (int y = 10; y < 18; ++y)
            for (int x = 20 * c + 6; x < 20 * c + 14; ++x)
                trainingRight += int(classes[size_t(y) * cols + x]) == c + 1;
    EXPECT_TRUE(text.contains(QStringLiteral("Overall accuracy %\t%1").arg(100.0 * trainingRight / 192.0, 0, 'f', 2))) << text.toStdString();
    EXPECT_NE(printed.find(QStringLiteral("_training_accuracy=\"%1\"").arg(100.0 * trainingRight / 192.0, 0, 'f', 2).toStdString()),
              std::string::npos);
    std::printf("supervised Wishart on three simulated 4-look fields: accuracy %.4f over the image, %.4f on training\n",
                accuracy, trainingRight / 192.0);

    // The SVM on per-pixel features of the same fields and training areas.
    const std::string svmPrinted = run([&] { return ExcuteAlgo_PolSAR_SVMClassification(input.c_str(), good.c_str(), out.c_str(), nullptr); }, &ok);
    ASSERT_TRUE(ok) << svmPrinted;
    EXPECT_NE(svmPrinted.find("[OUTPUT] PolSAR_SVMClassification_images=\"" + d.toStdString() + "/out/T3_SVM.tif|" +
                              d.toStdString() + "/out/T3_SVM_model.yml\"\n"), std::string::npos) << svmPrinted;
    const std::vector<double> svmClasses = readBand(d + "/out/T3_SVM.tif", 1);
    long long svmRight = 0;
    for (size_t p = 0; p < svmClasses.size(); ++p)
        svmRight += int(svmClasses[p]) == field(int(p % cols), int(p / cols)) + 1;
    const double svmAccuracy = double(svmRight) / double(svmClasses.size());
    EXPECT_GT(svmAccuracy, 0.9);
    QFile model(d + "/out/T3_SVM_model.yml");
    ASSERT_TRUE(model.open(QIODevice::ReadOnly));
    const QByteArray modelText = model.readAll();
    EXPECT_TRUE(modelText.contains("feature_mean") && modelText.contains("feature_deviation") && modelText.contains("RBF"));
    std::printf("SVM on the same fields: accuracy %.4f over the image\n", svmAccuracy);

    const std::string refused = run([&] { return ExcuteAlgo_WishartSupervisedClassification(input.c_str(), tiny.c_str(), out.c_str(), nullptr); }, &ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(refused, "[ERROR] WishartSupervisedClassification: the parameter RoiFile (" + tiny +
                           ") has the class \"tiny\" with 4 pixels of the image, fewer than the 9 a covariance needs!\n");
}
