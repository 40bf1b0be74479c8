// The batch file reader (calls, ids, references, cycles), the report round trip and the host's outcome lines.
#include "batch_child.h"
#include "batch_file.h"
#include "batch_report.h"

#include <QJsonArray>
#include <gtest/gtest.h>

using namespace cli;

namespace
{

const BatchLine& byNumber(const std::vector<BatchLine>& lines, int number)
{
    for (const BatchLine& line : lines)
        if (line.number == number)
            return line;
    static BatchLine none;
    ADD_FAILURE() << "no line " << number;
    return none;
}

} // namespace

TEST(BatchFile, ReadsBothFormsSkipsBlankAndCommentLines)
{
    const auto lines = parseBatch("# ndvi then a filter\n"
                                  "{\"id\": \"ndvi\", \"algorithm\": \"BandCompute\", \"params\": {\"Bands\": \"3|4\", \"dataType\": 6}}\n"
                                  "\n"
                                  "{\"entry\": \"UtilityFormTran\", \"args\": [\"$ndvi.OutputFile\", 2, 0.5, true]}\n");
    ASSERT_EQ(lines.size(), 2u);
    const BatchLine& first = lines[0];
    EXPECT_EQ(first.number, 2);
    EXPECT_EQ(first.id, "ndvi");
    EXPECT_FALSE(first.isEntry);
    EXPECT_EQ(first.name, "BandCompute");
    EXPECT_EQ(first.params.value("dataType").toInt(), 6);
    EXPECT_TRUE(first.error.isEmpty());

    const BatchLine& second = lines[1];
    EXPECT_EQ(second.id, "4");  // no id: the line number
    EXPECT_TRUE(second.isEntry);
    EXPECT_EQ(second.args, (QStringList{"$ndvi.OutputFile", "2", "0.5", "true"}));
    ASSERT_EQ(second.dependencies.size(), 1u);
    EXPECT_EQ(second.dependencies[0], 0);
    EXPECT_TRUE(second.error.isEmpty()) << second.error.toStdString();
}

TEST(BatchFile, BadLinesCarryTheirOwnMessageAndLeaveTheOthers)
{
    const auto lines = parseBatch("not json\n"
                                  "[1, 2]\n"
                                  "{\"params\": {}}\n"
                                  "{\"algorithm\": \"A\", \"entry\": \"B\"}\n"
                                  "{\"algorithm\": \"\"}\n"
                                  "{\"entry\": \"E\", \"args\": [[1]]}\n"
                                  "{\"algorithm\": \"A\", \"params\": [1]}\n"
                                  "{\"id\": \"x\", \"algorithm\": \"A\"}\n"
                                  "{\"id\": \"x\", \"algorithm\": \"A\"}\n"
                                  "{\"id\": true, \"algorithm\": \"A\"}\n"
                                  "{\"algorithm\": \"A\", \"params\": {\"In\": \"$nobody.OutputFile\"}}\n"
                                  "{\"algorithm\": \"Fine\", \"params\": {\"In\": \"a.tif\"}}\n");
    ASSERT_EQ(lines.size(), 12u);
    EXPECT_TRUE(byNumber(lines, 1).error.startsWith("line 1 is not a JSON object ("));
    EXPECT_EQ(byNumber(lines, 2).error, "line 2 is not a JSON object");
    EXPECT_EQ(byNumber(lines, 3).error, "line 3 needs either \"algorithm\" with \"params\" or \"entry\" with \"args\"");
    EXPECT_EQ(byNumber(lines, 4).error, "line 4 needs either \"algorithm\" with \"params\" or \"entry\" with \"args\"");
    EXPECT_EQ(byNumber(lines, 5).error, "line 5: \"algorithm\" must be a non-empty text");
    EXPECT_EQ(byNumber(lines, 6).error, "line 6: every item of \"args\" must be a text, a number or a boolean");
    EXPECT_EQ(byNumber(lines, 7).error, "line 7: \"params\" must be a JSON object");
    EXPECT_TRUE(byNumber(lines, 8).error.isEmpty());
    EXPECT_EQ(byNumber(lines, 9).error, "line 9: the id \"x\" is already used on line 8");
    EXPECT_EQ(byNumber(lines, 10).error, "line 10: \"id\" must be a non-empty text or a number");
    EXPECT_EQ(byNumber(lines, 11).error, "line 11: no line has the id \"nobody\" (in \"$nobody.OutputFile\")");
    EXPECT_TRUE(byNumber(lines, 12).error.isEmpty());
}

TEST(BatchFile, CyclesMarkEveryLineOnThemButNotTheLinesBesideThem)
{
    // a -> b -> c -> a is a cycle; d depends on a (not on the cycle); s references itself.
    const auto lines = parseBatch("{\"id\": \"a\", \"algorithm\": \"X\", \"params\": {\"In\": \"$c.Out\"}}\n"
                                  "{\"id\": \"b\", \"algorithm\": \"X\", \"params\": {\"In\": \"$a.Out\"}}\n"
                                  "{\"id\": \"c\", \"algorithm\": \"X\", \"params\": {\"In\": [\"x|$b.Out\"]}}\n"
                                  "{\"id\": \"d\", \"algorithm\": \"X\", \"params\": {\"In\": \"$a.Out\"}}\n"
                                  "{\"id\": \"s\", \"algorithm\": \"X\", \"params\": {\"In\": \"$s.Out\"}}\n");
    for (int number : {1, 2, 3})
        EXPECT_TRUE(byNumber(lines, number).error.contains("its references form a cycle")) << number;
    EXPECT_EQ(byNumber(lines, 1).error, "line 1: its references form a cycle (a -> c -> b -> a)");
    EXPECT_TRUE(byNumber(lines, 4).error.isEmpty());
    EXPECT_EQ(byNumber(lines, 5).error, "line 5: its references form a cycle (s -> s)");
}

