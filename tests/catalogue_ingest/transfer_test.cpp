// Download and upload against an HTTP server that the test starts on 127.0.0.1 and stops itself: resumed
// transfers, retries, checksums from headers and side files, unpacking, uploads by PUT and POST, refusals.
#include "catalogue_test_support.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

using namespace testsupport;
using namespace cataloguetest;

namespace
{

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

// The loopback server of loopback_server.py, stopped when the test ends.
class LoopbackServer
{
public:
    LoopbackServer(const QTemporaryDir& dir, const QStringList& files)
    {
        m_log = dir.filePath("requests.log");
        m_store = dir.filePath("store");
        QDir().mkpath(m_store);
        QStringList args{QStringLiteral(LOOPBACK_SERVER),
                         "--log",
                         m_log,
                         "--store",
                         m_store,
                         "--max-requests",
                         "100",
                         "--lifetime",
                         "90"};
        for (const QString& f : files)
            args << "--file" << f;
        m_process.start(QStringLiteral("python3"), args);
        if (m_process.waitForStarted(10000) && m_process.waitForReadyRead(10000))
            m_port = m_process.readLine().trimmed().toInt();
    }
    ~LoopbackServer()
    {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
    bool ready() const { return m_port > 0; }
    QString url(const QString& path) const { return QStringLiteral("http://127.0.0.1:%1%2").arg(m_port).arg(path); }
    QStringList requests() const { return QString::fromUtf8(readAll(m_log)).split('\n', Qt::SkipEmptyParts); }
    QString stored(const QString& name) const { return QDir(m_store).filePath(name); }

private:
    QProcess m_process;
    QString m_log, m_store;
    int m_port = 0;
};

struct Download
{
    bool ok;
    std::string text;
    QMap<QString, QString> outputs;
    int code;
};

Download download(const QString& url, const QString& folder, int answer = 0)
{
    RecordingResult result;
    result.answer = answer;
    StdoutCapture capture;
    const bool ok = ExcuteAlgo_VYROrthoDowndoad(url.toUtf8().constData(), folder.toUtf8().constData(), &result.record);
    const std::string text = capture.text();
    return {ok, text + "\n" + result.record.message, outputLines(text), result.record.code};
}

// A payload that is not the same byte repeated, so that a misplaced resume shows.
QByteArray payload(int size)
{
    QByteArray bytes(size, 0);
    for (int i = 0; i < size; ++i)
        bytes[i] = char((i * 131 + i / 251) & 0xff);
    return bytes;
}

} // namespace

TEST(CatalogueTransfer, DownloadsResumeRetryAndCheckTheirChecksum)
{
    if (QStandardPaths::findExecutable("python3").isEmpty())
        GTEST_SKIP() << "python3 is needed for the loopback server";
    QTemporaryDir dir;
    const QByteArray body = payload(300000);
    writeFile(dir.filePath("scene.bin"), body);
    const QString hex = QString::fromLatin1(QCryptographicHash::hash(body, QCryptographicHash::Sha256).toHex());
    QDir().mkpath(dir.filePath("src/product"));
    writeFile(dir.filePath("src/product/band1.txt"), "inside the archive");
    ASSERT_EQ(QProcess::execute("tar", {"-czf", dir.filePath("product.tar.gz"), "-C", dir.filePath("src"), "product"}),
              0);
    LoopbackServer server(
        dir, {"scene.bin=" + dir.filePath("scene.bin"), "product.tar.gz=" + dir.filePath("product.tar.gz")});
    ASSERT_TRUE(server.ready());

    // Plain download with the checksum in a header.
    const QString out = dir.filePath("out");
    Download d = download(server.url("/files/scene.bin"), out);
    ASSERT_TRUE(d.ok) << d.text;
    EXPECT_EQ(readAll(out + "/scene.bin"), body);
    EXPECT_EQ(d.outputs.value("OutputDir"), out);
    EXPECT_EQ(d.outputs.value("DownloadedFile"), out + "/scene.bin");
    EXPECT_EQ(d.outputs.value("Checksum"), "SHA-256:" + hex);

    // The connection drops half-way: the second try asks for the rest only and the file is whole.
    const QString cut = dir.filePath("cut");
    d = download(server.url("/cut/scene.bin"), cut);
    ASSERT_TRUE(d.ok) << d.text;
    EXPECT_EQ(readAll(cut + "/scene.bin"), body);
    QStringList cutRequests = server.requests().filter("/cut/");
    ASSERT_EQ(cutRequests.size(), 2);
    EXPECT_TRUE(cutRequests[0].endsWith("/cut/scene.bin - -"));
    EXPECT_TRUE(cutRequests[1].contains("bytes=") && !cutRequests[1].contains("bytes=0-"))
        << cutRequests[1].toStdString();

    // A partial file from an earlier, killed run is resumed; a server ignoring Range is read from the start.
    const QString resumed = dir.filePath("resumed");
    QDir().mkpath(resumed);
    writeFile(resumed + "/scene.bin.part", body.left(1000));
    d = download(server.url("/files/scene.bin"), resumed);
    ASSERT_TRUE(d.ok) << d.text;
    EXPECT_EQ(readAll(resumed + "/scene.bin"), body);
    EXPECT_TRUE(server.requests().last().contains("bytes=1000-"));
    EXPECT_FALSE(QFile::exists(resumed + "/scene.bin.part"));
    const QString ignored = dir.filePath("ignored");
    QDir().mkpath(ignored);
    writeFile(ignored + "/scene.bin.part", QByteArray(5000, 'x'));
    d = download(server.url("/norange/scene.bin"), ignored);
    ASSERT_TRUE(d.ok) << d.text;
    EXPECT_EQ(readAll(ignored + "/scene.bin"), body);

    // A 503 is retried; the checksum of a side file is used when no header states one.
    d = download(server.url("/flaky/scene.bin"), dir.filePath("flaky"));
    ASSERT_TRUE(d.ok) << d.text;
    EXPECT_EQ(server.requests().filter("/flaky/").size(), 2);
    d = download(server.url("/sidecar/scene.bin"), dir.filePath("sidecar"));
    ASSERT_TRUE(d.ok) << d.text;
    EXPECT_EQ(d.outputs.value("Checksum"), "SHA-256:" + hex);

    // A wrong checksum is refused and leaves neither the file nor its partial copy.
    const QString wrong = dir.filePath("wrong");
    d = download(server.url("/wrongsum/scene.bin"), wrong);
    EXPECT_FALSE(d.ok);
    EXPECT_NE(d.text.find("checksum of the file (" + hex.toStdString() + ") differs"), std::string::npos) << d.text;
    EXPECT_TRUE(QDir(wrong).entryList(QDir::Files).isEmpty());
    EXPECT_EQ(d.text.find("[OUTPUT]"), std::string::npos);

    // "#unpack" unpacks the archive beside it.
    const QString unpacked = dir.filePath("unpacked");
    d = download(server.url("/files/product.tar.gz#unpack"), unpacked);
    ASSERT_TRUE(d.ok) << d.text;
    EXPECT_EQ(d.outputs.value("UnpackedDir"), unpacked + "/product");
    EXPECT_EQ(readAll(unpacked + "/product/product/band1.txt"), "inside the archive");

    // Stopped by the host while the bytes arrive: nothing is left, neither file nor partial copy nor folder.
    const QString stopped = dir.filePath("stopped");
    d = download(server.url("/files/scene.bin"), stopped, -1);
    EXPECT_FALSE(d.ok);
    EXPECT_EQ(d.code, -2);
    EXPECT_FALSE(QFileInfo::exists(stopped));

    // 404 is not retried and leaves nothing.
    const QString missing = dir.filePath("missing");
    d = download(server.url("/files/none.bin"), missing);
    EXPECT_FALSE(d.ok);
    EXPECT_NE(d.text.find("the server answered HTTP 404"), std::string::npos) << d.text;
    EXPECT_EQ(server.requests().filter("none.bin").size(), 1);
    EXPECT_FALSE(QFileInfo::exists(missing));
}

TEST(CatalogueTransfer, UploadsByPutAndPostWithChecksumAndRetries)
{
    if (QStandardPaths::findExecutable("python3").isEmpty())
        GTEST_SKIP() << "python3 is needed for the loopback server";
    QTemporaryDir dir;
    LoopbackServer server(dir, {});
    ASSERT_TRUE(server.ready());
    const QByteArray body = payload(200000);
    writeFile(dir.filePath("scene.tif"), body);
    const QString hex = QString::fromLatin1(QCryptographicHash::hash(body, QCryptographicHash::Sha256).toHex());

    EntryRun run = runJson(ExcuteAlgo_UploadAlgo, QJsonObject{{"InputFile", dir.filePath("scene.tif")},
                                                              {"Url", server.url("/upload/put.tif")}});
    ASSERT_TRUE(run.ok) << run.text;
    EXPECT_EQ(readAll(server.stored("put.tif")), body); // the server stores only when the header matches
    EXPECT_EQ(run.outputs.value("Checksum"), "SHA-256:" + hex);
    EXPECT_EQ(run.outputs.value("HttpStatus"), "201");
    EXPECT_TRUE(server.requests().last().endsWith(hex));

    run = runJson(ExcuteAlgo_UploadAlgo, QJsonObject{{"InputFile", dir.filePath("scene.tif")},
                                                     {"Url", server.url("/upload/post.tif")},
                                                     {"Method", "POST"}});
    ASSERT_TRUE(run.ok) << run.text;
    EXPECT_EQ(readAll(server.stored("post.tif")), body);

    run = runJson(ExcuteAlgo_UploadAlgo,
                  QJsonObject{{"InputFile", dir.filePath("scene.tif")}, {"Url", server.url("/flaky-upload/f.tif")}});
    ASSERT_TRUE(run.ok) << run.text;
    EXPECT_EQ(server.requests().filter("/flaky-upload/").size(), 2);

    // A folder goes as one .tar.gz that unpacks to the same content.
    QDir().mkpath(dir.filePath("product/sub"));
    writeFile(dir.filePath("product/sub/a.txt"), "abc");
    run = runJson(ExcuteAlgo_UploadAlgo,
                  QJsonObject{{"InputFile", dir.filePath("product")}, {"Url", server.url("/upload/product.tar.gz")}});
    ASSERT_TRUE(run.ok) << run.text;
    const QString check = dir.filePath("check");
    QDir().mkpath(check);
    ASSERT_EQ(QProcess::execute("tar", {"-xzf", server.stored("product.tar.gz"), "-C", check}), 0);
    EXPECT_EQ(readAll(check + "/product/sub/a.txt"), "abc");

    run = runJson(ExcuteAlgo_UploadAlgo,
                  QJsonObject{{"InputFile", dir.filePath("scene.tif")}, {"Url", server.url("/elsewhere/x")}});
    EXPECT_FALSE(run.ok);
    EXPECT_NE(run.text.find("the server answered HTTP 404"), std::string::npos) << run.text;
}

TEST(CatalogueTransfer, BadAddressesAndFoldersAreRefused)
{
    QTemporaryDir dir;
    writeFile(dir.filePath("file"), "x");
    // A port on the loopback address that nobody listens on: bind one, note it, close it.
    QProcess probe;
    probe.start("python3", {"-c", "import socket;s=socket.socket();s.bind(('127.0.0.1',0));print(s.getsockname()[1])"});
    probe.waitForFinished(10000);
    const int closedPort = probe.readAll().trimmed().toInt();

    Download d = download("ftp://127.0.0.1/x.tif", dir.filePath("a"));
    EXPECT_FALSE(d.ok);
    EXPECT_NE(d.text.find("VYROrthoDowndoad: the parameter Url (ftp://127.0.0.1/x.tif) is not an http:// or https:// "
                          "address!"),
              std::string::npos)
        << d.text;
    // Tests run with ALGO_NETWORK_LOOPBACK_ONLY: any other host is refused before a connection is tried.
    ASSERT_TRUE(qEnvironmentVariableIsSet("ALGO_NETWORK_LOOPBACK_ONLY"));
    d = download("http://example.org/x.tif", dir.filePath("a"));
    EXPECT_FALSE(d.ok);
    EXPECT_NE(d.text.find("VYROrthoDowndoad: the parameter Url (http://example.org/x.tif) is not on the loopback "
                          "address, the only one allowed while ALGO_NETWORK_LOOPBACK_ONLY is set!"),
              std::string::npos)
        << d.text;
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("a")));
    d = download("http://127.0.0.1:1/x", dir.filePath("file"));
    EXPECT_FALSE(d.ok);
    EXPECT_NE(d.text.find("VYROrthoDowndoad: the parameter OutputDir (" + dir.filePath("file").toStdString() +
                          ") is a file, not a folder!"),
              std::string::npos)
        << d.text;
    if (closedPort > 0)
    {
        const QString target = dir.filePath("never");
        d = download(QStringLiteral("http://127.0.0.1:%1/x.bin").arg(closedPort), target);
        EXPECT_FALSE(d.ok);
        EXPECT_NE(d.text.find("VYROrthoDowndoad: http://127.0.0.1:"), std::string::npos) << d.text;
        EXPECT_FALSE(QFileInfo::exists(target));
    }
    const EntryRun run =
        runJson(ExcuteAlgo_UploadAlgo, QJsonObject{{"InputFile", dir.filePath("file")}, {"Url", "file:///etc/passwd"}});
    EXPECT_FALSE(run.ok);
    EXPECT_NE(run.text.find("[ERROR] UploadAlgo: the parameter Url (file:///etc/passwd) is not an http:// or https:// "
                            "address!"),
              std::string::npos)
        << run.text;
}
