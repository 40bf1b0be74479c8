// ExcuteAlgo: printed lines, the run log, JSON errors, names, parameter conversion into a plug-in's record.
#include "test_support.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>

using namespace testsupport;

namespace
{

struct CallOutcome
{
    bool ok = false;
    std::string printed;
};

CallOutcome callExcuteAlgo(const char* name, const char* json, AlgoResult* result = nullptr)
{
    CallOutcome outcome;
    StdoutCapture capture;
    outcome.ok = ExcuteAlgo(name, json, result);
    outcome.printed = capture.text();
    return outcome;
}

// Runs in a fresh working directory, where the run log is written.
class Dispatch : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_previous = QDir::currentPath();
        ASSERT_TRUE(QDir::setCurrent(m_dir.path()));
    }
    void TearDown() override { QDir::setCurrent(m_previous); }

    QStringList logLines() const
    {
        QFile log(m_dir.filePath("AlgoFactor_log.txt"));
        if (!log.open(QIODevice::ReadOnly | QIODevice::Text))
            return {};
        return QString::fromLocal8Bit(log.readAll()).split('\n', Qt::SkipEmptyParts);
    }

    QTemporaryDir m_dir;
    QString m_previous;
};

const char kStart[] = "start analyze the input paramenters: ";
const char kNotFound[] = "Can not find the Algo! Please check your algoname!\n";

} // namespace

TEST_F(Dispatch, RefusalsPrintTheirMessageAndReturnFalse)
{
    const std::string hugeJson = "{\"k\":\"" + std::string(4 << 20, 'x') + "\"}";
    const std::string longName(10000, 'A');
    struct Row
    {
        const char* name;
        const char* json;
        std::string expected;
    } rows[] = {
        {"NoSuchAlgorithm", "{}", std::string(kStart) + "{}\n" + kNotFound},
        {"bandcompute", "{}", std::string(kStart) + "{}\n" + kNotFound},
        {"BandCompute", "not json", std::string(kStart) + "not json\nfailed to open json file!\n"},
        {"BandCompute", "[1, 2]", std::string(kStart) + "[1, 2]\nfailed to read json file!\n"},
        {"BandCompute", nullptr, std::string(kStart) + "\nfailed to open json file!\n"},
        {nullptr, "{}", std::string(kStart) + "{}\n" + kNotFound},
        {longName.c_str(), "{}", std::string(kStart) + "{}\n" + kNotFound},
        {"NoSuchAlgorithm", hugeJson.c_str(), std::string(kStart) + hugeJson + "\n" + kNotFound},
    };
    for (const Row& row : rows)
    {
        RecordingResult recording;
        recording.record.code = 77;
        const CallOutcome outcome = callExcuteAlgo(row.name, row.json, &recording.record);
        EXPECT_FALSE(outcome.ok);
        EXPECT_EQ(outcome.printed, row.expected) << (row.name ? std::string(row.name).substr(0, 40) : "(null)");
        EXPECT_EQ(recording.record.code, 77) << "ExcuteAlgo itself never writes the record";
    }
}

TEST_F(Dispatch, RunLogHasTheTwoTimeStampedLinesAndTheBandComputeParameters)
{
    callExcuteAlgo("BandCompute", R"({"CalculationExp":"b1+b2","Images":"a.tif","Bands":"1|2","OutputFile":"o.tif","dataType":6})");
    const QStringList lines = logLines();
    ASSERT_GE(lines.size(), 7);
    const QRegularExpression stamp(R"(^(\d{4}-\d\d-\d\d \d\d-\d\d-\d\d) (.*)$)");
    const QString first = stamp.match(lines[0]).captured(1);
    ASSERT_FALSE(first.isEmpty()) << lines[0].toStdString();
    const QString appDir = QCoreApplication::applicationDirPath();
    const QStringList expected = {"Current Path:" + appDir, "metadata Path:" + appDir + "/../Model/abd",
                                  "CalculationExp:b1+b2", "Images:a.tif", "Bands:1|2", "OutputFile:o.tif", "dataType:6"};
    for (int i = 0; i < expected.size(); ++i)
    {
        const QRegularExpressionMatch match = stamp.match(lines[i]);
        EXPECT_EQ(match.captured(1), first) << "one time stamp per call";
        EXPECT_EQ(match.captured(2), expected[i]);
    }
}

TEST_F(Dispatch, DirectNamesTakeTheRawTextAndLogNothing)
{
    const CallOutcome outcome = callExcuteAlgo("Decompress", "this is not json");
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.printed.find(kStart), std::string::npos);
    EXPECT_EQ(outcome.printed.find("failed to open json file!"), std::string::npos);
    EXPECT_TRUE(logLines().isEmpty());
}

TEST_F(Dispatch, MetadataRowsPrintTheirParametersAsTheyAreRead)
{
    const char* json = R"({"InputFile":"in.tif","InputXmlFile":"in.xml","OtherKey":"k","OtherValue":"v"})";
    std::string printed = callExcuteAlgo("CreateMetaData", json).printed;
    EXPECT_NE(printed.find("Inputfile path in Algofactory: in.tif\nInputxmlfile path in Algofactory: in.xml\n"
                           "OtherKey path in Algofactory: k\nOtherKey path in Algofactory: v\n"),
              std::string::npos)
        << printed;
    printed = callExcuteAlgo("CreateMetaData_PaInv", json).printed;
    EXPECT_NE(printed.find("InputFilePath:in.tif\nInputFilePath:in.xml\nOtherKey path in Algofactory: k\n"),
              std::string::npos)
        << printed;
}

