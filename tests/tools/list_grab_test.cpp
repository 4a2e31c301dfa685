// SPDX-License-Identifier: Apache-2.0
// nq-gev against the virtual camera: what a user sees, and the exit codes.
#include "support/json_schema.h"
#include "support/network.h"
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
using testing::HasSubstr;
using namespace std::chrono_literals;

TEST(ToolList, ShowsTheCameraWithItsModelSerialNumberNameAddressAndAccess)
{
    const VirtualCamera camera({"--serial", "SN-4711", "--user-name", "left \x1B[5m"});
    const Outcome list =
        InTime(HasSubstr("access read/write"), [&] { return RunTool({"list"}, camera.Environment()); });
    EXPECT_EQ(list.exitCode, 0) << list.output;
    EXPECT_THAT(list.output, HasSubstr("serial SN-4711"));
    EXPECT_THAT(list.output, HasSubstr("address 10.77.0.2"));
    EXPECT_THAT(list.output, HasSubstr("access read/write"));
    EXPECT_THAT(list.output, HasSubstr("\n    name left \\x1b[5m\n")) << "without what a terminal obeys";
}

TEST(ToolList, ShowsACameraOnAnotherSubnetAsOutOfReach)
{
    const VirtualCamera camera({"--serial", "SN-4711"});
    AcceptEverySource(camera.Machine());
    Shell("ip addr del 10.77.0.1/24 dev host0 && ip addr add 192.168.9.1/24 brd + dev host0");
    const Outcome list = Heard([&] { return RunTool({"list"}, camera.Environment()); });
    EXPECT_EQ(list.exitCode, 0) << list.output;
    EXPECT_THAT(list.output, HasSubstr("serial SN-4711"));
    EXPECT_THAT(list.output, HasSubstr("address 10.77.0.2"));
    EXPECT_THAT(list.output, HasSubstr("access no access"));
}

TEST(ToolList, PrintsTheSameAsJson)
{
    const VirtualCamera camera({"--serial", "SN-4711", "--user-name", "left"});
    const Outcome list = Heard([&] { return RunTool({"--json", "list"}, camera.Environment()); });
    EXPECT_EQ(list.exitCode, 0) << list.output;
    ExpectFitsSchema("list", list.output);
    EXPECT_THAT(list.output, HasSubstr("\"serial\": \"SN-4711\""));
    EXPECT_THAT(list.output, HasSubstr("\"address\": \"10.77.0.2\""));
    EXPECT_THAT(list.output, HasSubstr("\"user_name\": \"left\""));
}

TEST(ToolList, HasNoLineForANameThatNobodyGave)
{
    const VirtualCamera camera;
    const Outcome list = Heard([&] { return RunTool({"list"}, camera.Environment()); });
    EXPECT_EQ(list.exitCode, 0) << list.output;
    EXPECT_THAT(list.output, testing::Not(HasSubstr("    name")));
}

TEST(ToolList, SaysWhatToLookAtWhenNoCameraAnswers)
{
    Host nobody;
    nobody.Connect("host0", "10.77.0.1/24", "cam0", "10.77.0.2/24");
    const Outcome list = RunTool({"--timeout", "200", "list"});
    EXPECT_EQ(list.exitCode, 4) << list.output;
    EXPECT_THAT(list.output, HasSubstr("No camera answered"));
    EXPECT_THAT(list.output, HasSubstr("UDP port 3956"));
}

TEST(ToolList, RefusesAFileThatIsNoProducer)
{
    ChildProcess tool({NQ_TOOL_PATH, "--producer", "/proc/self/exe", "list"});
    EXPECT_EQ(tool.WaitForExit(kLongTime), 3) << tool.Output();
    EXPECT_THAT(tool.Output(), HasSubstr("producer"));
}

TEST(ToolArguments, UnknownOnesGiveExitCodeTwo)
{
    EXPECT_EQ(RunTool({"grab", "--no-such-option"}).exitCode, 2);
    EXPECT_EQ(RunTool({}).exitCode, 2);
}

