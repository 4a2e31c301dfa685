// SPDX-License-Identifier: Apache-2.0
// Events of a camera and of the modules on the way to it, as nq-gev events prints them.
#include "support/json_schema.h"
#include "support/network.h"
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <csignal>
#include <gmock/gmock.h>
#include <sstream>

namespace
{

using namespace nq::test;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;

const std::string kMoment = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z";
constexpr const char* kOnTheCamera = "nq-gev: listening to the camera NQ-GEV-Camera:02-00-0a-4d-00-02\n";

class ToolEvents : public testing::Test
{
  protected:
    ChildProcess Start(const std::vector<std::string>& arguments) const
    {
        return ChildProcess(Joined({NQ_TOOL_PATH, "--producer", NQ_CTI_PATH}, arguments), m_camera.Environment());
    }

    /// Has the camera send an event.
    void Send(int id) const
    {
        EXPECT_THAT(m_camera.Control(R"({"cmd":"event","id":)" + std::to_string(id) + "}"),
                    HasSubstr(R"("sent":true)"));
    }

    VirtualCamera m_camera;
};

TEST_F(ToolEvents, ComeFromTheCameraAndFromItsLoss)
{
    ChildProcess events = Start({"events"});
    ASSERT_TRUE(events.WaitForOutput(kOnTheCamera, kLongTime)) << events.Output();
    ASSERT_TRUE(events.WaitForOutput("open read/write\n", kLongTime)) << events.Output();
    Send(0x9002);
    ASSERT_TRUE(events.WaitForOutput("FrameEnd", kLongTime)) << events.Output();
    Send(0x9ABC); // no feature is about this one
    ASSERT_TRUE(events.WaitForOutput("0x9ABC", kLongTime)) << events.Output();
    m_camera.Kill();
    EXPECT_EQ(events.WaitForExit(kLongTime), 6) << events.Output();
    const std::string behind = "[0-9a-f]{16} and 524 zeros\n";
    EXPECT_THAT(WithoutWait(events.Output()),
                MatchesRegex(kOnTheCamera + kMoment + "  device  connection  open read/write\n" + kMoment +
                             "  device  remote-device  0x9002  FrameEnd  0000900200000000" + behind + kMoment +
                             "  device  remote-device  0x9ABC  00009abc00000000" + behind + kMoment +
                             "  device  connection  no access\n"
                             "nq-gev: the camera NQ-GEV-Camera:02-00-0a-4d-00-02 is lost: it does not answer, or its "
                             "control went to another program \\(`nq-gev list`\\)\n"));
}

TEST_F(ToolEvents, AreLinesOfJsonAndEndWithTheirCount)
{
    const TemporaryFolder folder;
    ChildProcess events({"/bin/sh", "-c",
                         "exec " + kOurLine + "--json events --count 2 'EventNotification[ExposureEnd]=On' 2>'" +
                             (folder / "errors") + "'"},
                        m_camera.Environment());
    ASSERT_TRUE(events.WaitForOutput("open read/write", kLongTime)) << events.Output();
    Send(0x9001);
    EXPECT_EQ(events.WaitForExit(kLongTime), 0) << events.Output();
    EXPECT_EQ(WithoutWait(BytesOf(folder / "errors")), kOnTheCamera);
    EXPECT_THAT(
        events.Output(),
        MatchesRegex("\\{\"time\":\"" + kMoment +
                     "\",\"module\":\"device\",\"event\":\"connection\",\"id\":5,\"name\":null,\"data\":null,"
                     "\"text\":\"open read/write\"\\}\n\\{\"time\":\"" +
                     kMoment +
                     "\",\"module\":\"device\",\"event\":\"remote-device\",\"id\":36865,\"name\":\"ExposureEnd\","
                     "\"data\":\"0000900100000000[0-9a-f]{16}(00)*\",\"text\":null\\}\n"));
    std::istringstream lines(events.Output());
    for (std::string line; std::getline(lines, line);)
    {
        ExpectFitsSchema("events", line);
    }
    const Outcome set =
        RunTool({"get", "EventNotification[ExposureEnd]", "EventNotification[FrameEnd]"}, m_camera.Environment());
    EXPECT_EQ(WithoutWait(set.output), "EventNotification[ExposureEnd] = On\nEventNotification[FrameEnd] = Off\n");
}

TEST_F(ToolEvents, OfTheProducerAloneComeWhileAnotherProgramControlsTheCamera)
{
    ChildProcess owner = Start({"events"});
    ASSERT_TRUE(owner.WaitForOutput(kOnTheCamera, kLongTime)) << owner.Output();
    const Outcome second = RunTool({"events", "--count", "1"}, m_camera.Environment());
    EXPECT_EQ(second.exitCode, 0) << second.output;
    EXPECT_THAT(WithoutWait(second.output),
                MatchesRegex("nq-gev: listening to the camera NQ-GEV-Camera:02-00-0a-4d-00-02, which 10\\.77\\.0\\.1, "
                             "UDP port [1-9][0-9]* controls: its own events go there, and here its loss and the events "
                             "of this producer's modules alone are told\n" +
                             kMoment + "  device  connection  open read only\n"));
    const Outcome set = RunTool({"events", "Width=320"}, m_camera.Environment());
    EXPECT_EQ(set.exitCode, 8) << set.output;
    EXPECT_THAT(set.output, HasSubstr("is controlled by 10.77.0.1, UDP port "));
    owner.Signal(SIGINT);
    EXPECT_EQ(owner.WaitForExit(kLongTime), 130) << owner.Output();
}

TEST_F(ToolEvents, LeaveTheControlToOthersWhenTold)
{
    ChildProcess events = Start({"events", "--read-only"});
    ASSERT_TRUE(
        events.WaitForOutput("nq-gev: listening to the camera NQ-GEV-Camera:02-00-0a-4d-00-02 without control "
                             "of it: its own events go to the program that controls it, and here its loss and the "
                             "events of this producer's modules alone are told\n",
                             kLongTime))
        << events.Output();
    const Outcome set = RunTool({"set", "Width=320"}, m_camera.Environment());
    EXPECT_EQ(WithoutWait(set.output), "Width = 320\n");
    events.Signal(SIGTERM);
    EXPECT_EQ(events.WaitForExit(kLongTime), 143) << events.Output();
    const Outcome both = RunTool({"events", "--read-only", "Width=640"}, m_camera.Environment());
    EXPECT_EQ(both.exitCode, 2) << both.output;
}

TEST_F(ToolEvents, EndWithTheirTimeAndWithTheirReader)
{
    const Outcome timed = RunTool({"events", "--duration", "1"}, m_camera.Environment());
    EXPECT_EQ(timed.exitCode, 0) << timed.output;
    const std::string line = kOurLine + "events --read-only";
    const Outcome closed =
        RunProgram({"/bin/sh", "-c", "{ " + line + "; echo code $? >&2; } | true"}, m_camera.Environment());
    EXPECT_THAT(closed.output, AllOf(HasSubstr("nq-gev: cannot write the output: Broken pipe\n"), HasSubstr("code 1")));
    const Outcome full = RunProgram({"/bin/sh", "-c", line + " >/dev/full"}, m_camera.Environment());
    EXPECT_EQ(full.exitCode, 1) << full.output;
    EXPECT_THAT(full.output, HasSubstr("nq-gev: cannot write the output: No space left on device\n"));
}

TEST_F(ToolEvents, HaveNumbersAloneWithoutTheEngineForFeatures)
{
    const TemporaryFolder folder;
    std::filesystem::copy_file(NQ_TOOL_PATH, folder / "nq-gev");
    ChildProcess events({folder / "nq-gev", "--producer", NQ_CTI_PATH, "events"}, m_camera.Environment());
    ASSERT_TRUE(events.WaitForOutput(kOnTheCamera, kLongTime)) << events.Output();
    Send(0x9002);
    EXPECT_TRUE(events.WaitForOutput("  device  remote-device  0x9002  0000900200000000", kLongTime))
        << events.Output();
}

TEST(ToolEventsOfAnyProducer, AreAFailureWhereThereAreNone)
{
    const Outcome none = RunOnFake("GCRegisterEvent.code=-1003", {"events"});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_EQ(none.output, "nq-gev: listening to the camera Camera\n"
                           "nq-gev: the producer tells no events (any more) of the camera Camera\n");
}

} // namespace
