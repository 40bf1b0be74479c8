// RunAlgoPlugin against the test plug-ins: printed lines, AlgoResult contents, result hand-back, stop requests.
#include "run_algo_plugin.h"
#include "test_records.h"
#include "test_support.h"

#include <QFileInfo>
#include <cstring>

using namespace testsupport;

namespace
{

struct RunOutcome
{
    bool ok = false;
    std::string printed;
    AlgoParamHolder holder;
};

RunOutcome runTestPlugin(const QString& library, const TestEchoRecord& record, AlgoResult* result)
{
    RunOutcome outcome;
    outcome.holder = record;
    AlgoRunContext context;
    StdoutCapture capture;
    outcome.ok = RunAlgoPlugin(&context, library, &outcome.holder, result, QString());
    outcome.printed = capture.text();
    return outcome;
}

AlgoResult untouchedRecord()
{
    AlgoResult result;
    std::memset(&result, 0, sizeof result);
    result.code = 12345;
    std::strcpy(result.message, "old message");
    return result;
}

} // namespace

TEST(Runner, LoadFailuresPrintOneLineAndLeaveTheRecordAlone)
{
    struct Row
    {
        const char* library;
        const char* expected;
    } rows[] = {
        {"NoSuchAlgorithmPlugin", "Load NoSuchAlgorithmPlugin algorithm plugin failed!\n"},
        {"AlgoTestNoFactory", "Resolve AlgoTestNoFactory GetAlgoObj failed!\n"},
        {"AlgoTestNullFactory", "Create algo AlgoTestNullFactory failed!\n"},
    };
    for (const Row& row : rows)
    {
        AlgoResult result = untouchedRecord();
        TestEchoRecord record{"succeed", "kept", 3};
        RunOutcome outcome = runTestPlugin(row.library, record, &result);
        EXPECT_FALSE(outcome.ok) << row.library;
        EXPECT_EQ(outcome.printed, row.expected);
        EXPECT_EQ(result.code, 12345);
        EXPECT_STREQ(result.message, "old message");
        const TestEchoRecord* kept = boost::any_cast<TestEchoRecord>(&outcome.holder);
        ASSERT_NE(kept, nullptr) << "the entry's record must stay in the holder";
        EXPECT_EQ(kept->text, "kept");
    }
}

TEST(Runner, OutcomesReachTheCallersRecord)
{
    struct Row
    {
        TestEchoRecord record;
        bool ok;
        int code;
        const char* message;
    } rows[] = {
        {{"succeed", "", 0}, true, 0, ""},
        {{"fail-silent", "", 0}, false, -1, "Failure"},
        {{"fail-with-error", "disk is full", 7}, false, 7, "disk is full"},
        {{"fail-with-error", "zero code", 0}, false, -1, "Failure"},
        {{"throw", "", 0}, false, -1, "AlgoTestPlugin: thrown on purpose"},
        {{"no-such-mode", "", 0}, false, -1, "unknown mode no-such-mode"},
    };
    for (const Row& row : rows)
    {
        RecordingResult recording;
        std::strcpy(recording.record.message, "stale");
        RunOutcome outcome = runTestPlugin("AlgoTestPlugin", row.record, &recording.record);
        EXPECT_EQ(outcome.ok, row.ok) << row.record.mode.toStdString();
        EXPECT_EQ(outcome.printed, "start call algorithm plugin: AlgoTestPlugin\n");
        EXPECT_EQ(recording.record.code, row.code) << row.record.mode.toStdString();
        EXPECT_STREQ(recording.record.message, row.message);
    }
}

TEST(Runner, ProgressIsForwardedInOrderWithItsMessages)
{
    RecordingResult recording;
    runTestPlugin("AlgoTestPlugin", {"succeed", "", 0}, &recording.record);
    EXPECT_EQ(recording.progress, (std::vector<double>{0, 25, 50, 75, 100}));
    EXPECT_EQ(recording.messages.front(), "step 0");
    EXPECT_EQ(recording.messages.back(), "step 4");
}