TEST(ToolArguments, HelpAndVersionThatCannotBeWrittenAreAFailure)
{
    for (const std::string program : {NQ_TOOL_PATH, NQ_CAMERA_PATH, NQ_BINARY_DIR "/nq-software-rdma"})
    {
        for (const char* option : {"--help", "--version"})
        {
            const Outcome full = RunProgram({"/bin/sh", "-c", "exec '" + program + "' " + option + " >/dev/full"});
            EXPECT_EQ(full.exitCode, 1) << program << " " << option;
            EXPECT_EQ(RunProgram({program, option}).exitCode, 0);
        }
    }
    const Outcome told = RunProgram({"/bin/sh", "-c", kToolLine + "--help >/dev/full"});
    EXPECT_EQ(told.output, "nq-gev: cannot write the output: No space left on device\n");
    const Outcome launcher =
        RunProgram({"/bin/sh", "-c", "exec '" NQ_BINARY_DIR "/nq-software-rdma' --help >/dev/full"});
    EXPECT_EQ(launcher.output, "nq-software-rdma: cannot write the output: No space left on device\n");
    const Outcome camera = RunProgram({"/bin/sh", "-c", "exec '" NQ_CAMERA_PATH "' --features >/dev/full"});
    EXPECT_EQ(camera.exitCode, 1);
    EXPECT_EQ(camera.output, "nq-gev-camera: cannot write the output: No space left on device\n");
}

TEST(ToolArguments, NoTimeIsNegative)
{
    for (const char* option : {"--timeout", "--frame-timeout"})
    {
        const Outcome grab = RunProgram({NQ_TOOL_PATH, "--producer", NQ_FAKE_PRODUCER_PATH, "grab", option, "-5"});
        EXPECT_EQ(grab.exitCode, 2) << grab.output;
    }
}

class ToolGrabOrigin : public testing::TestWithParam<const char*>
{
};

TEST_P(ToolGrabOrigin, ThreeHundredVerifiedFramesInThreeBuffers)
{
    const VirtualCamera camera({"--width", "640", "--height", "480"});
    std::vector<std::string> arguments = {"grab", "--count", "300", "--verify", "--buffers", "3"};
    if (std::string(GetParam()) == "announced")
    {
        arguments.emplace_back("--announce");
    }
    const Outcome grab = RunTool(arguments, camera.Environment());
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("frames     300\nlost       0\nincomplete 0\n"));
    EXPECT_THAT(grab.output, HasSubstr("wrong      0 bytes"));
}

INSTANTIATE_TEST_SUITE_P(Buffers, ToolGrabOrigin, testing::Values("library", "announced"),
                         [](const auto& parameter) { return std::string(parameter.param); });

TEST(ToolGrab, WritesEachFrameAsAWholePngFile)
{
    const VirtualCamera camera({"--width", "320", "--height", "200"});
    const TemporaryFolder folder;
    const Outcome grab = RunTool({"grab", "--count", "5", "--out", folder.Path()}, camera.Environment());
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    const auto files = folder.Files();
    EXPECT_EQ(files.size(), 5U);
    for (const auto& file : files)
    {
        EXPECT_TRUE(IsWholePng(file)) << file;
    }
}

TEST(ToolGrab, SaysThatTheCameraRefusedTheRdmaConnection)
{
    const VirtualCamera camera({"--fault", "reject-connect"});
    const Outcome grab = RunTool({"grab", "--count", "5"}, camera.Environment());
    EXPECT_EQ(grab.exitCode, 5) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("GC_ERR_ERROR (-1001)"));
    EXPECT_THAT(grab.output, HasSubstr("refused or did not answer the RDMA connection"));
}

