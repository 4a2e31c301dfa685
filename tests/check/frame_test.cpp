// SPDX-License-Identifier: Apache-2.0
// gentl-check on the made-up producer: exit codes, choice of rules, baselines, and that nothing a producer does takes
// it down. That each fault is found by its rules is ./run check --matrix.
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>

using namespace nq::test;

namespace
{

const std::string kProducer = NQ_FAULTY_FOLDER "/nq_faulty_whole.cti";

Outcome Check(const std::vector<std::string>& arguments, const std::string& faults = "")
{
    std::vector<std::string> command = {NQ_CHECK_PATH, kProducer};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return RunProgram(command, {"NQ_FAULTS=" + faults});
}

class Baseline : public testing::Test
{
  protected:
    Outcome CheckAgainst(const std::string& lines, const std::string& faults) const
    {
        const TemporaryFolder folder;
        const std::string path = folder / "baseline";
        std::ofstream(path) << lines;
        return Check({"--only", "LB-00[3-8]", "--baseline", path}, faults);
    }
};

TEST(CheckFrame, AProducerThatKeepsTheRulesGivesZero)
{
    const Outcome outcome = Check({"--only", "LB-*"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_NE(outcome.output.find("14 passed, 0 failed, 0 not tried"), std::string::npos) << outcome.output;
}

TEST(CheckFrame, ABrokenRuleGivesOne)
{
    const Outcome outcome = Check({"--only", "LB-*"}, "init_counts");
    EXPECT_EQ(outcome.exitCode, 1) << outcome.output;
    EXPECT_NE(outcome.output.find("a second GCInitLib: GC_ERR_SUCCESS instead of GC_ERR_RESOURCE_IN_USE"),
              std::string::npos)
        << outcome.output;
    EXPECT_NE(
        outcome.output.find("           > Two parts of a program that both initialize the producer close it under "
                            "each other's hands."),
        std::string::npos)
        << outcome.output;
}

/// For the pace of a camera's counter the clock of this computer is read on both sides of what may take its time.
TEST(CheckFrame, AMachineThatStandsStillIsNoFaultOfTheCounter)
{
    for (const char* question : {"5", "7"})
    {
        const Outcome outcome = RunProgram({NQ_CHECK_PATH, kProducer, "--only", "DL-003"},
                                           {std::string("NQ_STALL_AT_FREQUENCY=") + question});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
        EXPECT_NE(outcome.output.find("1 passed, 0 failed, 0 not tried"), std::string::npos) << outcome.output;
    }
}

TEST(CheckFrame, WrongArgumentsGiveTwo)
{
    EXPECT_EQ(Check({"--no-such-option"}).exitCode, 2);
    EXPECT_EQ(RunProgram({NQ_CHECK_PATH}).exitCode, 2);
    EXPECT_EQ(RunProgram({NQ_CHECK_PATH, "--help"}).exitCode, 0);
    EXPECT_EQ(RunProgram({"/bin/sh", "-c", "exec '" NQ_CHECK_PATH "' --help >/dev/full"}).exitCode, 2);
    EXPECT_EQ(RunProgram({NQ_CHECK_PATH, "/nowhere.cti"}).exitCode, 2);
}

/// Else a slip in a name would leave a rule untried, with exit code 0.
TEST(CheckFrame, NamesThatNoRuleHasGiveTwo)
{
    EXPECT_EQ(Check({"--only", "LB-*,XX-*"}).exitCode, 2);
    EXPECT_EQ(Check({"--repro", "XX-001"}).exitCode, 2);
    EXPECT_EQ(Check({"--repro", "LB-*"}).exitCode, 2);
}

TEST(CheckFrame, AReportThatCannotBeWrittenGivesTwo)
{
    EXPECT_EQ(Check({"--only", "LB-001", "--junit", "/nowhere/report.xml"}).exitCode, 2);
    EXPECT_EQ(Check({"--only", "LB-001", "--html", "/nowhere/report.html"}).exitCode, 2);
}

/// In whatever order people write it.
TEST(CheckFrame, TheProducerMayStandBehindTheNames)
{
    const Outcome outcome = RunProgram({NQ_CHECK_PATH, "--only", "LB-001,LB-002", "--only", "LB-005", kProducer});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_NE(outcome.output.find("3 passed, 0 failed, 0 not tried"), std::string::npos) << outcome.output;
}

TEST(CheckFrame, WhatCannotBeLoadedGivesThree)
{
    const Outcome text = RunProgram({NQ_CHECK_PATH, NQ_SOURCE_DIR "/README.md"});
    EXPECT_EQ(text.exitCode, 3);
    EXPECT_NE(text.output.find("cannot be loaded"), std::string::npos) << text.output;
}

TEST(CheckFrame, AConstructorThatBlocksIsFoundOut)
{
    const Outcome outcome = Check({}, "load_hangs");
    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_NE(outcome.output.find("hung in dlopen"), std::string::npos) << outcome.output;
}

/// A rule of many rounds has longer than that.
TEST(CheckFrame, ACallThatBlocksIsFoundOutInTwentySeconds)
{
    const Outcome outcome = Check({"--only", "PR-001"}, "hang_in_session_90");
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_NE(outcome.output.find("hung in GCInitLib for 20 s"), std::string::npos) << outcome.output;
}

TEST(CheckFrame, RulesAreChosenById)
{
    const Outcome outcome = Check({"--only", "LB-00[1-5]", "--skip", "LB-002"});
    EXPECT_NE(outcome.output.find("3 passed, 0 failed, 0 not tried"), std::string::npos) << outcome.output;
    EXPECT_EQ(outcome.output.find("LB-002"), std::string::npos);
}

TEST(CheckFrame, TheListNeedsNoProducer)
{
    const Outcome outcome = RunProgram({NQ_CHECK_PATH, "--list"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_NE(outcome.output.find("LB-001"), std::string::npos);
}

TEST(CheckFrame, TellsVersionsAndCommitWithoutAProducer)
{
    const Outcome outcome = RunProgram({NQ_CHECK_PATH, "--version"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_THAT(outcome.output, testing::MatchesRegex("gentl-check 2\\.5\\.5\nlibrary nq_gev_rdma_tl 2\\.5\\.5\nGenTL "
                                                      "1\\.5\ncommit (unknown|[0-9a-f]+(-dirty)?)\n"));
}

TEST(CheckFrame, IdsAreUniqueAndClausesNumbered)
{
    const Outcome outcome = RunProgram({NQ_CHECK_PATH, "--list-markdown"});
    const std::regex row("\\| `([A-Z]{2}-[0-9]{3})` \\| [^|]+ \\| ([^|]*) \\| (must|should|may|hint) \\| [^|]+ \\|");
    std::vector<std::string> ids;
    for (std::sregex_iterator at(outcome.output.begin(), outcome.output.end(), row), end; at != end; ++at)
    {
        const std::string id = (*at)[1];
        EXPECT_EQ(std::count(ids.begin(), ids.end(), id), 0) << id;
        EXPECT_TRUE(std::regex_match((*at)[2].str(), std::regex("([1-7](\\.[0-9]+)+(, )?)*"))) << (*at)[2];
        ids.push_back(id);
    }
    EXPECT_GE(ids.size(), 169U);
}

TEST(CheckFrame, TheDocumentationHasTheRules)
{
    const Outcome outcome = RunProgram({NQ_CHECK_PATH, "--list-markdown"});
    EXPECT_TRUE(BytesOf(NQ_SOURCE_DIR "/docs/gentl-check.md").ends_with(outcome.output))
        << "gentl-check --list-markdown";
}

TEST(CheckFrame, TheListIsOfTheRulesThatAreChosen)
{
    const Outcome list = RunProgram({NQ_CHECK_PATH, "--list", "--only", "LB-00[12],PR-007", "--skip", "LB-002"});
    EXPECT_EQ(list.output,
              "exports and versions, init and close\n"
              "  LB-001  must   nothing   every function of the claimed version is exported, undecorated  6.1, 6.1.3\n"
              "\nthreads and processes\n"
              "  PR-007  may    nothing   the library unloads, and loads again\n");
    const Outcome json = RunProgram({NQ_CHECK_PATH, "--list", "--json", "--only", "PR-007"});
    EXPECT_EQ(json.output, R"([
  {
    "clause": "",
    "consumer": "It crashes when it ends, or when it looks for producers a second time.",
    "family": "threads and processes",
    "id": "PR-007",
    "needs": "nothing",
    "rule": "the library unloads, and loads again",
    "severity": "may"
  }
]
)");
}

/// It is among the failed, but the exit code is 0.
TEST(CheckFrame, AWarningIsToldInTheSum)
{
    const Outcome outcome = Check({"--only", "LS-012"}, "no_serial_number");
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_TRUE(outcome.output.ends_with("\n0 passed, 1 failed, 0 not tried; warnings among the failed: 1\n"))
        << outcome.output;
}

/// What a producer prints stays out of the answer.
TEST(CheckFrame, JsonStaysClean)
{
    const Outcome outcome = Check({"--only", "LB-*", "--json"}, "load_prints");
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.output.front(), '{');
    EXPECT_EQ(outcome.output.find("made-up producer 1.0"), std::string::npos);
}

TEST(CheckFrame, AnExitIsAFindingOfOneRule)
{
    const Outcome outcome = Check({"--only", "LB-00[4-9]"}, "close_without_init_exits");
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_NE(outcome.output.find("ended the process with exit code 0 in GCCloseLib"), std::string::npos)
        << outcome.output;
    EXPECT_NE(outcome.output.find("passed     LB-009"), std::string::npos) << outcome.output;
}

TEST(CheckFrame, ADisturbanceThatDoesNotHappenIsNoPass)
{
    const Outcome failed = Check({"--only", "DL-013", "--disturb", "exit 3"});
    EXPECT_NE(failed.output.find("the command that disturbs the camera ends with 3"), std::string::npos)
        << failed.output;
    const Outcome without = Check({"--only", "DL-013", "--disturb", "true"});
    EXPECT_NE(without.output.find("no frame is incomplete after the command"), std::string::npos) << without.output;
    for (const Outcome& outcome : {failed, without})
    {
        EXPECT_NE(outcome.output.find("0 passed, 0 failed, 1 not tried"), std::string::npos) << outcome.output;
    }
}

TEST_F(Baseline, HoldsKnownFailures)
{
    EXPECT_EQ(CheckAgainst("# known\nLB-005 failed # counts\n", "init_counts").exitCode, 0);
}

TEST_F(Baseline, FailsOnANewOne)
{
    const Outcome outcome = CheckAgainst("", "init_counts");
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_NE(outcome.output.find("LB-005 failed, passed in the baseline"), std::string::npos) << outcome.output;
}

TEST_F(Baseline, FailsOnOneThatIsGone)
{
    const Outcome outcome = CheckAgainst("LB-005 failed\n", "");
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_NE(outcome.output.find("LB-005 passed, failed in the baseline"), std::string::npos) << outcome.output;
}

TEST_F(Baseline, RefusesALineThatNamesNoRule)
{
    EXPECT_EQ(CheckAgainst("XX-005 failed\n", "").exitCode, 2);
    EXPECT_EQ(CheckAgainst("LB-005 broken\n", "").exitCode, 2);
}

} // namespace
