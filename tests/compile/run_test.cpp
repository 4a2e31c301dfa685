// SPDX-License-Identifier: Apache-2.0
// What ./run says: help, how far the tests are, and where they leave files.
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <csignal>
#include <gmock/gmock.h>

namespace
{

namespace fs = std::filesystem;
using namespace nq::test;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kRunPath = NQ_SOURCE_DIR "/run";

TEST(Run, EveryCommandHelps)
{
    for (const std::string command :
         {"demo", "test", "lint", "asan", "tsan", "coverage", "mutate", "fuzz", "roce", "bench", "faults", "check",
          "docs", "examples", "view-test", "package", "soak", "all"})
    {
        for (const char* option : {"--help", "-h"})
        {
            const Outcome outcome = RunProgram({kRunPath, command, option});
            EXPECT_EQ(outcome.exitCode, 0) << command;
            EXPECT_THAT(outcome.output, AllOf(HasSubstr("  " + command + " "), HasSubstr("\n./run " + command)));
            EXPECT_THAT(outcome.output, Not(HasSubstr("shellcheck"))) << command;
        }
    }
    EXPECT_THAT(RunProgram({kRunPath, "demo", "--help"}).output, HasSubstr("1280 x 1024"));
}

TEST(Run, AnotherDebianIsForSomeCommandsAndHasAName)
{
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"lint", "--on", "trixie"}, {"test", "--on", "sid"}, {"demo", "--on"}})
    {
        const Outcome outcome = RunProgram(Joined({kRunPath}, arguments));
        EXPECT_EQ(outcome.exitCode, 2) << arguments[0];
        EXPECT_EQ(outcome.output, "run: --on bookworm (Debian 12) and --on trixie (Debian 13) go with demo, test, "
                                  "examples, docs and package\n");
    }
}

TEST(Run, WhatRunsOnAnotherDebianStandsInTheReadme)
{
    const std::string readme = BytesOf(NQ_SOURCE_DIR "/README.md");
    EXPECT_THAT(readme, HasSubstr("\nBoth work on a fresh Debian 12 or 13, "));
    EXPECT_THAT(readme, HasSubstr("runs on Debian 13 wherever apt reaches it. "
                                  "`demo`, `test`, `examples`, `docs` and `package` run\nthere;"));
}

TEST(Run, AnotherDebianThatNoMirrorHasIsToldByACodeOfItsOwn)
{
    const TemporaryFolder folder; // without a mirror in its apt-get, and without a Debian made before
    std::ofstream(folder / "apt-get") << "#!/bin/sh\n";
    fs::permissions(folder / "apt-get", fs::perms::owner_all);
    const Outcome outcome = RunProgram({"/usr/bin/env", "PATH=" + folder.Path() + ":/usr/sbin:/usr/bin:/sbin:/bin",
                                        "XDG_CACHE_HOME=" + folder.Path(), kRunPath, "demo", "--on", "trixie"});
    EXPECT_EQ(outcome.exitCode, 69);
    EXPECT_THAT(outcome.output,
                HasSubstr("run: no Debian trixie: the apt sources of this machine name no mirror of its own Debian\n"));
}

TEST(Run, AsksForThePackagesOfTheClangThatThisDebianHas)
{
    const TemporaryFolder programs;
    std::ofstream(programs / "apt-cache")
        << "#!/bin/sh\necho clang; echo '  Depends: clang-19'; echo '  Suggests: x'\n";
    fs::permissions(programs / "apt-cache", fs::perms::owner_all);
    const auto version = [&](const std::string& path) {
        return RunProgram({"/usr/bin/env", "PATH=" + path, "/bin/bash", "-c",
                           ". '" NQ_SOURCE_DIR "/scripts/common.sh'; clang_version"})
            .output;
    };
    EXPECT_EQ(version(programs.Path() + ":/usr/bin:/bin"), "19\n");
}

/// The progress of a run whose ctest is the script.
std::vector<std::string> Progress(const std::string& script, const std::string& log)
{
    return {"/bin/sh", "-c",
            "(" + script + ") | exec python3 '" NQ_SOURCE_DIR "/scripts/show_progress.py' " + log + " --terminal"};
}

const std::string kTwoOfSeven = "echo '      Start 11: unit.A.Works'; "
                                "echo '1/7 Test #11: unit.A.Works ........   Passed    0.18 sec'; "
                                "echo '2/7 Test #12: unit.B.Works ........***Failed    0.18 sec'; "
                                "echo '      Start 13: unit.C.Works'; ";

TEST(TestProgress, TellsWhichCaseOfHowManyRunsAndWhichFailed)
{
    const TemporaryFolder folder;
    const Outcome outcome = RunProgram(Progress(kTwoOfSeven, folder / "log"));
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_THAT(outcome.output, AllOf(ContainsRegex("1 of 7 cases, 0 failed, [0-9]+ s, unit.A.Works"),
                                      HasSubstr("\033[Kunit.B.Works failed\n"),
                                      ContainsRegex("2 of 7 cases, 1 failed, [0-9]+ s, unit.C.Works")));
    EXPECT_THAT(BytesOf(folder / "log"), HasSubstr("Start 13: unit.C.Works\n"));
}

TEST(TestProgress, AfterCtrlCSaysHowFarTheRunCame)
{
    const TemporaryFolder folder;
    // As from a terminal: a group of its own, in which nobody ignores the signal.
    ChildProcess run(
        Joined({"/usr/bin/setsid", "--wait", "/usr/bin/env", "--default-signal=INT"},
               Progress("echo $$ >" + (folder / "group") + "; " + kTwoOfSeven + "sleep 60", folder / "log")));
    ASSERT_TRUE(run.WaitForOutput("unit.C.Works", kLongTime));
    EXPECT_EQ(RunProgram({"/bin/sh", "-c", "kill -INT -$(cat " + (folder / "group") + ")"}).exitCode, 0);
    EXPECT_EQ(run.WaitForExit(kLongTime), 130);
    EXPECT_THAT(run.Output(), HasSubstr("ended by ^C after 2 of 7 cases, 1 failed, "));
}

TEST(PrivateTmp, LeavesNothingBehindHoweverItEnds)
{
    const TemporaryFolder checkout; // itself below /tmp
    const std::string name = fs::path(checkout.Path()).filename().string() + "-left";
    ChildProcess run({"/usr/bin/env", "-C", checkout.Path(), NQ_SOURCE_DIR "/scripts/private_tmp.sh", "/bin/sh", "-c",
                      "pwd; cd ..; ls; touch " + name + " " + (checkout / "kept") +
                          "; (trap '' INT; sleep 100) & "
                          "echo made; wait"});
    ASSERT_TRUE(run.WaitForOutput("made", kLongTime));
    EXPECT_EQ(run.Output(), checkout.Path() + "\n" + fs::path(checkout.Path()).filename().string() + "\nmade\n");
    run.Signal(SIGKILL);
    EXPECT_EQ(run.WaitForExit(kLongTime), 128 + SIGKILL);
    EXPECT_TRUE(fs::exists(checkout / "kept"));
    EXPECT_FALSE(fs::exists(fs::path(checkout.Path()).parent_path() / name));
}

} // namespace
