#include <cstdlib>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "BuildUnderTest.h"
#include "CommandProcess.h"
#include "TemporaryDirectory.h"
#include "nerio/CommandForms.h"
#include "nerio/Commands.h"

/* Completion and manual, which are made of the definitions of the commands. */
namespace {

using NerioTest::lineCount;
using NerioTest::runCommand;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

std::vector<std::string> linesOf(std::string const& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

/** The names of options in a help text: words that begin with "-" at the beginning of a line. */
std::set<std::string> optionsIn(std::string const& help) {
    std::set<std::string> names;
    for (auto const& line : linesOf(help)) {
        if (!line.starts_with("  -")) continue;
        std::istringstream names_(line.substr(0, line.find(' ', 2)));
        for (std::string name; std::getline(names_, name, ',');)
            names.insert(name.substr(name.find('-')));
    }
    return names;
}

class CompletionTest : public testing::Test {
protected:
    static void SetUpTestSuite() { script_ = new std::string(runCommand({"completion", "bash"}).output); }
    static void TearDownTestSuite() { delete script_; }

    /** What bash offers for the last of these words. */
    std::vector<std::string> offered(std::vector<std::string> words) {
        words.insert(words.begin(), "nerio");
        contentsOfIs(directory.path("completion"), *script_);
        std::string quoted;
        for (auto const& word : words)
            quoted += "'" + word + "' ";
        contentsOfIs(directory.path("ask"),
                     fmt::format(". {}\ncd {}\nCOMP_WORDS=({})\nCOMP_CWORD={}\n_nerio\n"
                                 "((${{#COMPREPLY[@]}})) && printf '%s\\n' \"${{COMPREPLY[@]}}\"\ntrue\n",
                                 directory.path("completion"), directory.path(), quoted, words.size() - 1));
        auto const command =
            fmt::format("bash {} > {} 2>&1", directory.path("ask"), directory.path("answer"));
        EXPECT_EQ(std::system(command.c_str()), 0);
        return linesOf(contentsOf(directory.path("answer")));
    }

    static std::string* script_;
    TemporaryDirectory directory;
};
std::string* CompletionTest::script_ = nullptr;

TEST_F(CompletionTest, BashTakesTheScript) {
    contentsOfIs(directory.path("completion"), *script_);
    EXPECT_EQ(std::system(fmt::format("bash -n {}", directory.path("completion")).c_str()), 0);
}

TEST_F(CompletionTest, CompletesCommandsAndTheirOptions) {
    EXPECT_THAT(offered({"ru"}), ElementsAre("run"));
    EXPECT_THAT(offered({""}), IsSupersetOf({"run", "apply", "show", "completion"}));
    EXPECT_THAT(offered({"--v"}), ElementsAre("--version"));
    EXPECT_THAT(offered({"show", "--f"}), ElementsAre("--full-at"));
    EXPECT_THAT(offered({"run", "--"}), Not(Contains("--warm-restart-of"))) << "the help hides it";
}

TEST_F(CompletionTest, CompletesValuesByWhatTheyAre) {
    contentsOfIs(directory.path("my state.json"), "");
    std::filesystem::create_directory(directory.path("my switch"));
    EXPECT_THAT(offered({"run", "my"}), testing::UnorderedElementsAre("my state.json", "my switch"));
    EXPECT_THAT(offered({"run", "--switch", "my"}), ElementsAre("my switch"));
    EXPECT_THAT(offered({"record", "-o", "my sta"}), ElementsAre("my state.json"));
    EXPECT_THAT(offered({"show", "--switch", "my switch", "portC"}), ElementsAre("portConfig"));
    EXPECT_THAT(offered({"completion", ""}), testing::UnorderedElementsAre("bash", "zsh", "fish"));
    EXPECT_THAT(offered({"manual", "app"}), ElementsAre("apply"));
    EXPECT_THAT(offered({"lookup", "--vrf", "m"}), ElementsAre());
    EXPECT_THAT(offered({"diff", "x", "my s"}), testing::UnorderedElementsAre("my state.json", "my switch"));
    EXPECT_THAT(offered({"dump", "my"}), ElementsAre()) << "it takes nothing by position";
}

TEST_F(CompletionTest, OtherShellsKnowTheSameCommandsAndOptions) {
    auto const zsh = runCommand({"completion", "zsh"}).output;
    auto const fish = runCommand({"completion", "fish"}).output;
    EXPECT_TRUE(zsh.starts_with("#compdef nerio\n"));
    EXPECT_THAT(zsh, HasSubstr("'show:Show how full"));
    EXPECT_THAT(zsh, HasSubstr("'--switch[The directory of a kept switch]:"));
    EXPECT_THAT(zsh, HasSubstr(":_files -/'"));
    EXPECT_THAT(fish, HasSubstr("complete -c nerio -n __fish_use_subcommand -a show -d 'Show how full"));
    EXPECT_THAT(
        fish,
        HasSubstr("-n '__fish_seen_subcommand_from show' -l switch -x -a '(__fish_complete_directories)'"));
    auto const unknown = runCommand({"completion", "csh"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(lineCount(unknown.errors), 1);
}

/** Every page has every option that the help has, and is well formed. */
TEST(ManualTest, EveryOptionOfTheHelpHasItsParagraph) {
    TemporaryDirectory const directory;
    ASSERT_EQ(runCommand({"manual", "--directory", directory.path("man1")}).status, 0);
    auto const pages = TemporaryDirectory::namesIn(directory.path("man1"));
    EXPECT_THAT(pages, IsSupersetOf({"nerio.1", "nerio-run.1", "nerio-show.1", "nerio-manual.1"}));
    for (std::string const command : {"", "run", "show", "lookup", "record"}) {
        auto const help = command.empty() ? runCommand({"--help"}) : runCommand({command, "--help"});
        auto const page =
            contentsOf(directory.path("man1/nerio" + (command.empty() ? "" : "-" + command) + ".1"));
        std::set<std::string> told;
        for (auto const& line : linesOf(page)) {
            auto rest = line;
            for (auto at = rest.find("\\fB\\-"); at != std::string::npos; at = rest.find("\\fB\\-")) {
                auto const end = rest.find("\\fR", at);
                auto name = rest.substr(at + 3, end - at - 3);
                for (auto dash = name.find("\\-"); dash != std::string::npos; dash = name.find("\\-"))
                    name.erase(dash, 1);
                told.insert(name);
                rest.erase(0, end);
            }
        }
        EXPECT_EQ(told, optionsIn(help.output)) << command;
        EXPECT_GE(told.size(), 2u);
    }
    std::regex const requests("\\.(TH|SH|TP|B)( .*)?");
    for (auto const& name : pages) {
        auto const page = contentsOf(directory.path("man1/" + name));
        EXPECT_TRUE(page.starts_with(".TH NERIO"));
        std::vector<std::string> sections;
        for (auto const& line : linesOf(page)) {
            EXPECT_FALSE(line.empty());
            if (line.starts_with(".SH ")) sections.push_back(line.substr(4));
            bool const isRequest = line.starts_with('.');
            EXPECT_TRUE(!isRequest || std::regex_match(line, requests)) << line;
        }
        EXPECT_THAT(sections, IsSupersetOf({"NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS"}));
    }
}

TEST(ManualTest, APageIsPrintedAndAnUnknownCommandNamed) {
    auto const page = runCommand({"manual", "run"});
    EXPECT_EQ(page.status, 0);
    EXPECT_THAT(page.output, HasSubstr("nerio\\-run \\- Program a whole switch"));
    auto const unknown = runCommand({"manual", "frob"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(unknown.errors, "nerio manual: there is no command frob\n");
}

/** Values whose text says which there are. */
TEST(CommandFormsTest, ChoicesOfAValueAreItsWords) {
    CLI::App app("A program.", "nerio");
    auto* command = app.add_subcommand("take", "Take it");
    std::string protocol;
    std::vector<std::string> words;
    command->add_option("--proto", protocol, "The protocol")
        ->check(CLI::IsMember({"tcp", "udp"}))
        ->required();
    command->add_option("WORDS", words, "The words");
    auto const forms = Nerio::commandForms(app);
    ASSERT_EQ(forms.size(), 2u);
    EXPECT_EQ(forms[0].name, "");
    auto const options = forms[1].options();
    ASSERT_EQ(options.size(), 2u);
    EXPECT_THAT(options[0].names, ElementsAre("-h", "--help"));
    EXPECT_FALSE(options[0].takesValue());
    EXPECT_THAT(options[1].words, ElementsAre("tcp", "udp"));
    EXPECT_EQ(options[1].values, Nerio::ArgumentForm::Values::words);
    EXPECT_TRUE(options[1].required);
    auto const positionals = forms[1].positionals();
    ASSERT_EQ(positionals.size(), 1u);
    EXPECT_EQ(positionals[0].value, "WORDS");
    EXPECT_TRUE(positionals[0].repeated);
}

}  // namespace
