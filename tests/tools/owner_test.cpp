// SPDX-License-Identifier: Apache-2.0
// A camera that somebody else controls: who, what to do, and waiting for it.
#include "support/gvcp_camera.h"
#include "support/json_schema.h"
#include "support/network.h"
#include "support/stream_in_both_modes.h"
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/view.h"
#include "support/virtual_camera.h"

#include <atomic>
#include <csignal>
#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <memory>
#include <set>
#include <utility>

namespace
{

using namespace nq::test;
using testing::ContainsRegex;
using testing::HasSubstr;

/// A camera with a program that controls it for as long as the test wants.
class ToolOwner : public testing::Test
{
  protected:
    ToolOwner()
        : m_owner(Command({"grab", "--count", "1000000000", "--frame-timeout", "60000"}), m_camera.Environment())
    {
        while (RunTool({"--timeout", "200", "list"}, m_camera.Environment()).output.find("access busy") ==
               std::string::npos)
        {
            if (m_owner.WaitForExit(std::chrono::milliseconds(0)) != -1)
            {
                throw std::runtime_error(m_owner.Output());
            }
        }
    }

    static std::vector<std::string> Command(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {NQ_TOOL_PATH, "--producer", NQ_CTI_PATH});
        return arguments;
    }

    VirtualCamera m_camera{{"--width", "64", "--height", "48", "--fps", "5"}};
    ChildProcess m_owner;
};

TEST_F(ToolOwner, IsToldByListAndGrab)
{
    const auto told = ContainsRegex("    controlled by 10\\.77\\.0\\.1, UDP port [1-9][0-9]*\n");
    const Outcome list = InTime(told, [this] { return RunTool({"list"}, m_camera.Environment()); });
    EXPECT_EQ(list.exitCode, 0) << list.output;
    EXPECT_THAT(list.output, told);
    const Outcome json = InTime(HasSubstr("\"controlled_by\": {"), [this] {
        return RunTool({"--json", "list"}, m_camera.Environment());
    });
    ExpectFitsSchema("list", json.output);
    EXPECT_THAT(json.output, ContainsRegex("\"controlled_by\": \\{\n *\"address\": \"10\\.77\\.0\\.1\",\n *\"port\": "
                                           "[1-9][0-9]*,\n *\"exclusive\": false,\n *\"heartbeat_ms\": [1-9]"));
    const Outcome grab = RunTool({"grab"}, m_camera.Environment());
    EXPECT_EQ(grab.exitCode, 8) << grab.output;
    EXPECT_THAT(
        grab.output,
        ContainsRegex("is controlled by 10\\.77\\.0\\.1, UDP port [1-9][0-9]*\\. End that program; or give --wait "
                      "SECONDS to wait until the camera is free, which it is [1-9][0-9]* ms after a crash\\.\n"));
}

TEST_F(ToolOwner, CanBeWaitedForBySeveral)
{
    std::vector<std::unique_ptr<ChildProcess>> waiting;
    for (int one = 0; one < 4; ++one)
    {
        waiting.push_back(std::make_unique<ChildProcess>(Command({"grab", "--wait", "60"}), m_camera.Environment()));
    }
    for (const auto& one : waiting)
    {
        ASSERT_TRUE(one->WaitForOutput("nq-gev: waiting for the camera, which 10.77.0.1", kLongTime)) << one->Output();
    }
    m_owner.Signal(SIGINT);
    for (const auto& one : waiting)
    {
        EXPECT_EQ(one->WaitForExit(kLongTime), 0) << one->Output();
    }
}

TEST_F(ToolOwner, IsWaitedForByThePageWithoutAnOption)
{
    View view({}, m_camera.Environment());
    EXPECT_THAT(view.NumbersWith("\"state\":\"taken\""),
                ContainsRegex("\"text\":\"the camera [^ ]+ is controlled by 10\\.77\\.0\\.1, UDP port [0-9]+\""));
    m_owner.Signal(SIGINT);
    EXPECT_THAT(view.NumbersWith("\"state\":\"running\""), HasSubstr("\"text\":\"\""));
    EXPECT_THAT(view.Process().Output(), testing::Not(HasSubstr("--wait")));
}