// Every generic algorithm has a real plug-in, found beside the library first. To follow the JSON route into a
// plug-in's record, the host and the library are copied into a folder of their own where the test plug-in
// stands in for three generic algorithms, and the host runs there.
class StandInHost
{
public:
    StandInHost()
    {
        const QString bin = m_dir.filePath("bin");
        QDir().mkpath(bin);
        for (const char* file : {"algofactory", "libAlgoFactory.so", "libAlgoPlatform.so"})
            m_ready = QFile::copy(buildBinDir() + "/" + file, bin + "/" + file) && m_ready;
        for (const char* name : {"ThresholdSplit", "MSS_Export", "VYROrtho"})
            m_ready = QFile::copy(buildBinDir() + "/../tests/standin/lib" + name + ".so",
                                  bin + "/lib" + name + ".so") && m_ready;
        m_ready = QFile::link(buildBinDir() + "/../Model", m_dir.filePath("Model")) && m_ready;
    }
    bool ready() const { return m_ready; }

    // Runs `algofactory run name json`; returns the exit code and standard output.
    int run(const char* name, const char* json, std::string* printed) const
    {
        QProcess host;
        host.setProcessChannelMode(QProcess::SeparateChannels);
        host.setWorkingDirectory(m_dir.path());
        host.start(m_dir.filePath("bin/algofactory"), {"run", name, json});
        if (!host.waitForFinished(60000))
            return -1;
        *printed = host.readAllStandardOutput().toStdString();
        return host.exitCode();
    }

private:
    QTemporaryDir m_dir;
    bool m_ready = true;
};

TEST_F(Dispatch, ParametersAreConvertedByKindAndMissingOnesArriveEmptyOrZero)
{
    struct Row
    {
        const char* name;
        const char* json;
        std::vector<std::string> echoed;
    } rows[] = {
        {"ThresholdSplit", R"({"InputFile":"in.tif","Band":3,"Threshold":0.25,"OutputFile":"out.tif"})",
         {"echo InputFile=QString:in.tif", "echo Band=int:3", "echo Threshold=double:0.25", "echo OutputFile=QString:out.tif"}},
        {"ThresholdSplit", R"({"InputFile":"in.tif","Band":"4","Threshold":"abc","OutputFile":"out.tif","Extra":1})",
         {"echo InputFile=QString:in.tif", "echo Band=int:4", "echo Threshold=double:0", "echo OutputFile=QString:out.tif"}},
        {"ThresholdSplit", R"({"InputFile":"in.tif","OutputFile":"out.tif"})",
         {"echo InputFile=QString:in.tif", "echo Band=int:0", "echo Threshold=double:0", "echo OutputFile=QString:out.tif"}},
        {"MSS_Export", R"({"InputFile":"i","OutputFile":"o","Scale":"2.5","Threshold":1e2})",
         {"echo Scale=float:2.5", "echo Threshold=double:100", "echo Fields=QString:"}},
        {"VYROrtho",
         R"({"InputFile":"i","DEMFile":"d","RPCFile":"r","OutputFile":"o","Resolution":"2.5","BlockSize":"256","DefaultHeight":1e2})",
         {"echo Resolution=float:2.5", "echo BlockSize=qlonglong:256", "echo DefaultHeight=float:100",
          "echo HeightOffset=float:0", "echo GCPFile=QString:"}},
    };
    const StandInHost host;
    ASSERT_TRUE(host.ready());
    for (const Row& row : rows)
    {
        std::string printed;
        EXPECT_EQ(host.run(row.name, row.json, &printed), 0) << printed;
        for (const std::string& line : row.echoed)
            EXPECT_NE(printed.find(line + "\n"), std::string::npos) << line << "\n" << printed;
        EXPECT_NE(printed.find(std::string("[OUTPUT] echoed=\"") + row.name + "\"\n"), std::string::npos) << printed;
    }
}

TEST_F(Dispatch, GenericEntriesRefuseAnEmptyRequiredPath)
{
    const CallOutcome outcome = callExcuteAlgo("ThresholdSplit", R"({"OutputFile":"out.tif"})");
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.printed, std::string(kStart) + R"({"OutputFile":"out.tif"})" +
                                   "\n[ERROR] ThresholdSplit: the parameter InputFile is empty!\n");
}

TEST_F(Dispatch, EveryTableNameIsFoundAndCopesWithAnEmptyObject)
{
    // Each entry decides what to do with empty texts and zeros; none may crash or throw.
    const char* names[] = {"VYROrtho", "ImageClip", "UtilityFormTran", "SetNodata", "BandCompute", "MNFTransform",
                           "PCAForwardTrans", "KTTrans", "swbhjc", "StatisticalAnalysis", "HysSharpness"};
    for (const char* name : names)
    {
        const CallOutcome outcome = callExcuteAlgo(name, "{}");
        EXPECT_EQ(outcome.printed.find(kNotFound), std::string::npos) << name;
    }
}
