#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CommandProcess.h"
#include "TemporaryDirectory.h"

namespace {

using NerioTest::CommandProcess;
using NerioTest::runCommand;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char const* table = "{\"op\":\"table\",\"family\":\"portConfig\",\"name\":\"ports\"}\n";
constexpr char const* cold = "{\"op\":\"start\",\"mode\":\"cold\"}\n";
constexpr char const* warm = "{\"op\":\"start\",\"mode\":\"warm\"}\n";
constexpr char const* trunkAtFive =
    "{\"op\":\"entryIs\",\"table\":\"ports\",\"key\":{\"portId\":5},\"result\":{\"portMode\":\"trunk\"}}\n";
constexpr char const* failing = "{\"op\":\"nothing\"}\n";
constexpr char const* ok = "{\"ok\":true}\n";
constexpr char const* notOk =
    "{\"ok\":false,\"error\":\"ScriptError\",\"message\":\"unknown op \\\"nothing\\\"\"}\n";

std::string lines(std::initializer_list<char const*> all) {
    std::string text;
    for (auto const* line : all)
        text += line;
    return text;
}

class ScriptCommandTest : public testing::Test {
protected:
    /** Runs the text as a file and from standard input; both must end and answer alike. */
    void expectBothWays(std::string const& text, int status, std::string const& output) {
        contentsOfIs(file, text);
        for (auto const& result : {runCommand({"script", file}), runCommand({"script"}, text),
                                   runCommand({"script", "-"}, text)}) {
            EXPECT_EQ(result.status, status);
            EXPECT_EQ(result.output, output);
            EXPECT_EQ(result.errors, "");
        }
    }

    TemporaryDirectory directory;
    std::string file = directory.path("lines");
};

TEST_F(ScriptCommandTest, StatusIsZeroWhenEveryLineIsCarriedOut) {
    expectBothWays(lines({table, cold, trunkAtFive}), 0, lines({ok, ok, ok}));
    expectBothWays("", 0, "");
}

TEST_F(ScriptCommandTest, StatusIsOneWhenALineFailsAndTheScriptGoesOn) {
    expectBothWays(lines({failing, table, failing, cold}), 1, lines({notOk, ok, notOk, ok}));
    expectBothWays("[]\n", 1,
                   "{\"ok\":false,\"error\":\"ScriptError\","
                   "\"message\":\"expected an object, found an array\"}\n");
}

TEST_F(ScriptCommandTest, BlankLinesAndCommentsAreSkipped) {
    expectBothWays(lines({"# {\n", "\n", "   \t\r\n", table, "#\n", cold, "\n"}), 0, lines({ok, ok}));
    expectBothWays(R"({"op":"registers"})", 0, "{\"ok\":true,\"writes\":[]}\n");  // no end of line
}

TEST_F(ScriptCommandTest, AFileThatIsNotJsonLinesIsRefusedAsAWhole) {
    contentsOfIs(file, lines({"# first\n", table, "\n", "{\"op\":]\n", cold}));
    auto const result = runCommand({"script", file, "--switch", directory.path("switch")});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors,
                StartsWith("nerio script: " + file + ": line 4, column 7: not JSON: unexpected ']'"));
    EXPECT_EQ(NerioTest::lineCount(result.errors), 1);
    EXPECT_FALSE(std::filesystem::exists(directory.path("switch")));
}

TEST_F(ScriptCommandTest, StandardInputThatIsNotJsonLinesEndsThere) {
    auto const result = runCommand({"script"}, lines({"# first\n", table, failing, "start\n", cold}));
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.output, lines({ok, notOk}));
    EXPECT_EQ(result.errors, "nerio script: standard input: line 4, column 1: not JSON: invalid literal\n");
}

TEST_F(ScriptCommandTest, LinesThatAreAlmostJsonAreNamed) {
    for (std::string const text :
         {"{", "{}{}", "{\"op\":1e999}", "{'op':1}", "\"\xff\"", "{\"a\":1,}", "nul"}) {
        auto const result = runCommand({"script"}, "\n" + text + "\n");
        EXPECT_EQ(result.status, 2) << text;
        EXPECT_THAT(result.errors, StartsWith("nerio script: standard input: line 2"));
        EXPECT_THAT(result.errors, HasSubstr("not JSON"));
        EXPECT_THAT(result.errors, testing::Not(HasSubstr("json.exception")));
        EXPECT_EQ(NerioTest::lineCount(result.errors), 1);
    }
}

TEST_F(ScriptCommandTest, AFileThatCannotBeReadIsNamed) {
    EXPECT_EQ(runCommand({"script", directory.path("none")}).errors,
              "nerio script: " + directory.path("none") + ": No such file or directory\n");
    auto const result = runCommand({"script", directory.path()});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.errors, "nerio script: " + directory.path() + ": Is a directory\n");
}

