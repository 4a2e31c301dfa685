// SPDX-License-Identifier: Apache-2.0
// The scripts that run as root: what they leave to whom, and that two of them do not meet.
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <csignal>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;
using namespace nq::test;
using testing::HasSubstr;
using testing::Not;

constexpr uid_t kSomebody = 54321;

// A command of ./run.
const char* const kCommand = R"script(#!/usr/bin/env bash
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
become_root "$@"
echo "working with $* as $(id -u), CI=${CI:-} NQ_BUILD=${NQ_BUILD:-}"
mkdir -p out build
touch out/result build/result
case ${1:-} in
wait) echo waiting; exec sleep 60 ;;
long) sh -c 'trap "sleep 0.3; touch out/late; exit 130" INT; echo ready; for i in $(seq 100); do sleep 0.1; done' ;;
nested) ./run demo inner ;;
fail) exit 9 ;;
esac
)script";

// A sudo without the right SETENV.
const char* const kSudo = R"script(#!/bin/bash
case $1 in -* | *=*) echo "sudo: you are not allowed to set the environment" >&2; exit 1 ;; esac
exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin SUDO_UID=54321 SUDO_GID=54321 "$@"
)script";

void Write(const fs::path& path, const std::string& text)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path) << text;
    fs::permissions(path, fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec |
                              fs::perms::group_read | fs::perms::others_read);
}

uid_t OwnerOf(const fs::path& path)
{
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_uid;
}

/// A checkout with the real entry point, and `demo` as a command of a few lines.
class Checkout : public testing::Test
{
  protected:
    Checkout()
    {
        fs::create_directory(m_folder / "scripts");
        fs::copy_file(NQ_SOURCE_DIR "/run", m_folder / "run");
        for (const char* name : {"scripts/common.sh", "scripts/for_caller.sh"})
        {
            fs::copy_file(fs::path(NQ_SOURCE_DIR) / name, m_folder / name);
        }
        Write(m_folder / "scripts/demo.sh", kCommand);
    }

    /// A user's call: `id` tells of a user until a sudo without further rights, not even to set variables, was asked.
    Outcome RunAsSomebody(const std::string& argument) const
    {
        const TemporaryFolder programs;
        Write(programs / "id", "#!/bin/sh\necho 54321\n");
        Write(programs / "sudo", kSudo);
        Shell("chown -R 54321:54321 " + m_folder.Path());
        return RunProgram({"/usr/bin/env", "PATH=" + programs.Path() + ":/usr/bin:/bin", "CI=true",
                           "NQ_BUILD=build with a space", m_folder / "run", "demo", argument});
    }

    static void Shell(const std::string& line) { ASSERT_EQ(RunProgram({"/bin/sh", "-c", line}).exitCode, 0); }

    TemporaryFolder m_folder;
};

TEST_F(Checkout, ASecondRunSaysWhichOneIsAtWorkAndTouchesNothing)
{
    ChildProcess first({m_folder / "run", "demo", "wait"});
    // With no child any more, which would keep the lock for a moment after the run was killed.
    ASSERT_TRUE(first.WaitForOutput("\nwaiting\n", kLongTime)) << first.Output();
    const Outcome second = RunProgram({m_folder / "run", "demo", "other"});
    EXPECT_EQ(second.exitCode, 1);
    EXPECT_THAT(second.output, HasSubstr("another run is at work in this checkout: ./run demo wait (process " +
                                         std::to_string(first.Pid()) + ")"));
    EXPECT_THAT(second.output, Not(HasSubstr("working")));
    first.Signal(SIGKILL);
    EXPECT_EQ(first.WaitForExit(kLongTime), 128 + SIGKILL);
    EXPECT_EQ(RunProgram({m_folder / "run", "demo", "other"}).exitCode, 0);
}

TEST_F(Checkout, ARunThatARunCallsIsPartOfIt)
{
    const Outcome outcome = RunProgram({m_folder / "run", "demo", "nested"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("working with inner"));
}

TEST_F(Checkout, SudoNeedsNoRightToSetVariables)
{
    const Outcome outcome = RunAsSomebody("once");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("working with once as 0, CI=true NQ_BUILD=build with a space"));
}

