// Archive extraction: messages, the tool chosen by each suffix, hostile names, zip slip and corrupt archives.
#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <cstdlib>

using namespace testsupport;

namespace
{

QString quoted(const QString& text)
{
    QString q = text;
    q.replace("'", "'\\''");
    return "'" + q + "'";
}

bool sh(const QString& command)
{
    return std::system(command.toLocal8Bit().constData()) == 0;
}

void writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

std::string decompressJson(const QString& archive, const QString& root)
{
    QJsonObject object;
    object["decompressFile"] = archive;
    object["decompressPath"] = root;
    object["suffix"] = "x";
    return QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}

struct Extraction
{
    bool ok;
    std::string out;
    QString folder; // from the [OUTPUT] line
};

Extraction decompress(const std::string& json)
{
    StdoutCapture capture;
    const bool ok = ExcuteAlgo_Decompress(json.c_str());
    Extraction run{ok, capture.text(), {}};
    const QRegularExpression line("\\[OUTPUT\\] decompresPath=\"(.*)\"\n");
    const QRegularExpressionMatch match = line.match(QString::fromStdString(run.out));
    if (match.hasMatch())
        run.folder = match.captured(1);
    return run;
}

} // namespace

TEST(Decompress, RefusalMessages)
{
    QTemporaryDir dir;
    writeFile(dir.filePath("nosuffix"), "data");
    writeFile(dir.filePath("a.tar.gz"), "data");
    struct Row
    {
        std::string json;
        std::string expected;
    } rows[] = {
        {decompressJson(dir.filePath("missing.tar.gz"), dir.path()), "[ERROR] The src file does not exist!\n"},
        {"this is not json", "[ERROR] The src file does not exist!\n"},
        {decompressJson(dir.filePath("nosuffix"), dir.path()), "[ERROR] The input src file have incorrcted format!\n"},
        {decompressJson(dir.filePath("a.tar.gz"), dir.filePath("no/such/folder")), "The path can not be created!\n"},
    };
    for (const Row& row : rows)
    {
        const Extraction run = decompress(row.json);
        EXPECT_FALSE(run.ok) << row.json;
        EXPECT_EQ(run.out, row.expected) << row.json;
    }
}

TEST(Decompress, EachArchiveKindUnpacksIntoAFreshFolder)
{
    QTemporaryDir dir;
    const QString src = dir.filePath("src");
    QDir().mkpath(src);
    writeFile(src + "/band1.txt", "pixels of band one\n");
    const QString a = quoted(src);
    struct Row
    {
        const char* name;
        const char* make; // %1 source folder, %2 archive
        const char* expectedFile;
    } rows[] = {
        {"scene.tar.gz", "tar czf %2 -C %1 band1.txt", "band1.txt"},
        {"scene.tgz", "tar czf %2 -C %1 band1.txt", "band1.txt"},
        {"scene.tar.bz2", "tar cjf %2 -C %1 band1.txt", "band1.txt"},
        {"scene.tar.xz", "tar cJf %2 -C %1 band1.txt", "band1.txt"},
        {"scene.tar", "tar cf %2 -C %1 band1.txt", "band1.txt"},
        {"scene.zip", "cd %1 && zip -q %2 band1.txt", "band1.txt"},
        {"band1.txt.gz", "gzip -c %1/band1.txt > %2", "band1.txt"},
        {"band1.txt.bz2", "bzip2 -c %1/band1.txt > %2", "band1.txt"},
        {"band1.txt.xz", "xz -c %1/band1.txt > %2", "band1.txt"},
    };
    const QString root = dir.filePath("out");
    QDir().mkpath(root);
    for (const Row& row : rows)
    {
        const QString archive = dir.filePath(row.name);
        ASSERT_TRUE(sh(QString(row.make).arg(a, quoted(archive)))) << row.name;
        const Extraction run = decompress(decompressJson(archive, root));
        EXPECT_TRUE(run.ok) << row.name;
        const QString base = QString(row.name).section('.', 0, 0);
        EXPECT_TRUE(QRegularExpression("^" + QRegularExpression::escape(root + "/" + base) + "_[0-9a-f]{32}$")
                        .match(run.folder)
                        .hasMatch())
            << run.out;
        // Only the unpacked file: a ".tar.gz" is never taken for a single ".gz", a single file's copy is gone.
        EXPECT_EQ(QDir(run.folder).entryList(QDir::Files | QDir::NoDotAndDotDot), QStringList({row.expectedFile}))
            << row.name;
        EXPECT_EQ(readFile(run.folder + "/" + row.expectedFile), QByteArray("pixels of band one\n")) << row.name;
        EXPECT_TRUE(QFile::exists(archive)) << "the archive itself stays";
    }
}

