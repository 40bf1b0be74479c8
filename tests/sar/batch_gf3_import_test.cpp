// ExcuteAlgo_Batch_GF3_Strip_DataImport: the check messages, the pairing of images with meta.xml files by product
// number, the naming rules and an end-to-end import of two products.
#include "AlgoFactory.h"
#include "sar_fixtures.h"
#include "sar_parameter_file.h"
#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

using namespace sarfixtures;
using testsupport::StdoutCapture;

namespace
{

const char* const kSecondFsi = "GF3_SAY_FSI_002732_E122.3_N29.9_20170215_L1A_%1_L10002188179";

struct Outcome
{
    bool ok = false;
    std::string out;
};

Outcome importFolder(const QString& folder, const char* mode, const char* polarization, const char* rule,
                 const QString& output, const char* format)
{
    StdoutCapture capture;
    Outcome run;
    run.ok = ExcuteAlgo_Batch_GF3_Strip_DataImport(folder.toLocal8Bit().constData(), "L1A", mode, polarization, rule,
                                                   output.toLocal8Bit().constData(), format, nullptr);
    run.out = capture.text();
    return run;
}

// Two FSI dual-polarisation products of different days.
void writeTwoProducts(const QString& folder)
{
    Gf3Meta first;
    first.imagingMode = "FSI";
    first.polarization = "HHHV";
    first.centerTime = "2019-05-11 22:33:44.5";
    writeGf3Product(folder, kFsiProduct, first, {"HH", "HV"});
    Gf3Meta second = first;
    second.centerTime = "2017-02-15 01:02:03";
    writeGf3Product(folder, kSecondFsi, second, {"HH", "HV"}, 3, 2);
}

void writeText(const QString& path, const QByteArray& text)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text);
}

} // namespace

TEST(BatchGf3Import, EveryCheckPrintsItsMessageAndStops)
{
    QTemporaryDir root;
    auto folder = [&](const char* name, const std::function<void(const QString&)>& fill) {
        const QString path = root.filePath(name);
        QDir().mkpath(path);
        fill(path);
        return path;
    };
    const QString good = folder("good", writeTwoProducts);
    const QString empty = folder("empty", [](const QString&) {});
    const QString extraImage = folder("extra", [](const QString& f) {
        writeTwoProducts(f);
        testsupport::makeRaster(f + "/" + QString(kFsiiProduct).arg("HH").replace("FSII", "FSI") + ".tiff", 2, 2, 2,
                                GDT_Int16, [](int, int, int) { return 1; }, "GTiff", false);
    });
    const QString mismatched = folder("mismatch", [](const QString& f) {
        writeTwoProducts(f);
        QFile::rename(f + "/" + QString(kSecondFsi).arg("HHHV") + ".meta.xml",
                      f + "/" + QString(kSecondFsi).arg("HHHV").replace("L10002188179", "L10002188180") + ".meta.xml");
    });
    const QString unreadable = folder("unreadable", [](const QString& f) {
        writeTwoProducts(f);
        writeText(f + "/" + QString(kFsiProduct).arg("HH") + ".tiff", "not an image");
    });
    const QString badMeta = folder("badmeta", [](const QString& f) {
        writeTwoProducts(f);
        writeText(f + "/" + QString(kSecondFsi).arg("HHHV") + ".meta.xml", "<product><CenterTime>");
    });
    const QString out = root.filePath("out");
    QDir().mkpath(out);

    struct Row
    {
        const char* what;
        QString folder;
        const char* mode;
        const char* polarization;
        QString output;
        std::string message;
    };
    const Row rows[] = {
        {"no folder", "", "FSI", "HH", out, "The input directory is empty!"},
        {"FSI with DH", good, "FSI", "DH", out, "please input imaging modet ype correctly!"},
        {"EXT", good, "EXT", "HH", out, "please input imaging modet ype correctly!"},
        {"no image", empty, "FSI", "HH", out, "Image data not found in specified directory!"},
        {"other mode", good, "FSII", "HH", out, "Image data not found in specified directory!"},
        {"counts differ", extraImage, "FSI", "HH", out, "The number of data and parameter files is inconsistent !"},
        {"product numbers differ", mismatched, "FSI", "HH", out,
         "The ID number of the data product is inconsistent with the ID number of the parameter file!"},
        {"image does not open", unreadable, "FSI", "HH", out, "Contains data that can not be opened !"},
        {"output folder missing", good, "FSI", "HH", root.filePath("nowhere"),
         "Please select correct output directory !"},
        {"meta.xml does not parse", badMeta, "FSI", "HH", out,
         "Open the xml parameter file error: " + (badMeta + "/" + QString(kSecondFsi).arg("HHHV")).toStdString() +
             ".meta.xml"},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.what);
        const Outcome run = importFolder(row.folder, row.mode, row.polarization, "ImagingDate", row.output, "GTiff");
        EXPECT_FALSE(run.ok);
        EXPECT_EQ(run.out, "[ERROR] " + row.message + "\n");
    }
    EXPECT_TRUE(filesIn(out).isEmpty());
}

TEST(BatchGf3Import, ImportsEveryProductUnderItsRuleName)
{
    struct Row
    {
        const char* rule;
        const char* format;
        const char* polarization;
        QStringList names; // in directory order: the KAS product first
        const char* suffix;
    };
    const Row rows[] = {
        {"ImagingDateAndTime", "GTiff", "HH", {"20190511223344_L10003992720_HH", "20170215010203_L10002188179_HH"},
         ".tif"},
        {"ImagingDate", "ENVI", "HV", {"20190511_L10003992720_HV", "20170215_L10002188179_HV"}, ".img"},
        {"OriginalImageName", "HFA", "HH", {QString(kFsiProduct).arg("HH"), QString(kSecondFsi).arg("HH")}, ".img"},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.rule);
        QTemporaryDir dir;
        const QString in = dir.filePath("in"), out = dir.filePath("out");
        QDir().mkpath(in);
        QDir().mkpath(out);
        writeTwoProducts(in);
        const Outcome run = importFolder(in, "FSI", row.polarization, row.rule, out, row.format);
        ASSERT_TRUE(run.ok) << run.out;
        std::string expected = "Judge the rationality of input paramenters sucessfully\n"
                               "start call algorithm plugin: Batch_GF3_Strip_DataImport\n";
        for (const QString& name : row.names)
            expected += "[OUTPUT] Batch_GF3_dataImport_images=\"" + (out + "/" + name + row.suffix).toStdString() +
                        "\"\n[OUTPUT] Batch_GF3_dataImport_XML=\"" + (out + "/" + name + ".xml").toStdString() +
                        "\"\n";
        EXPECT_EQ(run.out, expected);

        const std::vector<double> second = readComplex(out + "/" + row.names[1] + row.suffix);
        ASSERT_EQ(second.size(), size_t(3 * 2 * 2));
        EXPECT_EQ(second[2 * 5], gf3SampleI(row.polarization, 2, 1));
        EXPECT_EQ(second[2 * 5 + 1], gf3SampleQ(row.polarization, 2, 1));
        SarParameterRecord record;
        ASSERT_TRUE(ReadSarParameterFile((out + "/" + row.names[1] + ".xml").toLocal8Bit().constData(), record));
        EXPECT_EQ(record.polarizationType, row.polarization);
        EXPECT_EQ(record.polarizationMode, "DUAL");
        EXPECT_EQ(record.numberOfColumns, 3);
        EXPECT_DOUBLE_EQ(record.centerTime, 3723.0);
    }
}
