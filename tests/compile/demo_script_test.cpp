// SPDX-License-Identifier: Apache-2.0
// What ./run demo does around its hosts: for whom, with which pictures, and what it says in the end. For whom
// ./run test runs.
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace
{

namespace fs = std::filesystem;
using namespace nq::test;
using testing::EndsWith;
using testing::HasSubstr;

// What the demo hands to the hosts that it makes: noted, and of pictures to be written every M-th of N.
const char* const kHosts = R"(echo "as $(id -u): $CAMERA_ARGUMENTS: $*" >>hosts.txt
while [ $# -gt 0 ]; do
    case $1 in --count) count=$2 ;; --out) folder=$2 ;; --save-every) every=$2 ;; esac
    shift
done
[ -n "${folder:-}" ] || exit 0
mkdir -p "$folder"
for number in $(seq "$every" "$every" "$count"); do : >"$folder/frame-$number.png"; done
)";

/// The hosts' notes of a whole demo by the user with this number.
std::string NotesOf(const std::string& user)
{
    return "as " + user + ": --width 1280 --height 1024: scripts/demo_grab.sh --count 300 --verify\n" + "as " + user +
           ": --width 1280 --height 1024 --pixel-format RGB8 --pattern Scene: scripts/demo_grab.sh --count 300 "
           "--out out/demo --save-every 30\n";
}

/// A checkout with the real demo, on a machine on which all is installed and built, and nobody may use sudo.
class DemoScript : public testing::Test
{
  protected:
    DemoScript()
    {
        fs::create_directory(m_checkout / "scripts");
        for (const char* name : {"scripts/demo.sh", "scripts/common.sh"})
        {
            fs::copy_file(fs::path(NQ_SOURCE_DIR) / name, m_checkout / name);
        }
        WriteScript(m_checkout / "scripts/two_hosts.sh", kHosts);
        for (const char* name : {"cmake", "ninja"})
        {
            WriteScript(m_programs / name, "");
        }
        WriteScript(m_programs / "dpkg-query", "echo install ok installed\n");
        WriteScript(m_programs / "df", "echo Avail; echo 9000000\n");
        WriteScript(m_programs / "sudo", "echo 'sudo: not in the sudoers file' >&2; exit 1\n");
        chmod(m_programs.Path().c_str(), 0755);
    }

    static void WriteScript(const std::string& path, const std::string& text)
    {
        std::ofstream(path) << "#!/bin/bash\n" << text;
        chmod(path.c_str(), 0755);
    }

    /// Runs the demo, or another command, by a user who owns the checkout where `who` becomes one.
    Outcome Run(const std::vector<std::string>& who = {}, const std::vector<std::string>& command = {"demo.sh"}) const
    {
        if (!who.empty())
        {
            EXPECT_EQ(RunProgram({"/bin/chown", "-R", "54321:54321", m_checkout.Path()}).exitCode, 0);
        }
        return RunProgram(Joined(
            {"/usr/bin/env", "-u", "SUDO_UID", "-u", "NQ_LOCKED", "-u", "NQ_BUILD", "-u", "NQ_BUILD_ARGUMENTS", "-u",
             "NQ_TEST_JOBS", "PATH=" + m_programs.Path() + ":/usr/bin:/bin"},
            Joined(who, Joined({m_checkout / ("scripts/" + command.front())}, {command.begin() + 1, command.end()}))));
    }

    /// The list of the tests, which says here only who made it.
    Outcome ListTests(const std::vector<std::string>& who) const
    {
        fs::copy_file(NQ_SOURCE_DIR "/scripts/test.sh", m_checkout / "scripts/test.sh");
        WriteScript(m_checkout / "scripts/list_tests.py", "import os; print('listed as', os.getuid())\n");
        WriteScript(m_programs / "ctest", "");
        return Run(who, {"test.sh", "--list"});
    }

    const std::vector<std::string> m_somebody = {"/usr/bin/setpriv", "--reuid=54321", "--regid=54321",
                                                 "--clear-groups"};
    TemporaryFolder m_checkout;
    TemporaryFolder m_programs;
};

TEST_F(DemoScript, EndsWithWhereThePicturesAreAndTwoCommandsThatAreThere)
{
    const Outcome demo = Run();
    EXPECT_EQ(demo.exitCode, 0) << demo.output;
    EXPECT_THAT(demo.output,
                EndsWith("\n\n300 frames checked byte by byte; 10 pictures of a moving scene in " + m_checkout.Path() +
                         "/out/demo\n"
                         "Next:\n"
                         "  build/nq-gev list      # the cameras of this machine's networks\n"
                         "  ./run test             # all tests\n"));
    EXPECT_EQ(BytesOf(m_checkout / "hosts.txt"), NotesOf("0"));
    EXPECT_EQ(RunProgram({NQ_SOURCE_DIR "/run", "test", "--help"}).exitCode, 0);
    if (fs::exists(NQ_TOOL_PATH))
    {
        // As it is typed: with no variable that names the producer.
        const Outcome list = RunProgram({"/usr/bin/env", "-u", "GENICAM_GENTL64_PATH", NQ_TOOL_PATH, "list"});
        EXPECT_EQ(list.exitCode, 4) << list.output;
        EXPECT_THAT(list.output, HasSubstr("No network interface was found."));
    }
}

TEST_F(DemoScript, OfAUserForWhomThePackagesAreThereNeedsNoSudo)
{
    const Outcome demo = Run(m_somebody);
    EXPECT_EQ(demo.exitCode, 0) << demo.output;
    EXPECT_EQ(BytesOf(m_checkout / "hosts.txt"), NotesOf("0")); // in a user namespace
}

TEST_F(DemoScript, OfAUserWhoMayMakeNoNamespacesGoesOnAsThatUser)
{
    WriteScript(m_programs / "unshare", "exit 1\n");
    const Outcome demo = Run(m_somebody);
    EXPECT_EQ(demo.exitCode, 0) << demo.output;
    EXPECT_EQ(BytesOf(m_checkout / "hosts.txt"), NotesOf("54321"));
}

TEST_F(DemoScript, OfAUserForWhomAPackageIsMissingAsksForSudo)
{
    WriteScript(m_programs / "dpkg-query", "[ \"${!#}\" = ninja-build ] || echo install ok installed\n");
    const Outcome demo = Run(m_somebody);
    EXPECT_EQ(demo.exitCode, 1);
    EXPECT_EQ(demo.output,
              "sudo: not in the sudoers file\n"
              "run: this needs root (network namespaces, packages), and sudo refuses; no root is needed once root has "
              "done this: apt-get install ninja-build\n");
}

TEST_F(DemoScript, WhereSudoRefusesTheTestsRunInAUserNamespace)
{
    const Outcome tests = ListTests(m_somebody);
    EXPECT_EQ(tests.exitCode, 0) << tests.output;
    EXPECT_EQ(tests.output, "sudo: not in the sudoers file\n"
                            "run: no sudo: root in a user namespace will do\n"
                            "building in build\n"
                            "listed as 0\n");
}

TEST_F(DemoScript, WhereSudoAndNamespacesAreRefusedTheTestsSayWhatToDo)
{
    WriteScript(m_programs / "unshare", "exit 1\n");
    const Outcome tests = ListTests(m_somebody);
    EXPECT_EQ(tests.exitCode, 1);
    EXPECT_EQ(tests.output,
              "sudo: not in the sudoers file\n"
              "run: this needs root (network namespaces), and sudo refuses; no root is needed once users may make "
              "namespaces (`unshare --map-root-user --net true` fails)\n");
}

} // namespace