TEST(BatchFile, ReferencesAreReplacedInsideTextsListsAndNestedValues)
{
    auto lines = parseBatch("{\"id\": \"b\", \"algorithm\": \"X\", \"params\": {\"Images\": \"$a.Out|$a.Out\", "
                            "\"List\": [\"$a-1.Mask\", 3], \"Keep\": \"$HOME\", \"Nested\": {\"p\": \"x/$a.Out.tif\"}}}\n"
                            "{\"id\": \"a\", \"algorithm\": \"X\"}\n{\"id\": \"a-1\", \"algorithm\": \"X\"}\n");
    ASSERT_TRUE(lines[0].error.isEmpty()) << lines[0].error.toStdString();
    resolveLine(&lines[0], [](const BatchReference& r) { return "<" + r.id + ":" + r.key + ">"; });
    const QJsonObject params = lines[0].params;
    EXPECT_EQ(params.value("Images").toString(), "<a:Out>|<a:Out>");
    EXPECT_EQ(params.value("List").toArray().at(0).toString(), "<a-1:Mask>");
    EXPECT_EQ(params.value("List").toArray().at(1).toInt(), 3);
    EXPECT_EQ(params.value("Keep").toString(), "$HOME");  // no key: not a reference
    EXPECT_EQ(params.value("Nested").toObject().value("p").toString(), "x/<a:Out>.tif");
}

TEST(BatchReport, EntriesSurviveTheRoundTripAndOtherTextIsRefused)
{
    ReportEntry entry;
    entry.id = "ndvi \"7\"";
    entry.line = 3;
    entry.success = true;
    entry.status = "succeeded";
    entry.code = 0;
    entry.message = "two\nlines";
    entry.outputs = {{"OutputFile", "/tmp/a b.tif"}};
    entry.seconds = 1.23456;
    const QByteArray text = reportLine(entry);
    EXPECT_TRUE(text.endsWith('\n'));
    EXPECT_EQ(text.count('\n'), 1);  // one object per line, whatever the message holds
    ReportEntry back;
    ASSERT_TRUE(parseReportLine(text, &back));
    EXPECT_EQ(back.id, entry.id);
    EXPECT_EQ(back.line, 3);
    EXPECT_TRUE(back.success);
    EXPECT_EQ(back.message, entry.message);
    EXPECT_EQ(back.outputs, entry.outputs);
    EXPECT_DOUBLE_EQ(back.seconds, 1.235);
    EXPECT_FALSE(parseReportLine("", &back));
    EXPECT_FALSE(parseReportLine("{\"id\": 3, \"success\": true}", &back));
    EXPECT_FALSE(parseReportLine("{\"id\": \"a\"}", &back));
}

TEST(HostOutcome, OutputsErrorsAndTheClosingLineOfTheHost)
{
    LineOutcome ok = readHostOutcome("[INFO]note\n[OUTPUT] OutputFile=\"/tmp/x y.tif\"\n[OUTPUT] Count=\"4\"\n", "progress 100%\n", 0);
    EXPECT_TRUE(ok.success);
    ASSERT_EQ(ok.outputs.size(), 2);
    EXPECT_EQ(ok.outputs[0], qMakePair(QString("OutputFile"), QString("/tmp/x y.tif")));
    EXPECT_EQ(ok.outputs[1], qMakePair(QString("Count"), QString("4")));

    LineOutcome failed = readHostOutcome("[ERROR] \"a.tif\" does not exists!\n",
                                         "progress 0%\nalgofactory: failed with code 3: no such band\n", 1);
    EXPECT_FALSE(failed.success);
    EXPECT_EQ(failed.code, 3);
    EXPECT_EQ(failed.message, "no such band");

    LineOutcome fromError = readHostOutcome("[ERROR] \"a.tif\" does not exists!\n", "algofactory: failed\n", 1);
    EXPECT_EQ(fromError.code, -1);
    EXPECT_EQ(fromError.message, "\"a.tif\" does not exists!");

    LineOutcome unmarked = readHostOutcome("[INFO]x\nCan not find the Algo!\n[OUTPUT] A=\"b\"\n", "algofactory: failed\n", 1);
    EXPECT_EQ(unmarked.message, "Can not find the Algo!");

    LineOutcome usage = readHostOutcome("", "algofactory: no entry named ExcuteAlgo_Nope\n", 2);
    EXPECT_EQ(usage.message, "no entry named ExcuteAlgo_Nope");
    LineOutcome bare = readHostOutcome("", "", 5);
    EXPECT_EQ(bare.message, "failed with exit status 5");
}
