// Repeated calls release what they open (datasets, descriptors; leaks show under the sanitizer build), and archive
// names that would run a command if they reached a shell unquoted are unpacked as names.
#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gdal.h>

using namespace testsupport;

namespace
{

int openDescriptors()
{
    return int(QDir("/proc/self/fd").entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System).size());
}

int openDatasets()
{
    GDALDatasetH* list = nullptr;
    int count = 0;
    GDALGetOpenDatasets(&list, &count);
    return count;
}

double ramp(int band, int x, int y)
{
    return 10.0 * band + x + y;
}

} // namespace

TEST(Resources, RepeatedCallsLeaveNoDatasetOrDescriptorOpen)
{
    QTemporaryDir dir;
    const QString input = dir.filePath("in.tif");
    ASSERT_TRUE(makeRaster(input, 24, 20, 3, GDT_UInt16, ramp));
    const QByteArray in = input.toLocal8Bit();
    const QByteArray out = dir.filePath("out.tif").toLocal8Bit();
    const QByteArray missing = dir.filePath("missing.tif").toLocal8Bit();

    // Successes and refusals half-way (the plug-in opens its input, then fails): both must release everything.
    const std::vector<std::pair<const char*, std::function<bool()>>> calls = {
        {"format", [&] { return ExcuteAlgo_UtilityFormTran(in, out, 0, nullptr); }},
        {"band math", [&] { return ExcuteAlgo_BandCompute("b1 + b2", in + "|" + in, "1|2", out, 6, nullptr); }},
        {"band math on a missing image", [&] { return !ExcuteAlgo_BandCompute("b1", missing, "1", out, 6, nullptr); }},
        {"mean filter", [&] { return ExcuteAlgo_ImgProFiltSpaMean(in, out, 3, "1|3", 0, nullptr); }},
        {"resample", [&] { return ExcuteAlgo_ImageResample(in, out, 1, 0, 12, nullptr); }},
        {"k-means", [&] { return ExcuteAlgo_KmeansClassification(in, out, "0|1|2", 3, 5, 0.01, nullptr); }},
    };
    StdoutCapture quiet;
    for (const auto& call : calls)
        ASSERT_TRUE(call.second()) << call.first; // the first round warms the drivers and plug-ins
    const int datasets = openDatasets(), descriptors = openDescriptors();
    for (int round = 0; round < 15; ++round)
        for (const auto& call : calls)
            ASSERT_TRUE(call.second()) << call.first << " in round " << round;
    EXPECT_EQ(openDatasets(), datasets);
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(NoInjection, ArchiveNamesThatWouldRunCommandsAreUnpackedAsNames)
{
    QTemporaryDir dir;
    const QString cwd = dir.filePath("cwd");
    QDir().mkpath(cwd);
    const QString previous = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(cwd)); // where an injected "touch injected_marker" would land

    const QString root = dir.filePath("unpack 'here'; touch injected_marker");
    QDir().mkpath(root);
    for (const QString name : {"$(touch injected_marker).zip", "a;touch injected_marker;b.zip",
                               "`touch injected_marker`.zip", "it's \"q\" & touch injected_marker.zip"})
    {
        SCOPED_TRACE(name.toStdString());
        const QString archive = dir.filePath(name);
        // zip keeps the argument as one name: no shell is involved in making the fixture.
        QFile content(dir.filePath("inside.txt"));
        ASSERT_TRUE(content.open(QIODevice::WriteOnly));
        content.write("content\n");
        content.close();
        QProcess zip;
        zip.setWorkingDirectory(dir.path());
        zip.start("zip", {"-q", archive, "inside.txt"});
        ASSERT_TRUE(zip.waitForFinished() && zip.exitCode() == 0) << "zip is needed";

        const QByteArray json = QJsonDocument(QJsonObject{{"decompressFile", archive}, {"decompressPath", root},
                                                          {"suffix", "zip"}})
                                    .toJson(QJsonDocument::Compact);
        StdoutCapture capture;
        const bool ok = ExcuteAlgo_Decompress(json.constData());
        const std::string said = capture.text();
        ASSERT_TRUE(ok) << said;
        // The folder name keeps the archive's quotes: take everything up to the line's last quote.
        const QRegularExpression output("\\[OUTPUT\\] decompresPath=\"(.*)\"$", QRegularExpression::MultilineOption);
        const QRegularExpressionMatch folder = output.match(QString::fromLocal8Bit(said.c_str()));
        ASSERT_TRUE(folder.hasMatch()) << said;
        QFile unpacked(folder.captured(1) + "/inside.txt");
        ASSERT_TRUE(unpacked.open(QIODevice::ReadOnly));
        EXPECT_EQ(unpacked.readAll(), QByteArray("content\n"));
        EXPECT_EQ(QDir(cwd).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
        EXPECT_FALSE(QFile::exists(dir.filePath("injected_marker")));
    }
    QDir::setCurrent(previous);
}