TEST(ToolGrab, SaysThatTheCameraWentSilentAndWhatCameBefore)
{
    VirtualCamera camera({"--width", "320", "--height", "200", "--fps", "20"});
    const TemporaryFolder folder;
    std::vector<std::string> command = {NQ_TOOL_PATH, "--producer",  NQ_CTI_PATH,       "grab", "--count", "100000",
                                        "--out",      folder.Path(), "--frame-timeout", "1500"};
    ChildProcess tool(command, camera.Environment());
    while (folder.Files().size() < 3)
    {
        ASSERT_EQ(tool.WaitForExit(20ms), -1) << tool.Output();
    }
    camera.Process().Signal(SIGSTOP);
    EXPECT_EQ(tool.WaitForExit(kLongTime), 6) << tool.Output();
    camera.Process().Signal(SIGCONT);
    EXPECT_THAT(tool.Output(),
                HasSubstr("the camera 10.77.0.2 went silent: its control channel does not answer (`nq-gev "
                          "doctor --camera 10.77.0.2` tells more)"));
    EXPECT_THAT(tool.Output(), testing::ContainsRegex("after [1-9][0-9]* of 100000"));
    for (const auto& file : folder.Files())
    {
        EXPECT_TRUE(IsWholePng(file)) << file;
    }
}

TEST(ToolGrab, SaysThatTheCameraDisconnectedInTheMiddleOfAFrame)
{
    const VirtualCamera camera({"--width", "320", "--height", "200", "--fault", "disconnect-mid-frame:3"});
    const Outcome grab = RunTool({"grab", "--count", "100", "--frame-timeout", "1500"}, camera.Environment());
    EXPECT_EQ(grab.exitCode, 6) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("disconnected"));
    EXPECT_THAT(grab.output, HasSubstr(" of 100: "));
}

TEST(ToolGrab, CountsAShortFrameAsIncompleteAndFailsTheVerification)
{
    const VirtualCamera camera({"--width", "320", "--height", "200", "--fault", "short-frame:4"});
    const Outcome grab = RunTool({"grab", "--count", "10", "--verify"}, camera.Environment());
    EXPECT_EQ(grab.exitCode, 7) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("incomplete 1\n"));
}

TEST(ToolGrab, WithoutAnRdmaStackListsAndOpensButCannotStart)
{
    const VirtualCamera camera;
    std::vector<std::string> environment = camera.Environment();
    environment.emplace_back("NQ_RDMA_LOOPBACK_NO_DEVICE=1");
    EXPECT_EQ(Heard([&] { return RunTool({"list"}, environment); }).exitCode, 0);
    const Outcome grab = RunTool({"grab", "--count", "1"}, environment);
    EXPECT_EQ(grab.exitCode, 5) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("GC_ERR_ERROR (-1001)"));
}

TEST(ToolGrab, NamesTheLimitOnLockedMemoryWhenNoFrameComes)
{
    const VirtualCamera camera({"--width", "640", "--height", "480"});
    std::vector<std::string> environment = camera.Environment();
    environment.emplace_back("NQ_RDMA_LOOPBACK_MEMLOCK=65536");
    // A root without the right to lock any amount.
    const auto grab = [&](const std::string& limit) {
        ChildProcess tool({"/usr/bin/prlimit", "--memlock=" + limit, "/usr/bin/setpriv", "--bounding-set=-ipc_lock",
                           "--inh-caps=-ipc_lock", NQ_TOOL_PATH, "--producer", NQ_CTI_PATH, "grab", "--count", "5",
                           "--frame-timeout", "1000"},
                          environment);
        const int code = tool.WaitForExit(kLongTime);
        return Outcome{code, tool.Output()};
    };
    const Outcome small = grab("65536:65536");
    EXPECT_EQ(small.exitCode, 6) << small.output;
    EXPECT_THAT(small.output, HasSubstr("sends no frames: this user may lock 64 KiB of memory (RLIMIT_MEMLOCK, see "
                                        "`ulimit -l`), and the frame buffers need 1200 KiB"));
    const Outcome large = grab("1228800:1228800");
    EXPECT_EQ(large.exitCode, 6) << large.output;
    EXPECT_THAT(large.output, HasSubstr("sends no frames: it waits for a trigger"));
}

TEST(ToolGrab, NamesTheCameraItCannotFind)
{
    const VirtualCamera camera;
    const Outcome grab = RunTool({"grab", "--camera", "no-such-camera"}, camera.Environment());
    EXPECT_EQ(grab.exitCode, 4) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("no-such-camera"));
}

} // namespace