TEST_F(ScriptCommandTest, AFileMayBeAPipe) {
    auto const result = runCommand({"script", "/dev/stdin"}, lines({table, failing}));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, lines({ok, notOk}));
}

TEST_F(ScriptCommandTest, EachLineIsAnsweredBeforeTheNextIsRead) {
    CommandProcess script({"script"});
    script.write(table);
    EXPECT_EQ(script.readLine() + "\n", ok);
    script.write(failing);
    EXPECT_EQ(script.readLine() + "\n", notOk);
    script.write("# a comment\n");
    script.write(cold);
    EXPECT_EQ(script.readLine() + "\n", ok);
    EXPECT_EQ(script.ended(), 1);
    EXPECT_EQ(script.output(), "");
}

TEST_F(ScriptCommandTest, MessagesThatCutACharacterAreStillText) {
    std::string const text =
        "{\"op\":\"profile\",\"hwApi\":\"x\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4"
        "\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\u00e4\"}\n";
    auto const result = runCommand({"script"}, text + table);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, StartsWith("{\"ok\":false,\"error\":\"ScriptError\",\"message\":\"hwApi: "));
    EXPECT_THAT(result.output, EndsWith(ok));
}

TEST_F(ScriptCommandTest, ASwitchDirectoryOutlivesTheProcess) {
    auto const place = directory.path("deep/switch");
    auto const first = runCommand({"script", "--switch", place}, lines({table, cold, trunkAtFive}));
    EXPECT_EQ(first.status, 0) << first.output;
    auto const second =
        runCommand({"script", "--switch", place},
                   lines({table, warm, "{\"op\":\"registers\"}\n", trunkAtFive, "{\"op\":\"registers\"}\n",
                          "{\"op\":\"entries\",\"table\":\"ports\"}\n",
                          "{\"op\":\"shadow\",\"table\":\"ports\",\"hwTable\":0,\"index\":5}\n"}));
    EXPECT_EQ(second.status, 0);
    auto const* const entries =
        R"({"ok":true,"entries":[{"key":{"portId":5},"result":{"portMode":"trunk","txDisabled":false,)"
        "\"l2ForwardingDisabled\":false}}]}\n";
    EXPECT_EQ(second.output,
              lines({ok, ok, "{\"ok\":true,\"writes\":[]}\n", ok, "{\"ok\":true,\"writes\":[]}\n", entries,
                     "{\"ok\":true,\"words\":[0,0,0,0]}\n"}));
    // The chip keeps what it was told as well: a cold start over it writes every port again.
    auto const third =
        runCommand({"script", "--switch", place}, lines({table, cold, "{\"op\":\"registers\"}\n"}));
    EXPECT_THAT(third.output, HasSubstr("[\"egress/port[5]/vlan_cfg\",1]"));
}

TEST_F(ScriptCommandTest, AKilledScriptLeavesItsSwitchBehind) {
    auto const place = directory.path("switch");
    CommandProcess first({"script", "--switch", place});
    for (auto const* line : {table, cold, trunkAtFive}) {
        first.write(line);
        first.readLine();
    }
    ::kill(first.process(), SIGKILL);
    EXPECT_EQ(first.ended(), -SIGKILL);
    auto const second =
        runCommand({"script", "--switch", place},
                   lines({table, warm, "{\"op\":\"registers\"}\n",
                          "{\"op\":\"entry\",\"table\":\"ports\",\"key\":{\"portId\":5}}\n"}));
    EXPECT_THAT(second.output, HasSubstr("\"writes\":[]"));
    EXPECT_THAT(second.output, HasSubstr("\"has\":true"));
}

TEST_F(ScriptCommandTest, ASwitchDirectoryInUseIsRefused) {
    auto const place = directory.path("switch");
    CommandProcess first({"script", "--switch", place});
    first.write(lines({table, cold}));
    first.readLine();
    first.readLine();
    auto const second = runCommand({"script", "--switch", place}, lines({table, warm}));
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.output,
              ok + ("{\"ok\":false,\"error\":\"ShadowException\",\"message\":\"" + place +
                    "/shadow/shadow.lock is held by process " + std::to_string(first.process()) + "\"}\n"));
    EXPECT_EQ(first.ended(), 0);
    EXPECT_EQ(runCommand({"script", "--switch", place}, lines({table, warm})).status, 0);
}

TEST_F(ScriptCommandTest, ASwitchDirectoryThatCannotBeMadeIsRefused) {
    contentsOfIs(file, "");
    auto const result = runCommand({"script", "--switch", file}, lines({table, cold}));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output,
              ok + ("{\"ok\":false,\"error\":\"ResourceException\",\"message\":\"cannot make " + file +
                    ": Not a directory\"}\n"));
}

}  // namespace