TEST_F(ToolOwner, EndsAWaitBySignal)
{
    ChildProcess waiting(Command({"grab", "--wait", "60"}), m_camera.Environment());
    ASSERT_TRUE(waiting.WaitForOutput("nq-gev: waiting for the camera, which 10.77.0.1", kLongTime))
        << waiting.Output();
    waiting.Signal(SIGTERM);
    EXPECT_EQ(waiting.WaitForExit(std::chrono::seconds(20)), 143) << waiting.Output();
}

TEST_F(ToolOwner, CanBeWaitedFor)
{
    ChildProcess waiting(Command({"grab", "--wait", "60"}), m_camera.Environment());
    ASSERT_TRUE(waiting.WaitForOutput("nq-gev: waiting for the camera, which 10.77.0.1", kLongTime))
        << waiting.Output();
    m_owner.Signal(SIGINT);
    EXPECT_EQ(waiting.WaitForExit(kLongTime), 0) << waiting.Output();
    EXPECT_THAT(waiting.Output(), HasSubstr("frames     1\n"));
}

/// A camera of the test's own at 10.9.0.2, for a host with 10.9.0.1.
class ToolOwnerOfFarCamera : public testing::Test
{
  protected:
    ToolOwnerOfFarCamera()
    {
        m_far.Connect("here", "10.9.0.1/24", "there", "10.9.0.2/24");
        m_camera = std::make_unique<GvcpCamera>(&m_far);
        GvcpDiscovery identity;
        identity.ipAddress = 0x0A090002;
        identity.subnetMask = 0xFFFFFF00;
        identity.deviceVersion = "3.0.0";
        m_camera->SetDiscovery(identity);
    }

    const Host m_far;
    std::unique_ptr<GvcpCamera> m_camera;
};

TEST_F(ToolOwnerOfFarCamera, IsReadFromFourRegistersAndNothingIsWritten)
{
    m_camera->SetRegister(0x0A00, 1);
    m_camera->SetRegister(0x0A04, 40000);
    m_camera->SetRegister(0x0A14, 0x0A090007);
    m_camera->SetRegister(0x0938, 3000);
    const Outcome grab = RunTool({"grab"});
    EXPECT_EQ(grab.exitCode, 8) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("nq-gev: the camera Model:02-11-22-33-44-55 is controlled by 10.9.0.7, UDP port "
                                       "40000, exclusively. End that program; or give --wait SECONDS to wait until the "
                                       "camera is free, which it is 3000 ms after a crash.\n"));
    EXPECT_THAT(m_camera->Accesses(),
                testing::Each(testing::AnyOf("discovery", "read 0x0A00", "read 0x0A04", "read 0x0A14", "read 0x0938")));
    // A command that was sent again, for its answer was late, is the same datagram of the same port.
    std::set<std::pair<std::uint16_t, Bytes>> asked;
    for (const GvcpCamera::Datagram& one : m_camera->Received())
    {
        if (gvcp::Describe(one.bytes) == "read 0x0A14")
        {
            asked.emplace(one.senderPort, one.bytes);
        }
    }
    EXPECT_EQ(asked.size(), 1U);
}