TEST(Runner, NullRecordAndNullCallbackSwallowProgress)
{
    RunOutcome outcome = runTestPlugin("AlgoTestPlugin", {"fail-silent", "", 0}, nullptr);
    EXPECT_FALSE(outcome.ok);

    AlgoResult result = untouchedRecord();
    result.callback = nullptr;
    outcome = runTestPlugin("AlgoTestPlugin", {"succeed", "", 0}, &result);
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(result.code, 0);
    EXPECT_STREQ(result.message, "");
}

TEST(Runner, ResultRecordComesBackAcrossTheLibraryBoundary)
{
    RunOutcome outcome = runTestPlugin("AlgoTestPlugin", {"echo", "round trip", 42}, nullptr);
    ASSERT_TRUE(outcome.ok);
    const TestEchoRecord* echoed = boost::any_cast<TestEchoRecord>(&outcome.holder);
    ASSERT_NE(echoed, nullptr);
    EXPECT_EQ(echoed->text, "round trip");
    EXPECT_EQ(echoed->number, 42);

    outcome = runTestPlugin("AlgoTestPlugin", {"empty-result", "", 0}, nullptr);
    EXPECT_TRUE(outcome.ok);
    EXPECT_TRUE(outcome.holder.empty()) << "an empty result replaces the entry's record";
}

TEST(Runner, LongMessagesAreCutAtTheRoomWithoutSplittingACharacter)
{
    RecordingResult recording;
    runTestPlugin("AlgoTestPlugin", {"long-message", "", 3000}, &recording.record);
    EXPECT_EQ(recording.record.code, 9);
    const size_t length = std::strlen(recording.record.message);
    EXPECT_EQ(length, size_t(ALGO_RESULT_MESSAGE_SIZE - 2)); // 511 two-byte characters fit in 1023 bytes
    EXPECT_EQ(QString::fromUtf8(recording.record.message), QString(int(length / 2), QChar(0x00E9)));

    AlgoResult exact;
    WriteResultMessage(&exact, QByteArray(ALGO_RESULT_MESSAGE_SIZE - 1, 'x'));
    EXPECT_EQ(std::strlen(exact.message), size_t(ALGO_RESULT_MESSAGE_SIZE - 1));
    WriteResultMessage(&exact, QByteArray(5000, 'y'));
    EXPECT_EQ(std::strlen(exact.message), size_t(ALGO_RESULT_MESSAGE_SIZE - 1));
}

TEST(Runner, StopRequestEndsTheRunAndRemovesTheHalfWrittenFile)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("partial.tif");
    RecordingResult recording;
    recording.answer = -1;
    RunOutcome outcome = runTestPlugin("AlgoTestPlugin", {"write-raster", path, 50}, &recording.record);
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(recording.record.code, -2);
    EXPECT_STREQ(recording.record.message, "The algorithm was cancelled by the user.");
    EXPECT_EQ(recording.progress.size(), 1u) << "the plug-in stops at the first refused progress report";
    EXPECT_FALSE(QFileInfo::exists(path));

    RecordingResult finished;
    outcome = runTestPlugin("AlgoTestPlugin", {"write-raster", path, 50}, &finished.record);
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(readBand(path, 1), std::vector<double>(16 * 50, 7.0));
    for (size_t i = 1; i < finished.progress.size(); ++i)
        EXPECT_LE(finished.progress[i - 1], finished.progress[i]);
    EXPECT_EQ(finished.progress.back(), 100.0);
}

TEST(Runner, PluginFileIsLookedUpBesideTheLibrary)
{
    EXPECT_EQ(PluginFilePath("AlgoTestPlugin"), buildBinDir() + "/libAlgoTestPlugin.so");
    EXPECT_EQ(PluginFilePath("NoSuchAlgorithmPlugin"), QString("NoSuchAlgorithmPlugin"));
}
