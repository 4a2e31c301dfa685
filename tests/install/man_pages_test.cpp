// SPDX-License-Identifier: Apache-2.0
// The manual pages tell of the same verbs, options and exit codes as the programs.
#include "support/command_output.h"
#include "support/tool.h"

#include <gmock/gmock.h>
#include <map>
#include <regex>
#include <set>
#include <sstream>

namespace
{

using namespace nq::test;

using Words = std::set<std::string>;

Words WordsIn(const std::string& text, const std::string& expression)
{
    const std::regex word(expression);
    Words words;
    for (std::sregex_iterator at(text.begin(), text.end(), word); at != std::sregex_iterator(); ++at)
    {
        words.insert((*at)[1]);
    }
    return words;
}

std::string HelpOf(const std::string& program, const std::string& verb = "")
{
    std::vector<std::string> command = {NQ_BINARY_DIR "/" + program};
    if (!verb.empty())
    {
        command.push_back(verb);
    }
    return OutputOf(Joined(command, {"--help"}));
}

/// The options of a help text: the names at the beginning of a line.
Words OptionsOfHelp(const std::string& help)
{
    Words options;
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);)
    {
        std::smatch names;
        if (std::regex_search(line, names, std::regex(R"(^  (-\S+))")))
        {
            options.merge(WordsIn(names[1], R"((--?[a-z][a-z-]*))"));
        }
    }
    return options;
}

std::string SourceOf(const std::string& program)
{
    return BytesOf(NQ_SOURCE_DIR "/man/" + program + ".1.scd");
}

/// The text below a heading, up to the next one of that or a higher rank.
std::string Below(const std::string& page, const std::string& heading)
{
    std::string below;
    bool inside = false;
    const size_t rank = heading.find(' ');
    std::istringstream lines(page);
    for (std::string line; std::getline(lines, line);)
    {
        const bool isHeading = line.starts_with("#") && line.find(' ') <= rank;
        const bool isThis = line == heading || line.starts_with(heading + " ");
        inside = isHeading ? isThis : inside;
        below += inside ? line + "\n" : "";
    }
    EXPECT_NE(below, "") << "no " << heading;
    return below;
}

/// The options that a part of a page explains: the names of a line of its own.
Words OptionsOfPage(const std::string& part)
{
    Words options;
    std::istringstream lines(part);
    for (std::string line; std::getline(lines, line);)
    {
        if (line.starts_with("*-"))
        {
            options.merge(WordsIn(line, R"(\*(--?[a-z][a-z-]*)\*)"));
        }
    }
    return options;
}

Words CodesOfPage(const std::string& program)
{
    return WordsIn(Below(SourceOf(program), "# EXIT STATUS"), R"(\n\*(\d+)\*\n)");
}

Words VerbsOf(const std::string& help)
{
    return WordsIn(help.substr(help.find("\nSubcommands:\n")), R"(\n  ([a-z]+)  )");
}

class ManPage : public testing::TestWithParam<std::string>
{
};

TEST_P(ManPage, HasTheOptionsOfTheHelp)
{
    const Words options = OptionsOfHelp(HelpOf(GetParam()));
    ASSERT_GT(options.size(), 3U);
    EXPECT_EQ(OptionsOfPage(Below(SourceOf(GetParam()), "# OPTIONS")), options);
}

TEST_P(ManPage, HasTheExitCodesOfTheHelp)
{
    const std::string help = HelpOf(GetParam());
    const std::string text = help.substr(help.find("Exit codes: "));
    // What is in brackets tells of something else, as does the sentence about several cameras.
    const std::string codes = std::regex_replace(text.substr(0, text.find(".\n") + 1), std::regex(R"(\([^)]*\))"), "");
    EXPECT_EQ(CodesOfPage(GetParam()), WordsIn(codes, R"((?:^|[\s,])(\d+)\s)"));
}