TEST(ToolOwnerOfAnyCamera, OfAnotherProducerShowsByItsRefusal)
{
    for (const std::string code : {"GC_ERR_RESOURCE_IN_USE (-1004)", "GC_ERR_ACCESS_DENIED (-1005)"})
    {
        const Outcome grab = RunOnFake("IFOpenDevice.code=" + code.substr(code.find('-'), 5), {"grab"});
        EXPECT_EQ(grab.exitCode, 8) << grab.output;
        EXPECT_THAT(grab.output, HasSubstr("nq-gev: the camera Camera is controlled by another program, says the "
                                           "producer: " +
                                           code +
                                           ". End that program; or give --wait SECONDS to wait until the camera is "
                                           "free.\n"));
    }
    const Outcome waited = RunOnFake("IFOpenDevice@1.code=-1005\nIFOpenDevice@2.code=-1005", {"grab", "--wait", "20"});
    EXPECT_EQ(waited.exitCode, 0) << waited.output;
    const std::string told =
        "nq-gev: waiting for the camera, which the producer refuses to open: GC_ERR_ACCESS_DENIED (-1005)\n";
    EXPECT_THAT(waited.output, HasSubstr(told));
    EXPECT_EQ(waited.output.find(told), waited.output.rfind(told)) << "said once";
    EXPECT_EQ(RunOnFake("IFOpenDevice.code=-1010", {"grab"}).exitCode, 1);
}

TEST_F(ToolOwnerOfFarCamera, IsNoOneForACameraThatAnswersTheProducerTooLate)
{
    m_camera->SetRegister(0x0A00, 0);
    // Our producer takes 100 ms of silence for a refusal, the tool waits for longer.
    std::atomic<int> late = 0;
    m_camera->Otherwise([&](const Bytes& command) {
        std::vector<GvcpReply> replies = m_camera->AnswerFromMemory(command);
        if (gvcp::Describe(command) == "read 0x0A00" && late-- > 0)
        {
            replies.at(0).delay = std::chrono::milliseconds(150);
        }
        return replies;
    });
    const auto waiting = HasSubstr("nq-gev: waiting for the camera, which the producer refuses to open: "
                                   "GC_ERR_ACCESS_DENIED (-1005)\n");
    // A producer that is late itself finds the answer there.
    const Outcome grab = InTime(waiting, [&] {
        late = 8;
        return RunTool({"grab"});
    });
    EXPECT_THAT(grab.output, waiting);
    EXPECT_THAT(grab.output, HasSubstr("nq-gev: the stream did not start: the camera Model:02-11-22-33-44-55 has none "
                                       "that comes by RDMA (RoCE v2), which is all that this producer takes\n"));
    EXPECT_EQ(grab.exitCode, 5);
}

TEST_F(ToolOwnerOfFarCamera, IsNoOneForACameraThatAnswersTheDiscoveryAlone)
{
    m_camera->Otherwise([this](const Bytes& command) {
        return gvcp::Describe(command) == "discovery" ? m_camera->AnswerFromMemory(command) : std::vector<GvcpReply>();
    });
    const Outcome grab = RunTool({"grab"});
    EXPECT_EQ(grab.exitCode, 6) << grab.output;
    EXPECT_THAT(
        grab.output,
        HasSubstr("nq-gev: the camera Model:02-11-22-33-44-55 at 10.9.0.2 is silent: it answered the search, but "
                  "no read of a register, and cannot be opened: GC_ERR_ACCESS_DENIED (-1005). `nq-gev doctor "
                  "--camera 10.9.0.2` tells more.\n"));
}

TEST_F(ToolOwnerOfFarCamera, IsNotThisProgramWhoseControlIsConfirmedLate)
{
    m_camera->SetRegister(0x0A00, 0);
    // The producer takes control; the tool asks for it again, and our producer asks twice before it gives up.
    std::atomic<int> asked = 0;
    m_camera->Otherwise([&](const Bytes& command) {
        const bool lost = gvcp::Describe(command).starts_with("write 0x0A00") && (++asked == 2 || asked == 3);
        return lost ? std::vector<GvcpReply>() : m_camera->AnswerFromMemory(command);
    });
    const Outcome grab = RunTool({"grab"});
    EXPECT_GE(asked, 4);
    EXPECT_THAT(grab.output, HasSubstr("nq-gev: the stream did not start: the camera Model:02-11-22-33-44-55 has none "
                                       "that comes by RDMA (RoCE v2), which is all that this producer takes\n"));
    EXPECT_EQ(grab.exitCode, 5);
}

