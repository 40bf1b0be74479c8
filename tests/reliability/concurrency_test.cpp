// Eight host threads calling ExcuteAlgo and direct entries at once: every output right, progress reaching each
// caller's own record, and the run log appended in whole lines.
#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <atomic>
#include <cmath>
#include <mutex>
#include <thread>

using namespace testsupport;

namespace
{

constexpr int kThreads = 8;
constexpr int kRounds = 8;
constexpr int kWidth = 40;
constexpr int kHeight = 30;

double pixel(int band, int x, int y)
{
    return 100.0 * band + x + 2.0 * y;
}

// A progress record one call owns; the callback checks it is handed its own record.
struct OwnedResult
{
    AlgoResult record{};
    std::atomic<int> calls{0};
    std::atomic<bool> outOfRange{false};
    std::atomic<bool> foreign{false};
};

int onProgress(double progress, const char*, void* data)
{
    auto* self = static_cast<OwnedResult*>(data);
    if (self->record.userData != data)
        self->foreign = true;
    if (!(progress >= 0.0 && progress <= 100.0))
        self->outOfRange = true;
    ++self->calls;
    return 0;
}

enum class Task
{
    FormatJson,      // ExcuteAlgo("UtilityFormTran"): a copy of the input
    BandMathDirect,  // ExcuteAlgo_BandCompute: 2 * band 1 + band 2
    BandMathJson,    // ExcuteAlgo("BandCompute"): the same formula through the dispatcher
    MeanFilterDirect // ExcuteAlgo_ImgProFiltSpaMean on band 1: a linear ramp keeps its interior values
};

struct Call
{
    Task task;
    QString output;
    bool ok = false;
    std::unique_ptr<OwnedResult> result;
};

QByteArray local(const QString& text)
{
    return text.toLocal8Bit();
}

void runCall(const QString& input, Call& call)
{
    const QByteArray in = local(input), out = local(call.output);
    AlgoResult* record = &call.result->record;
    switch (call.task)
    {
    case Task::FormatJson:
        call.ok =
            ExcuteAlgo("UtilityFormTran", "{\"InputFile\":\"" + in + "\",\"OutputFile\":\"" + out + "\"}", record);
        break;
    case Task::BandMathDirect:
        call.ok = ExcuteAlgo_BandCompute("b1 * 2 + b2", in + "|" + in, "1|2", out, 6, record);
        break;
    case Task::BandMathJson:
        call.ok = ExcuteAlgo("BandCompute", "{\"CalculationExp\":\"b1 * 2 + b2\",\"Images\":\"" + in + "|" + in +
                                                "\",\"Bands\":\"1|2\",\"OutputFile\":\"" + out + "\",\"dataType\":6}",
                             record);
        break;
    case Task::MeanFilterDirect:
        call.ok = ExcuteAlgo_ImgProFiltSpaMean(in, out, 3, "1", 0, record);
        break;
    }
}

// The first wrong pixel of the call's output, or empty when all are right.
std::string checkOutput(const Call& call)
{
    const std::vector<double> first = readBand(call.output, 1);
    if (first.size() != size_t(kWidth * kHeight))
        return "wrong size " + std::to_string(first.size());
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
        {
            double expected = 0.0;
            switch (call.task)
            {
            case Task::FormatJson:
                expected = pixel(0, x, y);
                break;
            case Task::BandMathDirect:
            case Task::BandMathJson:
                expected = 2.0 * pixel(0, x, y) + pixel(1, x, y);
                break;
            case Task::MeanFilterDirect:
                if (x == 0 || y == 0 || x == kWidth - 1 || y == kHeight - 1)
                    continue; // borders depend on the edge rule, checked by the filter's own tests
                expected = pixel(0, x, y);
                break;
            }
            const double got = first[size_t(y * kWidth + x)];
            if (std::fabs(got - expected) > 1e-4)
                return "pixel " + std::to_string(x) + "," + std::to_string(y) + " is " + std::to_string(got) +
                       ", expected " + std::to_string(expected);
        }
    if (call.task == Task::FormatJson)
    {
        const std::vector<double> second = readBand(call.output, 2);
        for (int i = 0; i < kWidth * kHeight; ++i)
            if (second.size() != size_t(kWidth * kHeight) || second[size_t(i)] != pixel(1, i % kWidth, i / kWidth))
                return "band 2 differs at " + std::to_string(i);
    }
    return std::string();
}

} // namespace

TEST(Concurrency, EightThreadsCallingEntriesAndExcuteAlgoGetTheirOwnCorrectResults)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString input = dir.filePath("input.tif");
    ASSERT_TRUE(makeRaster(input, kWidth, kHeight, 2, GDT_Float32, pixel));

    // The run log goes to the working folder: give this test its own.
    const QString previous = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(dir.path()));

    std::vector<std::vector<Call>> calls(kThreads);
    for (int t = 0; t < kThreads; ++t)
        for (int round = 0; round < kRounds; ++round)
        {
            Call call;
            // Threads 0-3 run one task each throughout; 4-7 rotate, so the same algorithm and different ones overlap.
            call.task = Task(t < 4 ? t : (t + round) % 4);
            call.output = dir.filePath(QString("out_%1_%2.tif").arg(t).arg(round));
            call.result = std::make_unique<OwnedResult>();
            call.result->record.callback = &onProgress;
            call.result->record.userData = call.result.get();
            calls[size_t(t)].push_back(std::move(call));
        }

    {
        StdoutCapture quiet; // eight threads of [OUTPUT] lines are not what this test reads
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([&, t] {
                for (Call& call : calls[size_t(t)])
                    runCall(input, call);
            });
        for (std::thread& thread : threads)
            thread.join();
    }

    int jsonCalls = 0, bandMathJsonCalls = 0;
    for (const auto& perThread : calls)
        for (const Call& call : perThread)
        {
            SCOPED_TRACE(call.output.toStdString());
            ASSERT_TRUE(call.ok);
            EXPECT_EQ(call.result->record.code, 0);
            EXPECT_GT(call.result->calls.load(), 0);
            EXPECT_FALSE(call.result->outOfRange.load());
            EXPECT_FALSE(call.result->foreign.load());
            EXPECT_EQ(checkOutput(call), "");
            jsonCalls += call.task == Task::FormatJson || call.task == Task::BandMathJson;
            bandMathJsonCalls += call.task == Task::BandMathJson;
        }

    // Every log line is one whole line: a time stamp, then one of the labels the dispatcher writes.
    QFile log(dir.filePath("AlgoFactor_log.txt"));
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QStringList logLines = QString::fromLocal8Bit(log.readAll()).split('\n', Qt::SkipEmptyParts);
    const QRegularExpression whole(
        "^\\d{4}-\\d\\d-\\d\\d \\d\\d-\\d\\d-\\d\\d (Current Path:|metadata Path:|CalculationExp:|Images:|Bands:|"
        "OutputFile:|dataType:)[^\\n]*$");
    int calculationLines = 0;
    for (const QString& line : logLines)
    {
        EXPECT_TRUE(whole.match(line).hasMatch()) << line.toStdString();
        calculationLines += line.contains(" CalculationExp:b1 * 2 + b2");
    }
    EXPECT_EQ(logLines.filter(" Current Path:").size(), jsonCalls);
    EXPECT_EQ(calculationLines, bandMathJsonCalls);
    QDir::setCurrent(previous);
}