TEST_F(Checkout, WhatSudoMakesBelongsToTheCallerHoweverTheCommandEnds)
{
    for (const char* argument : {"once", "fail", "nested"})
    {
        const Outcome outcome = RunAsSomebody(argument);
        EXPECT_EQ(outcome.exitCode, std::string(argument) == "fail" ? 9 : 0) << outcome.output;
        for (const char* name : {"out", "out/result", "build/result", ".run.lock", "run"})
        {
            EXPECT_EQ(OwnerOf(m_folder / name), kSomebody) << name << " after " << argument;
        }
        fs::remove_all(m_folder / "out");
    }
}

TEST_F(Checkout, CtrlCEndsAllThatSudoStartedBeforeFilesAreGivenBack)
{
    Shell("chown -R 54321:54321 " + m_folder.Path());
    // As from a terminal: a group of its own, in which nobody ignores the signal.
    ChildProcess run({"/usr/bin/setsid", "--wait", "/usr/bin/env", "--default-signal=INT", "SUDO_UID=54321",
                      "SUDO_GID=54321", "/bin/sh", "-c", "echo group $$; exec " + (m_folder / "run") + " demo long"});
    ASSERT_TRUE(run.WaitForOutput("ready", kLongTime));
    const std::string group = run.Output().substr(6, run.Output().find('\n') - 6);
    Shell("kill -INT -" + group);
    EXPECT_EQ(run.WaitForExit(kLongTime), 128 + SIGINT) << run.Output();
    EXPECT_EQ(OwnerOf(m_folder / "out/late"), kSomebody);
    EXPECT_NE(RunProgram({"/bin/sh", "-c", "kill -0 -" + group}).exitCode, 0);
}

TEST_F(Checkout, OfRootStaysRoots)
{
    const Outcome outcome = RunProgram({"/usr/bin/env", "SUDO_UID=54321", "SUDO_GID=54321", m_folder / "run", "demo"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_EQ(OwnerOf(m_folder / "out/result"), 0U);
}

TEST(Scripts, NameNoFileInAFolderOfEverybody)
{
    const Outcome outcome = RunProgram({NQ_SOURCE_DIR "/scripts/check_tmp.sh"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
}

TEST(Scripts, TheCheckForSuchNamesFindsThem)
{
    const TemporaryFolder tree;
    const std::string everybody = "/tmp";
    const auto check = [&](const std::string& line) {
        Write(tree / "a.sh", line + '\n');
        return RunProgram({NQ_SOURCE_DIR "/scripts/check_tmp.sh", tree.Path()});
    };
    for (const std::string& line :
         {"folder=$(mktemp -d " + everybody + "/ours.XXXXXX)", "char name[] = \"" + everybody + "/ours-XXXXXX\";",
          "mount -t tmpfs tmpfs " + everybody + " ;;", std::string("folder=$(mktemp -d)")})
    {
        EXPECT_EQ(check(line).exitCode, 0) << line;
    }
    for (const std::string& line :
         {"mkdir -p " + everybody + "/ours", "touch " + everybody + "/$name", "touch " + everybody + "/\"$name\"",
          "touch \"" + everybody + "\"/ours", "touch \"${TMPDIR:-" + everybody + "}/ours\"",
          "printf -v name " + everybody + "/%d", "open(f'" + everybody + "/{name}')",
          "open('" + everybody + "/' + name)", "os.path.join('" + everybody + "', name)",
          "path(\"" + everybody + "\") / name", "touch " + everybody + "/ours # XXXXXX",
          "touch " + everybody + "/nq-rdma-" + "loopback-log",
          std::string("temp_directory") + "_path() / (\"ours-\" + pid)", std::string("testing::Temp") + "Dir() + pid",
          std::string("name=$(mktemp -d") + " -u)"})
    {
        const Outcome outcome = check(line);
        EXPECT_EQ(outcome.exitCode, 1) << line;
        EXPECT_THAT(outcome.output, HasSubstr("a.sh:1:" + line.substr(0, 3))) << line;
    }
}

TEST(Scripts, TheCheckForSuchNamesFailsWhenItCannotSearch)
{
    const TemporaryFolder tree;
    Write(tree / "a.sh", "true\n");
    Write(tree / "bin/grep", "#!/bin/sh\nexit 2\n");
    const std::string path = "PATH=" + (tree / "bin") + ":/usr/bin:/bin";
    const std::string script = NQ_SOURCE_DIR "/scripts/check_tmp.sh";
    EXPECT_EQ(RunProgram({"/usr/bin/env", path, script, tree.Path()}).exitCode, 1);
}

} // namespace
