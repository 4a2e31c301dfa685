// SPDX-License-Identifier: Apache-2.0
// examples/testing/: the test of an application beside a virtual camera of its own, and how it tells the camera what
// goes wrong.
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <gmock/gmock.h>

namespace
{

namespace fs = std::filesystem;
using namespace nq::test;
using testing::AllOf;
using testing::HasSubstr;

/// The programs of this build and the example by names without a colon, which would end a path in PATH and its like.
class Links
{
  public:
    Links()
    {
        fs::create_directory_symlink(NQ_BINARY_DIR, m_folder / "build");
        fs::create_directory_symlink(NQ_SOURCE_DIR "/examples/testing", m_folder / "example");
        fs::permissions(m_folder.Path(), fs::perms::others_read | fs::perms::others_exec, fs::perm_options::add);
    }

    std::string Build() const { return m_folder / "build"; }
    std::string Example() const { return m_folder / "example/"; }

  private:
    TemporaryFolder m_folder;
};

const std::string kExample = NQ_SOURCE_DIR "/examples/testing/";

/// The line that runs a test beside a camera, with the programs of this build in the path.
std::vector<std::string> BesideACamera(const std::vector<std::string>& command, const std::string& arguments = "")
{
    static const Links kLinks;
    return Joined({"/usr/bin/env", "PATH=" + kLinks.Build() + ":/usr/sbin:/usr/bin:/sbin:/bin",
                   "GENICAM_GENTL64_PATH=" + kLinks.Build(), "PYTHONPATH=" + kLinks.Example(),
                   "PYTHONDONTWRITEBYTECODE=1", "CAMERA_ARGUMENTS=" + arguments, kLinks.Example() + "with_camera.sh"},
                  command);
}

const std::vector<std::string> kGrab = {"nq-gev", "grab", "--count", "5", "--verify"};

TEST(TestingExample, HasACameraOfItsOwnWhileOthersRun)
{
    const TemporaryFolder folder;
    ChildProcess other(
        BesideACamera({"/bin/sh", "-c", "echo running; until [ -e '" + (folder / "end") + "' ]; do sleep 0.1; done"}));
    ASSERT_TRUE(other.WaitForOutput("running", kLongTime)) << other.Output();
    const Outcome outcome = InTime(HasSubstr("frames     5\n"),
                                   [&] { return RunProgram(BesideACamera(kGrab, "--width 64 --height 48 --fps 0")); });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("frames     5\n"), HasSubstr("wrong      0 bytes\n")));
    std::ofstream(folder / "end").flush();
    EXPECT_EQ(other.WaitForExit(kLongTime), 0) << other.Output();
}

TEST(TestingExample, EndsWithTheExitCodeOfTheTestAndLeavesNothing)
{
    const Outcome outcome =
        RunProgram(BesideACamera({"/bin/sh", "-c", "echo \"$CAMERA_CONTROL\"; echo $NQ_GEV_TL_STANDARD; exit 41"}));
    EXPECT_EQ(outcome.exitCode, 41) << outcome.output;
    const std::size_t end = outcome.output.find('\n');
    ASSERT_NE(end, std::string::npos);
    EXPECT_EQ(outcome.output.substr(end), "\n1\n");
    const fs::path socket = outcome.output.substr(0, end);
    EXPECT_EQ(socket.filename(), "camera.sock");
    EXPECT_FALSE(fs::exists(socket.parent_path()));
}

TEST(TestingExample, TellsTheCameraWhatGoesWrong)
{
    const std::string test = "from camera import tell\nimport subprocess, sys\n"
                             "tell(fault='short-frame')\n"
                             "sys.exit(subprocess.run(['nq-gev', 'grab', '--count', '3']).returncode)\n";
    const Outcome outcome = InTime(HasSubstr("frames     3\n"), [&] {
        return RunProgram(BesideACamera({"/usr/bin/python3", "-c", test}, "--width 64 --height 48 --fps 0"));
    });
    EXPECT_EQ(outcome.exitCode, 7) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("frames     3\nlost       0\nincomplete 1\n"));
}

TEST(TestingExample, SaysWhatTheCameraRefuses)
{
    const Outcome outcome =
        RunProgram(BesideACamera({"/usr/bin/python3", kExample + "camera.py", R"({"fault": "no-such-fault"})"}));
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.output, HasSubstr("RuntimeError: "));
    EXPECT_THAT(outcome.output, HasSubstr("no-such-fault"));
}

TEST(TestingExample, WithoutACameraEndsWithWhatTheCameraSays)
{
    const Outcome outcome = RunProgram(BesideACamera({"/bin/echo", "not run"}, "--width 0"));
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("--width"), testing::Not(HasSubstr("not run"))));
}

TEST(TestingExample, NeedsNoRoot)
{
    const std::vector<std::string> asUser = {"/usr/bin/setpriv", "--reuid=54321", "--regid=54321", "--clear-groups"};
    if (RunProgram(Joined(asUser, {"/usr/bin/test", "-x", kExample + "with_camera.sh", "-a", "-x", NQ_TOOL_PATH}))
            .exitCode != 0)
    {
        GTEST_SKIP() << "this checkout is for its owner alone";
    }
    const Outcome outcome = InTime(HasSubstr("frames     5\n"),
                                   [&] { return RunProgram(Joined(asUser, BesideACamera(kGrab, "--fps 0"))); });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
}

} // namespace