INSTANTIATE_TEST_SUITE_P(Programs, ManPage, testing::Values("nq-gev", "nq-gev-camera", "gentl-check"),
                         [](const auto& tested) { return std::regex_replace(tested.param, std::regex("-"), "_"); });

TEST(ManPageOfNqGev, HasEachVerbWithTheOptionsOfItsHelp)
{
    const std::string page = SourceOf("nq-gev");
    const Words verbs = VerbsOf(HelpOf("nq-gev"));
    ASSERT_EQ(verbs.size(), 21U);
    EXPECT_EQ(WordsIn(page, R"(\n## ([a-z]+))"), verbs);
    for (const std::string& verb : verbs)
    {
        Words options = OptionsOfHelp(HelpOf("nq-gev", verb));
        options.erase("-h");
        options.erase("--help");
        EXPECT_EQ(OptionsOfPage(Below(page, "## " + verb)), options) << verb;
    }
}

TEST(ManPageOfTheLauncher, HasTheExitCodesOfTheHelpAndItsOptionsWork)
{
    EXPECT_EQ(CodesOfPage("nq-software-rdma"), (Words{"125", "126", "127"}));
    EXPECT_EQ(WordsIn(HelpOf("nq-software-rdma"), R"([\s,](12\d)\s)"), (Words{"125", "126", "127"}));
    for (const std::string& option : OptionsOfPage(Below(SourceOf("nq-software-rdma"), "# OPTIONS")))
    {
        EXPECT_EQ(RunProgram({NQ_BINARY_DIR "/nq-software-rdma", option}).exitCode, 0) << option;
    }
}

TEST(ManPageOfNqGevStandard, HasTheExitCodesThatItGivesAndTheOptionsThatItTakes)
{
    const std::string help = HelpOf("nq-gev-standard");
    EXPECT_EQ(WordsIn(help, R"([\s,](\d+) )"), (Words{"2", "126", "127"}));
    const Words options = OptionsOfPage(Below(SourceOf("nq-gev-standard"), "# OPTIONS"));
    EXPECT_EQ(options, (Words{"-h", "--help", "--version"}));
    for (const std::string& option : options)
    {
        EXPECT_EQ(RunProgram({NQ_BINARY_DIR "/nq-gev-standard", option}).exitCode, 0) << option;
        EXPECT_EQ(
            RunProgram({"/bin/sh", "-c", "'" NQ_BINARY_DIR "/nq-gev-standard' " + option + " >/dev/full"}).exitCode, 1)
            << option;
    }
    EXPECT_EQ(CodesOfPage("nq-gev-standard"), (Words{"2", "126", "127"}));
    const std::string program = NQ_BINARY_DIR "/nq-gev-standard";
    EXPECT_EQ(RunProgram({program}).exitCode, 2);
    EXPECT_EQ(RunProgram({program, NQ_SOURCE_DIR "/LICENSE"}).exitCode, 126);
    EXPECT_EQ(RunProgram({program, "no-such-command-anywhere"}).exitCode, 127);
}

TEST(ManPages, AreShownWithoutAComplaint)
{
    const std::string folder = NQ_BINARY_DIR "/man";
    if (!std::filesystem::exists(folder + "/nq-gev.1"))
    {
        GTEST_SKIP() << "no scdoc at the build";
    }
    for (const char* program : {"nq-gev", "nq-gev-camera", "gentl-check", "nq-gev-standard", "nq-software-rdma"})
    {
        const std::string page = folder + "/" + program + ".1";
        EXPECT_THAT(BytesOf(page), testing::HasSubstr(".TH \"" + std::string(program) + "\" \"1\""));
        if (std::filesystem::exists("/usr/bin/groff"))
        {
            EXPECT_EQ(OutputOf({"/bin/sh", "-c", "groff -man -Tutf8 -ww '" + page + "' 2>&1 >/dev/null"}), "");
        }
    }
}

} // namespace
