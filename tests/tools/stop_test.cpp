// SPDX-License-Identifier: Apache-2.0
// Ways in which a grab is asked to stop that are no single signal to a tool that waits for frames.
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <csignal>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace
{

using namespace nq::test;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

TEST(GrabStop, ByOneSignalThatComesTwiceIsClean)
{
    // As `timeout` does it: to its child, and to the group of both.
    const TemporaryFolder folder;
    ChildProcess grab(
        {NQ_TOOL_PATH, "--producer", NQ_FAKE_PRODUCER_PATH, "grab", "--count", "100000000", "--out", folder.Path()},
        {"NQ_FAKE_PRODUCER=EventGetData.sleep=1\nDSStopAcquisition.sleep=500"});
    while (folder.Files().empty())
    {
        ASSERT_EQ(grab.WaitForExit(1ms), -1) << grab.Output();
    }
    // Both wait for the tool when it goes on, however late this test is: a process and a thread have one of each kind.
    grab.Signal(SIGSTOP);
    siginfo_t stopped{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(grab.Pid()), &stopped, WSTOPPED), 0);
    grab.Signal(SIGTERM);
    ASSERT_EQ(tgkill(grab.Pid(), grab.Pid(), SIGTERM), 0);
    grab.Signal(SIGCONT);
    EXPECT_EQ(grab.WaitForExit(kLongTime), 143) << grab.Output();
    EXPECT_THAT(grab.Output(), HasSubstr("\nframes     "));
}

TEST(GrabStop, GivesTheCameraBackThoughThePipeOfThePicturesIsStuck)
{
    const VirtualCamera camera({"--width", "4000", "--height", "4000", "--fps", "20"});
    const TemporaryFolder folder;
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    ChildProcess reader({"/bin/sh", "-c", "exec sleep 1000 <" + (folder / "pipe")});
    ChildProcess grab(
        {"/bin/sh", "-c", "exec " + kOurLine + "grab --count 100000000 --format raw --out - >" + (folder / "pipe")},
        camera.Environment());
    const auto list = [&] { return RunTool({"--timeout", "200", "list"}, camera.Environment()).output; };
    while (list().find("controlled by") == std::string::npos)
    {
        ASSERT_EQ(grab.WaitForExit(0ms), -1) << grab.Output();
    }
    EXPECT_EQ(grab.WaitForExit(5s), -1); // 16 pictures fill the queue
    grab.Signal(SIGTERM);
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (list().find("controlled by") != std::string::npos && std::chrono::steady_clock::now() < end)
    {
    }
    EXPECT_THAT(list(), Not(HasSubstr("controlled by")));
    EXPECT_EQ(grab.WaitForExit(0ms), -1) << "it still has pictures to hand over";
}

} // namespace