TEST(ToolOwnerOfAnyCamera, IsNoneWhereAllAnswersAreTooLateForTheProducer)
{
    const VirtualCamera camera({"--fault", "late-ack:150:0"});
    const TemporaryFolder folder;
    std::ofstream(folder / "settings.txt") << "Width = 320\n";
    const auto refused = HasSubstr("nq-gev: the producer refuses to open the camera "
                                   "NQ-GEV-Camera:02-00-0a-4d-00-02: GC_ERR_ACCESS_DENIED (-1005), though nobody "
                                   "controls it: its answers may come too late, `nq-gev doctor` measures them\n");
    // A producer that is late itself finds the answers there.
    const Outcome load = InTime(refused, [&] {
        return RunTool({"load", folder / "settings.txt"}, camera.Environment());
    });
    EXPECT_THAT(load.output, refused);
    EXPECT_EQ(load.exitCode, 1);
}

TEST(ToolCameraOnLo, IsFoundOrTheMessageSaysWhyNot)
{
    ChildProcess camera({NQ_CAMERA_PATH, "--address", "127.0.0.1"});
    ASSERT_TRUE(camera.WaitForOutput("ready", kLongTime)) << camera.Output();
    EXPECT_THAT(camera.Output(), HasSubstr("no host looks for cameras at 127.0.0.1"));
    const Outcome hidden = RunTool({"list"});
    EXPECT_EQ(hidden.exitCode, 4) << hidden.output;
    EXPECT_THAT(hidden.output, HasSubstr("No camera answered where producers look, but one does at 127.0.0.1"));
    camera.Signal(SIGTERM);
    EXPECT_EQ(camera.WaitForExit(kLongTime), 0);

    Shell("ip addr add 10.9.0.1/24 dev lo label lo:1");
    ChildProcess labelled({NQ_CAMERA_PATH, "--address", "10.9.0.1"});
    ASSERT_TRUE(labelled.WaitForOutput("ready", kLongTime)) << labelled.Output();
    const auto found = HasSubstr("address 10.9.0.1  access read/write");
    EXPECT_THAT(InTime(found, [] { return RunTool({"list"}); }).output, found);
    // Without the label the kernel tells the netmask of 127.0.0.1 for it.
    Shell("ip addr del 10.9.0.1/24 dev lo && ip addr add 10.9.0.1/24 dev lo");
    EXPECT_THAT(RunTool({"list"}).output,
                HasSubstr("    out of reach: its subnet is not the one of the interface (`ip addr`)\n"));
    const Outcome grab = RunTool({"grab"});
    EXPECT_EQ(grab.exitCode, 1);
    EXPECT_THAT(grab.output, HasSubstr("at 10.9.0.1 is out of reach"));
}

class StreamBesideTheTool : public StreamInBothModes
{
};

TEST_P(StreamBesideTheTool, GoesOnWhileTheToolIsRefused)
{
    AnnounceAndQueue();
    ASSERT_EQ(c.Start(), 0);
    EXPECT_EQ(c.Take(10), Ids(1, 10));
    const std::string answers = GetParam();
    const Outcome list = RunTool({"--answers", answers, "list"}, camera.Environment());
    EXPECT_THAT(list.output, HasSubstr(Standard() ? "access busy\n" : "access read only\n"));
    EXPECT_EQ(RunTool({"--answers", answers, "grab"}, camera.Environment()).exitCode, 8);
    EXPECT_EQ(c.Take(20), Ids(11, 30));
    EXPECT_EQ(c.Stop(), 0);
    c.CloseLibrary();
    EXPECT_EQ(RunTool({"--answers", answers, "grab"}, camera.Environment()).exitCode, 0) << "it is free again";
}

NQ_IN_BOTH_MODES(StreamBesideTheTool);

} // namespace
