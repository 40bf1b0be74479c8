// Every exported entry that takes a path, called with every input of the hostile corpus (broken, empty, huge,
// band-less, folder-shaped and shell-hostile names): each call returns false with a message or succeeds, never
// crashes or hangs, writes nothing outside its own sandbox, and no file name ever runs as a command.
#include "AlgoFactoryHost.h"
#include "sys_utility.h"
#include "test_support.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <sys/resource.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <thread>

using namespace testsupport;

namespace
{

const char* const kMarker = "injected_marker"; // what an injected "touch" in a corpus name would create

struct EntryCase
{
    std::string entry;
    bool jsonText = false;
    QJsonArray params; // the description's parameters, in index order
};

// Entries whose refusals are silent by their own definition (their descriptions in Model/abd say so): the matrix
// still checks everything else for them.
const std::map<std::string, const char*> kSilentRefusals = {
    {"ExcuteAlgo_HyspecPrePro", "a third path without the suffix img or dat is refused without a message"},
    {"ExcuteAlgo_DistanceClassification", "an input that does not open as a raster is refused without a message"},
    {"ExcuteAlgo_MLClassification", "an input that does not open as a raster is refused without a message"},
    {"ExcuteAlgo_CreateThumb", "a folder entry stands for the rasters inside it; an empty one gives nothing to do"},
};

// Open findings in code still being written by its owners: the call is skipped (and named in the output) until the
// owners fix it, so that the sanitizer build does not abort on it. Remove a row when its fix lands.
const std::map<std::pair<std::string, std::string>, const char*> kOpenFindings = {};

void PrintTo(const EntryCase& entryCase, std::ostream* out)
{
    *out << entryCase.entry;
}

bool isOutputKey(const QString& key, const QString& example)
{
    static const QRegularExpression output("out|save|dst|target|result|export|report|decompresspath|folder",
                                           QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression input("^in|input|src", QRegularExpression::CaseInsensitiveOption);
    return !input.match(key).hasMatch() && (output.match(key).hasMatch() || example.startsWith("/data/out/"));
}

bool looksLikePath(const QString& key, const QString& example)
{
    static const QRegularExpression withExtension("^[^ ()]*\\.[A-Za-z0-9]{2,4}$");
    return !key.contains("Exp") && (example.startsWith('/') || withExtension.match(example).hasMatch());
}

// The example as text; for a list of paths (a JSON-text entry's array), its first item.
QString exampleText(const QJsonValue& example)
{
    return example.isArray() ? example.toArray().first().toVariant().toString() : example.toVariant().toString();
}

// One case per exported entry with at least one path parameter, from the descriptions in Model/abd.
std::vector<EntryCase> pathEntries()
{
    std::vector<EntryCase> cases;
    std::set<std::string> seen;
    QDir folder(QStringLiteral(ALGO_SOURCE_DIR "/Model/abd"));
    for (const QString& name : folder.entryList({"*.json"}, QDir::Files, QDir::Name))
    {
        QFile file(folder.filePath(name));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QJsonObject description = QJsonDocument::fromJson(file.readAll()).object();
        const std::string entry = description.value("entry").toString().toStdString();
        if (entry.empty() || seen.count(entry))
            continue;
        EntryCase entryCase{entry, description.value("route").toString() == "json-text",
                            description.value("params").toArray()};
        bool takesPath = false;
        for (const QJsonValue& param : entryCase.params)
            takesPath |= param.toObject().value("kind").toString() == "text" &&
                         looksLikePath(param.toObject().value("key").toString(),
                                       exampleText(param.toObject().value("example")));
        if (!takesPath)
            continue;
        seen.insert(entry);
        cases.push_back(entryCase);
    }
    return cases;
}

// The corpus: made once by CTest's set-up test (ALGO_HOSTILE_CORPUS), or here when the binary runs alone.
QString corpusFolder()
{
    static QTemporaryDir own;
    static QString folder = [] {
        const QString given = qEnvironmentVariable("ALGO_HOSTILE_CORPUS");
        if (!given.isEmpty() && QFileInfo::exists(given + "/inputs.txt"))
            return given;
        for (const char* python : {"/usr/bin/python3", "python3"})
            if (QProcess::execute(python, {sourceDir() + "/tests/reliability/make_hostile_corpus.py", own.path()}) == 0)
                return own.path();
        return QString();
    }();
    return folder;
}

struct HostileInput
{
    QString kind;
    QString relative;
};

// ALGO_HOSTILE_KINDS (kinds separated by ",") narrows the corpus when one kind of input is being looked into.
std::vector<HostileInput> corpusInputs(const QString& folder)
{
    const QStringList only = qEnvironmentVariable("ALGO_HOSTILE_KINDS").split(',', Qt::SkipEmptyParts);
    std::vector<HostileInput> inputs;
    QFile list(folder + "/inputs.txt");
    if (!list.open(QIODevice::ReadOnly))
        return inputs;
    for (const QString& line : QString::fromUtf8(list.readAll()).split('\n', Qt::SkipEmptyParts))
        if (only.isEmpty() || only.contains(line.section('\t', 0, 0)))
            inputs.push_back({line.section('\t', 0, 0), line.section('\t', 1)});
    return inputs;
}

// Every path under a folder (recursively), relative to it.
QStringList tree(const QString& folder)
{
    QStringList paths;
    QDirIterator it(folder, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        paths << QDir(folder).relativeFilePath(it.next());
    paths.sort();
    return paths;
}

// Copies the input (file, folder or ENVI pair) into the call's own folder, keeping its relative path.
QString placeInput(const QString& corpus, const HostileInput& input, const QString& folder)
{
    const QString source = corpus + "/" + input.relative, target = folder + "/" + input.relative;
    QDir().mkpath(QFileInfo(target).absolutePath());
    if (QFileInfo(source).isDir())
        QDir().mkpath(target);
    else
        QFile::copy(source, target);
    const QString header = QFileInfo(source).path() + "/" + QFileInfo(source).completeBaseName() + ".hdr";
    if (QFileInfo::exists(header))
        QFile::copy(header, QFileInfo(target).path() + "/" + QFileInfo(header).fileName());
    return target;
}

// Aborts the run, naming the call, when one call takes longer than any entry may on these tiny inputs.
class HangWatch
{
public:
    explicit HangWatch(std::string what) : m_what(std::move(what)), m_thread([this] { watch(); }) {}
    ~HangWatch()
    {
        {
            std::lock_guard<std::mutex> guard(m_lock);
            m_done = true;
        }
        m_wake.notify_all();
        m_thread.join();
    }

private:
    void watch()
    {
        std::unique_lock<std::mutex> guard(m_lock);
        if (!m_wake.wait_for(guard, std::chrono::minutes(5), [this] { return m_done; }))
        {
            std::fprintf(stderr, "HANG: %s did not return\n", m_what.c_str());
            std::abort();
        }
    }
    std::string m_what;
    std::mutex m_lock;
    std::condition_variable m_wake;
    bool m_done = false;
    std::thread m_thread;
};

// A header claiming 10^9 x 10^9 pixels must be refused, not believed: cap the address space (4 GiB) so that a
// reader that believes it fails here instead of exhausting a shared machine (sanitizer builds cap allocations
// themselves).
void capAddressSpace()
{
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    const rlim_t cap = rlim_t(4) << 30;
    rlimit limit{};
    if (getrlimit(RLIMIT_AS, &limit) == 0 && (limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur > cap))
    {
        limit.rlim_cur = cap;
        setrlimit(RLIMIT_AS, &limit);
    }
#endif
}

class HostileInputs : public ::testing::TestWithParam<EntryCase>
{
protected:
    static void SetUpTestSuite() { capAddressSpace(); }
};

} // namespace

TEST_P(HostileInputs, EveryInputIsRefusedWithAMessageOrHandledInsideItsFolder)
{
    const EntryCase& entryCase = GetParam();
    const QString corpus = corpusFolder();
    if (corpus.isEmpty())
        GTEST_SKIP() << "the hostile corpus could not be made (python3 with GDAL is needed)";
    const std::vector<HostileInput> inputs = corpusInputs(corpus);
    ASSERT_GE(inputs.size(), qEnvironmentVariableIsEmpty("ALGO_HOSTILE_KINDS") ? 15u : 1u);
    const QStringList corpusBefore = tree(corpus);
    const char* kinds = AlgoFactory_EntryKinds(entryCase.entry.c_str());
    ASSERT_NE(kinds, nullptr) << "not exported";
    const int argumentCount = *kinds ? int(QString::fromLatin1(kinds).split(',').size()) : 0;

    QTemporaryDir work;
    const QString previous = QDir::currentPath();
    const QString cwd = work.filePath("cwd");
    QDir().mkpath(cwd);
    ASSERT_TRUE(QDir::setCurrent(cwd)); // an injected command would run here

    int index = 0;
    for (const HostileInput& input : inputs)
    {
        SCOPED_TRACE(input.kind.toStdString() + ": " + input.relative.left(60).toStdString());
        const auto finding = kOpenFindings.find({entryCase.entry, input.kind.toStdString()});
        if (finding != kOpenFindings.end())
        {
            std::printf("OPEN FINDING, call skipped: %s with %s: %s\n", entryCase.entry.c_str(),
                        input.relative.toUtf8().constData(), finding->second);
            continue;
        }
        const QString sandbox = work.filePath(QString("call%1").arg(index++));
        const QString inputPath = placeInput(corpus, input, sandbox + "/in");
        // The output folder's name is hostile too: outputs and temporary folders derive from it.
        const QString outFolder = sandbox + "/out; touch " + kMarker + " 'q\"";
        QDir().mkpath(outFolder);

        QStringList args;
        QJsonObject json;
        for (const QJsonValue& value : entryCase.params)
        {
            const QJsonObject param = value.toObject();
            const QString key = param.value("key").toString();
            const QString example = exampleText(param.value("example"));
            QString text = example;
            QJsonValue jsonValue = param.value("example");
            if (param.value("kind").toString() == "text" && looksLikePath(key, example))
            {
                if (isOutputKey(key, example))
                {
                    const QString suffix = QFileInfo(example).suffix();
                    text = suffix.isEmpty() ? outFolder : outFolder + "/result." + suffix;
                }
                else
                    text = inputPath;
                jsonValue = param.value("example").isArray() ? QJsonValue(QJsonArray{text}) : QJsonValue(text);
            }
            args << text;
            json.insert(key, jsonValue);
        }
        if (entryCase.jsonText)
            args = QStringList{QString::fromUtf8(QJsonDocument(json).toJson(QJsonDocument::Compact))};
        else // a description may list table parameters beyond the exported signature's
            args = args.mid(0, argumentCount);

        std::vector<QByteArray> bytes;
        for (const QString& arg : args)
            bytes.push_back(arg.toLocal8Bit());
        std::vector<const char*> argv;
        for (const QByteArray& arg : bytes)
            argv.push_back(arg.constData());

        RecordingResult result;
        // Some refusals are meant to stay off standard output and go to the host's log instead.
        const QString hostLog = SysUtility::LogInfo::Instance()->FilePath();
        const qint64 hostLogBefore = QFileInfo(hostLog).size();
        bool ok = false;
        std::string said;
        {
            HangWatch watch(entryCase.entry + " with " + input.relative.left(80).toStdString());
            StdoutCapture capture;
            ok = AlgoFactory_CallEntry(entryCase.entry.c_str(), int(argv.size()), argv.data(), &result.record);
            said = capture.text();
        }
        if (qEnvironmentVariableIsSet("ALGO_HOSTILE_ECHO")) // one line per call, for the matrix of outcomes
        {
            const QString last = QString::fromLocal8Bit(said.c_str()).trimmed().section('\n', -1).left(100);
            const QString what = input.kind + ":" + QFileInfo(input.relative).fileName();
            std::fprintf(stderr, "MATRIX\t%s\t%s\t%s\t%s\t%.100s\n", entryCase.entry.c_str(), what.toUtf8().constData(),
                         ok ? "ok" : "refused", last.toUtf8().constData(), result.record.message);
        }
        if (!ok && !kSilentRefusals.count(entryCase.entry))
            EXPECT_TRUE(!said.empty() || result.record.message[0] != '\0' || QFileInfo(hostLog).size() > hostLogBefore)
                << "refused without a message";
        // Sizes read from a header are checked before anything is allocated for them.
        EXPECT_EQ(said.find("out of memory"), std::string::npos) << said;
        EXPECT_EQ(std::strstr(result.record.message, "out of memory"), nullptr) << result.record.message;
        // Written only inside the call's sandbox: its input folder and its output folder.
        const QStringList top = QDir(sandbox).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
        EXPECT_EQ(top, QStringList({"in", QFileInfo(outFolder).fileName()}));
        const QStringList strays = QDir(cwd).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
        EXPECT_TRUE(strays.isEmpty() || strays == QStringList{"AlgoFactor_log.txt"}) << strays.join(", ").toStdString();
        EXPECT_TRUE(tree(sandbox).filter(kMarker).filter(QRegularExpression("(^|/)injected_marker$")).isEmpty());
        EXPECT_LT(std::strlen(result.record.message), sizeof result.record.message);
    }
    EXPECT_EQ(tree(corpus), corpusBefore);
    QDir::setCurrent(previous);
}

INSTANTIATE_TEST_SUITE_P(Entries, HostileInputs, ::testing::ValuesIn(pathEntries()),
                         [](const ::testing::TestParamInfo<EntryCase>& info) { return info.param.entry; });