TEST(Decompress, HostileNamesInjectNothing)
{
    QTemporaryDir dir;
    const QString marker = dir.filePath("INJECTED");
    writeFile(dir.filePath("band1.txt"), "x\n");
    // Blanks, both quotes, a semicolon and command substitutions that would create the marker in the current
    // folder, which is the temporary folder for this test.
    const QString previous = QDir::currentPath();
    QDir::setCurrent(dir.path());
    const QString name = QStringLiteral("my scene 'q' \"d\"; $(touch INJECTED) `touch INJECTED`.tar.gz");
    const QString archive = dir.filePath(name);
    ASSERT_TRUE(sh(QString("tar czf %1 -C %2 band1.txt").arg(quoted(archive), quoted(dir.path()))));
    const QString root = dir.filePath("out; touch INJECTED");
    QDir().mkpath(root);
    const std::string json = decompressJson(archive, root);
    const Extraction run = decompress(json);
    EXPECT_TRUE(run.ok) << run.out;
    EXPECT_TRUE(QFile::exists(run.folder + "/band1.txt")) << run.out;
    QDir::setCurrent(previous);
    EXPECT_FALSE(QFile::exists(marker));
}

TEST(Decompress, ZipSlipAndCorruptArchivesStayInside)
{
    QTemporaryDir dir;
    const QString work = dir.filePath("work/inner");
    QDir().mkpath(work);
    writeFile(dir.filePath("work/evil.txt"), "evil\n");
    // Members named "../evil.txt", as a hostile archive would carry them.
    ASSERT_TRUE(sh(QString("cd %1 && zip -q ../slip.zip ../evil.txt && tar -cPf ../slip.tar ../evil.txt").arg(quoted(work))));
    QFile::remove(dir.filePath("work/evil.txt"));
    const QString root = dir.filePath("out");
    QDir().mkpath(root);

    const Extraction zip = decompress(decompressJson(dir.filePath("work/slip.zip"), root));
    EXPECT_FALSE(zip.ok) << "unzip warns about the dropped '../'";
    EXPECT_EQ(QDir(zip.folder).entryList(QDir::Files), QStringList({"evil.txt"}));
    const Extraction tar = decompress(decompressJson(dir.filePath("work/slip.tar"), root));
    EXPECT_FALSE(tar.ok) << "tar refuses the member";
    EXPECT_TRUE(QDir(tar.folder).entryList(QDir::Files).isEmpty());
    EXPECT_FALSE(QFile::exists(dir.filePath("evil.txt")));
    EXPECT_FALSE(QFile::exists(dir.filePath("work/evil.txt")));
    EXPECT_FALSE(QFile::exists(root + "/evil.txt"));

    writeFile(dir.filePath("broken.tar.gz"), QByteArray(4096, 'z'));
    const Extraction broken = decompress(decompressJson(dir.filePath("broken.tar.gz"), root));
    EXPECT_FALSE(broken.ok);
    EXPECT_FALSE(broken.folder.isEmpty()) << "the folder is reported before the tool runs";
    EXPECT_TRUE(QDir(broken.folder).entryList(QDir::Files).isEmpty());
}

TEST(Decompress, RarRowRunsTheArchiverAsDesigned)
{
    // A stand-in "rar" first on PATH records its arguments: the row runs "rar -a <archive> <folder>".
    QTemporaryDir dir;
    const QString bin = dir.filePath("bin");
    QDir().mkpath(bin);
    const QString log = dir.filePath("rar.args");
    writeFile(bin + "/rar", QString("#!/bin/sh\nfor a in \"$@\"; do echo \"$a\" >> %1; done\n").arg(quoted(log)).toUtf8());
    QFile::setPermissions(bin + "/rar", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    writeFile(dir.filePath("pack one.rar"), "rar bytes");
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", bin.toUtf8() + ":" + path);
    const Extraction run = decompress(decompressJson(dir.filePath("pack one.rar"), dir.path()));
    qputenv("PATH", path);
    EXPECT_TRUE(run.ok);
    EXPECT_EQ(readFile(log), ("-a\n" + dir.filePath("pack one.rar") + "\n" + run.folder + "\n").toUtf8());
}
